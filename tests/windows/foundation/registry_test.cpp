#include "foundation/logger.h"
#include "foundation/reg_key.h"
#include "foundation/switches.h"
#include "tests/windows/foundation/own_registry.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

constexpr const wchar_t* kSwitches = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
constexpr const wchar_t* kLevelKey = L"Software\\Tarnwick\\antivirus\\sysopt";
constexpr std::int32_t kOpenOnly = 1;
constexpr std::int32_t kCreate = 0;

TEST(RegKey, ReadsOnlyNumbersOf32Bits) {
  const test::OwnRegistry registry;
  const std::uint64_t wide = 1;
  registry.SetDword(HKEY_CURRENT_USER, L"a\\b", L"number", 0x80000001u);
  registry.SetDword(HKEY_CURRENT_USER, L"a\\b", L"", 7);
  registry.SetText(HKEY_CURRENT_USER, L"a\\b", L"text", L"1");
  registry.Set(HKEY_CURRENT_USER, L"a\\b", L"bytes", REG_BINARY, &wide, 4);
  registry.Set(HKEY_CURRENT_USER, L"a\\b", L"wide", REG_QWORD, &wide, 8);
  registry.Set(HKEY_CURRENT_USER, L"a\\b", L"long", REG_DWORD, &wide, 8);
  vx::KRegKey key;
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, L"a\\b", kOpenOnly));
  std::uint32_t out = 0;
  EXPECT_TRUE(key.QueryDword(L"number", &out));
  EXPECT_EQ(out, 0x80000001u);
  EXPECT_TRUE(key.QueryDword(L"", &out));
  EXPECT_EQ(out, 7u);
  for (const wchar_t* name : {L"text", L"bytes", L"wide", L"long", L"missing"}) {
    out = 4711;
    EXPECT_FALSE(key.QueryDword(name, &out)) << name;
    EXPECT_EQ(out, 4711u) << name;
  }
}

TEST(RegKey, OpenOnlyNeverMakesAKey) {
  const test::OwnRegistry registry;
  vx::KRegKey key;
  EXPECT_FALSE(key.Open(HKEY_CURRENT_USER, L"a\\b", kOpenOnly));
  EXPECT_FALSE(registry.Exists(HKEY_CURRENT_USER, L"a"));
  EXPECT_TRUE(key.Open(HKEY_CURRENT_USER, L"a\\b", kCreate));
  EXPECT_TRUE(registry.Exists(HKEY_CURRENT_USER, L"a\\b"));
}

TEST(RegKey, AClosedKeyAnswersNothing) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, L"a", L"number", 1);
  std::uint32_t out = 4711;
  vx::KRegKey key;
  EXPECT_FALSE(key.QueryDword(L"number", &out));
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, L"a", kOpenOnly));
  key.Close();
  key.Close();
  EXPECT_FALSE(key.QueryDword(L"number", &out));
  EXPECT_EQ(out, 4711u);
}

TEST(RegKey, OpeningAnotherLeavesTheFirst) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, L"a", L"number", 1);
  registry.SetDword(HKEY_CURRENT_USER, L"b", L"number", 2);
  std::uint32_t out = 0;
  vx::KRegKey key;
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, L"a", kOpenOnly));
  ASSERT_TRUE(key.Open(HKEY_CURRENT_USER, L"b", kOpenOnly));
  EXPECT_TRUE(key.QueryDword(L"number", &out));
  EXPECT_EQ(out, 2u);
  EXPECT_FALSE(key.Open(HKEY_CURRENT_USER, L"c", kOpenOnly));
  EXPECT_FALSE(key.QueryDword(L"number", &out));
}

TEST(Switches, WithoutTheKeyNothingIsSupportedAndNothingIsMade) {
  const test::OwnRegistry registry;
  EXPECT_FALSE(vx::IsSupportPreview());
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), -101);
  EXPECT_EQ(vx::GetSwitchValue(nullptr), -100);
  EXPECT_FALSE(registry.Exists(HKEY_CURRENT_USER, L"SOFTWARE\\Norvel"));
}

TEST(Switches, ANullNameComesBeforeEverything) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, kSwitches, L"", 3);
  EXPECT_EQ(vx::GetSwitchValue(nullptr), -100);
}

