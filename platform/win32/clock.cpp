#include "platform/clock.h"

#include <windows.h>

namespace platform {

std::uint32_t GetTickCount() { return ::GetTickCount(); }

std::uint64_t GetTickCount64() { return ::GetTickCount64(); }

SystemTime GetLocalTime() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDayOfWeek, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

} // namespace platform
