#include "public/vexelsdk/open_param.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;

// The text that decodes to these bytes.
std::wstring Encode(std::string_view bytes) {
  static constexpr std::wstring_view kDigits = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::wstring text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += at + i > bytes.size() ? L'=' : kDigits[group >> (18 - 6 * i) & 63u];
    }
  }
  return text;
}

std::string Ascii(const std::wstring& text) {
  std::string bytes;
  for (const wchar_t unit : text) {
    bytes += static_cast<char>(unit);
  }
  return bytes;
}

struct Decoded {
  std::int32_t appType;
  std::wstring param;
};

Decoded Decode(std::wstring param) {
  const std::int32_t appType = DecodeOpenParam(param);
  return {appType, param};
}

TEST(OpenParam, ReadsKnownBase64) {
  const Decoded decoded = Decode(L"L2FwcHR5cGU6Mg==");
  EXPECT_EQ(decoded.appType, 2);
  EXPECT_EQ(decoded.param, L"L2FwcHR5cGU6Mg==");
}

TEST(OpenParam, WithoutAnAppTypeItIsOne) {
  EXPECT_EQ(Decode(L"").appType, 1);
  EXPECT_EQ(Decode(Encode("/other:5")).appType, 1);
  EXPECT_EQ(Decode(Encode("apptype:2")).appType, 1);
}

TEST(OpenParam, AppTypeIsReadAsADecimalNumber) {
  const struct {
    const char* text;
    std::int32_t appType;
  } rows[] = {
      {"/apptype:1", 1},
      {"/apptype:2", 2},
      {"-AppType:2", 2},
      {"/apptype:\" 2\"", 2},
      {"/apptype:+2", 2},
      {"/apptype:2x", 2},
      {"/apptype:x2", 0},
      {"/apptype:0x2", 0},
      {"/apptype", 0},
      {"/apptype:", 0},
      {"/apptype:-7", -7},
      {"/apptype:2 /apptype:1", 2},
      {"/apptype:2147483647", std::numeric_limits<std::int32_t>::max()},
      {"/apptype:2147483648", std::numeric_limits<std::int32_t>::max()},
      {"/apptype:4294967298", std::numeric_limits<std::int32_t>::max()},
      {"/apptype:99999999999999999999999999", std::numeric_limits<std::int32_t>::max()},
      {"/apptype:-99999999999999999999999999", std::numeric_limits<std::int32_t>::min()},
  };
  for (const auto& row : rows) {
    const std::wstring param = Encode(row.text);
    const Decoded decoded = Decode(param);
    EXPECT_EQ(decoded.appType, row.appType) << row.text;
    EXPECT_EQ(decoded.param, param) << row.text;
  }
}

TEST(OpenParam, BadBase64CountsAsNoSwitches) {
  for (const wchar_t* bad : {L"/apptype:2", L"L2FwcHR5cGU6Mg=", L"L2FwcHR5cGU6Mg", L"!", L"\u4e2d\u6587", L"===="}) {
    const Decoded decoded = Decode(bad);
    EXPECT_EQ(decoded.appType, 1);
    EXPECT_EQ(decoded.param, bad);
  }
}

TEST(OpenParam, TheTextEndsAtItsFirstNul) {
  EXPECT_EQ(Decode(Encode("/apptype:2\0 /apptype:1"sv)).appType, 2);
  EXPECT_EQ(Decode(Encode("\0/apptype:2"sv)).appType, 1);
  EXPECT_EQ(Decode(Encode("/apptype:2\0"sv)).appType, 2);
}

TEST(OpenParam, PicParamReplacesTheParameter) {
  const std::wstring inner = Encode("/apptype:2 /mode:x");
  const Decoded decoded = Decode(Encode("/pic_param:" + Ascii(inner)));
  EXPECT_EQ(decoded.param, inner);
  EXPECT_EQ(decoded.appType, 2);
}

TEST(OpenParam, TheOuterTextBeatsTheInnerOne) {
  const std::wstring inner = Encode("/apptype:2");
  const Decoded decoded = Decode(Encode("/apptype:7 /pic_param:" + Ascii(inner)));
  EXPECT_EQ(decoded.param, inner);
  EXPECT_EQ(decoded.appType, 7);
}

TEST(OpenParam, AnInnerPicParamIsNotFollowed) {
  const std::wstring innermost = Encode("/apptype:9");
  const std::wstring inner = Encode("/pic_param:" + Ascii(innermost));
  const Decoded decoded = Decode(Encode("/pic_param:" + Ascii(inner)));
  EXPECT_EQ(decoded.param, inner);
  EXPECT_EQ(decoded.appType, 1);
}

TEST(OpenParam, PicParamMayBeQuoted) {
  const std::wstring inner = Encode("/apptype:2");
  const Decoded decoded = Decode(Encode("-PIC_PARAM:\"" + Ascii(inner) + "\" -x"));
  EXPECT_EQ(decoded.param, inner);
  EXPECT_EQ(decoded.appType, 2);
}

TEST(OpenParam, AnEmptyPicParamEmptiesTheParameter) {
  EXPECT_EQ(Decode(Encode("/pic_param")).param, L"");
  const Decoded decoded = Decode(Encode("/pic_param: /apptype:2"));
  EXPECT_EQ(decoded.param, L"");
  EXPECT_EQ(decoded.appType, 2);
}

TEST(OpenParam, ABadPicParamStillReplacesTheParameter) {
  const Decoded decoded = Decode(Encode("/pic_param:abc /apptype:2"));
  EXPECT_EQ(decoded.param, L"abc");
  EXPECT_EQ(decoded.appType, 2);
}

TEST(OpenParam, AnUnclosedQuoteSwallowsTheInnerSwitches) {
  // The inner text comes behind the outer one, so the open value of the outer text runs on into it.
  const Decoded decoded = Decode(Encode("/pic_param:" + Ascii(Encode("/apptype:2")) + " /title:\"a"));
  EXPECT_EQ(decoded.param, Encode("/apptype:2"));
  EXPECT_EQ(decoded.appType, 1);
}

TEST(OpenParam, ValuesAreUtf8) {
  const Decoded decoded = Decode(Encode("/pic_param:\xE4\xB8\xAD\xE6\x96\x87"));
  EXPECT_EQ(decoded.param, L"\u4e2d\u6587");
  EXPECT_EQ(Decode(Encode("\xFF\xFE /apptype:2")).appType, 2);
}

} // namespace
