#include "platform/process.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <iterator>

namespace platform {
namespace {

constexpr WORD kIsUserAnAdminOrdinal = 680;

FILETIME ToNative(const FileTime& time) { return {time.low, time.high}; }

FileTime FromNative(const FILETIME& time) { return {time.dwLowDateTime, time.dwHighDateTime}; }

bool Take(bool found, const PROCESSENTRY32W& row, ProcessEntry* entry) {
  if (found) {
    entry->pid = row.th32ProcessID;
    std::copy(std::begin(row.szExeFile), std::end(row.szExeFile), entry->exeFile);
  }
  return found;
}

} // namespace

std::uint32_t GetCurrentProcessId() { return ::GetCurrentProcessId(); }

std::uint32_t GetCurrentThreadId() { return ::GetCurrentThreadId(); }

Handle OpenProcess(std::uint32_t access, std::uint32_t pid) { return ::OpenProcess(access, FALSE, pid); }

bool TerminateProcess(Handle process, std::uint32_t exitCode) { return ::TerminateProcess(process, exitCode) != FALSE; }

bool GetProcessCreationTime(Handle process, FileTime* created) {
  FILETIME creation{};
  FILETIME exit{};
  FILETIME kernel{};
  FILETIME user{};
  const bool read = ::GetProcessTimes(process, &creation, &exit, &kernel, &user) != FALSE;
  *created = FromNative(creation);
  return read;
}

bool FileTimeToLocalFileTime(const FileTime& utc, FileTime* local) {
  const FILETIME from = ToNative(utc);
  FILETIME to{};
  const bool converted = ::FileTimeToLocalFileTime(&from, &to) != FALSE;
  *local = FromNative(to);
  return converted;
}

bool FileTimeToSystemTime(const FileTime& time, SystemTime* parts) {
  const FILETIME from = ToNative(time);
  SYSTEMTIME to{};
  const bool converted = ::FileTimeToSystemTime(&from, &to) != FALSE;
  *parts = {to.wYear, to.wMonth, to.wDayOfWeek, to.wDay, to.wHour, to.wMinute, to.wSecond, to.wMilliseconds};
  return converted;
}

bool CreateProcessW(wchar_t* commandText, std::uint32_t* pid, Handle* process, Handle* thread) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION child{};
  const bool started =
      ::CreateProcessW(nullptr, commandText, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child) != FALSE;
  *pid = child.dwProcessId;
  *process = child.hProcess;
  *thread = child.hThread;
  return started;
}

bool OpenProcessToken(Handle process, std::uint32_t access, Handle* token) {
  return ::OpenProcessToken(process, access, token) != FALSE;
}

bool GetTokenElevation(Handle token, std::uint32_t* elevation) {
  TOKEN_ELEVATION value{};
  DWORD size = 0;
  const bool read = ::GetTokenInformation(token, TokenElevation, &value, sizeof value, &size) != FALSE;
  *elevation = value.TokenIsElevated;
  return read;
}

bool IsUserAnAdmin() {
  using Check = BOOL(WINAPI*)();
  static const auto check = reinterpret_cast<Check>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"SHELL32.DLL"), MAKEINTRESOURCEA(kIsUserAnAdminOrdinal))));
  return check != nullptr && check() != FALSE;
}

Handle CreateToolhelp32Snapshot(std::uint32_t flags, std::uint32_t pid) {
  return ::CreateToolhelp32Snapshot(flags, pid);
}

bool Process32FirstW(Handle snapshot, ProcessEntry* entry) {
  PROCESSENTRY32W row{};
  row.dwSize = sizeof row;
  return Take(::Process32FirstW(snapshot, &row) != FALSE, row, entry);
}

bool Process32NextW(Handle snapshot, ProcessEntry* entry) {
  PROCESSENTRY32W row{};
  row.dwSize = sizeof row;
  return Take(::Process32NextW(snapshot, &row) != FALSE, row, entry);
}

} // namespace platform
