#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pipe/pipe_security.h"
#include "tests/pipe/pipe_util.h"

namespace {

constexpr DWORD kGenerous = 120000; // ms
constexpr std::size_t kLongest = 16u * 1024 * 1024;

/// A name that no other test, of this or another process, uses.
std::string UniqueName() {
  static std::atomic<int> count{0};
  return "vpipe_test_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++count);
}

bool Eventually(const std::function<bool()>& condition) {
  const ULONGLONG start = GetTickCount64();
  while (!condition()) {
    if (GetTickCount64() - start > kGenerous) {
      return false;
    }
    Sleep(1);
  }
  return true;
}

/// A run of pipe_peer; killed at the latest by the destructor.
class Peer {
public:
  Peer(const std::string& mode, const std::string& name, const std::string& argument = "") {
    char path[MAX_PATH];
    std::string program(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
    program = program.substr(0, program.find_last_of('\\') + 1) + "pipe_peer.exe";
    std::string commandLine = "\"" + program + "\" " + mode + " " + name + " " + argument;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    if (!CreateProcessA(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &m_process)) {
      ADD_FAILURE() << "pipe_peer does not start: " << GetLastError();
    }
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() {
    Kill();
    CloseHandle(m_process.hThread);
    CloseHandle(m_process.hProcess);
  }

  void Kill() {
    TerminateProcess(m_process.hProcess, 99);
    WaitForSingleObject(m_process.hProcess, kGenerous);
  }

  /// Waits for the end; 0xFFFF when it does not come.
  DWORD ExitCode() {
    DWORD code = 0xFFFF;
    if (WaitForSingleObject(m_process.hProcess, kGenerous) == WAIT_OBJECT_0) {
      GetExitCodeProcess(m_process.hProcess, &code);
    }
    return code;
  }

private:
  PROCESS_INFORMATION m_process{};
};

/// Keeps all texts, and answers as told.
class Recorder final : public ProcessorBase {
public:
  explicit Recorder(std::function<std::intptr_t(const char*)> answer = nullptr) : m_answer(std::move(answer)) {}

  std::intptr_t OnMessage(const char* text) override {
    {
      const std::lock_guard lock(m_lock);
      m_texts.emplace_back(text);
    }
    return m_answer ? m_answer(text) : static_cast<std::intptr_t>(std::strlen(text));
  }

  std::vector<std::string> Texts() {
    const std::lock_guard lock(m_lock);
    return m_texts;
  }
  std::size_t Count() {
    const std::lock_guard lock(m_lock);
    return m_texts.size();
  }

private:
  std::mutex m_lock;
  std::vector<std::string> m_texts;
  std::function<std::intptr_t(const char*)> m_answer;
};

/// A started server with a name of its own.
class Served {
public:
  explicit Served(IMsgProcessor* processor, std::string serverName = UniqueName()) : name(std::move(serverName)) {
    server = TheLibrary().createPipeSvr();
    server->SetMsgProcessor(processor);
    EXPECT_NE(server->Start(name.c_str()), 0) << GetLastError();
  }
  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;
  ~Served() { Release(); }

  void Release() { TheLibrary().releasePipeSvr(std::exchange(server, nullptr)); }

  const std::string name;
  PipeServer* server;
};

/// A connection that is given back.
class Connected {
public:
  explicit Connected(const std::string& name) : number(ConnectSoon(name)) { EXPECT_NE(number, 0u); }
  Connected(const Connected&) = delete;
  Connected& operator=(const Connected&) = delete;
  ~Connected() { TheLibrary().disConnect(number); }

  /// The reply, or "error N".
  std::string Send(const std::string& text) const {
    const char* reply = TheLibrary().comunicate(number, text.c_str());
    return reply != nullptr ? reply : "error " + std::to_string(GetLastError());
  }

  const std::uint32_t number;
};

std::string Error(DWORD error) { return "error " + std::to_string(error); }

std::vector<std::string> Events(int count) {
  std::vector<std::string> events;
  for (int i = 0; i < count; ++i) {
    events.push_back("event " + std::to_string(i));
  }
  return events;
}

DWORD StartError(PipeServer* server, const char* name) {
  SetLastError(0);
  return server->Start(name) == 0 ? GetLastError() : DWORD{0};
}

DWORD ConnectError(const char* name) {
  SetLastError(0);
  const std::uint32_t number = TheLibrary().connectServer(name);
  if (number != 0) {
    TheLibrary().disConnect(number);
    return 0;
  }
  return GetLastError();
}

/// The handles of this process, counted one by one.
std::size_t HandleCount() {
  std::size_t count = 0;
  for (std::uintptr_t value = 4; value < 0x4000; value += 4) {
    DWORD flags = 0;
    count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1u : 0u;
  }
  return count;
}

const char* At(HMODULE module, std::size_t offset) { return reinterpret_cast<const char*>(module) + offset; }

/// Copied out: a linker need not align what is there as the type asks for.
template <typename Type> Type Read(HMODULE module, std::size_t offset) {
  Type value;
  std::memcpy(&value, At(module, offset), sizeof value);
  return value;
}

/// The offset of what a directory of the file describes.
std::size_t Directory(HMODULE module, std::size_t index) {
  const auto headers = static_cast<std::size_t>(Read<IMAGE_DOS_HEADER>(module, 0).e_lfanew);
  return Read<IMAGE_NT_HEADERS>(module, headers).OptionalHeader.DataDirectory[index].VirtualAddress;
}

// ---- the library as a file

TEST(Library, ExportsFiveNamesAndNothingElse) {
  const HMODULE module = TheLibrary().module;
  const auto exports = Read<IMAGE_EXPORT_DIRECTORY>(module, Directory(module, IMAGE_DIRECTORY_ENTRY_EXPORT));
  EXPECT_EQ(exports.NumberOfFunctions, 5u);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < exports.NumberOfNames; ++i) {
    names.emplace_back(At(module, Read<DWORD>(module, exports.AddressOfNames + i * sizeof(DWORD))));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"CltComunicate", "CltConnectServer", "CltDisConnect", "CreatePipeSvr",
                                             "ReleasePipeSvr"}));
  EXPECT_STREQ(At(module, exports.Name), "vpipearm64.dll");
}

