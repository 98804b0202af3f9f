#include "vexelsdk/link/reader_msg_proc.h"

#include "platform/sync.h"

#include <cstring>
#include <new>

namespace {

constexpr char kProbeText[] = "testserver";
constexpr unsigned kFreeMemory = 1;

} // namespace

ReaderMsgProc::ReaderMsgProc() { m_arrived.Attach(platform::CreateEventW(false, false)); }

void* ReaderMsgProc::DeletingDestructor(unsigned flag) {
  if ((flag & kFreeMemory) != 0) {
    delete this;
  } else {
    this->~ReaderMsgProc();
  }
  return this;
}

std::intptr_t ReaderMsgProc::OnMessage(const char* text) {
  if (text == nullptr || *text == '\0') {
    return 0;
  }
  bool stored = false;
  try {
    const std::lock_guard lock(m_lock);
    const bool repeated = !m_messages.empty() && m_messages.back() == text;
    if (!repeated && std::strstr(text, kProbeText) == nullptr) {
      m_messages.emplace_back(text);
      stored = true;
    }
  } catch (const std::bad_alloc&) {
    // No exception may reach the library, which another compiler built: a text that finds no memory is dropped.
  }
  if (stored) {
    m_arrived.Set();
  }
  return 0;
}

void ReaderMsgProc::NoOp() {}

IMsgProcessor* ReaderMsgProc::Self() { return this; }

void ReaderMsgProc::DestroyOther(IMsgProcessor* other) {
  if (other != this && other != nullptr) {
    other->DeletingDestructor(kFreeMemory);
  }
}

std::string ReaderMsgProc::PopMessage() {
  const std::lock_guard lock(m_lock);
  if (m_messages.empty()) {
    return {};
  }
  std::string oldest = std::move(m_messages.front());
  m_messages.pop_front();
  return oldest;
}

bool ReaderMsgProc::WaitForArrival(std::uint32_t milliseconds) { return m_arrived.WaitFor(milliseconds); }
