#include "tools/vexelctl/timeline.h"

#include <nlohmann/json.hpp>

namespace vexelctl {
namespace {

using Json = nlohmann::ordered_json;

// Lanes of one run are the threads of one process in the viewer's eyes. Spans of one lane may overlap, and a viewer
// nests what overlaps only where one lies within the other: waits get a thread of their own.
int ThreadOf(std::size_t lane, bool isWait) { return static_cast<int>(2 * lane + (isWait ? 2 : 1)); }

Json Meta(int process, int thread, const char* what, const std::string& name) {
  Json event;
  event["name"] = what;
  event["ph"] = "M";
  event["pid"] = process;
  event["tid"] = thread;
  event["args"]["name"] = name;
  return event;
}

Json SortIndex(int process, int thread) {
  Json event = Meta(process, thread, "thread_sort_index", "");
  event["args"] = Json::object();
  event["args"]["sort_index"] = thread;
  return event;
}

} // namespace

std::string TimelineTrace(const Timeline& timeline, const std::string& title) {
  Json events = Json::array();
  int lastRun = 0;
  for (std::size_t i = 0; i < timeline.lanes.size(); ++i) {
    const TimelineLane& lane = timeline.lanes[i];
    if (lane.run != lastRun) {
      lastRun = lane.run;
      events.push_back(Meta(lane.run, 0, "process_name", "run " + std::to_string(lane.run)));
    }
    bool hasWaits = false;
    for (const TimelineSpan& span : lane.spans) {
      hasWaits = hasWaits || span.kind == SpanKind::kWait;
    }
    events.push_back(Meta(lane.run, ThreadOf(i, false), "thread_name", lane.title));
    events.push_back(SortIndex(lane.run, ThreadOf(i, false)));
    if (hasWaits) {
      events.push_back(Meta(lane.run, ThreadOf(i, true), "thread_name", lane.title + ", in the queue"));
      events.push_back(SortIndex(lane.run, ThreadOf(i, true)));
    }
    for (const TimelineSpan& span : lane.spans) {
      Json event;
      event["name"] = span.name;
      event["cat"] = NameOf(span.kind);
      event["ph"] = "X";
      event["ts"] = span.begin - timeline.begin;
      event["dur"] = span.end - span.begin;
      event["pid"] = lane.run;
      event["tid"] = ThreadOf(i, span.kind == SpanKind::kWait);
      events.push_back(std::move(event));
    }
    for (const TimelineMark& mark : lane.marks) {
      Json event;
      event["name"] = mark.name;
      event["cat"] = NameOf(mark.kind);
      event["ph"] = "i";
      event["s"] = "t";
      event["ts"] = mark.at - timeline.begin;
      event["pid"] = lane.run;
      event["tid"] = ThreadOf(i, false);
      event["args"]["line"] = mark.line;
      events.push_back(std::move(event));
    }
  }
  Json trace;
  trace["traceEvents"] = std::move(events);
  trace["displayTimeUnit"] = "ms";
  trace["otherData"]["log"] = title;
  trace["otherData"]["begin"] = ClockText(timeline.begin / 1000000);
  trace["otherData"]["note"] = "The log knows whole seconds: within one, lines are spread evenly in their order.";
  return trace.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace vexelctl
