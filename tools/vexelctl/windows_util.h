#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The few questions to Windows that several commands share. Text is UTF-16 where it is wide, else UTF-8. Any thread.
namespace vexelctl {

std::wstring ToWide(std::string_view text);
std::string ToUtf8(std::wstring_view text);

/// The full path of this program.
std::wstring ProgramPath();
/// A path up to and with its last separator; empty without one.
std::wstring FolderOf(const std::wstring& path);
/// What stands behind a path's last separator.
std::wstring NameOf(const std::wstring& path);
/// The path as seen from the current folder; empty when that can't be told.
std::wstring FullPath(const std::wstring& path);
bool IsFile(const std::wstring& path);
bool IsFolder(const std::wstring& path);

/// The library's log level: the number in the registry, nothing when there is none, and the level that it leads to. The
/// library takes four bytes of any type, and passes over what is longer.
struct LogLevel {
  std::optional<std::uint32_t> stored;
  int level;           // 0 everything, 1 INFO, 2 WARNING, 3 ERROR
  bool isLong = false; // there is a value, and it is longer
};
LogLevel ReadLogLevel();
extern const wchar_t* const kLogLevelKey;

/// Where a host's log lies: beside its executable.
std::wstring LogPathOf(const std::wstring& host, const std::wstring& library);

/// The message of a system error code, without a line end.
std::string SystemMessage(std::uint32_t code);

/// The processor that a program or library is built for, as "x64", "ARM64", "x86"; empty when the file is no program.
std::string MachineOf(const std::wstring& path);
/// The same of this program.
const std::string& OwnMachine();

/// Why this machine cannot start the program, as the end of a sentence about it; empty when it can.
std::string WhyNotStartable(const std::wstring& program);

/// A file's version as "1.0.0", with its first number; nothing when it has no version resource.
struct FileVersion {
  int major;
  int minor;
  std::string text;
};
std::optional<FileVersion> VersionOf(const std::wstring& path);

} // namespace vexelctl
