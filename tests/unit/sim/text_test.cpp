#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

class SimText : public testing::Test {
protected:
  static std::string ToBytes(const std::wstring& text, std::uint32_t codePage = kCodePageUtf8) {
    std::string bytes(64, '#');
    const int count = WideCharToMultiByte(codePage, text.data(), static_cast<int>(text.size()), bytes.data(), 64);
    EXPECT_EQ(WideCharToMultiByte(codePage, text.data(), static_cast<int>(text.size()), nullptr, 0), count);
    return bytes.substr(0, static_cast<std::size_t>(count));
  }
  static std::wstring ToWide(const std::string& bytes, std::uint32_t codePage = kCodePageUtf8) {
    std::wstring text(64, L'#');
    const int count = MultiByteToWideChar(codePage, bytes.data(), static_cast<int>(bytes.size()), text.data(), 64);
    EXPECT_EQ(MultiByteToWideChar(codePage, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0), count);
    return text.substr(0, static_cast<std::size_t>(count));
  }

  sim::World m_world;
};

TEST_F(SimText, EachLengthOfUtf8GoesBothWays) {
  const std::string bytes = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80";
  const std::wstring text = {L'a', 0xE9, 0x4E2D, 0xD83D, 0xDE00};
  EXPECT_EQ(ToBytes(text), bytes);
  EXPECT_EQ(ToWide(bytes), text);
}

TEST_F(SimText, ALoneSurrogateBecomesTheReplacement) {
  EXPECT_EQ(ToBytes({L'a', 0xD83D, L'b'}), "a\xEF\xBF\xBD"
                                           "b");
  EXPECT_EQ(ToBytes({0xDE00}), "\xEF\xBF\xBD");
  EXPECT_EQ(ToBytes({0xDE00, 0xD83D}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(SimText, EachBadPieceBecomesOneReplacement) {
  const std::wstring bad = {0xFFFD};
  EXPECT_EQ(ToWide("\x80"), bad);
  EXPECT_EQ(ToWide("\xC3"), bad);
  EXPECT_EQ(ToWide("\xC0\xAF"), bad + bad);           // an overlong form
  EXPECT_EQ(ToWide("\xED\xA0\x80"), bad + bad + bad); // a surrogate
  EXPECT_EQ(ToWide("\xF0\x9F\x98"
                   "a"),
            bad + L"a"); // cut off
  EXPECT_EQ(ToWide("\xF4\x90\x80\x80"), bad + bad + bad + bad);
  EXPECT_EQ(ToWide("\xFF"
                   "a"),
            bad + L"a");
}

TEST_F(SimText, NulsPassThroughAndALengthOfMinusOneTakesTheTerminator) {
  EXPECT_EQ(ToBytes(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
  char bytes[8];
  EXPECT_EQ(WideCharToMultiByte(kCodePageUtf8, L"ab", -1, bytes, 8), 3);
  EXPECT_STREQ(bytes, "ab");
  wchar_t text[8];
  EXPECT_EQ(MultiByteToWideChar(kCodePageUtf8, "ab", -1, text, 8), 3);
  EXPECT_STREQ(text, L"ab");
}

TEST_F(SimText, TooSmallABufferGives122) {
  char bytes[2];
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(kCodePageUtf8, L"abc", 3, bytes, 2), 0);
  EXPECT_EQ(GetLastError(), 122u);
  wchar_t text[2];
  SetLastError(0);
  EXPECT_EQ(MultiByteToWideChar(kCodePageUtf8, "abc", 3, text, 2), 0);
  EXPECT_EQ(GetLastError(), 122u);
}

TEST_F(SimText, SenselessArgumentsGive87) {
  char bytes[2];
  for (const int length : {0, -2}) {
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(kCodePageUtf8, L"abc", length, bytes, 2), 0);
    EXPECT_EQ(GetLastError(), 87u);
  }
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(kCodePageUtf8, nullptr, 1, bytes, 2), 0);
  EXPECT_EQ(GetLastError(), 87u);
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(12345, L"abc", 3, bytes, 2), 0);
  EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(SimText, TheAnsiPageHasOneByteForEachUnit) {
  EXPECT_EQ(ToBytes({L'a', 0xE9, 0x20AC, 0x4E2D}, kCodePageThreadAnsi), "a\xE9\x80?");
  EXPECT_EQ(ToWide("a\xE9\x80", kCodePageThreadAnsi), (std::wstring{L'a', 0xE9, 0x20AC}));
}

TEST_F(SimText, WideMakesTwoUnitsOfALargeCharacter) {
  EXPECT_EQ(sim::Wide("\xF0\x9F\x98\x80").size(), 2u);
  EXPECT_EQ(sim::Narrow(sim::Wide("\xF0\x9F\x98\x80")), "\xF0\x9F\x98\x80");
}

} // namespace
