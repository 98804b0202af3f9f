#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/logger.h"
#include "platform/process.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "tests/unit/log_lines.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

// What is answered and logged about processes that are not as they should be.
namespace VexelSdkProcessUtil {
namespace {

constexpr const wchar_t* kLogFile = L"C:\\Logs\\Test.log";
constexpr const wchar_t* kProgram = L"C:\\Dir\\A.exe";

class ProcessAnswers : public testing::Test {
protected:
  ProcessAnswers() {
    sim::AddFolder(L"C:\\Logs");
    LogTo(kLogFile);
    GetProcessPath(sim::kHostPid); // the drives are read once in a process, by its first lookup
  }
  ~ProcessAnswers() override { vx::ResetLogger({}); }

  static void LogTo(const wchar_t* path) { vx::ResetLogger({path, L"Software\\no such key of any program", nullptr}); }

  static std::uint32_t Start(const std::function<void(sim::ProcessSpec&)>& edit = {}) {
    sim::ProcessSpec spec;
    spec.path = kProgram;
    if (edit) {
      edit(spec);
    }
    return sim::StartProcess(spec);
  }

  static std::vector<std::string> Log() { return LogLines(kLogFile); }

  sim::World m_world;
};

TEST_F(ProcessAnswers, EachRefusalOfAProcessHasItsOneLineWithThePathThatWasExpected) {
  const std::string notRunning = "INFO VexelSdkProcessUtil::IsProcessValid process is not running, pid=";
  const std::string otherPath = "WARNING VexelSdkProcessUtil::IsProcessValid process path not match, pid=";
  const std::uint32_t gone = Start();
  sim::EndProcess(gone);
  const struct {
    std::uint32_t pid;
    std::string line;
  } rows[] = {
      {gone, notRunning},
      {Start([](sim::ProcessSpec& spec) { spec.grantedAccess = 0; }), notRunning},
      {Start([](sim::ProcessSpec& spec) {
         spec.path = L"C:\\Dir\\Unlisted.exe";
         spec.inSnapshot = false;
       }),
       notRunning},
      {Start([](sim::ProcessSpec& spec) { spec.path = L"C:\\Dir\\B.exe"; }), otherPath},
      {Start([](sim::ProcessSpec& spec) { spec.path = L"D:\\Dir\\A.exe"; }), otherPath},
  };
  Start(); // one that would do runs beside them
  std::vector<std::string> lines;
  for (const auto& row : rows) {
    EXPECT_FALSE(IsProcessValid(row.pid, L"c:/dir//A.exe"));
    lines.push_back(row.line + std::to_string(row.pid) + ", path=c:/dir//A.exe");
    EXPECT_EQ(Log(), lines);
  }
}

TEST_F(ProcessAnswers, NoIdAndAGoodProcessHaveNoLine) {
  const std::uint32_t pid = Start();
  EXPECT_FALSE(IsProcessValid(0, kProgram));
  EXPECT_FALSE(IsProcessUsable(0, kProgram));
  EXPECT_TRUE(IsProcessValid(pid, L"c:/dir//A.exe/"));
  EXPECT_TRUE(IsProcessUsable(pid, kProgram));
  EXPECT_EQ(Log(), std::vector<std::string>{});
}

TEST_F(ProcessAnswers, LookingIsNeverLogged) {
  vx::SetMinLogLevel(LOG_DEBUG);
  const std::uint32_t pid = Start();
  for (const char* operation : {"OpenProcess", "GetModuleFileNameExW", "GetProcessImageFileNameW",
                                "CreateToolhelp32Snapshot", "Process32FirstW", "Process32NextW"}) {
    sim::FailAlways(operation);
    GetProcessPath(pid);
    IsPathRunning(kProgram, 1);
    EXPECT_EQ(IsProcessElevated(pid), false);
    GetProcessCreateTime(pid);
    sim::ClearFaults();
  }
  EXPECT_EQ(Log(), std::vector<std::string>{});
}

TEST_F(ProcessAnswers, ARefusedProcessIsNotAskedForItsRights) {
  sim::SetUserAdmin(true);
  const std::uint32_t pid = Start([](sim::ProcessSpec& spec) { spec.elevated = true; });
  EXPECT_FALSE(IsProcessUsable(pid, L"C:\\Dir\\B.exe"));
  EXPECT_EQ(sim::CallCount("IsUserAnAdmin"), 0);
  EXPECT_EQ(sim::CallCount("OpenProcessToken"), 0);
  EXPECT_TRUE(IsProcessUsable(pid, kProgram));
  EXPECT_EQ(sim::CallCount("IsUserAnAdmin"), 1);
  EXPECT_EQ(sim::CallCount("OpenProcessToken"), 1);
}

TEST_F(ProcessAnswers, TheRightToQueryIsEnoughForElevationAndNoHandleIsEverGivenBack) {
  const struct {
    std::function<void(sim::ProcessSpec&)> edit;
    bool elevated;
    int processes;
    int tokens;
  } rows[] = {
      {[](sim::ProcessSpec& spec) { spec.elevated = true; }, true, 1, 1},
      {[](sim::ProcessSpec& spec) { spec.elevated = false; }, false, 1, 1},
      {[](sim::ProcessSpec& spec) {
         spec.elevated = true;
         spec.grantedAccess = platform::kProcessQueryInformation;
       },
       true, 1, 1},
      {[](sim::ProcessSpec& spec) {
         spec.elevated = true;
         spec.grantedAccess = platform::kProcessTerminate;
       },
       false, 0, 0},
      {[](sim::ProcessSpec& spec) {
         spec.elevated = true;
         spec.tokenOpens = false;
       },
       false, 1, 0},
      {[](sim::ProcessSpec& spec) {
         spec.elevated = true;
         spec.tokenReadable = false;
       },
       false, 1, 1},
  };
  for (const auto& row : rows) {
    const std::uint32_t pid = Start(row.edit);
    const int processes = sim::OpenHandles(sim::HandleKind::kProcess);
    const int tokens = sim::OpenHandles(sim::HandleKind::kToken);
    EXPECT_EQ(IsProcessElevated(pid), row.elevated) << &row - rows;
    EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess) - processes, row.processes) << &row - rows;
    EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kToken) - tokens, row.tokens) << &row - rows;
  }
}

