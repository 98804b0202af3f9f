#include "tests/sim/process.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/error.h"
#include "platform/module.h"
#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

using ModuleTextFun = std::uint32_t (*)(Handle, Module, wchar_t*, std::uint32_t);
using ImageTextFun = std::uint32_t (*)(Handle, wchar_t*, std::uint32_t);
using EnumFun = std::int32_t (*)(std::uint32_t*, std::uint32_t, std::uint32_t*);

class SimProcess : public testing::Test {
protected:
  static void* Entry(const char* name) { return GetProcAddress(LoadLibraryW(L"PSAPI.DLL"), name); }
  static std::wstring ModuleText(Handle process) {
    wchar_t text[kMaxPath] = {};
    return reinterpret_cast<ModuleTextFun>(Entry("GetModuleFileNameExW"))(process, nullptr, text, kMaxPath) == 0 ? L""
                                                                                                                 : text;
  }
  static std::wstring ImageText(Handle process) {
    wchar_t text[kMaxPath] = {};
    return reinterpret_cast<ImageTextFun>(Entry("GetProcessImageFileNameW"))(process, text, kMaxPath) == 0 ? L"" : text;
  }
  static std::map<std::uint32_t, std::wstring> List() {
    std::map<std::uint32_t, std::wstring> rows;
    const Handle snapshot = CreateToolhelp32Snapshot(kSnapProcess, 0);
    ProcessEntry entry{};
    for (bool more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
      rows[entry.pid] = entry.exeFile;
      entry = {};
    }
    EXPECT_EQ(GetLastError(), 18u);
    CloseHandle(snapshot);
    return rows;
  }
  static std::uint32_t Start(const std::wstring& command, std::uint32_t* error = nullptr) {
    std::wstring text = command;
    std::uint32_t pid = 0;
    Handle process = nullptr;
    Handle thread = nullptr;
    if (!CreateProcessW(text.data(), &pid, &process, &thread)) {
      EXPECT_EQ(pid, 0u);
      if (error != nullptr) {
        *error = GetLastError();
      }
      return 0;
    }
    EXPECT_TRUE(CloseHandle(process));
    EXPECT_TRUE(CloseHandle(thread));
    return pid;
  }
  static std::uint32_t StartError(const std::wstring& command) {
    std::uint32_t error = 0;
    EXPECT_EQ(Start(command, &error), 0u);
    return error;
  }

  sim::World m_world;
};

TEST_F(SimProcess, TheHostIsListed) {
  EXPECT_EQ(GetCurrentProcessId(), sim::kHostPid);
  EXPECT_EQ(List()[sim::kHostPid], L"browser.exe");
  EXPECT_TRUE(sim::RunningPids().empty());
}

