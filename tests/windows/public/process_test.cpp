#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/logger.h"
#include "foundation/paths.h"
#include "foundation/text_codecs.h"
#include "foundation/unique_handle.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace VexelSdkProcessUtil {
namespace {

constexpr DWORD kLong = 120000;                // milliseconds
constexpr std::uint32_t kNotTouched = 0x1234u; // what an untouched process id keeps
constexpr DWORD kQueryAndRead = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

bool WaitFor(const std::function<bool()>& condition) {
  const ULONGLONG end = ::GetTickCount64() + kLong;
  while (!condition()) {
    if (::GetTickCount64() > end) {
      return false;
    }
    ::Sleep(5);
  }
  return true;
}

std::wstring Changed(std::wstring text, wint_t (*change)(wint_t)) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [change](wchar_t unit) { return static_cast<wchar_t>(change(unit)); });
  return text;
}

/// The error of a read of another process's memory, which the list of its modules needs. 0 where it can be read, as on
/// Windows; an emulated Wine denies it, and GetModuleFileNameExW with it.
DWORD ErrorOfReadingMemory(std::uint32_t pid) {
  const vx::UniqueHandle process(::OpenProcess(kQueryAndRead, FALSE, pid));
  EXPECT_TRUE(process);
  // The system's own data are at this place in each process.
  const auto* const systemData = reinterpret_cast<const void*>(std::uintptr_t{0x7FFE0000});
  std::uint32_t word = 0;
  SIZE_T size = 0;
  return ::ReadProcessMemory(process.Get(), systemData, &word, sizeof word, &size) != FALSE ? 0 : ::GetLastError();
}

/// Tells that this test leaves out what hangs on the memory of another process; ./dev prints such lines.
void TellLeftOut(const char* what, DWORD error) {
  const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
  std::cout << "left out of " << test->test_suite_name() << '.' << test->name() << ": " << what
            << ", because ReadProcessMemory of another process fails here with " << error << std::endl;
}

std::wstring ChildProgram() { return vx::GetDirectoryOfPath(vx::GetModuleFilePath(nullptr)) + L"public_child.exe"; }

// Children that wait, in a folder and with a log of one test's own. They have ended when the test is over.
class Processes : public testing::Test {
protected:
  Processes() : m_event(::CreateEventW(nullptr, TRUE, FALSE, m_eventName.c_str())) {
    vx::ResetLogger({m_log, L"Software\\no such key of any program", nullptr});
  }

  ~Processes() override {
    ::SetEvent(m_event.Get());
    for (const vx::UniqueHandle& child : m_children) {
      EXPECT_EQ(::WaitForSingleObject(child.Get(), kLong), WAIT_OBJECT_0);
    }
    vx::ResetLogger({});
  }

  /// A copy of the child program; returns its path.
  std::wstring Install(const std::wstring& name) const {
    const std::wstring path = m_folder.Path(name);
    EXPECT_TRUE(vx::CreateDirectoryTree(vx::GetDirectoryOfPath(path)));
    EXPECT_NE(::CopyFileW(ChildProgram().c_str(), path.c_str(), TRUE), FALSE);
    return path;
  }

  /// Starts a program that waits for the end of the test; returns its process id.
  std::uint32_t StartWaiting(const std::wstring& path) {
    std::uint32_t pid = 0;
    EXPECT_EQ(CreateProcessBy(path, L"wait " + m_eventName, pid), 0u);
    m_children.emplace_back(::OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, pid));
    EXPECT_TRUE(m_children.back());
    return pid;
  }

  /// Ends a child and gives back every handle to it.
  void End(std::size_t index) {
    ASSERT_NE(::TerminateProcess(m_children[index].Get(), 1), FALSE);
    ASSERT_EQ(::WaitForSingleObject(m_children[index].Get(), kLong), WAIT_OBJECT_0);
    m_children.erase(m_children.begin() + static_cast<std::ptrdiff_t>(index));
  }

  bool Logged(const std::string& text) const { return test::ReadBytes(m_log).find(text) != std::string::npos; }

  std::string LogText() const { return test::ReadBytes(m_log); }

  static std::string Narrow(const std::wstring& text) { return vx::WideToUtf8(text); }

  test::FreshFolder m_folder;
  const std::wstring m_log = m_folder.Path(L"Test.log");
  const std::wstring m_eventName = L"vexel_public_test_" + std::to_wstring(::GetCurrentProcessId());
  vx::UniqueHandle m_event;
  std::vector<vx::UniqueHandle> m_children;
};

