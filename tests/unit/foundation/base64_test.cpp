#include "foundation/base64.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;

struct Case {
  const char* name;
  std::string_view input;
  std::string_view output;
};

void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }

std::string Decode(std::string_view input) { return vx::Base64Decode(input.data(), input.size()); }

class Base64Text : public testing::TestWithParam<Case> {};

TEST_P(Base64Text, DecodesTo) { EXPECT_EQ(Decode(GetParam().input), GetParam().output); }

INSTANTIATE_TEST_SUITE_P(Base64, Base64Text,
                         testing::Values(Case{"ThreeBytes", "QUJD"sv, "ABC"sv}, Case{"TwoBytes", "QUI="sv, "AB"sv},
                                         Case{"OneByte", "QQ=="sv, "A"sv}, Case{"LengthThree", "QQ="sv, ""sv},
                                         Case{"LengthSix", "QUJDRA"sv, ""sv}, Case{"Empty", ""sv, ""sv},
                                         Case{"LongText", "U2luZ2xlIHBpY3R1cmUgdmlld2Vy"sv, "Single picture viewer"sv},
                                         Case{"InnerPadding", "QQ==QUJD"sv, "A\0\0A"sv},
                                         Case{"InnerSinglePadding", "QUI=QUJD"sv, "AB\0AB"sv},
                                         Case{"PaddingOnlyInThirdPlace", "QQ=D"sv, "A\0\3"sv},
                                         Case{"OnlyPadding", "===="sv, "\0"sv}, Case{"NulBytes", "AAAA"sv, "\0\0\0"sv},
                                         Case{"HighestBits", "////"sv, "\xFF\xFF\xFF"sv},
                                         Case{"PlusAndSlash", "+/+/"sv, "\xFB\xFF\xBF"sv},
                                         // A byte that is no base64 gives its low six bits, 63.
                                         Case{"UrlSafeText", "-_-_"sv, "\xFF\xFF\xFF"sv},
                                         Case{"ByteAboveAscii", "Q\xC3J\x80"sv, "C\xF2\x7F"sv}),
                         [](const auto& entry) { return std::string(entry.param.name); });

TEST(Base64, NullDecodesToNothing) {
  EXPECT_EQ(vx::Base64Decode(nullptr, 0), "");
  EXPECT_EQ(vx::Base64Decode(nullptr, 4), "");
}

TEST(Base64, TheTableKnowsTheAlphabetThePaddingAndNothingElse) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
  for (unsigned byte = 0; byte < 128; ++byte) {
    const std::size_t place = alphabet.find(static_cast<char>(byte));
    EXPECT_EQ(vx::Base64DecodeTable[byte], place == std::string::npos ? 255 : place) << byte;
  }
}

TEST(Base64, ABlockOfABadLengthWritesNothing) {
  for (const std::size_t length : {0u, 1u, 2u, 3u, 5u, 6u, 7u, 9u}) {
    std::array<unsigned char, 9> output;
    output.fill(0x5A);
    EXPECT_EQ(vx::Base64DecodeBlock(output.data(), "QUJDREVGR", length, vx::Base64DecodeTable), 0u) << length;
    for (const unsigned char byte : output) {
      EXPECT_EQ(byte, 0x5A) << length;
    }
  }
}

TEST(Base64, InnerPaddingShortensTheCountAndKeepsTheBytes) {
  std::array<unsigned char, 6> output{};
  EXPECT_EQ(vx::Base64DecodeBlock(output.data(), "QQ==QUJD", 8, vx::Base64DecodeTable), 4u);
  EXPECT_EQ(output, (std::array<unsigned char, 6>{'A', 0, 0, 'A', 'B', 'C'}));
}

TEST(Base64, ABlockDecodesByTheTableThatItIsGiven) {
  std::array<std::uint32_t, 128> table{};
  table['x'] = 63;
  table['-'] = 64;
  std::array<unsigned char, 6> output{};
  EXPECT_EQ(vx::Base64DecodeBlock(output.data(), "QUJDxx--", 8, table.data()), 4u);
  EXPECT_EQ(output, (std::array<unsigned char, 6>{0, 0, 0, 0xFF, 0xF0, 0}));
}

TEST(Base64, EveryByteComesBack) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  for (int byte = 0; byte < 255; ++byte) {
    bytes += static_cast<char>(byte);
  }
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const auto group = static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at]) << 16 |
                                                  static_cast<unsigned char>(bytes[at + 1]) << 8 |
                                                  static_cast<unsigned char>(bytes[at + 2]));
    for (const int shift : {18, 12, 6, 0}) {
      text += alphabet[group >> shift & 63];
    }
  }
  EXPECT_EQ(Decode(text), bytes);
}

} // namespace
