#include "foundation/logger.h"

#include "foundation/text_codecs.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/process.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

class LogProbe {
public:
  static int Write(std::uint32_t pid) {
    SDKLOG(LOG_INFO) << "process is not running, pid=" << pid << ", path=" << L"C:\\app\\editor.exe";
    return __LINE__ - 1;
  }
};

namespace {

constexpr std::int64_t kLargestFile = 10485760;

/// A log of the test's own, and a level key that isn't there.
class Logger : public testing::Test {
protected:
  Logger() : m_path(m_folder.Path(L"test.log")) { Restart(m_path); }
  ~Logger() override { vx::ResetLogger({}); }

  static void Restart(const std::wstring& path) {
    vx::ResetLogger({path, L"Software\\no such key of any program", nullptr});
  }

  std::string Bytes() const { return test::ReadBytes(m_path); }

  /// What stands behind the header of the one line that was written, without its line end.
  std::string Message() const {
    const std::string bytes = Bytes();
    const std::size_t header = bytes.find("] ");
    EXPECT_NE(header, std::string::npos) << bytes;
    EXPECT_EQ(bytes.find("\r\n"), bytes.size() - 2) << bytes;
    return header == std::string::npos ? bytes : bytes.substr(header + 2, bytes.size() - header - 4);
  }

  test::FreshFolder m_folder;
  std::wstring m_path;
};

std::string Header(const char* level, const std::string& source, const platform::SystemTime& now) {
  char text[256];
  std::snprintf(text, sizeof text, "[%-5u|%04u-%02u-%02u %02u:%02u:%02u|%7s|%s] ", platform::GetCurrentThreadId(),
                unsigned{now.year}, unsigned{now.month}, unsigned{now.day}, unsigned{now.hour}, unsigned{now.minute},
                unsigned{now.second}, level, source.c_str());
  return text;
}

bool SameSecond(const platform::SystemTime& a, const platform::SystemTime& b) {
  return std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second) ==
         std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second);
}

TEST_F(Logger, ALineReadsByteForByte) {
  for (;;) {
    Restart(m_path);
    platform::DeleteFileW(m_path.c_str());
    const platform::SystemTime before = platform::GetLocalTime();
    const int line = LogProbe::Write(5120);
    if (SameSecond(before, platform::GetLocalTime())) {
      EXPECT_EQ(Bytes(), Header("INFO", "logger_test.cpp:" + std::to_string(line), before) +
                             "LogProbe::Write process is not running, pid=5120, path=C:\\app\\editor.exe\r\n");
      return;
    }
  }
}

TEST_F(Logger, EachSeverityHasItsName) {
  const struct {
    std::int32_t severity;
    const char* name;
  } cases[] = {
      {0, "|  DEBUG|"}, {1, "|   INFO|"}, {2, "|WARNING|"},  {3, "|  ERROR|"},
      {9, "|UNKNOWN|"}, {5, "|UNKNOWN|"}, {-1, "|UNKNOWN|"}, {std::numeric_limits<std::int32_t>::min(), "|UNKNOWN|"}};
  for (const auto& entry : cases) {
    Restart(m_path);
    platform::DeleteFileW(m_path.c_str()); // which would fail while it is open
    ASSERT_TRUE(vx::EnsureLoggerReady());
    ASSERT_EQ(Bytes(), "");
    { vx::LogMessage(L"a.cpp", 1, static_cast<vx::LogSeverity>(entry.severity)) << "x"; }
    EXPECT_NE(Bytes().find(entry.name + std::string("a.cpp:1] x\r\n")), std::string::npos) << Bytes();
  }
}

