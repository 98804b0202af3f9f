#include "public/vexelsdk/app_launch_table.h"

#include "foundation/ini_wrapper.h"
#include "foundation/paths.h"

#include <utility>

namespace {

constexpr const wchar_t* kLauncher = L"webvexlaunch.exe";
constexpr const wchar_t* kEditor = L"vxpixeleditor.exe";
constexpr const wchar_t* kArgs = L"/vexelsdk";
constexpr const wchar_t* kSection = L"common";

bool LoadConfig(vx::ini::KIniWrapper& config, const std::wstring& path) {
  return config.Load(path.c_str(), vx::ini::INI_UTF8, 1, nullptr);
}

} // namespace

AppLaunchTable& AppLaunchTable::Instance() {
  static AppLaunchTable table(vx::GetModuleDirectory());
  return table;
}

AppLaunchTable::AppLaunchTable(const std::wstring& directory) {
  m_rows[kLauncher] = {kLauncher, directory + kLauncher, L"preview_pid", 1, kArgs};
  m_rows[kEditor] = {kEditor, directory + kEditor, L"pid", 2, kArgs};
}

AppLaunchInfo AppLaunchTable::GetLaunchInfo(std::wstring name) { return m_rows[std::move(name)]; }

AppLaunchInfo AppLaunchTable::GetLaunchInfoByType(std::int32_t appType) const {
  for (const auto& [name, row] : m_rows) {
    if (row.m_appType == appType) {
      return row;
    }
  }
  return {};
}

std::uint32_t AppLaunchTable::ReadSavedPid(std::wstring name) {
  const std::wstring pidKey = GetLaunchInfo(std::move(name)).m_pidKey;
  vx::ini::KIniWrapper config;
  if (!LoadConfig(config, vx::GetConfigFilePath())) {
    return 0;
  }
  return static_cast<std::uint32_t>(config.GetInt(kSection, pidKey, 0));
}

void AppLaunchTable::WriteSavedPid(std::wstring name, std::uint32_t pid) {
  const std::wstring pidKey = GetLaunchInfo(std::move(name)).m_pidKey;
  const std::wstring path = vx::GetConfigFilePath();
  vx::ini::KIniWrapper config;
  if (!LoadConfig(config, path)) {
    return;
  }
  config.SetInt(kSection, pidKey, static_cast<std::int32_t>(pid));
  config.Save(path.c_str(), vx::ini::INI_UTF8, nullptr);
}
