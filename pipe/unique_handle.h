#pragma once

#include <windows.h>

#include <utility>

namespace vpipe {

/// Owns a kernel handle. Null and INVALID_HANDLE_VALUE are both empty, as pipes use the one and events the other.
class UniqueHandle {
public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE handle) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) {
      Close();
      m_handle = std::exchange(other.m_handle, nullptr);
    }
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Close(); }

  HANDLE Get() const { return m_handle; }
  explicit operator bool() const { return m_handle != nullptr; }

  void Close() {
    if (m_handle != nullptr) {
      CloseHandle(m_handle);
      m_handle = nullptr;
    }
  }

private:
  HANDLE m_handle = nullptr;
};

} // namespace vpipe
