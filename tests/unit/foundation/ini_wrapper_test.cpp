#include "foundation/ini_wrapper.h"

#include "tests/unit/foundation/fresh_folder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

using namespace std::string_literals;
using vx::ini::INI_ANSI;
using vx::ini::INI_UTF16;
using vx::ini::INI_UTF8;
using vx::ini::IniEncoding;
using vx::ini::KIniWrapper;

constexpr std::int32_t kKeep = 0;
constexpr std::int32_t kCreate = 1;
constexpr auto kNoEncoding = static_cast<IniEncoding>(9);
const std::string kMark = "\xEF\xBB\xBF";

static_assert(std::is_polymorphic_v<KIniWrapper> && !std::has_virtual_destructor_v<KIniWrapper>);

std::wstring TextOf(KIniWrapper& ini) {
  std::wstring text = L"left over";
  EXPECT_TRUE(ini.BuildText(text));
  return text;
}

struct ParseCase {
  const char* name;
  std::wstring text;
  bool whole;
  std::wstring built;
};

void PrintTo(const ParseCase& row, std::ostream* out) { *out << row.name; }

class IniText : public testing::TestWithParam<ParseCase> {};

TEST_P(IniText, ParsesTo) {
  KIniWrapper ini;
  EXPECT_EQ(ini.ParseText(GetParam().text), GetParam().whole);
  EXPECT_EQ(TextOf(ini), GetParam().built);
}

INSTANTIATE_TEST_SUITE_P(
    IniWrapper, IniText,
    testing::Values(
        ParseCase{"Empty", L"", false, L""}, ParseCase{"NoSection", L"a=1\nb=2\n", false, L""},
        ParseCase{"FoldsNamesAndKeepsValues", L"[Common]\nPID = Value Of It\n", true,
                  L"[common]\r\npid=Value Of It\r\n"},
        ParseCase{"SortsSectionsAndKeys", L"[b]\nz=1\na=2\n[a]\nk=3\n", true, L"[a]\r\nk=3\r\n[b]\r\na=2\r\nz=1\r\n"},
        ParseCase{"KeyStandsUnderTheEarlierSection", L"[a]\nk=1\n[b]\nk=2\n", true, L"[a]\r\nk=1\r\n[b]\r\nk=2\r\n"},
        ParseCase{"SectionsOfOneNameMerge", L"[a]\nk=1\n[b]\nx=1\n[A]\nl=2\nK=3\n", true,
                  L"[a]\r\nk=3\r\nl=2\r\n[b]\r\nx=1\r\n"},
        ParseCase{"EmptySectionIsLost", L"[a]\n[b]\nk=1\n", true, L"[b]\r\nk=1\r\n"},
        ParseCase{"BeginsAtTheFirstBracket", L"\uFEFFheading\na=[x]\nb=1\n", true, L"[x]\r\nb=1\r\n"},
        ParseCase{"NoCommentSyntax", L"[a]\n;k=1\n", true, L"[a]\r\n;k=1\r\n"},
        ParseCase{"CommentWithoutEqualsEndsTheParse", L"[a]\nk=1\n; words\nl=2\n", false, L"[a]\r\nk=1\r\n"},
        ParseCase{"EmptyBracketsEndTheParse", L"[a]\nk=1\n[]\nl=2\n", false, L"[a]\r\nk=1\r\n"},
        ParseCase{"BlankBracketsEndTheParse", L"[a]\nk=1\n[   ]\nl=2\n", false, L"[a]\r\nk=1\r\n"},
        ParseCase{"LineThatStartsWithEqualsEndsTheParse", L"[a]\nk=1\n=x\nl=2\n", false, L"[a]\r\nk=1\r\n"},
        ParseCase{"SingleOpeningBracketEndsTheParse", L"[", false, L""},
        ParseCase{"EmptyValueStays", L"[a]\nk=\n", true, L"[a]\r\nk=\r\n"},
        ParseCase{"ValueHoldsFurtherEquals", L"[a]\nk=b=c=\n", true, L"[a]\r\nk=b=c=\r\n"},
        ParseCase{"BlanksAroundEqualsGo", L"[a]\n  k   =   v w  \n", true, L"[a]\r\nk=v w\r\n"},
        ParseCase{"TabsAroundEqualsStay", L"[a]\nk\t=\tv\n", true, L"[a]\r\nk\t=\tv\r\n"},
        ParseCase{"TabsAtTheEndsOfTheLineGo", L"[a]\n\t k=v \t \n", true, L"[a]\r\nk=v\r\n"},
        ParseCase{"BlanksInsideBracketsGo", L"[  a b  ]\nk=v\n", true, L"[a b]\r\nk=v\r\n"},
        ParseCase{"EmptyLinesAreSkipped", L"[a]\n\n  \nk=v\n\n", true, L"[a]\r\nk=v\r\n"},
        ParseCase{"LastLineNeedsNoEnd", L"[a]\nk=v", true, L"[a]\r\nk=v\r\n"},
        ParseCase{"BracketsInAKeyLineAreAKey", L"[a]\n[k]=v\n", true, L"[a]\r\n[k]=v\r\n"},
        ParseCase{"LineInBracketsIsASectionWhateverItHolds", L"[a]\n[k=v]\nx=1\n", true, L"[k=v]\r\nx=1\r\n"},
        ParseCase{"KeyBeforeAnySectionStandsUnderTheEmptyName", L"[k=1\nl=2\n", true, L"[]\r\n[k=1\r\nl=2\r\n"},
        ParseCase{"WhiteSpaceAroundASectionLineGoes", L"[a]\n\t [b] \t\nk=v\n", true, L"[b]\r\nk=v\r\n"},
        ParseCase{"TabsInsideBracketsStay", L"[\ta ]\nk=v\n", true, L"[\ta]\r\nk=v\r\n"},
        ParseCase{"OrderIsThatOfTheUnits", L"[a]\nab=1\na_b=2\na b=3\na\u00E9=4\nA0=5\n", true,
                  L"[a]\r\na b=3\r\na0=5\r\na_b=2\r\nab=1\r\na\u00E9=4\r\n"},
        ParseCase{"LaterLineOfAKeyWins", L"[a]\nk=1\nK=2\n", true, L"[a]\r\nk=2\r\n"}),
    [](const auto& entry) { return std::string(entry.param.name); });

