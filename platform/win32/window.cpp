#include "platform/window.h"

#include <windows.h>

namespace platform {
namespace {

HWND ToNative(Window window) { return reinterpret_cast<HWND>(window); }

} // namespace

bool IsWindow(Window window) { return ::IsWindow(ToNative(window)) != FALSE; }

std::intptr_t GetWindowLongPtrW(Window window, int index) { return ::GetWindowLongPtrW(ToNative(window), index); }

std::intptr_t SetWindowLongPtrW(Window window, int index, std::intptr_t value) {
  return ::SetWindowLongPtrW(ToNative(window), index, value);
}

} // namespace platform
