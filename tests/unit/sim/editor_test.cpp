#include "tests/sim/editor.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "platform/error.h"
#include "platform/module.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "vexelsdk/link/pipe_contract.h"

namespace {

using namespace platform;

// Keeps what it is told, in order.
class Receiver final : public IMsgProcessor {
public:
  void* DeletingDestructor(unsigned /*flag*/) override { return this; }
  std::intptr_t OnMessage(const char* text) override {
    const std::lock_guard lock(m_lock);
    m_texts.emplace_back(text);
    return 0;
  }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor* /*other*/) override {}

  std::vector<std::string> Texts() {
    const std::lock_guard lock(m_lock);
    return m_texts;
  }

private:
  std::mutex m_lock;
  std::vector<std::string> m_texts;
};

class SimEditor : public testing::Test {
protected:
  SimEditor() {
    sim::SetClockSpeed(100);
    sim::AddPipeLibrary();
    const Module library = LoadLibraryW(sim::kPipeLibraryPath);
    m_connect = reinterpret_cast<CltConnectServerFun>(GetProcAddress(library, "CltConnectServer"));
    m_disconnect = reinterpret_cast<CltDisConnectFun>(GetProcAddress(library, "CltDisConnect"));
    m_communicate = reinterpret_cast<CltComunicateFun>(GetProcAddress(library, "CltComunicate"));
    m_create = reinterpret_cast<CreatePipeSvrFun>(GetProcAddress(library, "CreatePipeSvr"));
    m_release = reinterpret_cast<ReleasePipeSvrFun>(GetProcAddress(library, "ReleasePipeSvr"));
  }

  static std::uint32_t StartEditor(const sim::EditorScript& script = {}) {
    const std::uint32_t pid = sim::StartProcess(sim::kEditorPath);
    sim::AttachEditor(pid, script);
    return pid;
  }
  std::uint32_t Connect(std::uint32_t pid) const {
    return m_connect(("vexel_browser_editor_" + std::to_string(pid)).c_str());
  }
  std::string Ask(std::uint32_t connection, const char* text) const {
    const char* reply = m_communicate(connection, text);
    return reply == nullptr ? "null " + std::to_string(GetLastError()) : reply;
  }
  PipeServer* Serve(std::uint32_t pid, IMsgProcessor* receiver) const {
    PipeServer* server = m_create();
    server->SetMsgProcessor(receiver);
    EXPECT_NE(server->Start(("vexel_browser_" + std::to_string(pid)).c_str()), 0);
    return server;
  }

  sim::World m_world;
  CltConnectServerFun m_connect = nullptr;
  CltDisConnectFun m_disconnect = nullptr;
  CltComunicateFun m_communicate = nullptr;
  CreatePipeSvrFun m_create = nullptr;
  ReleasePipeSvrFun m_release = nullptr;
};

TEST_F(SimEditor, AnswersAndKeepsWhatItReceived) {
  const std::uint32_t pid = StartEditor();
  const std::uint32_t connection = Connect(pid);
  ASSERT_NE(connection, 0u);
  EXPECT_EQ(Ask(connection, "one"), "ok");
  sim::AdvanceMs(1000);
  EXPECT_EQ(Ask(connection, "two"), "ok");
  const auto received = sim::ReceivedTexts(pid);
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[0].text, "one");
  EXPECT_EQ(received[1].text, "two");
  EXPECT_GE(received[1].atMs, received[0].atMs + 1000);
  EXPECT_EQ(sim::OpenConnections(), 1);
  m_disconnect(connection);
  EXPECT_EQ(sim::OpenConnections(), 0);
  EXPECT_EQ(Ask(connection, "three"), "null 6");
}

TEST_F(SimEditor, NobodyThereGives2) {
  EXPECT_EQ(Connect(12344), 0u);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(m_connect("something"), 0u);
  sim::EditorScript script;
  script.serves = false;
  const std::uint32_t pid = StartEditor(script);
  EXPECT_EQ(Connect(pid), 0u);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(sim::ConnectAttempts(pid), 1);
  sim::ServePipe(pid);
  EXPECT_NE(Connect(pid), 0u);
}

TEST_F(SimEditor, ThePipeComesUpLate) {
  sim::SetClockSpeed(0);
  sim::EditorScript script;
  script.serveAfterMs = 1000;
  script.refusedConnects = 1;
  const std::uint32_t pid = StartEditor(script);
  sim::AdvanceMs(999);
  EXPECT_EQ(Connect(pid), 0u);
  EXPECT_EQ(GetLastError(), 2u);
  sim::AdvanceMs(1);
  std::uint32_t error = 2;
  EXPECT_TRUE(sim::WaitFor([&] {
    EXPECT_EQ(Connect(pid), 0u);
    error = GetLastError();
    return error != 2;
  }));
  EXPECT_EQ(error, 231u); // refused once
  EXPECT_NE(Connect(pid), 0u);
}

