#pragma once

#include "platform/sync.h"
#include "platform/types.h"

#include <utility>

namespace vx {

namespace detail {

struct NullWhenEmpty {
  static platform::Handle Empty() noexcept { return nullptr; }
};

struct InvalidWhenEmpty {
  static platform::Handle Empty() noexcept { return platform::kInvalidHandle; }
};

/// The one owner of a kernel handle: closes it when it dies or takes another. Move-only; one thread at a time.
template <typename Kind> class HandleOwner {
public:
  HandleOwner() noexcept = default;
  explicit HandleOwner(platform::Handle handle) noexcept : m_handle(handle) {}
  HandleOwner(HandleOwner&& other) noexcept : m_handle(other.Release()) {}
  HandleOwner& operator=(HandleOwner&& other) noexcept {
    if (this != &other) {
      Reset(other.Release());
    }
    return *this;
  }
  HandleOwner(const HandleOwner&) = delete;
  HandleOwner& operator=(const HandleOwner&) = delete;
  ~HandleOwner() { Reset(); }

  /// The handle, still owned here.
  [[nodiscard]] platform::Handle Get() const noexcept { return m_handle; }

  /// Whether there is a handle to close.
  explicit operator bool() const noexcept { return m_handle != Kind::Empty(); }

  /// Closes what is owned, then owns `handle`. Leaves the thread's last error to CloseHandle.
  void Reset(platform::Handle handle = Kind::Empty()) noexcept {
    const platform::Handle old = std::exchange(m_handle, handle);
    if (old != Kind::Empty() && old != handle) {
      platform::CloseHandle(old);
    }
  }

  /// Hands the handle to the caller, who closes it.
  [[nodiscard]] platform::Handle Release() noexcept { return std::exchange(m_handle, Kind::Empty()); }

  /// Closes what is owned and gives the place for a call that hands out a handle.
  [[nodiscard]] platform::Handle* Receive() noexcept {
    Reset();
    return &m_handle;
  }

private:
  platform::Handle m_handle = Kind::Empty();
};

} // namespace detail

/// Owns a handle whose empty value is null: processes, tokens, events, mutexes.
using UniqueHandle = detail::HandleOwner<detail::NullWhenEmpty>;

/// Owns a handle whose empty value is platform::kInvalidHandle: files and snapshots.
using UniqueFile = detail::HandleOwner<detail::InvalidWhenEmpty>;

} // namespace vx