TEST(IniWrapper, TheSectionStaysFromOneParseToTheNext) {
  KIniWrapper ini;
  EXPECT_TRUE(ini.ParseText(L"[a]\nk=1\n"));
  ini.Clear();
  EXPECT_FALSE(ini.ParseText(L"[]\n"));
  EXPECT_TRUE(ini.ParseText(L"[x]=2\n")); // a key line, and the section is still the one before
  EXPECT_EQ(TextOf(ini), L"[a]\r\n[x]=2\r\n");
}

TEST(IniWrapper, GetIntFoldsTheNamesItIsAskedFor) {
  KIniWrapper ini;
  ASSERT_TRUE(ini.ParseText(L"[Common]\nPID = 12\n"));
  EXPECT_EQ(ini.GetInt(L"common", L"pid", 5), 12);
  EXPECT_EQ(ini.GetInt(L"COMMON", L"Pid", 5), 12);
  EXPECT_EQ(ini.GetInt(L"common", L"other", 5), 5);
  EXPECT_EQ(ini.GetInt(L"other", L"pid", 5), 5);
}

TEST(IniWrapper, GetIntReadsWhatStartsAsANumber) {
  KIniWrapper ini;
  ASSERT_TRUE(ini.ParseText(L"[a]\nx=12abc\ny=abc\nz=\t-7\ne=\nbig=4294967295\n"));
  EXPECT_EQ(ini.GetInt(L"a", L"x", 5), 12);
  EXPECT_EQ(ini.GetInt(L"a", L"y", 5), 0);
  EXPECT_EQ(ini.GetInt(L"a", L"z", 5), -7);
  EXPECT_EQ(ini.GetInt(L"a", L"e", 5), 0);
  EXPECT_EQ(ini.GetInt(L"a", L"big", 5), std::numeric_limits<std::int32_t>::max());
}

TEST(IniWrapper, SetIntWritesEveryNumberThatGetIntReads) {
  KIniWrapper ini;
  for (const std::int32_t value :
       {0, 1, -1, 5120, std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::min()}) {
    ini.SetInt(L"Common", L"Pid", value);
    EXPECT_EQ(ini.GetInt(L"common", L"pid", 77), value);
  }
  ini.SetInt(L"common", L"preview_pid", -5);
  EXPECT_EQ(TextOf(ini), L"[common]\r\npid=-2147483648\r\npreview_pid=-5\r\n");
}

