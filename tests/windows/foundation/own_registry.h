#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace test {

/// A key of one test's own, which takes the place of HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE for this process as long
/// as the object lives, and is deleted then.
class OwnRegistry {
public:
  OwnRegistry() {
    static int count = 0;
    m_name = L"Software\\foundation-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
             std::to_wstring(::GetTickCount64()) + L"-" + std::to_wstring(++count);
    for (HKEY& root : m_roots) {
      const std::wstring path = m_name + (&root == m_roots ? L"\\user" : L"\\machine");
      DWORD disposition = 0;
      EXPECT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root,
                                  &disposition),
                0);
      EXPECT_EQ(disposition, DWORD{REG_CREATED_NEW_KEY});
    }
    EXPECT_EQ(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_roots[1]), 0);
    EXPECT_EQ(::RegOverridePredefKey(HKEY_CURRENT_USER, m_roots[0]), 0);
  }
  ~OwnRegistry() {
    ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    for (const HKEY root : m_roots) {
      ::RegCloseKey(root);
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, m_name.c_str());
  }
  OwnRegistry(const OwnRegistry&) = delete;
  OwnRegistry& operator=(const OwnRegistry&) = delete;

  /// Sets a value, making its key.
  void Set(HKEY root, const wchar_t* path, const wchar_t* name, DWORD type, const void* data, DWORD size) const {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
    EXPECT_EQ(::RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size), 0);
    ::RegCloseKey(key);
  }
  void SetDword(HKEY root, const wchar_t* path, const wchar_t* name, std::uint32_t value) const {
    Set(root, path, name, REG_DWORD, &value, sizeof value);
  }
  void SetText(HKEY root, const wchar_t* path, const wchar_t* name, const std::wstring& value) const {
    Set(root, path, name, REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  }
  static bool Exists(HKEY root, const wchar_t* path) {
    HKEY key = nullptr;
    const bool found = ::RegOpenKeyExW(root, path, 0, KEY_READ, &key) == 0;
    if (found) {
      ::RegCloseKey(key);
    }
    return found;
  }

private:
  std::wstring m_name;
  HKEY m_roots[2] = {};
};

} // namespace test
