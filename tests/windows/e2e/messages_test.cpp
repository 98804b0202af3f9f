#include "tests/windows/host/wire.h"
#include "tests/windows/sdk/sdk_test.h"
#include "tests/windows/sdk/text.h"

#include <string>

namespace {

using namespace sdktest;

class Messages : public SdkTest {
protected:
  /// Opens with nothing to show, and gives the text that the editor received for it.
  std::string OpenedText(const std::wstring& path, const std::wstring& param = L"", std::int32_t openType = 0) {
    m_window = Host().Ask("window");
    const std::int64_t id = Host().Ask("open " + std::to_string(m_window) + " " + wire::Encode(path) + " " +
                                       std::to_string(openType) + " " + wire::Encode(param) + " on");
    m_id = std::to_string(id);
    const Event bound = Host().WaitForEvent(static_cast<std::int32_t>(id), kProcessSuccess);
    m_pid = std::to_string(NumberAfter(bound.text, "\"process_id\":"));
    Host().WaitForEvent(static_cast<std::int32_t>(id), kOpenSuccess);
    return WaitForReceived({"\"id\":" + m_id + ",", "\"type\":\"open\""});
  }

  std::int64_t m_window = 0;
  std::string m_id;
  std::string m_pid;
};

TEST_F(Messages, OpenCarriesEverythingInOrderOfKeys) {
  StartHost();
  const std::string text = OpenedText(L"C:\\pics\\a.png", L"", 7);
  EXPECT_EQ(text, R"({"id":1,"open_type":7,"param":"","path":"C:\\pics\\a.png","process_id":)" + m_pid +
                      R"(,"recover":false,"status":true,"tabwnd":)" + std::to_string(m_window) + R"(,"type":"open"})");
}

TEST_F(Messages, OpenWithANullParameterSendsAnEmptyOne) {
  StartHost();
  const std::int64_t window = Host().Ask("window");
  EXPECT_EQ(Host().Ask("open " + std::to_string(window) + " a.png -3 @null on"), 1);
  const std::string text = WaitForReceived({"\"type\":\"open\""});
  EXPECT_TRUE(Contains(text, R"("open_type":-3,"param":"","path":"a.png")")) << text;
}

TEST_F(Messages, NonAsciiPathStandsAsUtf8) {
  StartHost();
  const std::wstring path = L"D:\\gr\u00FC\u00DFe\\\u5C71\\\U0001F305.png";
  EXPECT_TRUE(Contains(OpenedText(path), R"("path":"D:\\grüße\\山\\🌅.png")"));
}

TEST_F(Messages, QuotesAndControlsInAPathAreEscaped) {
  StartHost();
  EXPECT_TRUE(Contains(OpenedText(L"a\"b\\c\td\x1F/e"), R"("path":"a\"b\\c\td\u001f/e")"));
}

TEST_F(Messages, LoneSurrogatesBecomeReplacementCharacters) {
  StartHost();
  const std::wstring path{L'a', static_cast<wchar_t>(0xD83D), L'b', static_cast<wchar_t>(0xDC00), L'c'};
  const std::string text = OpenedText(path);
  EXPECT_TRUE(Contains(text, "\"path\":\"a\xEF\xBF\xBD"
                             "b\xEF\xBF\xBD"
                             "c\""))
      << text;
}

TEST_F(Messages, ParameterTravelsAsItCame) {
  StartHost();
  const std::wstring param = Base64("/apptype:1 /other:x");
  EXPECT_TRUE(Contains(OpenedText(Picture(), param), "\"param\":\"" + Utf8(param) + "\""));
}

TEST_F(Messages, PicParamTakesTheParametersPlace) {
  StartHost();
  const std::wstring inner = Base64("/apptype:2");
  const std::string text = OpenedText(Picture(), Base64("/pic_param:" + Utf8(inner)));
  EXPECT_TRUE(Contains(text, "\"param\":\"" + Utf8(inner) + "\"")) << text;
  EXPECT_FALSE(Folder().LogWith("nAppType=2, pName=vxpixeleditor.exe").empty());
}

TEST_F(Messages, OuterApplicationTypeBeatsTheInnerOne) {
  StartHost();
  const std::wstring inner = Base64("/apptype:2");
  OpenedText(Picture(), Base64("/apptype:1 /pic_param:" + Utf8(inner)));
  EXPECT_FALSE(Folder().LogWith("nAppType=1, pName=webvexlaunch.exe").empty());
}

TEST_F(Messages, SetPosCarriesTheFourNumbers) {
  StartHost();
  OpenedText(Picture());
  Host().Do("setpos 1 10 -20 800 600");
  EXPECT_EQ(WaitForReceived({"setpos"}),
            R"({"h":600,"id":1,"process_id":)" + m_pid + R"(,"status":true,"type":"setpos","w":800,"x":10,"y":-20})");
}

TEST_F(Messages, FullScreenCarriesItsArgumentTwice) {
  StartHost();
  OpenedText(Picture());
  Host().Do("fullscreen 1 1");
  EXPECT_EQ(WaitForReceived({"fullscreen", "true"}),
            R"({"id":1,"isFullScreen":true,"process_id":)" + m_pid + R"(,"status":true,"type":"fullscreen"})");
  Host().Do("fullscreen 1 0");
  EXPECT_EQ(WaitForReceived({"fullscreen", "false"}),
            R"({"id":1,"isFullScreen":false,"process_id":)" + m_pid + R"(,"status":false,"type":"fullscreen"})");
}

TEST_F(Messages, ThemeGoesToEveryEditor) {
  StartHost();
  OpenAndWait();
  OpenedText(Picture());
  Host().Do("theme 1");
  EXPECT_EQ(WaitForReceived({"change_theme_mode", "\"id\":2"}),
            R"({"id":2,"process_id":)" + m_pid + R"(,"status":true,"theme_mode":2,"type":"change_theme_mode"})");
  WaitForReceived({"change_theme_mode", "\"id\":1"});
  Host().Do("theme 0");
  WaitForReceived({"change_theme_mode", "\"id\":1", "\"theme_mode\":1"});
  WaitForReceived({"change_theme_mode", "\"id\":2", "\"theme_mode\":1"});
}

TEST_F(Messages, ThemeBeforeAnyOpenReachesNobody) {
  StartHost();
  Host().Ask("init");
  WaitForPreload(2);
  Host().Do("theme 1");
  OpenedText(Picture()); // behind it in the queue
  EXPECT_EQ(Received().size(), 1U);
}

TEST_F(Messages, OperationAndCommandCarryTheirCode) {
  StartHost();
  OpenedText(Picture());
  EXPECT_EQ(Host().Ask("operate 1 -2147483648"), 1);
  EXPECT_EQ(Host().Ask("command 1 2147483647"), 1);
  EXPECT_EQ(WaitForReceived({"\"operator\":-"}),
            R"({"id":1,"operator":-2147483648,"process_id":)" + m_pid + R"(,"status":true,"type":"operator"})");
  EXPECT_EQ(WaitForReceived({"browser_command"}),
            R"({"id":1,"operator":2147483647,"process_id":)" + m_pid + R"(,"status":true,"type":"browser_command"})");
}

TEST_F(Messages, CloseCarriesWhetherAllIsClosed) {
  StartHost();
  OpenedText(Picture());
  EXPECT_EQ(Host().Ask("close 1 1"), 0);
  EXPECT_EQ(WaitForReceived({"\"type\":\"close\""}),
            R"({"closeall":true,"id":1,"operator":0,"process_id":)" + m_pid + R"(,"status":true,"type":"close"})");
}

TEST_F(Messages, OperationsArriveInTheOrderOfTheCalls) {
  StartHost();
  OpenedText(Picture());
  for (int code = 100; code < 130; ++code) {
    Host().Do("command 1 " + std::to_string(code));
  }
  WaitForReceived({"\"operator\":129,"});
  int next = 100;
  for (const std::string& text : Received()) {
    if (Contains(text, "browser_command")) {
      EXPECT_EQ(NumberAfter(text, "\"operator\":"), next);
      ++next;
    }
  }
  EXPECT_EQ(next, 130);
}

} // namespace
