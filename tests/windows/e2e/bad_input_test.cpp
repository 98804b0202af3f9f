#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <string>
#include <vector>

namespace {

using namespace sdktest;

class BadInput : public SdkTest {
protected:
  /// Opens a picture with an editor that sends these texts, and waits for the last of them.
  Opened OpenWithEvents(const std::vector<std::string>& texts, const std::string& last) {
    std::string file;
    for (const std::string& text : texts) {
      file += text + "\n";
    }
    const std::wstring path = Folder().Path() + L"events.txt";
    WriteFileBytes(path, file);
    StartHostWithZoo(L"events=@" + path);
    const Opened opened = OpenAndWait();
    Host().WaitForEvent(opened.id, last);
    return opened;
  }

  /// The texts of the editor that have reached the callback as they are, the SDK's own left out.
  std::vector<std::string> EditorTexts(std::int32_t id) {
    std::vector<std::string> texts;
    for (const Event& event : Host().Events(id)) {
      if (!Contains(event.text, "open_pic_") && !Contains(event.text, "picture_")) {
        texts.push_back(event.text);
      }
    }
    return texts;
  }
};

TEST_F(BadInput, IdsThatWereNeverGivenAreTakenByEveryExport) {
  StartHost();
  for (const std::string id : {"0", "-1", "4711", "2147483647", "-2147483648"}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(Host().Ask("isclose " + id), 0);
    EXPECT_EQ(Host().Ask("operate " + id + " 1"), 1);
    EXPECT_EQ(Host().Ask("command " + id + " 1"), 1);
    Host().Do("fullscreen " + id + " 1");
    Host().Do("setpos " + id + " 1 2 3 4");
    Host().Do("callback " + id + " on");
    Host().Do("callback " + id + " off");
  }
  Host().Do("theme 1");
  EXPECT_EQ(OpenAndWait().id, 1);
  EXPECT_EQ(Received().size(), 1U);
}

TEST_F(BadInput, LongPathReachesTheEditorWhole) {
  StartHost();
  const std::wstring path = L"C:\\" + std::wstring(5000, L'p') + L".png";
  const std::int32_t id = Open(Host().Ask("window"), path);
  Host().WaitForEvent(id, kOpenSuccess);
  EXPECT_TRUE(Contains(WaitForReceived({"\"type\":\"open\""}), std::string(5000, 'p') + ".png\""));
}

TEST_F(BadInput, ParameterThatIsNoBase64OpensTheLauncher) {
  StartHost();
  for (const std::wstring param : {L"no base64!", L"=", L"QQ=", L"====", L"\u5C71\u5C71", L"QQ==QUJD"}) {
    const Opened opened = OpenAndWait(param);
    EXPECT_GT(opened.pid, 0U);
    EXPECT_TRUE(Contains(WaitForReceived({"\"id\":" + std::to_string(opened.id) + ",", "\"type\":\"open\""}),
                         "\"param\":\"" + Utf8(param) + "\""));
  }
  EXPECT_EQ(Folder().LogWith("nAppType=1, pName=webvexlaunch.exe").size(), 6U);
}

TEST_F(BadInput, WindowThatIsNoneIsServedAllTheSame) {
  StartHost();
  const std::int32_t id = Open(0x7FFFFFF0, Picture());
  Host().WaitForEvent(id, kOpenSuccess);
}

TEST_F(BadInput, EditorTextsOfAnyKindArriveUnchanged) {
  const std::vector<std::string> texts = {
      "[1,2]",
      "no json",
      "{\"type\":7}",
      "{\"type\":",
      "{\"type\":\"edit\",\"status\":\"yes\"}",
      "  { \"type\" : \"grüße\\u0041\" }  ",
      "\xFF\xFE not utf-8",
      "null",
      "\"end of the texts\"",
  };
  const Opened opened = OpenWithEvents(texts, "end of the texts");
  EXPECT_EQ(EditorTexts(opened.id), texts);
  EXPECT_EQ(Host().Ask("close 1"), 0) << "none of them was an unsaved change";
}

TEST_F(BadInput, DeepNestingArrivesUnchanged) {
  const std::string deep(100000, '[');
  const Opened opened = OpenWithEvents({deep, "\"end\""}, "\"end\"");
  EXPECT_TRUE(EditorTexts(opened.id) == (std::vector<std::string>{deep, "\"end\""}));
}

TEST_F(BadInput, DeepNestingThatIsWholeArrivesUnchanged) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  const Opened opened = OpenWithEvents({deep, "\"end\""}, "\"end\"");
  EXPECT_TRUE(EditorTexts(opened.id) == (std::vector<std::string>{deep, "\"end\""}));
}

