#pragma once

#include <cstdint>

#include "platform/window.h"

// Windows, of the host or of any other process.
namespace sim {

/// A new window with that extended style, owned by a process (0: the host). It vanishes when that process ends. Its
/// value is the one asked for, which a window that vanished may have had, or with 0 one never given out before.
platform::Window MakeWindow(std::intptr_t exStyle = 0, std::uint32_t ownerPid = 0, platform::Window value = 0);

void DestroyWindow(platform::Window window);

/// Lets a window vanish right after that many more calls of IsWindow have seen it.
void VanishAfterLooks(platform::Window window, int looks);

/// The extended style; it can still be read after the window has vanished.
std::intptr_t ExStyle(platform::Window window);

/// Lets SetWindowLongPtrW on this window wait for its busy thread: so many milliseconds of simulated time.
void MakeBusy(platform::Window window, std::uint32_t milliseconds);

namespace internal {
/// Destroys the windows of a process. Needs the mutex.
void DestroyWindowsOf(std::uint32_t pid);
} // namespace internal

} // namespace sim
