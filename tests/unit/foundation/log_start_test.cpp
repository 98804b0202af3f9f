#include "foundation/paths.h"
#include "platform/file.h"
#include "tests/sim/faults.h"
#include "tests/sim/handles.h"
#include "tests/sim/module.h"
#include "tests/sim/registry.h"
#include "tests/sim/sync.h"
#include "tests/unit/foundation/simulated_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr const wchar_t* kLevelKey = L"Software\\Tarnwick\\antivirus\\sysopt";
constexpr std::uint32_t kText = 1;
constexpr std::uint32_t kBinary = 3;
constexpr std::uint32_t kQword = 11;
constexpr std::uint32_t kSetValueRight = 2;
constexpr std::uint32_t kQueryValueRight = 1;

void SetLevel(std::uint32_t value) { sim::SetDword(platform::kHkeyLocalMachine, kLevelKey, L"LogLevel", value); }

void SetLevelBytes(std::uint32_t type, const std::string& bytes) {
  sim::SetBytes(platform::kHkeyLocalMachine, kLevelKey, L"LogLevel", type, bytes);
}

struct LevelCase {
  const char* name;
  std::function<void()> setUp;
  std::int32_t level;
};

void PrintTo(const LevelCase& row, std::ostream* out) { *out << row.name; }

class StartLevel : public test::SimulatedLog, public testing::WithParamInterface<LevelCase> {};

TEST_P(StartLevel, LetsThesePass) {
  GetParam().setUp();
  SDKLOG(LOG_DEBUG) << "debug";
  SDKLOG(LOG_INFO) << "info";
  SDKLOG(LOG_WARNING) << "warning";
  SDKLOG(LOG_ERROR) << "error";
  EXPECT_EQ(vx::GetMinLogLevel(), GetParam().level);
  EXPECT_TRUE(vx::ShouldLog(LOG_FATAL));
  const std::string bytes = sim::FileBytes(test::kLogPath);
  const char* const words[] = {" debug\r\n", " info\r\n", " warning\r\n", " error\r\n"};
  for (int severity = LOG_DEBUG; severity <= LOG_ERROR; ++severity) {
    EXPECT_EQ(bytes.find(words[severity]) != std::string::npos, severity >= GetParam().level) << bytes;
  }
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kRegistryKey), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Log, StartLevel,
    testing::Values(LevelCase{"NoKey", [] {}, 1},
                    LevelCase{"NoValue", [] { sim::AddKey(platform::kHkeyLocalMachine, kLevelKey); }, 1},
                    LevelCase{"Zero", [] { SetLevel(0); }, 0}, LevelCase{"One", [] { SetLevel(1); }, 1},
                    LevelCase{"Two", [] { SetLevel(2); }, 2}, LevelCase{"Three", [] { SetLevel(3); }, 3},
                    LevelCase{"FourIsThree", [] { SetLevel(4); }, 3}, LevelCase{"FiveIsOne", [] { SetLevel(5); }, 1},
                    LevelCase{"SevenIsOne", [] { SetLevel(7); }, 1},
                    LevelCase{"TheHighestBitIsOne", [] { SetLevel(0x80000000u); }, 1},
                    LevelCase{"AllBitsAreOne", [] { SetLevel(0xFFFFFFFFu); }, 1},
                    LevelCase{"FourBytesOfAnotherType", [] { SetLevelBytes(kBinary, std::string("\3\0\0\0", 4)); }, 3},
                    LevelCase{"OneByteIsTheLowest", [] { SetLevelBytes(kBinary, "\2"); }, 2},
                    LevelCase{"TheTextTwoIsLargerThanFour", [] { SetLevelBytes(kText, std::string("2\0\0\0", 4)); }, 1},
                    LevelCase{"EightBytesAreTooMany", [] { SetLevelBytes(kQword, std::string("\3\0\0\0\0\0\0\0", 8)); },
                              1},
                    LevelCase{"AKeyThatCanNotBeRead",
                              [] {
                                SetLevel(3);
                                sim::DenyKey(platform::kHkeyLocalMachine, kLevelKey, kQueryValueRight);
                              },
                              1},
                    LevelCase{"AKeyThatCanOnlyBeRead",
                              [] {
                                SetLevel(3);
                                sim::DenyKey(platform::kHkeyLocalMachine, kLevelKey, kSetValueRight);
                              },
                              3},
                    LevelCase{"TheUsersKeyIsNotAsked",
                              [] { sim::SetDword(platform::kHkeyCurrentUser, kLevelKey, L"LogLevel", 3); }, 1}),
    [](const auto& entry) { return std::string(entry.param.name); });

