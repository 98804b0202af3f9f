#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/file.h"

// Files, folders, drives, special folders and the environment as a test sets them up. Paths ignore case; a relative
// one starts at the current folder. Calls that make something make its parents, and end the program when they can't.
namespace sim {

void AddFolder(const std::wstring& path);

/// Makes a file, or replaces the content of one.
void AddFile(const std::wstring& path, const std::string& bytes = {});

/// Appends to a file as another process would.
void AppendToFile(const std::wstring& path, const std::string& bytes);

/// Removes a file, or a folder with all below it, whoever has it open.
void RemovePath(const std::wstring& path);

bool FileExists(const std::wstring& path);
bool FolderExists(const std::wstring& path);

/// The content of a file, empty when there is none.
std::string FileBytes(const std::wstring& path);

/// The full paths of what lies directly in a folder, sorted, with the case that they were made with.
std::vector<std::wstring> ListFolder(const std::wstring& path);

/// A read-only file can't be opened for writing or deleted; in a read-only folder nothing can be made or deleted. Both
/// give error 5.
void SetReadOnly(const std::wstring& path, bool readOnly = true);

/// What the size calls say of a file, whatever it holds; -1 goes back to the truth.
void SetReportedSize(const std::wstring& path, std::int64_t size);

/// Lets each ReadFile or WriteFile move at most so many bytes and succeed; 0 lifts the limit.
void SetReadLimit(std::uint32_t bytes);
void SetWriteLimit(std::uint32_t bytes);

/// The bytes that a drive such as L"C:" can still take; what needs more fails with error 112.
void SetFreeSpace(const std::wstring& drive, std::uint64_t bytes);

/// Opens of files since the world began that succeeded, by full path with the case that the caller gave.
std::vector<std::wstring> OpenedFiles();

/// A file as another process holds it open, with its share mode. Ends the program when the file can't be opened so.
class ForeignFile {
public:
  ForeignFile(const std::wstring& path, std::uint32_t access, std::uint32_t share);
  ~ForeignFile();
  ForeignFile(const ForeignFile&) = delete;
  ForeignFile& operator=(const ForeignFile&) = delete;

private:
  std::shared_ptr<void> m_open;
};

/// The folder that relative paths start at; C:\Host in a fresh world.
void SetCurrentFolder(const std::wstring& path);

/// A drive such as L"C:" with its device names, the current one first. No device name at all: QueryDosDeviceW fails.
void AddDrive(const std::wstring& drive, const std::vector<std::wstring>& devices);

/// Takes a drive away, with the files on it.
void RemoveDrive(const std::wstring& drive);

/// An environment variable; an empty value removes it.
void SetEnvironment(const std::wstring& name, const std::wstring& value);

/// A special folder of a user; an empty path makes both lookups of it fail. A token belongs to its process's user.
void SetSpecialFolder(int id, const std::wstring& path, const std::wstring& user = L"Tester");

namespace internal {

/// The full form of a path: one drive, single backslashes, no dots, no separator at the end. False with an error code
/// when it is none. Needs the mutex.
bool FullPath(const std::wstring& path, std::wstring* full, std::uint32_t* error);

/// Whether a file, or a folder, has that path. Both need the mutex.
bool HasFile(const std::wstring& path);
bool HasFolder(const std::wstring& path);

/// Makes a file when it is missing. Needs the mutex.
void NeedFile(const std::wstring& path);

/// The device form of a path that starts with a drive; the path itself when the drive is unknown. Needs the mutex.
std::wstring DeviceForm(const std::wstring& path);

/// Whether a drive is there. Needs the mutex.
bool HasDrive(const std::wstring& drive);

/// The special folder of a user, empty when there is none. Needs the mutex.
std::wstring SpecialFolder(int id, const std::wstring& user);

/// The value of an environment variable, false when there is none. Needs the mutex.
bool FindEnvironment(const std::wstring& name, std::wstring* value);

/// Drops all files of a drive. Needs the mutex.
void DropFilesOf(const std::wstring& drive);

/// The root folder of a drive. Needs the mutex.
void AddRoot(const std::wstring& drive);

} // namespace internal

} // namespace sim