TEST(IniWrapper, SetValueFoldsItsArgumentsInPlace) {
  KIniWrapper ini;
  std::wstring section = L"SecTion";
  std::wstring key = L"KEY";
  EXPECT_TRUE(ini.SetValue(section, key, L"VaLue"));
  EXPECT_EQ(section, L"section");
  EXPECT_EQ(key, L"key");
  EXPECT_EQ(TextOf(ini), L"[section]\r\nkey=VaLue\r\n");
}

TEST(IniWrapper, ANameWithALineEndDoesNotReadBackTheSame) {
  KIniWrapper ini;
  std::wstring section = L"a";
  std::wstring key = L"x\ny";
  EXPECT_TRUE(ini.SetValue(section, key, L"1"));
  KIniWrapper back;
  EXPECT_FALSE(back.ParseText(TextOf(ini)));
  EXPECT_EQ(TextOf(back), L"");
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // as its base, it only lives on the stack
struct OwnSlots final : KIniWrapper {
  bool ParseText(const std::wstring& text) override {
    parsed = text;
    return false;
  }
  bool BuildText(std::wstring& out) override {
    out = L"built";
    return true;
  }
  std::wstring parsed;
};
#pragma GCC diagnostic pop

TEST(IniWrapper, TheTwoSlotsCanBeReplaced) {
  const test::FreshFolder folder;
  test::WriteBytes(folder.Path(L"a.ini"), "a\r\nb");
  OwnSlots ini;
  EXPECT_TRUE(ini.Load(folder.Path(L"a.ini").c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(ini.parsed, L"a\n\nb");
  EXPECT_TRUE(ini.Save(folder.Path(L"a.ini").c_str(), INI_ANSI));
  EXPECT_EQ(test::ReadBytes(folder.Path(L"a.ini")), "built");
}

struct Form {
  const char* name;
  IniEncoding encoding;
  std::string bytes; // of "[a]\r\nk=\u00E9\r\n"
};

void PrintTo(const Form& row, std::ostream* out) { *out << row.name; }

class IniFile : public testing::TestWithParam<Form> {};

TEST_P(IniFile, IsWrittenByteForByteAndReadsBack) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  std::wstring section = L"A";
  std::wstring key = L"K";
  ini.SetValue(section, key, L"\u00E9");
  ASSERT_TRUE(ini.Save(path.c_str(), GetParam().encoding));
  EXPECT_EQ(test::ReadBytes(path), GetParam().bytes);
  KIniWrapper back;
  ASSERT_TRUE(back.Load(path.c_str(), GetParam().encoding, kKeep));
  EXPECT_EQ(TextOf(back), L"[a]\r\nk=\u00E9\r\n");
}

INSTANTIATE_TEST_SUITE_P(IniWrapper, IniFile,
                         testing::Values(Form{"Ansi", INI_ANSI, "[a]\r\nk=\xE9\r\n"},
                                         Form{"Utf8", INI_UTF8, "\xEF\xBB\xBF[a]\r\nk=\xC3\xA9\r\n"},
                                         Form{"Utf16", INI_UTF16, "\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0\xE9\0\r\0\n\0"s}),
                         [](const auto& entry) { return std::string(entry.param.name); });

TEST(IniWrapper, AnUnknownEncodingWritesAndReadsNothing) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "[a]\nk=1\n");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), kNoEncoding, kKeep));
  EXPECT_EQ(TextOf(ini), L"");
  ini.SetInt(L"a", L"k", 1);
  EXPECT_TRUE(ini.Save(path.c_str(), kNoEncoding));
  EXPECT_EQ(test::ReadBytes(path), "");
}

TEST(IniWrapper, TextThatNeedsMoreThanTwoBytesForAUnitIsDropped) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  std::wstring section = L"a";
  std::wstring key = L"k";
  ini.SetValue(section, key, std::wstring(100, L'\u56FE'));
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF8));
  EXPECT_EQ(test::ReadBytes(path), kMark);
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF16));
  EXPECT_EQ(test::ReadBytes(path).size(), 2 + 2 * (5 + 2 + 100 + 2u));
}

TEST(IniWrapper, TextOfExactlyTwoBytesForEachUnitIsKept) {
  // The units are "[a]", its line end, "k=", the value, its line end and the terminator: 10 of one byte each and `n`
  // of three. They fit while 10 + 3n does not go beyond 2(10 + n), that is up to n = 10.
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  for (const std::size_t count : {10u, 11u}) {
    KIniWrapper ini;
    std::wstring section = L"a";
    std::wstring key = L"k";
    ini.SetValue(section, key, std::wstring(count, L'\u20AC'));
    EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF8));
    EXPECT_EQ(test::ReadBytes(path).size(), count == 10 ? 3 + 9 + 30u : 3u) << count;
  }
}

