#include "tests/windows/sdk/programs.h"

#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <tlhelp32.h>

#include <array>

namespace sdktest {
namespace {

std::wstring ImagePath(std::uint32_t pid) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) {
    return {};
  }
  std::array<wchar_t, 1024> path{};
  DWORD size = static_cast<DWORD>(path.size());
  if (!QueryFullProcessImageNameW(process, 0, path.data(), &size)) {
    size = 0;
  }
  CloseHandle(process);
  return std::wstring(path.data(), size);
}

bool IsOver(HANDLE process) { return WaitForSingleObject(process, 0) == WAIT_OBJECT_0; }

} // namespace

std::vector<Program> ProgramsUnder(const std::wstring& folder) {
  std::vector<Program> programs;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
    const std::wstring path = ImagePath(entry.th32ProcessID);
    if (path.size() > folder.size() && _wcsnicmp(path.c_str(), folder.c_str(), folder.size()) == 0 &&
        IsRunning(entry.th32ProcessID)) {
      programs.push_back({entry.th32ProcessID, path.substr(path.find_last_of(L'\\') + 1)});
    }
  }
  CloseHandle(snapshot);
  return programs;
}

void EndProgram(std::uint32_t pid) {
  const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid);
  if (process == nullptr) {
    return;
  }
  TerminateProcess(process, 3);
  WaitFor([process] { return IsOver(process); });
  CloseHandle(process);
}

bool IsRunning(std::uint32_t pid) {
  const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
  const bool running = process != nullptr && !IsOver(process);
  if (process != nullptr) {
    CloseHandle(process);
  }
  return running;
}

ProgramHandle::ProgramHandle(std::uint32_t pid) : m_handle(OpenProcess(SYNCHRONIZE, FALSE, pid)) {}

ProgramHandle::~ProgramHandle() {
  if (m_handle != nullptr) {
    CloseHandle(m_handle);
  }
}

bool ProgramHandle::WaitForEnd() const {
  return m_handle == nullptr || WaitFor([this] { return IsOver(m_handle); });
}

bool ProgramHandle::HasEnded() const { return m_handle == nullptr || IsOver(m_handle); }

} // namespace sdktest
