#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace sdktest;

/// The SDK over a pipe library of hand-made tables, which stands where the host's folder comes first.
class PipeContract : public SdkTest {
protected:
  void StartHostOverTables() {
    KeepFolderBare();
    Folder().Add(L"testhost.exe");
    Folder().Add(L"fakepipe\\vpipearm64.dll");
    for (const wchar_t* const name : {L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
      Folder().Add(name, L"sdk\\");
    }
    StartHost({}, L"sdk\\vexelsdk.dll");
  }

  std::vector<std::string> Calls() { return ReadLines(Folder().Path() + L"fakepipe.log"); }
  bool HasCall(const std::string& line) {
    const std::vector<std::string> calls = Calls();
    return std::find(calls.begin(), calls.end(), line) != calls.end();
  }
};

TEST_F(PipeContract, ServerIsSetUpThroughItsSlotsInOrder) {
  StartHostOverTables();
  Host().Ask("init");
  WaitForPreload(2);
  EXPECT_EQ(Calls(), (std::vector<std::string>{
                         "create",
                         "server slot 1 processor=set",
                         "server slot 2 name=vexel_browser_PID processor=set",
                         "create",
                         "server slot 1 processor=set",
                         "server slot 2 name=vexel_browser_PID processor=set",
                     }));
}

TEST_F(PipeContract, ReceiverAnswersInEverySlot) {
  StartHostOverTables();
  const Opened opened = OpenAndWait();
  EXPECT_EQ(Host().WaitForEvent(opened.id, "from the table").text,
            R"({"type":"custom_message","param":"from the table"})");
  EXPECT_TRUE(HasCall("connect vexel_browser_editor_PID"));
  EXPECT_TRUE(HasCall("processor slot 3 is itself=yes"));
  EXPECT_TRUE(HasCall("processor slot 2 returned"));
  EXPECT_TRUE(HasCall("processor slot 4 leaves itself and null alone"));
  EXPECT_TRUE(HasCall("own processor slot 0 flag=1")) << "slot 4 destroys and frees another through its slot 0";
  EXPECT_TRUE(HasCall("processor slot 1 result=0"));
  EXPECT_FALSE(Folder().LogWith("WriteOperator respon=taken, last_error=").empty());
}

TEST_F(PipeContract, TeardownDisconnectsAndGivesTheServersBack) {
  StartHostOverTables();
  OpenAndWait();
  Host().Ask("uninit");
  std::vector<std::string> calls = Calls();
  EXPECT_TRUE(HasCall("disconnect known=1"));
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "release"), std::count(calls.begin(), calls.end(), "create"));
  EXPECT_FALSE(std::any_of(calls.begin(), calls.end(), [](const std::string& line) {
    return line.starts_with("server slot 0");
  })) << "the library destroys its own object";
}

} // namespace
