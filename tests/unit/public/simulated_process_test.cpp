#include "public/vexelsdk/app_launch_table.h"
#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/logger.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

// What real processes can't be made to do.
namespace VexelSdkProcessUtil {
namespace {

// The tests that run on the real system as well need a system to run on here.
class FirstWorld : public testing::Environment {
public:
  void SetUp() override { sim::Reset(); }
};

[[maybe_unused]] const testing::Environment* const kFirstWorld = testing::AddGlobalTestEnvironment(new FirstWorld);

constexpr std::uint32_t kNotTouched = 0x1234u; // what an untouched process id keeps
constexpr const wchar_t* kLogPath = L"C:\\Logs\\Test.log";

class SimulatedProcess : public testing::Test {
protected:
  SimulatedProcess() {
    sim::AddFolder(L"C:\\Logs");
    vx::ResetLogger({kLogPath, L"Software\\no such key of any program", nullptr});
    // The drives are read once in a process, by its first lookup.
    GetProcessPath(sim::kHostPid);
    // The log may have closed what it had open in an earlier world.
    m_badCloses = sim::BadCloses();
  }
  ~SimulatedProcess() override { vx::ResetLogger({}); }

  static std::uint32_t Start(const wchar_t* path, const std::function<void(sim::ProcessSpec&)>& edit = {}) {
    sim::ProcessSpec spec;
    spec.path = path;
    if (edit) {
      edit(spec);
    }
    return sim::StartProcess(spec);
  }

  static int Calls(const char* operation) { return sim::CallCount(operation); }

  static bool Logged(const std::string& text) { return sim::FileBytes(kLogPath).find(text) != std::string::npos; }

  sim::World m_world;
  int m_badCloses = 0;
};

TEST_F(SimulatedProcess, TheModuleRouteKeepsTheCase) {
  EXPECT_EQ(GetProcessPath(Start(L"C:\\Dir\\A.exe")), L"C:\\Dir\\A.exe");
}

TEST_F(SimulatedProcess, NativeFormsOfTheModuleRouteAreRewritten) {
  const struct {
    const wchar_t* text;
    const wchar_t* path;
  } rows[] = {
      {L"\\??\\C:\\Dir\\A.exe", L"C:\\Dir\\A.exe"},
      {L"\\SystemRoot\\system32\\A.exe", L"C:\\Windows\\system32\\A.exe"},
      {L"\\Device\\HarddiskVolume1\\Dir\\A.exe", L"c:\\dir\\a.exe"}, // by the image route
  };
  for (const auto& row : rows) {
    const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [&](sim::ProcessSpec& spec) { spec.moduleText = row.text; });
    EXPECT_EQ(GetProcessPath(pid), row.path);
  }
}

TEST_F(SimulatedProcess, TheImageRouteTakesOverWithoutTheModuleRoute) {
  EXPECT_EQ(GetProcessPath(Start(L"D:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.moduleRoute = false; })),
            L"d:\\dir\\a.exe");
}

TEST_F(SimulatedProcess, AnUnknownDeviceKeepsItsForm) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) {
    spec.moduleRoute = false;
    spec.imageText = L"\\Device\\Mup\\Server\\A.exe";
  });
  EXPECT_EQ(GetProcessPath(pid), L"\\device\\mup\\server\\a.exe");
}

TEST_F(SimulatedProcess, NeitherRouteMeansNoPath) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) {
    spec.moduleRoute = false;
    spec.imageRoute = false;
  });
  EXPECT_EQ(GetProcessPath(pid), L"");
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 1), 0);
}

TEST_F(SimulatedProcess, TheRightToQueryIsTriedSecond) {
  const std::uint32_t pid =
      Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.grantedAccess = platform::kProcessQueryInformation; });
  const int before = Calls("OpenProcess");
  // The module route wants to read memory as well.
  EXPECT_EQ(GetProcessPath(pid), L"c:\\dir\\a.exe");
  EXPECT_EQ(Calls("OpenProcess") - before, 2);
}

