#pragma once

#include <windows.h>

namespace bench {

/// The performance counter in microseconds. It runs alike in all processes.
inline double NowUs() {
  static const double perMicrosecond = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart) / 1e6;
  }();
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) / perMicrosecond;
}

} // namespace bench
