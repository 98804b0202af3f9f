#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/types.h"

// Which file a process runs, and whether a file runs at all. No function here throws for a system failure, logs or
// takes a lock; any thread may call any of them. Failures read as nothing known, not running.
namespace VexelSdkProcessUtil {

/// The full path of the image that `pid` runs; empty when the process is gone or can't be opened. May be all lower
/// case, or in the device form when no drive stands for the device.
std::wstring GetProcessPath(std::uint32_t pid);

/// 1 when at least `count` processes run the file `path` (at most 260 16-bit units, compared without regard to case),
/// else 0. Takes a snapshot of all processes and opens those of the same file name.
std::int32_t IsPathRunning(const wchar_t* path, std::int32_t count);

/// The text behind the last "\" or "/"; all of it when there is none.
std::wstring FileNameOfPath(const std::wstring& path);

/// The path of a process's main module, empty when unknown. The handle needs the rights to query and to read memory
/// and stays the caller's.
std::wstring QueryModuleFilePath(platform::Handle process);

/// The path of a process's image in lower case with a drive letter, or in its device form when no drive is known for
/// it; empty when unknown. The handle needs the right to query and stays the caller's.
std::wstring QueryImageFilePath(platform::Handle process);

/// Turns the "\??\" and "\SystemRoot\" forms into one with a drive letter, in place. False, and an empty text, when what
/// is left has none.
bool NormalizeNativePath(std::wstring& path);

/// Device names, such as \Device\HarddiskVolume1, and the drives that stand for them. All in lower case. One thread
/// fills it; from then on any number may read.
class DevicePathMap {
public:
  /// Reads the drives of this moment; a map that can't be read stays not loaded and empty.
  void LoadDevicePathMap();

  bool IsLoaded() const { return m_loaded; }

  /// Adds a pair behind the others, lower-cased.
  void Append(std::wstring device, std::wstring drive);

  /// Lower-cases `path` in place, and if it starts with a known device name, replaces every occurrence of the longest
  /// such name by its drive. False when no name matched.
  bool TranslateDevicePath(std::wstring& path) const;

private:
  bool m_loaded = false;
  std::vector<std::wstring> m_names; // device names at even indices, each with its drive behind it
};

/// The entries of PSAPI, bound at run time. Any thread may call; a load that failed is tried again at the next call.
class PsapiFunctions {
public:
  PsapiFunctions() = default;
  PsapiFunctions(const PsapiFunctions&) = delete;
  PsapiFunctions& operator=(const PsapiFunctions&) = delete;
  ~PsapiFunctions();

  /// The path of `module` (null: the executable) of a process into `size` 16-bit units. Units written, 0 on failure.
  std::uint32_t GetModuleFileNameExW(platform::Handle process, platform::Module module, wchar_t* buffer,
                                     std::uint32_t size);

  /// The device form of a process's image path into `size` 16-bit units. Units written, 0 on failure.
  std::uint32_t GetProcessImageFileNameW(platform::Handle process, wchar_t* buffer, std::uint32_t size);

  /// Whether all entries that must be there have been found.
  bool IsComplete() const { return m_complete.load(std::memory_order_acquire); }

  /// Clears every entry and gives the library back. Not while another thread may call.
  void Unload();

private:
  enum Entry : std::size_t {
    kEnumProcessModules,
    kEnumProcessModulesEx,
    kEnumProcesses,
    kGetModuleBaseName,
    kGetModuleFileNameEx,
    kGetProcessImageFileName,
    kEntryCount
  };

  void EnsureLoaded();

  // The exchange that puts the library in has release, each look acquire: the load is over before an entry is looked up.
  std::atomic<platform::Module> m_library{nullptr};
  // Stored with release, read with acquire: whoever finds an entry finds the library loaded. All threads store the same.
  std::array<std::atomic<void*>, kEntryCount> m_entries{};
  // Stored with release behind all entries, read with acquire: whoever reads true finds them all.
  std::atomic<bool> m_complete{false};
};

} // namespace VexelSdkProcessUtil
