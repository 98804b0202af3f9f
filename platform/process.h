#pragma once

#include "platform/clock.h"
#include "platform/types.h"

// Processes, their tokens, and the list of what runs.
namespace platform {

inline constexpr std::uint32_t kProcessTerminate = 1;
inline constexpr std::uint32_t kProcessQueryInformation = 1024;
inline constexpr std::uint32_t kProcessAllAccess = 2097151;
inline constexpr std::uint32_t kTokenQuery = 8;
inline constexpr std::uint32_t kSnapProcess = 2;

/// 100-nanosecond steps since 1601, in two halves.
struct FileTime {
  std::uint32_t low;
  std::uint32_t high;
};

/// One row of a snapshot.
struct ProcessEntry {
  std::uint32_t pid;
  wchar_t exeFile[kMaxPath];
};

std::uint32_t GetCurrentProcessId();
std::uint32_t GetCurrentThreadId();

/// A handle to a running process with those rights, not inherited; null on failure with a last error. The caller
/// closes it. Never blocks.
Handle OpenProcess(std::uint32_t access, std::uint32_t pid);

/// Ends a process with that exit code. False on failure with a last error. Does not wait for the end.
bool TerminateProcess(Handle process, std::uint32_t exitCode);

/// When a process started, UTC. False on failure with a last error.
bool GetProcessCreationTime(Handle process, FileTime* created);

bool FileTimeToLocalFileTime(const FileTime& utc, FileTime* local);
bool FileTimeToSystemTime(const FileTime& time, SystemTime* parts);

/// Starts a program from a writable command text: no application name, default security, nothing inherited but the
/// environment, flags 0, the caller's folder. Gives both handles of the child to the caller. False with a last error.
/// Blocks for the loader, not for the child.
bool CreateProcessW(wchar_t* commandText, std::uint32_t* pid, Handle* process, Handle* thread);

/// A handle to a process's token; false on failure with a last error. The caller closes it.
bool OpenProcessToken(Handle process, std::uint32_t access, Handle* token);

/// The TokenElevation value of a token. False on failure with a last error.
bool GetTokenElevation(Handle token, std::uint32_t* elevation);

/// Whether the current user is an administrator: the shell's export by ordinal 680, false when it can't be had.
bool IsUserAnAdmin();

/// A list of all processes as they are now; kInvalidHandle on failure. The caller closes it.
Handle CreateToolhelp32Snapshot(std::uint32_t flags, std::uint32_t pid);

/// The first and the next row of a snapshot into a zeroed entry. False at the end.
bool Process32FirstW(Handle snapshot, ProcessEntry* entry);
bool Process32NextW(Handle snapshot, ProcessEntry* entry);

} // namespace platform