TEST(Library, NeedsTheSystemsOwnLibrariesOnly) {
  const HMODULE module = TheLibrary().module;
  const std::set<std::string> system{"ADVAPI32.dll", "KERNEL32.dll", "msvcrt.dll"};
  int count = 0;
  std::size_t offset = Directory(module, IMAGE_DIRECTORY_ENTRY_IMPORT);
  for (auto entry = Read<IMAGE_IMPORT_DESCRIPTOR>(module, offset); entry.Name != 0;
       entry = Read<IMAGE_IMPORT_DESCRIPTOR>(module, offset += sizeof entry)) {
    const std::string name = At(module, entry.Name);
    EXPECT_TRUE(system.count(name) == 1 || name.rfind("api-ms-win-crt-", 0) == 0) << name;
    ++count;
  }
  EXPECT_GE(count, 1);
}

// ---- the binary contract, with tables made and walked by hand

struct RawProcessor {
  const void* const* table;
  std::vector<std::string> texts;
  int wrongSlots = 0;
};
std::intptr_t RawOnMessage(RawProcessor* self, const char* text) {
  self->texts.emplace_back(text);
  return 42;
}
void* RawWrongSlot(RawProcessor* self, const void*) {
  ++self->wrongSlots;
  return self;
}

using RawTable = void* const*;
void* Slot(PipeServer* server, std::size_t index) { return (*reinterpret_cast<RawTable*>(server))[index]; }

