#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace {

using namespace sdktest;

class Crash : public SdkTest {
protected:
  std::int64_t ExStyle(std::int64_t window) { return Host().Ask("exstyle " + std::to_string(window)); }

  /// Lets the editor of a further window crash and waits for its report. By then the watch has looked at every id
  /// before it, in the same pass.
  void PassByAnotherCrash() {
    const Opened other = OpenAndWait();
    Kill(other.pid);
    Host().WaitForEvent(other.id, kCrash);
  }
};

TEST_F(Crash, IsReportedAndMarksTheWindow) {
  StartHost();
  const Opened opened = OpenAndWait();
  const std::int64_t before = ExStyle(opened.window);
  EXPECT_EQ(before & WS_EX_TRANSPARENT, 0);
  Kill(opened.pid);
  EXPECT_EQ(Host().WaitForEvent(1, kCrash).text, R"({"id":1,"param":"crash","process_id":)" +
                                                     std::to_string(opened.pid) +
                                                     R"(,"status":true,"type":"run_error"})");
  EXPECT_EQ(ExStyle(opened.window), before | WS_EX_TRANSPARENT);
}

TEST_F(Crash, IsReportedOnceAndTheNextOpenGetsANewId) {
  StartHost();
  const Opened opened = OpenAndWait();
  Kill(opened.pid);
  Host().WaitForEvent(1, kCrash);
  PassByAnotherCrash();
  EXPECT_EQ(Host().CountEvents(1, kCrash), 1U);
  EXPECT_EQ(OpenAndWaitIn(opened.window).id, 3);
}

TEST_F(Crash, OfAnEditorThatEndsItselfInMidMessageIsReported) {
  StartHostWithZoo(L"webvexlaunch.exe:die_mid_message");
  const Opened opened = OpenAndWait();
  WaitUntilUnlisted(opened.pid);
  Host().WaitForEvent(1, kCrash);
  EXPECT_EQ(Host().CountEvents(1, "custom_message\",\"par"), 0U) << "half a text is no text";
}

TEST_F(Crash, AfterAnAnnouncedExitIsNone) {
  StartHostWithZoo(L"webvexlaunch.exe:exit_after_open=0");
  const Opened opened = OpenAndWait();
  Host().WaitForEvent(1, "\"finish_operator\"");
  WaitForLog("\"process_exit\"");
  WaitUntilUnlisted(opened.pid);
  const Opened other = OpenAndWait(Base64("/apptype:2"));
  Kill(other.pid);
  Host().WaitForEvent(other.id, kCrash);
  EXPECT_EQ(Host().CountEvents(1, kCrash), 0U);
  EXPECT_EQ(ExStyle(opened.window) & WS_EX_TRANSPARENT, 0);
}

TEST_F(Crash, AfterAnExitThatAnotherEditorAnnouncedIsNone) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Do("setenv VEXEL_EDITOR_ZOO events={\"type\":\"process_exit\"%002c\"process_id\":" +
            std::to_string(opened.pid) + "}");
  // The process that waits for the next open is older than the variable.
  OpenAndWait();
  WaitForPreload(3);
  OpenAndWait();
  WaitForLog("data={\"type\":\"process_exit\",\"process_id\":" + std::to_string(opened.pid) + "}");
  Kill(opened.pid);
  PassByAnotherCrash();
  EXPECT_EQ(Host().CountEvents(1, kCrash), 0U);
}

TEST_F(Crash, WithTheWindowGoneIsNone) {
  StartHost();
  const Opened opened = OpenAndWait();
  {
    // Listed until the window is gone, so the watch cannot come in between.
    const ProgramHandle kept(opened.pid);
    EndProgram(opened.pid);
    EXPECT_EQ(Host().Ask("destroywindow " + std::to_string(opened.window)), 1);
  }
  WaitUntilUnlisted(opened.pid);
  PassByAnotherCrash();
  EXPECT_EQ(Host().CountEvents(1, kCrash), 0U);
}

