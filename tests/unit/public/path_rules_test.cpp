#include "public/vexelsdk/process_inventory.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "platform/file.h"

#include <gtest/gtest.h>

#include <string>

namespace VexelSdkProcessUtil {
namespace {

TEST(NormalizeComparePath, FollowsItsTable) {
  const struct {
    const wchar_t* path;
    const wchar_t* normal;
  } rows[] = {
      {L"", L""},
      {L"a", L"a"},
      {L"C:\\a\\b.exe", L"C:\\a\\b.exe"},
      {L"C:/a/b.exe", L"C:\\a\\b.exe"},
      {L"C:\\a/b.exe", L"C:\\a\\b.exe"},
      {L"C:\\\\a\\b.exe", L"C:\\a\\b.exe"},
      {L"C://a\\/b.exe", L"C:\\a\\b.exe"},
      {L"C:\\\\\\\\a\\b.exe", L"C:\\a\\b.exe"},
      {L"C:\\a\\", L"C:\\a"},
      {L"C:\\a\\\\\\", L"C:\\a"},
      {L"C:\\a/", L"C:\\a"},
      {L"\\", L""},
      {L"\\\\\\", L""},
      {L"//server/share", L"\\server\\share"},
      {L"CASE", L"CASE"},
  };
  for (const auto& row : rows) {
    std::wstring path = row.path;
    NormalizeComparePath(path);
    EXPECT_EQ(path, row.normal);
  }
}

TEST(NormalizeComparePath, TheSearchSkipsWhatARunHasLost) {
  const struct {
    const wchar_t* path;
    const wchar_t* normal;
  } rows[] = {
      {L"a\\\\b\\\\c", L"a\\b\\c"},           // one lost: only "b" is skipped
      {L"a\\\\\\b\\\\c", L"a\\b\\\\c"},       // two lost: of the second run a single backslash is left to be met
      {L"a\\\\\\b\\\\\\c", L"a\\b\\\\c"},     // two lost: of the second run two are left, which collapse
      {L"a\\\\\\\\b\\\\c", L"a\\b\\\\c"},     // three lost: the second run is not met
      {L"a\\\\\\\\b\\\\\\c", L"a\\b\\\\\\c"}, // three lost: a single one is left
      {L"a\\\\\\\\\\b\\\\c", L"a\\b\\\\c"},   // four lost: the search goes on at the end of the text
      {L"a\\\\\\bc\\\\d", L"a\\bc\\d"},       // far enough behind
      {L"a\\\\\\\\\\b", L"a\\b"},             // the search goes on behind the end of the text
  };
  for (const auto& row : rows) {
    std::wstring path = row.path;
    NormalizeComparePath(path);
    EXPECT_EQ(path, row.normal);
  }
}

TEST(IsSamePath, IgnoresCaseSeparatorsAndBackslashesThatSayNothing) {
  const std::wstring path = L"C:\\App\\vxpixeleditor.exe";
  for (const wchar_t* same : {L"C:\\App\\vxpixeleditor.exe", L"c:\\app\\VXPIXELEDITOR.EXE", L"C:/App/vxpixeleditor.exe",
                              L"C:\\\\App\\vxpixeleditor.exe", L"C:\\App\\\\vxpixeleditor.exe",
                              L"C:\\App\\vxpixeleditor.exe\\", L"C:\\App\\vxpixeleditor.exe//"}) {
    EXPECT_TRUE(IsSamePath(path, same)) << testing::PrintToString(std::wstring(same));
    EXPECT_TRUE(IsSamePath(same, path)) << testing::PrintToString(std::wstring(same));
  }
}

TEST(IsSamePath, KeepsOtherFilesApart) {
  const std::wstring path = L"C:\\App\\vxpixeleditor.exe";
  for (const wchar_t* other :
       {L"", L"C:\\App", L"C:\\App\\vxpixeleditor.ex", L"C:\\App\\vxpixeleditor.exe ", L"D:\\App\\vxpixeleditor.exe",
        L"\\C:\\App\\vxpixeleditor.exe", L"C:\\Bpp\\vxpixeleditor.exe"}) {
    EXPECT_FALSE(IsSamePath(path, other)) << testing::PrintToString(std::wstring(other));
  }
}

TEST(IsSamePath, LeavesItsArgumentsAlone) {
  const std::wstring left = L"C:/A//b/";
  const std::wstring right = L"c:\\a\\B";
  EXPECT_TRUE(IsSamePath(left, right));
  EXPECT_EQ(left, L"C:/A//b/");
}

TEST(FileNameOfPath, IsWhatFollowsTheLastSeparator) {
  EXPECT_EQ(FileNameOfPath(L"C:\\a\\b.exe"), L"b.exe");
  EXPECT_EQ(FileNameOfPath(L"C:/a/b.exe"), L"b.exe");
  EXPECT_EQ(FileNameOfPath(L"C:\\a/b.exe"), L"b.exe");
  EXPECT_EQ(FileNameOfPath(L"C:/a\\b.exe"), L"b.exe");
  EXPECT_EQ(FileNameOfPath(L"b.exe"), L"b.exe");
  EXPECT_EQ(FileNameOfPath(L"C:b.exe"), L"C:b.exe");
  EXPECT_EQ(FileNameOfPath(L"C:\\a\\"), L"");
  EXPECT_EQ(FileNameOfPath(L""), L"");
}

TEST(NormalizeNativePath, PlainPathsPassUntouched) {
  for (const wchar_t* plain : {L"C:\\A.exe", L"c:/a.exe", L"a", L"", L"\x3f?\\C:\\a.exe"}) {
    std::wstring path = plain;
    EXPECT_TRUE(NormalizeNativePath(path));
    EXPECT_EQ(path, plain);
  }
}

TEST(NormalizeNativePath, CutsTheNativePrefix) {
  std::wstring path = L"\\??\\C:\\Dir\\A.exe";
  EXPECT_TRUE(NormalizeNativePath(path));
  EXPECT_EQ(path, L"C:\\Dir\\A.exe");
}

TEST(NormalizeNativePath, ExpandsTheSystemRoot) {
  wchar_t root[261] = {};
  ASSERT_GT(platform::ExpandEnvironmentStringsW(L"%SystemRoot%", root, 260), 4u);
  ASSERT_EQ(root[1], L':');
  std::wstring path = L"\\SystemRoot\\system32\\a.exe";
  EXPECT_TRUE(NormalizeNativePath(path));
  EXPECT_EQ(path, std::wstring(root) + L"\\system32\\a.exe");
}

TEST(NormalizeNativePath, WhatHasNoDriveIsEmptied) {
  for (const wchar_t* bad :
       {L"\\", L"\\Device\\x.exe", L"\\??\\", L"\\??\\C:", L"\\??\\C:\\", L"\\??\\UNC\\server\\a.exe",
        L"\\systemroot\\system32\\a.exe", L"\\SystemRoot", L"\\\\server\\share\\a.exe"}) {
    std::wstring path = bad;
    EXPECT_FALSE(NormalizeNativePath(path)) << testing::PrintToString(std::wstring(bad));
    EXPECT_EQ(path, L"");
  }
}

TEST(NormalizeNativePath, FourCharactersSuffice) {
  std::wstring path = L"\\??\\C:\\a";
  EXPECT_TRUE(NormalizeNativePath(path));
  EXPECT_EQ(path, L"C:\\a");
}

class DevicePaths : public testing::Test {
protected:
  DevicePaths() {
    m_map.Append(L"\\Device\\HarddiskVolume1", L"C:");
    m_map.Append(L"\\Device\\HarddiskVolume10", L"D:");
    m_map.Append(L"", L"E:");
    m_map.Append(L"\\Device\\HarddiskVolume10", L"F:");
    m_map.Append(L"\\Device\\Cd", L"G:");
  }

