#include "examples/editor/event_channel.h"

#include <windows.h>

#include <utility>

namespace example {
namespace {

constexpr std::chrono::seconds kFirstConnectLimit{30};
constexpr std::chrono::seconds kDeliverLimit{5};
constexpr std::chrono::milliseconds kConnectPause{20};

} // namespace

std::string EventPipeName() { return "vexel_browser_" + std::to_string(GetCurrentProcessId()); }

EventChannel::EventChannel(const PipeLibrary& library, std::string pipeName)
    : m_library(library), m_pipeName(std::move(pipeName)) {}

EventChannel::~EventChannel() { Finish(std::chrono::milliseconds(0)); }

void EventChannel::Start() {
  m_thread = std::thread([this] { Run(); });
}

void EventChannel::Post(std::string text) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_texts.push_back(std::move(text));
  }
  m_changed.notify_one();
}

void EventChannel::Finish(std::chrono::milliseconds limit) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isFinishing = true;
    m_deadline = Clock::now() + limit;
  }
  m_changed.notify_all();
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

void EventChannel::Run() {
  Connect(Clock::now() + kFirstConnectLimit);
  while (true) {
    std::string text;
    {
      std::unique_lock<std::mutex> guard(m_lock);
      m_changed.wait(guard, [this] { return !m_texts.empty() || m_isFinishing; });
      if (m_texts.empty() || Clock::now() > m_deadline) {
        break;
      }
      text = std::move(m_texts.front());
      m_texts.pop_front();
    }
    Deliver(text);
  }
  Disconnect();
}

bool EventChannel::Connect(Clock::time_point limit) {
  while (m_connection == 0) {
    m_connection = m_library.connect(m_pipeName.c_str());
    if (m_connection == 0) {
      if (IsOver(limit)) {
        return false;
      }
      std::this_thread::sleep_for(kConnectPause);
    }
  }
  return true;
}

void EventChannel::Disconnect() {
  if (m_connection != 0) {
    m_library.disconnect(m_connection);
    m_connection = 0;
  }
}

void EventChannel::Deliver(const std::string& text) {
  const Clock::time_point limit = Clock::now() + kDeliverLimit;
  while (Connect(limit)) {
    if (m_library.communicate(m_connection, text.c_str()) != nullptr) {
      return;
    }
    // The other side has gone. A new one may have taken its place.
    Disconnect();
    if (IsOver(limit)) {
      return;
    }
  }
}

bool EventChannel::IsOver(Clock::time_point limit) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard<std::mutex> guard(m_lock);
  return now > limit || now > m_deadline;
}

} // namespace example