TEST_F(Crash, OfAClosedEditorIsNone) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Ask("close 1");
  Host().Do("callback 1 on");
  WaitUntilUnlisted(opened.pid);
  PassByAnotherCrash();
  EXPECT_EQ(Host().CountEvents(1, kCrash), 0U);
  EXPECT_EQ(ExStyle(opened.window) & WS_EX_TRANSPARENT, 0);
}

TEST_F(Crash, WhileConnectingEndsTheAttempt) {
  StartHostWithZoo(L"webvexlaunch.exe:never_serve");
  const std::int64_t window = Host().Ask("window");
  const std::int32_t id = Open(window, Picture());
  const std::int64_t pid = NumberAfter(Host().WaitForEvent(id, kProcessSuccess).text, "\"process_id\":");
  WaitForLog("ConnectServer try failure. last_error=");
  Kill(static_cast<std::uint32_t>(pid));
  const std::string line = WaitForLog("ConnectServer failure. is_stop=0, duration=");
  EXPECT_LT(NumberAfter(line, "duration="), 60000) << "long before the limit of the attempt";
  EXPECT_TRUE(WaitFor([&] { return Host().Ask("isclose 1") == 1; }));
  EXPECT_EQ(Host().CountEvents(id, kOpenSuccess), 0U);
  EXPECT_EQ(OpenAndWaitIn(window, Base64("/apptype:2")).id, 2);
}

TEST_F(Crash, InTheMidstOfTheOpenFinishesTheId) {
  StartHostWithZoo(L"webvexlaunch.exe:die_on_open");
  const std::int64_t window = Host().Ask("window");
  const std::int32_t id = Open(window, Picture());
  Host().WaitForEvent(id, kProcessSuccess);
  EXPECT_TRUE(WaitFor([&] { return Host().Ask("isclose 1") == 1; }));
  EXPECT_EQ(Host().CountEvents(id, kOpenSuccess), 0U);
  EXPECT_EQ(OpenAndWaitIn(window, Base64("/apptype:2")).id, 2);
}

TEST_F(Crash, AtTheStartLeavesRoomForTheNextOpen) {
  StartHostWithZoo(L"webvexlaunch.exe:die_at_start");
  Host().Ask("init");
  const std::uint32_t first = WaitForPreload(1);
  WaitForPreload(2);
  WaitUntilUnlisted(first);
  const std::int64_t window = Host().Ask("window");
  const std::int32_t id = Open(window, Picture());
  const std::int64_t pid = NumberAfter(Host().WaitForEvent(id, kProcessSuccess).text, "\"process_id\":");
  EXPECT_NE(pid, first);
  WaitUntilUnlisted(static_cast<std::uint32_t>(pid));
  WaitForLog("ConnectServer failure. is_stop=0, duration=");
  WaitForPreload(3); // also dead by now
  WaitUntilUnlisted(WaitForPreload(3));
  Host().Do("setenv VEXEL_EDITOR_ZOO @empty");
  EXPECT_EQ(OpenAndWaitIn(window).id, 2);
}

TEST_F(Crash, OfAnEditorThatHangsFreesTheQueue) {
  StartHostWithZoo(L"webvexlaunch.exe:hang");
  const std::int32_t id = Open(Host().Ask("window"), Picture());
  const std::int64_t pid = NumberAfter(Host().WaitForEvent(id, kProcessSuccess).text, "\"process_id\":");
  WaitForReceived({"\"type\":\"open\""});
  // Its open is never answered; the host's calls are.
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  const std::int32_t behind = Open(Host().Ask("window"), Picture(), Base64("/apptype:2"));
  EXPECT_TRUE(Host().Events(behind).empty());
  Kill(static_cast<std::uint32_t>(pid));
  Host().WaitForEvent(behind, kOpenSuccess);
  EXPECT_EQ(Host().Ask("operate 1 1"), 0);
}

} // namespace
