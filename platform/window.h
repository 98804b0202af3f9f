#pragma once

#include "platform/types.h"

// The host's windows.
namespace platform {

inline constexpr int kGwlExStyle = -20;
inline constexpr std::intptr_t kWsExTransparent = 32;

/// Whether the handle names a living window of any process. Never blocks.
bool IsWindow(Window window);

/// A value of a window; 0 on failure with a last error. Never blocks.
std::intptr_t GetWindowLongPtrW(Window window, int index);

/// Replaces a value of a window and returns the one before; 0 on failure with a last error. Sends the window's thread
/// its style messages, so it may wait for that thread.
std::intptr_t SetWindowLongPtrW(Window window, int index, std::intptr_t value);

} // namespace platform