TEST(Contract, SlotsAreDestructorProcessorStartAndTheProcessorsSlotOne) {
  const void* const wrong = reinterpret_cast<const void*>(&RawWrongSlot);
  const void* const table[] = {wrong, reinterpret_cast<const void*>(&RawOnMessage), wrong, wrong, wrong};
  RawProcessor processor{table, {}, 0};
  PipeServer* server = TheLibrary().createPipeSvr();
  ASSERT_NE(server, nullptr);
  const std::string name = UniqueName();
  reinterpret_cast<void (*)(PipeServer*, void*)>(Slot(server, 1))(server, &processor);
  EXPECT_NE(reinterpret_cast<std::int32_t (*)(PipeServer*, const char*)>(Slot(server, 2))(server, name.c_str()), 0);
  {
    const Connected connection(name);
    EXPECT_EQ(connection.Send("through the tables"), "42");
  }
  // The deleting form stops and frees.
  EXPECT_EQ(reinterpret_cast<void* (*)(PipeServer*, unsigned)>(Slot(server, 0))(server, 1), server);
  EXPECT_EQ(ConnectError(name.c_str()), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(processor.texts, std::vector<std::string>{"through the tables"});
  EXPECT_EQ(processor.wrongSlots, 0);
}

TEST(Contract, DestructorWithoutTheFlagStopsAndLeavesTheObject) {
  Recorder recorder;
  Served served(&recorder);
  EXPECT_EQ(served.server->Destroy(0), served.server);
  EXPECT_EQ(ConnectError(served.name.c_str()), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(StartError(served.server, UniqueName().c_str()), DWORD{ERROR_ALREADY_INITIALIZED});
}

// ---- starting and stopping

TEST(Server, RefusesABadName) {
  Recorder recorder;
  PipeServer* server = TheLibrary().createPipeSvr();
  server->SetMsgProcessor(&recorder);
  for (const std::string& name : {std::string(), std::string(248, 'n'), std::string("a\\b"), std::string("..\\..\\x"),
                                  std::string("a/b"), std::string("\xff")}) {
    EXPECT_EQ(StartError(server, name.c_str()), DWORD{ERROR_INVALID_PARAMETER}) << name;
    EXPECT_EQ(ConnectError(name.c_str()), DWORD{ERROR_INVALID_PARAMETER}) << name;
  }
  EXPECT_EQ(StartError(server, nullptr), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(ConnectError(nullptr), DWORD{ERROR_INVALID_PARAMETER});
  // After a failure it may be tried again.
  const std::string name = UniqueName();
  EXPECT_EQ(StartError(server, name.c_str()), 0u);
  EXPECT_EQ(Connected(name).Send("x"), "1");
  TheLibrary().releasePipeSvr(server);
}

TEST(Server, TakesTheLongestNameAndOneInUtf8) {
  Recorder recorder;
  std::string longest = UniqueName();
  longest.append(247 - longest.size(), 'n');
  for (const std::string& name : {longest, UniqueName() + "_gr\xc3\xbc\xc3\x9f"}) {
    const Served served(&recorder, name);
    EXPECT_EQ(Connected(name).Send("12345"), "5");
  }
}

TEST(Server, NeedsAProcessor) {
  PipeServer* server = TheLibrary().createPipeSvr();
  EXPECT_EQ(StartError(server, UniqueName().c_str()), DWORD{ERROR_INVALID_PARAMETER});
  TheLibrary().releasePipeSvr(server);
}

TEST(Server, StartsOnce) {
  Recorder recorder;
  const Served served(&recorder);
  EXPECT_EQ(StartError(served.server, served.name.c_str()), DWORD{ERROR_ALREADY_INITIALIZED});
  EXPECT_EQ(StartError(served.server, UniqueName().c_str()), DWORD{ERROR_ALREADY_INITIALIZED});
  EXPECT_EQ(Connected(served.name).Send("still here"), "10");
}

TEST(Server, KeepsItsProcessorWhileItServes) {
  Recorder first;
  Recorder second;
  const Served served(&first);
  served.server->SetMsgProcessor(&second);
  Connected(served.name).Send("text");
  EXPECT_EQ(first.Count(), 1u);
  EXPECT_EQ(second.Count(), 0u);
}

TEST(Server, HoldsItsNameAgainstThisAndOtherProcesses) {
  Recorder recorder;
  Served served(&recorder);
  PipeServer* second = TheLibrary().createPipeSvr();
  second->SetMsgProcessor(&recorder);
  EXPECT_EQ(StartError(second, served.name.c_str()), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Peer("takes", served.name).ExitCode(), DWORD{ERROR_ACCESS_DENIED});
  {
    // Also while its only listening instance is in use.
    const Connected connection(served.name);
    EXPECT_EQ(connection.Send("x"), "1");
    EXPECT_EQ(StartError(second, served.name.c_str()), DWORD{ERROR_ACCESS_DENIED});
  }
  served.Release();
  EXPECT_EQ(Peer("takes", served.name).ExitCode(), 0u);
  EXPECT_EQ(StartError(second, served.name.c_str()), 0u);
  TheLibrary().releasePipeSvr(second);
}

TEST(Server, ReleaseTakesNullAndAServerThatNeverStarted) {
  TheLibrary().releasePipeSvr(nullptr);
  TheLibrary().releasePipeSvr(TheLibrary().createPipeSvr());
}

TEST(Server, AsksForADescriptorOfTheUserAndTheSystemOnly) {
  vpipe::PipeSecurity security;
  ASSERT_EQ(security.Build(), DWORD{ERROR_SUCCESS});
  SECURITY_ATTRIBUTES* attributes = security.Attributes();
  EXPECT_EQ(attributes->nLength, sizeof *attributes);
  EXPECT_FALSE(attributes->bInheritHandle);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ASSERT_TRUE(GetSecurityDescriptorControl(attributes->lpSecurityDescriptor, &control, &revision));
  EXPECT_NE(control & SE_DACL_PROTECTED, 0);
  BOOL present = FALSE;
  BOOL defaulted = TRUE;
  ACL* acl = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted));
  ASSERT_TRUE(present);
  ASSERT_NE(acl, nullptr);
  ASSERT_EQ(acl->AceCount, 2);

  HANDLE token = nullptr;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  alignas(8) unsigned char user[256];
  alignas(8) unsigned char system[68];
  DWORD size = sizeof user;
  ASSERT_TRUE(GetTokenInformation(token, TokenUser, user, size, &size));
  CloseHandle(token);
  size = sizeof system;
  ASSERT_TRUE(CreateWellKnownSid(WinLocalSystemSid, nullptr, system, &size));
  const PSID expected[] = {reinterpret_cast<TOKEN_USER*>(user)->User.Sid, system};
  for (DWORD i = 0; i < 2; ++i) {
    void* ace = nullptr;
    ASSERT_TRUE(GetAce(acl, i, &ace));
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
    EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_TRUE(EqualSid(&allowed->SidStart, expected[i]));
    EXPECT_EQ(allowed->Mask, DWORD{FILE_GENERIC_READ | FILE_GENERIC_WRITE});
  }
}

TEST(Server, ReleaseWaitsForTheCallUnderWay) {
  std::atomic<bool> inside{false};
  std::atomic<bool> open{false};
  std::atomic<bool> returned{false};
  Recorder recorder([&](const char*) -> std::intptr_t {
    inside = true;
    Eventually([&] { return open.load(); });
    returned = true;
    return 0;
  });
  Served served(&recorder);
  std::thread sender([&] { Connected(served.name).Send("slow"); });
  ASSERT_TRUE(Eventually([&] { return inside.load(); }));
  std::atomic<bool> returnedFirst{false};
  std::thread releaser([&] {
    served.Release();
    returnedFirst = returned.load();
  });
  // The name goes as soon as the release has begun, and the call is still inside.
  EXPECT_TRUE(Eventually([&] { return ConnectError(served.name.c_str()) != 0; }));
  open = true;
  releaser.join();
  sender.join();
  EXPECT_TRUE(returnedFirst);
}

TEST(Server, ReleaseWhileClientsSendEndsEveryCall) {
  for (int round = 0; round < 5; ++round) {
    std::atomic<bool> released{false};
    std::atomic<int> late{0};
    Recorder recorder([&](const char*) -> std::intptr_t {
      late += released ? 1 : 0;
      return 0;
    });
    Served served(&recorder);
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 0; i < 4; ++i) {
      peers.push_back(std::make_unique<Peer>("flood", served.name));
    }
    ASSERT_TRUE(Eventually([&] { return recorder.Count() > 100; }));
    served.Release();
    released = true;
    const std::size_t count = recorder.Count();
    peers.clear();
    EXPECT_EQ(recorder.Count(), count);
    EXPECT_EQ(late, 0);
  }
}