TEST_F(SimProcess, OpeningNeedsAProcessAndItsLeave) {
  EXPECT_EQ(OpenProcess(kProcessQueryInformation, 0), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(OpenProcess(kProcessQueryInformation, 99996), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  sim::ProcessSpec spec;
  spec.path = L"C:\\a.exe";
  spec.grantedAccess = kProcessQueryInformation;
  const std::uint32_t pid = sim::StartProcess(spec);
  EXPECT_EQ(OpenProcess(kProcessAllAccess, pid), nullptr);
  EXPECT_EQ(GetLastError(), 5u);
  const Handle process = OpenProcess(kProcessQueryInformation, pid);
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(ModuleText(process), L""); // memory can't be read with this right
  EXPECT_EQ(ImageText(process), L"\\Device\\HarddiskVolume1\\a.exe");
  EXPECT_FALSE(TerminateProcess(process, 1));
  EXPECT_EQ(GetLastError(), 5u);
  CloseHandle(process);
}

TEST_F(SimProcess, BothRoutesTellThePathInTheFormThatATestWants) {
  sim::ProcessSpec spec;
  spec.path = L"D:\\Dir\\a.exe";
  spec.moduleRouteLate = 1;
  const std::uint32_t pid = sim::StartProcess(spec);
  const Handle process = OpenProcess(kProcessAllAccess, pid);
  EXPECT_EQ(ModuleText(process), L""); // just started
  EXPECT_EQ(ModuleText(process), L"D:\\Dir\\a.exe");
  EXPECT_EQ(ImageText(process), L"\\Device\\HarddiskVolume10\\Dir\\a.exe");
  sim::EditProcess(pid, [](sim::ProcessSpec& edited) {
    edited.moduleText = L"\\??\\D:\\Dir\\a.exe";
    edited.imageText = L"\\Device\\Other\\a.exe";
  });
  EXPECT_EQ(ModuleText(process), L"\\??\\D:\\Dir\\a.exe");
  EXPECT_EQ(ImageText(process), L"\\Device\\Other\\a.exe");
  sim::EditProcess(pid, [](sim::ProcessSpec& edited) { edited.moduleRoute = edited.imageRoute = false; });
  EXPECT_EQ(ModuleText(process), L"");
  EXPECT_EQ(ImageText(process), L"");
  sim::EditProcess(pid, [](sim::ProcessSpec& edited) { edited.moduleRoute = edited.imageRoute = true; });
  sim::FailNth("GetModuleFileNameExW", 1);
  sim::FailNth("GetProcessImageFileNameW", 1);
  EXPECT_EQ(ModuleText(process), L"");
  EXPECT_EQ(ImageText(process), L"");
  EXPECT_NE(ModuleText(process), L"");
  wchar_t small[5];
  EXPECT_EQ(reinterpret_cast<ModuleTextFun>(Entry("GetModuleFileNameExW"))(process, nullptr, small, 5), 5u);
  EXPECT_STREQ(small, L"\\??\\");
  EXPECT_EQ(reinterpret_cast<ImageTextFun>(Entry("GetProcessImageFileNameW"))(process, small, 5), 0u);
  EXPECT_EQ(GetLastError(), 122u);
  CloseHandle(process);
}

TEST_F(SimProcess, AllProcessesAreEnumerated) {
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  std::uint32_t pids[8] = {};
  std::uint32_t needed = 0;
  EXPECT_EQ(reinterpret_cast<EnumFun>(Entry("EnumProcesses"))(pids, sizeof pids, &needed), 1);
  EXPECT_EQ(needed, 12u);
  EXPECT_EQ(pids[1], sim::kHostPid);
  EXPECT_EQ(pids[2], pid);
}

TEST_F(SimProcess, ADeadProcessLeavesTheListAtOnceAndItsIdWithItsLastHandle) {
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  const Handle process = OpenProcess(kProcessAllAccess, pid);
  EXPECT_TRUE(sim::CrashProcess(pid));
  EXPECT_FALSE(sim::CrashProcess(pid));
  EXPECT_EQ(sim::ExitCode(pid), 0xC0000005u);
  EXPECT_FALSE(List().contains(pid));
  const Handle again = OpenProcess(kProcessAllAccess, pid);
  EXPECT_NE(again, nullptr);
  EXPECT_EQ(ModuleText(process), L"");
  EXPECT_NE(ImageText(process), L"");
  EXPECT_FALSE(TerminateProcess(process, 0));
  CloseHandle(process);
  CloseHandle(again);
  EXPECT_EQ(OpenProcess(kProcessAllAccess, pid), nullptr);
}

TEST_F(SimProcess, TerminationEndsWithItsCode) {
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  const Handle process = OpenProcess(kProcessTerminate, pid);
  EXPECT_TRUE(TerminateProcess(process, 42));
  EXPECT_FALSE(sim::IsRunning(pid));
  EXPECT_EQ(sim::ExitCode(pid), 42u);
  CloseHandle(process);
}

TEST_F(SimProcess, IdsComeBackAfterSoManyStarts) {
  const std::uint32_t first = sim::StartProcess(L"C:\\a.exe");
  sim::EndProcess(first);
  EXPECT_NE(sim::StartProcess(L"C:\\b.exe"), first); // never, in a fresh world
  sim::SetPidReuse(2);
  EXPECT_NE(sim::StartProcess(L"C:\\c.exe"), first);
  EXPECT_EQ(sim::StartProcess(L"C:\\d.exe"), first);
  sim::SetNextPid(9000);
  EXPECT_EQ(sim::StartProcess(L"C:\\e.exe"), 9000u);
  EXPECT_EQ(sim::RunningPids(L"c:\\D.EXE"), (std::vector<std::uint32_t>{first}));
}

TEST_F(SimProcess, ListRowsFollowTheTest) {
  sim::ProcessSpec spec;
  spec.path = L"C:\\dir\\a.exe";
  const std::uint32_t plain = sim::StartProcess(spec);
  spec.snapshotName = L"C:\\dir\\b.exe";
  const std::uint32_t named = sim::StartProcess(spec);
  spec.inSnapshot = false;
  const std::uint32_t hidden = sim::StartProcess(spec);
  auto rows = List();
  EXPECT_EQ(rows[plain], L"a.exe");
  EXPECT_EQ(rows[named], L"C:\\dir\\b.exe");
  EXPECT_FALSE(rows.contains(hidden));
  EXPECT_EQ(rows[0], L"[System Process]");
}

TEST_F(SimProcess, CreationTimesFollowTheClock) {
  sim::SetClockSpeed(0);
  const std::uint32_t pid = sim::StartProcess(L"C:\\a.exe");
  sim::AdvanceMs(5000);
  const Handle process = OpenProcess(kProcessQueryInformation, pid);
  FileTime created{};
  EXPECT_TRUE(GetProcessCreationTime(process, &created));
  const auto steps = static_cast<std::int64_t>((static_cast<std::uint64_t>(created.high) << 32) | created.low);
  EXPECT_EQ(steps, sim::GetUtc() - 50'000'000);
  sim::EditProcess(pid, [](sim::ProcessSpec& spec) { spec.created = -1; });
  EXPECT_TRUE(GetProcessCreationTime(process, &created));
  EXPECT_EQ(created.low, 0u);
  EXPECT_EQ(created.high, 0u);
  sim::EditProcess(pid, [](sim::ProcessSpec& spec) { spec.timesReadable = false; });
  EXPECT_FALSE(GetProcessCreationTime(process, &created));
  CloseHandle(process);
}

TEST_F(SimProcess, TokensTellElevation) {
  sim::ProcessSpec spec;
  spec.path = L"C:\\a.exe";
  spec.elevated = true;
  const std::uint32_t pid = sim::StartProcess(spec);
  const Handle process = OpenProcess(kProcessQueryInformation, pid);
  Handle token = nullptr;
  std::uint32_t elevation = 0;
  ASSERT_TRUE(OpenProcessToken(process, kTokenQuery, &token));
  EXPECT_TRUE(GetTokenElevation(token, &elevation));
  EXPECT_EQ(elevation, 1u);
  sim::EditProcess(pid, [](sim::ProcessSpec& edited) { edited.tokenReadable = false; });
  EXPECT_FALSE(GetTokenElevation(token, &elevation));
  CloseHandle(token);
  sim::EditProcess(pid, [](sim::ProcessSpec& edited) { edited.tokenOpens = false; });
  EXPECT_FALSE(OpenProcessToken(process, kTokenQuery, &token));
  EXPECT_EQ(token, nullptr);
  CloseHandle(process);
  EXPECT_FALSE(IsUserAnAdmin());
  sim::SetUserAdmin(true);
  EXPECT_TRUE(IsUserAnAdmin());
}

TEST_F(SimProcess, AStartParsesItsCommandText) {
  sim::InstallProgram(L"C:\\My Dir\\a.exe");
  const std::uint32_t pid = Start(L"\"C:\\My Dir\\a.exe\" /x y");
  ASSERT_NE(pid, 0u);
  EXPECT_EQ(sim::RunningPids(L"C:\\My Dir\\a.exe"), (std::vector<std::uint32_t>{pid}));
  EXPECT_NE(Start(L"C:\\My Dir\\a.exe /x"), 0u); // without quotes each blank is tried
  EXPECT_NE(Start(L"\"C:\\My Dir\\a\""), 0u);
  const auto started = sim::StartedPrograms();
  ASSERT_EQ(started.size(), 3u);
  EXPECT_EQ(started[0].pid, pid);
  EXPECT_EQ(started[0].commandText, L"\"C:\\My Dir\\a.exe\" /x y");
  EXPECT_EQ(started[0].path, L"C:\\My Dir\\a.exe");
  EXPECT_EQ(sim::OpenHandles(), 0);
}

TEST_F(SimProcess, AStartThatCantBeTellsWhy) {
  EXPECT_EQ(StartError(L"\"C:\\Host\\none.exe\" x"), 2u);
  EXPECT_EQ(StartError(L"\"C:\\none\\none.exe\" x"), 3u);
  EXPECT_EQ(StartError(L"\"C:\\Host\""), 2u);                // it is C:\Host.exe that is looked for
  EXPECT_EQ(StartError(L"\"C:\\Host\\browser.exe\""), 193u); // a file, and no program that was installed
  sim::Program program;
  program.startError = 740;
  sim::InstallProgram(L"C:\\a.exe", program);
  EXPECT_EQ(StartError(L"\"C:\\a.exe\""), 740u);
  sim::InstallProgram(L"C:\\a.exe");
  sim::FailNth("CreateProcessW", 1, sim::kOnce, 1455);
  EXPECT_EQ(StartError(L"\"C:\\a.exe\""), 1455u);
  EXPECT_NE(Start(L"\"C:\\a.exe\""), 0u);
}

TEST_F(SimProcess, AChildTakesAfterTheHost) {
  sim::InstallProgram(L"C:\\a.exe");
  sim::SetHostElevated(true);
  const std::uint32_t pid = Start(L"\"C:\\a.exe\"");
  bool elevated = false;
  sim::EditProcess(pid, [&](sim::ProcessSpec& spec) { elevated = spec.elevated; });
  EXPECT_TRUE(elevated);
}

TEST_F(SimProcess, AProgramRunsItsOwnCodeUntilItsProcessEnds) {
  sim::SetClockSpeed(100);
  sim::Program program;
  program.main = [](sim::Child& child) {
    if (child.Arguments() == L"/quit" && child.SleepFor(500)) {
      sim::EndProcess(child.Pid(), 9);
    }
    while (child.SleepFor(100)) {
    }
  };
  sim::InstallProgram(L"C:\\a.exe", program);
  const std::uint32_t quits = Start(L"\"C:\\a.exe\" /quit");
  const std::uint32_t stays = Start(L"\"C:\\a.exe\"");
  EXPECT_TRUE(sim::WaitFor([&] { return !sim::IsRunning(quits); }));
  EXPECT_EQ(sim::ExitCode(quits), 9u);
  EXPECT_TRUE(sim::IsRunning(stays));
}

} // namespace
