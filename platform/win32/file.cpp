#include "platform/file.h"

#include <windows.h>

#include <shlobj.h>
#include <shlwapi.h>

namespace platform {

Handle CreateFileW(const wchar_t* path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition,
                   std::uint32_t attributes) {
  return ::CreateFileW(path, access, share, nullptr, disposition, attributes, nullptr);
}

std::uint32_t GetFileSize(Handle file, std::uint32_t* high) {
  DWORD upper = 0;
  const DWORD lower = ::GetFileSize(file, &upper);
  *high = upper;
  return lower;
}

bool GetFileSizeEx(Handle file, std::int64_t* size) {
  LARGE_INTEGER value{};
  const bool done = ::GetFileSizeEx(file, &value) != FALSE;
  *size = value.QuadPart;
  return done;
}

std::uint32_t SetFilePointer(Handle file, std::int32_t distance, std::uint32_t method) {
  return ::SetFilePointer(file, distance, nullptr, method);
}

bool SetEndOfFile(Handle file) { return ::SetEndOfFile(file) != FALSE; }

bool ReadFile(Handle file, void* data, std::uint32_t size, std::uint32_t* done) {
  DWORD count = 0;
  const bool read = ::ReadFile(file, data, size, &count, nullptr) != FALSE;
  *done = count;
  return read;
}

bool WriteFile(Handle file, const void* data, std::uint32_t size, std::uint32_t* done) {
  DWORD count = 0;
  const bool written = ::WriteFile(file, data, size, &count, nullptr) != FALSE;
  *done = count;
  return written;
}

bool DeleteFileW(const wchar_t* path) { return ::DeleteFileW(path) != FALSE; }

bool CreateDirectoryW(const wchar_t* path) { return ::CreateDirectoryW(path, nullptr) != FALSE; }

std::uint32_t GetFileAttributesW(const wchar_t* path) { return ::GetFileAttributesW(path); }

bool PathFileExistsW(const wchar_t* path) { return ::PathFileExistsW(path) != FALSE; }

int SHCreateDirectoryExW(const wchar_t* path) { return ::SHCreateDirectoryExW(nullptr, path, nullptr); }

bool SHGetSpecialFolderPathW(wchar_t* buffer, int id) {
  return ::SHGetSpecialFolderPathW(nullptr, buffer, id, FALSE) != FALSE;
}

std::int32_t SHGetFolderPathW(int id, Handle token, wchar_t* buffer) {
  return ::SHGetFolderPathW(nullptr, id, token, 0, buffer);
}

std::uint32_t GetLogicalDriveStringsW(std::uint32_t size, wchar_t* buffer) {
  return ::GetLogicalDriveStringsW(size, buffer);
}

std::uint32_t QueryDosDeviceW(const wchar_t* drive, wchar_t* buffer, std::uint32_t size) {
  return ::QueryDosDeviceW(drive, buffer, size);
}

std::uint32_t ExpandEnvironmentStringsW(const wchar_t* text, wchar_t* buffer, std::uint32_t size) {
  return ::ExpandEnvironmentStringsW(text, buffer, size);
}

const wchar_t* PathFindFileNameW(const wchar_t* path) { return ::PathFindFileNameW(path); }

bool PathRemoveFileSpecW(wchar_t* path) { return ::PathRemoveFileSpecW(path) != FALSE; }

void PathRemoveExtensionW(wchar_t* path) { ::PathRemoveExtensionW(path); }

bool PathAppendW(wchar_t* path, const wchar_t* more) { return ::PathAppendW(path, more) != FALSE; }

} // namespace platform