TEST(Server, ClientsSeeTheRelease) {
  Recorder recorder;
  Served served(&recorder);
  Peer peer("flood", served.name);
  ASSERT_TRUE(Eventually([&] { return recorder.Count() > 10; }));
  served.Release();
  EXPECT_EQ(peer.ExitCode(), 0u);
}

TEST(Server, CanBeReleasedFromWithinItsOwnCall) {
  PipeServer* server = nullptr;
  std::atomic<bool> released{false};
  Recorder recorder([&](const char*) -> std::intptr_t {
    TheLibrary().releasePipeSvr(server);
    released = true;
    return 0;
  });
  for (int round = 0; round < 20; ++round) {
    released = false;
    const std::string name = UniqueName();
    server = TheLibrary().createPipeSvr();
    server->SetMsgProcessor(&recorder);
    ASSERT_NE(server->Start(name.c_str()), 0);
    const HANDLE pipe = RawConnect(name);
    ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
    // The second text is there before the first has been answered; nobody gets it.
    ASSERT_TRUE(RawWrite(pipe, RawFrame("release") + RawFrame("never")));
    while (!RawRead(pipe).empty()) {
    }
    CloseHandle(pipe);
    ASSERT_TRUE(released);
    ASSERT_TRUE(Eventually([&] { return ConnectError(name.c_str()) == ERROR_FILE_NOT_FOUND; }));
  }
  EXPECT_EQ(recorder.Texts(), std::vector<std::string>(20, "release"));
}

