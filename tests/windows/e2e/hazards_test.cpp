#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/log_lines.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <string>

namespace {

using namespace sdktest;

class HostHazards : public SdkTest {
protected:
  static constexpr int kReloads = 100;

  static bool MayBeWritten(const std::wstring& path) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return file != INVALID_HANDLE_VALUE && CloseHandle(file);
  }

  /// Runs "TOOL OPTIONS PATH" on the system under Wine. False where there is none.
  static bool RunToolUnderWine(const std::wstring& tool, const std::wstring& options, const std::wstring& path) {
    using UnixNameFn = char*(CDECL*)(const wchar_t*);
    const auto unixName = reinterpret_cast<UnixNameFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    if (unixName == nullptr) {
      return false;
    }
    char* const name = unixName(path.c_str());
    std::wstring command = tool + L" " + options + L" \"" + Wide(name) + L"\"";
    HeapFree(GetProcessHeap(), 0, name);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    EXPECT_TRUE(CreateProcessW((L"Z:\\bin\\" + tool).c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &child));
    return true;
  }

  void Reload() {
    EXPECT_EQ(Host().Ask("unload"), 1);
    EXPECT_EQ(Host().Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  }
};

TEST_F(HostHazards, LoadAndUnloadWithATeardown) {
  StartHost();
  for (int i = 0; i < kReloads; ++i) {
    EXPECT_EQ(Host().Ask("init"), 1);
    EXPECT_EQ(Host().Ask("uninit"), 1);
    Reload();
  }
  EXPECT_EQ(OpenAndWait().id, 1);
}

TEST_F(HostHazards, LoadAndUnloadWithoutATeardown) {
  StartHost();
  for (int i = 0; i < kReloads; ++i) {
    EXPECT_EQ(Host().Ask("init"), 1);
    Reload();
  }
  EXPECT_EQ(OpenAndWait().id, 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, UnloadWithoutATeardownKeepsTheEngineAtWork) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture());
  EXPECT_EQ(Host().Ask("unload"), 1);
  Host().WaitForEvent(id, kOpenSuccess);
}

TEST_F(HostHazards, ExitWithoutATeardownIsClean) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Begin("quit 0");
  EXPECT_EQ(Host().WaitForExit(), 0U);
  EXPECT_TRUE(IsRunning(opened.pid)) << "editors are not told";
}

TEST_F(HostHazards, ExitInTheMidstOfAConnectIsClean) {
  StartHostWithZoo(L"never_serve");
  Host().WaitForEvent(Open(Host().Ask("window"), Picture()), kProcessSuccess);
  WaitForLog("ConnectServer try failure.");
  Host().Begin("quit 0");
  EXPECT_EQ(Host().WaitForExit(), 0U);
}

TEST_F(HostHazards, CallbackThatThrowsHarmsNobody) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "throw");
  Host().WaitForEvent(id, kOpenSuccess);
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  Host().WaitForEvent(id, "\"edit\"");
  Host().WaitForEvent(id, kOpenSuccess, 2);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, CallbackMayCallExports) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "calls");
  EXPECT_EQ(Host().WaitForNote("note calls"), "note calls fits=1 closed=0 operated=1 valid=1");
  WaitForReceived({"\"type\":\"setpos\"", "\"w\":30"});
  WaitForReceived({"\"type\":\"change_theme_mode\""});
  Host().WaitForEvent(id, kOpenSuccess, 5);
}

TEST_F(HostHazards, CallbackThatBlocksHoldsUpNoCall) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "block");
  Host().WaitForEvent(id, kProcessSuccess);
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  const std::int32_t behind = Open(Host().Ask("window"), Picture());
  EXPECT_EQ(behind, 2);
  Host().Do("unblock");
  Host().WaitForEvent(behind, kOpenSuccess);
}

