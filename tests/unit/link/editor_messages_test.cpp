#include "vexelsdk/link/editor_messages.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace {

constexpr std::uint32_t kPid = 5120;
constexpr std::int32_t kId = 3;

SDK_OperatorData FullRecord(SDK_Operator op) {
  SDK_OperatorData record;
  record.m_op = op;
  record.m_pid = 999; // the record's own numbers never travel
  record.m_id = 888;
  record.m_type = 7;
  record.m_closeAll = true;
  record.m_recover = true;
  record.m_themeMode = 2;
  record.m_path = L"C:\\a.png";
  record.m_param = L"p";
  record.m_tabwnd = 132456;
  record.m_rect = {10, 20, 800, 600};
  return record;
}

struct WireRow {
  std::int32_t op;
  const char* text;
};

void PrintTo(const WireRow& row, std::ostream* out) { *out << "operator " << row.op; }

class OperatorMessage : public testing::TestWithParam<WireRow> {};

TEST_P(OperatorMessage, HasExactlyTheKeysOfItsRow) {
  const auto& [op, text] = GetParam();
  EXPECT_EQ(OperatorMessageText(kPid, kId, FullRecord(static_cast<SDK_Operator>(op))), text);
}

constexpr char kCommonOnly[] = R"({"id":3,"process_id":5120,"status":true})";

INSTANTIATE_TEST_SUITE_P(
    EachOperator, OperatorMessage,
    testing::Values(
        WireRow{0, kCommonOnly}, WireRow{1, R"({"id":3,"process_id":5120,"status":true,"type":"testserver"})"},
        WireRow{2, kCommonOnly},
        WireRow{3, R"({"id":3,"open_type":7,"param":"p","path":"C:\\a.png","process_id":5120,"recover":true,)"
                   R"("status":true,"tabwnd":132456,"type":"open"})"},
        WireRow{4, R"({"closeall":true,"id":3,"operator":7,"process_id":5120,"status":true,"type":"close"})"},
        WireRow{5, R"({"id":3,"isFullScreen":true,"process_id":5120,"status":true,"type":"fullscreen"})"},
        WireRow{6, kCommonOnly},
        WireRow{7, R"({"h":600,"id":3,"process_id":5120,"status":true,"type":"setpos","w":800,"x":10,"y":20})"},
        WireRow{8, R"({"id":3,"process_id":5120,"status":true,"type":"open"})"},
        WireRow{9, R"({"closeall":true,"id":3,"operator":7,"process_id":5120,"status":true,"type":"close"})"},
        WireRow{10, R"({"id":3,"isFullScreen":true,"process_id":5120,"status":true,"type":"fullscreen"})"},
        WireRow{11, R"({"id":3,"process_id":5120,"status":true,"type":"edit"})"},
        WireRow{12, R"({"id":3,"path":"C:\\a.png","process_id":5120,"status":true,"type":"saveas"})"},
        WireRow{13, R"({"id":3,"process_id":5120,"status":true,"type":"show_sidebar"})"},
        WireRow{14, R"({"id":3,"param":"p","process_id":5120,"status":true,"type":"run_error"})"},
        WireRow{15, R"({"id":3,"param":"p","process_id":5120,"status":true,"type":"custom_message"})"},
        WireRow{16, R"({"id":3,"operator":7,"process_id":5120,"status":true,"type":"operator"})"},
        WireRow{17, R"({"id":3,"operator":7,"process_id":5120,"status":true,"type":"finish_operator"})"},
        WireRow{18, R"({"id":3,"process_id":5120,"status":true,"type":"process_exit"})"},
        WireRow{19, R"({"id":3,"process_id":5120,"status":true,"type":"cancel_process_exit"})"},
        WireRow{20, R"({"id":3,"operator":7,"process_id":5120,"status":true,"type":"browser_command"})"},
        WireRow{21, kCommonOnly},
        WireRow{22, R"({"id":3,"process_id":5120,"status":true,"theme_mode":2,"type":"change_theme_mode"})"},
        WireRow{23, kCommonOnly}, WireRow{-1, kCommonOnly}),
    [](const auto& row) { return "Value" + std::to_string(static_cast<std::uint32_t>(row.param.op)); });

SDK_OperatorData OpenOf(const std::wstring& path) {
  SDK_OperatorData record;
  record.m_op = SDK_OPEN;
  record.m_path = path;
  return record;
}

TEST(OperatorMessages, CloseOfADefaultRecordAsksForNothingSpecial) {
  SDK_OperatorData record;
  record.m_op = SDK_CLOSE;
  EXPECT_EQ(OperatorMessageText(kPid, kId, record),
            R"({"closeall":false,"id":3,"operator":0,"process_id":5120,"status":true,"type":"close"})");
}