TEST_F(SimulatedProcess, WhatCannotBeOpenedReadsAsNotRunning) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.grantedAccess = 0; });
  const int before = Calls("OpenProcess");
  EXPECT_EQ(GetProcessPath(pid), L"");
  EXPECT_EQ(Calls("OpenProcess") - before, 2);
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 1), 0);
  EXPECT_FALSE(IsProcessValid(pid, L"C:\\Dir\\A.exe"));
  EXPECT_EQ(GetProcessCreateTime(pid), 0u);
}

TEST_F(SimulatedProcess, OnlyTheFirstOpenIsNeededWhenItWorks) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  const int before = Calls("OpenProcess");
  EXPECT_EQ(GetProcessPath(pid), L"C:\\Dir\\A.exe");
  EXPECT_EQ(Calls("OpenProcess") - before, 1);
}

TEST_F(SimulatedProcess, LookingLeavesNoHandle) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  const int before = sim::OpenHandles();
  EXPECT_TRUE(IsProcessUsable(pid, L"C:\\Dir\\A.exe"));
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 1), 1);
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 2), 0);
  EXPECT_NE(GetProcessCreateTime(pid), 0u);
  EXPECT_EQ(sim::OpenHandles(), before);
  EXPECT_EQ(sim::BadCloses(), m_badCloses);
}

TEST_F(SimulatedProcess, PathsOf260UnitsAreTestedAndLongerOnesAreNot) {
  const std::wstring longest = L"C:\\" + std::wstring(257, L'a');
  ASSERT_EQ(longest.size(), 260u);
  int before = Calls("CreateToolhelp32Snapshot");
  EXPECT_EQ(IsPathRunning(longest.c_str(), 1), 0);
  EXPECT_EQ(Calls("CreateToolhelp32Snapshot") - before, 1);
  before = Calls("CreateToolhelp32Snapshot");
  EXPECT_EQ(IsPathRunning((longest + L"a").c_str(), 1), 0);
  EXPECT_EQ(IsPathRunning(L"", 1), 0);
  EXPECT_EQ(IsPathRunning(nullptr, 1), 0);
  EXPECT_EQ(Calls("CreateToolhelp32Snapshot") - before, 0);
}

TEST_F(SimulatedProcess, OnlySameNamedProcessesAreOpened) {
  Start(L"C:\\Dir\\A.exe");
  Start(L"C:\\Dir\\B.exe");
  Start(L"D:\\Dir\\a.EXE");
  const int before = Calls("OpenProcess");
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\a.exe", 2), 0);
  EXPECT_EQ(Calls("OpenProcess") - before, 2);
}

TEST_F(SimulatedProcess, TheWalkStopsAtTheCount) {
  Start(L"C:\\Dir\\A.exe");
  Start(L"C:\\Dir\\A.exe");
  Start(L"C:\\Dir\\A.exe");
  const int before = Calls("OpenProcess");
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 2), 1);
  EXPECT_EQ(Calls("OpenProcess") - before, 2);
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 3), 1);
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 4), 0);
}

TEST_F(SimulatedProcess, RowsMayCarryAFolder) {
  Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.snapshotName = L"X:\\other\\A.exe"; });
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 1), 1);
}

TEST_F(SimulatedProcess, NoSnapshotMeansNotRunning) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  sim::FailAlways("CreateToolhelp32Snapshot");
  EXPECT_EQ(IsPathRunning(L"C:\\Dir\\A.exe", 1), 0);
  EXPECT_FALSE(IsProcessValid(pid, L"C:\\Dir\\A.exe"));
  EXPECT_EQ(sim::BadCloses(), m_badCloses);
}

TEST_F(SimulatedProcess, MissingFromTheSnapshotMeansNotValid) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.inSnapshot = false; });
  EXPECT_EQ(GetProcessPath(pid), L"C:\\Dir\\A.exe");
  EXPECT_FALSE(IsProcessValid(pid, L"C:\\Dir\\A.exe"));
  EXPECT_TRUE(Logged("VexelSdkProcessUtil::IsProcessValid process is not running, pid=" + std::to_string(pid) +
                     ", path=C:\\Dir\\A.exe\r\n"));
}