TEST_F(HostHazards, CallbackThatBlocksForTenSecondsDelaysEventsAndLosesNone) {
  StartHost();
  const Opened blocked = OpenAndWait();
  const Opened other = OpenAndWait();
  for (const Opened& opened : {blocked, other}) {
    Host().WaitForEvent(opened.id, "picture_"); // comes at any time, and is not to come now
  }
  Host().Do("callback " + std::to_string(blocked.id) + " block");
  // The report of the operation holds up the operations, the editor's own event the events of all editors.
  EXPECT_EQ(Host().Ask("operate " + std::to_string(blocked.id) + " 1"), 1);
  Host().WaitForEvent(blocked.id, "\"edit\"");
  const std::size_t before = Host().Events(other.id).size();
  EXPECT_EQ(Host().Ask("operate " + std::to_string(other.id) + " 1"), 1);
  const std::int32_t behind = Open(Host().Ask("window"), Picture());
  Host().Do("sleep 10000");
  EXPECT_EQ(Host().Ask("isclose " + std::to_string(other.id)), 0);
  EXPECT_EQ(Host().Events(other.id).size(), before);
  EXPECT_TRUE(Host().Events(behind).empty());
  Host().Do("unblock");
  Host().WaitForEvent(other.id, "\"edit\"");
  Host().WaitForEvent(behind, kOpenSuccess);
}

TEST_F(HostHazards, ExportsWorkBeforeInitAndAfterTheTeardown) {
  QuietLog(); // so that an id without a link can be closed
  StartHost();
  for (int engine = 0; engine < 2; ++engine) {
    SCOPED_TRACE(engine);
    EXPECT_EQ(Host().Ask("isclose 1"), 0);
    Host().Do("callback 1 on");
    Host().Do("callback 1 off");
    Host().Do("theme 1");
    Host().Do("setpos 1 1 2 3 4");
    Host().Do("fullscreen 1 1");
    EXPECT_EQ(Host().Ask("operate 1 1"), 1);
    EXPECT_EQ(Host().Ask("command 1 1"), 1);
    EXPECT_EQ(Host().Ask("close 300"), 0);
    EXPECT_EQ(Host().Ask("isclose 300"), 1);
    EXPECT_EQ(Host().Do("preview"), "value 1 0");
    EXPECT_EQ(Host().Ask("switch x"), -101);
    EXPECT_TRUE(Host().Do("extensions 399").starts_with("value 1 399"));
    Host().Do("release");
    EXPECT_EQ(OpenAndWait().id, 1);
    EXPECT_EQ(Host().Ask("uninit"), 1);
  }
}

TEST_F(HostHazards, BuffersMayBeGivenBackLater) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "hold");
  Host().WaitForEvent(id, kOpenSuccess);
  Host().WaitForEvent(id, "picture_");
  Host().Ask("uninit");
  const std::string counts = std::to_string(Host().Events().size());
  EXPECT_EQ(Host().Do("release"), "value " + counts + " " + counts);
}