TEST(Switches, AMissingValueIsMinusOne) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, kSwitches, L"other", 3);
  EXPECT_FALSE(vx::IsSupportPreview());
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), -1);
  EXPECT_EQ(vx::GetSwitchValue(""), -1);
}

TEST(Switches, OnlyTheNumberOneSupportsThePreview) {
  const test::OwnRegistry registry;
  for (const std::uint32_t value : {0u, 1u, 2u, 0xFFFFFFFFu, 0xFFFFFF9Cu, 0xFFFFFF9Bu, 0x7FFFFFFFu, 0x80000000u}) {
    registry.SetDword(HKEY_CURRENT_USER, kSwitches, L"OpenPIC_enable", value);
    EXPECT_EQ(vx::IsSupportPreview(), value == 1) << value;
    EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), static_cast<std::int32_t>(value));
  }
}

TEST(Switches, TextIsNoValue) {
  const test::OwnRegistry registry;
  registry.SetText(HKEY_CURRENT_USER, kSwitches, L"OpenPIC_enable", L"1");
  registry.SetText(HKEY_CURRENT_USER, kSwitches, L"", L"1");
  EXPECT_FALSE(vx::IsSupportPreview());
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), -1);
  EXPECT_EQ(vx::GetSwitchValue(""), -1);
}

TEST(Switches, AnEmptyNameReadsTheDefaultValue) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, kSwitches, L"", 41);
  EXPECT_EQ(vx::GetSwitchValue(""), 41);
}

TEST(Switches, NamesAreUtf8) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_CURRENT_USER, kSwitches, L"\u56FE\u00E9", 12);
  EXPECT_EQ(vx::GetSwitchValue("\xE5\x9B\xBE\xC3\xA9"), 12);
}

class LogLevel : public testing::Test {
protected:
  ~LogLevel() override { vx::ResetLogger({}); }
  static std::int32_t Read() {
    vx::SetMinLogLevel(-9);
    vx::ReadLogLevel();
    return vx::GetMinLogLevel();
  }
};

TEST_F(LogLevel, ComesFromTheMachinesRegistry) {
  const test::OwnRegistry registry;
  vx::ResetLogger({});
  EXPECT_EQ(Read(), -9); // without a key the level is left alone
  registry.SetDword(HKEY_LOCAL_MACHINE, kLevelKey, L"other", 2);
  EXPECT_EQ(Read(), -9);
  const struct {
    std::uint32_t value;
    std::int32_t level;
  } cases[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 3}, {5, 1}, {7, 1}, {0xFFFFFFFFu, 1}};
  for (const auto& entry : cases) {
    registry.SetDword(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", entry.value);
    EXPECT_EQ(Read(), entry.level) << entry.value;
  }
}

TEST_F(LogLevel, TakesFourBytesOfAnyTypeAndNoMore) {
  const test::OwnRegistry registry;
  vx::ResetLogger({});
  const unsigned char bytes[8] = {2, 0, 0, 0, 0, 0, 0, 0};
  registry.Set(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", REG_BINARY, bytes, 4);
  EXPECT_EQ(Read(), 2);
  registry.Set(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", REG_BINARY, bytes, 1);
  EXPECT_EQ(Read(), 2);
  registry.Set(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", REG_QWORD, bytes, 8);
  EXPECT_EQ(Read(), -9);
  registry.SetText(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", L"2"); // the four bytes of "2" and its terminator
  EXPECT_EQ(Read(), 1);
  registry.SetText(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", L"22");
  EXPECT_EQ(Read(), -9);
}

TEST_F(LogLevel, AnotherRootAndKeyTakeThePlaceOfTheFixedOnes) {
  const test::OwnRegistry registry;
  registry.SetDword(HKEY_LOCAL_MACHINE, kLevelKey, L"LogLevel", 3);
  registry.SetDword(HKEY_CURRENT_USER, kLevelKey, L"LogLevel", 2);
  registry.SetDword(HKEY_CURRENT_USER, L"own\\level", L"LogLevel", 0);
  vx::ResetLogger({L"", L"", HKEY_CURRENT_USER});
  EXPECT_EQ(Read(), 2);
  vx::ResetLogger({L"", L"own\\level", HKEY_CURRENT_USER});
  EXPECT_EQ(Read(), 0);
  vx::ResetLogger({});
  EXPECT_EQ(Read(), 3);
}

} // namespace
