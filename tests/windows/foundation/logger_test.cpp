#include "foundation/logger.h"

#include "foundation/paths.h"
#include "foundation/text_codecs.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr DWORD kLong = 120000;                 // milliseconds
constexpr DWORD kBreakExit = 0x80000003;        // how a break without a debugger ends a process
constexpr std::int64_t kLargestFile = 10485760; // bytes

class SharedLog : public testing::Test {
protected:
  SharedLog() : m_path(m_folder.Path(L"Shared.log")) { Restart(); }
  ~SharedLog() override { vx::ResetLogger({}); }

  void Restart() const { vx::ResetLogger({m_path, L"Software\\no such key of any program", nullptr}); }

  /// Starts a process that writes lines to the same log.
  HANDLE StartWriter(const std::string& name, int lines, const char* more = "") const {
    std::wstring command = L"\"" + vx::GetDirectoryOfPath(vx::GetModuleFilePath(nullptr)) +
                           L"foundation_log_writer.exe\" \"" + m_path + L"\" " +
                           vx::MultiByteToWide(name + " " + std::to_string(lines) + " " + more, CP_UTF8);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    EXPECT_TRUE(
        ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child));
    ::CloseHandle(child.hThread);
    return child.hProcess;
  }

  static DWORD WaitForExit(HANDLE process) {
    EXPECT_EQ(::WaitForSingleObject(process, kLong), DWORD{WAIT_OBJECT_0});
    DWORD code = 0;
    EXPECT_TRUE(::GetExitCodeProcess(process, &code));
    ::CloseHandle(process);
    return code;
  }

  /// The mutex of the log, if some process has it.
  HANDLE OpenLock() const {
    std::wstring name = m_path;
    std::replace(name.begin(), name.end(), L'\\', L'/');
    return ::OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, (L"Global\\" + name).c_str());
  }

  test::FreshFolder m_folder;
  std::wstring m_path;
};

TEST_F(SharedLog, LinesOfManyProcessesAreWholeAndInOrder) {
  constexpr int kWriters = 6;
  constexpr int kLines = 150;
  std::vector<HANDLE> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.push_back(StartWriter(std::to_string(writer), kLines));
  }
  for (int line = 0; line < kLines; ++line) {
    SDKLOG(LOG_INFO) << "writer=" << kWriters << " line=" << line << " " << std::string(100, 'x') << " end";
  }
  for (const HANDLE writer : writers) {
    EXPECT_EQ(WaitForExit(writer), 0u);
  }
  std::map<int, int> next;
  const std::string bytes = test::ReadBytes(m_path);
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = bytes.find("\r\n", at);
    ASSERT_NE(end, std::string::npos);
    const std::string line = bytes.substr(at, end - at);
    at = end + 2;
    const std::size_t words = line.find("writer=");
    ASSERT_NE(words, std::string::npos) << line;
    int writer = -1;
    int number = -1;
    ASSERT_EQ(std::sscanf(line.c_str() + words, "writer=%d line=%d", &writer, &number), 2) << line;
    ASSERT_EQ(line.substr(words), "writer=" + std::to_string(writer) + " line=" + std::to_string(number) + " " +
                                      std::string(100, 'x') + " end");
    ASSERT_EQ(line.front(), '[');
    EXPECT_EQ(number, next[writer]++);
  }
  ASSERT_EQ(next.size(), kWriters + 1u);
  for (const auto& [writer, count] : next) {
    EXPECT_EQ(count, kLines) << writer;
  }
}

TEST_F(SharedLog, TheLockIsNamedAfterThePathInForwardSlashes) {
  EXPECT_EQ(OpenLock(), nullptr);
  SDKLOG(LOG_INFO) << "x";
  const HANDLE lock = OpenLock();
  EXPECT_NE(lock, nullptr);
  ::CloseHandle(lock);
}

