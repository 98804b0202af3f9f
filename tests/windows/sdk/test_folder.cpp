#include "tests/windows/sdk/test_folder.h"

#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <system_error>

namespace sdktest {
namespace {

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

std::wstring ProgramFolder() {
  std::array<wchar_t, MAX_PATH> path{};
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), MAX_PATH);
  const std::wstring text(path.data(), length);
  return text.substr(0, text.find_last_of(L'\\') + 1);
}

std::wstring OwnName() {
  static int count = 0;
  return L"vexel-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64()) + L"-" +
         std::to_wstring(++count);
}

} // namespace

TestFolder::TestFolder() {
  const std::wstring name = OwnName();
  std::array<wchar_t, MAX_PATH> temporary{};
  GetTempPathW(MAX_PATH, temporary.data());
  std::array<wchar_t, MAX_PATH> full{};
  GetLongPathNameW(temporary.data(), full.data(), MAX_PATH);
  m_path = std::wstring(full.data()) + name + L"\\";
  m_registryKey = L"Software\\" + name;
  std::filesystem::create_directories(m_path + L"data");
  for (const wchar_t* const root : {L"\\user", L"\\machine"}) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, (m_registryKey + root).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
  }
  const std::wstring data = m_path + L"data";
  SetRegistry(L"user", kShellFolders, L"Local AppData", REG_EXPAND_SZ,
              std::string(reinterpret_cast<const char*>(data.c_str()), (data.size() + 1) * sizeof(wchar_t)));
}

TestFolder::~TestFolder() {
  // A program that was being started when its host ended is not listed under its path at once, so each turn looks anew.
  std::error_code error;
  const bool isGone = WaitFor([&] {
    for (const Program& program : ProgramsUnder(m_path)) {
      EndProgram(program.pid);
    }
    std::filesystem::remove_all(m_path, error);
    return !FileExists(m_path.substr(0, m_path.size() - 1));
  });
  if (!isGone) {
    ADD_FAILURE() << "the folder cannot be removed: " << error.message();
    for (const Program& program : ProgramsUnder(m_path)) {
      ADD_FAILURE() << "process " << program.pid << " cannot be ended";
    }
  }
  RegDeleteTreeW(HKEY_CURRENT_USER, m_registryKey.c_str());
}

void TestFolder::Add(const std::wstring& from, const std::wstring& into) {
  std::filesystem::create_directories(m_path + into);
  const std::wstring name = from.substr(from.find_last_of(L'\\') + 1);
  EXPECT_TRUE(CopyFileW((ProgramFolder() + from).c_str(), (m_path + into + name).c_str(), TRUE)) << GetLastError();
}

void TestFolder::AddAll() {
  for (const wchar_t* const name :
       {L"testhost.exe", L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
    Add(name);
  }
}

void TestFolder::SetRegistry(const std::wstring& root, const std::wstring& key, const std::wstring& name,
                             std::uint32_t type, const std::string& bytes) {
  HKEY opened = nullptr;
  const std::wstring path = m_registryKey + L"\\" + root + L"\\" + key;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &opened, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(RegSetValueExW(opened, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                           static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
  RegCloseKey(opened);
}

void TestFolder::SetRegistryNumber(const std::wstring& root, const std::wstring& key, const std::wstring& name,
                                   std::uint32_t value) {
  SetRegistry(root, key, name, REG_DWORD, std::string(reinterpret_cast<const char*>(&value), sizeof value));
}

std::wstring TestFolder::SavedPidsFile() const {
  std::filesystem::create_directories(m_path + L"data\\norvelVexel");
  return m_path + L"data\\norvelVexel\\config_temp.ini";
}

std::wstring TestFolder::LogFile() const { return m_path + L"log\\testhost.vexelsdk.dll.log"; }

std::vector<std::string> TestFolder::Log() const { return ReadLines(LogFile()); }

std::vector<std::string> TestFolder::LogWith(const std::string& part) const {
  std::vector<std::string> found;
  for (std::string& line : Log()) {
    if (Contains(line, part)) {
      found.push_back(std::move(line));
    }
  }
  return found;
}

} // namespace sdktest
