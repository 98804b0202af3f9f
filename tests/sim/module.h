#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

// Modules of the current process as a test sets them up. Every address belongs to the SDK library, except null and
// those registered otherwise.
namespace sim {

/// The path of the executable, and of the SDK library; the new files are made. The host's process row follows.
void SetExecutablePath(const std::wstring& path);
void SetLibraryPath(const std::wstring& path);

/// Lets GetModuleFileNameW report a text for the executable or the SDK library that is no path of a file at all.
void ReportExecutablePath(const std::wstring& text);
void ReportLibraryPath(const std::wstring& text);

/// A library file that LoadLibraryW accepts, with its entries. The file is made.
void AddLibrary(const std::wstring& path, const std::map<std::string, void*>& entries = {});

/// Puts the simulated pipe library at a path. Any file called vpipearm64.dll is one, too.
void AddPipeLibrary(const std::wstring& path = L"C:\\Vexel\\vpipearm64.dll");

/// Takes an entry such as "CltComunicate" or "GetModuleFileNameExW" away from every library, loaded or not. GetProcAddress
/// no longer finds it.
void RemoveEntry(const std::string& name);

/// Whether "PSAPI.DLL" is on the system; it is, in a fresh world.
void SetPsapiPresent(bool present);

/// Lets an address range belong to a module by its path: the executable, the SDK library, or a loaded library. An empty
/// path: to no module.
void AddressesBelongTo(const void* begin, std::size_t size, const std::wstring& path);

/// How often a module is referenced: 1 for the executable and the SDK library at first, 0 for what is not loaded.
int ReferenceCount(const std::wstring& path);

/// The texts given to LoadLibraryW, in order.
std::vector<std::wstring> LoadRequests();

/// The names given to GetProcAddress, in order.
std::vector<std::string> RequestedEntries();

/// The full paths of all modules in the process, in the order of loading.
std::vector<std::wstring> LoadedModules();

namespace internal {
/// The path of the executable. Needs the mutex.
std::wstring ExecutablePath();
/// The folder of the SDK library with its backslash. Needs the mutex.
std::wstring LibraryFolder();
} // namespace internal

} // namespace sim
