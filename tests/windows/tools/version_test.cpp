#include "include/vexelsdk.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

class VersionResource : public ::testing::TestWithParam<const wchar_t*> {
protected:
  void SetUp() override {
    std::array<wchar_t, MAX_PATH> own{};
    const std::wstring program(own.data(), GetModuleFileNameW(nullptr, own.data(), MAX_PATH));
    const std::wstring path = program.substr(0, program.find_last_of(L'\\') + 1) + GetParam();
    DWORD unused = 0;
    m_data.resize(GetFileVersionInfoSizeW(path.c_str(), &unused));
    ASSERT_FALSE(m_data.empty()) << "no version resource, error " << GetLastError();
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(m_data.size()), m_data.data()));
  }

  std::wstring Text(const std::wstring& name) {
    void* text = nullptr;
    UINT length = 0;
    EXPECT_TRUE(VerQueryValueW(m_data.data(), (L"\\StringFileInfo\\040904B0\\" + name).c_str(), &text, &length));
    return length == 0 ? std::wstring() : std::wstring(static_cast<const wchar_t*>(text));
  }

  std::vector<BYTE> m_data;
};

std::wstring Dotted(DWORD high, DWORD low) {
  return std::to_wstring(HIWORD(high)) + L"." + std::to_wstring(LOWORD(high)) + L"." + std::to_wstring(HIWORD(low));
}

TEST_P(VersionResource, SaysTheHeadersVersion) {
  const std::string narrow = VEXELSDK_VERSION_STRING;
  const std::wstring version(narrow.begin(), narrow.end());
  void* block = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(m_data.data(), L"\\", &block, &length));
  ASSERT_GE(length, sizeof(VS_FIXEDFILEINFO));
  const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(block);
  EXPECT_EQ(Dotted(info->dwFileVersionMS, info->dwFileVersionLS), version);
  EXPECT_EQ(Dotted(info->dwProductVersionMS, info->dwProductVersionLS), version);
  EXPECT_EQ(Text(L"FileVersion"), version);
  EXPECT_EQ(Text(L"ProductVersion"), version);
  EXPECT_EQ(Text(L"OriginalFilename"), GetParam());
}

std::string TestName(const ::testing::TestParamInfo<const wchar_t*>& info) {
  const std::wstring name = info.param;
  std::string text;
  for (const wchar_t letter : name.substr(0, name.find(L'.'))) {
    text += static_cast<char>(letter);
  }
  return text;
}

INSTANTIATE_TEST_SUITE_P(Products, VersionResource,
                         ::testing::Values(L"vexelsdk.dll", L"vpipearm64.dll", L"vexelctl.exe", L"vxpixeleditor.exe",
                                           L"webvexlaunch.exe", L"examplehost.exe"),
                         TestName);

} // namespace
