#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <string>

namespace {

using namespace sdktest;

class HostHazards : public SdkTest {
protected:
  void Reload() {
    EXPECT_EQ(Host().Ask("unload"), 1);
    EXPECT_EQ(Host().Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  }
};

TEST_F(HostHazards, LoadAndUnloadWithATeardown) {
  StartHost();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Host().Ask("init"), 1);
    EXPECT_EQ(Host().Ask("uninit"), 1);
    Reload();
  }
  EXPECT_EQ(OpenAndWait().id, 1);
}

TEST_F(HostHazards, LoadAndUnloadWithoutATeardown) {
  StartHost();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Host().Ask("init"), 1);
    Reload();
  }
  EXPECT_EQ(OpenAndWait().id, 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, UnloadWithoutATeardownKeepsTheEngineAtWork) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture());
  EXPECT_EQ(Host().Ask("unload"), 1);
  Host().WaitForEvent(id, kOpenSuccess);
}

TEST_F(HostHazards, ExitWithoutATeardownIsClean) {
  StartHost();
  const Opened opened = OpenAndWait();
  Host().Begin("quit 0");
  EXPECT_EQ(Host().WaitForExit(), 0U);
  EXPECT_TRUE(IsRunning(opened.pid)) << "editors are not told";
}

TEST_F(HostHazards, ExitInTheMidstOfAConnectIsClean) {
  StartHostWithZoo(L"never_serve");
  Host().WaitForEvent(Open(Host().Ask("window"), Picture()), kProcessSuccess);
  WaitForLog("ConnectServer try failure.");
  Host().Begin("quit 0");
  EXPECT_EQ(Host().WaitForExit(), 0U);
}

TEST_F(HostHazards, CallbackThatThrowsHarmsNobody) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "throw");
  Host().WaitForEvent(id, kOpenSuccess);
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  Host().WaitForEvent(id, "\"edit\"");
  Host().WaitForEvent(id, kOpenSuccess, 2);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, CallbackMayCallExports) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "calls");
  EXPECT_EQ(Host().WaitForNote("note calls"), "note calls fits=1 closed=0 operated=1 valid=1");
  WaitForReceived({"\"type\":\"setpos\"", "\"w\":30"});
  WaitForReceived({"\"type\":\"change_theme_mode\""});
  Host().WaitForEvent(id, kOpenSuccess, 5);
}

TEST_F(HostHazards, CallbackThatBlocksHoldsUpNoCall) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "block");
  Host().WaitForEvent(id, kProcessSuccess);
  EXPECT_EQ(Host().Ask("operate 1 1"), 1);
  const std::int32_t behind = Open(Host().Ask("window"), Picture());
  EXPECT_EQ(behind, 2);
  EXPECT_TRUE(Host().Events(behind).empty());
  Host().Do("unblock");
  Host().WaitForEvent(behind, kOpenSuccess);
}

TEST_F(HostHazards, BuffersMayBeGivenBackLater) {
  StartHost();
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "hold");
  Host().WaitForEvent(id, kOpenSuccess);
  Host().WaitForEvent(id, "picture_");
  Host().Ask("uninit");
  const std::string counts = std::to_string(Host().Events().size());
  EXPECT_EQ(Host().Do("release"), "value " + counts + " " + counts);
}

TEST_F(HostHazards, TeardownFromWithinTheCallbackReturns) {
  QuietLog(); // so that an id without a link can be closed
  StartHost();
  Host().Ask("close 500");
  ASSERT_EQ(Host().Ask("isclose 500"), 1);
  const std::int32_t id = Open(Host().Ask("window"), Picture(), L"", "uninit");
  Host().WaitForEvent(id, kProcessSuccess);
  EXPECT_EQ(Host().WaitForNote("note uninit"), "note uninit=1");
  // The engine goes down behind the call. The next one knows nothing of the id.
  EXPECT_TRUE(WaitFor([&] { return Host().Ask("isclose 500") == 0; }));
  EXPECT_EQ(OpenAndWait().id, 1);
  EXPECT_EQ(Host().Ask("uninit"), 1);
}

TEST_F(HostHazards, SecondHostWorksBesideTheFirst) {
  StartHost();
  const Opened first = OpenAndWait();
  HostProcess other(Folder());
  EXPECT_EQ(other.Ask("load " + wire::Encode(Folder().Path() + L"vexelsdk.dll")), 16);
  const std::int64_t id =
      other.Ask("open " + std::to_string(other.Ask("window")) + " " + wire::Encode(Picture()) + " 0 @null on");
  other.WaitForEvent(static_cast<std::int32_t>(id), kOpenSuccess);
  EXPECT_EQ(Host().Ask("operate 1 6"), 1);
  Host().WaitForEvent(first.id, kOpenSuccess, 2);
}

} // namespace
