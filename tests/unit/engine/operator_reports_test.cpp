#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/unit/engine/engine_test.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kNoProcess = 777; // a pid that nothing runs under

/// Each operator that is nothing but sent: all but the open, which is prepared, and the close, which the gate decides on.
class EveryOperator : public EngineTest, public testing::WithParamInterface<std::int32_t> {
protected:
  EveryOperator() { sim::InstallEditors(); }

  static SDK_Operator Operator() { return static_cast<SDK_Operator>(GetParam()); }
  /// Those that the engine consumes itself.
  static bool IsSent() { return Operator() != SDK_NONE && Operator() != SDK_PreLoadProcess; }
};

TEST_P(EveryOperator, IsWrittenOnceAndReportedUnlessItIsTheEnginesOwn) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  const std::size_t before = Events().size();
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(Operator(), id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(pid).size(), IsSent() ? 2u : 1u);
  const auto events = Events();
  ASSERT_EQ(events.size(), before + (IsSent() ? 1u : 0u));
  if (IsSent()) {
    EXPECT_EQ(events.back(), EventText(id, pid, "custom_message", "open_pic_success"));
  }
}

TEST_P(EveryOperator, IsReportedWithoutALinkToo) {
  Probe().BindIdToPid(3, kNoProcess);
  Engine()->SetCallback(3, Recorder(), this);
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(Operator(), 3)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_TRUE(sim::AllReceivedTexts().empty());
  EXPECT_EQ(Events(), IsSent() ? std::vector{EventText(3, kNoProcess, "custom_message", "open_pic_success")}
                               : std::vector<std::string>{});
}

TEST_P(EveryOperator, ThatCannotBeWrittenFinishesTheIdAndIsNotReported) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::size_t before = Events().size();
  sim::FailAlways("CltComunicate");
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(Operator(), id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Engine()->IsFinished(id), IsSent());
  EXPECT_EQ(Events().size(), before);
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_EQ(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)), !IsSent());
}

TEST_P(EveryOperator, ThatFindsNoConnectionFinishesTheIdAndIsNotReported) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  const std::uint32_t pid = StartedPids()[0];
  sim::ServePipe(pid, false);
  const std::int32_t id = Engine()->AllocateEditorId(kWindow);
  Engine()->SetCallback(id, Recorder(), this);
  ASSERT_TRUE(Probe().BindIdToPid(id, pid));
  Probe().GetHelperByPid(pid)->StopConnect();
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(Operator(), id)));
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Engine()->IsFinished(id), IsSent());
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(Probe().KillList().empty()); // that is for an open
  EXPECT_TRUE(sim::IsRunning(pid));
}

std::vector<std::int32_t> Operators() {
  std::vector<std::int32_t> all;
  for (std::int32_t op = -1; op <= 23; ++op) {
    if (op != SDK_OPEN && op != SDK_CLOSE) {
      all.push_back(op);
    }
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Loop, EveryOperator, testing::ValuesIn(Operators()), [](const auto& row) {
  return row.param < 0 ? std::string("Unknown") : "Number" + std::to_string(row.param);
});

class Pace : public EngineTest {
protected:
  struct Taken {
    std::uint64_t atMs;
    std::size_t left;
    bool operator==(const Taken&) const = default;
  };
  friend void PrintTo(const Taken& taken, std::ostream* out) {
    *out << taken.left << " left after " << taken.atMs << " ms";
  }
};

TEST_F(Pace, IsTenMillisecondsForARecordWithoutEffectAndNoneForADroppedOne) {
  constexpr std::int32_t kDropped = 41;
  constexpr std::int32_t kIdle = 42;
  ASSERT_TRUE(HoldQueue());
  const std::uint64_t start = sim::NowMs();
  Engine()->DoOperator(RecordOf(SDK_SETPOS, kIdle)); // nobody serves the id
  Engine()->DoOperator(RecordOf(SDK_NONE, kIdle));
  for (int i = 0; i < 5; ++i) {
    Engine()->DoOperator(RecordOf(SDK_SETPOS, kDropped));
  }
  Engine()->DoOperator(RecordOf(SDK_OPERATE, kIdle));
  Engine()->DoOperator(RecordOf(SDK_CHANGE_THEME, kIdle));
  Probe().SetFinished(kDropped);
  std::vector<Taken> takes;
  for (std::size_t left = 9; left > 0;) {
    ASSERT_TRUE(sim::WaitForRest());
    if (const std::size_t now = Probe().Queued(); now != left) {
      left = now;
      takes.push_back({sim::NowMs() - start, left});
    } else {
      sim::StepToNextWake(5);
    }
  }
  EXPECT_EQ(takes, (std::vector<Taken>{{10, 8}, {20, 7}, {30, 1}, {40, 0}}));
}

} // namespace
