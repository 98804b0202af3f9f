// Whoever may open an editor's event pipe can write to it: bytes that are no frames, and texts that the editor never sent.

#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/raw_pipe.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace sdktest;

class ForeignSender : public SdkTest {
protected:
  /// What the editor itself sends still arrives.
  void ExpectLinkIsWhole(const Opened& opened, std::size_t edits) {
    EXPECT_EQ(Host().Ask("operate " + std::to_string(opened.id) + (edits % 2 == 1 ? " 1" : " 7")), 1);
    Host().WaitForEvent(opened.id, "\"edit\"", edits);
  }
};

TEST_F(ForeignSender, BadFrameClosesItsOwnConnectionOnly) {
  StartHost();
  const Opened opened = OpenAndWait();
  std::size_t edits = 0;
  const std::vector<std::string> bad{
      std::string(4, '\0'),           // of length zero
      std::string("\x01\0\0\x01", 4), // a byte too long
      "\xFF\xFF\xFF\xFF",             // as long as can be said
      std::string("\x03\0\0\0a\0b", 7),
  };
  for (const std::string& bytes : bad) {
    SCOPED_TRACE(::testing::PrintToString(bytes));
    RawEventPipe pipe(opened.pid);
    EXPECT_TRUE(pipe.Write(Frame("\"before\"") + bytes));
    EXPECT_TRUE(pipe.WaitUntilClosed());
    ExpectLinkIsWhole(opened, ++edits);
    Host().WaitForEvent(opened.id, "\"before\"", edits);
  }
}

TEST_F(ForeignSender, FrameThatIsCutShortIsNoText) {
  StartHost();
  const Opened opened = OpenAndWait();
  {
    RawEventPipe pipe(opened.pid);
    EXPECT_TRUE(pipe.Write(Frame("\"whole\"") + Frame("\"cut short\"").substr(0, 9)));
  }
  Host().WaitForEvent(opened.id, "\"whole\"");
  ExpectLinkIsWhole(opened, 1);
  EXPECT_EQ(Host().CountEvents(opened.id, "cut"), 0U);
}

TEST_F(ForeignSender, FrameThatNeverEndsHoldsNothingUp) {
  StartHost();
  const Opened opened = OpenAndWait();
  std::vector<std::unique_ptr<RawEventPipe>> pipes;
  for (int i = 0; i < 8; ++i) {
    pipes.push_back(std::make_unique<RawEventPipe>(opened.pid));
    EXPECT_TRUE(pipes.back()->Write(Frame(std::string(1000, 'x')).substr(0, 500)));
    ExpectLinkIsWhole(opened, static_cast<std::size_t>(i) + 1);
  }
  EXPECT_EQ(Host().Ask("uninit"), 1);
  for (const auto& pipe : pipes) {
    EXPECT_TRUE(pipe->WaitUntilClosed());
  }
}

TEST_F(ForeignSender, FinishFromAProcessWithoutAnIdEndsThePreloading) {
  StartHost();
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  WaitForPreload(2);
  EXPECT_EQ(Host().Ask("isclose 0"), 0);
  RawEventPipe pipe(launcher);
  EXPECT_TRUE(pipe.Write(Frame(R"({"type":"finish_operator"})")));
  EXPECT_TRUE(WaitFor([&] { return Host().Ask("isclose 0") == 1; }));
  const std::size_t preloads = Folder().LogWith("data.m_op = SDK_PreLoadProcess").size();
  // What waits is still taken; nothing takes its place, and opens start processes of their own.
  EXPECT_EQ(OpenAndWait().pid, launcher);
  const Opened second = OpenAndWait();
  EXPECT_NE(second.pid, launcher);
  OpenAndWait();
  EXPECT_EQ(Folder().LogWith("data.m_op = SDK_PreLoadProcess").size(), preloads);
  EXPECT_EQ(Folder().LogWith("done. pid=").size(), 2U);
  EXPECT_TRUE(IsRunning(second.pid));
}

} // namespace
