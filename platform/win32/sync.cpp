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

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

void WaitOnAddress(const std::atomic<std::uint32_t>* word, std::uint32_t seen) {
  ::WaitOnAddress(const_cast<std::atomic<std::uint32_t>*>(word), &seen, sizeof(seen), INFINITE);
}

void WakeByAddressSingle(const std::atomic<std::uint32_t>* word) {
  ::WakeByAddressSingle(const_cast<std::atomic<std::uint32_t>*>(word));
}

void Sleep(std::uint32_t milliseconds) { ::Sleep(milliseconds); }

} // namespace platform
