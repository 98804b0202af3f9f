#include "include/vexelsdk.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/unit/engine/engine_test.h"

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace {

class UnInitCall : public EngineTest {
protected:
  static constexpr std::uint32_t kExchangeMs = 60000;

  UnInitCall() {
    sim::EditorStep slow;
    slow.when = "\"type\":\"setpos\"";
    slow.delayMs = kExchangeMs;
    sim::EditorScript script;
    script.steps.push_back(slow);
    sim::InstallEditors(script);
  }

  /// An id whose editor lets an exchange stand, with the clock stopped.
  std::int32_t OpenAndStandStill() {
    const std::int32_t id = OpenAndWait(kWindow);
    EXPECT_TRUE(StopIdle());
    SetWindowsPos(id, 1, 2, 3, 4);
    EXPECT_TRUE(sim::WaitFor([] { return sim::SomeoneWaitsFor(kExchangeMs); }));
    return id;
  }
};

TEST_F(UnInitCall, WaitsForTheExchangeInProgressAndForWhatIsQueuedBehindIt) {
  const std::int32_t id = OpenAndStandStill();
  const std::uint32_t pid = Pid(id);
  const std::size_t before = Events().size();
  const std::uint64_t start = sim::NowMs();
  constexpr std::int32_t kQueued = 3;
  for (std::int32_t code = 1; code <= kQueued; ++code) {
    EXPECT_TRUE(OperatePic(id, code));
  }
  sim::SetClockSpeed(200);
  EXPECT_EQ(VexelSDK_UnInit(), 1);
  EXPECT_GE(sim::NowMs() - start, kExchangeMs);
  const auto texts = Received(pid);
  ASSERT_EQ(texts.size(), 2u + kQueued);
  EXPECT_NE(texts.back().find("\"operator\":3,"), std::string::npos);
  EXPECT_EQ(Events().size(), before + 1 + kQueued); // what the drain itself reports is told
  EXPECT_TRUE(sim::IsRunning(pid));
}

TEST_F(UnInitCall, EndsTheEditorsTextsBeforeTheDrain) {
  const std::int32_t id = OpenAndStandStill();
  const std::uint32_t pid = Pid(id);
  const std::size_t before = Events().size();
  const int wakes = sim::CallCount("WakeByAddressSingle");
  std::thread host([] {
    sim::StandAside();
    VexelSDK_UnInit();
  });
  ASSERT_TRUE(sim::WaitFor([wakes] { return sim::CallCount("WakeByAddressSingle") > wakes; })); // the threads are told
  // The operators' thread alone is left, in its exchange.
  const std::uint64_t start = sim::NowMs();
  bool alone = false;
  while (!alone && sim::NowMs() - start < kExchangeMs / 2 && sim::WaitForRest()) {
    alone = sim::LiveThreads() == 1;
    if (!alone) {
      sim::StepToNextWake(10);
    }
  }
  EXPECT_TRUE(alone);
  ASSERT_TRUE(sim::SendEvent(pid, "too late"));
  EXPECT_TRUE(sim::FlushEvents(pid));
  sim::SetClockSpeed(200);
  host.join();
  const auto events = Events();
  ASSERT_EQ(events.size(), before + 1);
  EXPECT_EQ(events.back(), EventText(id, pid, "custom_message", "open_pic_success"));
}

TEST_F(UnInitCall, DropsWhatIsQueuedBehindTheLastLook) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  const std::size_t before = Events().size();
  {
    const auto engine = Engine(); // as a host thread has it that is inside a call
    EXPECT_EQ(VexelSDK_UnInit(), 1);
    EXPECT_TRUE(engine->DoOperator(RecordOf(SDK_OPERATE, id)));
    EXPECT_EQ(EngineProbe(engine).Queued(), 1u);
  }
  EXPECT_EQ(Received(pid).size(), 1u);
  EXPECT_EQ(Events().size(), before);
}

TEST_F(UnInitCall, LeavesWhatTheNextEngineTakesOver) {
  VexelSDK_Init(nullptr);
  ASSERT_TRUE(DrainQueue());
  const auto waiting = StartedPids();
  ASSERT_EQ(waiting.size(), 2u);
  VexelSDK_UnInit();
  VexelSDK_Init(nullptr);
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(StartedPrograms(), 2); // the saved process ids are not the engine's
  const std::int32_t id = OpenAndWait(kWindow);
  EXPECT_EQ(id, 1);
  EXPECT_EQ(Pid(id), waiting[0]);
  VexelSDK_UnInit();
}

} // namespace
