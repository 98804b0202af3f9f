#include "tests/unit/tools/sample_log.h"
#include "tools/vexelctl/timeline.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <vector>

namespace {

using namespace toolstest;
using namespace vexelctl;

Timeline LayOutText(const std::string& text, int run = 0) { return LayOut(LogReader().Feed(text), run); }

const TimelineLane* FindLane(const Timeline& timeline, LaneKind kind, std::uint32_t number, int run = 1) {
  for (const TimelineLane& lane : timeline.lanes) {
    if (lane.kind == kind && lane.number == number && lane.run == run) {
      return &lane;
    }
  }
  return nullptr;
}

std::size_t CountSpans(const TimelineLane& lane, SpanKind kind) {
  return static_cast<std::size_t>(std::count_if(lane.spans.begin(), lane.spans.end(),
                                                [kind](const TimelineSpan& span) { return span.kind == kind; }));
}

const TimelineMark* FindMark(const TimelineLane& lane, MarkKind kind) {
  const auto found = std::find_if(lane.marks.begin(), lane.marks.end(),
                                  [kind](const TimelineMark& mark) { return mark.kind == kind; });
  return found == lane.marks.end() ? nullptr : &*found;
}

TEST(Timeline, AWholeLifeIsLaidOut) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300) + Queued(10, 4, 4, 1) +
                                       Sent(11, 5, "close", 1, 300) + Reply(11, 5));
  const TimelineLane* const window = FindLane(timeline, LaneKind::kWindow, 1);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(CountSpans(*window, SpanKind::kWait), 2U); // the open and the close
  EXPECT_EQ(CountSpans(*window, SpanKind::kOpening), 1U);
  EXPECT_EQ(CountSpans(*window, SpanKind::kServed), 1U);
  EXPECT_EQ(CountSpans(*window, SpanKind::kClosing), 1U);
  EXPECT_NE(FindMark(*window, MarkKind::kClose), nullptr);
  EXPECT_EQ(FindMark(*window, MarkKind::kCrash), nullptr);
  const TimelineLane* const process = FindLane(timeline, LaneKind::kProcess, 300);
  ASSERT_NE(process, nullptr);
  EXPECT_EQ(process->title, "process 300 webvexlaunch.exe");
  EXPECT_EQ(CountSpans(*process, SpanKind::kPreloaded), 1U);
  EXPECT_EQ(CountSpans(*process, SpanKind::kConnecting), 1U);
  EXPECT_EQ(CountSpans(*process, SpanKind::kServing), 1U);
  EXPECT_EQ(CountSpans(*process, SpanKind::kClosing), 1U);
  ASSERT_NE(FindMark(*process, MarkKind::kConnect), nullptr);
  EXPECT_EQ(FindMark(*process, MarkKind::kConnect)->name, "connected after 21 ms");
  const TimelineLane* const queue = FindLane(timeline, LaneKind::kQueue, 0);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(CountSpans(*queue, SpanKind::kWait), 2U);
}

TEST(Timeline, MomentsNeverGoBackwardsAndSpansHaveLength) {
  const Timeline timeline = LayOutText(Start(10, 5, 300) + Open(10, 4, 1, 300) + Sent(11, 6, "setpos", 1, 300));
  for (const TimelineLane& lane : timeline.lanes) {
    for (const TimelineSpan& span : lane.spans) {
      EXPECT_LE(span.begin, span.end) << span.name;
      EXPECT_GE(span.begin, timeline.begin);
      EXPECT_LE(span.end, timeline.end);
    }
  }
  for (std::size_t i = 1; i < timeline.seconds.size(); ++i) {
    EXPECT_LT(timeline.seconds[i - 1].second, timeline.seconds[i].second);
  }
}

TEST(Timeline, ATextWithoutAReplyIsACrash) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300) + Queued(10, 3, 7, 1) +
                                       Sent(11, 3, "setpos", 1, 300) + Open(10, 4, 2, 301));
  const TimelineLane* const window = FindLane(timeline, LaneKind::kWindow, 1);
  ASSERT_NE(window, nullptr);
  const TimelineMark* const crash = FindMark(*window, MarkKind::kCrash);
  ASSERT_NE(crash, nullptr);
  EXPECT_EQ(crash->name, "no reply to setpos: the editor has gone or its link is broken");
  const TimelineLane* const process = FindLane(timeline, LaneKind::kProcess, 300);
  ASSERT_NE(FindMark(*process, MarkKind::kCrash), nullptr);
  for (const TimelineSpan& span : process->spans) {
    EXPECT_LE(span.end, crash->at);
  }
}

