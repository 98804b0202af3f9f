#include "include/vexelsdk.h"
#include "tests/sim/clock.h"
#include "tests/sim/window.h"
#include "tests/unit/engine/engine_test.h"

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

VexelWindow Handle(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

/// The browser's callback as it runs: on which thread, beside what, and how long.
class Callbacks : public EngineTest {
protected:
  Callbacks() { sim::InstallEditors(); }

  /// The threads on which the events came, by what the text holds.
  void NoteThreads() {
    OnEvent([this](const std::string& event) {
      const std::lock_guard lock(m_lock);
      for (const char* const part : {"open_pic_process_success", "open_pic_success", "run_error", "from the editor"}) {
        if (event.find(part) != std::string::npos) {
          m_threads[part] = std::this_thread::get_id();
        }
      }
    });
  }

  std::thread::id ThreadOf(const std::string& part) {
    const std::lock_guard lock(m_lock);
    return m_threads[part];
  }

  /// Holds up each callback whose text holds that part, until Free.
  void HoldUp(const std::string& part) {
    OnEvent([this, part](const std::string& event) {
      if (event.find(part) != std::string::npos) {
        m_inside = true;
        EXPECT_TRUE(sim::WaitFor([this] { return m_free.load(); }));
        m_inside = false;
      }
    });
  }
  bool IsInside() const { return m_inside; }
  bool WaitUntilInside() {
    return sim::WaitFor([this] { return m_inside.load(); });
  }
  void Free() { m_free = true; }

private:
  std::mutex m_lock;
  std::map<std::string, std::thread::id> m_threads;
  std::atomic<bool> m_inside{false};
  std::atomic<bool> m_free{false};
};

TEST_F(Callbacks, ComeOnTheThreadOfTheirKind) {
  sim::SetClockSpeed(20);
  NoteThreads();
  const std::int32_t id = OpenAndWait(sim::MakeWindow());
  SendAndWait(Pid(id), "from the editor");
  sim::CrashProcess(Pid(id));
  ASSERT_TRUE(WaitForEvents(4));
  const auto& [messages, operators, crashes, kills] = Probe().ThreadIds();
  EXPECT_TRUE(sim::WaitFor([this] { return ThreadOf("run_error") != std::thread::id(); }));
  EXPECT_EQ(ThreadOf("open_pic_process_success"), operators);
  EXPECT_EQ(ThreadOf("open_pic_success"), operators);
  EXPECT_EQ(ThreadOf("from the editor"), messages);
  EXPECT_EQ(ThreadOf("run_error"), crashes);
}

TEST_F(Callbacks, OverlapWhereTheyComeOnTwoThreads) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::size_t before = Events().size();
  HoldUp("from the editor");
  ASSERT_TRUE(sim::SendEvent(Pid(id), "from the editor"));
  ASSERT_TRUE(WaitUntilInside());
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(WaitForEvents(before + 2));
  EXPECT_EQ(Events().back(), EventText(id, Pid(id), "custom_message", "open_pic_success"));
  EXPECT_TRUE(IsInside());
  Free();
}

TEST_F(Callbacks, ThatTakeTheirTimeHoldUpTheOperatorsAndNoHostCall) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  HoldUp("open_pic_success");
  SetWindowsPos(id, 1, 2, 3, 4);
  ASSERT_TRUE(WaitUntilInside());
  EXPECT_TRUE(OperatePic(id, 1));
  EXPECT_TRUE(OperatePic(id, 2));
  EXPECT_FALSE(IsClose(id));
  ASSERT_TRUE(sim::SendEvent(pid, "from the editor")); // which has a thread of its own
  ASSERT_TRUE(WaitForEvent("from the editor"));
  EXPECT_EQ(Probe().Queued(), 2u);
  EXPECT_EQ(Received(pid).size(), 2u); // the open and the move
  Free();
  ASSERT_TRUE(DrainQueue());
  EXPECT_EQ(Received(pid).size(), 4u);
}

