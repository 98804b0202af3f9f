#include "public/vexelsdk/app_launch_table.h"

#include "foundation/paths.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class LaunchTable : public testing::Test {
protected:
  AppLaunchTable m_table{L"C:\\App\\"};
};

void ExpectBlank(const AppLaunchInfo& row) {
  EXPECT_EQ(row.m_name, L"");
  EXPECT_EQ(row.m_path, L"");
  EXPECT_EQ(row.m_pidKey, L"");
  EXPECT_EQ(row.m_appType, 1);
  EXPECT_EQ(row.m_args, L"");
}

TEST_F(LaunchTable, HasTheEditorsRow) {
  const AppLaunchInfo row = m_table.GetLaunchInfo(L"vxpixeleditor.exe");
  EXPECT_EQ(row.m_name, L"vxpixeleditor.exe");
  EXPECT_EQ(row.m_path, L"C:\\App\\vxpixeleditor.exe");
  EXPECT_EQ(row.m_pidKey, L"pid");
  EXPECT_EQ(row.m_appType, 2);
  EXPECT_EQ(row.m_args, L"/vexelsdk");
}

TEST_F(LaunchTable, HasTheLaunchersRow) {
  const AppLaunchInfo row = m_table.GetLaunchInfo(L"webvexlaunch.exe");
  EXPECT_EQ(row.m_name, L"webvexlaunch.exe");
  EXPECT_EQ(row.m_path, L"C:\\App\\webvexlaunch.exe");
  EXPECT_EQ(row.m_pidKey, L"preview_pid");
  EXPECT_EQ(row.m_appType, 1);
  EXPECT_EQ(row.m_args, L"/vexelsdk");
}

TEST_F(LaunchTable, SelectsByType) {
  EXPECT_EQ(m_table.GetLaunchInfoByType(1).m_name, L"webvexlaunch.exe");
  EXPECT_EQ(m_table.GetLaunchInfoByType(2).m_name, L"vxpixeleditor.exe");
  for (const std::int32_t unknown : {0, 3, -1, 2147483647}) {
    ExpectBlank(m_table.GetLaunchInfoByType(unknown));
  }
}

TEST_F(LaunchTable, AnUnknownNameGetsABlankRow) { ExpectBlank(m_table.GetLaunchInfo(L"other.exe")); }

TEST_F(LaunchTable, NamesAreComparedWithTheirCase) { ExpectBlank(m_table.GetLaunchInfo(L"VxPixelEditor.exe")); }

TEST_F(LaunchTable, ABlankRowStaysAndTakesTypeOneWhenItsNameComesFirst) {
  m_table.GetLaunchInfo(L"zzz.exe");
  EXPECT_EQ(m_table.GetLaunchInfoByType(1).m_name, L"webvexlaunch.exe");
  m_table.GetLaunchInfo(L"");
  ExpectBlank(m_table.GetLaunchInfoByType(1));
  EXPECT_EQ(m_table.GetLaunchInfoByType(2).m_name, L"vxpixeleditor.exe");
}

TEST_F(LaunchTable, RowsAreCopies) {
  AppLaunchInfo row = m_table.GetLaunchInfo(L"vxpixeleditor.exe");
  row.m_path = L"changed";
  EXPECT_EQ(m_table.GetLaunchInfo(L"vxpixeleditor.exe").m_path, L"C:\\App\\vxpixeleditor.exe");
}

TEST(AppLaunchTable, TheSharedTableLooksBesideTheLibrary) {
  EXPECT_EQ(&AppLaunchTable::Instance(), &AppLaunchTable::Instance());
  const std::wstring directory = vx::GetModuleDirectory();
  ASSERT_GT(directory.size(), 3u);
  EXPECT_EQ(AppLaunchTable::Instance().GetLaunchInfo(L"vxpixeleditor.exe").m_path, directory + L"vxpixeleditor.exe");
  EXPECT_EQ(AppLaunchTable::Instance().GetLaunchInfo(L"webvexlaunch.exe").m_path, directory + L"webvexlaunch.exe");
}

} // namespace