TEST_F(SharedLog, AStatementWaitsForTheLock) {
  SDKLOG(LOG_INFO) << "first";
  const HANDLE lock = OpenLock();
  ASSERT_EQ(::WaitForSingleObject(lock, kLong), DWORD{WAIT_OBJECT_0});
  std::atomic<bool> built{false};
  std::thread other([&built] { SDKLOG(LOG_INFO) << "second" << (built.exchange(true) ? "" : "!"); });
  while (!built) {
    ::Sleep(1);
  }
  ::Sleep(20); // all that is left of the statement is to be written
  EXPECT_EQ(test::ReadBytes(m_path).find("second"), std::string::npos);
  EXPECT_TRUE(::ReleaseMutex(lock));
  other.join();
  EXPECT_NE(test::ReadBytes(m_path).find("second"), std::string::npos);
  ::CloseHandle(lock);
}

TEST_F(SharedLog, AWriterThatDiedWithTheLockDoesNotStopTheOthers) {
  SDKLOG(LOG_INFO) << "first";
  const HANDLE lock = OpenLock();
  std::thread([lock] { EXPECT_EQ(::WaitForSingleObject(lock, kLong), DWORD{WAIT_OBJECT_0}); }).join();
  SDKLOG(LOG_INFO) << "second";
  SDKLOG(LOG_INFO) << "third";
  EXPECT_NE(test::ReadBytes(m_path).find("third\r\n"), std::string::npos);
  EXPECT_EQ(::WaitForSingleObject(lock, 0), DWORD{WAIT_OBJECT_0}); // and the lock was given up again
  EXPECT_TRUE(::ReleaseMutex(lock));
  ::CloseHandle(lock);
}

TEST_F(SharedLog, AFatalStatementWritesItsLineAndEndsTheProcess) {
  const HANDLE writer = StartWriter("W", 1, "fatal");
  EXPECT_EQ(WaitForExit(writer), kBreakExit);
  const std::string bytes = test::ReadBytes(m_path);
  EXPECT_NE(bytes.find("|  FATAL|log_writer.cpp:"), std::string::npos) << bytes;
  EXPECT_NE(bytes.find("] main the last words of W\r\n"), std::string::npos) << bytes;
  EXPECT_EQ(bytes.find("never written"), std::string::npos);
}

TEST_F(SharedLog, AProcessThatEmptiesTheFileLeavesTheOtherOneWritingAtTheNewEnd) {
  test::WriteBytes(m_path, std::string(kLargestFile, 'x'));
  SDKLOG(LOG_INFO) << "over the limit"; // open, and beyond the limit from here on
  EXPECT_EQ(WaitForExit(StartWriter("W", 1)), 0u);
  SDKLOG(LOG_INFO) << "at the new end";
  const std::string bytes = test::ReadBytes(m_path);
  EXPECT_LT(bytes.size(), 1000u);
  EXPECT_EQ(bytes.front(), '[');
  EXPECT_LT(bytes.find("writer=W line=0"), bytes.find("at the new end\r\n"));
  EXPECT_EQ(bytes.find('\0'), std::string::npos);
}

TEST_F(SharedLog, AFileHeldByAnotherLosesTheLogUntilItIsFree) {
  const HANDLE held =
      ::CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  SDKLOG(LOG_INFO) << "lost";
  EXPECT_EQ(vx::log_init_state.load(), 0);
  ::CloseHandle(held);
  SDKLOG(LOG_INFO) << "kept";
  const std::string bytes = test::ReadBytes(m_path);
  EXPECT_EQ(bytes.find("lost"), std::string::npos);
  EXPECT_NE(bytes.find("kept\r\n"), std::string::npos);
}

TEST(FixedLog, LiesBesideTheProgram) {
  vx::ResetLogger({});
  const std::wstring path =
      vx::GetDirectoryOfPath(vx::GetModuleFilePath(nullptr)) + L"log\\windows_foundation.windows_foundation.exe.log";
  ::DeleteFileW(path.c_str());
  SDKLOG(LOG_ERROR) << "beside the program";
  EXPECT_EQ(vx::BuildLogFilePath(), path);
  EXPECT_NE(test::ReadBytes(path).find("beside the program\r\n"), std::string::npos);
  vx::ResetLogger({});
  EXPECT_TRUE(::DeleteFileW(path.c_str()));
}

} // namespace
