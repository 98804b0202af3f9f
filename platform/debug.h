#pragma once

#include <cstdint>

// The debugger, and the end of the process.
namespace platform {

/// Shows NUL-terminated text to an attached debugger; goes nowhere without one.
void OutputDebugStringA(const char* text);

/// Raises a break that a debugger sees; without one the process ends here.
void DebugBreak();

/// Ends the calling process at once, with no clean-up of any kind.
[[noreturn]] void ExitNow(std::uint32_t status);

} // namespace platform
