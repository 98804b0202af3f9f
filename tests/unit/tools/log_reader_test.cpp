#include "tests/unit/tools/sample_log.h"
#include "tools/vexelctl/log_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace toolstest;
using namespace vexelctl;

std::vector<LogRecord> ReadAll(const std::string& text) { return LogReader().Feed(text); }

TEST(LogReader, ALineSaysWhatItsHeaderHolds) {
  const auto records =
      ReadAll("[4816 |2026-11-13 03:10:44|WARNING|file.ext:20] VexelSdkProcessUtil::IsProcessValid process "
              "path not match, pid=5120, path=C:\\app\\vxpixeleditor.exe\r\n");
  ASSERT_EQ(records.size(), 1U);
  const LogRecord& record = records[0];
  EXPECT_EQ(record.number, 1U);
  EXPECT_EQ(record.thread, 4816U);
  EXPECT_EQ(record.time, "2026-11-13 03:10:44");
  EXPECT_EQ(record.second, 1794539444);
  EXPECT_EQ(record.level, "WARNING");
  EXPECT_EQ(record.source, "file.ext:20");
  EXPECT_EQ(record.function, "VexelSdkProcessUtil::IsProcessValid");
  EXPECT_EQ(record.message, "process path not match, pid=5120, path=C:\\app\\vxpixeleditor.exe");
  EXPECT_EQ(record.kind, LogKind::kOtherPath);
  EXPECT_EQ(record.pid, 5120U);
  EXPECT_EQ(record.name, "vxpixeleditor.exe");
}

TEST(LogReader, PiecesOfAnySizeGiveTheSameRecords) {
  const std::string text = Start(10, 1, 300) + Open(10, 2, 1, 300);
  const auto whole = ReadAll(text);
  LogReader reader;
  std::vector<LogRecord> pieces;
  for (const char byte : text) {
    for (LogRecord& record : reader.Feed(std::string_view(&byte, 1))) {
      pieces.push_back(std::move(record));
    }
  }
  ASSERT_EQ(pieces.size(), whole.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_EQ(pieces[i].message, whole[i].message);
    EXPECT_EQ(pieces[i].id, whole[i].id);
    EXPECT_EQ(pieces[i].kind, whole[i].kind);
  }
}

TEST(LogReader, AHalfLineWaitsForItsEnd) {
  LogReader reader;
  const std::string line = Reply(11, 1);
  EXPECT_TRUE(reader.Feed(line.substr(0, 30)).empty());
  EXPECT_EQ(reader.HalfLine(), line.substr(0, 30));
  EXPECT_FALSE(reader.IsNoLog());
  EXPECT_EQ(reader.Feed(line.substr(30)).size(), 1U);
  EXPECT_EQ(reader.HalfLine(), "");
  EXPECT_FALSE(reader.IsNoLog());
}

TEST(LogReader, OtherFilesAreNoLog) {
  for (const std::string& text :
       {std::string("hello\nworld\n"), std::string("hello"), std::string("[1|2]\n"),
        std::string("MZ\0\1\2\n\xFF\xFE\n", 9), std::string("[4816 |2026-13-13 03:10:44|   INFO|a:1] b\n"),
        std::string("[4816 |2026-11-13 03:10:44|INFO|a:1] b\n")}) {
    LogReader reader;
    reader.Feed(text);
    EXPECT_TRUE(reader.IsNoLog()) << text;
  }
}

TEST(LogReader, AnEmptiedLogIsStillOne) {
  LogReader reader;
  EXPECT_FALSE(reader.IsNoLog());
  reader.Feed(Reply(11, 1));
  reader.FileWasEmptied();
  reader.Feed("a text that the emptying has cut");
  EXPECT_FALSE(reader.IsNoLog());
}

TEST(LogReader, ATextThatHoldsALineEndGoesOnInItsOwnLine) {
  const auto records =
      ReadAll(Start(10, 1, 300) + Open(10, 2, 1, 300) +
              Line(12, 3, "VexelSDKHelper::GetOperator data={\"id\":1,\"process_id\":300,\n \"type\":\"x\"}"));
  ASSERT_GE(records.size(), 2U);
  EXPECT_EQ(records.back().kind, LogKind::kContinuation);
  EXPECT_EQ(records.back().message, " \"type\":\"x\"}");
  EXPECT_EQ(records.back().thread, 12U);
}

TEST(LogReader, LettersThatTheLogHasWidenedAreJoined) {
  const auto records = ReadAll(Line(12, 3, "VexelSDKHelper::GetOperator data={\"type\":\"\xC3\x83\xC2\xBC\"}"));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].message, "data={\"type\":\"\xC3\xBC\"}");
  EXPECT_EQ(records[0].name, "\xC3\xBC");
}

TEST(LogReader, TheLinesOfAnOpenBelongToItsId) {
  const auto records = ReadAll(Start(10, 1, 300) + Open(10, 2, 1, 300));
  std::size_t count = 0;
  for (const LogRecord& record : records) {
    count += record.id == 1 ? 1U : 0U;
  }
  EXPECT_EQ(count, 9U); // the call, the run, its eight steps but the preloads
  const auto used = std::find_if(records.begin(), records.end(),
                                 [](const LogRecord& record) { return record.kind == LogKind::kProcessUsed; });
  ASSERT_NE(used, records.end());
  EXPECT_EQ(used->pid, 300U);
  EXPECT_EQ(used->name, "webvexlaunch.exe");
}

