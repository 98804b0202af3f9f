#pragma once

#include "platform/types.h"

#include <atomic>

// What threads wait on: named and unnamed kernel objects, a word of memory, and time.
namespace platform {

/// Opens or makes the mutex `name` (null: unnamed) with the default security. Null on failure, with a last error.
/// The caller closes the handle. Never blocks.
Handle CreateMutexW(bool initialOwner, const wchar_t* name);

/// Gives up one ownership of the calling thread. False, with a last error, when it has none.
bool ReleaseMutex(Handle mutex);

/// Makes an unnamed event with the default security. Null on failure, with a last error. The caller closes the handle.
Handle CreateEventW(bool manualReset, bool initialState);

/// Signals an event. False, with a last error, on failure.
bool SetEvent(Handle event);

/// Blocks until the object is signalled or `milliseconds` are over. 0 when signalled, 0x80 for a mutex whose owner
/// died, 0x102 on time-out, 0xFFFFFFFF on failure with a last error.
std::uint32_t WaitForSingleObject(Handle object, std::uint32_t milliseconds);

/// Gives a handle of any kind back. False, with a last error, for a value that is none.
bool CloseHandle(Handle object);

/// Blocks while `*word` is `seen`, until WakeByAddressSingle is called for it; it may return before that, too. No object
/// of the system is behind it, so neither side can fail.
void WaitOnAddress(const std::atomic<std::uint32_t>* word, std::uint32_t seen);

/// Ends the wait of one thread on `word`, which has been changed before. Any thread; never blocks.
void WakeByAddressSingle(const std::atomic<std::uint32_t>* word);

/// Blocks the calling thread for at least `milliseconds`; 0 yields the rest of its turn.
void Sleep(std::uint32_t milliseconds);

} // namespace platform
