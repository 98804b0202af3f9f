#include "tools/vexelctl/timeline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <tuple>

namespace vexelctl {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int32_t kChangeTheme = 22;
constexpr std::int64_t kClockJumpSeconds = 60; // backwards by more than threads overtaking each other explains

// Tries come each 10 ms for up to 100 s: the stretch is drawn, not each of them.
bool IsDrawn(const LogRecord& record) {
  return record.kind != LogKind::kContinuation && record.kind != LogKind::kConnectTry && record.run > 0;
}

// The moment of each record: whole seconds as the log has them, never backwards, evenly spread within a second.
std::vector<std::int64_t> Moments(const std::vector<LogRecord>& records, Timeline* timeline) {
  std::vector<std::int64_t> seconds(records.size());
  std::int64_t offset = 0;
  std::int64_t last = records.empty() ? 0 : records.front().second;
  for (std::size_t i = 0; i < records.size(); ++i) {
    std::int64_t now = records[i].second + offset;
    if (last - now > kClockJumpSeconds) { // the clock was set back
      offset += last - now;
      now = last;
    }
    last = std::max(last, now);
    seconds[i] = last;
  }
  std::vector<std::int64_t> moments(records.size());
  for (std::size_t begin = 0; begin < records.size();) {
    std::size_t end = begin;
    std::size_t drawn = 0;
    while (end < records.size() && seconds[end] == seconds[begin]) {
      drawn += IsDrawn(records[end]) ? 1U : 0U;
      ++end;
    }
    std::size_t index = 0;
    for (std::size_t i = begin; i < end; ++i) {
      index += IsDrawn(records[i]) ? 1U : 0U;
      const auto part = static_cast<std::int64_t>(2 * index + 1) * kSecondUs / static_cast<std::int64_t>(2 * drawn + 2);
      moments[i] = seconds[begin] * kSecondUs + part;
    }
    if (drawn > 0) {
      timeline->seconds.push_back({seconds[begin], drawn});
    }
    begin = end;
  }
  return moments;
}

class Layout {
public:
  explicit Layout(Timeline* timeline) : m_timeline(timeline) {}

  void Take(const LogRecord& record, std::int64_t at);
  void Finish();

private:
  struct Waiting {
    std::int32_t op;
    std::int32_t id;
    std::int64_t since;
    std::size_t line;
    bool hasProcess; // as far as the log told by then
  };
  struct RunState {
    std::deque<Waiting> queue;
    std::map<std::int32_t, std::uint32_t> idToPid;
    const LogRecord* lastSent = nullptr; // a text whose reply has not come
    std::int64_t lastSentAt = 0;
    std::int64_t lastAt = 0;
  };
  using Key = std::tuple<int, LaneKind, std::uint32_t>;

  std::size_t Lane(int run, LaneKind kind, std::uint32_t number, const std::string& title);
  std::size_t WindowLane(int run, std::int32_t id);
  std::size_t ProcessLane(int run, std::uint32_t pid, const std::string& name = {});
  void Open(std::size_t lane, SpanKind kind, std::int64_t at, const std::string& name);
  void Close(std::size_t lane, SpanKind kind, std::int64_t at);
  void CloseAll(std::size_t lane, std::int64_t at);
  bool IsOpen(std::size_t lane, SpanKind kind) const { return m_open.contains({lane, kind}); }
  void Mark(std::size_t lane, MarkKind kind, std::int64_t at, const std::string& name, std::size_t line);
  void MarkWindow(const LogRecord& record, MarkKind kind, std::int64_t at, const std::string& name);
  void MarkProcess(const LogRecord& record, MarkKind kind, std::int64_t at, const std::string& name);
  void LeaveQueue(RunState& run, int runNumber, std::int32_t op, std::int32_t id, std::int64_t at);
  void NoReply(RunState& run);
  void EndProcess(int run, std::uint32_t pid, std::int64_t at);
  void TakeOfHost(RunState& run, const LogRecord& record, std::int64_t at);
  void TakeOfProcess(RunState& run, const LogRecord& record, std::int64_t at);
  void TakeOfLink(RunState& run, const LogRecord& record, std::int64_t at);
  void TakeReceived(RunState& run, const LogRecord& record, std::int64_t at);