TEST_F(Logger, OnlyTheBaseNameOfTheSourceIsWritten) {
  const struct {
    const wchar_t* file;
    const char* name;
  } cases[] = {{L"file.ext", "|file.ext:20] "},           {L"/a/b/file.ext", "|file.ext:20] "},
               {L"C:\\a\\b\\file.ext", "|file.ext:20] "}, {L"C:\\a/b\\c/file.ext", "|file.ext:20] "},
               {L"C:/a\\file.ext", "|file.ext:20] "},     {L"a/", "|:20] "}};
  for (const auto& entry : cases) {
    Restart(m_path);
    platform::DeleteFileW(m_path.c_str());
    { vx::LogMessage(entry.file, 20, LOG_INFO) << "x"; }
    EXPECT_NE(Bytes().find(std::string(entry.name) + "x\r\n"), std::string::npos) << Bytes();
  }
}

TEST_F(Logger, NumbersAndBooleansPrintInDecimal) {
  {
    vx::LogMessage(L"a", 1, LOG_INFO) << true << " " << false << " " << std::int32_t{-5} << " "
                                      << std::uint32_t{4294967295u} << " " << std::numeric_limits<std::int64_t>::min()
                                      << " " << std::numeric_limits<std::uint64_t>::max() << " " << std::int16_t{-7}
                                      << " " << std::uint16_t{1234} << " " << 1000000L << " " << std::uint8_t{65};
  }
  EXPECT_EQ(Message(), "1 0 -5 4294967295 -9223372036854775808 18446744073709551615 -7 1234 1000000 65");
}

TEST_F(Logger, WideTextIsExact) {
  const std::wstring pair = {wchar_t{0xD83D}, wchar_t{0xDE00}};
  {
    vx::LogMessage(L"a", 1, LOG_INFO) << L"\u00E9\u56FE" << pair << std::wstring(L"!") << std::wstring(300, L'\u20AC');
  }
  std::string expected = "\xC3\xA9\xE5\x9B\xBE\xF0\x9F\x98\x80!";
  for (int i = 0; i < 300; ++i) {
    expected += "\xE2\x82\xAC";
  }
  EXPECT_EQ(Message(), expected);
}

TEST_F(Logger, EachByteOfNarrowTextBecomesOneCharacter) {
  const std::string owned = "{\"p\":\"\xC3\xA9\"}";
  { vx::LogMessage(L"a", 1, LOG_INFO) << "\xC3\xA9" << owned << owned.c_str() << "\x80\xFF"; }
  const std::string widened = "{\"p\":\"\xC3\x83\xC2\xA9\"}";
  EXPECT_EQ(Message(), "\xC3\x83\xC2\xA9" + widened + widened + "\xC2\x80\xC3\xBF");
}

TEST_F(Logger, LongNarrowTextComesOutWhole) {
  for (const std::size_t length : {127u, 128u, 129u, 5000u, 300000u}) {
    Restart(m_path);
    platform::DeleteFileW(m_path.c_str());
    const std::string text(length, 'x');
    { vx::LogMessage(L"a", 1, LOG_INFO) << text; }
    EXPECT_EQ(Message(), text);
  }
}

TEST_F(Logger, ANullTextIsNoText) {
  const char* narrow = nullptr;
  const wchar_t* wide = nullptr;
  { vx::LogMessage(L"a", 1, LOG_INFO) << "<" << narrow << wide << ">"; }
  EXPECT_EQ(Message(), "<>");
}

TEST_F(Logger, AnEmbeddedNulEndsTheLineAndTakesItsLineEnd) {
  { vx::LogMessage(L"a", 1, LOG_INFO) << std::wstring(L"one\0two", 7) << " three"; }
  const std::string bytes = Bytes();
  EXPECT_EQ(bytes.substr(bytes.find("] ")), "] one");
  { vx::LogMessage(L"a", 1, LOG_INFO) << "four"; }
  EXPECT_EQ(Bytes().compare(0, bytes.size() + 1, bytes + "["), 0); // and the next line follows at once
}

TEST_F(Logger, OperandsOfASuppressedStatementAreNotEvaluated) {
  ASSERT_TRUE(vx::EnsureLoggerReady());
  vx::SetMinLogLevel(LOG_WARNING);
  int evaluated = 0;
  SDKLOG(LOG_DEBUG) << ++evaluated;
  SDKLOG(LOG_INFO) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(Bytes(), "");
  SDKLOG(LOG_WARNING) << ++evaluated;
  SDKLOG(LOG_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 2);
  const std::string bytes = Bytes();
  EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\n'), 2);
}

