#include "bench/child.h"

#include "bench/sdk_library.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

Child::Child(const std::wstring& program, const std::wstring& arguments) {
  std::wstring command = L"\"" + ProgramFolder() + program + L"\" " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) {
    std::fprintf(stderr, "%ls does not start: error %lu\n", program.c_str(), GetLastError());
    std::exit(1);
  }
  CloseHandle(started.hThread);
  m_process = started.hProcess;
  m_pid = started.dwProcessId;
}

Child::~Child() {
  TerminateProcess(m_process, 1);
  WaitForSingleObject(m_process, 10000);
  CloseHandle(m_process);
}

int Child::Wait(DWORD milliseconds) {
  if (WaitForSingleObject(m_process, milliseconds) != WAIT_OBJECT_0) {
    return -1;
  }
  DWORD code = 1;
  GetExitCodeProcess(m_process, &code);
  return static_cast<int>(code & 0x7FFFFFFF);
}

} // namespace bench
