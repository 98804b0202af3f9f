#include "foundation/paths.h"

#include "platform/module.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Paths, TheFolderOfAPathEndsWithItsLastSeparator) {
  const struct {
    const wchar_t* path;
    const wchar_t* folder;
  } cases[] = {{L"C:\\a\\b.exe", L"C:\\a\\"},
               {L"C:\\a\\", L"C:\\a\\"},
               {L"b.exe", L""},
               {L"", L""},
               {L"C:/a/b.exe", L"C:/a/"},
               {L"C:\\a/b.exe", L"C:\\"},
               {L"\\", L"\\"},
               {L"/b", L"/"},
               {L"C:b.exe", L""}};
  for (const auto& entry : cases) {
    EXPECT_EQ(vx::GetDirectoryOfPath(entry.path), entry.folder);
  }
}

TEST(Paths, ASeparatorIsAddedOnlyWhereNoneIs) {
  const struct {
    const wchar_t* path;
    const wchar_t* ended;
  } cases[] = {{L"", L"\\"}, {L"C:", L"C:\\"}, {L"C:\\a", L"C:\\a\\"}, {L"C:\\a\\", L"C:\\a\\"}, {L"C:/a/", L"C:/a/"}};
  for (const auto& entry : cases) {
    std::wstring path = entry.path;
    vx::AddTrailingSeparator(path);
    EXPECT_EQ(path, entry.ended);
  }
}

TEST(Paths, ATreeOfFoldersIsMade) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a\\b\\c");
  EXPECT_FALSE(vx::DirectoryExists(path));
  EXPECT_TRUE(vx::CreateDirectoryTree(path));
  EXPECT_TRUE(vx::DirectoryExists(path));
  EXPECT_TRUE(vx::CreateDirectoryTree(path));
}

TEST(Paths, ATreeMayEndWithABackslash) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a\\b\\");
  EXPECT_TRUE(vx::CreateDirectoryTree(path));
  EXPECT_TRUE(vx::DirectoryExists(path));
}

TEST(Paths, OnlyBackslashesLeadToParents) {
  const test::FreshFolder folder;
  EXPECT_FALSE(vx::CreateDirectoryTree(folder.Path(L"a/b/c")));
  EXPECT_FALSE(vx::DirectoryExists(folder.Path(L"a")));
  EXPECT_FALSE(vx::CreateDirectoryTree(L""));
}

TEST(Paths, APlainFileIsNoFolderAndNoTreeIsMadeOverIt) {
  const test::FreshFolder folder;
  const std::wstring path = folder.Path(L"a");
  test::WriteBytes(path, "x");
  EXPECT_FALSE(vx::DirectoryExists(path));
  EXPECT_TRUE(vx::CreateDirectoryTree(path));
  EXPECT_FALSE(vx::CreateDirectoryTree(path + L"\\b"));
  EXPECT_EQ(test::ReadBytes(path), "x");
}

TEST(Paths, TheConfigurationLiesInAFolderThatIsThere) {
  const std::wstring path = vx::GetConfigFilePath();
  const std::wstring folder = vx::GetSpecialFolder(28, nullptr) + L"norvelVexel\\";
  EXPECT_EQ(path, folder + L"config_temp.ini");
  EXPECT_TRUE(vx::DirectoryExists(folder));
}

TEST(Paths, AnUnknownSpecialFolderIsJustASeparator) { EXPECT_EQ(vx::GetSpecialFolder(0x7FFF, nullptr), L"\\"); }

TEST(Paths, ThisModuleHasAFolder) {
  const std::wstring path = vx::GetModuleFilePath(vx::ThisModule());
  EXPECT_EQ(vx::GetModuleDirectory(), vx::GetDirectoryOfPath(path));
  EXPECT_EQ(vx::GetModuleDirectory().back(), L'\\');
  EXPECT_GT(path.size(), vx::GetModuleDirectory().size());
  EXPECT_NE(vx::GetModuleFilePath(nullptr), L"");
}

TEST(Paths, WhatIsNoModuleHasNoPath) {
  static int outside;
  EXPECT_EQ(vx::GetModuleFilePath(&outside), L"");
}

} // namespace