TEST_F(SimEditor, StepsApplyInOrderAndAsOftenAsTheySay) {
  sim::EditorScript script;
  script.steps = {{.when = "open", .times = 1, .reply = "first"},
                  {.when = "open", .reply = "later"},
                  {.when = "bad", .answer = sim::Answer::kNull}};
  const std::uint32_t connection = Connect(StartEditor(script));
  EXPECT_EQ(Ask(connection, "{open}"), "first");
  EXPECT_EQ(Ask(connection, "{open}"), "later");
  EXPECT_EQ(Ask(connection, "{open}"), "later");
  EXPECT_EQ(Ask(connection, "bad"), "null 232");
  EXPECT_EQ(Ask(connection, "else"), "ok");
}

TEST_F(SimEditor, DelaysAndSilenceTakeSimulatedTime) {
  sim::EditorScript script;
  script.silenceMs = 7000;
  script.steps = {{.when = "slow", .delayMs = 3000, .reply = "at last"},
                  {.when = "mute", .answer = sim::Answer::kSilent}};
  const std::uint32_t connection = Connect(StartEditor(script));
  std::uint64_t before = sim::NowMs();
  EXPECT_EQ(Ask(connection, "slow"), "at last");
  EXPECT_GE(sim::NowMs() - before, 3000u);
  before = sim::NowMs();
  EXPECT_EQ(Ask(connection, "mute"), "null 121");
  EXPECT_GE(sim::NowMs() - before, 7000u);
}

TEST_F(SimEditor, DeathBreaksTheConnection) {
  sim::EditorScript script;
  script.steps = {{.when = "die", .answer = sim::Answer::kDie, .exitCode = 5}};
  const std::uint32_t pid = StartEditor(script);
  const std::uint32_t connection = Connect(pid);
  EXPECT_EQ(Ask(connection, "die"), "null 109");
  EXPECT_EQ(sim::ExitCode(pid), 5u);
  EXPECT_EQ(Ask(connection, "more"), "null 109");
  EXPECT_EQ(Connect(pid), 0u);
  EXPECT_EQ(GetLastError(), 2u);
}

TEST_F(SimEditor, DeathFromOutsideEndsAnExchangeInProgress) {
  sim::EditorScript script;
  script.silenceMs = kInfinite;
  script.steps = {{.answer = sim::Answer::kSilent}};
  const std::uint32_t pid = StartEditor(script);
  const std::uint32_t connection = Connect(pid);
  std::string reply;
  std::thread asker([&] { reply = Ask(connection, "x"); });
  EXPECT_TRUE(sim::WaitFor([&] { return sim::ReceivedTexts(pid).size() == 1; }));
  sim::CrashProcess(pid);
  asker.join();
  EXPECT_EQ(reply, "null 109");
}

TEST_F(SimEditor, AnEditorMayAnswerAndExit) {
  sim::EditorScript script;
  script.steps = {{.when = "close", .reply = "bye", .exitsAfterReply = true, .exitCode = 3}};
  const std::uint32_t pid = StartEditor(script);
  EXPECT_EQ(Ask(Connect(pid), "close"), "bye");
  EXPECT_EQ(sim::ExitCode(pid), 3u);
}

TEST_F(SimEditor, AnEditorDiesOnTime) {
  sim::EditorScript script;
  script.dieAfterMs = 2000;
  const std::uint32_t pid = StartEditor(script);
  EXPECT_TRUE(sim::WaitFor([&] { return !sim::IsRunning(pid); }));
  EXPECT_EQ(sim::ExitCode(pid), 0xC0000005u);
  EXPECT_GE(sim::NowMs(), 2000u);
}

TEST_F(SimEditor, AHandlerTakesThePlaceOfSteps) {
  sim::EditorScript script;
  script.handler = [](std::uint32_t pid, const std::string& text) {
    sim::EditorStep step;
    step.reply = std::to_string(pid) + text + std::to_string(sim::ReceivedTexts(pid).size());
    return step;
  };
  const std::uint32_t pid = StartEditor(script);
  EXPECT_EQ(Ask(Connect(pid), "x"), std::to_string(pid) + "x1");
}