TEST_F(SimulatedProcess, ARecycledIdIsNotValid) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  EXPECT_TRUE(IsProcessValid(pid, L"C:\\Dir\\A.exe"));
  ASSERT_TRUE(sim::EndProcess(pid));
  Start(L"C:\\Dir\\B.exe", [pid](sim::ProcessSpec& spec) { spec.pid = pid; });
  EXPECT_FALSE(IsProcessValid(pid, L"C:\\Dir\\A.exe"));
  EXPECT_TRUE(Logged("VexelSdkProcessUtil::IsProcessValid process path not match, pid=" + std::to_string(pid) +
                     ", path=C:\\Dir\\A.exe\r\n"));
}

TEST_F(SimulatedProcess, AnOrdinaryHostTakesEveryValidProcessAndAsksForNoToken) {
  sim::SetUserAdmin(false);
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  EXPECT_TRUE(IsProcessUsable(pid, L"C:\\Dir\\A.exe"));
  EXPECT_EQ(Calls("OpenProcessToken"), 0);
}

TEST_F(SimulatedProcess, AnAdministratorsHostTakesElevatedProcessesOnly) {
  sim::SetUserAdmin(true);
  const auto start = [](const std::function<void(sim::ProcessSpec&)>& edit) { return Start(L"C:\\Dir\\A.exe", edit); };
  const std::uint32_t plain = start([](sim::ProcessSpec&) {});
  const std::uint32_t elevated = start([](sim::ProcessSpec& spec) { spec.elevated = true; });
  const std::uint32_t closed = start([](sim::ProcessSpec& spec) {
    spec.elevated = true;
    spec.tokenOpens = false;
  });
  const std::uint32_t unreadable = start([](sim::ProcessSpec& spec) {
    spec.elevated = true;
    spec.tokenReadable = false;
  });
  EXPECT_FALSE(IsProcessUsable(plain, L"C:\\Dir\\A.exe"));
  EXPECT_TRUE(IsProcessUsable(elevated, L"C:\\Dir\\A.exe"));
  EXPECT_FALSE(IsProcessUsable(elevated, L"C:\\Dir\\B.exe"));
  EXPECT_FALSE(IsProcessUsable(closed, L"C:\\Dir\\A.exe"));
  EXPECT_FALSE(IsProcessUsable(unreadable, L"C:\\Dir\\A.exe"));
}

TEST_F(SimulatedProcess, TheElevationCheckLeavesItsHandlesOpen) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.elevated = true; });
  EXPECT_TRUE(IsProcessElevated(pid));
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess), 1);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kToken), 1);
}

TEST_F(SimulatedProcess, AStartBuildsOneCommandTextAndKeepsNoHandle) {
  sim::InstallProgram(L"C:\\With Blanks\\A.exe");
  std::uint32_t pid = kNotTouched;
  EXPECT_EQ(CreateProcessBy(L"C:\\With Blanks\\A.exe", L"/vexelsdk  x", pid), 0u);
  const std::vector<sim::StartedProgram> started = sim::StartedPrograms();
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0].pid, pid);
  EXPECT_EQ(started[0].commandText, L"\"C:\\With Blanks\\A.exe\" /vexelsdk  x");
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess) + sim::OpenHandles(sim::HandleKind::kThread), 0);
  EXPECT_TRUE(Logged("VexelSdkProcessUtil::CreateProcessBy Process: " + std::to_string(pid) + "\r\n"));
}

TEST_F(SimulatedProcess, AFailedStartIsTriedOnceAndGivesItsError) {
  sim::InstallProgram(L"C:\\Dir\\A.exe");
  for (const std::uint32_t error : {2u, 5u, 740u, 1455u}) {
    sim::FailNth("CreateProcessW", 1, sim::kOnce, error);
    const int before = Calls("CreateProcessW");
    std::uint32_t pid = kNotTouched;
    EXPECT_EQ(CreateProcessBy(L"C:\\Dir\\A.exe", L"/vexelsdk", pid), error);
    EXPECT_EQ(pid, kNotTouched);
    EXPECT_EQ(Calls("CreateProcessW") - before, 1);
    EXPECT_TRUE(
        Logged("VexelSdkProcessUtil::CreateProcessBy CreateProcessW failed: " + std::to_string(error) + "\r\n"));
  }
}

