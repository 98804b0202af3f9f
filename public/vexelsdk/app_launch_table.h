#pragma once

#include <cstdint>
#include <map>
#include <string>

/// How one program is started.
struct AppLaunchInfo {
  std::wstring m_name;        // file name of the executable
  std::wstring m_path;        // its full path
  std::wstring m_pidKey;      // key of its last process id in the configuration file
  std::int32_t m_appType = 1; // number by which the host's parameter selects it
  std::wstring m_args;        // the whole argument text of its command line
};

/// The programs that can be started, by file name. All calls belong to one thread at a time; only the building of the
/// shared table is safe from any thread.
class AppLaunchTable {
public:
  /// The table of this library: its programs lie in the library's own folder. Built on first use.
  static AppLaunchTable& Instance();

  /// A table whose programs lie in `directory`, which ends in a separator.
  explicit AppLaunchTable(const std::wstring& directory);

  /// A copy of the row of that file name. An unknown name gets a blank row, which stays in the table.
  AppLaunchInfo GetLaunchInfo(std::wstring name);

  /// A copy of the first row by name that has this application type; a blank row when none has it.
  AppLaunchInfo GetLaunchInfoByType(std::int32_t appType) const;

  /// The process id kept on disk for the program of that file name, 0 when there is none or it can't be read. Makes the
  /// file when it is missing. The id may be stale: it is advice.
  std::uint32_t ReadSavedPid(std::wstring name);

  /// Keeps a process id (0: none) on disk for the program of that file name. A file that can't be read is left alone.
  void WriteSavedPid(std::wstring name, std::uint32_t pid);

private:
  std::map<std::wstring, AppLaunchInfo> m_rows;
};