// ---- texts and replies

TEST(Exchange, RepliesWithTheResultInDecimal) {
  const std::vector<std::intptr_t> results{0, 1, -1, std::numeric_limits<std::intptr_t>::max(),
                                           std::numeric_limits<std::intptr_t>::min()};
  Recorder recorder([&](const char* text) { return results.at(static_cast<std::size_t>(*text - '0')); });
  const Served served(&recorder);
  const Connected connection(served.name);
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(connection.Send(std::to_string(i)), std::to_string(results[i]));
    EXPECT_EQ(GetLastError(), 0u);
  }
}

TEST(Exchange, WorksWithAServerInAnotherProcess) {
  const std::string name = UniqueName();
  const Peer peer("serve", name);
  const Connected connection(name);
  for (std::size_t size = 1; size < 300; ++size) {
    ASSERT_EQ(connection.Send(std::string(size, 'x')), std::to_string(size));
  }
}

TEST(Exchange, CarriesTextsAsTheyAre) {
  Recorder recorder;
  const Served served(&recorder);
  const Connected connection(served.name);
  std::string everyByte;
  for (int i = 1; i < 256; ++i) {
    everyByte += static_cast<char>(static_cast<unsigned char>(i));
  }
  const std::vector<std::string> texts{everyByte, "{\"type\":\"\xe5\x9b\xbe\"}", "x", "x", std::string(70000, 'y')};
  for (const std::string& text : texts) {
    EXPECT_EQ(connection.Send(text), std::to_string(text.size()));
  }
  EXPECT_EQ(recorder.Texts(), texts);
}

