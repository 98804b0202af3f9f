#include "public/vexelsdk/cmd_line_parser.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Switches = std::map<std::wstring, std::wstring>;

struct ParseCase {
  const char* promise;
  const wchar_t* text;
  Switches stored;
};

void PrintTo(const ParseCase& row, std::ostream* out) { *out << row.promise; }

// Every name that a row may ask for; those that a row does not list must be absent.
const std::vector<std::wstring> kAllNames = {L"",     L"a",      L"b", L"c", L"d",  L"key", L"word", L"x",
                                             L"a\tb", L"a\"x\"", L"-", L"/", L"-a", L"y\"", L":",    L"pic_param"};

Switches Read(const CCmdLineParser& parser, const Switches& expected) {
  Switches read;
  for (const std::wstring& name : kAllNames) {
    if (parser.HasKey(name.c_str())) {
      read[name] = parser.GetVal(name.c_str());
    } else {
      EXPECT_EQ(parser.GetVal(name.c_str()), nullptr);
    }
  }
  for (const auto& [name, value] : expected) {
    if (parser.HasKey(name.c_str())) {
      read[name] = parser.GetVal(name.c_str());
    }
  }
  return read;
}

class CmdLineParserTable : public testing::TestWithParam<ParseCase> {};

TEST_P(CmdLineParserTable, StoresExactlyTheseSwitches) {
  CCmdLineParser parser;
  EXPECT_EQ(parser.Parse(GetParam().text), !GetParam().stored.empty());
  EXPECT_EQ(Read(parser, GetParam().stored), GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CmdLineParserTable,
    testing::Values(ParseCase{"empty text", L"", {}}, ParseCase{"free words", L"word", {}},
                    ParseCase{"free words and blanks", L"  word x  ", {}}, ParseCase{"mark alone", L"/", {}},
                    ParseCase{"dash alone", L"-", {}}, ParseCase{"empty name", L"/:", {}},
                    ParseCase{"empty name with a value", L"/:value", {}},
                    ParseCase{"empty name with a value, then a switch", L"/:value /a", {{L"a", L""}}},
                    ParseCase{"empty name before a blank", L"/ /a", {{L"a", L""}}},
                    ParseCase{"mark and blank", L"/ ", {}},
                    ParseCase{"both marks", L"/a -b", {{L"a", L""}, {L"b", L""}}},
                    ParseCase{"first of a name stands", L"/a:1 /a:2", {{L"a", L"1"}}},
                    ParseCase{"first of a name stands without a value", L"/a /A:2", {{L"a", L""}}},
                    ParseCase{"names fold, values do not", L"/Key:Value", {{L"key", L"Value"}}},
                    ParseCase{"colon at the end", L"/a:", {{L"a", L""}}},
                    ParseCase{"colon and a blank at the end", L"/a: ", {{L"a", L""}}},
                    ParseCase{"value ends at once, switch behind", L"/a: -b", {{L"a", L""}, {L"b", L""}}},
                    ParseCase{"blank behind a switch", L"/a ", {{L"a", L""}}},
                    ParseCase{"quoted value", L"/a:\"x y\" /b", {{L"a", L"x y"}, {L"b", L""}}},
                    ParseCase{"quoted value at the end", L"/a:\"x y\"", {{L"a", L"x y"}}},
                    ParseCase{"empty quoted value", L"/a:\"\" /b", {{L"a", L""}, {L"b", L""}}},
                    ParseCase{"no closing quote", L"/a:\"x", {{L"a", L"x"}}},
                    ParseCase{"no closing quote takes the rest", L"/a:\"x /b:1", {{L"a", L"x /b:1"}}},
                    ParseCase{"lone quote", L"/a:\"", {{L"a", L""}}},
                    ParseCase{"quote inside a value", L"/a:x\"y z\" /b", {{L"a", L"x\"y"}, {L"b", L""}}},
                    ParseCase{"colon and marks inside quotes", L"/a:\"c:/d -x\" -b", {{L"a", L"c:/d -x"}, {L"b", L""}}},
                    ParseCase{"colon inside a value", L"/a:C:\\x /b", {{L"a", L"C:\\x"}, {L"b", L""}}},
                    ParseCase{"dash starts a value", L"/a:-b", {{L"a", L"-b"}}},
                    ParseCase{"slash inside a value", L"/a:b/c", {{L"a", L"b/c"}}},
                    ParseCase{"dash inside a free word", L"/a b-c", {{L"a", L""}, {L"c", L""}}},
                    ParseCase{"dash inside a name", L"/a-b:1", {{L"a-b", L"1"}}},
                    ParseCase{"mark doubled", L"--a", {{L"-a", L""}}},
                    ParseCase{"no escape character", L"/a:\"x\\\" /b", {{L"a", L"x\\"}, {L"b", L""}}},
                    ParseCase{"tab is no blank", L"/a\tb:1", {{L"a\tb", L"1"}}},
                    ParseCase{"text right behind a closing quote", L"/a:\"x\"-b", {{L"a", L"x"}, {L"b", L""}}},
                    ParseCase{"quote in a name", L"/a\"x\":1", {{L"a\"x\"", L"1"}}}));

TEST(CmdLineParser, LookupIgnoresCaseByDefault) {
  CCmdLineParser parser(L"/Key:Value");
  ASSERT_TRUE(parser.HasKey(L"KEY"));
  EXPECT_STREQ(parser.GetVal(L"kEY"), L"Value");
}

TEST(CmdLineParser, CaseSensitiveKeepsNamesApart) {
  CCmdLineParser parser(L"/Key:1 /key:2", true);
  EXPECT_STREQ(parser.GetVal(L"Key"), L"1");
  EXPECT_STREQ(parser.GetVal(L"key"), L"2");
  EXPECT_FALSE(parser.HasKey(L"KEY"));
}

TEST(CmdLineParser, ConstructorParsesAtOnceUnlessNull) {
  EXPECT_TRUE(CCmdLineParser(L"/a").HasKey(L"a"));
  EXPECT_FALSE(CCmdLineParser(nullptr).HasKey(L"a"));
  EXPECT_FALSE(CCmdLineParser().HasKey(L"a"));
}

TEST(CmdLineParser, EmptyTextClearsWhatWasStored) {
  CCmdLineParser parser(L"/a:1");
  EXPECT_FALSE(parser.Parse(L""));
  EXPECT_FALSE(parser.HasKey(L"a"));
}

TEST(CmdLineParser, NullTextKeepsWhatWasStored) {
  CCmdLineParser parser(L"/a:1");
  EXPECT_FALSE(parser.Parse(nullptr));
  EXPECT_STREQ(parser.GetVal(L"a"), L"1");
}

TEST(CmdLineParser, ParseReplacesWhatWasStored) {
  CCmdLineParser parser(L"/a:1 /b:1");
  EXPECT_TRUE(parser.Parse(L"/b:2"));
  EXPECT_FALSE(parser.HasKey(L"a"));
  EXPECT_STREQ(parser.GetVal(L"b"), L"2");
}

TEST(CmdLineParser, AValueOfItsOwnCanBeParsed) {
  CCmdLineParser parser(L"/a:\"/b:1 /c\"");
  EXPECT_TRUE(parser.Parse(parser.GetVal(L"a")));
  EXPECT_FALSE(parser.HasKey(L"a"));
  EXPECT_STREQ(parser.GetVal(L"b"), L"1");
  EXPECT_TRUE(parser.HasKey(L"c"));
}

TEST(CmdLineParser, NullNameIsNoSwitch) {
  CCmdLineParser parser(L"/a");
  EXPECT_FALSE(parser.HasKey(nullptr));
  EXPECT_EQ(parser.GetVal(nullptr), nullptr);
}

TEST(CmdLineParser, TheDestructorIsVirtual) { EXPECT_TRUE(std::has_virtual_destructor_v<CCmdLineParser>); }

} // namespace
