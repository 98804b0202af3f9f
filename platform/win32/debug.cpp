#include "platform/debug.h"

#include <windows.h>

namespace platform {

void OutputDebugStringA(const char* text) { ::OutputDebugStringA(text); }

void DebugBreak() { ::DebugBreak(); }

void ExitNow(std::uint32_t status) {
  ::TerminateProcess(::GetCurrentProcess(), status);
  // Not reached: a process can always end itself.
  for (;;) {
    ::Sleep(INFINITE);
  }
}

} // namespace platform