using LogStart = test::SimulatedLog;

TEST_F(LogStart, ReadsTheLevelOnce) {
  test::Log("1");
  SetLevel(3);
  test::Log("2");
  EXPECT_EQ(sim::CallCount("RegOpenKeyExW"), 1);
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2"}));
}

TEST_F(LogStart, NamesFileAndLockAfterTheProgramAndTheLibrary) {
  const struct {
    const wchar_t* program;
    const wchar_t* library;
    const wchar_t* path;
    const wchar_t* lock;
  } cases[] = {{sim::kHostPath, sim::kLibraryPath, test::kLogPath, test::kLogLock},
               {L"D:\\Apps\\My Host.v2.EXE", L"C:\\Vexel\\Copy of SDK.dll",
                L"D:\\Apps\\log\\My Host.v2.Copy of SDK.dll.log",
                L"Global\\D:/Apps/log/My Host.v2.Copy of SDK.dll.log"},
               {L"C:\\Program", L"D:\\sdk", L"C:\\log\\Program.sdk.log", L"Global\\C:/log/Program.sdk.log"}};
  for (const auto& entry : cases) {
    sim::SetExecutablePath(entry.program);
    sim::SetLibraryPath(entry.library);
    vx::ResetLogger({});
    test::Log("x");
    EXPECT_EQ(vx::BuildLogFilePath(), entry.path);
    EXPECT_EQ(test::LoggedWords(entry.path), (Words{"x"}));
    EXPECT_EQ(sim::MutexNames(), (std::vector<std::wstring>{entry.lock}));
  }
}

struct RefusalCase {
  const char* name;
  std::function<void()> refuse;
};

void PrintTo(const RefusalCase& row, std::ostream* out) { *out << row.name; }

class LogPathRefusal : public test::SimulatedLog, public testing::WithParamInterface<RefusalCase> {};

TEST_P(LogPathRefusal, LeavesNoPathAndNoLockUntilItIsOver) {
  GetParam().refuse();
  EXPECT_EQ(vx::BuildLogFilePath(), L"");
  sim::ClearFaults();
  GetParam().refuse();
  test::Log("lost");
  EXPECT_EQ(vx::log_init_state.load(), 0);
  for (const std::wstring& name : sim::MutexNames()) {
    ADD_FAILURE() << "a lock of no file: " << sim::Narrow(name);
  }
  sim::ClearFaults();
  sim::ReportExecutablePath(L"");
  sim::ReportLibraryPath(L"");
  test::Log("kept");
  EXPECT_EQ(vx::BuildLogFilePath(), test::kLogPath);
  EXPECT_EQ(test::LoggedWords(), (Words{"kept"}));
  EXPECT_EQ(sim::MutexNames(), (std::vector<std::wstring>{test::kLogLock}));
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogPathRefusal,
    testing::Values(RefusalCase{"NoFolderCanBeMade", [] { sim::FailAlways("CreateDirectoryW", 5); }},
                    RefusalCase{"TheProgramHasNoPath", [] { sim::FailAlways("GetModuleFileNameW"); }},
                    RefusalCase{"TheProgramLosesItsPath", [] { sim::FailNth("GetModuleFileNameW", 2, sim::kForever); }},
                    RefusalCase{"TheLibraryHasNoPath", [] { sim::FailNth("GetModuleFileNameW", 3, sim::kForever); }},
                    RefusalCase{"TheLibraryIsNoModule", [] { sim::FailAlways("GetModuleHandleOfAddress"); }},
                    RefusalCase{"TheProgramHasNoFolder", [] { sim::ReportExecutablePath(L"browser.exe"); }},
                    RefusalCase{"TheLibraryHasNoFolder", [] { sim::ReportLibraryPath(L"vexelsdk.dll"); }},
                    RefusalCase{"OnlyOneLevelIsMade", [] { sim::ReportExecutablePath(L"C:\\No\\Such\\browser.exe"); }}),
    [](const auto& entry) { return std::string(entry.param.name); });

