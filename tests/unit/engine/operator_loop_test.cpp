#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/sync.h"
#include "tests/sim/world.h"
#include "tests/unit/engine/engine_test.h"

#include <chrono>
#include <stdexcept>
#include <vector>

namespace {

class OperatorGate : public EngineTest {};

TEST_F(OperatorGate, RefusesEverythingForAFinishedId) {
  Probe().SetFinished(5);
  for (const SDK_Operator op : {SDK_OPEN, SDK_CLOSE, SDK_SETPOS, SDK_OPERATE, SDK_PreLoadProcess}) {
    EXPECT_FALSE(Engine()->DoOperator(RecordOf(op, 5)));
  }
  EXPECT_FALSE(Engine()->CopyIdToPid().contains(5)); // nothing was queued, so no entry was made
}

TEST_F(OperatorGate, QueuesAnyOtherOperatorAndTakesTheIdsProcess) {
  ASSERT_TRUE(HoldQueue());
  Probe().BindIdToPid(5, 500);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 5)));
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 6))); // which enters the id without a process
  const auto queued = Probe().QueuedRecords();
  ASSERT_EQ(queued.size(), 2u);
  EXPECT_EQ(queued[0].m_pid, 500u);
  EXPECT_EQ(queued[1].m_pid, 0u);
  const auto table = Engine()->CopyIdToPid();
  ASSERT_TRUE(table.contains(6));
  EXPECT_EQ(table.at(6), 0u);
}

TEST_F(OperatorGate, ACloseWithNoLinkFinishesTheIdAtOnce) {
  Engine()->SetCallback(7, Recorder(), this);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, 7)));
  EXPECT_TRUE(Engine()->IsClosing(7));
  EXPECT_TRUE(Engine()->IsFinished(7));
  Probe().BindIdToPid(8, 70);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, 8))); // a process without a link is no link either
  EXPECT_TRUE(Engine()->IsFinished(8));
}

class OperatorLoop : public EngineTest {};

TEST_F(OperatorLoop, DropsWhatWasQueuedBeforeItsIdFinished) {
  // The thread is kept busy with idle records while the id goes away under its open.
  for (int i = 0; i < 20; ++i) {
    Engine()->DoOperator(RecordOf(SDK_SETPOS, 50));
  }
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  SDK_OperatorData open = RecordOf(SDK_OPEN, id);
  open.m_path = L"C:\\a.png";
  EXPECT_TRUE(Engine()->DoOperator(open));
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 0);
}

TEST_F(OperatorLoop, AnOperatorForAnIdWithoutAProcessIsLost) {
  Engine()->SetCallback(3, Recorder(), this);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 3)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(Events().empty());
}

TEST_F(OperatorLoop, ReportsSuccessForAProcessWithoutALink) {
  Engine()->SetCallback(3, Recorder(), this);
  Probe().BindIdToPid(3, 777);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_FULLSCREEN, 3)));
  ASSERT_TRUE(WaitForEvents(1));
  EXPECT_EQ(Events().front(), EventText(3, 777, "custom_message", "open_pic_success"));
  EXPECT_TRUE(LastCallSawFreeLocks());
}

TEST_F(OperatorLoop, RunsRecordsInOrderAtMostOneInTenMilliseconds) {
  constexpr int kRecords = 30;
  for (std::int32_t id = 1; id <= kRecords; ++id) {
    Engine()->SetCallback(id, Recorder(), this);
    Probe().BindIdToPid(id, 1000u + static_cast<std::uint32_t>(id));
  }
  const auto start = std::chrono::steady_clock::now();
  for (std::int32_t id = 1; id <= kRecords; ++id) {
    EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
  }
  ASSERT_TRUE(WaitForEvents(kRecords));
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_GE(taken, std::chrono::milliseconds(10 * (kRecords - 1)));
  const std::vector<std::string> events = Events();
  for (std::int32_t id = 1; id <= kRecords; ++id) {
    EXPECT_EQ(events[static_cast<std::size_t>(id - 1)],
              EventText(id, 1000u + static_cast<std::uint32_t>(id), "custom_message", "open_pic_success"));
  }
}

