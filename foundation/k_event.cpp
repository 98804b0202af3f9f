#include "foundation/k_event.h"

#include "platform/sync.h"

namespace vx {

KEvent::~KEvent() { Close(); }

void KEvent::Attach(platform::Handle handle) noexcept {
  Close();
  m_handle = handle;
}

void KEvent::Close() noexcept {
  if (m_handle != nullptr) {
    platform::CloseHandle(m_handle);
    m_handle = nullptr;
  }
}

std::int32_t KEvent::Set() noexcept { return m_handle != nullptr && platform::SetEvent(m_handle) ? 0 : -1; }

bool KEvent::WaitFor(std::uint32_t milliseconds) noexcept {
  return m_handle != nullptr && platform::WaitForSingleObject(m_handle, milliseconds) == 0;
}

} // namespace vx