TEST_F(SimEditor, EventsReachTheServerInOrder) {
  sim::EditorScript script;
  script.hello = {"hello"};
  script.steps = {{.events = {"asked"}}};
  const std::uint32_t pid = StartEditor(script);
  Receiver receiver;
  PipeServer* const server = Serve(pid, &receiver);
  EXPECT_TRUE(sim::SendEvent(pid, "b"));
  EXPECT_TRUE(sim::Flood(pid, 100, "f"));
  EXPECT_EQ(Ask(Connect(pid), "x"), "ok");
  EXPECT_TRUE(sim::FlushEvents(pid));
  EXPECT_TRUE(sim::SendEventHere(pid, "here"));
  const std::vector<std::string> texts = receiver.Texts();
  ASSERT_EQ(texts.size(), 104u);
  EXPECT_EQ(texts[0], "hello");
  EXPECT_EQ(texts[1], "b");
  EXPECT_EQ(texts[2], "f0");
  EXPECT_EQ(texts[101], "f99");
  EXPECT_EQ(texts[102], "asked");
  EXPECT_EQ(texts[103], "here");
  EXPECT_EQ(sim::ServedNames(), (std::vector<std::string>{"vexel_browser_" + std::to_string(pid)}));
  m_release(server);
  EXPECT_TRUE(sim::ServedNames().empty());
  EXPECT_EQ(sim::LiveServers(), 0);
  EXPECT_TRUE(sim::SendEvent(pid, "late"));
  EXPECT_FALSE(sim::SendEventHere(pid, "late"));
  EXPECT_EQ(receiver.Texts().size(), 104u);
  sim::EndProcess(pid);
  EXPECT_FALSE(sim::SendEvent(pid, "dead"));
}

TEST_F(SimEditor, ANameIsServedOnce) {
  Receiver receiver;
  PipeServer* const first = Serve(5000, &receiver);
  PipeServer* const second = m_create();
  EXPECT_EQ(second->Start("vexel_browser_5000"), 0);
  EXPECT_EQ(GetLastError(), 231u);
  m_release(first);
  EXPECT_NE(second->Start("vexel_browser_5000"), 0);
  m_release(second);
  m_release(nullptr);
}

TEST_F(SimEditor, AServerLeftBehindEndsWithItsWorld) {
  Receiver receiver;
  const std::uint32_t pid = StartEditor();
  Serve(pid, &receiver);
  sim::Flood(pid, 10, "x");
  sim::Reset();
  EXPECT_EQ(sim::LiveServers(), 0);
}

TEST_F(SimEditor, EveryEntryCanFail) {
  const std::uint32_t pid = StartEditor();
  sim::FailNth("CltConnectServer", 1);
  EXPECT_EQ(Connect(pid), 0u);
  EXPECT_EQ(GetLastError(), 2u);
  const std::uint32_t connection = Connect(pid);
  EXPECT_NE(connection, 0u);
  sim::FailNth("CltComunicate", 1);
  EXPECT_EQ(Ask(connection, "x"), "null 232");
  EXPECT_TRUE(sim::ReceivedTexts(pid).empty());
  sim::FailNth("CreatePipeSvr", 1);
  EXPECT_EQ(m_create(), nullptr);
  sim::FailNth("PipeServer::Start", 1);
  PipeServer* const server = m_create();
  EXPECT_EQ(server->Start("vexel_browser_1"), 0);
  m_release(server);
}

TEST_F(SimEditor, AnEntryCanBeTakenAway) {
  sim::RemoveEntry("CltComunicate");
  const Module library = GetModuleHandleW(L"vpipearm64.dll");
  EXPECT_EQ(GetProcAddress(library, "CltComunicate"), nullptr);
  EXPECT_NE(GetProcAddress(library, "CltConnectServer"), nullptr);
}

TEST_F(SimEditor, AnInstalledEditorAnswersAfterItsStart) {
  sim::InstallEditors();
  std::wstring command = L"\"C:\\Vexel\\webvexlaunch.exe\" /vexelsdk";
  std::uint32_t pid = 0;
  Handle process = nullptr;
  Handle thread = nullptr;
  ASSERT_TRUE(CreateProcessW(command.data(), &pid, &process, &thread));
  EXPECT_EQ(Ask(Connect(pid), "x"), "ok");
  CloseHandle(process);
  CloseHandle(thread);
  // The next process of the same id begins with nothing received and its own script.
  sim::EndProcess(pid);
  sim::SetNextPid(pid);
  sim::EditorScript script;
  script.steps = {{.reply = "new"}};
  sim::AttachEditor(sim::StartProcess(sim::kEditorPath), script);
  EXPECT_TRUE(sim::ReceivedTexts(pid).empty());
  EXPECT_EQ(Ask(Connect(pid), "y"), "new");
  EXPECT_EQ(sim::AllReceivedTexts().size(), 2u);
}

TEST_F(SimEditor, ADeliveryAndAReleaseDoNotMeet) {
  for (int round = 0; round < 20; ++round) {
    const std::uint32_t pid = StartEditor();
    auto receiver = std::make_unique<Receiver>();
    PipeServer* const server = Serve(pid, receiver.get());
    std::thread flooder([&] { sim::Flood(pid, 50, "x"); });
    std::thread beside([&] {
      while (sim::SendEventHere(pid, "y")) {
      }
    });
    EXPECT_TRUE(sim::WaitFor([&] { return receiver->Texts().size() > 5; }));
    m_release(server);
    receiver.reset(); // no call may follow the release
    flooder.join();
    beside.join();
  }
}

} // namespace