TEST(OperatorMessages, LeavingFullScreenSendsStatusFalseToo) {
  SDK_OperatorData record;
  record.m_op = SDK_FULLSCREEN;
  record.m_status = false;
  EXPECT_EQ(OperatorMessageText(kPid, kId, record),
            R"({"id":3,"isFullScreen":false,"process_id":5120,"status":false,"type":"fullscreen"})");
}

TEST(OperatorMessages, EmptyTextsKeepTheirKeys) {
  EXPECT_EQ(OperatorMessageText(kPid, 0, OpenOf(L"")),
            R"({"id":0,"open_type":0,"param":"","path":"","process_id":5120,"recover":false,"status":true,)"
            R"("tabwnd":0,"type":"open"})");
}

TEST(OperatorMessages, EmptyTextsOfTheOtherRowsKeepTheirKeysToo) {
  const struct {
    SDK_Operator op;
    const char* text;
  } rows[] = {
      {SDK_SAVEAS, R"({"id":3,"path":"","process_id":5120,"status":true,"type":"saveas"})"},
      {SDK_RUN_ERROR, R"({"id":3,"param":"","process_id":5120,"status":true,"type":"run_error"})"},
      {SDK_CUSTOM_MESSAGE, R"({"id":3,"param":"","process_id":5120,"status":true,"type":"custom_message"})"},
  };
  for (const auto& row : rows) {
    SDK_OperatorData record;
    record.m_op = row.op;
    EXPECT_EQ(OperatorMessageText(kPid, kId, record), row.text);
  }
}

TEST(OperatorMessages, NumbersKeepTheirSign) {
  SDK_OperatorData record = FullRecord(SDK_SETPOS);
  record.m_rect = {-10, -20, -2147483647 - 1, 2147483647};
  EXPECT_EQ(OperatorMessageText(kPid, -1, record),
            R"({"h":2147483647,"id":-1,"process_id":5120,"status":true,"type":"setpos","w":-2147483648,"x":-10,)"
            R"("y":-20})");
  record = FullRecord(SDK_OPERATE);
  record.m_type = -7;
  EXPECT_EQ(OperatorMessageText(kPid, kId, record),
            R"({"id":3,"operator":-7,"process_id":5120,"status":true,"type":"operator"})");
  record.m_op = SDK_CHANGE_THEME;
  record.m_themeMode = 1;
  EXPECT_EQ(OperatorMessageText(kPid, kId, record),
            R"({"id":3,"process_id":5120,"status":true,"theme_mode":1,"type":"change_theme_mode"})");
}

TEST(OperatorMessages, StatusIsThatOfTheRecordInEveryRow) {
  for (std::int32_t op = 0; op <= 23; ++op) {
    SDK_OperatorData record = FullRecord(static_cast<SDK_Operator>(op));
    record.m_status = false;
    const std::string text = OperatorMessageText(kPid, kId, record);
    EXPECT_NE(text.find("\"status\":false"), std::string::npos) << text;
    EXPECT_EQ(text.find("\"status\":true"), std::string::npos) << text;
  }
}

TEST(OperatorMessages, LettersOutsideAsciiStandAsUtf8) {
  const std::string text = OperatorMessageText(kPid, kId, OpenOf(L"C:\\\u00e4\u4e2d\"\n"));
  EXPECT_NE(text.find("\"path\":\"C:\\\\\xC3\xA4\xE4\xB8\xAD\\\"\\n\""), std::string::npos) << text;
}

TEST(OperatorMessages, LoneSurrogateBecomesTheReplacementCharacter) {
  std::wstring path = L"a?b";
  path[1] = static_cast<wchar_t>(0xD800);
  const std::string text = OperatorMessageText(kPid, kId, OpenOf(path));
  EXPECT_NE(text.find("\"path\":\"a\xEF\xBF\xBD"
                      "b\""),
            std::string::npos)
      << text;
}

TEST(OperatorMessages, WindowHandleTravelsAsASignedNumber) {
  SDK_OperatorData record = OpenOf(L"");
  record.m_tabwnd = ~std::uintptr_t{0};
  const std::string text = OperatorMessageText(kPid, kId, record);
  EXPECT_NE(text.find("\"tabwnd\":-1,"), std::string::npos) << text;
}

TEST(BrowserEvents, HaveFiveKeysAndStatusTrue) {
  EXPECT_EQ(BrowserEventText(3, 5120, "custom_message", "open_pic_success"),
            R"({"id":3,"param":"open_pic_success","process_id":5120,"status":true,"type":"custom_message"})");
  EXPECT_EQ(BrowserEventText(0, 0, "run_error", "crash"),
            R"({"id":0,"param":"crash","process_id":0,"status":true,"type":"run_error"})");
}