TEST(Exchange, TheLongestTextPassesAndOneByteMoreIsRefused) {
  Recorder recorder;
  const Served served(&recorder);
  const Connected connection(served.name);
  EXPECT_EQ(connection.Send(std::string(kLongest + 1, 'x')), Error(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(connection.Send(std::string(kLongest, 'x')), std::to_string(kLongest));
  EXPECT_EQ(connection.Send("x"), "1");
  ASSERT_EQ(recorder.Count(), 2u);
  EXPECT_TRUE(recorder.Texts()[0] == std::string(kLongest, 'x'));
}

TEST(Exchange, NullAndEmptyTextsAreRefusedAndTheConnectionStays) {
  Recorder recorder;
  const Served served(&recorder);
  const Connected connection(served.name);
  EXPECT_EQ(TheLibrary().comunicate(connection.number, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(connection.Send(""), Error(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(connection.Send("x"), "1");
}

TEST(Exchange, EventsArriveInOrderAlsoWhenTheSenderIsGoneAtOnce) {
  for (int round = 0; round < 5; ++round) {
    Recorder recorder;
    const Served served(&recorder);
    EXPECT_EQ(Peer("send", served.name, "100").ExitCode(), 0u);
    EXPECT_TRUE(Eventually([&] { return recorder.Count() >= 100; }));
    EXPECT_EQ(recorder.Texts(), Events(100));
  }
}

TEST(Exchange, TextsSentWithoutWaitingArriveAfterTheirSenderHasGone) {
  for (int round = 0; round < 5; ++round) {
    std::atomic<bool> open{false};
    Recorder recorder([&](const char*) -> std::intptr_t {
      Eventually([&] { return open.load(); });
      return 0;
    });
    const Served served(&recorder);
    EXPECT_EQ(Peer("blast", served.name, "100").ExitCode(), 0u);
    open = true; // only now does the first call return
    EXPECT_TRUE(Eventually([&] { return recorder.Count() >= 100; }));
    EXPECT_EQ(recorder.Texts(), Events(100));
  }
}

TEST(Exchange, AThrowingProcessorAnswersMinusOneAndServesOn) {
  Recorder recorder([](const char* text) -> std::intptr_t {
    if (std::strcmp(text, "throw") == 0) {
      throw std::runtime_error("told to");
    }
    return 5;
  });
  const Served served(&recorder);
  const Connected connection(served.name);
  EXPECT_EQ(connection.Send("throw"), "-1");
  EXPECT_EQ(connection.Send("quiet"), "5");
  const std::string name = UniqueName();
  const Peer peer("serve", name);
  const Connected other(name);
  EXPECT_EQ(other.Send("throw"), "-1");
  EXPECT_EQ(other.Send("quiet"), "5");
}

TEST(Exchange, ManyClientsAtOnce) {
  Recorder recorder;
  const Served served(&recorder);
  std::vector<std::unique_ptr<Peer>> peers;
  for (int i = 0; i < 10; ++i) {
    peers.push_back(std::make_unique<Peer>("send", served.name, "200"));
  }
  for (const auto& peer : peers) {
    EXPECT_EQ(peer->ExitCode(), 0u);
  }
  EXPECT_TRUE(Eventually([&] { return recorder.Count() >= 2000; }));
  std::multiset<std::string> expected;
  for (int i = 0; i < 10; ++i) {
    for (const std::string& event : Events(200)) {
      expected.insert(event);
    }
  }
  const std::vector<std::string> texts = recorder.Texts();
  EXPECT_TRUE(std::multiset<std::string>(texts.begin(), texts.end()) == expected);
}

TEST(Exchange, ConnectionsRunBesideEachOther) {
  std::atomic<int> inside{0};
  Recorder recorder([&](const char*) -> std::intptr_t {
    ++inside;
    return Eventually([&] { return inside.load() >= 3; }) ? 1 : 0;
  });
  const Served served(&recorder);
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] { good += Connected(served.name).Send("meet") == "1" ? 1 : 0; });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(good, 3);
}

TEST(Exchange, ThreadsMayShareAConnection) {
  Recorder recorder([](const char*) -> std::intptr_t { return 7; });
  const Served served(&recorder);
  const Connected connection(served.name);
  std::vector<std::thread> threads;
  std::atomic<int> answered{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int k = 0; k < 200; ++k) {
        const std::string text = std::to_string(i) + "-" + std::to_string(k);
        answered += TheLibrary().comunicate(connection.number, text.c_str()) != nullptr ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(answered, 800);
  const std::vector<std::string> texts = recorder.Texts();
  EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), 800u);
}

// ---- connecting

TEST(Connect, AnswersAtOnceWhereNoServerIs) {
  const ULONGLONG start = GetTickCount64();
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(ConnectError(UniqueName().c_str()), DWORD{ERROR_FILE_NOT_FOUND});
  }
  EXPECT_LT(GetTickCount64() - start, 10000u);
}

TEST(Connect, SixtyFourClientsAndTheNextIsToldBusyUntilOneLeaves) {
  Recorder recorder;
  const Served served(&recorder);
  for (int round = 0; round < 2; ++round) {
    std::vector<std::unique_ptr<Connected>> connections;
    for (int i = 0; i < 64; ++i) {
      connections.push_back(std::make_unique<Connected>(served.name));
      ASSERT_EQ(connections.back()->Send("x"), "1") << i;
    }
    EXPECT_EQ(ConnectError(served.name.c_str()), DWORD{ERROR_PIPE_BUSY});
    connections.erase(connections.begin() + 20);
    const Connected late(served.name);
    EXPECT_EQ(late.Send("xy"), "2");
    for (const auto& connection : connections) {
      EXPECT_EQ(connection->Send("xyz"), "3");
    }
  }
}

TEST(Connect, NumbersAreNewEachTimeAndHandlesDoNotGrow) {
  Recorder recorder;
  const Served served(&recorder);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Connected(served.name).Send("warm"), "4");
  }
  const std::size_t before = HandleCount();
  ASSERT_GT(before, 5u);
  std::set<std::uint32_t> numbers;
  for (int i = 0; i < 1000; ++i) {
    const Connected connection(served.name);
    ASSERT_TRUE(numbers.insert(connection.number).second);
    ASSERT_EQ(connection.Send("x"), "1");
  }
  EXPECT_EQ(numbers.count(0), 0u);
  // Places for workers keep a few; a leak would show a thousand times.
  EXPECT_TRUE(Eventually([&] { return HandleCount() < before + 50; })) << before << " -> " << HandleCount();
}

