#include "public/vexelsdk/app_launch_table.h"
#include "public/vexelsdk/vexelsdk_process_util.h"

#include "foundation/paths.h"
#include "tests/unit/foundation/fresh_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

constexpr const wchar_t* kEditor = L"vxpixeleditor.exe";
constexpr const wchar_t* kLauncher = L"webvexlaunch.exe";

// Each test starts without the configuration folder and leaves none behind.
class SavedPids : public testing::Test {
protected:
  SavedPids() { RemoveAll(); }
  ~SavedPids() override { RemoveAll(); }

  void RemoveAll() const {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder.substr(0, m_folder.size() - 1), ignored);
    EXPECT_FALSE(test::Exists(m_folder.substr(0, m_folder.size() - 1)));
  }

  void MakeFile(std::string_view bytes) const {
    ASSERT_TRUE(vx::CreateDirectoryTree(m_folder));
    test::WriteBytes(m_file, bytes);
  }

  const std::wstring m_folder = vx::GetSpecialFolder(platform::kCsidlLocalAppData, nullptr) + L"norvelVexel\\";
  const std::wstring m_file = m_folder + L"config_temp.ini";
  AppLaunchTable m_table{L"C:\\App\\"};
};

TEST_F(SavedPids, AreZeroWhereNothingWasSaved) {
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  EXPECT_EQ(m_table.ReadSavedPid(kLauncher), 0u);
}

TEST_F(SavedPids, ReadingMakesAnEmptyFileWithItsFolder) {
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  EXPECT_TRUE(test::Exists(m_file));
  EXPECT_EQ(test::ReadBytes(m_file), "");
}

TEST_F(SavedPids, ComeBackFromAnotherTable) {
  m_table.WriteSavedPid(kEditor, 4100);
  m_table.WriteSavedPid(kLauncher, 5120);
  AppLaunchTable other(L"D:\\");
  EXPECT_EQ(other.ReadSavedPid(kEditor), 4100u);
  EXPECT_EQ(other.ReadSavedPid(kLauncher), 5120u);
}

TEST_F(SavedPids, StandInTheFileByteForByte) {
  m_table.WriteSavedPid(kLauncher, 5120);
  m_table.WriteSavedPid(kEditor, 4100);
  EXPECT_EQ(test::ReadBytes(m_file), "\xEF\xBB\xBF[common]\r\npid=4100\r\npreview_pid=5120\r\n");
  m_table.WriteSavedPid(kEditor, 0);
  EXPECT_EQ(test::ReadBytes(m_file), "\xEF\xBB\xBF[common]\r\npid=0\r\npreview_pid=5120\r\n");
}

TEST_F(SavedPids, ZeroTakesAnIdBack) {
  m_table.WriteSavedPid(kEditor, 4100);
  m_table.WriteSavedPid(kEditor, 0);
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
}

TEST_F(SavedPids, LargeIdsKeepAllTheirBits) {
  for (const std::uint32_t pid : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    m_table.WriteSavedPid(kEditor, pid);
    EXPECT_EQ(m_table.ReadSavedPid(kEditor), pid);
  }
}

TEST_F(SavedPids, AMissingFolderIsMadeAgain) {
  m_table.WriteSavedPid(kEditor, 1);
  RemoveAll();
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  RemoveAll();
  m_table.WriteSavedPid(kEditor, 2);
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 2u);
}

TEST_F(SavedPids, AnUnknownProgramHasNone) {
  MakeFile("[common]\r\npid=4100\r\n");
  EXPECT_EQ(m_table.ReadSavedPid(L"other.exe"), 0u);
}

TEST_F(SavedPids, FollowAFileWrittenByHand) {
  const struct {
    const char* bytes;
    std::uint32_t editor;
    std::uint32_t launcher;
  } rows[] = {
      {"[common]\npid=12\npreview_pid=13\n", 12, 13},
      {"\xEF\xBB\xBF[Common]\r\nPID = 12\r\n", 12, 0},
      {"[other]\r\npid=12\r\n", 0, 0},
      {"[common]\r\npid=abc\r\npreview_pid=7x\r\n", 0, 7},
      {"[common]\r\nnonsense\r\npid=12\r\n", 0, 0},
      {"[common]\r\npid=12\r\nnonsense\r\npreview_pid=13\r\n", 12, 0},
      {"[common]\r\npid=99999999999\r\n", 2147483647, 0},
      {"not an ini file at all", 0, 0},
      {"\xFF\xFE[\0c\0", 0, 0},
      {"", 0, 0},
  };
  for (const auto& row : rows) {
    MakeFile(row.bytes);
    EXPECT_EQ(m_table.ReadSavedPid(kEditor), row.editor) << row.bytes;
    EXPECT_EQ(m_table.ReadSavedPid(kLauncher), row.launcher) << row.bytes;
  }
}

TEST_F(SavedPids, AForeignTextIsReplaced) {
  MakeFile("not an ini file at all");
  m_table.WriteSavedPid(kEditor, 3);
  EXPECT_EQ(test::ReadBytes(m_file), "\xEF\xBB\xBF[common]\r\npid=3\r\n");
}

TEST_F(SavedPids, ForeignKeysAreKept) {
  MakeFile("[common]\r\nother=x\r\n[more]\r\na=b\r\n");
  m_table.WriteSavedPid(kEditor, 3);
  EXPECT_EQ(test::ReadBytes(m_file), "\xEF\xBB\xBF[common]\r\nother=x\r\npid=3\r\n[more]\r\na=b\r\n");
}

TEST_F(SavedPids, AFileThatIsTooLargeIsLeftAlone) {
  const std::string large = "[common]\r\npid=9\r\n" + std::string(2097152, ' ');
  MakeFile(large);
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  m_table.WriteSavedPid(kEditor, 3);
  EXPECT_EQ(test::ReadBytes(m_file), large);
}

TEST_F(SavedPids, APlainFileInPlaceOfTheFolderMeansNoneSaved) {
  const std::wstring name = m_folder.substr(0, m_folder.size() - 1);
  test::WriteBytes(name, "x");
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  m_table.WriteSavedPid(kEditor, 3);
  EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
  EXPECT_EQ(test::ReadBytes(name), "x");
}

TEST_F(SavedPids, AFileLockedByAnotherIsLeftAlone) {
  MakeFile("[common]\r\npid=9\r\n");
  {
    const vx::UniqueFile lock(platform::CreateFileW(m_file.c_str(), platform::kGenericRead | platform::kGenericWrite, 0,
                                                    platform::kOpenExisting, 0));
    ASSERT_TRUE(lock);
    EXPECT_EQ(m_table.ReadSavedPid(kEditor), 0u);
    m_table.WriteSavedPid(kEditor, 3);
  }
  EXPECT_EQ(test::ReadBytes(m_file), "[common]\r\npid=9\r\n");
}

TEST_F(SavedPids, OfAForeignProgramAreNotUsable) {
  m_table.WriteSavedPid(kEditor, ::GetCurrentProcessId());
  const std::uint32_t pid = m_table.ReadSavedPid(kEditor);
  ASSERT_EQ(pid, ::GetCurrentProcessId());
  EXPECT_FALSE(VexelSdkProcessUtil::IsProcessUsable(pid, m_table.GetLaunchInfo(kEditor).m_path));
}

} // namespace
