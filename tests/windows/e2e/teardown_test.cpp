#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <string>

namespace {

using namespace sdktest;

class UnInit : public SdkTest {};

TEST_F(UnInit, WithoutInitReturnsOne) {
  StartHost();
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(UnInit, RunsWhatIsQueuedAndLeavesTheEditorAlive) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture());
  EXPECT_EQ(Host().Ask("uninit"), 1);
  // Both reports come before the call returns.
  ASSERT_EQ(Host().CountEvents(id, kProcessSuccess), 1U);
  EXPECT_EQ(Host().CountEvents(id, kOpenSuccess), 1U);
  const std::int64_t pid = NumberAfter(Host().WaitForEvent(id, kProcessSuccess).text, "\"process_id\":");
  EXPECT_TRUE(IsRunning(static_cast<std::uint32_t>(pid)));
  WaitForReceived({"\"type\":\"open\"", "\"process_id\":" + std::to_string(pid)});
}

TEST_F(UnInit, TellsTheEditorsNothing) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Ask("uninit");
  EXPECT_TRUE(IsRunning(opened.pid));
  EXPECT_EQ(Received().size(), 1U);
}

TEST_F(UnInit, IsFollowedByASecondEngineWithIdsFromOne) {
  StartHost();
  const Opened first = OpenAndWait();
  EXPECT_EQ(first.id, 1);
  OpenAndWait();
  EXPECT_EQ(Host().Ask("close 1"), 0);
  EXPECT_EQ(Host().Ask("uninit"), 1);
  EXPECT_EQ(Host().Ask("isclose 1"), 0);
  const Opened again = OpenAndWait();
  EXPECT_EQ(again.id, 1);
  EXPECT_EQ(Host().Ask("operate 1 6"), 1);
}

TEST_F(UnInit, SecondEngineTakesOverWhatTheFirstLeftWaiting) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  const std::uint32_t editor = WaitForPreload(2);
  Host().Ask("uninit");
  Host().Ask("init");
  EXPECT_EQ(WaitForPreload(3), launcher);
  EXPECT_EQ(WaitForPreload(4), editor);
  EXPECT_EQ(OpenAndWait().pid, launcher);
}

} // namespace
