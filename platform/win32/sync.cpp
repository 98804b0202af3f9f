#include "platform/sync.h"

#include <windows.h>

namespace platform {

Handle CreateMutexW(bool initialOwner, const wchar_t* name) { return ::CreateMutexW(nullptr, initialOwner, name); }

bool ReleaseMutex(Handle mutex) { return ::ReleaseMutex(mutex) != FALSE; }

Handle CreateEventW(bool manualReset, bool initialState) {
  return ::CreateEventW(nullptr, manualReset, initialState, nullptr);
}

bool SetEvent(Handle event) { return ::SetEvent(event) != FALSE; }

std::uint32_t WaitForSingleObject(Handle object, std::uint32_t milliseconds) {
  return ::WaitForSingleObject(object, milliseconds);
}

bool CloseHandle(Handle object) { return ::CloseHandle(object) != FALSE; }

void Sleep(std::uint32_t milliseconds) { ::Sleep(milliseconds); }

} // namespace platform
