#include "foundation/logger.h"
#include "platform/window.h"
#include "public/vexelsdk/vexelsdk_process_util.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/handles.h"
#include "tests/sim/window.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>

// The two watches under a clock that stands: what they do, and when, to within some steps of ten milliseconds.

namespace {

constexpr std::uint64_t kStepMs = 10;

class StandingWatch : public EngineTest {
protected:
  StandingWatch() {
    sim::InstallEditors();
    m_window = sim::MakeWindow(0x100);
  }

  /// With the clock running.
  std::int32_t OpenAndStop(platform::Window window) {
    const std::int32_t id = OpenAndWait(window);
    EXPECT_TRUE(WatchesStand());
    sim::SetClockSpeed(0);
    EXPECT_TRUE(sim::WaitForRest());
    return id;
  }

  /// How long it takes the watch to take up that window, in steps. More than a pass never comes out.
  static std::uint64_t MsUntilTaken(platform::Window window) {
    std::uint64_t passed = 0;
    while (Probe().KnowsWindow(window) && passed <= 2 * 2000 && sim::LetPass(kStepMs)) {
      passed += kStepMs;
    }
    return passed;
  }

  std::vector<std::string> Crashes() {
    std::vector<std::string> events = Events();
    std::erase_if(events, [](const std::string& event) { return event.find("run_error") == std::string::npos; });
    return events;
  }

  static std::string CrashText(std::int32_t id, std::uint32_t pid) { return EventText(id, pid, "run_error", "crash"); }