TEST_F(SimulatedProcess, CreationTimesAreWholeSecondsOfLocalTime) {
  const std::int64_t moment = sim::StepsOf({2026, 11, 5, 13, 3, 10, 44, 900});
  const auto at = [moment](std::int64_t steps) {
    return Start(L"C:\\Dir\\A.exe", [&](sim::ProcessSpec& spec) { spec.created = moment + steps; });
  };
  const std::uint64_t created = GetProcessCreateTime(at(0));
  EXPECT_NE(created, 0u);
  EXPECT_EQ(GetProcessCreateTime(at(-9'000'000)), created);
  EXPECT_EQ(GetProcessCreateTime(at(1'000'000)), created + 1);
  EXPECT_EQ(GetProcessCreateTime(at(3'600LL * 10'000'000)), created + 3'600);
}

TEST_F(SimulatedProcess, AnUnknownCreationTimeIsZero) {
  const std::uint32_t pid = Start(L"C:\\Dir\\A.exe");
  ASSERT_NE(GetProcessCreateTime(pid), 0u);
  for (const char* operation :
       {"OpenProcess", "GetProcessCreationTime", "FileTimeToLocalFileTime", "FileTimeToSystemTime"}) {
    sim::FailNth(operation, 1);
    EXPECT_EQ(GetProcessCreateTime(pid), 0u) << operation;
  }
  EXPECT_EQ(GetProcessCreateTime(Start(L"C:\\Dir\\A.exe", [](sim::ProcessSpec& spec) { spec.created = -1; })), 0u);
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess), 0);
}

TEST_F(SimulatedProcess, NoSingleFailureLeaksAHandleOrMakesADeadProcessUsable) {
  for (const std::string& operation : sim::FailableOperations()) {
    for (int nth = 1;; ++nth) {
      sim::Reset();
      sim::AddFolder(L"C:\\Logs");
      vx::ResetLogger({kLogPath, L"Software\\no such key of any program", nullptr});
      sim::InstallProgram(L"C:\\Dir\\A.exe");
      const std::uint32_t dead = Start(L"C:\\Dir\\A.exe");
      ASSERT_TRUE(sim::EndProcess(dead));
      sim::FailNth(operation, nth);

      std::uint32_t pid = 0;
      const std::uint32_t error = CreateProcessBy(L"C:\\Dir\\A.exe", L"/vexelsdk", pid);
      EXPECT_EQ(error == 0, pid != 0) << operation << nth;
      IsProcessUsable(pid, L"C:\\Dir\\A.exe");
      GetProcessCreateTime(pid);
      EXPECT_FALSE(IsProcessUsable(dead, L"C:\\Dir\\A.exe")) << operation << nth;
      if (operation != "CloseHandle") {
        EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kProcess), 0) << operation << nth;
        EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kThread), 0) << operation << nth;
        EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kSnapshot), 0) << operation << nth;
      }
      if (sim::FaultsFired() == 0) {
        break;
      }
    }
  }
}

class SimulatedPsapi : public testing::Test {
protected:
  std::wstring ModulePath(PsapiFunctions& psapi) const {
    wchar_t buffer[261] = {};
    return psapi.GetModuleFileNameExW(m_process, nullptr, buffer, 260) == 0 ? std::wstring() : std::wstring(buffer);
  }

  std::wstring ImagePath(PsapiFunctions& psapi) const {
    wchar_t buffer[261] = {};
    return psapi.GetProcessImageFileNameW(m_process, buffer, 260) == 0 ? std::wstring() : std::wstring(buffer);
  }

  static int References() { return sim::ReferenceCount(L"C:\\Windows\\System32\\PSAPI.DLL"); }

  sim::World m_world;
  const std::uint32_t m_pid = sim::StartProcess(L"C:\\Dir\\A.exe");
  const platform::Handle m_process = platform::OpenProcess(platform::kProcessAllAccess, m_pid);
};

TEST_F(SimulatedPsapi, IsLoadedByTheFirstCallAndOnce) {
  PsapiFunctions psapi;
  EXPECT_FALSE(psapi.IsComplete());
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
  EXPECT_TRUE(psapi.IsComplete());
  EXPECT_EQ(ImagePath(psapi), L"\\Device\\HarddiskVolume1\\Dir\\A.exe");
  EXPECT_EQ(sim::LoadRequests(), std::vector<std::wstring>{L"PSAPI.DLL"});
  EXPECT_EQ(sim::CallCount("GetProcAddress"), 6);
}

