#include "vexelsdk/link/vexel_sdk_helper.h"

#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/editor.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"
#include "tests/unit/number_behind.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

SDK_OperatorData RecordOf(SDK_Operator op) {
  SDK_OperatorData record;
  record.m_op = op;
  record.m_id = 3;
  return record;
}

class EditorHelper : public testing::Test {
protected:
  EditorHelper() {
    vx::ResetLogger({});
    sim::AddPipeLibrary();
    m_pid = sim::StartProcess(sim::kEditorPath);
    sim::AttachEditor(m_pid);
  }
  ~EditorHelper() override { vx::ResetLogger({}); }

  static std::string Log() { return sim::FileBytes(L"C:\\Host\\log\\browser.vexelsdk.dll.log"); }
  static bool LogHolds(const std::string& part) { return Log().find(part) != std::string::npos; }

  std::string PidText() const { return std::to_string(m_pid); }

  /// The next text of the editor, waiting for it.
  static std::string NextText(VexelSDKHelper& helper) {
    std::string text;
    sim::WaitFor([&] { return helper.GetOperator(text); });
    return text;
  }

  sim::World m_world;
  std::uint32_t m_pid = 0;
};

TEST_F(EditorHelper, ServesUnderTheNameOfTheProcess) {
  VexelSDKHelper helper;
  EXPECT_TRUE(helper.StartServer(m_pid));
  EXPECT_EQ(helper.GetPid(), m_pid);
  EXPECT_EQ(sim::ServedNames(), std::vector<std::string>{"vexel_browser_" + PidText()});
  EXPECT_TRUE(helper.IsReading());
  EXPECT_TRUE(helper.IsConnecting());
  EXPECT_FALSE(helper.IsModify());
}

TEST_F(EditorHelper, StartingTwiceDoesNotTouchTheLibraryAgain) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.StartServer(m_pid));
  EXPECT_EQ(sim::CallCount("CreatePipeSvr"), 1);
}

TEST_F(EditorHelper, StartingForAnotherProcessChangesThePidAndNotTheServer) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.StartServer(99));
  EXPECT_EQ(helper.GetPid(), 99u);
  EXPECT_EQ(sim::ServedNames(), std::vector<std::string>{"vexel_browser_" + PidText()});
}

TEST_F(EditorHelper, DoesNotStartWithoutThePipeLibrary) {
  sim::RemovePath(sim::kPipeLibraryPath);
  VexelSDKHelper helper;
  EXPECT_FALSE(helper.StartServer(m_pid));
}

TEST_F(EditorHelper, ARefusedNameIsLoggedWithItsError) {
  sim::FailNth("PipeServer::Start", 1, sim::kOnce, 231);
  VexelSDKHelper helper;
  EXPECT_FALSE(helper.StartServer(m_pid));
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::StartServer error occur. last_error=231\r\n")) << Log();
}

TEST_F(EditorHelper, ConnectsAtTheFirstOperatorAndLogsTheExchange) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  bool sent = false;
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_TRUE(sent);
  EXPECT_FALSE(helper.IsConnecting());
  const std::string text = "{\"id\":3,\"open_type\":0,\"param\":\"\",\"path\":\"\",\"process_id\":" + PidText() +
                           ",\"recover\":false,\"status\":true,\"tabwnd\":0,\"type\":\"open\"}";
  EXPECT_EQ(sim::ReceivedTexts(m_pid).at(0).text, text);
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::ConnectServer success. duration=")) << Log();
  EXPECT_TRUE(LogHolds("ms, pid=" + PidText() + "\r\n"));
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::WriteOperator data=" + text + "\r\n"));
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::WriteOperator respon=ok, last_error="));
}

TEST_F(EditorHelper, AnOperatorBeforeAnyOpenTravelsWithIdZero) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(sim::ReceivedTexts(m_pid).at(0).text,
            "{\"id\":0,\"process_id\":" + PidText() + ",\"status\":true,\"type\":\"edit\"}");
}

