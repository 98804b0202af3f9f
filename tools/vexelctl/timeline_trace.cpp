#include "tools/vexelctl/timeline.h"

#include <nlohmann/json.hpp>

namespace vexelctl {
namespace {

using Json = nlohmann::ordered_json;

// Lanes of one run are the threads of one process in the viewer's eyes.
int ThreadOf(std::size_t lane) { return static_cast<int>(lane + 1); }

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

// A viewer nests the bars of one thread, so each must lie within another or beside it. Waits overlap as they like: each
// is an asynchronous pair with an id of its own, for which a viewer makes room.
void AddSpan(const TimelineLane& lane, const TimelineSpan& span, int thread, std::int64_t zero, int* waitCount,
             Json* events) {
  Json event;
  event["name"] = span.kind == SpanKind::kWait ? lane.title + ": " + span.name : span.name;
  event["cat"] = NameOf(span.kind);
  event["ph"] = "X";
  event["ts"] = span.begin - zero;
  event["dur"] = span.end - span.begin;
  event["pid"] = lane.run;
  event["tid"] = thread;
  if (span.kind != SpanKind::kWait) {
    events->push_back(std::move(event));
    return;
  }
  event.erase("dur");
  event["ph"] = "b";
  event["id"] = ++*waitCount;
  events->push_back(event);
  event["ph"] = "e";
  event["ts"] = span.end - zero;
  events->push_back(std::move(event));
}

} // namespace

std::string TimelineTrace(const Timeline& timeline, const std::string& title) {
  Json events = Json::array();
  int lastRun = 0;
  int waitCount = 0;
  for (std::size_t i = 0; i < timeline.lanes.size(); ++i) {
    const TimelineLane& lane = timeline.lanes[i];
    if (lane.run != lastRun) {
      lastRun = lane.run;
      events.push_back(Meta(lane.run, 0, "process_name", "run " + std::to_string(lane.run)));
    }
    events.push_back(Meta(lane.run, ThreadOf(i), "thread_name", lane.title));
    events.push_back(SortIndex(lane.run, ThreadOf(i)));
    for (const TimelineSpan& span : lane.spans) {
      AddSpan(lane, span, ThreadOf(i), timeline.begin, &waitCount, &events);
    }
    for (const TimelineMark& mark : lane.marks) {
      Json event;
      event["name"] = mark.name;
      event["cat"] = NameOf(mark.kind);
      event["ph"] = "i";
      event["s"] = "t";
      event["ts"] = mark.at - timeline.begin;
      event["pid"] = lane.run;
      event["tid"] = ThreadOf(i);
      event["args"]["line"] = mark.line;
      events.push_back(std::move(event));
    }
  }
  Json trace;
  trace["traceEvents"] = std::move(events);
  trace["displayTimeUnit"] = "ms";
  trace["otherData"]["log"] = title;
  trace["otherData"]["begin"] = DateText(timeline.begin / 1000000) + " " + ClockText(timeline.begin / 1000000);
  trace["otherData"]["note"] = "The log knows whole seconds: within one, lines are spread evenly in their order.";
  return trace.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace vexelctl
