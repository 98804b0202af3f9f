#pragma once

#include "tools/vexelctl/log_reader.h"

#include <cstdint>
#include <string>
#include <vector>

// The life of each window and each editor process, laid out over time. Pure: records in, a picture's parts out.
namespace vexelctl {

enum class SpanKind { kWait, kOpening, kServed, kPreloaded, kConnecting, kServing, kClosing };

enum class MarkKind { kStart, kSend, kReceive, kClose, kConnect, kRefused, kFailure, kCrash, kKill, kExit };

/// A stretch of time on a lane. Microseconds of local time since 1970-01-01.
struct TimelineSpan {
  SpanKind kind;
  std::int64_t begin;
  std::int64_t end;
  std::string name;
};

/// A moment on a lane.
struct TimelineMark {
  MarkKind kind;
  std::int64_t at;
  std::string name;
  std::size_t line; // of the log
};

enum class LaneKind { kQueue, kWindow, kProcess };

struct TimelineLane {
  int run;
  LaneKind kind;
  std::uint32_t number; // the editor id or the process id
  std::string title;
  std::vector<TimelineSpan> spans; // in the order of their beginnings
  std::vector<TimelineMark> marks; // in the order of time
};

/// A second in which something was drawn.
struct TimelineSecond {
  std::int64_t second; // since 1970-01-01, local time, after jumps of the clock backwards were straightened
  std::size_t lines;   // that are drawn
};

struct Timeline {
  std::vector<TimelineLane> lanes; // by run: its queue, its windows, its processes
  std::vector<TimelineSecond> seconds;
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

/// Lays out the records of a log, of which `run` may choose one (0: all). The log knows whole seconds: the lines of one
/// second are spread evenly over it, in their order. The crash watch and the kill list write nothing themselves: a
/// crash shows where the engine meets its trace, as a text without a reply or a process that is gone, and a kill as the
/// engine's giving up on a process.
Timeline LayOut(const std::vector<LogRecord>& records, int run);

/// The timeline as an SVG picture that stands alone. `title` is written above it.
std::string TimelineSvg(const Timeline& timeline, const std::string& title);

/// The timeline in the trace event format, which the common trace viewers load.
std::string TimelineTrace(const Timeline& timeline, const std::string& title);

/// What a reader calls a kind: "wait", "send", ...
const char* NameOf(SpanKind kind);
const char* NameOf(MarkKind kind);

/// "06:35:18" of a number of seconds since 1970-01-01.
std::string ClockText(std::int64_t second);

/// "2026-11-21" of it.
std::string DateText(std::int64_t second);

} // namespace vexelctl