TEST(Timeline, ATextAtTheVeryEndMayStillBeAnswered) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300) + Sent(11, 3, "setpos", 1, 300));
  EXPECT_EQ(FindMark(*FindLane(timeline, LaneKind::kWindow, 1), MarkKind::kCrash), nullptr);
}

TEST(Timeline, AnOperationWithoutAProcessIsLost) {
  const std::string preloaded = Line(11, 3, "OperatorThreadFun data.m_op = SDK_PreLoadProcess");
  const Timeline timeline =
      LayOutText(Start(10, 1, 300) + Queued(10, 2, 3, 1) + Queued(10, 2, 2, 0) + Queued(10, 2, 7, 1) +
                 Line(11, 3, "OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1") +
                 Line(11, 3, "VexelSDKThread::HandleOpenProcess nAppType=1, pName=webvexlaunch.exe") +
                 Line(11, 3, "VexelSDKThread::HandleOpenProcess Use Process 300") + preloaded + Queued(10, 4, 7, 1) +
                 Sent(11, 4, "setpos", 1, 300) + Reply(11, 4));
  const TimelineLane* const window = FindLane(timeline, LaneKind::kWindow, 1);
  ASSERT_NE(window, nullptr);
  ASSERT_NE(FindMark(*window, MarkKind::kRefused), nullptr);
  EXPECT_EQ(FindMark(*window, MarkKind::kRefused)->name, "setpos lost: the id had no process");
  EXPECT_EQ(CountSpans(*window, SpanKind::kWait), 2U); // the open and the second move
}

TEST(Timeline, AThemeForTheIdOfNoWindowIsNotLost) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Queued(10, 2, 22, 0) + Open(10, 3, 1, 300));
  for (const TimelineLane& lane : timeline.lanes) {
    EXPECT_EQ(FindMark(lane, MarkKind::kRefused), nullptr) << lane.title;
  }
}

TEST(Timeline, TheExitOfAWaitingProcessIsItsOwn) {
  const Timeline timeline = LayOutText(
      Start(10, 1, 300) +
      Line(12, 2, "VexelSDKHelper::GetOperator data={\"id\":0,\"process_id\":301,\"type\":\"process_exit\"}"));
  EXPECT_EQ(FindMark(*FindLane(timeline, LaneKind::kQueue, 0), MarkKind::kExit), nullptr);
  EXPECT_NE(FindMark(*FindLane(timeline, LaneKind::kProcess, 301), MarkKind::kExit), nullptr);
}

TEST(Timeline, DatesAreThoseOfTheCalendar) {
  EXPECT_EQ(DateText(0), "1970-01-01");
  EXPECT_EQ(DateText(951782399), "2000-02-28");
  EXPECT_EQ(DateText(951782400), "2000-02-29");
  EXPECT_EQ(DateText(LogReader().Feed(Line(1, 2, "Any x")).front().second), "2026-11-21");
}

TEST(Timeline, AReplacedEditorIsClosedByTheEngine) {
  const Timeline timeline =
      LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300) + Queued(10, 3, 3, 1) +
                 Line(11, 3, "OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1") + Sent(11, 3, "close", 1, 300) +
                 Reply(11, 3) + Line(11, 3, "VexelSDKThread::HandleOpenProcess nAppType=2, pName=vxpixeleditor.exe") +
                 Line(11, 3, "VexelSDKThread::HandleOpenProcess Use Process 301"));
  const TimelineLane* const window = FindLane(timeline, LaneKind::kWindow, 1);
  EXPECT_EQ(CountSpans(*window, SpanKind::kServed), 2U);
  EXPECT_EQ(CountSpans(*window, SpanKind::kClosing), 0U);
  EXPECT_EQ(CountSpans(*FindLane(timeline, LaneKind::kProcess, 300), SpanKind::kClosing), 1U);
  EXPECT_EQ(CountSpans(*FindLane(timeline, LaneKind::kProcess, 301), SpanKind::kServing), 1U);
}

