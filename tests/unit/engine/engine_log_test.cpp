#include "foundation/logger.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/window.h"
#include "tests/unit/engine/engine_test.h"

namespace {

constexpr wchar_t kLogFolder[] = L"C:\\Host\\log";
constexpr wchar_t kAppType2[] = L"L2FwcHR5cGU6Mg=="; // /apptype:2

/// An engine whose log cannot be: a plain file stands where its folder would.
class WithoutALog : public EngineTest {
protected:
  WithoutALog() {
    sim::InstallEditors();
    vx::ResetLogger({});
    sim::RemovePath(kLogFolder);
    sim::AddFile(kLogFolder);
  }
  ~WithoutALog() override {
    EXPECT_FALSE(vx::EnsureLoggerReady());
    EXPECT_TRUE(sim::FileExists(kLogFolder));
  }

  SDK_OperatorData CloseOf(std::int32_t id) {
    SDK_OperatorData record = RecordOf(SDK_CLOSE, id);
    record.m_status = true;
    return record;
  }
};

TEST_F(WithoutALog, AnEditorIsOpenedUsedAndClosed) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  ASSERT_NE(pid, 0u);
  ASSERT_TRUE(WaitForEvents(2));
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
  EXPECT_EQ(Received(pid, 2).size(), 2u);
  SendAndWait(pid, "an event");
  EXPECT_TRUE(WaitForEvent("an event"));
  EXPECT_FALSE(Engine()->DoOperator(CloseOf(id)));
  EXPECT_NE(Received(pid, 3).back().find("\"type\":\"close\""), std::string::npos);
}

TEST_F(WithoutALog, ACloseOnUnsavedChangesWaitsForTheUser) {
  const std::int32_t id = OpenAndWait(kWindow);
  SendAndWait(Pid(id), R"({"type":"edit","status":true})");
  EXPECT_TRUE(Engine()->DoOperator(CloseOf(id)));
  EXPECT_TRUE(Engine()->IsModifyClose(id));
}

TEST_F(WithoutALog, ACloseWithNoLinkFinishesTheIdAndEndsNobody) {
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  EXPECT_FALSE(Engine()->DoOperator(CloseOf(id)));
  EXPECT_TRUE(Engine()->IsFinished(id));
}

TEST_F(WithoutALog, ACloseWhileTheLinkConnectsMakesItGiveUp) {
  sim::EditorScript silent;
  silent.serves = false;
  sim::InstallEditors(silent);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([] { return sim::CallCount("CltConnectServer") > 1; }));
  EXPECT_FALSE(Engine()->DoOperator(CloseOf(id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Engine()->IsFinished(id));
}

TEST_F(WithoutALog, AnotherPictureReplacesTheProcess) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t first = Pid(id);
  OpenAndWait(kWindow, L"C:\\b.png", kAppType2);
  EXPECT_NE(Pid(id), first);
  EXPECT_NE(Pid(id), 0u);
}

TEST_F(WithoutALog, APreloadedProcessThatDiedIsNotUsed) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t dead = StartedPids()[0];
  sim::EndProcess(dead);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_NE(Pid(id), dead);
  EXPECT_NE(Pid(id), 0u);
}

TEST_F(WithoutALog, ACrashIsToldToItsOwnWindowAlone) {
  sim::SetClockSpeed(20);
  const platform::Window other = sim::MakeWindow();
  const platform::Window window = sim::MakeWindow();
  const std::int32_t otherId = OpenAndWait(other);
  const std::int32_t id = OpenAndWait(window);
  ASSERT_NE(id, otherId);
  const std::uint32_t pid = Pid(id);
  sim::CrashProcess(pid);
  ASSERT_TRUE(WaitForEvent(EventText(id, pid, "run_error", "crash")));
  EXPECT_TRUE(Probe().KnowsWindow(other));
  EXPECT_FALSE(Probe().KnowsWindow(window));
}

TEST_F(WithoutALog, AFailedStartIsSilence) {
  sim::FailAlways("CreateProcessW", 5);
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(Pid(id), 0u);
  EXPECT_TRUE(Events().empty());
}

TEST_F(WithoutALog, AWriteThatFailsFinishesTheIdAndLeavesTheProcess) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  sim::FailAlways("CltComunicate");
  Engine()->DoOperator(RecordOf(SDK_SETPOS, id));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_TRUE(sim::IsRunning(pid));
  EXPECT_TRUE(Probe().KillList().empty());
}

TEST_F(WithoutALog, AnOperatorThatFindsNoConnectionFinishesTheIdAndListsNobody) {
  sim::EditorScript silent;
  silent.serves = false;
  sim::InstallEditors(silent);
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t pid = StartedPids()[0];
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  ASSERT_TRUE(Probe().BindIdToPid(id, pid));
  Probe().GetHelperByPid(pid)->StopConnect();
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Engine()->IsFinished(id));
  EXPECT_TRUE(Probe().KillList().empty()); // that is for an open alone
}

class ClosingWithALog : public EngineTest {
protected:
  ClosingWithALog() {
    sim::InstallEditors();
    LogAt(vx::LOG_INFO);
  }
};

TEST_F(ClosingWithALog, TellsThatTheUserIsAsked) {
  const std::int32_t id = OpenAndWait(kWindow);
  SendAndWait(Pid(id), R"({"type":"edit","status":true})");
  SDK_OperatorData record = RecordOf(SDK_CLOSE, id);
  record.m_status = true;
  EXPECT_TRUE(Engine()->DoOperator(record));
  EXPECT_TRUE(WaitForLog("VexelSDKThread::DoOperator helper is modify."));
}

TEST_F(ClosingWithALog, TellsThatTheLinkStillConnects) {
  sim::EditorScript silent;
  silent.serves = false;
  sim::InstallEditors(silent);
  const std::int32_t id = Open(kWindow);
  ASSERT_TRUE(sim::WaitFor([] { return sim::CallCount("CltConnectServer") > 1; }));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  EXPECT_TRUE(WaitForLog("VexelSDKThread::DoOperator helper is connecting. pid=" + std::to_string(Pid(id))));
}

} // namespace