TEST_F(LogStart, AModuleWithoutAFolderOrAPathHasNoName) {
  wchar_t buffer[platform::kMaxPath] = {};
  wchar_t* name = nullptr;
  sim::ReportExecutablePath(L"browser.exe");
  EXPECT_FALSE(vx::ModuleFileAndName(nullptr, buffer, &name));
  sim::ReportExecutablePath(L"");
  EXPECT_TRUE(vx::ModuleFileAndName(nullptr, buffer, &name));
  EXPECT_EQ(std::wstring(name), L"browser.exe");
  sim::FailNth("GetModuleFileNameW", 1);
  EXPECT_FALSE(vx::ModuleFileAndName(nullptr, buffer, &name));
}

TEST_F(LogStart, AnotherStartLeavesOneFileOpen) {
  const vx::LogStartMode mode = vx::LOG_APPEND_OLD;
  for (int start = 1; start <= 3; ++start) {
    EXPECT_TRUE(vx::InitLogger(&mode));
    EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kFile), 1);
    EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kMutex), 1);
    test::Log(std::to_string(start));
  }
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2", "3"}));
}

TEST_F(LogStart, AnOldFileThatCanNotBeDeletedIsGoneOnWith) {
  sim::AddFile(test::kLogPath, "old\r\n");
  sim::FailNth("DeleteFileW", 1);
  const vx::LogStartMode mode = vx::LOG_DELETE_OLD;
  EXPECT_TRUE(vx::InitLogger(&mode));
  test::Log("x");
  EXPECT_EQ(test::LoggedWords(), (Words{"old", "x"}));
}

/// Holds back a start, which waits for the log's lock in another process, and lets a second thread come to its first
/// statement meanwhile.
void LogWhileAStartIsHeldBack(const std::function<void()>& beforeItGoesOn) {
  sim::ForeignMutex held(test::kLogLock);
  const int yields = sim::CallCount("Sleep");
  std::atomic<int> ended{0};
  const auto log = [&ended] {
    test::Log("x");
    ++ended;
  };
  std::thread starter(log);
  EXPECT_TRUE(sim::WaitFor([&] { return ended != 0 || sim::CallCount("WaitForSingleObject") == 1; }));
  std::thread second(log);
  EXPECT_TRUE(sim::WaitFor([&] {
    return ended != 0 || sim::CallCount("WaitForSingleObject") != 1 || sim::CallCount("Sleep") >= yields + 3;
  }));
  EXPECT_EQ(sim::CallCount("WaitForSingleObject"), 1); // the second has come to no lock
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(vx::log_init_state.load(), 1);
  EXPECT_EQ(sim::CallCount("CreateFileW"), 0); // nothing is opened without the lock
  beforeItGoesOn();
  held.Release();
  starter.join();
  second.join();
  EXPECT_EQ(sim::CallCount("RegOpenKeyExW"), 1);
  EXPECT_EQ(sim::CallCount("CreateFileW"), 1);
}

TEST_F(LogStart, AThreadThatComesDuringItYieldsUntilItIsOver) {
  LogWhileAStartIsHeldBack([] {});
  EXPECT_EQ(test::LoggedWords(), (Words{"x", "x"}));
}

TEST_F(LogStart, AThreadThatComesDuringOneThatFailsSkipsItsStatement) {
  LogWhileAStartIsHeldBack([] { sim::FailAlways("CreateFileW"); });
  EXPECT_EQ(vx::log_init_state.load(), 0);
  sim::ClearFaults();
  test::Log("y");
  EXPECT_EQ(test::LoggedWords(), (Words{"y"}));
}

} // namespace