TEST(Timeline, AFailedConnectIsAFailureOrACrashAndAKill) {
  const std::string upToConnect = Start(10, 1, 300) + Queued(10, 2, 3, 1) +
                                  Line(11, 2, "OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1") +
                                  Line(11, 2, "VexelSDKThread::HandleOpenProcess Use Process 300");
  const Timeline died = LayOutText(
      upToConnect + Line(11, 3, "VexelSDKHelper::ConnectServer failure. is_stop=0, duration=40ms, pid=300", "  ERROR"));
  EXPECT_NE(FindMark(*FindLane(died, LaneKind::kWindow, 1), MarkKind::kCrash), nullptr);
  EXPECT_NE(FindMark(*FindLane(died, LaneKind::kProcess, 300), MarkKind::kKill), nullptr);
  const Timeline hung = LayOutText(
      upToConnect +
      Line(11, 3, "VexelSDKHelper::ConnectServer failure. is_stop=0, duration=100010ms, pid=300", "  ERROR"));
  EXPECT_EQ(FindMark(*FindLane(hung, LaneKind::kWindow, 1), MarkKind::kCrash), nullptr);
  EXPECT_EQ(FindMark(*FindLane(hung, LaneKind::kWindow, 1), MarkKind::kFailure)->name, "no connection in 100 s");
}

TEST(Timeline, AnExitEndsTheProcessAndItsWindow) {
  const Timeline timeline = LayOutText(
      Start(10, 1, 300) + Open(10, 2, 1, 300) +
      Line(12, 4, "VexelSDKHelper::GetOperator data={\"id\":1,\"process_id\":300,\"type\":\"process_exit\"}") +
      Queued(10, 9, 2, 0));
  const TimelineLane* const process = FindLane(timeline, LaneKind::kProcess, 300);
  ASSERT_NE(FindMark(*process, MarkKind::kExit), nullptr);
  for (const TimelineSpan& span : process->spans) {
    EXPECT_LE(span.end, FindMark(*process, MarkKind::kExit)->at);
  }
}

TEST(Timeline, WhatIsLeftOpenEndsWithItsRun) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Start(20, 30, 400) + Open(20, 40, 1, 400));
  const TimelineLane* const waiting = FindLane(timeline, LaneKind::kProcess, 301, 1);
  ASSERT_NE(waiting, nullptr);
  ASSERT_EQ(waiting->spans.size(), 1U);
  EXPECT_LT(waiting->spans[0].end, timeline.begin + 2000000);
}

TEST(Timeline, OneRunCanBeChosen) {
  const std::string text = Start(10, 1, 300) + Open(10, 2, 1, 300) + Start(20, 3, 400) + Open(20, 4, 1, 400);
  const Timeline timeline = LayOutText(text, 2);
  EXPECT_NE(FindLane(timeline, LaneKind::kWindow, 1, 2), nullptr);
  for (const TimelineLane& lane : timeline.lanes) {
    EXPECT_EQ(lane.run, 2);
  }
}

TEST(Timeline, AClockThatIsSetBackMovesNothing) {
  std::string text = Start(10, 50, 300);
  std::string later = Open(10, 10, 1, 300);
  for (std::size_t at = 0; (at = later.find("06:35:", at)) != std::string::npos;) {
    later.replace(at, 6, "05:35:"); // an hour back
  }
  const Timeline timeline = LayOutText(text + later);
  ASSERT_FALSE(timeline.seconds.empty());
  EXPECT_LE(timeline.seconds.back().second - timeline.seconds.front().second, 1);
}

TEST(TimelineTrace, HoldsEachSpanAndMarkOnce) {
  const Timeline timeline = LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300));
  const nlohmann::json trace = nlohmann::json::parse(TimelineTrace(timeline, "a \"log\""));
  std::size_t spans = 0;
  std::size_t marks = 0;
  for (const TimelineLane& lane : timeline.lanes) {
    spans += lane.spans.size();
    marks += lane.marks.size();
  }
  ASSERT_GT(spans, 4U);
  std::size_t complete = 0;
  std::size_t instant = 0;
  std::map<int, std::int64_t> waits; // when each asynchronous pair that is open has begun
  for (const nlohmann::json& event : trace.at("traceEvents")) {
    const std::string phase = event.at("ph");
    EXPECT_TRUE(event.contains("pid") && event.contains("tid") && event.contains("name"));
    if (phase == "X") {
      ++complete;
      EXPECT_GE(event.at("dur").get<std::int64_t>(), 0);
      EXPECT_GE(event.at("ts").get<std::int64_t>(), 0);
    } else if (phase == "i") {
      ++instant;
    } else if (phase == "b") {
      EXPECT_TRUE(waits.emplace(event.at("id"), event.at("ts")).second);
    } else if (phase == "e") {
      const auto begun = waits.find(event.at("id"));
      ASSERT_NE(begun, waits.end());
      EXPECT_GE(event.at("ts").get<std::int64_t>(), begun->second);
      waits.erase(begun);
      ++complete;
    } else {
      EXPECT_EQ(phase, "M");
    }
  }
  EXPECT_EQ(complete, spans);
  EXPECT_EQ(instant, marks);
  EXPECT_TRUE(waits.empty());
}