TEST_F(OperatorLoop, AFinishedIdZeroRefusesPreloadsAndStopsNothingElse) {
  Probe().SetFinished(0);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_PreLoadProcess, 0)));
  Engine()->SetCallback(3, Recorder(), this);
  Probe().BindIdToPid(3, 777);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 3)));
  ASSERT_TRUE(WaitForEvents(1));
  EXPECT_TRUE(sim::WaitFor([] { return Probe().OperatorIsIdle(); })); // and waits, where it would spin
}

TEST_F(OperatorLoop, IsWokenUpWithoutAnEventThatTheSystemCouldRefuse) {
  Engine()->SetCallback(1, Recorder(), this);
  Probe().BindIdToPid(1, 1001);
  for (std::size_t i = 1; i <= 3; ++i) {
    ASSERT_TRUE(sim::WaitFor([] { return Probe().OperatorIsIdle() && sim::SomeoneWaitsOnAWord(); }));
    const int signals = sim::CallCount("SetEvent");
    const int wakes = sim::CallCount("WakeByAddressSingle");
    EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 1)));
    EXPECT_TRUE(WaitForEvents(i));
    EXPECT_EQ(sim::CallCount("SetEvent"), signals);
    EXPECT_EQ(sim::CallCount("WakeByAddressSingle"), wakes + 1);
  }
}

TEST_F(OperatorLoop, SleepsForAsLongAsThereIsNothingToDo) {
  constexpr std::uint32_t kMinuteMs = 60'000;
  ASSERT_TRUE(StopIdle() && WatchesStand());
  const int waits = sim::CallCount("WaitOnAddress");
  ASSERT_TRUE(sim::LetPass(kMinuteMs));
  EXPECT_EQ(sim::CallCount("WaitOnAddress"), waits);
  EXPECT_TRUE(sim::SomeoneWaitsOnAWord());
}

TEST_F(OperatorLoop, EndsByATeardownBothBeforeItsFirstWaitAndInIt) {
  for (int i = 0; i < 200; ++i) {
    const auto engine = VexelSDKThread::GetInstance();
    if (i % 2 == 1) {
      ASSERT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsOnAWord(); }));
    }
    VexelSDKThread::DestroyInstance(engine);
    ASSERT_EQ(sim::LiveThreads(), 0u);
  }
}

TEST_F(OperatorLoop, TeardownRunsWhatIsQueued) {
  constexpr int kRecords = 20;
  Engine()->SetCallback(1, Recorder(), this);
  Probe().BindIdToPid(1, 1001);
  for (int i = 0; i < kRecords; ++i) {
    EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, 1)));
  }
  VexelSDKThread::DestroyInstance(Engine());
  EXPECT_EQ(Events().size(), static_cast<std::size_t>(kRecords));
}

TEST_F(OperatorLoop, TeardownFromACallbackReturnsAndEndsTheEngine) {
  OnEvent([](const std::string&) { VexelSDKThread::DestroyInstance(VexelSDKThread::GetInstance()); });
  std::weak_ptr<VexelSDKThread> engine = Engine();
  Engine()->SetCallback(1, Recorder(), this);
  Probe().BindIdToPid(1, 1001);
  Engine()->DoOperator(RecordOf(SDK_SETPOS, 1));
  EXPECT_TRUE(sim::WaitFor([&engine] { return engine.expired(); }));
}

TEST_F(OperatorLoop, ACallbackThatThrowsStopsNothing) {
  OnEvent([](const std::string&) { throw std::runtime_error("the host's own fault"); });
  Engine()->SetCallback(1, Recorder(), this);
  Probe().BindIdToPid(1, 1001);
  Engine()->DoOperator(RecordOf(SDK_SETPOS, 1));
  Engine()->DoOperator(RecordOf(SDK_SETPOS, 1));
  EXPECT_TRUE(WaitForEvents(2));
}

} // namespace