TEST_F(EditorHelper, EveryMessageTravelsWithTheIdOfTheLastOpen) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  const struct {
    SDK_Operator op;
    std::int32_t id;
    std::int32_t sentId;
  } rows[] = {{SDK_OPEN_BARE, 3, 0}, {SDK_OPEN, 3, 3}, {SDK_SETPOS, 9, 3}, {SDK_CLOSE, 9, 3},
              {SDK_OPEN_BARE, 9, 3}, {SDK_OPEN, 4, 4}, {SDK_OPERATE, 3, 4}};
  std::size_t sent = 0;
  for (const auto& row : rows) {
    SDK_OperatorData record = RecordOf(row.op);
    record.m_id = row.id;
    record.m_pid = 99;
    EXPECT_TRUE(helper.WriteOperator(record, nullptr));
    const std::string text = sim::ReceivedTexts(m_pid).at(sent).text;
    EXPECT_NE(text.find("\"id\":" + std::to_string(row.sentId) + ","), std::string::npos) << text;
    EXPECT_NE(text.find("\"process_id\":" + PidText() + ","), std::string::npos) << text;
    ++sent;
  }
}

TEST_F(EditorHelper, AnOpenThatFindsNobodyStillGivesItsId) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  sim::FailNth("CreateToolhelp32Snapshot", 1); // so the editor reads as gone, for this once
  bool sent = true;
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_FALSE(sent);
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_EDIT), nullptr));
  EXPECT_EQ(sim::ReceivedTexts(m_pid).at(0).text,
            "{\"id\":3,\"process_id\":" + PidText() + ",\"status\":true,\"type\":\"edit\"}");
}

TEST_F(EditorHelper, AnyReplyIsDeliveryAndNoneIsRead) {
  const char* const replies[] = {"", "no json", R"({"type":"edit","status":true})",
                                 R"({"type":"process_exit","process_id":1})", "error"};
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  for (const char* const reply : replies) {
    sim::EditorStep step;
    step.reply = reply;
    sim::EditorScript script;
    script.steps.push_back(step);
    sim::AttachEditor(m_pid, script);
    bool sent = false;
    EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_EDIT), &sent)) << reply;
    EXPECT_TRUE(sent);
    EXPECT_FALSE(helper.IsModify());
    EXPECT_TRUE(LogHolds("] VexelSDKHelper::WriteOperator respon=" + std::string(reply) + ", last_error=")) << Log();
  }
}

TEST_F(EditorHelper, AFailedExchangeIsSentAndNotAccepted) {
  sim::EditorStep silent;
  silent.answer = sim::Answer::kNull;
  sim::EditorScript script;
  script.steps.push_back(silent);
  sim::AttachEditor(m_pid, script);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  bool sent = false;
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_TRUE(sent);
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  EXPECT_EQ(sim::ConnectAttempts(m_pid), 1); // a connection is never made anew
  EXPECT_FALSE(LogHolds("respon="));
}

TEST_F(EditorHelper, GivesUpAtOnceWhenTheEditorIsGone) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  sim::EndProcess(m_pid);
  bool sent = true;
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_FALSE(sent);
  EXPECT_TRUE(helper.IsConnecting());
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::ConnectServer failure. is_stop=0, duration=")) << Log();
  EXPECT_EQ(sim::CallCount("CltConnectServer"), 0);
}

TEST_F(EditorHelper, AProcessWhoseModulesCanNotBeReadYetIsKnownByItsImage) {
  sim::EditProcess(m_pid, [](sim::ProcessSpec& spec) { spec.moduleRouteLate = 1; }); // so its two looks give two texts
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
}

TEST_F(EditorHelper, AProcessThatCanNotBeReadYetCountsAsGoneAndIsConnectedLater) {
  sim::EditProcess(m_pid, [](sim::ProcessSpec& spec) {
    spec.moduleRouteLate = 1;
    spec.imageRoute = false;
  });
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  bool sent = true;
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_FALSE(sent);
  EXPECT_EQ(sim::CallCount("CltConnectServer"), 0);
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_TRUE(sent);
}

TEST_F(EditorHelper, TriesUntilTheEditorServesAndLogsEachAttempt) {
  sim::EditorScript script;
  script.refusedConnects = 3;
  sim::AttachEditor(m_pid, script);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  EXPECT_EQ(sim::ConnectAttempts(m_pid), 4);
  const std::string line = "] VexelSDKHelper::ConnectServer try failure. last_error=231, pid=" + PidText() + "\r\n";
  std::size_t lines = 0;
  for (std::size_t at = Log().find(line); at != std::string::npos; at = Log().find(line, at + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, 3u) << Log();
}

TEST_F(EditorHelper, GivesUpAfterAHundredSeconds) {
  sim::ServePipe(m_pid, false);
  sim::SetClockSpeed(500);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  const std::uint64_t before = sim::NowMs();
  bool sent = true;
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), &sent));
  EXPECT_FALSE(sent);
  EXPECT_GT(sim::NowMs() - before, 100000u);
  EXPECT_GT(NumberBehind(Log(), "failure. is_stop=0, duration="), 100000u);
}