TEST_F(Logger, TheLevelIsCappedSoThatErrorsAlwaysPass) {
  ASSERT_TRUE(vx::EnsureLoggerReady());
  EXPECT_EQ(vx::GetMinLogLevel(), 1);
  const struct {
    std::int32_t set;
    std::int32_t level;
  } cases[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 3}, {100, 3}, {-1, -1}};
  for (const auto& entry : cases) {
    vx::SetMinLogLevel(entry.set);
    EXPECT_EQ(vx::GetMinLogLevel(), entry.level);
    EXPECT_TRUE(vx::ShouldLog(LOG_ERROR));
    EXPECT_TRUE(vx::ShouldLog(LOG_FATAL));
    for (const vx::LogSeverity severity : {LOG_DEBUG, LOG_INFO, LOG_WARNING}) {
      EXPECT_EQ(vx::ShouldLog(severity), severity >= entry.level);
    }
  }
}

TEST_F(Logger, AStatementNeedsNoBraces) {
  int other = 0;
  for (const bool log : {true, false}) {
    // NOLINTBEGIN(readability-braces-around-statements): their absence is what is tested
    if (log)
      SDKLOG(LOG_INFO) << "x";
    else
      ++other;
    // NOLINTEND(readability-braces-around-statements)
  }
  EXPECT_EQ(other, 1);
  const std::string bytes = Bytes();
  EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\n'), 1);
}

TEST_F(Logger, TheLastErrorOutlivesEveryStatement) {
  platform::SetLastError(5);
  SDKLOG(LOG_INFO) << "the first one starts the log";
  EXPECT_EQ(platform::GetLastError(), 5u);
  platform::SetLastError(6);
  SDKLOG(LOG_INFO) << "written, last_error=" << platform::GetLastError();
  EXPECT_EQ(platform::GetLastError(), 6u);
  EXPECT_NE(Bytes().find("written, last_error=6\r\n"), std::string::npos);
  platform::SetLastError(7);
  SDKLOG(LOG_DEBUG) << "suppressed";
  EXPECT_EQ(platform::GetLastError(), 7u);
}

TEST_F(Logger, AnOperandOfTheFirstStatementSeesTheErrorFromBeforeIt) {
  platform::SetLastError(1234);
  SDKLOG(LOG_INFO) << "a number before it: " << 1 << L", error=" << platform::GetLastError();
  EXPECT_EQ(platform::GetLastError(), 1234u);
  EXPECT_NE(Bytes().find(", error=1234\r\n"), std::string::npos) << Bytes();
}

TEST_F(Logger, TheLastErrorOutlivesAFailedStart) {
  Restart(m_folder.Path(L"missing\\test.log"));
  platform::SetLastError(99);
  SDKLOG(LOG_INFO) << "lost";
  EXPECT_EQ(platform::GetLastError(), 99u);
}