  std::wstring Translate(std::wstring path, bool matched) const {
    EXPECT_EQ(m_map.TranslateDevicePath(path), matched);
    return path;
  }

  DevicePathMap m_map;
};

TEST_F(DevicePaths, ADeviceBecomesItsDriveInLowerCase) {
  EXPECT_EQ(Translate(L"\\Device\\HarddiskVolume1\\Dir\\A.EXE", true), L"c:\\dir\\a.exe");
  EXPECT_EQ(Translate(L"\\DEVICE\\CD\\a.exe", true), L"g:\\a.exe");
}

TEST_F(DevicePaths, TheLongerNameWinsAndTheFirstOfEquals) {
  EXPECT_EQ(Translate(L"\\Device\\HarddiskVolume10\\a.exe", true), L"d:\\a.exe");
}

TEST_F(DevicePaths, EveryOccurrenceIsReplaced) {
  EXPECT_EQ(Translate(L"\\Device\\Cd\\x\\Device\\Cd\\Device\\Cd", true), L"g:\\xg:g:");
}

TEST_F(DevicePaths, OnlyTheStartOfThePathCounts) {
  EXPECT_EQ(Translate(L"C:\\Device\\Cd\\A.exe", false), L"c:\\device\\cd\\a.exe");
}

TEST_F(DevicePaths, AnUnknownDeviceStaysInLowerCase) {
  EXPECT_EQ(Translate(L"\\Device\\Mup\\Server\\A.exe", false), L"\\device\\mup\\server\\a.exe");
  EXPECT_EQ(Translate(L"", false), L"");
}

TEST(DevicePathMap, AnEmptyMapStillLowers) {
  const DevicePathMap map;
  EXPECT_FALSE(map.IsLoaded());
  std::wstring path = L"\\Device\\X";
  EXPECT_FALSE(map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"\\device\\x");
}

TEST(DevicePathMap, LoadsTheDrivesOfTheSystem) {
  wchar_t device[261] = {};
  ASSERT_NE(platform::QueryDosDeviceW(L"C:", device, 260), 0u);
  DevicePathMap map;
  map.LoadDevicePathMap();
  EXPECT_TRUE(map.IsLoaded());
  std::wstring path = std::wstring(device) + L"\\A\\B.exe";
  EXPECT_TRUE(map.TranslateDevicePath(path));
  EXPECT_EQ(path, L"c:\\a\\b.exe");
}

} // namespace
} // namespace VexelSdkProcessUtil