  Timeline* m_timeline;
  std::map<Key, std::size_t> m_lanes;
  std::map<std::pair<std::size_t, SpanKind>, TimelineSpan> m_open;
  std::map<int, RunState> m_runs;
};

std::size_t Layout::Lane(int run, LaneKind kind, std::uint32_t number, const std::string& title) {
  const auto [found, isNew] = m_lanes.try_emplace({run, kind, number}, m_timeline->lanes.size());
  if (isNew) {
    m_timeline->lanes.push_back({run, kind, number, title, {}, {}});
  }
  return found->second;
}

std::size_t Layout::WindowLane(int run, std::int32_t id) {
  if (id <= 0) {
    return Lane(run, LaneKind::kQueue, 0, "preloads");
  }
  return Lane(run, LaneKind::kWindow, static_cast<std::uint32_t>(id), "window, id " + std::to_string(id));
}

std::size_t Layout::ProcessLane(int run, std::uint32_t pid, const std::string& name) {
  const std::size_t lane = Lane(run, LaneKind::kProcess, pid, "process " + std::to_string(pid));
  TimelineLane& entry = m_timeline->lanes[lane];
  if (!name.empty() && entry.title.find(' ') == entry.title.rfind(' ')) {
    entry.title += " " + name;
  }
  return lane;
}

void Layout::Open(std::size_t lane, SpanKind kind, std::int64_t at, const std::string& name) {
  Close(lane, kind, at);
  m_open[{lane, kind}] = {kind, at, at, name};
}

void Layout::Close(std::size_t lane, SpanKind kind, std::int64_t at) {
  const auto found = m_open.find({lane, kind});
  if (found == m_open.end()) {
    return;
  }
  found->second.end = at;
  m_timeline->lanes[lane].spans.push_back(found->second);
  m_open.erase(found);
}

void Layout::CloseAll(std::size_t lane, std::int64_t at) {
  for (const SpanKind kind : {SpanKind::kOpening, SpanKind::kServed, SpanKind::kPreloaded, SpanKind::kConnecting,
                              SpanKind::kServing, SpanKind::kClosing}) {
    Close(lane, kind, at);
  }
}

void Layout::Mark(std::size_t lane, MarkKind kind, std::int64_t at, const std::string& name, std::size_t line) {
  m_timeline->lanes[lane].marks.push_back({kind, at, name, line});
}

void Layout::MarkWindow(const LogRecord& record, MarkKind kind, std::int64_t at, const std::string& name) {
  if (record.id.has_value()) {
    Mark(WindowLane(record.run, *record.id), kind, at, name, record.number);
  }
}

void Layout::MarkProcess(const LogRecord& record, MarkKind kind, std::int64_t at, const std::string& name) {
  if (record.pid.value_or(0) != 0) {
    Mark(ProcessLane(record.run, *record.pid), kind, at, name, record.number);
  }
}

// The queue is strictly in order, and a record for an id without a process goes through it without a line: whatever
// stands before the one that runs now has been lost that way.
void Layout::LeaveQueue(RunState& run, int runNumber, std::int32_t op, std::int32_t id, std::int64_t at) {
  const auto fits = [op, id](const Waiting& waiting) { return waiting.op == op && waiting.id == id; };
  auto found = std::find_if(run.queue.begin(), run.queue.end(),
                            [&fits](const Waiting& waiting) { return fits(waiting) && waiting.hasProcess; });
  if (found == run.queue.end()) {
    found = std::find_if(run.queue.begin(), run.queue.end(), fits); // the id got its process just before its line
  }
  if (found == run.queue.end()) {
    return;
  }
  for (auto waiting = run.queue.begin(); waiting != found; ++waiting) {
    if (waiting->op == kChangeTheme && waiting->id == 0) {
      continue; // a theme goes to all ids that there are, 0 among them, and there to nobody
    }
    const std::size_t lane = WindowLane(runNumber, waiting->id);
    Mark(lane, MarkKind::kRefused, waiting->since, OperationName(waiting->op) + " lost: the id had no process",
         waiting->line);
  }
  m_timeline->lanes[WindowLane(runNumber, id)].spans.push_back(
      {SpanKind::kWait, found->since, at, OperationName(op) + " waits in the queue"});
  run.queue.erase(run.queue.begin(), found + 1);
}

void Layout::NoReply(RunState& run) {
  if (run.lastSent == nullptr) {
    return;
  }
  const LogRecord& sent = *run.lastSent;
  run.lastSent = nullptr;
  const std::string name = "no reply to " + sent.name;
  if (sent.isInner) {
    MarkProcess(sent, MarkKind::kFailure, run.lastSentAt, name);
    return;
  }
  MarkWindow(sent, MarkKind::kCrash, run.lastSentAt, name + ": the editor has gone or its link is broken");
  MarkProcess(sent, MarkKind::kCrash, run.lastSentAt, name);
  EndProcess(sent.run, sent.pid.value_or(0), run.lastSentAt);
  if (sent.id.has_value()) {
    CloseAll(WindowLane(sent.run, *sent.id), run.lastSentAt);
  }
}

void Layout::EndProcess(int run, std::uint32_t pid, std::int64_t at) {
  if (m_lanes.contains({run, LaneKind::kProcess, pid})) {
    CloseAll(ProcessLane(run, pid), at);
  }
}

void Layout::Take(const LogRecord& record, std::int64_t at) {
  RunState& run = m_runs[record.run];
  run.lastAt = at;
  // A text without a reply is followed by another line of its thread.
  if (run.lastSent != nullptr && record.thread == run.lastSent->thread && record.kind != LogKind::kReply) {
    NoReply(run);
  }
  switch (record.kind) {
  case LogKind::kQueued:
  case LogKind::kNoLink:
  case LogKind::kCloseConnecting:
  case LogKind::kCloseAsks:
    TakeOfHost(run, record, at);
    break;
  case LogKind::kConnectTry:
  case LogKind::kConnectFailed:
  case LogKind::kConnected:
  case LogKind::kSent:
  case LogKind::kReply:
  case LogKind::kServerFailed:
    TakeOfLink(run, record, at);
    break;
  case LogKind::kReceived:
    TakeReceived(run, record, at);
    break;
  default:
    TakeOfProcess(run, record, at);
  }
}

void Layout::TakeOfHost(RunState& run, const LogRecord& record, std::int64_t at) {
  const std::int32_t id = record.id.value_or(0);
  switch (record.kind) {
  case LogKind::kQueued:
    run.queue.push_back({record.op, id, at, record.number, record.op <= 3 || run.idToPid.contains(id)});
    if (record.op == 3) {
      MarkWindow(record, MarkKind::kStart, at, "OpenEditor");
    } else if (record.op == 4) {
      MarkWindow(record, MarkKind::kClose, at, "CloseEditor");
    }
    break;
  case LogKind::kNoLink:
  case LogKind::kCloseConnecting:
    // Such a close is not queued.
    for (auto waiting = run.queue.rbegin(); waiting != run.queue.rend(); ++waiting) {
      if (waiting->op == 4 && waiting->id == id) {
        run.queue.erase(std::next(waiting).base());
        break;
      }
    }
    MarkWindow(record, MarkKind::kRefused, at,
               record.kind == LogKind::kNoLink ? "close finds no link" : "close cuts the connecting short");
    break;
  default:
    MarkWindow(record, MarkKind::kClose, at, "close asks the user: unsaved changes");
  }
}

void Layout::TakeOfProcess(RunState& run, const LogRecord& record, std::int64_t at) {
  const std::uint32_t pid = record.pid.value_or(0);
  switch (record.kind) {
  case LogKind::kPreloadRun:
    LeaveQueue(run, record.run, 2, 0, at);
    break;
  case LogKind::kOpenRun: {
    const std::int32_t id = record.id.value_or(0);
    LeaveQueue(run, record.run, 3, id, at);
    const std::size_t lane = WindowLane(record.run, id);
    CloseAll(lane, at);
    Open(lane, SpanKind::kOpening, at, "opening");
    break;
  }
  case LogKind::kStarted:
    if (pid != 0) {
      ProcessLane(record.run, pid, record.name);
      MarkProcess(record, MarkKind::kStart, at, "started");
    }
    break;
  case LogKind::kStartFailed:
    if (record.id.has_value()) {
      const std::size_t lane = WindowLane(record.run, *record.id);
      Close(lane, SpanKind::kOpening, at);
      Mark(lane, MarkKind::kFailure, at, "the program could not be started, error " + std::to_string(record.value),
           record.number);
    }
    break;
  case LogKind::kPreloadDone:
    if (pid != 0) {
      const bool isKnown = m_lanes.contains({record.run, LaneKind::kProcess, pid});
      const std::size_t lane = ProcessLane(record.run, pid, record.name);
      if (!isKnown) {
        Mark(lane, MarkKind::kStart, at, "taken over from an earlier run", record.number);
      }
      Open(lane, SpanKind::kPreloaded, at, "waits for a picture");
    }
    break;
  case LogKind::kPreloadInvalid:
    EndProcess(record.run, pid, at);
    MarkProcess(record, MarkKind::kKill, at, "not usable any more: to be ended if it runs");
    break;
  case LogKind::kProcessUsed:
    if (record.id.has_value()) {
      const std::size_t window = WindowLane(record.run, *record.id);
      Close(window, SpanKind::kOpening, at);
      if (const auto old = run.idToPid.find(*record.id); old != run.idToPid.end() && old->second != pid) {
        EndProcess(record.run, old->second, at);
      }
      run.idToPid[*record.id] = pid;
      if (pid == 0) {
        Mark(window, MarkKind::kFailure, at, "no process: the id was finished meanwhile", record.number);
        break;
      }
      const std::size_t process = ProcessLane(record.run, pid, record.name);
      CloseAll(process, at);
      Open(window, SpanKind::kServed, at, "process " + std::to_string(pid));
      Open(process, SpanKind::kServing, at, "id " + std::to_string(*record.id));
    }
    break;
  case LogKind::kNotRunning:
  case LogKind::kOtherPath:
    if (pid != 0 && m_lanes.contains({record.run, LaneKind::kProcess, pid})) {
      const bool wasServing = IsOpen(ProcessLane(record.run, pid), SpanKind::kServing);
      EndProcess(record.run, pid, at);
      MarkProcess(record, wasServing ? MarkKind::kCrash : MarkKind::kExit, at, "found gone");
    }
    break;
  default:
    break;
  }
}

void Layout::TakeOfLink(RunState& run, const LogRecord& record, std::int64_t at) {
  const std::uint32_t pid = record.pid.value_or(0);
  switch (record.kind) {
  case LogKind::kConnectTry:
    if (pid != 0) {
      const std::size_t lane = ProcessLane(record.run, pid);
      if (!IsOpen(lane, SpanKind::kConnecting)) {
        Open(lane, SpanKind::kConnecting, at, "connecting");
      }
    }
    break;
  case LogKind::kConnected:
    if (pid != 0) {
      Close(ProcessLane(record.run, pid), SpanKind::kConnecting, at);
      MarkProcess(record, MarkKind::kConnect, at, "connected after " + std::to_string(record.value) + " ms");
    }
    break;
  case LogKind::kConnectFailed:
    if (pid != 0) {
      const std::string name = record.isStopped ? "connecting was cut short by a close"
                               : record.value > 100000
                                   ? "no connection in 100 s"
                                   : "gone before it could be connected, after " + std::to_string(record.value) + " ms";
      const bool isCrash = !record.isStopped && record.value <= 100000;
      EndProcess(record.run, pid, at);
      MarkProcess(record, isCrash ? MarkKind::kCrash : MarkKind::kFailure, at, name);
      MarkProcess(record, MarkKind::kKill, at, "given up: to be ended if it runs");
      if (record.id.has_value()) {
        CloseAll(WindowLane(record.run, *record.id), at);
        MarkWindow(record, isCrash ? MarkKind::kCrash : MarkKind::kFailure, at, name);
      }
    }
    break;
  case LogKind::kSent: {
    static const std::map<std::string, std::int32_t> kOps{
        {"close", 4},     {"fullscreen", 5},       {"setpos", 7},
        {"operator", 16}, {"browser_command", 20}, {"change_theme_mode", 22}};
    const auto op = kOps.find(record.name);
    if (!record.isInner && op != kOps.end()) {
      LeaveQueue(run, record.run, op->second, record.id.value_or(0), at);
    }
    if (!record.isInner) {
      MarkWindow(record, MarkKind::kSend, at, "sent " + record.name);
    }
    MarkProcess(record, MarkKind::kSend, at, "got " + record.name);
    if (record.name == "close" && pid != 0) {
      const std::size_t process = ProcessLane(record.run, pid);
      CloseAll(process, at);
      Open(process, SpanKind::kClosing, at, record.isInner ? "replaced" : "closing");
      if (!record.isInner && record.id.has_value()) {
        const std::size_t window = WindowLane(record.run, *record.id);
        CloseAll(window, at);
        Open(window, SpanKind::kClosing, at, "closing");
      }
    }
    run.lastSent = &record;
    run.lastSentAt = at;
    break;
  }
  case LogKind::kReply:
    // With the reply to a close all has been said: what comes behind it is not read, unless the editor asks its user.
    if (run.lastSent != nullptr && run.lastSent->name == "close" && pid != 0) {
      Close(ProcessLane(record.run, pid), SpanKind::kClosing, at);
      if (record.id.has_value() && !run.lastSent->isInner) {
        Close(WindowLane(record.run, *record.id), SpanKind::kClosing, at);
      }
    }
    run.lastSent = nullptr;
    break;
  default:
    MarkWindow(record, MarkKind::kFailure, at, "the pipe could not be served, error " + std::to_string(record.value));
  }
}

void Layout::TakeReceived(RunState& run, const LogRecord& record, std::int64_t at) {
  std::string name = record.name.empty() ? "a text" : record.name;
  if (record.name == "edit") {
    name = record.isModified ? "edit: unsaved changes" : "edit: no unsaved changes";
  }
  const bool isEnd = record.name == "process_exit" || record.name == "finish_operator";
  if (record.id.value_or(0) > 0) { // a process that waits for a picture has no window
    MarkWindow(record, isEnd ? MarkKind::kExit : MarkKind::kReceive, at, name);
  }
  MarkProcess(record, isEnd ? MarkKind::kExit : MarkKind::kReceive, at, name);
  if (record.name == "finish_operator" && record.id.has_value()) {
    CloseAll(WindowLane(record.run, *record.id), at);
  }
  if (record.name == "process_exit" && record.pid.has_value()) {
    EndProcess(record.run, *record.pid, at);
    if (record.id.has_value() && run.idToPid[*record.id] == *record.pid) {
      CloseAll(WindowLane(record.run, *record.id), at);
    }
  }
}

// What is still open when its run says no more ends there: nothing is known of it behind that.
void Layout::Finish() {
  // A text at the very end of the log may still be answered: nothing is said about it.
  while (!m_open.empty()) {
    const auto key = m_open.begin()->first;
    Close(key.first, key.second, m_runs[m_timeline->lanes[key.first].run].lastAt);
  }
  for (TimelineLane& lane : m_timeline->lanes) {
    std::stable_sort(lane.spans.begin(), lane.spans.end(),
                     [](const TimelineSpan& left, const TimelineSpan& right) { return left.begin < right.begin; });
    std::stable_sort(lane.marks.begin(), lane.marks.end(),
                     [](const TimelineMark& left, const TimelineMark& right) { return left.at < right.at; });
  }
  std::stable_sort(m_timeline->lanes.begin(), m_timeline->lanes.end(),
                   [](const TimelineLane& left, const TimelineLane& right) {
                     return std::tie(left.run, left.kind) < std::tie(right.run, right.kind);
                   });
}

} // namespace

