#pragma once

#include "platform/types.h"

// Files, folders, and the system's own path texts. Calls on a disk may block for as long as the disk takes; each reports
// failure by its result and leaves a last error unless it says otherwise.
namespace platform {

inline constexpr std::uint32_t kGenericRead = 0x80000000u;
inline constexpr std::uint32_t kGenericWrite = 0x40000000u;
inline constexpr std::uint32_t kFileShareRead = 1;
inline constexpr std::uint32_t kFileShareWrite = 2;
inline constexpr std::uint32_t kCreateNew = 1;
inline constexpr std::uint32_t kCreateAlways = 2;
inline constexpr std::uint32_t kOpenExisting = 3;
inline constexpr std::uint32_t kOpenAlways = 4;
inline constexpr std::uint32_t kFileAttributeDirectory = 0x10;
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;
inline constexpr std::uint32_t kInvalidFileAttributes = 0xFFFFFFFFu;
inline constexpr std::uint32_t kInvalidFileSize = 0xFFFFFFFFu;
inline constexpr std::uint32_t kFileBegin = 0;
inline constexpr std::uint32_t kFileEnd = 2;
inline constexpr int kCsidlLocalAppData = 28;

/// Opens or makes a file with no security attributes and no template. kInvalidHandle on failure. The caller closes it.
Handle CreateFileW(const wchar_t* path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition,
                   std::uint32_t attributes);

/// The low half of a file's size in bytes, the high half in `*high`; kInvalidFileSize on failure.
std::uint32_t GetFileSize(Handle file, std::uint32_t* high);

/// A file's size in bytes. False on failure.
bool GetFileSizeEx(Handle file, std::int64_t* size);

/// Moves the file's pointer by `distance` bytes from `method` (kFileBegin, kFileEnd). 0xFFFFFFFF on failure.
std::uint32_t SetFilePointer(Handle file, std::int32_t distance, std::uint32_t method);

/// Cuts or extends the file at its pointer.
bool SetEndOfFile(Handle file);

/// Reads up to `size` bytes; `*done` says how many came.
bool ReadFile(Handle file, void* data, std::uint32_t size, std::uint32_t* done);

/// Writes `size` bytes; `*done` says how many went.
bool WriteFile(Handle file, const void* data, std::uint32_t size, std::uint32_t* done);

bool DeleteFileW(const wchar_t* path);

/// Makes one folder level with the default security; error 183 when it is there already.
bool CreateDirectoryW(const wchar_t* path);

/// kInvalidFileAttributes when nothing is there.
std::uint32_t GetFileAttributesW(const wchar_t* path);

bool PathFileExistsW(const wchar_t* path);

/// Makes a folder with all its parents. Returns 0 or a system error code (80 and 183: it is there already).
int SHCreateDirectoryExW(const wchar_t* path);

/// The special folder `id` of the current user into 260 units, not creating it. False when there is none.
bool SHGetSpecialFolderPathW(wchar_t* buffer, int id);

/// The special folder `id` of the user of `token` into 260 units. 0 or an HRESULT.
std::int32_t SHGetFolderPathW(int id, Handle token, wchar_t* buffer);

/// The roots of all drives, each terminated, with one more terminator: units written without that last one; the units
/// needed when `size` does not suffice; 0 on failure.
std::uint32_t GetLogicalDriveStringsW(std::uint32_t size, wchar_t* buffer);

/// The device names of a drive such as "C:", the current one first. Units written, 0 on failure.
std::uint32_t QueryDosDeviceW(const wchar_t* drive, wchar_t* buffer, std::uint32_t size);

/// Replaces %NAME% in a text. Units needed with the terminator, 0 on failure.
std::uint32_t ExpandEnvironmentStringsW(const wchar_t* text, wchar_t* buffer, std::uint32_t size);

/// The text behind the last separator, inside `path`; `path` itself when there is none. Never blocks.
const wchar_t* PathFindFileNameW(const wchar_t* path);

/// Cuts the last component off, in place. False when nothing was cut. Never blocks.
bool PathRemoveFileSpecW(wchar_t* path);

/// Cuts the extension off, in place. Never blocks.
void PathRemoveExtensionW(wchar_t* path);

/// Appends `more` with one separator between, into a buffer of 260 units. Never blocks.
bool PathAppendW(wchar_t* path, const wchar_t* more);

} // namespace platform
