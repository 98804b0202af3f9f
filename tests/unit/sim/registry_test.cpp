#include "tests/sim/registry.h"

#include <gtest/gtest.h>

#include "platform/error.h"
#include "platform/sync.h"
#include "tests/sim/handles.h"
#include "tests/sim/world.h"

namespace {

using namespace platform;

class SimRegistry : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimRegistry, AMissingKeyOrValueGives2) {
  RegistryKey key = nullptr;
  EXPECT_EQ(RegOpenKeyW(kHkeyCurrentUser, L"Software\\A", &key), 2);
  sim::SetDword(kHkeyCurrentUser, L"Software\\A", L"x", 7);
  ASSERT_EQ(RegOpenKeyW(kHkeyCurrentUser, L"SOFTWARE\\a", &key), 0);
  std::uint32_t type = 0;
  std::uint32_t value = 0;
  std::uint32_t size = sizeof value;
  EXPECT_EQ(RegQueryValueExW(key, L"X", &type, &value, &size), 0);
  EXPECT_EQ(type, kRegDword);
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(RegQueryValueExW(key, L"y", &type, &value, &size), 2);
  EXPECT_EQ(RegQueryValueExW(key, L"", &type, &value, &size), 2);
  sim::SetDword(kHkeyCurrentUser, L"Software\\A", L"", 9);
  EXPECT_EQ(RegQueryValueExW(key, nullptr, nullptr, &value, &size), 0);
  EXPECT_EQ(value, 9u);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(RegCloseKey(key), 6);
  EXPECT_EQ(RegOpenKeyW(kHkeyLocalMachine, L"Software\\A", &key), 2);
}

TEST_F(SimRegistry, AValueThatDoesNotFitGives234AndItsSize) {
  sim::SetText(kHkeyCurrentUser, L"A", L"text", L"abc");
  RegistryKey key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(kHkeyCurrentUser, L"A", kKeyRead, &key), 0);
  std::uint32_t type = 0;
  std::uint32_t value = 5;
  std::uint32_t size = sizeof value;
  EXPECT_EQ(RegQueryValueExW(key, L"text", &type, &value, &size), 234);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(type, 1u);
  size = 0;
  EXPECT_EQ(RegQueryValueExW(key, L"text", nullptr, nullptr, &size), 0);
  EXPECT_EQ(size, 8u);
  RegCloseKey(key);
}

TEST_F(SimRegistry, ADeniedKeyGives5) {
  sim::AddKey(kHkeyLocalMachine, L"A\\B");
  sim::DenyKey(kHkeyLocalMachine, L"A", kKeyRead);
  RegistryKey key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(kHkeyLocalMachine, L"A", kKeyRead, &key), 5);
  EXPECT_EQ(RegOpenKeyW(kHkeyLocalMachine, L"A", &key), 5);
  EXPECT_EQ(RegOpenKeyExW(kHkeyLocalMachine, L"A\\B", kKeyRead, &key), 0);
  RegCloseKey(key);
  sim::DenyKey(kHkeyLocalMachine, L"A", 0);
  EXPECT_EQ(RegOpenKeyW(kHkeyLocalMachine, L"A", &key), 0);
  RegCloseKey(key);
}

TEST_F(SimRegistry, CreatingMakesTheWholePathOnce) {
  RegistryKey key = nullptr;
  std::uint32_t disposition = 0;
  EXPECT_EQ(RegCreateKeyExW(kHkeyCurrentUser, L"A\\B\\C", kKeyAllAccess, &key, &disposition), 0);
  EXPECT_EQ(disposition, 1u);
  RegCloseKey(key);
  EXPECT_TRUE(sim::KeyExists(kHkeyCurrentUser, L"a\\b"));
  EXPECT_EQ(RegCreateKeyExW(kHkeyCurrentUser, L"a\\b\\c", kKeyAllAccess, &key, &disposition), 0);
  EXPECT_EQ(disposition, 2u);
  RegCloseKey(key);
  sim::DeleteKey(kHkeyCurrentUser, L"A\\B");
  EXPECT_FALSE(sim::KeyExists(kHkeyCurrentUser, L"A\\B\\C"));
  EXPECT_TRUE(sim::KeyExists(kHkeyCurrentUser, L"A"));
  sim::DenyKey(kHkeyCurrentUser, L"A", kKeyAllAccess);
  EXPECT_EQ(RegCreateKeyExW(kHkeyCurrentUser, L"A\\D\\E", kKeyAllAccess, &key, &disposition), 5);
  EXPECT_FALSE(sim::KeyExists(kHkeyCurrentUser, L"A\\D"));
}

TEST_F(SimRegistry, TheLastErrorStaysAndKeysAreNoHandles) {
  SetLastError(77);
  RegistryKey key = nullptr;
  RegOpenKeyW(kHkeyCurrentUser, L"none", &key);
  EXPECT_EQ(GetLastError(), 77u);
  EXPECT_EQ(RegOpenKeyExW(kHkeyCurrentUser, L"\\none", kKeyRead, &key), 161);
  sim::AddKey(kHkeyCurrentUser, L"A");
  ASSERT_EQ(RegOpenKeyW(kHkeyCurrentUser, L"A", &key), 0);
  EXPECT_FALSE(CloseHandle(key));
  EXPECT_EQ(sim::OpenHandles(sim::HandleKind::kRegistryKey), 1);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(RegCloseKey(kHkeyCurrentUser), 0);
  EXPECT_EQ(sim::OpenHandles(), 0);
}

} // namespace