struct InboundRow {
  const char* text;
  EditorEvent event;
  int modified;           // -1: none
  std::int64_t exitedPid; // -1: none
};

void PrintTo(const InboundRow& row, std::ostream* out) {
  *out << testing::PrintToString(std::string(row.text)); // bytes that are no text become escapes
}

class EditorText : public testing::TestWithParam<InboundRow> {};

TEST_P(EditorText, MeansWhatItsKeysSay) {
  const auto& [text, event, modified, exitedPid] = GetParam();
  const EditorMessage message = ReadEditorMessage(text);
  EXPECT_EQ(message.event, event);
  EXPECT_EQ(message.modified.has_value() ? static_cast<int>(*message.modified) : -1, modified);
  EXPECT_EQ(message.exitedPid.has_value() ? std::int64_t{*message.exitedPid} : -1, exitedPid);
}

INSTANTIATE_TEST_SUITE_P(
    Each, EditorText,
    testing::Values(InboundRow{R"({"type":"edit","status":true})", EditorEvent::kEdit, 1, -1},
                    InboundRow{R"({"type":"edit","status":false})", EditorEvent::kEdit, 0, -1},
                    InboundRow{R"({"type":"edit","status":1})", EditorEvent::kEdit, -1, -1},
                    InboundRow{R"({"type":"edit"})", EditorEvent::kEdit, -1, -1},
                    InboundRow{R"({"type":"process_exit","process_id":77})", EditorEvent::kProcessExit, -1, 77},
                    InboundRow{R"({"type":"process_exit","process_id":"77"})", EditorEvent::kProcessExit, -1, -1},
                    InboundRow{R"({"type":"process_exit","process_id":1e300})", EditorEvent::kProcessExit, -1, -1},
                    InboundRow{R"({"type":"process_exit","process_id":true})", EditorEvent::kProcessExit, -1, -1},
                    InboundRow{R"({"type":"process_exit"})", EditorEvent::kProcessExit, -1, -1},
                    InboundRow{R"({"type":"cancel_process_exit"})", EditorEvent::kCancelProcessExit, -1, -1},
                    InboundRow{R"({"type":"finish_operator","status":true})", EditorEvent::kFinishOperator, -1, -1},
                    InboundRow{R"({"type":"other"})", EditorEvent::kOther, -1, -1},
                    InboundRow{R"({"type":"EDIT","status":true})", EditorEvent::kOther, -1, -1},
                    InboundRow{R"({"type":5})", EditorEvent::kOther, -1, -1},
                    InboundRow{R"({"status":true})", EditorEvent::kOther, -1, -1},
                    InboundRow{"[1,2]", EditorEvent::kOther, -1, -1}, InboundRow{"null", EditorEvent::kOther, -1, -1},
                    InboundRow{"\"edit\"", EditorEvent::kOther, -1, -1},
                    InboundRow{"not json", EditorEvent::kOther, -1, -1}, InboundRow{"", EditorEvent::kOther, -1, -1},
                    InboundRow{R"({"type":"edit","status":true} trailing)", EditorEvent::kOther, -1, -1},
                    InboundRow{R"(/* c */{"type":"edit","status":true})", EditorEvent::kOther, -1, -1},
                    InboundRow{"{\"type\":\"edit\",\"status\":true,\"x\":\"\xFF\"}", EditorEvent::kOther, -1, -1},
                    InboundRow{R"({"type":"edit","status":false,"status":true})", EditorEvent::kEdit, 1, -1}),
    [](const auto& row) { return "Row" + std::to_string(row.index); });

TEST(EditorTexts, DeepNestingIsReadWithoutHarm) {
  constexpr std::size_t kDepth = 100000;
  for (const char* const bracket : {"[", "{\"a\":"}) {
    std::string open;
    for (std::size_t i = 0; i < kDepth; ++i) {
      open += bracket;
    }
    EXPECT_EQ(ReadEditorMessage(open.c_str()).event, EditorEvent::kOther);
  }
  const std::string closed = std::string(kDepth, '[') + std::string(kDepth, ']');
  EXPECT_EQ(ReadEditorMessage(closed.c_str()).event, EditorEvent::kOther);
  const std::string inside = R"({"type":"edit","status":true,"x":)" + closed + "}";
  const EditorMessage message = ReadEditorMessage(inside.c_str());
  EXPECT_EQ(message.event, EditorEvent::kEdit);
  EXPECT_TRUE(message.modified.value_or(false));
}

TEST(EditorTexts, OfAMebibyteAreRead) {
  const std::string text = R"({"pad":")" + std::string(1 << 20, 'x') + R"(","type":"finish_operator"})";
  EXPECT_EQ(ReadEditorMessage(text.c_str()).event, EditorEvent::kFinishOperator);
}

} // namespace