TEST_F(Processes, PathOfThisProcessIsItsExecutable) {
  EXPECT_TRUE(IsSamePath(GetProcessPath(::GetCurrentProcessId()), vx::GetModuleFilePath(nullptr)));
}

TEST_F(Processes, PathOfAChildIsKnownFromItsStartOn) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  EXPECT_TRUE(IsSamePath(GetProcessPath(pid), path)) << testing::PrintToString(GetProcessPath(pid));
  EXPECT_EQ(IsPathRunning(GetProcessPath(pid).c_str(), 1), 1);
}

TEST_F(Processes, BothRoutesLeadToTheSameFile) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  const vx::UniqueHandle process(::OpenProcess(kQueryAndRead, FALSE, pid));
  ASSERT_TRUE(process);
  if (const DWORD error = ErrorOfReadingMemory(pid); error == ERROR_ACCESS_DENIED) {
    TellLeftOut("the path by way of the module", error);
  } else {
    ASSERT_TRUE(WaitFor([&] { return !QueryModuleFilePath(process.Get()).empty(); }));
    EXPECT_TRUE(IsSamePath(QueryModuleFilePath(process.Get()), path));
  }
  const std::wstring image = QueryImageFilePath(process.Get());
  EXPECT_TRUE(IsSamePath(image, path)) << testing::PrintToString(image);
  EXPECT_EQ(image, Changed(image, std::towlower));
}

TEST_F(Processes, AHandleThatIsNoneHasNoPath) {
  EXPECT_EQ(QueryModuleFilePath(nullptr), L"");
  EXPECT_EQ(QueryImageFilePath(nullptr), L"");
}

TEST_F(Processes, RunningPathsAreFoundInAnyCase) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  const std::wstring running = GetProcessPath(pid);
  EXPECT_EQ(IsPathRunning(Changed(running, std::towupper).c_str(), 1), 1);
  EXPECT_EQ(IsPathRunning(Changed(running, std::towlower).c_str(), 1), 1);
}

TEST_F(Processes, TheSameNameInAnotherFolderIsAnotherProgram) {
  const std::wstring one = Install(L"one\\Child.exe");
  const std::wstring two = Install(L"two\\Child.exe");
  const std::uint32_t pid = StartWaiting(one);
  EXPECT_EQ(IsPathRunning(one.c_str(), 1), 1);
  EXPECT_EQ(IsPathRunning(two.c_str(), 1), 0);
  EXPECT_TRUE(IsProcessValid(pid, one));
  EXPECT_FALSE(IsProcessValid(pid, two));
  StartWaiting(two);
  EXPECT_EQ(IsPathRunning(two.c_str(), 1), 1);
  EXPECT_EQ(IsPathRunning(two.c_str(), 2), 0);
}

TEST_F(Processes, CountsWhatRunsOnePath) {
  const std::wstring path = Install(L"Child.exe");
  EXPECT_EQ(IsPathRunning(path.c_str(), 1), 0);
  StartWaiting(path);
  EXPECT_EQ(IsPathRunning(path.c_str(), 1), 1);
  EXPECT_EQ(IsPathRunning(path.c_str(), 2), 0);
  StartWaiting(path);
  EXPECT_EQ(IsPathRunning(path.c_str(), 2), 1);
  EXPECT_EQ(IsPathRunning(path.c_str(), 3), 0);
}