TEST_F(SimulatedPsapi, AFailedLoadIsTriedAgainAtEachCall) {
  PsapiFunctions psapi;
  sim::SetPsapiPresent(false);
  EXPECT_EQ(ModulePath(psapi), L"");
  EXPECT_EQ(ImagePath(psapi), L"");
  EXPECT_FALSE(psapi.IsComplete());
  EXPECT_EQ(sim::LoadRequests().size(), 2u);
  sim::SetPsapiPresent(true);
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
  EXPECT_TRUE(psapi.IsComplete());
}

TEST_F(SimulatedPsapi, AnEntryIsUsedThoughAnotherIsMissing) {
  sim::RemoveEntry("EnumProcesses");
  PsapiFunctions psapi;
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
  EXPECT_FALSE(psapi.IsComplete());
  EXPECT_EQ(ImagePath(psapi), L"\\Device\\HarddiskVolume1\\Dir\\A.exe");
  EXPECT_FALSE(psapi.IsComplete());
  EXPECT_EQ(References(), 1);
}

TEST_F(SimulatedPsapi, AMissingEntryMeansNoPath) {
  sim::RemoveEntry("GetModuleFileNameExW");
  PsapiFunctions psapi;
  EXPECT_EQ(ModulePath(psapi), L"");
  EXPECT_EQ(ImagePath(psapi), L"\\Device\\HarddiskVolume1\\Dir\\A.exe");
}

TEST_F(SimulatedPsapi, OneEntryIsNotRequired) {
  sim::RemoveEntry("EnumProcessModulesEx");
  PsapiFunctions psapi;
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
  EXPECT_TRUE(psapi.IsComplete());
}

TEST_F(SimulatedPsapi, UnloadGivesTheLibraryBackAndTheNextCallLoadsAgain) {
  const int before = References();
  PsapiFunctions psapi;
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
  EXPECT_EQ(References(), before + 1);
  psapi.Unload();
  EXPECT_FALSE(psapi.IsComplete());
  EXPECT_EQ(References(), before);
  EXPECT_EQ(ModulePath(psapi), L"C:\\Dir\\A.exe");
}

TEST_F(SimulatedPsapi, RacingCallsAndRetriesKeepOneReference) {
  PsapiFunctions psapi;
  sim::SetPsapiPresent(false);
  std::vector<std::thread> threads;
  std::vector<std::wstring> paths(4);
  for (std::wstring& path : paths) {
    threads.emplace_back([this, &psapi, &path] {
      while (path.empty()) {
        path = ModulePath(psapi);
      }
    });
  }
  EXPECT_TRUE(sim::WaitFor([] { return sim::LoadRequests().size() > 20; }));
  sim::SetPsapiPresent(true);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(paths, std::vector<std::wstring>(4, L"C:\\Dir\\A.exe"));
  EXPECT_EQ(References(), 1);
}

class SimulatedDrives : public testing::Test {
protected:
  sim::World m_world;
  DevicePathMap m_map;
};

TEST_F(SimulatedDrives, ThatCannotBeListedLeaveTheMapNotLoaded) {
  sim::FailNth("GetLogicalDriveStringsW", 1);
  m_map.LoadDevicePathMap();
  EXPECT_FALSE(m_map.IsLoaded());
}

TEST_F(SimulatedDrives, WithoutADeviceAddNothing) {
  sim::AddDrive(L"E:", {});
  sim::AddDrive(L"F:", {L"\\Device\\Current", L"\\Device\\Former"});
  m_map.LoadDevicePathMap();
  EXPECT_TRUE(m_map.IsLoaded());
  std::wstring path = L"\\Device\\HarddiskVolume10\\a.exe";
  EXPECT_TRUE(m_map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"d:\\a.exe");
  path = L"\\Device\\Current\\a.exe";
  EXPECT_TRUE(m_map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"f:\\a.exe");
  path = L"\\Device\\Former\\a.exe";
  EXPECT_FALSE(m_map.TranslateDevicePath(path));
}