TEST_F(Logger, AFolderMadeLaterBringsTheLogBack) {
  const std::wstring path = m_folder.Path(L"missing\\test.log");
  Restart(path);
  int evaluated = 0;
  SDKLOG(LOG_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(vx::log_init_state.load(), 0);
  vx::SetMinLogLevel(0);
  SDKLOG(LOG_ERROR) << ++evaluated;
  EXPECT_EQ(vx::GetMinLogLevel(), 1); // each start begins with the level
  ASSERT_TRUE(vx::CreateDirectoryTree(m_folder.Path(L"missing")));
  SDKLOG(LOG_ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(vx::log_init_state.load(), 2);
  EXPECT_NE(test::ReadBytes(path).find(" 1\r\n"), std::string::npos);
}

TEST_F(Logger, LinesAreAppendedToThoseOfAnEarlierRun) {
  test::WriteBytes(m_path, "earlier\r\n");
  SDKLOG(LOG_INFO) << "x";
  EXPECT_EQ(Bytes().compare(0, 10, "earlier\r\n["), 0);
}

TEST_F(Logger, AStartCanDeleteTheOldFile) {
  test::WriteBytes(m_path, "earlier\r\n");
  const vx::LogStartMode mode = vx::LOG_DELETE_OLD;
  EXPECT_TRUE(vx::InitLogger(&mode));
  EXPECT_TRUE(test::Exists(m_path));
  EXPECT_EQ(Bytes(), "");
}

TEST_F(Logger, AFileOfExactlyTenMebibytesIsKeptAndOneByteMoreIsEmptied) {
  std::string bytes(kLargestFile, 'x');
  test::WriteBytes(m_path, bytes);
  SDKLOG(LOG_INFO) << "x";
  EXPECT_GT(Bytes().size(), bytes.size());
  Restart(m_path);
  bytes += 'x';
  test::WriteBytes(m_path, bytes);
  SDKLOG(LOG_INFO) << "x";
  EXPECT_EQ(Bytes().front(), '[');
  EXPECT_LT(Bytes().size(), 300u);
}

TEST_F(Logger, TheSizeIsLookedAtOnlyWhenTheFileIsOpened) {
  test::WriteBytes(m_path, std::string(kLargestFile, 'x'));
  SDKLOG(LOG_INFO) << "over the limit now";
  SDKLOG(LOG_INFO) << "and still growing";
  EXPECT_GT(Bytes().size(), static_cast<std::size_t>(kLargestFile) + 100);
}

TEST_F(Logger, EachLineIsInTheFileWhenItsStatementEnds) {
  for (int count = 1; count <= 5; ++count) {
    SDKLOG(LOG_INFO) << "line " << count;
    const std::string bytes = Bytes();
    EXPECT_NE(bytes.find("line " + std::to_string(count) + "\r\n"), std::string::npos);
  }
}

TEST_F(Logger, LinesOfManyThreadsAreWhole) {
  constexpr int kThreads = 6;
  constexpr int kLines = 100;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) {
        SDKLOG(LOG_INFO) << "thread=" << thread << " line=" << line << " end";
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::map<int, int> next;
  const std::string bytes = Bytes();
  int lines = 0;
  for (std::size_t at = 0; at < bytes.size(); ++lines) {
    const std::size_t end = bytes.find("\r\n", at);
    ASSERT_NE(end, std::string::npos);
    const std::string line = bytes.substr(at, end - at);
    ASSERT_EQ(line.front(), '[');
    const std::size_t words = line.find("thread=");
    ASSERT_NE(words, std::string::npos) << line;
    int thread = -1;
    int number = -1;
    int length = 0;
    ASSERT_EQ(std::sscanf(line.c_str() + words, "thread=%d line=%d end%n", &thread, &number, &length), 2) << line;
    ASSERT_EQ(words + static_cast<std::size_t>(length), line.size()) << line;
    EXPECT_EQ(number, next[thread]++); // each thread's own lines are in order
    at = end + 2;
  }
  EXPECT_EQ(lines, kThreads * kLines);
}

TEST_F(Logger, AnOwnPathIsTakenAsItIs) { EXPECT_EQ(vx::BuildLogFilePath(), m_path); }

TEST(LoggerParts, AModulesNameNeedsAPlaceToGo) {
  wchar_t buffer[260] = {};
  wchar_t* name = nullptr;
  EXPECT_FALSE(vx::ModuleFileAndName(nullptr, nullptr, &name));
  EXPECT_FALSE(vx::ModuleFileAndName(nullptr, buffer, nullptr));
  ASSERT_TRUE(vx::ModuleFileAndName(nullptr, buffer, &name));
  EXPECT_GT(name, buffer);
  EXPECT_EQ(name[-1], L'\\');
  EXPECT_EQ(std::wstring(buffer), vx::GetModuleFilePath(nullptr));
}

TEST(LoggerParts, AFileWhoseSizeIsNotKnownIsNotTooLarge) {
  EXPECT_FALSE(vx::LogFileIsOversized(platform::kInvalidHandle));
}

} // namespace
