#include "tools/vexelctl/text.h"

#include <gtest/gtest.h>

namespace {

using namespace vexelctl;

TEST(Text, Utf8IsToldFromOtherBytes) {
  EXPECT_TRUE(IsUtf8("a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"));
  for (const char* bad : {"\xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80"}) {
    EXPECT_FALSE(IsUtf8(bad));
  }
}

TEST(Text, WidenedLettersAreJoinedAndOthersLeft) {
  EXPECT_EQ(MendWidened("\xC3\xA2\xC2\x82\xC2\xAC"), "\xE2\x82\xAC");
  EXPECT_EQ(MendWidened("plain"), "plain");
  EXPECT_EQ(MendWidened("\xC3\xBC"), "\xC3\xBC");         // one letter that would be no text alone
  EXPECT_EQ(MendWidened("\xE2\x82\xAC"), "\xE2\x82\xAC"); // never the result of widening
}

TEST(Text, XmlLosesNothingAndGainsNothing) {
  EXPECT_EQ(XmlEscaped("<a b=\"c\">&\n\xFF"), "&lt;a b=&quot;c&quot;&gt;&amp; \xEF\xBF\xBD");
}

TEST(Text, WhatAConsoleWouldObeyIsReplaced) {
  const std::string unknown = "\xEF\xBF\xBD";
  EXPECT_EQ(Printable("a\xC3\xBC \xE2\x82\xAC"), "a\xC3\xBC \xE2\x82\xAC");
  EXPECT_EQ(Printable("\x1b[31m"), unknown + "[31m");
  EXPECT_EQ(Printable("a\tb\rc\x7F"), "a b" + unknown + "c" + unknown);
  EXPECT_EQ(Printable("\xC2\x9B"
                      "1m\xC2\xA0"),
            unknown + "1m\xC2\xA0");
  EXPECT_EQ(Printable("\xFF\xC2"), unknown + unknown);
}

TEST(Text, BracketsThatCouldNestDeepAreFound) {
  EXPECT_FALSE(IsNestedDeep(""));
  EXPECT_FALSE(IsNestedDeep(std::string(1000, '[')));
  EXPECT_TRUE(IsNestedDeep(std::string(1001, '[')));
  EXPECT_TRUE(IsNestedDeep(std::string(600, '[') + std::string(600, '{')));
}

TEST(Text, ShorteningCountsLettersNotBytes) {
  EXPECT_EQ(Shortened("\xC3\xBC\xC3\xBC\xC3\xBC", 3), "\xC3\xBC\xC3\xBC\xC3\xBC");
  EXPECT_EQ(Shortened("\xC3\xBC\xC3\xBC\xC3\xBC", 2), "\xC3\xBC\xE2\x80\xA6");
  EXPECT_EQ(Shortened("", 1), "");
}

} // namespace
