#include "tests/sim/handles.h"
#include "tests/unit/engine/engine_test.h"

#include <memory>
#include <thread>
#include <vector>

namespace {

class EngineState : public EngineTest {};

TEST_F(EngineState, FirstUseFromManyThreadsBuildsOneEngine) {
  std::vector<std::shared_ptr<VexelSDKThread>> seen(8);
  std::vector<std::thread> threads;
  for (auto& engine : seen) {
    threads.emplace_back([&engine] { engine = VexelSDKThread::GetInstance(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& engine : seen) {
    EXPECT_EQ(engine, seen.front());
  }
  EXPECT_EQ(sim::OpenedHandles(sim::HandleKind::kEvent), 2); // of one engine, and none was built and thrown away
}

TEST_F(EngineState, ASecondEngineStartsEmptyWithIdOne) {
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 1);
  EXPECT_EQ(Engine()->AllocateEditorId(kOtherWindow), 2);
  Probe().SetFinished(1);
  const auto first = Engine();
  VexelSDKThread::DestroyInstance(Engine());
  EXPECT_NE(Engine(), first);
  EXPECT_FALSE(Engine()->IsFinished(1));
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 1);
}

TEST_F(EngineState, AWindowKeepsItsIdUntilThatIsClosingOrFinished) {
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 1);
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 1);
  Probe().SetClosing(1);
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 2);
  Probe().SetFinished(2);
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 3);
  EXPECT_EQ(Engine()->AllocateEditorId(kOtherWindow), 4);
  Probe().SetModifyClose(3); // the user may still keep it
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 3);
}

TEST_F(EngineState, AWindowTakenOutOfTheTableStartsWithANewId) {
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 1);
  EXPECT_TRUE(Probe().RemoveWindow(kWindow));
  EXPECT_TRUE(Probe().RemoveWindow(kWindow)); // also when there is nothing to take out
  EXPECT_EQ(Engine()->AllocateEditorId(kWindow), 2);
}

TEST_F(EngineState, ThePidOfAnIdIsTheOneOfTheTableHoweverItCameThere) {
  const auto same = [](std::int32_t id, std::uint32_t pid) {
    EXPECT_EQ(Probe().GetPidById(id), pid) << "id " << id;
    const auto table = Engine()->CopyIdToPid();
    const auto found = table.find(id);
    ASSERT_NE(found, table.end()) << "id " << id;
    EXPECT_EQ(found->second, pid) << "id " << id;
  };
  // Before the ids are given out, and behind it.
  for (const std::int32_t id : {-1, 0, 2, 3}) {
    same(id, 0);
  }
  EXPECT_TRUE(Probe().BindIdToPid(3, 700));
  for (const platform::Window window : {kWindow, kOtherWindow, kOtherWindow + 1, kOtherWindow + 2}) {
    Engine()->AllocateEditorId(window);
  }
  same(1, 0);
  same(2, 0);
  same(3, 700);
  same(5, 0); // not given out yet
  // Each way to another process, among them the number that stands for none seen.
  for (const std::uint32_t pid : {900u, 0u, 0xFFFFFFFFu, 901u}) {
    for (const std::int32_t id : {-1, 0, 1, 3, 4, 5}) {
      EXPECT_TRUE(Probe().BindIdToPid(id, pid));
      same(id, pid);
    }
  }
  EXPECT_EQ(Engine()->AllocateEditorId(kOtherWindow + 3), 5);
  same(5, 901);
  Probe().SetFinished(4);
  EXPECT_FALSE(Probe().BindIdToPid(4, 902));
  same(4, 901);
}

TEST_F(EngineState, AnIdNeverSeenIsInNoSet) {
  EXPECT_FALSE(Engine()->IsClosing(77));
  EXPECT_FALSE(Engine()->IsFinished(77));
  EXPECT_FALSE(Engine()->IsModifyClose(77));
  EXPECT_TRUE(Engine()->IsUnexpectedExit(77, 0));
}

TEST_F(EngineState, AnExitIsExpectedByAnyMarkOfTheIdOrTheProcess) {
  Probe().SetClosing(1);
  Probe().SetFinished(2);
  Probe().SetModifyClose(3);
  Probe().SetExited(44);
  EXPECT_FALSE(Engine()->IsUnexpectedExit(1, 1));
  EXPECT_FALSE(Engine()->IsUnexpectedExit(2, 1));
  EXPECT_FALSE(Engine()->IsUnexpectedExit(3, 1));
  EXPECT_FALSE(Engine()->IsUnexpectedExit(4, 44));
  EXPECT_TRUE(Engine()->IsUnexpectedExit(4, 1));
  Probe().ClearModifyClose(3);
  EXPECT_TRUE(Engine()->IsUnexpectedExit(3, 1));
}

TEST_F(EngineState, LookingUpAnUnknownIdLeavesAnEntryThatTheThemeWalks) {
  EXPECT_EQ(Probe().GetPidById(9), 0u);
  const auto copy = Engine()->CopyIdToPid();
  ASSERT_TRUE(copy.contains(9));
  EXPECT_EQ(copy.at(9), 0u);
}

TEST_F(EngineState, LookingForALinkLeavesNoEntry) {
  EXPECT_EQ(Probe().GetHelperByPid(9), nullptr);
  EXPECT_EQ(Probe().Links(), 0u);
}

TEST_F(EngineState, BindingTiesBothWaysUnlessTheIdIsFinished) {
  EXPECT_TRUE(Probe().BindIdToPid(3, 500));
  EXPECT_EQ(Probe().GetPidById(3), 500u);
  EXPECT_EQ(Probe().IdOfPid(500), 3);
  EXPECT_TRUE(Probe().BindIdToPid(3, 0));
  EXPECT_EQ(Probe().IdOfPid(0), 3);
  EXPECT_EQ(Probe().IdOfPid(500), 3); // the way back of the old process stays
  Probe().SetFinished(3);
  EXPECT_FALSE(Probe().BindIdToPid(3, 600));
  EXPECT_EQ(Probe().GetPidById(3), 0u);
  EXPECT_EQ(Probe().IdOfPid(600), -1);
}

TEST_F(EngineState, TwoTeardownsAtOnceAreOne) {
  const auto engine = Engine();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([engine] { VexelSDKThread::DestroyInstance(engine); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_NE(Engine(), engine);
}

TEST_F(EngineState, TearingDownNothingDoesNothing) {
  const auto engine = Engine();
  VexelSDKThread::DestroyInstance(nullptr);
  EXPECT_EQ(Engine(), engine);
}

TEST_F(EngineState, CallsDuringATeardownAreSafe) {
  // Few records, since a teardown runs all that it finds, at its pace.
  std::vector<std::thread> callers;
  for (std::int32_t i = 1; i <= 4; ++i) {
    callers.emplace_back([i] {
      for (int round = 0; round < 20; ++round) {
        Engine()->DoOperator(RecordOf(SDK_SETPOS, i));
        for (int call = 0; call < 50; ++call) {
          Engine()->SetCallback(i, nullptr, nullptr);
          Engine()->IsClosing(i);
          Engine()->AllocateEditorId(kWindow);
        }
      }
    });
  }
  std::vector<std::weak_ptr<VexelSDKThread>> engines;
  for (int i = 0; i < 10; ++i) {
    const auto engine = Engine();
    engines.push_back(engine);
    VexelSDKThread::DestroyInstance(engine);
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
  for (const auto& engine : engines) {
    EXPECT_TRUE(engine.expired());
  }
}

} // namespace
