#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "tests/sim/clock.h"
#include "tests/sim/debug.h"
#include "tests/sim/faults.h"
#include "tests/sim/sync.h"
#include "tests/unit/foundation/simulated_log.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr std::int64_t kStepsInAnHour = 36'000'000'000; // of 100 nanoseconds

/// Lets the wall clock stand at a local time.
void StandAt(const platform::SystemTime& local) {
  sim::SetClockSpeed(0);
  sim::SetTimeZone(60);
  sim::SetUtc(sim::StepsOf(local) - kStepsInAnHour);
}

struct LineCase {
  const char* name;
  std::uint32_t thread;
  platform::SystemTime local;
  std::int32_t severity;
  const wchar_t* file;
  std::int32_t line;
  std::string header;
};

void PrintTo(const LineCase& row, std::ostream* out) { *out << row.name; }

class LogLine : public test::SimulatedLog, public testing::WithParamInterface<LineCase> {};

TEST_P(LogLine, HasTheseBytes) {
  StandAt(GetParam().local);
  sim::SetNextThreadId(GetParam().thread);
  std::thread([] {
    vx::LogMessage(GetParam().file, GetParam().line, static_cast<vx::LogSeverity>(GetParam().severity))
        << L"VexelSdkProcessUtil::IsProcessValid" << " "
        << "process is not running, pid=" << std::uint32_t{5120} << ", path=" << L"C:\\app\\editor.exe";
  }).join();
  EXPECT_EQ(sim::FileBytes(test::kLogPath), GetParam().header + "VexelSdkProcessUtil::IsProcessValid process is not "
                                                                "running, pid=5120, path=C:\\app\\editor.exe\r\n");
}

INSTANTIATE_TEST_SUITE_P(Log, LogLine,
                         testing::Values(LineCase{"FourDigitsOfAThread",
                                                  4816,
                                                  {2026, 11, 0, 13, 3, 10, 44, 999},
                                                  LOG_INFO,
                                                  L"file.ext",
                                                  20,
                                                  "[4816 |2026-11-13 03:10:44|   INFO|file.ext:20] "},
                                         LineCase{"OneDigitEverywhere",
                                                  4,
                                                  {2026, 1, 0, 2, 3, 4, 5, 6},
                                                  LOG_WARNING,
                                                  L"/src/a/b.cpp",
                                                  1,
                                                  "[4    |2026-01-02 03:04:05|WARNING|b.cpp:1] "},
                                         LineCase{"FiveDigitsFillTheField",
                                                  65532,
                                                  {2026, 12, 0, 31, 23, 59, 59, 0},
                                                  LOG_ERROR,
                                                  L"C:\\src\\b.cpp",
                                                  450,
                                                  "[65532|2026-12-31 23:59:59|  ERROR|b.cpp:450] "},
                                         LineCase{"SixDigitsAreWrittenWhole",
                                                  123456,
                                                  {2027, 10, 0, 10, 0, 0, 0, 0},
                                                  LOG_DEBUG,
                                                  L"C:\\src/a\\b.cpp",
                                                  12345,
                                                  "[123456|2027-10-10 00:00:00|  DEBUG|b.cpp:12345] "},
                                         LineCase{"TheLargestNumbers",
                                                  4294967292u,
                                                  {9999, 12, 0, 31, 12, 0, 0, 0},
                                                  9,
                                                  L"a\\b/b.cpp",
                                                  2147483647,
                                                  "[4294967292|9999-12-31 12:00:00|UNKNOWN|b.cpp:2147483647] "}),
                         [](const auto& entry) { return std::string(entry.param.name); });

using LogStatement = test::SimulatedLog;

TEST_F(LogStatement, ItsTimeIsThatOfItsStart) {
  StandAt({2026, 11, 0, 13, 3, 10, 44, 0});
  SDKLOG(LOG_INFO) << (sim::AdvanceMs(5000), "x");
  EXPECT_EQ(platform::GetLocalTime().second, 49);
  EXPECT_NE(sim::FileBytes(test::kLogPath).find("|2026-11-13 03:10:44|"), std::string::npos)
      << sim::FileBytes(test::kLogPath);
}