TEST(TimelineTrace, BarsOfOneThreadLieBesideOrWithinEachOther) {
  // Three waits of one window overlap, an editor is replaced, and an open finds its process gone.
  const std::string text =
      Start(10, 1, 300) + Queued(10, 2, 7, 1) + Open(10, 2, 1, 300) + Queued(10, 3, 7, 1) + Queued(10, 3, 16, 1) +
      Queued(10, 3, 3, 1) + Sent(11, 4, "setpos", 1, 300) + Reply(11, 4) + Sent(11, 5, "operator", 1, 300) +
      Reply(11, 5) + Line(11, 6, "OperatorThreadFun data.m_op = SDK_OPEN data.m_id=1") + Sent(11, 6, "close", 1, 300) +
      Reply(11, 6) + Open(10, 6, 1, 301) + Queued(10, 7, 4, 1) + Sent(11, 8, "close", 1, 301) + Reply(11, 9);
  const Timeline timeline = LayOutText(text);
  std::size_t overlappingWaits = 0;
  for (const TimelineLane& lane : timeline.lanes) {
    for (std::size_t i = 1; i < lane.spans.size(); ++i) {
      overlappingWaits += lane.spans[i].kind == SpanKind::kWait && lane.spans[i - 1].kind == SpanKind::kWait &&
                                  lane.spans[i].begin < lane.spans[i - 1].end &&
                                  lane.spans[i].end > lane.spans[i - 1].end
                              ? 1U
                              : 0U;
    }
  }
  EXPECT_GT(overlappingWaits, 0U) << "nothing to tell apart";
  struct Bar {
    int thread;
    std::int64_t begin;
    std::int64_t end;
  };
  std::vector<Bar> bars;
  const nlohmann::json trace = nlohmann::json::parse(TimelineTrace(timeline, "log"));
  for (const nlohmann::json& event : trace.at("traceEvents")) {
    if (event.at("ph") == "X") {
      const std::int64_t begin = event.at("ts");
      bars.push_back({event.at("tid"), begin, begin + event.at("dur").get<std::int64_t>()});
    }
  }
  ASSERT_GT(bars.size(), 5U);
  for (const Bar& left : bars) {
    for (const Bar& right : bars) {
      EXPECT_FALSE(left.thread == right.thread && left.begin < right.begin && right.begin < left.end &&
                   left.end < right.end)
          << left.thread << ": " << left.begin << "-" << left.end << " and " << right.begin << "-" << right.end;
    }
  }
}

TEST(TimelineSvg, TellsWhereTheDateChanges) {
  std::string tomorrow = Open(10, 2, 1, 300);
  for (std::size_t at = 0; (at = tomorrow.find("2026-11-21", at)) != std::string::npos;) {
    tomorrow.replace(at, 10, "2026-11-22");
  }
  const std::string svg = TimelineSvg(LayOutText(Start(10, 1, 300) + tomorrow), "log");
  EXPECT_NE(svg.find(">06:35:01</text>"), std::string::npos);
  EXPECT_NE(svg.find(">2026-11-22 06:35:02</text>"), std::string::npos);
}

TEST(TimelineSvg, IsWholeAndEscapesWhatEditorsSay) {
  const std::string svg = TimelineSvg(
      LayOutText(Start(10, 1, 300) + Open(10, 2, 1, 300) +
                 Line(12, 40, "VexelSDKHelper::GetOperator data={\"id\":1,\"process_id\":300,\"type\":\"<b>&\"}")),
      "log <1>");
  EXPECT_EQ(svg.find("<b>"), std::string::npos);
  EXPECT_NE(svg.find("&lt;b&gt;&amp;"), std::string::npos);
  EXPECT_NE(svg.find("log &lt;1&gt;"), std::string::npos);
  EXPECT_NE(svg.find("s without a line"), std::string::npos);
  EXPECT_TRUE(svg.ends_with("</svg>\n"));
  EXPECT_EQ(svg.find("nan"), std::string::npos);
}

} // namespace
