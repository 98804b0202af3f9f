#include "tests/windows/soak/life.h"

#include "tests/windows/sdk/text.h"

#include <algorithm>

namespace soak {
namespace {

using sdktest::Contains;
using sdktest::NumberAfter;

/// Three threads call the callback, each with one event at a time; a close lets these calls through and no other.
constexpr int kCallsUnderWay = 3;

bool IsType(const std::string& text, const std::string& type) { return Contains(text, "\"type\":\"" + type + "\""); }

std::string Param(const std::string& text) {
  const std::string label = "\"param\":\"";
  const std::size_t begin = text.find(label);
  return begin == std::string::npos
             ? std::string()
             : text.substr(begin + label.size(), text.find('"', begin + label.size()) - begin - label.size());
}

} // namespace

const char* NameOf(End end) {
  switch (end) {
  case End::kNone:
    return "alive";
  case End::kClosed:
    return "closed";
  case End::kFinished:
    return "finished";
  case End::kCrashed:
    return "crashed";
  case End::kReplacedLate:
    return "replaced late";
  case End::kFailed:
    return "failed";
  case End::kSilent:
    return "silent";
  }
  return "?";
}

std::string Life::Take(const sdktest::Event& event) {
  m_texts.push_back(event.text);
  if (m_end == End::kClosed && ++m_afterClose > kCallsUnderWay) {
    return "an event after a plain close";
  }
  if (m_end == End::kFailed && !m_pids.empty() && IsType(event.text, "run_error")) {
    return "a crash of a finished id";
  }
  return Judge(event.text);
}

std::string Life::Judge(const std::string& text) {
  if (text == "no json" || text == "{\"type\":7}") {
    return m_pids.empty() ? "an editor's text before there was an editor" : "";
  }
  const std::string param = Param(text);
  const std::uint32_t pid = static_cast<std::uint32_t>(NumberAfter(text, "\"process_id\":"));
  if (IsType(text, "custom_message") && param == "open_pic_process_success") {
    if (pid == 0 || Started() == m_opens) {
      return "a process that was not asked for";
    }
    m_pids.push_back(pid);
    m_hasOpenSuccess = false;
    m_isModified = false;
    m_isCalm = false;
    m_answer.clear();
    m_nextFlood.erase(pid);
    m_announcedFlood.erase(pid);
    return {};
  }
  if (IsType(text, "custom_message") && param == "open_pic_process_fail") {
    // Of an id that was finished while its process came up; it travels on whichever id had no process last.
    return {};
  }
  if (std::find(m_pids.begin(), m_pids.end(), pid) == m_pids.end()) {
    return "an event of a process that never served this id";
  }
  if (IsType(text, "custom_message")) {
    m_hasOpenSuccess = m_hasOpenSuccess || param == "open_pic_success";
    return {};
  }
  if (IsType(text, "run_error")) {
    m_crashedPid = pid;
    return ++m_crashes > 1    ? "a second report of a crash"
           : m_finishes > 0   ? "a crash of an editor that has left"
           : param != "crash" ? "an error that is no crash"
                              : "";
  }
  if (IsType(text, "finish_operator")) {
    ++m_finishes;
    return HasWholeFlood(pid) ? "" : "an editor left before its flood had come";
  }
  if (IsType(text, "edit")) {
    const bool isModified = Contains(text, "\"status\":true");
    m_isModified = pid == Pid() ? isModified : m_isModified;
    return !isModified || HasWholeFlood(pid) ? "" : "an edit before the flood that came first";
  }
  if (IsType(text, "soak")) {
    m_announcedFlood[pid] = NumberAfter(text, "\"flood\":");
    if (pid == Pid()) {
      m_answer = param;
      m_isCalm = Contains(text, "\"calm\":true");
    }
    return {};
  }
  if (IsType(text, "flood")) {
    return NumberAfter(text, "\"param\":\"") == m_nextFlood[pid]++ ? "" : "a flood out of order";
  }
  return "an event that nobody sends";
}

std::string Life::History() const {
  std::string text = "id " + std::to_string(m_id) + ", " + NameOf(m_end) + ", opens " + std::to_string(m_opens) + ":";
  for (const std::string& event : m_texts) {
    if (!IsType(event, "flood")) {
      text += "\n    " + event;
    }
  }
  return text;
}

} // namespace soak