TEST_F(LogStatement, AnOperandsOwnErrorDoesNotOutliveIt) {
  for (const char* run : {"the first, which starts the log", "another"}) {
    platform::SetLastError(17);
    SDKLOG(LOG_INFO) << platform::GetFileAttributesW(L"C:\\missing") << platform::GetLastError();
    EXPECT_EQ(platform::GetLastError(), 17u) << run;
  }
}

TEST_F(LogStatement, IsOneWriteAtTheEndUnderTheLock) {
  test::Log("1");
  const char* const once[] = {"WideCharToMultiByte", "WaitForSingleObject", "SetFilePointer", "WriteFile",
                              "ReleaseMutex"};
  for (const std::string& words : {std::string("2"), std::string(100000, 'x')}) {
    std::vector<int> before;
    for (const char* operation : once) {
      before.push_back(sim::CallCount(operation));
    }
    const int opens = sim::CallCount("CreateFileW");
    test::Log(words);
    for (std::size_t at = 0; at < before.size(); ++at) {
      EXPECT_EQ(sim::CallCount(once[at]), before[at] + 1) << once[at];
    }
    EXPECT_EQ(sim::CallCount("CreateFileW"), opens);
    EXPECT_FALSE(sim::MutexIsOwned(test::kLogLock));
  }
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "2", std::string(100000, 'x')}));
}

TEST_F(LogStatement, AWriteThatFallsShortIsLeftAtThat) {
  test::Log("1");
  const std::string first = sim::FileBytes(test::kLogPath);
  const int writes = sim::CallCount("WriteFile");
  sim::SetWriteLimit(10);
  test::Log("2");
  EXPECT_EQ(sim::CallCount("WriteFile"), writes + 1);
  EXPECT_EQ(sim::FileBytes(test::kLogPath), first + first.substr(0, 10)); // both begin with the same fields
  sim::SetWriteLimit(0);
  test::Log("3");
  const std::string bytes = sim::FileBytes(test::kLogPath);
  EXPECT_EQ(bytes.compare(first.size() + 10, 6, first, 0, 6), 0) << bytes;
  EXPECT_EQ(bytes.compare(bytes.size() - 3, 3, "3\r\n"), 0) << bytes;
}

TEST_F(LogStatement, AFileThatDoesNotOpenAgainCostsItsLineAndNoMore) {
  test::Log("1");
  vx::CloseLogFile();
  sim::FailNth("CreateFileW", 1);
  platform::SetLastError(17);
  test::Log("2");
  EXPECT_EQ(platform::GetLastError(), 17u);
  EXPECT_EQ(sim::FaultsFired(), 1);
  EXPECT_EQ(vx::log_init_state.load(), 2);
  EXPECT_EQ(sim::CallCount("WriteFile"), 1);
  test::Log("3");
  EXPECT_EQ(test::LoggedWords(), (Words{"1", "3"}));
}

using LogStatementDeathTest = LogStatement;

TEST_F(LogStatementDeathTest, AFatalLineIsWrittenAndItsLockGivenUpBeforeTheBreak) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  sim::AtExitNow([] {
    const std::string bytes = sim::FileBytes(test::kLogPath);
    std::fprintf(stderr, "breaks=%d owned=%d lines=%s", sim::DebugBreaks(), sim::MutexIsOwned(test::kLogLock),
                 bytes.c_str());
  });
  // Longer than what is kept of it for the end, and in the file all the same.
  EXPECT_EXIT(SDKLOG(LOG_FATAL) << std::string(200, 'x') << std::string(2000, 'y') << " end",
              testing::ExitedWithCode(1),
              "^breaks=1 owned=0 lines=\\[[0-9]+ *\\|[-0-9 :]+\\|  FATAL\\|log_line_test.cpp:[0-9]+\\] "
              "LogStatement[^ ]*::TestBody x+y+ end\r\nsimulated platform: ExitNow\\(1\\)");
}

} // namespace
