#pragma once

#include <cstdint>

// Times. Nothing here blocks or fails.
namespace platform {

/// A calendar time, split up.
struct SystemTime {
  std::uint16_t year;
  std::uint16_t month;     // 1 to 12
  std::uint16_t dayOfWeek; // 0 is Sunday
  std::uint16_t day;       // 1 to 31
  std::uint16_t hour;
  std::uint16_t minute;
  std::uint16_t second;
  std::uint16_t milliseconds;
};

/// Milliseconds since the system started, wrapping after 49.7 days.
std::uint32_t GetTickCount();

/// Milliseconds since the system started.
std::uint64_t GetTickCount64();

/// The wall clock in the local time zone.
SystemTime GetLocalTime();

} // namespace platform