TEST_F(BadInput, TextOfAMebibyteArrivesUnchanged) {
  const std::string big = "{\"type\":\"big\",\"data\":\"" + std::string(1U << 20U, 'x') + "\"}";
  const Opened opened = OpenWithEvents({big, "\"end\""}, "\"end\"");
  EXPECT_TRUE(EditorTexts(opened.id) == (std::vector<std::string>{big, "\"end\""}));
}

TEST_F(BadInput, ProbeTextIsDroppedWhereverTheWordStands) {
  const Opened opened = OpenWithEvents(
      {"{\"type\":\"testserver\"}", "{\"type\":\"custom_message\",\"param\":\"my testserver is fine\"}", "\"end\""},
      "\"end\"");
  EXPECT_EQ(EditorTexts(opened.id), std::vector<std::string>{"\"end\""});
}

TEST_F(BadInput, ExitWithoutAProcessIdIsNeitherForwardedNorBelieved) {
  const Opened opened = OpenWithEvents(
      {"{\"type\":\"process_exit\"}", "{\"type\":\"process_exit\",\"process_id\":\"x\"}", "\"end\""}, "\"end\"");
  EXPECT_EQ(EditorTexts(opened.id), std::vector<std::string>{"\"end\""});
  Kill(opened.pid);
  Host().WaitForEvent(1, kCrash);
}

TEST_F(BadInput, FloodOfEventsLosesNoneAndKeepsTheirOrder) {
  constexpr int kCount = 200;
  StartHostWithZoo(L"webvexlaunch.exe:flood=" + std::to_wstring(kCount));
  const Opened opened = OpenAndWait();
  Host().WaitForEvent(opened.id, "\"flood\"", kCount);
  int next = 0;
  for (const Event& event : Host().Events(opened.id)) {
    if (Contains(event.text, "\"flood\"")) {
      EXPECT_TRUE(event.IsParam(std::to_string(next))) << event.text;
      ++next;
    }
  }
  EXPECT_EQ(next, kCount);
}

TEST_F(BadInput, OversizedFileOfSavedIdsIsPassedOver) {
  StartHost();
  const std::string big = "[common]\r\npid=1\r\n" + std::string(3U << 20U, ';');
  WriteFileBytes(Folder().SavedPidsFile(), big);
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  EXPECT_EQ(OpenAndWait().pid, launcher);
  EXPECT_TRUE(ReadFileBytes(Folder().SavedPidsFile()) == big) << "what did not load is not written";
}

TEST_F(BadInput, GarbageInTheFileOfSavedIdsIsReplaced) {
  StartHost();
  WriteFileBytes(Folder().SavedPidsFile(), std::string("\0\xFF[common]\npid=abc\npreview_pid=-7", 32));
  Host().Ask("init");
  const std::uint32_t launcher = WaitForPreload(1);
  const std::uint32_t editor = WaitForPreload(2);
  const std::string saved = ReadFileBytes(Folder().SavedPidsFile());
  EXPECT_EQ(NumberAfter(saved, "preview_pid="), launcher);
  EXPECT_EQ(NumberAfter(saved, "\npid="), editor);
}

} // namespace