TEST_F(Callbacks, ThatTakeTheirTimeHoldUpTheEventsOfAllEditorsAndLoseNone) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::int32_t other = OpenAndWait(kOtherWindow);
  const std::size_t before = Events().size();
  HoldUp("from the editor");
  ASSERT_TRUE(sim::SendEvent(Pid(id), "from the editor"));
  ASSERT_TRUE(WaitUntilInside());
  for (const std::int32_t each : {id, other}) {
    ASSERT_TRUE(sim::SendEvent(Pid(each), "behind it"));
    ASSERT_TRUE(sim::FlushEvents(Pid(each)));
  }
  SetWindowsPos(other, 1, 2, 3, 4);
  ASSERT_TRUE(WaitForEvents(before + 2)); // the move's, on its own thread
  EXPECT_EQ(Events().size(), before + 2);
  Free();
  ASSERT_TRUE(WaitForEvents(before + 4));
  EXPECT_EQ(Events()[before + 2], "behind it");
  EXPECT_EQ(Events()[before + 3], "behind it");
}

TEST_F(Callbacks, MayCallEveryExportOnEachOfTheThreads) {
  sim::SetClockSpeed(20);
  std::atomic<int> calls{0};
  OnEvent([&calls](const std::string& event) {
    // Once on each thread: what it queues is reported as well.
    if (event.find("open_pic_process_success") == std::string::npos && event != "from the editor" &&
        event.find("run_error") == std::string::npos) {
      return;
    }
    std::array<wchar_t, 399> buffer;
    const std::int32_t id = OpenEditor(L"C:\\b.png", Handle(0x9000), 0, nullptr);
    SetBrowserCallback(id, nullptr, nullptr);
    FullScreen(id, true);
    SetWindowsPos(id, 1, 2, 3, 4);
    ChangeThemeMode(true);
    OperatePic(id, 1);
    DoBrowserCommand(id, 1);
    IsClose(id);
    VexelSDK_Init(nullptr);
    EXPECT_FALSE(CloseEditor(4711, false));
    EXPECT_TRUE(IsClose(4711));
    EXPECT_EQ(GetPicSupportFileExtensions(buffer.data(), 399), 1);
    EXPECT_EQ(GetSwitchValue("a"), -101);
    EXPECT_FALSE(IsSupportPreview());
    EXPECT_TRUE(IsPreviewValid());
    ReleaseCallbackData(nullptr);
    ++calls;
  });
  const std::int32_t id = OpenAndWait(sim::MakeWindow());
  ASSERT_TRUE(sim::SendEvent(Pid(id), "from the editor"));
  ASSERT_TRUE(sim::WaitFor([&calls] { return calls == 2; }));
  ASSERT_TRUE(DrainQueue()); // an operator that finds the editor dead would finish the id before the watch looks
  sim::CrashProcess(Pid(id));
  EXPECT_TRUE(sim::WaitFor([&calls] { return calls == 3; }));
  EXPECT_TRUE(DrainQueue());
}

TEST_F(Callbacks, DoNotGetWhatIsMeantForTheEngineOrToldTwice) {
  const std::int32_t id = OpenAndWait(kWindow);
  const std::uint32_t pid = Pid(id);
  const std::size_t before = Events().size();
  sim::SetClockSpeed(0); // the texts wait in the link's queue
  for (const char* const text :
       {R"({"type":"process_exit","process_id":4242})", R"({"type":"cancel_process_exit"})", R"({"type":"testserver"})",
        "testserver", "again", "again", "other", "again", R"({"type":"PROCESS_EXIT"})"}) {
    ASSERT_TRUE(sim::SendEvent(pid, text));
  }
  ASSERT_TRUE(sim::FlushEvents(pid));
  sim::SetClockSpeed(1);
  ASSERT_TRUE(WaitForEvent("PROCESS_EXIT"));
  const auto events = Events();
  EXPECT_EQ(std::vector(events.begin() + static_cast<std::ptrdiff_t>(before), events.end()),
            (std::vector<std::string>{"again", "other", "again", R"({"type":"PROCESS_EXIT"})"}));
}

} // namespace