TEST_F(Processes, ADeadProcessIsNotRunning) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  ASSERT_TRUE(IsProcessValid(pid, path));
  ASSERT_NE(GetProcessCreateTime(pid), 0u);
  End(0);
  EXPECT_TRUE(WaitFor([&] { return GetProcessPath(pid).empty(); }));
  EXPECT_TRUE(WaitFor([&] { return IsPathRunning(path.c_str(), 1) == 0; }));
  EXPECT_EQ(GetProcessCreateTime(pid), 0u);
  EXPECT_FALSE(IsProcessElevated(pid));
  EXPECT_FALSE(IsProcessUsable(pid, path));
  EXPECT_TRUE(Logged("VexelSdkProcessUtil::IsProcessValid process is not running, pid=" + std::to_string(pid) +
                     ", path=" + Narrow(path) + "\r\n"))
      << LogText();
}

TEST_F(Processes, AnotherPathIsLoggedAsExpected) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  EXPECT_FALSE(IsProcessValid(pid, L"C:\\Other\\Child.exe"));
  const std::string log = LogText();
  const std::string line = "VexelSdkProcessUtil::IsProcessValid process path not match, pid=" + std::to_string(pid) +
                           ", path=C:\\Other\\Child.exe\r\n";
  ASSERT_NE(log.find(line), std::string::npos) << log;
  EXPECT_NE(log.rfind("WARNING", log.find(line)), std::string::npos);
  EXPECT_EQ(log.find("not running"), std::string::npos);
}

TEST_F(Processes, IdZeroIsRefusedWithoutALine) {
  EXPECT_FALSE(IsProcessValid(0, L"C:\\Other\\Child.exe"));
  EXPECT_EQ(LogText(), "");
}

TEST_F(Processes, ValidUnderEveryWayToWriteThePath) {
  const std::wstring path = Install(L"Dir\\Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  std::wstring slashes = path;
  std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
  std::wstring doubled = path;
  doubled.insert(doubled.rfind(L'\\'), 1, L'\\');
  for (const std::wstring& way : {path, slashes, doubled, path + L"\\", Changed(path, std::towupper)}) {
    EXPECT_TRUE(IsProcessValid(pid, way)) << Narrow(way);
  }
}

TEST_F(Processes, AChildInheritsWhatMakesItUsable) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  EXPECT_TRUE(IsProcessUsable(pid, path));
  EXPECT_FALSE(IsProcessUsable(pid, path + L"x"));
  EXPECT_EQ(IsProcessElevated(pid), IsProcessElevated(::GetCurrentProcessId()));
}

TEST_F(Processes, TheCommandTextIsTheQuotedPathAndTheArgumentsAsTheyStand) {
  const std::wstring path = Install(L"with blanks\\the child.exe");
  const std::wstring report = m_folder.Path(L"report.txt");
  const std::wstring args = L"report \"" + report + L"\"  two  blanks \\\"";
  std::uint32_t pid = 0;
  ASSERT_NE(::SetEnvironmentVariableW(L"VEXEL_PUBLIC_TEST", L"inherited"), FALSE);
  ASSERT_EQ(CreateProcessBy(path, args, pid), 0u);
  EXPECT_NE(pid, 0u);
  if (const vx::UniqueHandle child(::OpenProcess(SYNCHRONIZE, FALSE, pid)); child) {
    ASSERT_EQ(::WaitForSingleObject(child.Get(), kLong), WAIT_OBJECT_0);
  }
  // Empty also while the child is putting the file under its name.
  std::string bytes;
  ASSERT_TRUE(WaitFor([&] { return !(bytes = test::ReadBytes(report)).empty(); }));
  std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  wchar_t folder[1024] = {};
  ASSERT_NE(::GetCurrentDirectoryW(1024, folder), 0u);
  EXPECT_EQ(text, L"\"" + path + L"\" " + args + L"\n" + folder + L"\ninherited\n");
  EXPECT_TRUE(Logged("VexelSdkProcessUtil::CreateProcessBy Process: " + std::to_string(pid) + "\r\n")) << LogText();
}