TEST_F(ProcessAnswers, AStartHasOneLineAndTheArgumentsStandBehindOneBlank) {
  const struct {
    const wchar_t* arguments;
    const wchar_t* command;
  } rows[] = {
      {L"/vexelsdk", L"\"C:\\Dir\\A.exe\" /vexelsdk"},
      {L"", L"\"C:\\Dir\\A.exe\" "},
      {L" a \"b c\"  d ", L"\"C:\\Dir\\A.exe\"  a \"b c\"  d "},
  };
  sim::InstallProgram(kProgram);
  std::vector<std::string> lines;
  for (const auto& row : rows) {
    std::uint32_t pid = 0;
    EXPECT_EQ(CreateProcessBy(kProgram, row.arguments, pid), 0u);
    EXPECT_EQ(sim::StartedPrograms().back().commandText, row.command);
    lines.push_back("INFO VexelSdkProcessUtil::CreateProcessBy Process: " + std::to_string(pid));
    EXPECT_EQ(Log(), lines);
  }
}

TEST_F(ProcessAnswers, AStartThatFailsHasOneLineAndItsErrorOutlivesThat) {
  sim::FailAlways("CreateProcessW", 740);
  std::uint32_t pid = 0;
  EXPECT_EQ(CreateProcessBy(kProgram, L"/vexelsdk", pid), 740u);
  EXPECT_EQ(Log(), std::vector<std::string>{"INFO VexelSdkProcessUtil::CreateProcessBy CreateProcessW failed: 740"});
  LogTo(L"C:\\no such folder\\Test.log"); // the line is lost on the way, with errors of its own
  EXPECT_EQ(CreateProcessBy(kProgram, L"/vexelsdk", pid), 740u);
  LogTo(kLogFile);
  sim::FailAlways("WriteFile", 112);
  EXPECT_EQ(CreateProcessBy(kProgram, L"/vexelsdk", pid), 740u);
  EXPECT_GT(sim::FaultsFired("WriteFile"), 0);
}

TEST_F(ProcessAnswers, CreationTimesFollowTheTimeZone) {
  const std::uint32_t pid = Start();
  const std::uint64_t created = GetProcessCreateTime(pid);
  ASSERT_NE(created, 0u);
  sim::SetTimeZone(120);
  EXPECT_EQ(GetProcessCreateTime(pid), created + 3600);
  sim::SetTimeZone(60);
  EXPECT_EQ(GetProcessCreateTime(pid), created);
}