TEST(Connect, ServersGiveAllTheirHandlesBack) {
  Recorder recorder;
  const auto round = [&] {
    Served served(&recorder);
    const Connected first(served.name);
    const Connected second(served.name);
    EXPECT_EQ(first.Send("x") + second.Send("x"), "11");
    served.Release();
  };
  round();
  const std::size_t before = HandleCount();
  for (int i = 0; i < 100; ++i) {
    round();
  }
  EXPECT_TRUE(Eventually([&] { return HandleCount() <= before + 3; })) << before << " -> " << HandleCount();
}

TEST(Connect, UnknownNumbersAreRefused) {
  Recorder recorder;
  const Served served(&recorder);
  std::uint32_t stale = 0;
  {
    const Connected connection(served.name);
    stale = connection.number;
  }
  for (const std::uint32_t number : {0u, stale, stale + 1000, 0xFFFFFFFFu}) {
    SetLastError(0);
    EXPECT_EQ(TheLibrary().comunicate(number, "text"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    SetLastError(0);
    TheLibrary().disConnect(number);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  }
  EXPECT_EQ(recorder.Count(), 0u);
}

// ---- peers that misbehave

TEST(Misbehaviour, AServerThatDiesGivesNullAtOnce) {
  const std::string name = UniqueName();
  Peer peer("serve", name);
  const Connected connection(name);
  EXPECT_EQ(connection.Send("x"), "1");
  const ULONGLONG start = GetTickCount64();
  EXPECT_EQ(connection.Send("die"), Error(ERROR_BROKEN_PIPE));
  EXPECT_LT(GetTickCount64() - start, 10000u);
  EXPECT_EQ(connection.Send("x"), Error(ERROR_PIPE_NOT_CONNECTED));
}

TEST(Misbehaviour, AServerThatDiedEarlierGivesNullToo) {
  const std::string name = UniqueName();
  Peer peer("serve", name);
  const Connected connection(name);
  EXPECT_EQ(connection.Send("x"), "1");
  peer.Kill();
  EXPECT_EQ(connection.Send("x"), Error(ERROR_BROKEN_PIPE));
  EXPECT_EQ(connection.Send("x"), Error(ERROR_PIPE_NOT_CONNECTED));
}

struct BadAnswer {
  const char* mode;
  const char* bytes;
  DWORD error;
};

TEST(Misbehaviour, AReplyThatIsNoTextClosesTheConnection) {
  const BadAnswer answers[] = {
      {"answer", "00000000", ERROR_INVALID_DATA},             // no length
      {"answer", "01000001", ERROR_INVALID_DATA},             // 16 MiB and a byte
      {"answer", "ffffffff", ERROR_INVALID_DATA},             // 4 GiB
      {"answer", "03000000610062", ERROR_INVALID_DATA},       // a NUL inside
      {"answer", "01000000610100000062", ERROR_INVALID_DATA}, // two replies to one text
      {"answer-and-die", "0500000061", ERROR_BROKEN_PIPE},    // cut off in the text
      {"answer-and-die", "0500", ERROR_BROKEN_PIPE},          // cut off in the length
  };
  for (const BadAnswer& answer : answers) {
    SCOPED_TRACE(answer.bytes);
    const std::string name = UniqueName();
    Peer peer(answer.mode, name, answer.bytes);
    const Connected connection(name);
    EXPECT_EQ(connection.Send("x"), Error(answer.error));
    EXPECT_EQ(connection.Send("x"), Error(ERROR_PIPE_NOT_CONNECTED));
    EXPECT_EQ(peer.ExitCode(), 0u); // sees the closed pipe
  }
}

TEST(Misbehaviour, ATextGoneInTheMiddleIsNotDelivered) {
  Recorder recorder;
  const Served served(&recorder);
  EXPECT_EQ(Peer("cut", served.name).ExitCode(), 0u);
  const Connected connection(served.name);
  EXPECT_EQ(connection.Send("after"), "5");
  EXPECT_TRUE(Eventually([&] { return recorder.Count() >= 2; }));
  const std::vector<std::string> texts = recorder.Texts();
  EXPECT_EQ(std::multiset<std::string>(texts.begin(), texts.end()), (std::multiset<std::string>{"after", "whole"}));
}

TEST(Misbehaviour, ABadFrameClosesItsOwnConnectionOnly) {
  Recorder recorder;
  const Served served(&recorder);
  const Connected bystander(served.name);
  EXPECT_EQ(bystander.Send("one"), "3");
  // Each sends a good text first, and another behind the bad frame.
  const std::string bads[] = {"00000000", "01000001", "ffffffff", "03000000610062"};
  for (const std::string& bad : bads) {
    EXPECT_EQ(Peer("bytes", served.name, "02000000676f" + bad + "020000006e6f").ExitCode(), 0u) << bad;
  }
  EXPECT_EQ(bystander.Send("two"), "3");
  EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{"one", "go", "go", "go", "go", "two"}));
}