TEST(IniWrapper, SavesInSortedOrderWithCrLf) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"config.ini");
  KIniWrapper ini;
  ini.SetInt(L"common", L"preview_pid", 5120);
  ini.SetInt(L"common", L"pid", 4100);
  ASSERT_TRUE(ini.Save(path.c_str(), INI_UTF8));
  EXPECT_EQ(test::ReadBytes(path), kMark + "[common]\r\npid=4100\r\npreview_pid=5120\r\n");
}

TEST(IniWrapper, AFileOfExactlyTwoMebibytesLoadsAndOneByteMoreFails) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  std::string bytes = "[a]\nk=7\n";
  bytes.resize(2097152, '\n');
  test::WriteBytes(path, bytes);
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 0), 7);
  bytes += '\n';
  test::WriteBytes(path, bytes);
  EXPECT_FALSE(ini.Load(path.c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5); // and the model is empty
}

TEST(IniWrapper, AnEmptyFileLoadsAsAnEmptyModel) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "");
  for (const IniEncoding encoding : {INI_ANSI, INI_UTF8, INI_UTF16, kNoEncoding}) {
    KIniWrapper ini;
    ini.SetInt(L"a", L"k", 1);
    EXPECT_TRUE(ini.Load(path.c_str(), encoding, kKeep));
    EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5);
  }
}

TEST(IniWrapper, AByteOrderMarkHasNoEffect) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, kMark + "[a]\r\nk=3\r\n");
  for (const IniEncoding encoding : {INI_ANSI, INI_UTF8}) {
    KIniWrapper ini;
    EXPECT_TRUE(ini.Load(path.c_str(), encoding, kKeep));
    EXPECT_EQ(TextOf(ini), L"[a]\r\nk=3\r\n");
  }
  for (const char* mark : {"\xEF\xBB\xBF", ""}) { // narrow text holds no wide bracket, with the mark or without
    test::WriteBytes(path, mark + "[a]\r\nk=3\r\n"s);
    KIniWrapper ini;
    ini.SetInt(L"a", L"k", 4);
    EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF16, kKeep));
    EXPECT_EQ(TextOf(ini), L"");
  }
}

TEST(IniWrapper, WideTextIsSavedInItsWholeLength) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  std::wstring section = L"a";
  std::wstring key = L"k";
  ini.SetValue(section, key, L"1\0002"s);
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF16));
  EXPECT_EQ(test::ReadBytes(path), "\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0001\0\0\0002\0\r\0\n\0"s);
}

TEST(IniWrapper, ACarriageReturnAloneEndsALine) {
  const test::FreshFolder folder;
  test::WriteBytes(folder.Path(L"a.ini"), "[a]\rk=1\rl=2\r\n\r\nm=3");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(folder.Path(L"a.ini").c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(TextOf(ini), L"[a]\r\nk=1\r\nl=2\r\nm=3\r\n");
}

TEST(IniWrapper, TextEndsAtANul) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "[a]\nk=1\n\0l=2\n"s);
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(TextOf(ini), L"[a]\r\nk=1\r\n");
  test::WriteBytes(path, "[\0a\0]\0\n\0k\0=\0001\0\n\0\0\0l\0=\0002\0"s);
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF16, kKeep));
  EXPECT_EQ(TextOf(ini), L"[a]\r\nk=1\r\n");
}

TEST(IniWrapper, WideTextOfAnOddSizeTakesItsLastByteAlone) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "[\0a\0]\0\n\0k\0=\0\x37"s);
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF16, kKeep));
  EXPECT_EQ(TextOf(ini), L"[a]\r\nk=7\r\n");
}

TEST(IniWrapper, AMissingFileIsMadeWithItsFoldersAndTheModelStays) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"x\\y\\a.ini");
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 3);
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kCreate));
  EXPECT_TRUE(test::Exists(path));
  EXPECT_EQ(test::ReadBytes(path), "");
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 3);
}

TEST(IniWrapper, AMissingFileThatIsNotToBeMadeFails) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 3);
  EXPECT_FALSE(ini.Load(path.c_str(), INI_UTF8, kKeep));
  EXPECT_FALSE(test::Exists(path));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5);
}