/// The C library's time zone, while it lives.
class CTimeZone {
public:
  explicit CTimeZone(const char* zone) {
    const char* const before = std::getenv("TZ");
    m_had = before != nullptr;
    m_before = m_had ? before : "";
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~CTimeZone() {
    if (m_had) {
      ::setenv("TZ", m_before.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  CTimeZone(const CTimeZone&) = delete;
  CTimeZone& operator=(const CTimeZone&) = delete;

private:
  bool m_had = false;
  std::string m_before;
};

TEST_F(ProcessAnswers, ACreationTimeIsReadAsLocalTimeWithoutDaylightSaving) {
  const CTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const std::int64_t july = sim::StepsOf({2026, 7, 1, 13, 3, 10, 44, 0}); // in UTC; an hour later in the world's zone
  EXPECT_EQ(GetProcessCreateTime(Start([july](sim::ProcessSpec& spec) { spec.created = july; })), 1783912244u);
}

TEST_F(ProcessAnswers, ACreationTimeWithOneEmptyHalfIsOne) {
  constexpr std::int64_t kHighOnly = std::int64_t{0x01DC0000} << 32;
  EXPECT_NE(GetProcessCreateTime(Start([](sim::ProcessSpec& spec) { spec.created = kHighOnly; })), 0u);
}

TEST_F(ProcessAnswers, ACreationTimeThatCannotBeReadIsUnknownAndLeavesNoHandle) {
  const std::uint32_t ended = Start();
  ASSERT_NE(GetProcessCreateTime(ended), 0u);
  sim::EndProcess(ended);
  EXPECT_EQ(GetProcessCreateTime(ended), 0u);
  EXPECT_EQ(GetProcessCreateTime(Start([](sim::ProcessSpec& spec) { spec.timesReadable = false; })), 0u);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess), 0);
}

TEST_F(ProcessAnswers, LookingForAPathAsksForAllRightsThenForTheOneToQuery) {
  constexpr std::uint32_t kReadMemory = 0x10;
  const struct {
    std::uint32_t granted;
    const wchar_t* path;
    int opens;
  } rows[] = {
      {platform::kProcessAllAccess, L"C:\\Dir\\A.exe", 1},
      {platform::kProcessAllAccess & ~platform::kProcessTerminate, L"c:\\dir\\a.exe", 2},
      {platform::kProcessQueryInformation | kReadMemory, L"c:\\dir\\a.exe", 2}, // enough, but never asked for
      {platform::kProcessQueryInformation, L"c:\\dir\\a.exe", 2},
      {kReadMemory, L"", 2},
  };
  for (const auto& row : rows) {
    const std::uint32_t pid = Start([&](sim::ProcessSpec& spec) { spec.grantedAccess = row.granted; });
    const int before = sim::CallCount("OpenProcess");
    EXPECT_EQ(GetProcessPath(pid), row.path) << row.granted;
    EXPECT_EQ(sim::CallCount("OpenProcess") - before, row.opens) << row.granted;
  }
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess), 0);
}

TEST_F(ProcessAnswers, TheRightToQueryIsEnoughForACreationTime) {
  const std::uint32_t pid =
      Start([](sim::ProcessSpec& spec) { spec.grantedAccess = platform::kProcessQueryInformation; });
  EXPECT_NE(GetProcessCreateTime(pid), 0u);
}

TEST_F(ProcessAnswers, PathsAreReadInto260Units) {
  const auto pathOf = [](std::size_t units, bool moduleRoute) {
    return GetProcessPath(Start([&](sim::ProcessSpec& spec) {
      spec.moduleRoute = moduleRoute;
      spec.moduleText = L"C:\\" + std::wstring(units - 3, L'A');
      spec.imageText = L"\\Other\\" + std::wstring(units - 7, L'A');
    }));
  };
  // The one route cuts what is longer, the other has nothing then.
  EXPECT_EQ(pathOf(259, true), L"C:\\" + std::wstring(256, L'A'));
  EXPECT_EQ(pathOf(300, true), L"C:\\" + std::wstring(256, L'A'));
  EXPECT_EQ(pathOf(259, false), L"\\other\\" + std::wstring(252, L'a'));
  EXPECT_EQ(pathOf(260, false), L"");
}

