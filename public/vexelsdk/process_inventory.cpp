#include "public/vexelsdk/process_inventory.h"

#include "foundation/text_codecs.h"
#include "foundation/unique_handle.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/process.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

namespace VexelSdkProcessUtil {
namespace {

// Units of a path buffer that the system fills; each buffer here has one more, which stays zero.
constexpr std::uint32_t kPathUnits = platform::kMaxPath;
constexpr std::uint32_t kDriveStringUnits = 105;
constexpr std::uint32_t kUnitsPerDrive = 4;
constexpr std::size_t kMaxTestedPath = 260;
constexpr std::wstring_view kNtPrefix = L"\\??\\";
constexpr std::wstring_view kSystemRootPrefix = L"\\SystemRoot\\";

struct PsapiName {
  const char* name;
  bool required;
};

using GetModuleFileNameExFunction = std::uint32_t (*)(platform::Handle, platform::Module, wchar_t*, std::uint32_t);
using GetProcessImageFileNameFunction = std::uint32_t (*)(platform::Handle, wchar_t*, std::uint32_t);

// Made by the first lookup and never deleted.
class ProcessPathResolver {
public:
  ProcessPathResolver() { m_devices.LoadDevicePathMap(); }

  PsapiFunctions& Psapi() { return m_psapi; }
  const DevicePathMap& Devices() const { return m_devices; }

private:
  PsapiFunctions m_psapi;
  DevicePathMap m_devices;
};

ProcessPathResolver& Resolver() {
  // The exchange that puts the object in has release, each look acquire: whoever finds it finds it whole.
  static std::atomic<ProcessPathResolver*> shared{nullptr};
  ProcessPathResolver* current = shared.load(std::memory_order_acquire);
  if (current == nullptr) {
    // First lookups may race: one object is kept, the others have been seen by nobody.
    auto own = std::make_unique<ProcessPathResolver>();
    if (shared.compare_exchange_strong(current, own.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
      current = own.release();
    }
  }
  return *current;
}

} // namespace

std::wstring GetProcessPath(std::uint32_t pid) {
  vx::UniqueHandle process(platform::OpenProcess(platform::kProcessAllAccess, pid));
  if (!process) {
    process = vx::UniqueHandle(platform::OpenProcess(platform::kProcessQueryInformation, pid));
  }
  if (!process) {
    return {};
  }
  std::wstring path = QueryModuleFilePath(process.Get());
  if (path.empty()) {
    path = QueryImageFilePath(process.Get());
  }
  return path;
}

std::int32_t IsPathRunning(const wchar_t* path, std::int32_t count) {
  if (path == nullptr || *path == L'\0') {
    return 0;
  }
  const std::wstring wanted = path;
  if (wanted.size() > kMaxTestedPath) {
    return 0;
  }
  const std::wstring fileName = FileNameOfPath(wanted);
  const vx::UniqueFile snapshot(platform::CreateToolhelp32Snapshot(platform::kSnapProcess, 0));
  if (!snapshot) {
    return 0;
  }

  std::int32_t found = 0;
  platform::ProcessEntry entry{};
  bool more = platform::Process32FirstW(snapshot.Get(), &entry);
  while (more) {
    // The name costs nothing; only processes that share it are opened.
    if (vx::EqualsIgnoreCase(platform::PathFindFileNameW(entry.exeFile), fileName) &&
        vx::EqualsIgnoreCase(GetProcessPath(entry.pid), wanted)) {
      ++found;
      if (found >= count) {
        return 1;
      }
    }
    entry = {};
    more = platform::Process32NextW(snapshot.Get(), &entry);
  }
  return 0;
}

std::wstring FileNameOfPath(const std::wstring& path) {
  const std::size_t separator = path.find_last_of(L"\\/");
  return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

std::wstring QueryModuleFilePath(platform::Handle process) {
  wchar_t buffer[kPathUnits + 1] = {};
  if (Resolver().Psapi().GetModuleFileNameExW(process, nullptr, buffer, kPathUnits) == 0) {
    return {};
  }
  std::wstring path = buffer;
  if (!NormalizeNativePath(path)) {
    return {};
  }
  return path;
}

std::wstring QueryImageFilePath(platform::Handle process) {
  wchar_t buffer[kPathUnits + 1] = {};
  if (Resolver().Psapi().GetProcessImageFileNameW(process, buffer, kPathUnits) == 0) {
    return {};
  }
  std::wstring path = buffer;
  // Without a drive the lower-cased device form still names the file.
  Resolver().Devices().TranslateDevicePath(path);
  return path;
}

bool NormalizeNativePath(std::wstring& path) {
  if (path.empty() || path.front() != L'\\') {
    return true;
  }
  if (path.starts_with(kNtPrefix)) {
    path.erase(0, kNtPrefix.size());
  } else if (path.starts_with(kSystemRootPrefix)) {
    wchar_t root[kPathUnits + 1] = {};
    if (platform::ExpandEnvironmentStringsW(L"%SystemRoot%", root, kPathUnits) > kPathUnits) {
      root[0] = L'\0';
    }
    path.replace(0, kSystemRootPrefix.size() - 1, root);
  }
  if (path.size() < 4 || path[1] != L':') {
    path.clear();
    return false;
  }
  return true;
}

void DevicePathMap::LoadDevicePathMap() {
  wchar_t drives[kDriveStringUnits + 1] = {};
  const std::uint32_t units = platform::GetLogicalDriveStringsW(kDriveStringUnits, drives);
  if (units == 0) {
    return;
  }
  m_names.clear();
  const std::uint32_t count = std::min(units, kDriveStringUnits) / kUnitsPerDrive;
  for (std::uint32_t i = 0; i < count; ++i) {
    const wchar_t* root = drives + i * kUnitsPerDrive;
    const wchar_t drive[] = {root[0], root[1], L'\0'};
    wchar_t device[kPathUnits + 1] = {};
    if (platform::QueryDosDeviceW(drive, device, kPathUnits) != 0) {
      Append(device, drive);
    }
  }
  m_loaded = true;
}

void DevicePathMap::Append(std::wstring device, std::wstring drive) {
  vx::ToLower(device);
  vx::ToLower(drive);
  m_names.push_back(std::move(device));
  m_names.push_back(std::move(drive));
}

bool DevicePathMap::TranslateDevicePath(std::wstring& path) const {
  if (path.empty()) {
    return false;
  }
  vx::ToLower(path);
  std::wstring_view device;
  std::wstring_view drive;
  for (std::size_t i = 0; i + 1 < m_names.size(); i += 2) {
    if (m_names[i].size() > device.size() && path.starts_with(m_names[i])) {
      device = m_names[i];
      drive = m_names[i + 1];
    }
  }
  if (device.empty()) {
    return false;
  }
  for (std::size_t at = 0; (at = path.find(device, at)) != std::wstring::npos; at += drive.size()) {
    path.replace(at, device.size(), drive);
  }
  return true;
}

PsapiFunctions::~PsapiFunctions() { Unload(); }

std::uint32_t PsapiFunctions::GetModuleFileNameExW(platform::Handle process, platform::Module module, wchar_t* buffer,
                                                   std::uint32_t size) {
  EnsureLoaded();
  void* const entry = m_entries[kGetModuleFileNameEx].load(std::memory_order_acquire);
  return entry == nullptr ? 0 : reinterpret_cast<GetModuleFileNameExFunction>(entry)(process, module, buffer, size);
}

std::uint32_t PsapiFunctions::GetProcessImageFileNameW(platform::Handle process, wchar_t* buffer, std::uint32_t size) {
  EnsureLoaded();
  void* const entry = m_entries[kGetProcessImageFileName].load(std::memory_order_acquire);
  return entry == nullptr ? 0 : reinterpret_cast<GetProcessImageFileNameFunction>(entry)(process, buffer, size);
}

void PsapiFunctions::EnsureLoaded() {
  if (IsComplete()) {
    return;
  }
  platform::Module library = m_library.load(std::memory_order_acquire);
  if (library == nullptr) {
    const platform::Module loaded = platform::LoadLibraryW(L"PSAPI.DLL");
    if (loaded == nullptr) {
      return;
    }
    if (m_library.compare_exchange_strong(library, loaded, std::memory_order_acq_rel, std::memory_order_acquire)) {
      library = loaded;
    } else {
      // Another thread was first: one reference is enough.
      platform::FreeLibrary(loaded);
    }
  }

  // In the order of Entry.
  static constexpr std::array<PsapiName, kEntryCount> kNames = {{{"EnumProcessModules", true},
                                                                 {"EnumProcessModulesEx", false},
                                                                 {"EnumProcesses", true},
                                                                 {"GetModuleBaseNameW", true},
                                                                 {"GetModuleFileNameExW", true},
                                                                 {"GetProcessImageFileNameW", true}}};
  bool complete = true;
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    void* const entry = platform::GetProcAddress(library, kNames[i].name);
    m_entries[i].store(entry, std::memory_order_release);
    complete = complete && (entry != nullptr || !kNames[i].required);
  }
  if (complete) {
    m_complete.store(true, std::memory_order_release);
  }
}

void PsapiFunctions::Unload() {
  for (std::atomic<void*>& entry : m_entries) {
    entry.store(nullptr, std::memory_order_relaxed);
  }
  m_complete.store(false, std::memory_order_release);
  if (const platform::Module library = m_library.exchange(nullptr, std::memory_order_acq_rel); library != nullptr) {
    platform::FreeLibrary(library);
  }
}

} // namespace VexelSdkProcessUtil
