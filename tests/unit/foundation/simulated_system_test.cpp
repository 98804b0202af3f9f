#include "foundation/ini_wrapper.h"
#include "foundation/paths.h"
#include "foundation/reg_key.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "tests/sim/faults.h"
#include "tests/sim/file.h"
#include "tests/sim/module.h"
#include "tests/sim/process.h"
#include "tests/sim/registry.h"
#include "tests/sim/world.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

constexpr const wchar_t* kKey = L"Software\\Test\\New";

/// What a real system would not do on demand.
class SimulatedSystem : public testing::Test {
protected:
  sim::World m_world;
};

TEST_F(SimulatedSystem, AKeyThatIsMissingIsMadeOnlyWhenAskedFor) {
  vx::KRegKey key;
  EXPECT_FALSE(key.Open(platform::kHkeyCurrentUser, kKey, 1));
  EXPECT_FALSE(sim::KeyExists(platform::kHkeyCurrentUser, kKey));
  EXPECT_TRUE(key.Open(platform::kHkeyCurrentUser, kKey, 0));
  EXPECT_TRUE(sim::KeyExists(platform::kHkeyCurrentUser, kKey));
}

TEST_F(SimulatedSystem, AKeyThatIsNotOpenHasNoValue) {
  const vx::KRegKey key;
  std::uint32_t value = 7;
  EXPECT_FALSE(key.QueryDword(L"", &value));
  EXPECT_EQ(value, 7u);
}

TEST_F(SimulatedSystem, TheSpecialFolderOfATokenIsThatOfItsUser) {
  sim::ProcessSpec spec;
  spec.path = L"C:\\other.exe";
  spec.user = L"Other";
  sim::AddFolder(L"C:\\Users\\Other\\AppData\\Local");
  sim::SetSpecialFolder(platform::kCsidlLocalAppData, L"C:\\Users\\Other\\AppData\\Local", L"Other");
  const platform::Handle process = platform::OpenProcess(platform::kProcessQueryInformation, sim::StartProcess(spec));
  platform::Handle token = nullptr;
  ASSERT_TRUE(platform::OpenProcessToken(process, platform::kTokenQuery, &token));
  EXPECT_EQ(vx::GetSpecialFolder(platform::kCsidlLocalAppData, token), L"C:\\Users\\Other\\AppData\\Local\\");
  EXPECT_EQ(vx::GetSpecialFolder(platform::kCsidlLocalAppData, nullptr), std::wstring(sim::kLocalAppData) + L"\\");
  EXPECT_TRUE(platform::CloseHandle(token));
  EXPECT_TRUE(platform::CloseHandle(process));
}

TEST_F(SimulatedSystem, TheConfigurationsFolderIsMadeAgainWhenItHasGoneAndItsPathStandsWhenItCanNotBe) {
  const std::wstring folder = std::wstring(sim::kLocalAppData) + L"\\norvelVexel";
  vx::GetConfigFilePath();
  sim::RemovePath(folder);
  EXPECT_EQ(vx::GetConfigFilePath(), folder + L"\\config_temp.ini");
  EXPECT_TRUE(sim::FolderExists(folder));
  sim::RemovePath(folder);
  sim::SetReadOnly(sim::kLocalAppData);
  EXPECT_EQ(vx::GetConfigFilePath(), folder + L"\\config_temp.ini");
  EXPECT_FALSE(sim::FolderExists(folder));
}

TEST_F(SimulatedSystem, AFolderThatIsThereByNowCountsAsMade) {
  sim::FailNth("CreateDirectoryW", 1, sim::kOnce, 183);
  EXPECT_TRUE(vx::CreateDirectoryTree(L"C:\\a\\b"));
  EXPECT_EQ(sim::CallCount("CreateDirectoryW"), 1);
  sim::FailNth("CreateDirectoryW", 3, sim::kOnce, 183); // the parent is made by the second
  EXPECT_TRUE(vx::CreateDirectoryTree(L"C:\\a\\b"));
  EXPECT_EQ(sim::CallCount("CreateDirectoryW"), 4);
  EXPECT_TRUE(sim::FolderExists(L"C:\\a"));
}

TEST_F(SimulatedSystem, APathThatIsTooLongIsCut) {
  const std::wstring path = L"C:\\" + std::wstring(300, L'a');
  sim::ReportExecutablePath(path);
  EXPECT_EQ(vx::GetModuleFilePath(nullptr), path.substr(0, 259));
}

TEST_F(SimulatedSystem, AnIniFileOfFourGibibytesIsNotTaken) {
  sim::AddFile(L"C:\\a.ini", "[a]\r\nk=1\r\n");
  sim::SetReportedSize(L"C:\\a.ini", (std::int64_t{1} << 32) + 10);
  vx::ini::KIniWrapper ini;
  EXPECT_FALSE(ini.Load(L"C:\\a.ini", vx::ini::INI_UTF8, 0));
  sim::SetReportedSize(L"C:\\a.ini", -1);
  EXPECT_TRUE(ini.Load(L"C:\\a.ini", vx::ini::INI_UTF8, 0));
  EXPECT_EQ(ini.GetInt(L"a", L"k", 5), 1);
}

TEST_F(SimulatedSystem, AnIniFileWhoseReadFailsIsNotTaken) {
  sim::AddFile(L"C:\\a.ini", "[a]\r\nk=1\r\n");
  sim::FailNth("ReadFile", 1);
  vx::ini::KIniWrapper ini;
  EXPECT_FALSE(ini.Load(L"C:\\a.ini", vx::ini::INI_UTF8, 0));
}

TEST_F(SimulatedSystem, AnIniFileWhoseWriteFailsIsNotSaved) {
  vx::ini::KIniWrapper ini;
  ini.SetInt(L"a", L"k", 1);
  sim::FailNth("WriteFile", 1);
  EXPECT_FALSE(ini.Save(L"C:\\a.ini", vx::ini::INI_UTF16));
  EXPECT_EQ(sim::FileBytes(L"C:\\a.ini"), "");
}

} // namespace
