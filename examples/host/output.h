#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace example {

/// What this host reads of an event. A text that is no JSON object leaves everything at its value from here.
struct EventInfo {
  std::string type;
  std::string param;
  bool status = false;
  std::uint32_t processId = 0;
};

/// Reads an event's text; never throws for any text.
EventInfo ReadEvent(const std::string& text);

/// The lines on standard output, each one JSON object with "t", the milliseconds since the start. Any thread.
class Output {
public:
  void SetQuiet(bool quiet) { m_isQuiet = quiet; }

  /// An event of an editor id, with the thread that brought it. The text stands there as JSON, or as a string where it
  /// is none.
  void Event(std::int32_t id, std::uint32_t thread, const std::string& text);

  /// Something that this host did, and its result: a number, or true and false.
  void Action(const std::string& name, std::int32_t id, std::int32_t result);
  void Action(const std::string& name, std::int32_t id, bool result);

private:
  std::int64_t Now() const;
  void Line(const std::string& text);

  const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  bool m_isQuiet = false; // set before the first line
  std::mutex m_lock;      // keeps lines whole
};

} // namespace example