Timeline LayOut(const std::vector<LogRecord>& records, int run) {
  std::vector<LogRecord> chosen;
  for (const LogRecord& record : records) {
    if (record.run > 0 && record.kind != LogKind::kContinuation && (run == 0 || record.run == run)) {
      chosen.push_back(record);
    }
  }
  Timeline timeline;
  if (chosen.empty()) {
    return timeline;
  }
  const std::vector<std::int64_t> moments = Moments(chosen, &timeline);
  timeline.begin = moments.front();
  timeline.end = moments.back();
  if (!timeline.seconds.empty()) {
    timeline.begin = timeline.seconds.front().second * kSecondUs;
    timeline.end = (timeline.seconds.back().second + 1) * kSecondUs;
  }
  Layout layout(&timeline);
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    layout.Take(chosen[i], moments[i]);
  }
  layout.Finish();
  return timeline;
}

const char* NameOf(SpanKind kind) {
  switch (kind) {
  case SpanKind::kWait:
    return "waits in the queue";
  case SpanKind::kOpening:
    return "opening";
  case SpanKind::kServed:
    return "has its process";
  case SpanKind::kPreloaded:
    return "waits for a picture";
  case SpanKind::kConnecting:
    return "connecting";
  case SpanKind::kServing:
    return "serves a window";
  case SpanKind::kClosing:
    return "closing";
  }
  return "";
}

const char* NameOf(MarkKind kind) {
  switch (kind) {
  case MarkKind::kStart:
    return "open, start";
  case MarkKind::kSend:
    return "sent to the editor";
  case MarkKind::kReceive:
    return "from the editor";
  case MarkKind::kClose:
    return "close";
  case MarkKind::kConnect:
    return "connected";
  case MarkKind::kRefused:
    return "lost or refused";
  case MarkKind::kFailure:
    return "failure";
  case MarkKind::kCrash:
    return "crash, as far as the log shows it";
  case MarkKind::kKill:
    return "to be killed";
  case MarkKind::kExit:
    return "exit";
  }
  return "";
}

std::string ClockText(std::int64_t second) {
  const auto inDay = static_cast<int>(((second % 86400) + 86400) % 86400);
  char text[16];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d", inDay / 3600 % 24, inDay / 60 % 60, inDay % 60);
  return text;
}

std::string DateText(std::int64_t second) {
  const std::chrono::sys_days day =
      std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(second)));
  const std::chrono::year_month_day date(day);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()));
  return text;
}

} // namespace vexelctl
