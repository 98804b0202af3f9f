#include "foundation/paths.h"

#include "platform/error.h"
#include "platform/file.h"
#include "platform/module.h"

#include <array>

namespace vx {
namespace {

constexpr std::size_t kPathBuffer = platform::kMaxPath + 1;

bool MakeDirectory(const std::wstring& path) {
  return platform::CreateDirectoryW(path.c_str()) || platform::GetLastError() == platform::kErrorAlreadyExists;
}

} // namespace

std::wstring GetSpecialFolder(int id, platform::Handle token) {
  std::array<wchar_t, kPathBuffer> buffer{};
  if (token != nullptr) {
    platform::SHGetFolderPathW(id, token, buffer.data());
  } else {
    platform::SHGetSpecialFolderPathW(buffer.data(), id);
  }
  std::wstring folder = buffer.data();
  AddTrailingSeparator(folder);
  return folder;
}

std::wstring GetConfigFilePath() {
  std::wstring path = GetSpecialFolder(platform::kCsidlLocalAppData, nullptr) + L"norvelVexel\\";
  if (!DirectoryExists(path)) {
    CreateDirectoryTree(path); // when it fails, so does what is done with the file
  }
  return path + L"config_temp.ini";
}

std::wstring GetModuleFilePath(platform::Module module) {
  std::array<wchar_t, kPathBuffer> buffer{};
  if (platform::GetModuleFileNameW(module, buffer.data(), platform::kMaxPath) == 0) {
    return {};
  }
  return buffer.data();
}

std::wstring GetDirectoryOfPath(const std::wstring& path) {
  std::size_t separator = path.rfind(L'\\');
  if (separator == std::wstring::npos) {
    separator = path.rfind(L'/');
  }
  return separator == std::wstring::npos ? std::wstring() : path.substr(0, separator + 1);
}

void AddTrailingSeparator(std::wstring& path) {
  if (path.empty() || (path.back() != L'\\' && path.back() != L'/')) {
    path += L'\\';
  }
}

bool DirectoryExists(const std::wstring& path) {
  const std::uint32_t attributes = platform::GetFileAttributesW(path.c_str());
  return attributes != platform::kInvalidFileAttributes && (attributes & platform::kFileAttributeDirectory) != 0;
}

bool CreateDirectoryTree(const std::wstring& path) {
  if (platform::GetFileAttributesW(path.c_str()) != platform::kInvalidFileAttributes) {
    return true;
  }
  if (MakeDirectory(path)) {
    return true;
  }
  const std::size_t separator = path.rfind(L'\\');
  const std::wstring parent = separator == std::wstring::npos ? std::wstring() : path.substr(0, separator);
  return !parent.empty() && CreateDirectoryTree(parent) && MakeDirectory(path);
}

platform::Module ThisModule() { return platform::GetModuleHandleOfAddress(reinterpret_cast<const void*>(&ThisModule)); }

std::wstring GetModuleDirectory() {
  const platform::Module library = ThisModule();
  std::wstring directory;
  if (library != nullptr) { // which would be the executable
    directory = GetDirectoryOfPath(GetModuleFilePath(library));
  }
  AddTrailingSeparator(directory);
  return directory;
}

} // namespace vx
