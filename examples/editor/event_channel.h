#pragma once

#include "examples/editor/pipe_library.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace example {

/// The pipe that the SDK serves for this process's events.
std::string EventPipeName();

/// The way of the events to the SDK: a queue, and a thread that sends what is in it. The SDK may come up late, go away
/// and come back as another one; the channel connects anew when it has to.
class EventChannel {
public:
  /// Keeps a reference to the library.
  EventChannel(const PipeLibrary& library, std::string pipeName);
  ~EventChannel();
  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;

  /// Starts the thread, which connects at once and tries so for half a minute.
  void Start();

  /// Appends an event. Any thread; never waits for the SDK.
  void Post(std::string text);

  /// Sends what is still queued, for at most that time, then ends the thread and the connection. Blocks so long.
  void Finish(std::chrono::milliseconds limit);

private:
  using Clock = std::chrono::steady_clock;

  void Run();
  bool Connect(Clock::time_point limit);
  void Disconnect();
  void Deliver(const std::string& text);
  bool IsOver(Clock::time_point limit);

  const PipeLibrary& m_library;
  const std::string m_pipeName;
  std::uint32_t m_connection = 0; // the thread's own
  std::thread m_thread;

  std::mutex m_lock;
  std::condition_variable m_changed;
  std::deque<std::string> m_texts;                         // m_lock
  bool m_isFinishing = false;                              // m_lock
  Clock::time_point m_deadline = Clock::time_point::max(); // m_lock
};

} // namespace example
