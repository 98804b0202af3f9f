#pragma once

#include "tests/windows/sdk/test_folder.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sdktest {

/// One call of the host's callback.
struct Event {
  std::int64_t ms;      // since the host's start
  std::uint32_t thread; // of the host
  std::int32_t id;      // 0 when the callback was registered without user data
  std::string text;

  /// Whether the text is one of the SDK's own events with this param.
  bool IsParam(const std::string& param) const;
};

/// A scripted host at work in a test's folder. Its member functions are for one thread.
class HostProcess {
public:
  /// Starts the host with these variables added to its environment. It has loaded nothing yet.
  explicit HostProcess(const TestFolder& folder, const std::map<std::wstring, std::wstring>& environment = {});
  /// Ends the process if it runs.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  /// One command and its answer. An answer that does not come, or is an error, fails the test and gives "".
  std::string Do(const std::string& command);
  /// As Do, for answers that are one number. -1000000 when there is none.
  std::int64_t Ask(const std::string& command);
  /// A command that the host does not survive. True when it ended without an answer.
  bool DoAndDie(const std::string& command);
  /// Sends a command and does not wait for the answer; EndBegun takes it.
  void Begin(const std::string& command);
  std::string EndBegun();

  std::vector<Event> Events() const;
  /// The events from the one with this number on.
  std::vector<Event> EventsFrom(std::size_t first) const;
  /// The events of one id.
  std::vector<Event> Events(std::int32_t id) const;
  /// Waits until as many events of the id as `count` hold `part`, and gives the last of these; fails the test if that
  /// does not happen.
  Event WaitForEvent(std::int32_t id, const std::string& part, std::size_t count = 1);
  std::size_t CountEvents(std::int32_t id, const std::string& part) const;
  /// Waits for a line that begins with "note" or "fault" and holds `part`. Gives it, or "".
  std::string WaitForNote(const std::string& part);

  /// Waits for the host's end and gives its exit code, as a Windows parent sees it.
  std::uint32_t WaitForExit();

private:
  void Read();
  std::optional<std::string> NextAnswer();

  void* m_process = nullptr;
  void* m_input = nullptr;
  void* m_output = nullptr;
  std::thread m_reader;
  mutable std::mutex m_lock; // guards what follows
  std::condition_variable m_changed;
  std::vector<std::string> m_answers;
  std::vector<std::string> m_notes;
  std::vector<Event> m_events;
  bool m_isOver = false;
};

} // namespace sdktest
