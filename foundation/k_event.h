#pragma once

#include "platform/types.h"

#include <cstdint>

namespace vx {

/// The owner of one event object. `Set` and `WaitFor` may be called by any thread; `Attach`, `Close` and the destructor
/// only while no other thread uses the object.
class KEvent {
public:
  KEvent() noexcept = default;
  virtual ~KEvent();
  KEvent(const KEvent&) = delete;
  KEvent& operator=(const KEvent&) = delete;
  KEvent(KEvent&&) = delete;
  KEvent& operator=(KEvent&&) = delete;

  /// Closes the event held so far and takes over `handle`, null for none.
  void Attach(platform::Handle handle) noexcept;

  /// Closes the event, if there is one.
  void Close() noexcept;

  /// Signals the event. 0, or -1 without an event and when the system refuses.
  std::int32_t Set() noexcept;

  /// Blocks until the event is signalled or `milliseconds` are over. True only when it was signalled; false at once
  /// without an event and when the wait fails.
  bool WaitFor(std::uint32_t milliseconds) noexcept;

private:
  platform::Handle m_handle = nullptr;
};

} // namespace vx