TEST_F(Processes, AStartThatFailsGivesTheErrorAndNoId) {
  for (const wchar_t* name : {L"missing.exe", L"missing\\missing.exe"}) {
    std::uint32_t pid = kNotTouched;
    const std::uint32_t error = CreateProcessBy(m_folder.Path(name), L"/vexelsdk", pid);
    // A missing folder is told from a missing file by some systems only.
    EXPECT_TRUE(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) << error;
    EXPECT_EQ(pid, kNotTouched);
    EXPECT_TRUE(Logged("VexelSdkProcessUtil::CreateProcessBy CreateProcessW failed: " + std::to_string(error) + "\r\n"))
        << LogText();
  }
}

TEST_F(Processes, NothingIsStartedWithoutAPath) {
  std::uint32_t pid = kNotTouched;
  EXPECT_NE(CreateProcessBy(L"", L"", pid), 0u);
  EXPECT_EQ(pid, kNotTouched);
}

TEST_F(Processes, AFileThatIsNoProgramIsNotStarted) {
  const std::wstring path = m_folder.Path(L"text.exe");
  test::WriteBytes(path, "no program");
  std::uint32_t pid = kNotTouched;
  EXPECT_NE(CreateProcessBy(path, L"", pid), 0u);
  EXPECT_EQ(pid, kNotTouched);
}

TEST_F(Processes, NoHandleToAChildIsKept) {
  // While a handle is open anywhere, the id of an ended process stays taken.
  const std::wstring path = Install(L"Child.exe");
  std::uint32_t pid = 0;
  ASSERT_EQ(CreateProcessBy(path, L"", pid), 0u);
  EXPECT_TRUE(WaitFor([&] { return !vx::UniqueHandle(::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, pid)); }));
}

TEST_F(Processes, LookingKeepsNoHandle) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t pid = StartWaiting(path);
  EXPECT_TRUE(IsProcessValid(pid, path));
  EXPECT_NE(GetProcessCreateTime(pid), 0u);
  End(0);
  EXPECT_TRUE(WaitFor([&] { return !vx::UniqueHandle(::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, pid)); }));
}

TEST_F(Processes, CreationTimesAreStableAndTellStartsApart) {
  const std::wstring path = Install(L"Child.exe");
  const std::uint32_t first = StartWaiting(path);
  const std::uint64_t created = GetProcessCreateTime(first);
  ASSERT_NE(created, 0u);
  // The next full second after the first start is over.
  const ULONGLONG start = ::GetTickCount64();
  ASSERT_TRUE(WaitFor([&] { return ::GetTickCount64() > start + 1100; }));
  const std::uint32_t second = StartWaiting(path);
  EXPECT_GT(GetProcessCreateTime(second), created);
  EXPECT_EQ(GetProcessCreateTime(first), created);
}

TEST_F(Processes, APathAtTheLimitIsTestedAndOneBeyondItIsNot) {
  // The longest path that the system can report is found; past 260 units nothing is.
  std::wstring name = L"Child.exe";
  const std::size_t used = m_folder.Path(L"").size();
  ASSERT_LT(used + name.size(), 255u);
  name.insert(0, 255 - used - name.size(), L'x');
  const std::wstring path = Install(name);
  ASSERT_EQ(path.size(), 255u);
  const std::uint32_t pid = StartWaiting(path);
  if (const DWORD error = ErrorOfReadingMemory(pid); error == ERROR_ACCESS_DENIED) {
    // The other route reports a longer form, which is over the limit.
    TellLeftOut("a path of 255 units is found", error);
  } else {
    EXPECT_EQ(IsPathRunning(path.c_str(), 1), 1);
    EXPECT_TRUE(IsProcessValid(pid, path));
  }
  EXPECT_EQ(IsPathRunning((path + std::wstring(6, L'x')).c_str(), 1), 0);
}

} // namespace
} // namespace VexelSdkProcessUtil
