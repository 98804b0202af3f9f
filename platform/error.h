#pragma once

#include <cstdint>

// The calling thread's last-error value.
namespace platform {

/// The value that the last failing call on this thread left. Never blocks.
std::uint32_t GetLastError();

/// Sets that value. Never blocks.
void SetLastError(std::uint32_t error);

} // namespace platform
