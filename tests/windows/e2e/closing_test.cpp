#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <string>

namespace {

using namespace sdktest;

class CloseEditor : public SdkTest {};

TEST_F(CloseEditor, WithoutChangesGivesFalseAndEndsTheEditor) {
  StartHost();
  const Opened opened = OpenAndWait();
  const ProgramHandle editor(opened.pid);
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_TRUE(editor.WaitForEnd());
}

TEST_F(CloseEditor, WithoutChangesIsFollowedByNoEvent) {
  StartHost();
  const Opened opened = OpenAndWait();
  const ProgramHandle editor(opened.pid);
  // The editor's own word on the picture comes at any time; what counts is what the close brings.
  Host().WaitForEvent(1, "picture_");
  const std::size_t before = Host().Events(1).size();
  Host().Ask("close 1");
  EXPECT_TRUE(editor.WaitForEnd());
  OpenAndWait(); // a whole open later
  EXPECT_EQ(Host().Events(1).size(), before);
}

TEST_F(CloseEditor, OnUnsavedChangesWaitsForTheUser) {
  StartHost();
  const Opened opened = OpenAndWait();
  Modify(opened);
  EXPECT_EQ(Host().Ask("close 1"), 1);
  EXPECT_EQ(Host().Ask("isclose 1"), 0);
  WaitForReceived({"\"type\":\"close\"", "\"status\":true"});
  Host().WaitForEvent(1, kOpenSuccess, 3); // of the open, the change and the close: the callback is still there
  EXPECT_TRUE(IsRunning(opened.pid));
}

TEST_F(CloseEditor, OnSavedChangesTheEditorFinishesTheId) {
  StartHost({{kAnswerVariable, L"save"}});
  const Opened opened = OpenAndWait();
  Modify(opened);
  const ProgramHandle editor(opened.pid);
  EXPECT_EQ(Host().Ask("close 1"), 1);
  Host().WaitForEvent(1, "\"finish_operator\"");
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_EQ(Host().Ask("operate 1 1"), 0);
  EXPECT_EQ(Host().Ask("command 1 1"), 0);
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_TRUE(editor.WaitForEnd());
  EXPECT_EQ(Host().CountEvents(1, "\"process_exit\""), 0U);
  EXPECT_EQ(Open(opened.window, Picture()), 2);
}

TEST_F(CloseEditor, CancelledByTheUserLeavesTheIdAlive) {
  StartHost({{kAnswerVariable, L"cancel"}});
  const Opened opened = OpenAndWait();
  Modify(opened);
  EXPECT_EQ(Host().Ask("close 1"), 1);
  WaitForLog("\"cancel_process_exit\"");
  EXPECT_EQ(Host().Ask("isclose 1"), 0);
  EXPECT_EQ(Host().Ask("command 1 9"), 1);
  WaitForReceived({"browser_command", "\"operator\":9"});
  EXPECT_EQ(Host().CountEvents(1, "\"cancel_process_exit\""), 0U);
  EXPECT_EQ(Open(opened.window, Picture()), 1);
}

TEST_F(CloseEditor, AfterTheChangesWereSavedIsPlainAgain) {
  StartHost();
  const Opened opened = OpenAndWait();
  Modify(opened);
  EXPECT_EQ(Host().Ask("operate 1 7"), 1);
  Host().WaitForEvent(1, "\"edit\"", 2);
  EXPECT_EQ(Host().Ask("close 1"), 0);
}

TEST_F(CloseEditor, WhileConnectingStopsTheAttempt) {
  StartHostWithZoo(L"never_serve");
  const std::int64_t window = Host().Ask("window");
  const std::int32_t id = Open(window, Picture());
  const std::int64_t pid = NumberAfter(Host().WaitForEvent(id, kProcessSuccess).text, "\"process_id\":");
  const ProgramHandle editor(static_cast<std::uint32_t>(pid));
  WaitForLog("ConnectServer try failure. last_error=");
  EXPECT_EQ(Host().Ask("close 1"), 0);
  const std::string line = WaitForLog("ConnectServer failure. is_stop=1, duration=");
  EXPECT_TRUE(Contains(line, "ms, pid=" + std::to_string(pid))) << line;
  EXPECT_FALSE(Folder().LogWith("helper is connecting. pid=" + std::to_string(pid)).empty());
  EXPECT_TRUE(editor.WaitForEnd()) << "the kill list takes what never got its picture";
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  EXPECT_EQ(Host().CountEvents(1, kOpenSuccess), 0U);
}

TEST_F(CloseEditor, ASecondTimeWhileTheFirstIsBeingSentIsSentAsWell) {
  StartHostWithZoo(L"slow=2000");
  const Opened opened = OpenAndWait();
  const ProgramHandle editor(opened.pid);
  EXPECT_EQ(Host().Ask("close 1"), 0);
  WaitForReceived({"\"type\":\"close\""}); // and answered only later
  ASSERT_TRUE(Folder().LogWith("VexelSDKHelper::WriteOperator data={\"closeall\":false,").empty());
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_EQ(Folder().LogWith("VexelSDKThread::DoOperator m_op(SDK_Operator)=4, m_id=1").size(), 2U);
  EXPECT_EQ(Host().Ask("isclose 1"), 1);
  WaitForLog("VexelSDKHelper::WriteOperator data={\"closeall\":false,", 2);
  EXPECT_TRUE(editor.WaitForEnd());
  EXPECT_EQ(OpenAndWaitIn(opened.window).id, 2);
}

TEST_F(CloseEditor, WhileConnectingLetsTheQueueGoOn) {
  StartHostWithZoo(L"webvexlaunch.exe:never_serve");
  const std::int32_t id = Open(Host().Ask("window"), Picture());
  Host().WaitForEvent(id, kProcessSuccess);
  const std::int32_t behind = Open(Host().Ask("window"), Picture(), Base64("/apptype:2"));
  WaitForLog("ConnectServer try failure. last_error=");
  Host().Ask("close 1");
  Host().WaitForEvent(behind, kOpenSuccess);
}

} // namespace