TEST(LogReader, TheFirstPreloadsHaveTheirProgramsByOrder) {
  const auto records = ReadAll(Start(10, 1, 300));
  ASSERT_EQ(records.size(), 6U);
  EXPECT_EQ(records[2].name, "webvexlaunch.exe");
  EXPECT_EQ(records[4].name, "vxpixeleditor.exe");
  EXPECT_EQ(records[5].name, "vxpixeleditor.exe");
}

TEST(LogReader, HostsOneAfterTheOtherAreRunsOfTheirOwn) {
  const std::string text = Start(10, 1, 300) + Open(10, 2, 1, 300) + Start(20, 3, 400) + Open(20, 4, 1, 400);
  LogReader reader;
  const auto records = reader.Feed(text);
  EXPECT_EQ(reader.RunCount(), 2);
  EXPECT_EQ(records.front().run, 1);
  EXPECT_EQ(records.back().run, 2);
  for (const LogRecord& record : records) {
    EXPECT_EQ(record.run, record.thread < 20 ? 1 : 2) << record.message;
  }
}

TEST(LogReader, HostsSideBySideAreKeptApart) {
  const std::string text = Start(10, 1, 300) + Start(20, 1, 400) + Open(10, 2, 1, 300) + Open(20, 2, 1, 400) +
                           Line(30, 3, "VexelSDKHelper::GetOperator data={\"process_id\":400,\"type\":\"x\"}") +
                           Queued(10, 4, 4, 1) + Sent(11, 4, "close", 1, 300);
  LogReader reader;
  const auto records = reader.Feed(text);
  EXPECT_EQ(reader.RunCount(), 2);
  for (const LogRecord& record : records) {
    EXPECT_EQ(record.run, record.thread < 20 ? 1 : 2) << record.message;
  }
}

TEST(LogReader, ASecondStartOfTheSameEngineIsNoRun) {
  LogReader reader;
  reader.Feed(Start(10, 1, 300) + Queued(10, 2, 2, 0) +
              Line(11, 2, "OperatorThreadFun data.m_op = SDK_PreLoadProcess"));
  EXPECT_EQ(reader.RunCount(), 1);
}

TEST(LogReader, ANewEngineOfTheSameHostIsARun) {
  LogReader reader;
  reader.Feed(Start(10, 1, 300) + Queued(10, 2, 2, 0) +
              Line(15, 2, "OperatorThreadFun data.m_op = SDK_PreLoadProcess"));
  EXPECT_EQ(reader.RunCount(), 2);
}

TEST(LogReader, ALogThatBeginsInTheMidstIsRead) {
  LogReader reader;
  const auto records = reader.Feed(Sent(11, 1, "setpos", 3, 300) + Reply(11, 1));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[1].id, 3);
  EXPECT_EQ(records[1].pid, 300U);
  EXPECT_EQ(reader.RunCount(), 1);
}

TEST(LogReader, ATextOfAnyDepthIsRead) {
  const auto records = ReadAll(Line(12, 3, "VexelSDKHelper::GetOperator data=" + std::string(200000, '[')));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].kind, LogKind::kReceived);
  EXPECT_EQ(records[0].name, "");
}

TEST(LogReader, AnEmptiedFileIsCountedFromItsBeginning) {
  LogReader reader;
  reader.Feed(Reply(11, 1) + "[11");
  reader.FileWasEmptied();
  const auto records = reader.Feed(Reply(11, 2));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].number, 1U);
}

TEST(LogSelector, AnIdBringsTheWholeLifeOfItsProcess) {
  const auto records = ReadAll(Start(10, 1, 300) + Open(10, 2, 1, 300) + Queued(10, 3, 3, 2));
  LogSelector selector({1, std::nullopt, std::nullopt});
  for (const LogRecord& record : records) {
    selector.Learn(record);
  }
  std::vector<std::string> chosen;
  for (const LogRecord& record : records) {
    if (selector.Wants(record)) {
      chosen.push_back(record.message);
    }
  }
  EXPECT_EQ(chosen.size(), 11U); // the nine of the id, and the start of its process
  EXPECT_EQ(chosen[0], "Process: 300");
  EXPECT_EQ(chosen[1], "done. pid=300");
}

TEST(LogSelector, AnIdOfAnotherRunIsLeftOut) {
  const auto records = ReadAll(Start(10, 1, 300) + Open(10, 2, 1, 300) + Start(20, 3, 400) + Open(20, 4, 1, 400));
  LogSelector selector({1, std::nullopt, 2});
  std::size_t count = 0;
  for (const LogRecord& record : records) {
    selector.Learn(record);
    if (selector.Wants(record)) {
      EXPECT_EQ(record.run, 2);
      ++count;
    }
  }
  EXPECT_EQ(count, 9U);
}

TEST(LogSelector, AProcessIsChosenByItsId) {
  LogSelector selector({std::nullopt, 301U, std::nullopt});
  std::size_t count = 0;
  for (const LogRecord& record : ReadAll(Start(10, 1, 300))) {
    count += selector.Wants(record) ? 1U : 0U;
  }
  EXPECT_EQ(count, 2U);
}

} // namespace
