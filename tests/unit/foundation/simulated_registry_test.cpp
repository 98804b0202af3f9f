#include "foundation/reg_key.h"
#include "foundation/switches.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/handles.h"
#include "tests/sim/registry.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

namespace {

constexpr const wchar_t* kSwitches = L"SOFTWARE\\Norvel\\NVBrowser\\NVBStrategy";
constexpr const wchar_t* kName = L"OpenPIC_enable";
constexpr std::int32_t kOpenOnly = 1;
constexpr std::int32_t kCreate = 0;
constexpr std::uint32_t kText = 1;
constexpr std::uint32_t kBinary = 3;
constexpr std::uint32_t kDword = 4;
constexpr std::uint32_t kQword = 11;
constexpr std::uint32_t kSetValueRight = 2;

void Set(std::uint32_t value) { sim::SetDword(platform::kHkeyCurrentUser, kSwitches, kName, value); }

void SetRaw(std::uint32_t type, const std::string& bytes) {
  sim::SetBytes(platform::kHkeyCurrentUser, kSwitches, kName, type, bytes);
}

struct SwitchCase {
  const char* name;
  std::function<void()> setUp;
  std::int32_t value;
  bool supports;
};

void PrintTo(const SwitchCase& row, std::ostream* out) { *out << row.name; }

class Switch : public testing::TestWithParam<SwitchCase> {
protected:
  sim::World m_world;
};

TEST_P(Switch, AnswersAndKeepsNothingOpen) {
  GetParam().setUp();
  const bool keyIsThere = sim::KeyExists(platform::kHkeyCurrentUser, kSwitches);
  EXPECT_EQ(vx::GetSwitchValue("OpenPIC_enable"), GetParam().value);
  EXPECT_EQ(vx::IsSupportPreview(), GetParam().supports);
  EXPECT_EQ(sim::KeyExists(platform::kHkeyCurrentUser, kSwitches), keyIsThere);
  EXPECT_EQ(sim::CallCount("RegCreateKeyExW"), 0);
  EXPECT_EQ(sim::OpenHandles(), 0);
  EXPECT_FALSE(sim::FolderExists(L"C:\\Host\\log")); // nothing is logged
}

INSTANTIATE_TEST_SUITE_P(
    Switches, Switch,
    testing::Values(
        SwitchCase{"NoKey", [] {}, -101, false},
        SwitchCase{"AKeyThatDoesNotOpen",
                   [] {
                     Set(1);
                     sim::FailAlways("RegOpenKeyW", 5);
                   },
                   -101, false},
        SwitchCase{"TheMachinesKeyIsNotAsked", [] { sim::SetDword(platform::kHkeyLocalMachine, kSwitches, kName, 1); },
                   -101, false},
        SwitchCase{"NoValue", [] { sim::AddKey(platform::kHkeyCurrentUser, kSwitches); }, -1, false},
        SwitchCase{"Zero", [] { Set(0); }, 0, false}, SwitchCase{"One", [] { Set(1); }, 1, true},
        SwitchCase{"Two", [] { Set(2); }, 2, false},
        SwitchCase{"TheHighestBit", [] { Set(0x80000000u); }, INT32_MIN, false},
        SwitchCase{"AllBits", [] { Set(0xFFFFFFFFu); }, -1, false},
        SwitchCase{"TheCodeOfANullName", [] { Set(0xFFFFFF9Cu); }, -100, false},
        SwitchCase{"TheCodeOfNoKey", [] { Set(0xFFFFFF9Bu); }, -101, false},
        SwitchCase{"TheTextOne", [] { sim::SetText(platform::kHkeyCurrentUser, kSwitches, kName, L"1"); }, -1, false},
        SwitchCase{"FourBytesOfText", [] { SetRaw(kText, std::string("\1\0\0\0", 4)); }, -1, false},
        SwitchCase{"FourBytes", [] { SetRaw(kBinary, std::string("\1\0\0\0", 4)); }, -1, false},
        SwitchCase{"ALongNumber", [] { SetRaw(kQword, std::string("\1\0\0\0\0\0\0\0", 8)); }, -1, false},
        SwitchCase{"ANumberOfEightBytes", [] { SetRaw(kDword, std::string("\1\0\0\0\0\0\0\0", 8)); }, -1, false}),
    [](const auto& entry) { return std::string(entry.param.name); });

class RegistryKeys : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(RegistryKeys, ASwitchsNameIsUtf8AndEmptyForTheDefaultValue) {
  sim::SetDword(platform::kHkeyCurrentUser, kSwitches, L"\u56FE\u00E9", 12);
  sim::SetDword(platform::kHkeyCurrentUser, kSwitches, L"\uFFFD", 13);
  EXPECT_EQ(vx::GetSwitchValue("\xE5\x9B\xBE\xC3\xA9"), 12);
  EXPECT_EQ(vx::GetSwitchValue("\xFF"), 13); // a bad byte is replaced, not refused
  EXPECT_EQ(vx::GetSwitchValue(""), -1);
  sim::SetText(platform::kHkeyCurrentUser, kSwitches, L"", L"41");
  EXPECT_EQ(vx::GetSwitchValue(""), -1);
  sim::SetDword(platform::kHkeyCurrentUser, kSwitches, L"", 41);
  EXPECT_EQ(vx::GetSwitchValue(""), 41);
}

TEST_F(RegistryKeys, AnObjectHoldsOneKeyAtATimeAndNoneBehindItsLife) {
  sim::SetDword(platform::kHkeyCurrentUser, L"a", L"number", 1);
  sim::SetDword(platform::kHkeyCurrentUser, L"b", L"number", 2);
  std::uint32_t out = 0;
  {
    vx::KRegKey key;
    ASSERT_TRUE(key.Open(platform::kHkeyCurrentUser, L"a", kOpenOnly));
    ASSERT_TRUE(key.Open(platform::kHkeyCurrentUser, L"b", kCreate));
    EXPECT_EQ(sim::OpenHandles(), 1);
    EXPECT_TRUE(key.QueryDword(L"number", &out));
    EXPECT_EQ(out, 2u);
    EXPECT_FALSE(key.Open(platform::kHkeyCurrentUser, L"missing", kOpenOnly));
    EXPECT_EQ(sim::OpenHandles(), 0);
    EXPECT_FALSE(key.QueryDword(L"number", &out));
    EXPECT_EQ(out, 2u);
    ASSERT_TRUE(key.Open(platform::kHkeyCurrentUser, L"a", kOpenOnly));
    key.Close();
    key.Close();
    EXPECT_FALSE(key.QueryDword(L"number", &out));
    ASSERT_TRUE(key.Open(platform::kHkeyCurrentUser, L"a", kOpenOnly));
  }
  EXPECT_EQ(sim::OpenHandles(), 0);
  EXPECT_EQ(sim::BadCloses(), 0);
}

TEST_F(RegistryKeys, MakingAsksForEveryRight) {
  sim::DenyKey(platform::kHkeyCurrentUser, L"a", kSetValueRight);
  vx::KRegKey key;
  EXPECT_FALSE(key.Open(platform::kHkeyCurrentUser, L"a", kCreate));
  sim::DenyKey(platform::kHkeyCurrentUser, L"a", 0);
  EXPECT_TRUE(key.Open(platform::kHkeyCurrentUser, L"a", kCreate));
}

TEST_F(RegistryKeys, AnyNumberButZeroOnlyOpens) {
  for (const std::int32_t openOnly : {1, 2, -1, INT32_MIN}) {
    vx::KRegKey key;
    EXPECT_FALSE(key.Open(platform::kHkeyCurrentUser, L"a", openOnly));
    EXPECT_FALSE(sim::KeyExists(platform::kHkeyCurrentUser, L"a"));
  }
  EXPECT_EQ(sim::CallCount("RegCreateKeyExW"), 0);
}

} // namespace