TEST_F(ProcessAnswers, ARunningPathIsComparedWholeAndInAnyCaseButNotRewritten) {
  Start();
  for (const wchar_t* same : {L"C:\\Dir\\A.exe", L"c:\\DIR\\a.EXE"}) {
    EXPECT_EQ(IsPathRunning(same, 1), 1) << testing::PrintToString(std::wstring(same));
  }
  for (const wchar_t* other : {L"C:/Dir/A.exe", L"C:\\\\Dir\\A.exe", L"A.exe", L"\\Dir\\A.exe", L"C:\\Dir\\A.exe\\",
                               L"C:\\Dir\\A.ex", L"C:\\Dirs\\A.exe"}) {
    EXPECT_EQ(IsPathRunning(other, 1), 0) << testing::PrintToString(std::wstring(other));
  }
}

TEST_F(ProcessAnswers, AListThatEndsEarlyHoldsNobodyBehindItsEnd) {
  Start();
  sim::FailNth("Process32FirstW", 1);
  EXPECT_EQ(IsPathRunning(kProgram, 1), 0);
  sim::FailNth("Process32NextW", 1);
  EXPECT_EQ(IsPathRunning(kProgram, 1), 0);
  EXPECT_EQ(IsPathRunning(kProgram, 1), 1);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kSnapshot), 0);
}

TEST_F(ProcessAnswers, ADriveThatCameLaterStaysUnknown) {
  sim::AddDrive(L"E:", {L"\\Device\\Later"});
  const std::uint32_t pid = Start([](sim::ProcessSpec& spec) {
    spec.path = L"E:\\Dir\\A.exe";
    spec.moduleRoute = false;
  });
  EXPECT_EQ(GetProcessPath(pid), L"\\device\\later\\dir\\a.exe");
}

TEST_F(ProcessAnswers, EachEntryOfPsapiButOneIsNeededForAWholeTable) {
  for (const char* entry : {"EnumProcessModules", "EnumProcessModulesEx", "EnumProcesses", "GetModuleBaseNameW",
                            "GetModuleFileNameExW", "GetProcessImageFileNameW"}) {
    sim::Reset();
    sim::RemoveEntry(entry);
    PsapiFunctions psapi;
    wchar_t buffer[261] = {};
    psapi.GetProcessImageFileNameW(nullptr, buffer, 260);
    EXPECT_EQ(psapi.IsComplete(), std::string(entry) == "EnumProcessModulesEx") << entry;
    const auto lookups = sim::RequestedEntries().size();
    psapi.GetModuleFileNameExW(nullptr, nullptr, buffer, 260);
    EXPECT_EQ(sim::RequestedEntries().size() - lookups, psapi.IsComplete() ? 0u : 6u) << entry;
  }
}

// The first lookup of a process happens once, so each of these has a process of its own.

TEST(FirstLookup, ThatFindsNoDrivesIsNotMadeUpForLater) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        sim::ProcessSpec spec;
        spec.path = kProgram;
        spec.moduleRoute = false;
        const std::uint32_t pid = sim::StartProcess(spec);
        sim::FailNth("GetLogicalDriveStringsW", 1);
        const std::wstring first = GetProcessPath(pid);
        const std::wstring later = GetProcessPath(pid);
        std::fprintf(stderr, "%s, %s, read %d", sim::Narrow(first).c_str(), sim::Narrow(later).c_str(),
                     sim::CallCount("GetLogicalDriveStringsW"));
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "^.device.harddiskvolume1.dir.a.exe, .device.harddiskvolume1.dir.a.exe, read 1$");
}

TEST(FirstLookup, ReadsTheDrivesOnceAndOnlyForAProcessThatOpens) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        sim::ProcessSpec spec;
        spec.path = kProgram;
        const std::uint32_t pid = sim::StartProcess(spec);
        GetProcessPath(4711);
        const int before = sim::CallCount("GetLogicalDriveStringsW");
        GetProcessPath(pid);
        const int first = sim::CallCount("GetLogicalDriveStringsW");
        GetProcessPath(pid);
        std::fprintf(stderr, "read %d, %d, %d", before, first, sim::CallCount("GetLogicalDriveStringsW"));
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "^read 0, 1, 1$");
}

} // namespace
} // namespace VexelSdkProcessUtil