TEST(Misbehaviour, DisconnectBreaksOffAnExchangeOfAnotherThread) {
  const std::string name = UniqueName();
  const HANDLE arrived = CreateEventA(nullptr, TRUE, FALSE, name.c_str());
  ASSERT_NE(arrived, nullptr);
  Peer peer("mute", name);
  const std::uint32_t number = ConnectSoon(name);
  ASSERT_NE(number, 0u);
  const char* reply = "";
  DWORD error = 0;
  std::thread sender([&] {
    reply = TheLibrary().comunicate(number, "text");
    error = GetLastError();
  });
  EXPECT_EQ(WaitForSingleObject(arrived, kGenerous), WAIT_OBJECT_0);
  const ULONGLONG start = GetTickCount64();
  TheLibrary().disConnect(number);
  sender.join();
  EXPECT_LT(GetTickCount64() - start, 20000u);
  EXPECT_EQ(reply, nullptr);
  EXPECT_EQ(error, DWORD{ERROR_OPERATION_ABORTED});
  EXPECT_EQ(TheLibrary().comunicate(number, "text"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(peer.ExitCode(), 0u);
  CloseHandle(arrived);
}

double SecondsOf(const std::function<void()>& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Misbehaviour, NoReplyForThirtySecondsClosesTheConnection) {
  const std::string name = UniqueName();
  const HANDLE arrived = CreateEventA(nullptr, TRUE, FALSE, name.c_str());
  Peer peer("mute", name);
  const Connected connection(name);
  std::string result;
  const double seconds = SecondsOf([&] { result = connection.Send("text"); });
  EXPECT_EQ(result, Error(ERROR_TIMEOUT));
  EXPECT_GE(seconds, 30.0);
  EXPECT_LT(seconds, 60.0);
  EXPECT_EQ(WaitForSingleObject(arrived, 0), WAIT_OBJECT_0);
  EXPECT_EQ(connection.Send("text"), Error(ERROR_PIPE_NOT_CONNECTED));
  EXPECT_EQ(peer.ExitCode(), 0u);
  CloseHandle(arrived);
}

TEST(Misbehaviour, AServerThatDoesNotReadIsGivenUpAfterThirtySeconds) {
  const std::string name = UniqueName();
  const Peer peer("unreading", name);
  const Connected connection(name);
  std::string result;
  const double seconds = SecondsOf([&] { result = connection.Send(std::string(kLongest, 'x')); });
  EXPECT_EQ(result, Error(ERROR_TIMEOUT));
  EXPECT_GE(seconds, 30.0);
  EXPECT_LT(seconds, 60.0);
  EXPECT_EQ(connection.Send("text"), Error(ERROR_PIPE_NOT_CONNECTED));
}

TEST(Misbehaviour, AClientThatReadsNoReplyIsCutOffAndTheServerServesOn) {
  Recorder recorder;
  const Served served(&recorder);
  Peer peer("deaf", served.name);
  const Connected connection(served.name);
  EXPECT_EQ(connection.Send("meanwhile"), "9");
  EXPECT_EQ(peer.ExitCode(), 0u);
  EXPECT_EQ(connection.Send("afterwards"), "10");
}

TEST(Misbehaviour, ReleaseDoesNotWaitForAClientThatReadsNoReply) {
  Recorder recorder;
  Served served(&recorder);
  Peer peer("deaf", served.name);
  std::size_t count = 0;
  // Quiet for a while: the server is stuck in an answer.
  ASSERT_TRUE(Eventually([&] {
    const std::size_t before = std::exchange(count, recorder.Count());
    Sleep(200);
    return count > 1000 && before == count;
  }));
  EXPECT_LT(SecondsOf([&] { served.Release(); }), 15.0);
  EXPECT_EQ(peer.ExitCode(), 0u);
}

} // namespace
