#pragma once

#include <cstdint>
#include <string>

// Whether a process id still stands for the program that is expected, and the start of a new one. No function here
// throws for a system failure or takes a lock; any thread may call any of them. Every doubt about a process counts
// against it. A process id of 0 means none.
namespace VexelSdkProcessUtil {

/// Whether `pid` runs and its image is the file `expected` (a full path, compared by IsSamePath). Takes a snapshot of
/// all processes. Logs why a non-zero id is refused.
bool IsProcessValid(std::uint32_t pid, std::wstring expected);

/// IsProcessValid, and when this user counts as an administrator, IsProcessElevated as well: a host with
/// administrator rights accepts only an elevated process.
bool IsProcessUsable(std::uint32_t pid, std::wstring expected);

/// Whether the token of `pid` is elevated; false when it can't be read. Leaves up to two handles open at each call.
bool IsProcessElevated(std::uint32_t pid);

/// Starts the program `path` (put in double quotes) with the argument text `args` as it stands, in the caller's folder
/// and with its environment and token. Returns 0 and writes the new id to `pid`, or returns the system's error code and
/// leaves `pid` alone. Blocks for the loader, not for the child; keeps no handle.
std::uint32_t CreateProcessBy(const std::wstring& path, const std::wstring& args, std::uint32_t& pid);

/// When `pid` was started, in whole seconds, 0 when unknown. Only good for comparison with another result of this
/// function.
std::uint64_t GetProcessCreateTime(std::uint32_t pid);

/// Whether two paths name the same file: without regard to case, to "/" against "\", to doubled backslashes and to
/// backslashes at the end. Touches no file.
bool IsSamePath(const std::wstring& left, const std::wstring& right);

/// The form in which IsSamePath compares: `path` is changed in place. After a collapsed run of backslashes the search
/// goes on behind as many characters as the run lost, so a second run right behind a first may keep its length.
void NormalizeComparePath(std::wstring& path);

} // namespace VexelSdkProcessUtil