TEST(IniWrapper, WhatStoodAboveABadLineIsKeptAndTheRestIsLostAtTheNextSave) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "[a]\r\nk=1\r\nno equals here\r\nl=2\r\n[b]\r\nm=3\r\n");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kKeep));
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF8));
  EXPECT_EQ(test::ReadBytes(path), kMark + "[a]\r\nk=1\r\n");
}

TEST(IniWrapper, LoadingAgainStartsFromAnEmptyModel) {
  const test::FreshFolder folder;
  test::WriteBytes(folder.Path(L"a.ini"), "[a]\nk=1\n");
  test::WriteBytes(folder.Path(L"b.ini"), "[b]\nl=2\n");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(folder.Path(L"a.ini").c_str(), INI_UTF8, kKeep));
  EXPECT_TRUE(ini.Load(folder.Path(L"b.ini").c_str(), INI_UTF8, kKeep));
  EXPECT_EQ(TextOf(ini), L"[b]\r\nl=2\r\n");
}

TEST(IniWrapper, AValidatorSeesTheRawBytesAndCanRefuseThem) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, kMark + "[a]\nk=1\n");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kKeep, [](const void* bytes, std::uint32_t size) -> std::int32_t {
    return size == 11 && std::memcmp(bytes, "\xEF\xBB\xBF[a]\nk=1\n", 11) == 0;
  }));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 1);
  EXPECT_FALSE(ini.Load(path.c_str(), INI_UTF8, kKeep, [](const void*, std::uint32_t) -> std::int32_t { return 0; }));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 5);
}

TEST(IniWrapper, AFilterSeesTheBodyAndCanRefuseIt) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  ini.SetInt(L"a", L"k", 1);
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF8, [](const void* bytes, std::uint32_t size) -> std::int32_t {
    return size == 10 && std::memcmp(bytes, "[a]\r\nk=1\r\n", 10) == 0 ? -1 : 0;
  }));
  EXPECT_EQ(test::ReadBytes(path), kMark + "[a]\r\nk=1\r\n");
  EXPECT_FALSE(ini.Save(path.c_str(), INI_UTF8, [](const void*, std::uint32_t) -> std::int32_t { return 0; }));
  EXPECT_EQ(test::ReadBytes(path), kMark);
}

TEST(IniWrapper, SavingWhereNoFileCanBeFails) {
  const test::FreshFolder folder;
  KIniWrapper ini;
  EXPECT_FALSE(ini.Save(folder.Path(L"no\\such\\folder\\a.ini").c_str(), INI_UTF8));
  EXPECT_FALSE(ini.Save(nullptr, INI_UTF8));
  EXPECT_FALSE(ini.Load(nullptr, INI_UTF8, kKeep));
  EXPECT_FALSE(ini.Load(nullptr, INI_UTF8, kCreate));
}

TEST(IniWrapper, AFileIsFreeAgainAfterEachCall) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  KIniWrapper ini;
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kCreate));
  EXPECT_TRUE(ini.Load(path.c_str(), INI_UTF8, kCreate));
  EXPECT_TRUE(ini.Save(path.c_str(), INI_UTF8));
  EXPECT_TRUE(platform::DeleteFileW(path.c_str()));
  EXPECT_FALSE(test::Exists(path));
}

TEST(CreateEmptyFile, NeedsAPathWithABackslash) {
  constexpr auto kInvalid = static_cast<std::int32_t>(0x80070057u);
  EXPECT_EQ(vx::ini::CreateEmptyFile(nullptr), kInvalid);
  EXPECT_EQ(vx::ini::CreateEmptyFile(L"a.ini"), kInvalid);
  EXPECT_EQ(vx::ini::CreateEmptyFile(L"C:/a.ini"), kInvalid);
}

TEST(CreateEmptyFile, MakesNoFileOverAnother) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a.ini");
  test::WriteBytes(path, "kept");
  EXPECT_EQ(vx::ini::CreateEmptyFile(path.c_str()), static_cast<std::int32_t>(0x80070050u));
  EXPECT_EQ(test::ReadBytes(path), "kept");
}

TEST(CreateEmptyFile, TellsWhyTheFolderCouldNotBeMade) {
  const test::FreshFolder folder;
  test::WriteBytes(folder.Path(L"file"), "");
  const std::int32_t result = vx::ini::CreateEmptyFile(folder.Path(L"file\\sub\\a.ini").c_str());
  EXPECT_LT(result, 0);
  EXPECT_EQ(static_cast<std::uint32_t>(result) >> 16, 0x8007u);
}

} // namespace
