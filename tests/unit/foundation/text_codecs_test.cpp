#include "foundation/text_codecs.h"

#include "platform/error.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <ostream>
#include <string>

namespace {

constexpr std::uint32_t kUtf8 = platform::kCodePageUtf8;
constexpr std::uint32_t kNoSuchCodePage = 12345;
constexpr wchar_t kHighSurrogate = 0xD83D;
constexpr wchar_t kLowSurrogate = 0xDE00;

struct Pair {
  const char* name;
  std::wstring wide;
  std::string narrow;
};

void PrintTo(const Pair& row, std::ostream* out) { *out << row.name; }

class Utf8Text : public testing::TestWithParam<Pair> {};

TEST_P(Utf8Text, GoesThereAndBack) {
  EXPECT_EQ(vx::WideToUtf8(GetParam().wide), GetParam().narrow);
  EXPECT_EQ(vx::WideToMultiByte(GetParam().wide, kUtf8), GetParam().narrow);
  EXPECT_EQ(vx::MultiByteToWide(GetParam().narrow, kUtf8), GetParam().wide);
}

INSTANTIATE_TEST_SUITE_P(TextCodecs, Utf8Text,
                         testing::Values(Pair{"Empty", L"", ""}, Pair{"Ascii", L"picture.png", "picture.png"},
                                         Pair{"TwoBytes", L"\u00E9\u00DF", "\xC3\xA9\xC3\x9F"},
                                         Pair{"ThreeBytes", L"\u56FE\u7247", "\xE5\x9B\xBE\xE7\x89\x87"},
                                         Pair{"SurrogatePair", std::wstring{kHighSurrogate, kLowSurrogate},
                                              "\xF0\x9F\x98\x80"},
                                         Pair{"NulInside", std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
                                         Pair{"Long", std::wstring(100000, L'\u20AC'),
                                              [] {
                                                std::string text;
                                                for (int i = 0; i < 100000; ++i) {
                                                  text += "\xE2\x82\xAC";
                                                }
                                                return text;
                                              }()}),
                         [](const auto& entry) { return std::string(entry.param.name); });

TEST(TextCodecs, BadUtf8BecomesTheReplacementCharacter) {
  EXPECT_EQ(vx::MultiByteToWide("a\xFF"
                                "b",
                                kUtf8),
            L"a\uFFFDb");
  EXPECT_NE(vx::MultiByteToWide("\xC3", kUtf8).find(L'\uFFFD'), std::wstring::npos);
}

TEST(TextCodecs, ALoneSurrogateBecomesTheReplacementCharacter) {
  EXPECT_EQ(vx::WideToUtf8(std::wstring{L'a', kHighSurrogate, L'b'}), "a\xEF\xBF\xBD"
                                                                      "b");
}

TEST(TextCodecs, AnUnknownCodePageGivesNothing) {
  EXPECT_EQ(vx::WideToMultiByte(L"text", kNoSuchCodePage), "");
  EXPECT_EQ(vx::MultiByteToWide("text", kNoSuchCodePage), L"");
}

TEST(TextCodecs, AnEmptyTextLeavesTheLastErrorAlone) {
  platform::SetLastError(4711);
  EXPECT_EQ(vx::WideToUtf8(L""), "");
  EXPECT_EQ(vx::MultiByteToWide("", kUtf8), L"");
  EXPECT_EQ(platform::GetLastError(), 4711u);
}

TEST(NarrowText, StopsAtTheFirstNul) {
  const vx::NarrowText text(L"abc\0def", kUtf8);
  EXPECT_STREQ(text.Get(), "abc");
  EXPECT_EQ(text.Length(), 3u);
}

TEST(NarrowText, NullGivesNull) {
  const vx::NarrowText text(nullptr, kUtf8);
  EXPECT_EQ(text.Get(), nullptr);
  EXPECT_EQ(text.Length(), 0u);
}

TEST(NarrowText, EveryLengthAroundTheInlineRoomComesOutWhole) {
  for (std::size_t length = 0; length < 200; ++length) {
    const vx::NarrowText text(std::wstring(length, L'\u20AC').c_str(), kUtf8);
    ASSERT_EQ(text.Length(), length * 3);
    ASSERT_EQ(std::string(text.Get()), vx::WideToUtf8(std::wstring(length, L'\u20AC')));
  }
}

TEST(NarrowText, AnUnknownCodePageThrows) { EXPECT_THROW(vx::NarrowText(L"a", kNoSuchCodePage), vx::TextError); }

TEST(WideText, StopsAtTheFirstNul) {
  const vx::WideText text("abc\0def", kUtf8);
  EXPECT_EQ(std::wstring(text.Get()), L"abc");
  EXPECT_EQ(text.Length(), 3u);
}

TEST(WideText, NullGivesNull) {
  const vx::WideText text(nullptr, kUtf8);
  EXPECT_EQ(text.Get(), nullptr);
  EXPECT_EQ(text.Length(), 0u);
}

TEST(WideText, EveryLengthAroundTheInlineRoomComesOutWhole) {
  for (std::size_t length = 0; length < 300; ++length) {
    const vx::WideText text(std::string(length, 'x').c_str(), kUtf8);
    ASSERT_EQ(std::wstring(text.Get()), std::wstring(length, L'x'));
    ASSERT_EQ(text.Length(), length);
  }
}

TEST(WideText, AnUnknownCodePageThrows) { EXPECT_THROW(vx::WideText("a", kNoSuchCodePage), vx::TextError); }

TEST(ToLower, FoldsAsciiAndKeepsTheRest) {
  std::wstring text = L"AbC-XyZ_019[]@`{\t";
  vx::ToLower(text);
  EXPECT_EQ(text, L"abc-xyz_019[]@`{\t");
  std::wstring others = {kHighSurrogate, kLowSurrogate, L'\uFFFF', L'\0', L'A'};
  vx::ToLower(others);
  EXPECT_EQ(others, (std::wstring{kHighSurrogate, kLowSurrogate, L'\uFFFF', L'\0', L'a'}));
}

TEST(EqualsIgnoreCase, ComparesLengthsAndFoldedUnits) {
  EXPECT_TRUE(vx::EqualsIgnoreCase(L"", L""));
  EXPECT_TRUE(vx::EqualsIgnoreCase(L"C:\\APPS\\editor.EXE", L"c:\\apps\\EDITOR.exe"));
  EXPECT_FALSE(vx::EqualsIgnoreCase(L"editor", L"editors"));
  EXPECT_FALSE(vx::EqualsIgnoreCase(L"editor", L"edit0r"));
  EXPECT_FALSE(vx::EqualsIgnoreCase(L"@", L"`"));
}

struct Number {
  const wchar_t* text;
  std::int32_t value;
};

TEST(DecimalToInt, ReadsTheNumberAtTheStart) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  for (const Number& number : {Number{L"0", 0},
                               Number{L"12", 12},
                               Number{L"-12", -12},
                               Number{L"+7", 7},
                               Number{L" \t\n\v\f\r42", 42},
                               Number{L"12abc", 12},
                               Number{L"abc", 0},
                               Number{L"", 0},
                               Number{L"-", 0},
                               Number{L"+-3", 0},
                               Number{L"- 3", 0},
                               Number{L"007", 7},
                               Number{L"0x10", 0},
                               Number{L"1 2", 1},
                               Number{L"2147483647", kMost},
                               Number{L"2147483648", kMost},
                               Number{L"99999999999999999999999999", kMost},
                               Number{L"-2147483647", -kMost},
                               Number{L"-2147483648", kLeast},
                               Number{L"-2147483649", kLeast},
                               Number{L"-99999999999999999999999999", kLeast},
                               Number{L"00000000000000000000000005", 5},
                               Number{nullptr, 0}}) {
    EXPECT_EQ(vx::DecimalToInt(number.text), number.value)
        << (number.text == nullptr ? "null" : vx::WideToUtf8(number.text));
  }
}

} // namespace