  platform::Window m_window;
};

TEST_F(StandingWatch, LooksEveryTwoSecondsAndWaitsASecondInDoubt) {
  const platform::Window later = sim::MakeWindow();
  const std::int32_t laterId = OpenAndWait(later);
  const std::int32_t id = OpenAndStop(m_window);
  sim::CrashProcess(Pid(id));
  EXPECT_LE(MsUntilTaken(m_window), 2000 + kStepMs);
  ASSERT_TRUE(sim::LetPass(1000 - 2 * kStepMs));
  EXPECT_TRUE(Crashes().empty());
  ASSERT_TRUE(sim::LetPass(3 * kStepMs));
  EXPECT_EQ(Crashes(), std::vector{CrashText(id, Pid(id))});
  sim::CrashProcess(Pid(laterId)); // behind the pass
  const std::uint64_t wait = MsUntilTaken(later);
  EXPECT_GE(wait, 2000 - 3 * kStepMs);
  EXPECT_LE(wait, 2000 + kStepMs);
  EXPECT_TRUE(sim::LetPass(2000)); // a teardown within the second of doubt would not return
}

TEST_F(StandingWatch, GivesEachWindowASecondOfItsOwnInTheirOrder) {
  const platform::Window second = sim::MakeWindow();
  ASSERT_LT(m_window, second);
  const std::int32_t id = OpenAndStop(m_window);
  Probe().MapWindow(second, id);
  sim::CrashProcess(Pid(id));
  MsUntilTaken(m_window);
  ASSERT_TRUE(sim::LetPass(1000 - 2 * kStepMs));
  EXPECT_TRUE(Probe().KnowsWindow(second));
  ASSERT_TRUE(sim::LetPass(3 * kStepMs));
  EXPECT_FALSE(Probe().KnowsWindow(second));
  EXPECT_EQ(Crashes().size(), 1u);
  EXPECT_EQ(sim::ExStyle(second), 0);
  ASSERT_TRUE(sim::LetPass(1000 - 4 * kStepMs));
  EXPECT_EQ(Crashes().size(), 1u);
  ASSERT_TRUE(sim::LetPass(4 * kStepMs));
  EXPECT_EQ(Crashes(), (std::vector{CrashText(id, Pid(id)), CrashText(id, Pid(id))}));
  EXPECT_EQ(sim::ExStyle(second), platform::kWsExTransparent);
}

TEST_F(StandingWatch, TellsOfTheLowerIdFirst) {
  const platform::Window other = sim::MakeWindow();
  const std::int32_t first = OpenAndWait(other); // the later window has the lower id
  const std::int32_t second = OpenAndStop(m_window);
  ASSERT_LT(first, second);
  sim::CrashProcess(Pid(second));
  sim::CrashProcess(Pid(first));
  ASSERT_TRUE(sim::LetPass(2000 + 2 * 1000 + kStepMs));
  EXPECT_EQ(Crashes(), (std::vector{CrashText(first, Pid(first)), CrashText(second, Pid(second))}));
}

TEST_F(StandingWatch, SpendsNoSecondOnAWindowThatIsGone) {
  const platform::Window second = sim::MakeWindow();
  const std::int32_t id = OpenAndStop(m_window);
  Probe().MapWindow(second, id);
  sim::DestroyWindow(m_window);
  sim::CrashProcess(Pid(id));
  MsUntilTaken(m_window);
  EXPECT_FALSE(Probe().KnowsWindow(second)); // at once
  ASSERT_TRUE(sim::LetPass(1000 + kStepMs));
  EXPECT_EQ(Crashes().size(), 1u);
  EXPECT_EQ(sim::ExStyle(m_window), 0x100);
  EXPECT_TRUE(sim::LetPass(2000)); // as above
}

TEST_F(StandingWatch, IsQuietWhenAnEndIsMarkedWithinTheSecond) {
  const struct {
    const char* name;
    std::function<void(std::int32_t, std::uint32_t)> mark;
  } cases[] = {
      {"closing", [](std::int32_t id, std::uint32_t) { Probe().SetClosing(id); }},
      {"finished", [](std::int32_t id, std::uint32_t) { Probe().SetFinished(id); }},
      {"modified close", [](std::int32_t id, std::uint32_t) { Probe().SetModifyClose(id); }},
      {"announced exit", [](std::int32_t, std::uint32_t pid) { Probe().SetExited(pid); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    sim::SetClockSpeed(1);
    const platform::Window window = sim::MakeWindow();
    const std::int32_t id = OpenAndStop(window);
    sim::CrashProcess(Pid(id));
    MsUntilTaken(window);
    ASSERT_FALSE(Probe().KnowsWindow(window));
    each.mark(id, Pid(id));
    ASSERT_TRUE(sim::LetPass(1000 + 2000));
    EXPECT_TRUE(Crashes().empty());
    EXPECT_EQ(sim::ExStyle(window), 0);
  }
}

TEST_F(StandingWatch, GoesByTheTablesOfItsPass) {
  const platform::Window second = sim::MakeWindow();
  const platform::Window third = sim::MakeWindow();
  const std::int32_t id = OpenAndStop(m_window);
  Probe().MapWindow(second, id);
  const std::uint32_t dead = Pid(id);
  sim::CrashProcess(dead);
  MsUntilTaken(m_window);
  // What changes within the second counts from the next pass on.
  ASSERT_TRUE(Probe().BindIdToPid(id, StartedPids().back()));
  Probe().RemoveWindow(second);
  Probe().MapWindow(third, id);
  ASSERT_TRUE(sim::LetPass(2 * 1000 + kStepMs));
  EXPECT_EQ(Crashes(), (std::vector{CrashText(id, dead), CrashText(id, dead)}));
  EXPECT_EQ(sim::ExStyle(second), platform::kWsExTransparent);
  ASSERT_TRUE(sim::LetPass(2 * 2000));
  EXPECT_TRUE(Probe().KnowsWindow(third));
  EXPECT_EQ(Crashes().size(), 2u);
}

TEST_F(StandingWatch, NeverTellsOfAnIdWithoutAWindowNorOfIdZero) {
  const std::int32_t id = OpenAndWait(m_window);
  const platform::Window zeros = sim::MakeWindow();
  Engine()->SetCallback(0, Recorder(), this);
  Probe().BindIdToPid(0, StartedPids().back());
  Probe().MapWindow(zeros, 0);
  Probe().RemoveWindow(m_window);
  ASSERT_TRUE(WatchesStand());
  sim::SetClockSpeed(0);
  sim::CrashProcess(Pid(id));
  sim::CrashProcess(StartedPids().back());
  ASSERT_TRUE(sim::LetPass(3 * 2000));
  EXPECT_TRUE(Crashes().empty());
  EXPECT_TRUE(Probe().KnowsWindow(zeros));
  EXPECT_EQ(sim::ExStyle(m_window), 0x100);
}

TEST_F(StandingWatch, MarksTheWindowBeforeItTells) {
  std::intptr_t seen = 0;
  OnEvent([&](const std::string& event) {
    if (event.find("run_error") != std::string::npos) {
      seen = sim::ExStyle(m_window);
    }
  });
  const std::int32_t id = OpenAndStop(m_window);
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(sim::LetPass(3000 + kStepMs));
  ASSERT_EQ(Crashes().size(), 1u);
  EXPECT_EQ(seen, 0x100 | platform::kWsExTransparent);
}

TEST_F(StandingWatch, TellsThoughTheWindowCannotBeMarked) {
  const std::int32_t id = OpenAndStop(m_window);
  sim::FailAlways("SetWindowLongPtrW");
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(sim::LetPass(3000 + kStepMs));
  EXPECT_EQ(sim::FaultsFired("SetWindowLongPtrW"), 1);
  EXPECT_EQ(Crashes(), std::vector{CrashText(id, Pid(id))});
}

TEST_F(StandingWatch, WritesNoLineNorDoesAnIdleKillThread) {
  LogAt(vx::LOG_DEBUG);
  const std::int32_t id = OpenAndStop(m_window);
  const std::vector<std::string> before = LogLines();
  ASSERT_FALSE(before.empty());
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(sim::LetPass(12000));
  ASSERT_EQ(Crashes().size(), 1u);
  EXPECT_EQ(LogLines(), before);
}

class StandingKill : public EngineTest {
protected:
  /// Both programs preloaded, the clock stopped from the engine's first moment on, at the beginning of a second.
  void SetUp() override {
    sim::InstallEditors();
    sim::StopAtFullMinute();
    Preload();
    m_began = sim::NowMs();
    ASSERT_TRUE(WatchesStand());
    ASSERT_TRUE(sim::WaitFor([] { return StartedPrograms() == 2; }));
    ASSERT_TRUE(sim::LetPass(100));
    ASSERT_TRUE(Probe().OperatorIsIdle());
  }

  /// Lets time pass until the engine has that age.
  void Until(std::uint64_t age) const { ASSERT_TRUE(sim::LetPass(m_began + age - sim::NowMs())); }

  static void StartAgain(std::uint32_t pid) {
    sim::ProcessSpec spec;
    spec.path = sim::kLauncherPath;
    spec.pid = pid;
    sim::StartProcess(spec);
  }

private:
  std::uint64_t m_began = 0;
};

TEST_F(StandingKill, LooksAfterFiveSecondsAndASecondBehindEachEntry) {
  const auto pids = StartedPids();
  EXPECT_TRUE(Probe().AddToKillList(pids[0]));
  Until(5000 - kStepMs);
  EXPECT_TRUE(sim::IsRunning(pids[0]));
  Until(5000 + kStepMs);
  EXPECT_FALSE(sim::IsRunning(pids[0]));
  Until(6000 + kStepMs); // a look that finds nothing: the next one comes five seconds behind it
  EXPECT_TRUE(Probe().AddToKillList(pids[1]));
  Until(11000 - kStepMs);
  EXPECT_TRUE(sim::IsRunning(pids[1]));
  Until(11000 + kStepMs);
  EXPECT_FALSE(sim::IsRunning(pids[1]));
  EXPECT_EQ(sim::CallCount("TerminateProcess"), 2);
}

TEST_F(StandingKill, ListsAProcessWithItsCreationTimeAndItsProgram) {
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_TRUE(Probe().AddToKillList(pid));
  const auto entries = Probe().KillEntries();
  ASSERT_EQ(entries.size(), 1u);
  const KillEntry& entry = entries.at(pid);
  EXPECT_EQ(entry.m_pid, pid);
  EXPECT_NE(entry.m_createTime, 0u);
  EXPECT_EQ(entry.m_createTime, VexelSdkProcessUtil::GetProcessCreateTime(pid));
  EXPECT_EQ(entry.m_path, sim::kLauncherPath);
}

TEST_F(StandingKill, LeavesALaterRunOfTheProgramAloneWithoutALine) {
  LogAt(vx::LOG_DEBUG);
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_TRUE(Probe().AddToKillList(pid));
  sim::EndProcess(pid);
  ASSERT_TRUE(sim::LetPass(1000));
  StartAgain(pid);
  const auto lines = LogLines();
  Until(5000 + kStepMs);
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_TRUE(sim::IsRunning(pid));
  EXPECT_EQ(LogLines(), lines);
}

TEST_F(StandingKill, DoesNotTellTwoRunsOfOneSecondApart) {
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_TRUE(Probe().AddToKillList(pid));
  const std::uint64_t listed = Probe().KillEntries().at(pid).m_createTime;
  sim::EndProcess(pid);
  StartAgain(pid);
  ASSERT_EQ(VexelSdkProcessUtil::GetProcessCreateTime(pid), listed);
  Until(5000 + kStepMs);
  EXPECT_FALSE(sim::IsRunning(pid));
}

TEST_F(StandingKill, GoesByTheLastListingOfAPid) {
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_TRUE(Probe().AddToKillList(pid));
  sim::EndProcess(pid);
  ASSERT_TRUE(sim::LetPass(2000));
  StartAgain(pid);
  EXPECT_TRUE(Probe().AddToKillList(pid)); // with the time of this run
  Until(5000 + kStepMs);
  EXPECT_FALSE(sim::IsRunning(pid));
}

TEST_F(StandingKill, DoesNotLookWhetherTheEndCame) {
  const std::uint32_t pid = StartedPids()[0];
  EXPECT_TRUE(Probe().AddToKillList(pid));
  sim::FailNth("TerminateProcess", 1);
  const int handles = sim::OpenHandles();
  Until(12000);
  EXPECT_EQ(sim::CallCount("TerminateProcess"), 1); // and it is not tried again
  EXPECT_TRUE(sim::IsRunning(pid));
  EXPECT_TRUE(Probe().KillList().empty());
  EXPECT_EQ(sim::OpenHandles(), handles);
}

/// Runs in a process of its own, for a watch without its event cannot be stopped. Exits with 7 when it went as told.
class Unbraked : public EngineTest {
public:
  void TestBody() override {}

  void CrashWatchRunsOn() {
    sim::FailNth("CreateEventW", 1);
    sim::InstallEditors();
    const platform::Window window = sim::MakeWindow();
    const std::int32_t id = OpenAndWait(window);
    sim::SetClockSpeed(0);
    sim::CrashProcess(Pid(id));
    if (!WaitForEvent("run_error")) { // neither the pause nor the second of doubt takes any time
      std::_Exit(1);
    }
    const int wakes = BeginTeardown();
    sim::WaitFor([&] { return sim::CallCount("WakeByAddressSingle") > wakes; });
    const int looks = sim::CallCount("OpenProcess");
    const bool goesOn = sim::WaitFor([&] { return sim::CallCount("OpenProcess") > looks + 100; });
    std::_Exit(goesOn && !m_returned ? 7 : 1);
  }

  void KillThreadRunsOn() {
    sim::FailNth("CreateEventW", 2);
    sim::InstallEditors();
    Preload();
    const bool drained = DrainQueue();
    const auto pids = StartedPids();
    const auto engine = Engine();
    sim::SetClockSpeed(0);
    const bool first = EngineProbe(engine).AddToKillList(pids[0]) && Ends(pids[0]);
    const int wakes = BeginTeardown();
    sim::WaitFor([&] { return sim::CallCount("WakeByAddressSingle") > wakes; });
    const bool second = EngineProbe(engine).AddToKillList(pids[1]) && Ends(pids[1]);
    std::_Exit(drained && first && second && !m_returned ? 7 : 1);
  }

private:
  static bool Ends(std::uint32_t pid) {
    return sim::WaitFor([pid] { return !sim::IsRunning(pid); });
  }

  int BeginTeardown() {
    const int wakes = sim::CallCount("WakeByAddressSingle");
    std::thread([this, engine = Engine()] {
      VexelSDKThread::DestroyInstance(engine);
      m_returned = true;
    }).detach();
    return wakes;
  }

  std::atomic<bool> m_returned{false};
};

TEST(WithoutItsEvent, TheCrashWatchRunsWithoutAPauseAndCannotBeStopped) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(Unbraked().CrashWatchRunsOn(), testing::ExitedWithCode(7), "");
}

TEST(WithoutItsEvent, TheKillThreadRunsWithoutAPauseAndCannotBeStopped) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(Unbraked().KillThreadRunsOn(), testing::ExitedWithCode(7), "");
}

} // namespace