TEST_F(HostHazards, TeardownFromWithinTheCallbackReturns) {
  QuietLog(); // so that an id without a link can be closed
  StartHost();
  Host().Ask("close 500");
  ASSERT_EQ(Host().Ask("isclose 500"), 1);
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "uninit");
  Host().WaitForEvent(id, kProcessSuccess);
  EXPECT_EQ(Host().WaitForNote("note uninit"), "note uninit=1");
  // The engine goes down behind the call. The next one knows nothing of the id.
  EXPECT_TRUE(WaitFor([&] { return Host().Ask("isclose 500") == 0; }));
  EXPECT_EQ(OpenAndWait().id, 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, SecondHostWorksBesideTheFirst) {
  StartHost();
  const Opened first = OpenAndWait();
  HostProcess other(Folder());
  EXPECT_EQ(other.Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  const std::int64_t id =
      other.Ask("open " + std::to_string(other.Ask("window")) + " " + wire::Encode(Picture()) + " 0 @null on");
  other.WaitForEvent(static_cast<std::int32_t>(id), kOpenSuccess);
  EXPECT_EQ(Host().Ask("operate 1 6"), 1);
  Host().WaitForEvent(first.id, kOpenSuccess, 2);
}

TEST_F(HostHazards, TwoHostsShareTheLogAndTheSavedIdsWithoutHarm) {
  StartHost();
  HostProcess other(Folder());
  EXPECT_EQ(other.Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  for (int round = 0; round < 5; ++round) {
    for (HostProcess* const host : {&Host(), &other}) {
      host->Begin("open " + std::to_string(0x700000 + round) + " " + wire::Encode(Picture()) + " 0 @null on");
    }
    for (HostProcess* const host : {&Host(), &other}) {
      EXPECT_EQ(host->EndBegun(), "value " + std::to_string(round + 1));
    }
  }
  for (HostProcess* const host : {&Host(), &other}) {
    host->WaitForEvent(5, kOpenSuccess);
    EXPECT_EQ(host->Ask("uninit"), 1);
  }
  EXPECT_EQ(BrokenLine(ReadFileBytes(Folder().LogFile())), "");
  EXPECT_EQ(Folder().LogWith("OperatorThreadFun data.m_op = SDK_OPEN data.m_id=").size(), 10U);
  const std::string saved = ReadFileBytes(Folder().SavedPidsFile());
  EXPECT_TRUE(Contains(saved, "[common]\r\n")) << saved;
  EXPECT_GE(NumberAfter(saved, "\npid="), 0) << saved;
  EXPECT_GE(NumberAfter(saved, "preview_pid="), 0) << saved;
}

TEST_F(HostHazards, PipeNameThatAnotherHostHoldsLeavesTheProcessWithoutALink) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  const std::uint32_t editor = WaitForPreload(2);
  // The other host finds the same two waiting processes on file, and the first one serves their events.
  HostProcess other(Folder());
  EXPECT_EQ(other.Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  EXPECT_EQ(other.Ask("init"), 1);
  EXPECT_EQ(WaitForPreload(3), launcher);
  EXPECT_EQ(WaitForPreload(4), editor);
  WaitForLog("VexelSDKHelper::StartServer error occur. last_error=", 2);
  const auto open = [&](HostProcess& host) {
    return static_cast<std::int32_t>(
        host.Ask("open " + std::to_string(host.Ask("window")) + " " + wire::Encode(Picture()) + " 0 @null on"));
  };
  const std::int32_t unlinked = open(other);
  EXPECT_EQ(NumberAfter(other.WaitForEvent(unlinked, kProcessSuccess).text, "\"process_id\":"), launcher);
  other.WaitForEvent(unlinked, kOpenSuccess); // told although nothing was sent
  EXPECT_TRUE(Received().empty());
  // The next open gets a process of its own, and the first host has lost nothing.
  const std::int32_t linked = open(other);
  EXPECT_NE(NumberAfter(other.WaitForEvent(linked, kProcessSuccess).text, "\"process_id\":"), launcher);
  other.WaitForEvent(linked, "picture_");
  EXPECT_EQ(OpenAndWait().pid, launcher);
  WaitForReceived({"\"type\":\"open\"", "\"process_id\":" + std::to_string(launcher)});
}

TEST_F(HostHazards, LogThatMayNotBeWrittenKeepsSilentUntilItMay) {
  // Where the file should be is a folder: it is refused like a file in a folder that is for reading only.
  CreateDirectoryW((Folder().Path() + L"log").c_str(), nullptr);
  ASSERT_TRUE(CreateDirectoryW(Folder().LogFile().c_str(), nullptr));
  StartHost();
  Host().Ask("init");
  const Opened opened = OpenAndWait();
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  Host().WaitForEvent(opened.id, "\"edit\"");
  ASSERT_TRUE(RemoveDirectoryW(Folder().LogFile().c_str()));
  EXPECT_EQ(Host().Ask("operate 1 6"), 1);
  WaitForLog("m_op(SDK_Operator)=16");
  EXPECT_EQ(BrokenLine(ReadFileBytes(Folder().LogFile())), "");
}

TEST_F(HostHazards, FullDiskLosesTheLogAndNothingElse) {
  CreateDirectoryW((Folder().Path() + L"log").c_str(), nullptr);
  // This file takes the log's place: whatever is written to it finds the disk full.
  if (!MayBeWritten(L"Z:\\dev\\full") || !RunToolUnderWine(L"ln", L"-s /dev/full", Folder().LogFile())) {
    GTEST_SKIP() << "there is no disk that is always full";
  }
  ASSERT_TRUE(WaitFor([&] { return MayBeWritten(Folder().LogFile()); }));
  StartHost();
  Host().Ask("init");
  const Opened opened = OpenAndWait();
  Modify(opened);
  EXPECT_EQ(Host().Ask("operate 1 7"), 1);
  Host().WaitForEvent(1, "\"edit\"", 2);
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(OpenAndWait().id, 1);
  const HANDLE file = CreateFileW(Folder().LogFile().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  DWORD written = 1;
  EXPECT_FALSE(WriteFile(file, "x", 1, &written, nullptr)) << "the log was where there is room";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
  CloseHandle(file);
  // The folder can go only without it.
  EXPECT_TRUE(RunToolUnderWine(L"rm", L"-f", Folder().LogFile()));
  EXPECT_TRUE(WaitFor([&] { return !MayBeWritten(Folder().LogFile()); }));
}

} // namespace
