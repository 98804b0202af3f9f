#include "platform/sync.h"
#include "tests/sim/clock.h"
#include "tests/sim/debug.h"
#include "tests/sim/faults.h"
#include "tests/sim/window.h"
#include "tests/unit/engine/engine_test.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

namespace {

constexpr std::uint32_t kPassMs = 10;

class EventRoutes : public EngineTest {
protected:
  EventRoutes() { sim::InstallEditors(); }

  /// The events since the last call.
  std::vector<std::string> NewEvents() {
    const auto events = Events();
    const std::size_t seen = m_seen;
    m_seen = events.size();
    return {events.begin() + static_cast<std::ptrdiff_t>(seen), events.end()};
  }

  /// Stops the clock with the world at rest, and forgets the events so far.
  void Stop() {
    ASSERT_TRUE(WatchesStand());
    sim::SetClockSpeed(0);
    ASSERT_TRUE(sim::WaitForRest());
    NewEvents();
  }

  static void SendAndFlush(std::uint32_t pid, const std::string& text) {
    ASSERT_TRUE(sim::SendEvent(pid, text));
    ASSERT_TRUE(sim::FlushEvents(pid));
  }

private:
  std::size_t m_seen = 0;
};

struct TextCase {
  const char* text;
  bool forwarded;
  std::uint32_t exited; // the process that is marked, 0 for none
  bool clears;          // the mark of a close that waits for the user
  bool finishes;
};

void PrintTo(const TextCase& each, std::ostream* out) { *out << each.text; }

class EditorTextRoute : public EventRoutes, public testing::WithParamInterface<TextCase> {};

TEST_P(EditorTextRoute, IsWhatItsTypeSays) {
  const TextCase& each = GetParam();
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  Probe().SetModifyClose(id);
  NewEvents();
  SendAndWait(pid, each.text);
  EXPECT_EQ(NewEvents(), each.forwarded ? std::vector<std::string>{each.text} : std::vector<std::string>{});
  EXPECT_EQ(sim::DebugTexts(),
            each.forwarded ? (std::vector<std::string>{each.text, "\n"}) : std::vector<std::string>{});
  EXPECT_EQ(Engine()->IsModifyClose(id), !each.clears);
  EXPECT_EQ(Engine()->IsFinished(id), each.finishes);
  EXPECT_FALSE(Engine()->IsClosing(id));
  EXPECT_FALSE(Engine()->IsExited(pid));
  EXPECT_FALSE(Engine()->IsExited(0));
  if (each.exited != 0) {
    EXPECT_TRUE(Engine()->IsExited(each.exited));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, EditorTextRoute,
    testing::Values(TextCase{R"({"type":"process_exit","process_id":4242})", false, 4242, true, false},
                    TextCase{R"({"type":"process_exit"})", false, 0, false, false},
                    TextCase{R"({"type":"process_exit","process_id":"4242"})", false, 0, false, false},
                    TextCase{R"({"type":"process_exit","process_id":null})", false, 0, false, false},
                    TextCase{R"({"type":"cancel_process_exit"})", false, 0, true, false},
                    TextCase{R"({"type":"cancel_process_exit","process_id":4242})", false, 0, true, false},
                    TextCase{R"({"type":"finish_operator"})", true, 0, false, true},
                    TextCase{R"({"type":"edit","status":true})", true, 0, false, false},
                    TextCase{R"({"type":"edit"})", true, 0, false, false},
                    TextCase{R"({"type":"Process_Exit","process_id":4242})", true, 0, false, false},
                    TextCase{R"({"type":["process_exit"],"process_id":4242})", true, 0, false, false},
                    TextCase{R"({"type":7})", true, 0, false, false},
                    TextCase{R"({"process_id":4242})", true, 0, false, false},
                    TextCase{R"([{"type":"finish_operator"}])", true, 0, false, false},
                    TextCase{R"({"type":"finish_operator"} x)", true, 0, false, false},
                    TextCase{R"({"type":"finish_operator")", true, 0, false, false},
                    TextCase{"[1,2]", true, 0, false, false}, TextCase{"no json", true, 0, false, false}),
    [](const auto& each) { return "Row" + std::to_string(each.index); });

TEST_F(EventRoutes, CarryOneTextOfEachEditorInAPassByTheirPids) {
  const std::uint32_t first = Pid(OpenAndWait(kWindow));
  const std::uint32_t second = Pid(OpenAndWait(kOtherWindow));
  const std::uint32_t low = std::min(first, second);
  const std::uint32_t high = std::max(first, second);
  Stop();
  for (const char* const text : {"1", "2", "3"}) {
    SendAndFlush(high, std::string("high ") + text);
  }
  SendAndFlush(low, "low 1");
  SendAndFlush(low, "low 2");
  EXPECT_TRUE(NewEvents().empty());
  ASSERT_TRUE(sim::LetPass(kPassMs));
  EXPECT_EQ(NewEvents(), (std::vector<std::string>{"low 1", "high 1"}));
  ASSERT_TRUE(sim::LetPass(kPassMs));
  EXPECT_EQ(NewEvents(), (std::vector<std::string>{"low 2", "high 2"}));
  ASSERT_TRUE(sim::LetPass(kPassMs));
  EXPECT_EQ(NewEvents(), std::vector<std::string>{"high 3"});
}

TEST_F(EventRoutes, OfAProcessWithoutAnIdLeadToTheCallbackOfIdZero) {
  Preload();
  ASSERT_TRUE(DrainQueue());
  Engine()->SetCallback(0, Recorder(), this);
  SendAndWait(StartedPids()[0], "from nobody's editor");
  EXPECT_EQ(NewEvents(), std::vector<std::string>{"from nobody's editor"});
  // What the engine itself tells of such a process goes the same way, once the table has it.
  Probe().SendBrowserMessage(5, StartedPids()[0], "custom_message", "x");
  Probe().SendBrowserMessage(5, StartedPids()[1], "custom_message", "y");
  EXPECT_EQ(NewEvents(), std::vector{EventText(5, StartedPids()[0], "custom_message", "x")});
}

TEST_F(EventRoutes, GoByTheProcessAndNotByTheIdInTheEvent) {
  const std::int32_t id = OpenAndWait(kWindow);
  NewEvents();
  Probe().SendBrowserMessage(77, Pid(id), "custom_message", "x");
  EXPECT_EQ(NewEvents(), std::vector{EventText(77, Pid(id), "custom_message", "x")});
  Probe().SendBrowserMessage(id, 31337, "custom_message", "x");
  EXPECT_TRUE(NewEvents().empty());
  EXPECT_TRUE(sim::DebugTexts().empty());
}

TEST_F(EventRoutes, PassTheDebuggerBeforeTheBrowser) {
  const std::int32_t id = OpenAndWait(kWindow);
  std::vector<std::string> seen;
  OnEvent([&seen](const std::string&) { seen = sim::DebugTexts(); });
  SendAndWait(Pid(id), "text");
  EXPECT_EQ(seen, (std::vector<std::string>{"text", "\n"}));
}

TEST_F(EventRoutes, OfAClosedEditorEndWithItsClose) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  EXPECT_FALSE(Engine()->DoOperator(RecordOf(SDK_CLOSE, id)));
  ASSERT_TRUE(DrainQueue());
  Engine()->SetCallback(id, Recorder(), this); // a host that listens all the same
  NewEvents();
  SendAndWait(pid, "late text");
  SendAndWait(pid, "{\"type\":\"process_exit\",\"process_id\":" + std::to_string(pid) + "}");
  SendAndWait(pid, R"({"type":"finish_operator"})");
  EXPECT_TRUE(NewEvents().empty());
  EXPECT_FALSE(Engine()->IsExited(pid));
  EXPECT_FALSE(Engine()->IsFinished(id));
}

TEST_F(EventRoutes, EndWithinAPassOfTheTeardownAndLoseWhatIsQueued) {
  const std::uint32_t pid = Pid(OpenAndWait(kWindow));
  Stop();
  for (const char* const text : {"1", "2", "3"}) {
    SendAndFlush(pid, text);
  }
  const int wakes = sim::CallCount("WakeByAddressSingle");
  std::atomic<bool> returned{false};
  std::thread teardown([&] {
    sim::StandAside(); // it waits for the threads and not for time
    VexelSDKThread::DestroyInstance(VexelSDKThread::GetInstance());
    returned = true;
  });
  EXPECT_TRUE(sim::WaitFor([&] { return sim::CallCount("WakeByAddressSingle") > wakes; }));
  EXPECT_FALSE(returned); // the message thread sleeps out its pause
  sim::AdvanceMs(kPassMs);
  EXPECT_TRUE(sim::WaitFor([&] { return returned.load(); }));
  sim::SetClockSpeed(1); // lets it go where it did not
  teardown.join();
  EXPECT_TRUE(NewEvents().empty());
}

TEST_F(EventRoutes, EachHaveAThreadOfTheirOwn) {
  const platform::Window window = sim::MakeWindow();
  sim::SetClockSpeed(20);
  std::map<std::string, std::thread::id> threads;
  std::mutex lock;
  OnEvent([&](const std::string& event) {
    const std::lock_guard hold(lock);
    for (const char* const part : {"open_pic_process_success", "open_pic_success", "an editor's", "run_error"}) {
      if (event.find(part) != std::string::npos) {
        threads[part] = std::this_thread::get_id();
      }
    }
  });
  const std::int32_t id = OpenAndWait(window);
  SendAndWait(Pid(id), "an editor's");
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(sim::WaitFor([&] {
    const std::lock_guard hold(lock);
    return threads.size() == 4;
  }));
  const std::thread::id operators = threads["open_pic_success"];
  EXPECT_EQ(threads["open_pic_process_success"], operators);
  EXPECT_NE(threads["an editor's"], operators);
  EXPECT_NE(threads["run_error"], operators);
  EXPECT_NE(threads["run_error"], threads["an editor's"]);
  for (const auto& [part, thread] : threads) {
    EXPECT_NE(thread, std::this_thread::get_id()) << part;
  }
}

TEST_F(EventRoutes, OfAllEditorsWaitForOneSlowCallbackAndOperatorsDoNot) {
  constexpr std::uint32_t kSlowMs = 5000;
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  const std::uint32_t other = Pid(OpenAndWait(kOtherWindow));
  OnEvent([](const std::string& event) {
    if (event == "slow") {
      platform::Sleep(kSlowMs);
    }
  });
  Stop();
  SendAndFlush(pid, "slow");
  ASSERT_TRUE(sim::LetPass(kPassMs));
  EXPECT_EQ(NewEvents(), std::vector<std::string>{"slow"});
  SendAndFlush(other, "behind it");
  EXPECT_TRUE(Engine()->DoOperator(RecordOf(SDK_SETPOS, id)));
  ASSERT_TRUE(sim::LetPass(kSlowMs - 10 * kPassMs));
  EXPECT_EQ(NewEvents(), std::vector{EventText(id, pid, "custom_message", "open_pic_success")});
  EXPECT_TRUE(Probe().MutexesAreFree());
  ASSERT_TRUE(sim::LetPass(20 * kPassMs));
  EXPECT_EQ(NewEvents(), std::vector<std::string>{"behind it"});
}

} // namespace