TEST_F(EditorHelper, StopConnectEndsThisAndEveryLaterAttempt) {
  sim::ServePipe(m_pid, false);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  std::thread stopper([&] {
    sim::WaitFor([&] { return sim::ConnectAttempts(m_pid) > 0; });
    helper.StopConnect();
  });
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  stopper.join();
  EXPECT_TRUE(LogHolds("failure. is_stop=1, duration=")) << Log();
  const int attempts = sim::ConnectAttempts(m_pid);
  sim::ServePipe(m_pid, true);
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  EXPECT_EQ(sim::ConnectAttempts(m_pid), attempts);
}

TEST_F(EditorHelper, AMissingConnectEntryWaitsOutTheLimit) {
  sim::RemoveEntry("CltConnectServer");
  sim::SetClockSpeed(500);
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  const std::uint64_t before = sim::NowMs();
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  EXPECT_GT(sim::NowMs() - before, 100000u);
}

TEST_F(EditorHelper, ACloseEndsThePollingUnlessTheUserWillBeAsked) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  ASSERT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
  sim::SendEvent(m_pid, R"({"type":"edit","status":true})");
  EXPECT_EQ(NextText(helper), R"({"type":"edit","status":true})");
  EXPECT_TRUE(helper.IsModify());
  EXPECT_TRUE(helper.WriteOperator(RecordOf(SDK_CLOSE), nullptr));
  EXPECT_TRUE(helper.IsReading());
  SDK_OperatorData forced = RecordOf(SDK_CLOSE);
  forced.m_status = false;
  EXPECT_TRUE(helper.WriteOperator(forced, nullptr));
  EXPECT_FALSE(helper.IsReading());
}

TEST_F(EditorHelper, ACloseWithNothingUnsavedEndsThePollingEvenWhenItFails) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  sim::EndProcess(m_pid);
  EXPECT_FALSE(helper.WriteOperator(RecordOf(SDK_CLOSE), nullptr));
  EXPECT_FALSE(helper.IsReading());
}

TEST_F(EditorHelper, AnEmptyQueueGivesNothingAndLogsNothing) {
  VexelSDKHelper helper;
  std::string text = "before";
  EXPECT_FALSE(helper.GetOperator(text)); // not serving
  ASSERT_TRUE(helper.StartServer(m_pid));
  EXPECT_FALSE(helper.GetOperator(text));
  EXPECT_EQ(text, "before");
  EXPECT_FALSE(LogHolds("GetOperator"));
}

TEST_F(EditorHelper, AnUnreadableTextIsHandedOnAndLoggedByteByByte) {
  VexelSDKHelper helper;
  ASSERT_TRUE(helper.StartServer(m_pid));
  sim::SendEvent(m_pid, "no json \xC3\xA4");
  EXPECT_EQ(NextText(helper), "no json \xC3\xA4");
  // Each byte of narrow text is one character of the log, and is encoded on its own.
  EXPECT_TRUE(LogHolds("] VexelSDKHelper::GetOperator data=no json \xC3\x83\xC2\xA4\r\n")) << Log();
}

TEST_F(EditorHelper, ItsEndClosesBothChannels) {
  {
    VexelSDKHelper helper;
    ASSERT_TRUE(helper.StartServer(m_pid));
    ASSERT_TRUE(helper.WriteOperator(RecordOf(SDK_OPEN), nullptr));
    EXPECT_EQ(sim::OpenConnections(), 1);
    EXPECT_EQ(sim::LiveServers(), 1);
  }
  EXPECT_EQ(sim::OpenConnections(), 0);
  EXPECT_EQ(sim::LiveServers(), 0);
  EXPECT_EQ(sim::CallCount("CltDisConnect"), 1);
}

TEST_F(EditorHelper, ItsEndIsSafeWhileTheEditorFloods) {
  for (int i = 0; i < 10; ++i) {
    VexelSDKHelper helper;
    ASSERT_TRUE(helper.StartServer(m_pid));
    ASSERT_TRUE(sim::Flood(m_pid, 200, "x"));
  }
  EXPECT_EQ(sim::LiveServers(), 0);
}

} // namespace
