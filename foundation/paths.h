#pragma once

#include "platform/types.h"

#include <string>

// Where things lie. Paths are UTF-16 texts; failures show in the results, and each call may throw std::bad_alloc.
// Any thread.
namespace vx {

/// The special folder `id` of the user of `token`, or of the current user when `token` is null, ending in a separator.
/// The folder is not made. Just a separator when there is no such folder.
std::wstring GetSpecialFolder(int id, platform::Handle token);

/// The full path of "config_temp.ini" under the user's local application data. Makes its folder when it is missing.
std::wstring GetConfigFilePath();

/// The full path of a module, null for the executable; empty on failure, cut at 260 units.
std::wstring GetModuleFilePath(platform::Module module);

/// `path` up to and including its last backslash, or its last slash when it has no backslash; empty without either.
std::wstring GetDirectoryOfPath(const std::wstring& path);

/// Ends `path` with a backslash unless it ends with a separator already. An empty path becomes a backslash.
void AddTrailingSeparator(std::wstring& path);

/// Whether a folder of that path exists.
bool DirectoryExists(const std::wstring& path);

/// Makes a folder and its missing parents; only the backslash separates. True when something of that name exists at
/// the end, be it a plain file.
bool CreateDirectoryTree(const std::wstring& path);

/// The module that holds this code, whatever its name.
platform::Module ThisModule();

/// The folder of that module, ending in a separator.
std::wstring GetModuleDirectory();

} // namespace vx