TEST_F(SimulatedDrives, OneThatGoesIsKnownUntilTheMapIsLoadedAgain) {
  const std::wstring device = L"\\Device\\HarddiskVolume10\\a.exe";
  m_map.LoadDevicePathMap();
  sim::RemoveDrive(L"D:");
  std::wstring path = device;
  EXPECT_TRUE(m_map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"d:\\a.exe");
  sim::AddDrive(L"E:", {L"\\Device\\HarddiskVolume10"}); // the same disk under another letter
  path = device;
  EXPECT_TRUE(m_map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"d:\\a.exe");
  m_map.LoadDevicePathMap();
  path = device;
  EXPECT_TRUE(m_map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"e:\\a.exe");
}

TEST_F(SimulatedDrives, AllTwentySixAreRead) {
  for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
    if (letter != L'C' && letter != L'D') {
      sim::AddDrive(std::wstring(1, letter) + L":", {std::wstring(L"\\Device\\Extra") + letter});
    }
  }
  m_map.LoadDevicePathMap();
  for (const wchar_t letter : {L'A', L'B', L'Z'}) {
    std::wstring path = std::wstring(L"\\Device\\Extra") + letter + L"\\x";
    EXPECT_TRUE(m_map.TranslateDevicePath(path));
    EXPECT_EQ(path.substr(1), L":\\x");
  }
}

TEST_F(SimulatedDrives, AMissingSystemRootMakesThePathUnusable) {
  sim::FailNth("ExpandEnvironmentStringsW", 1);
  std::wstring path = L"\\SystemRoot\\system32\\a.exe";
  EXPECT_FALSE(NormalizeNativePath(path));
  EXPECT_EQ(path, L"");
  sim::SetEnvironment(L"SystemRoot", L"C:\\" + std::wstring(300, L'a'));
  path = L"\\SystemRoot\\system32\\a.exe";
  EXPECT_FALSE(NormalizeNativePath(path));
}

class SimulatedSavedPids : public testing::Test {
protected:
  const std::wstring m_folder = std::wstring(sim::kLocalAppData) + L"\\norvelVexel";
  const std::wstring m_file = m_folder + L"\\config_temp.ini";
  sim::World m_world;
  AppLaunchTable m_table{L"C:\\Vexel\\"};
};

TEST_F(SimulatedSavedPids, ComeBack) {
  m_table.WriteSavedPid(L"webvexlaunch.exe", 5120);
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 4100);
  EXPECT_EQ(sim::FileBytes(m_file), "\xEF\xBB\xBF[common]\r\npid=4100\r\npreview_pid=5120\r\n");
  EXPECT_EQ(AppLaunchTable(L"").ReadSavedPid(L"vxpixeleditor.exe"), 4100u);
  EXPECT_EQ(AppLaunchTable(L"").ReadSavedPid(L"webvexlaunch.exe"), 5120u);
}

TEST_F(SimulatedSavedPids, AFileThatCannotBeReadIsNotWritten) {
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 4100);
  const std::string bytes = sim::FileBytes(m_file);
  sim::FailNth("ReadFile", 1);
  EXPECT_EQ(m_table.ReadSavedPid(L"vxpixeleditor.exe"), 0u);
  sim::FailNth("ReadFile", 1);
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 1);
  EXPECT_EQ(sim::FileBytes(m_file), bytes);
}

TEST_F(SimulatedSavedPids, AFolderThatCannotBeMadeMeansNoneSaved) {
  sim::SetReadOnly(sim::kLocalAppData);
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 4100);
  EXPECT_EQ(m_table.ReadSavedPid(L"vxpixeleditor.exe"), 0u);
  EXPECT_FALSE(sim::FolderExists(m_folder));
}

TEST_F(SimulatedSavedPids, AFullDiskLosesTheId) {
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 4100);
  sim::SetFreeSpace(L"C:", 0);
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 123456789);
  EXPECT_EQ(m_table.ReadSavedPid(L"vxpixeleditor.exe"), 0u);
}

TEST_F(SimulatedSavedPids, NoSpecialFolderIsNoSpecialCase) {
  sim::SetSpecialFolder(platform::kCsidlLocalAppData, L"");
  m_table.WriteSavedPid(L"vxpixeleditor.exe", 7);
  m_table.ReadSavedPid(L"vxpixeleditor.exe");
  EXPECT_EQ(sim::FileBytes(m_file), "");
}

} // namespace
} // namespace VexelSdkProcessUtil
