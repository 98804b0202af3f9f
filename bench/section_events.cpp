// The road from an editor to the host's callback: one event alone, and many editors at once.

#include "bench/clock.h"
#include "bench/sdk_host.h"
#include "bench/sections.h"

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace bench {
namespace {

constexpr double kPollMs = 10;
constexpr std::uint32_t kRate = 100; // events a second, for each editor
constexpr std::size_t kMostEvents = 100000;

/// What the callback notes. One thread of the SDK writes it.
struct Arrivals {
  Samples latencies; // milliseconds
  std::atomic<std::uint32_t> count{0};
  ReleaseCallbackDataFn release = nullptr;
};
Arrivals arrivals;

void OnEvent(char* text, void*) {
  const double now = NowUs();
  // The SDK's own events have no time in them, and come on another thread.
  if (const char* const at = std::strstr(text, "\"at\":"); at != nullptr) {
    if (arrivals.latencies.size() < kMostEvents) {
      arrivals.latencies.push_back((now - std::atof(at + std::strlen("\"at\":"))) / 1000);
    }
    arrivals.count.fetch_add(1, std::memory_order_release);
  }
  arrivals.release(text);
}

void Forget() {
  arrivals.latencies.clear();
  arrivals.count = 0;
}

double CpuMs() {
  FILETIME created;
  FILETIME ended;
  FILETIME kernel;
  FILETIME user;
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  const auto ms = [](const FILETIME& time) {
    return static_cast<double>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 1e4;
  };
  return ms(kernel) + ms(user);
}

double SleepMs() {
  const double start = NowUs();
  Sleep(static_cast<DWORD>(kPollMs));
  return (NowUs() - start) / 1000;
}

void MeasureOne(const Effort& effort, const SdkLibrary& sdk, std::int32_t id, Report& report) {
  Board& board = TheBoard();
  Forget();
  board.events = static_cast<std::uint32_t>(effort(400, 120));
  board.eventPaceMs = 11;
  board.eventJitterMs = 10;
  sdk.operatePic(id, kSendEvents);
  Samples sleeps;
  WaitUntil("the events", [&] {
    sleeps.push_back(SleepMs());
    return arrivals.count.load(std::memory_order_acquire) == board.events.load();
  });
  Row row;
  row.id = "event";
  row.what = "event from an editor to the callback: all but the slowest 1 %";
  row.unit = "ms";
  row.value = {Quantile(arrivals.latencies, 0.99), Quantile(arrivals.latencies, 0.25),
               Quantile(arrivals.latencies, 0.75)};
  row.kind = Bound::kAtMost;
  row.bound = kPollMs * 1.1;
  row.subject = Quantile(arrivals.latencies, 0.99);
  row.reference = Median(sleeps);
  row.partsUnit = "ms";
  row.note = "over a sleep of one poll interval; the middle half is of all events";
  report.rows.push_back(row);
  Samples microseconds;
  for (const double latency : arrivals.latencies) {
    microseconds.push_back(latency * 1000);
  }
  report.curves.push_back(MakeCurve("Event from an editor to the callback", "event", microseconds));
}

void MeasureMany(const Effort& effort, const SdkLibrary& sdk, std::vector<std::int32_t>& ids, Report& report) {
  Board& board = TheBoard();
  const std::uint32_t editors = static_cast<std::uint32_t>(effort(64, 16));
  while (ids.size() < editors) {
    std::int32_t id = 0;
    OpenAndWait(sdk, ids.size(), &id);
    sdk.setBrowserCallback(id, OnEvent, &arrivals);
    ids.push_back(id);
    WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
  }
  Sleep(500);
  Forget();
  const auto seconds = static_cast<std::uint32_t>(effort(10, 3));
  board.events = kRate * seconds;
  board.eventPaceMs = 1000.0 / kRate;
  board.eventJitterMs = 0;
  const double cpuBefore = CpuMs();
  const double start = NowUs();
  for (const std::int32_t id : ids) {
    sdk.operatePic(id, kSendEvents);
  }
  const std::uint32_t wanted = board.events.load() * editors;
  // Lost is what has not come long after all was sent.
  double quietSince = NowUs();
  std::uint32_t last = 0;
  while (arrivals.count.load(std::memory_order_acquire) < wanted && NowUs() - quietSince < 15e6) {
    Sleep(20);
    if (const std::uint32_t count = arrivals.count.load(std::memory_order_acquire); count != last) {
      last = count;
      quietSince = NowUs();
    }
  }
  const double tookMs = (NowUs() - start) / 1000;
  Row row;
  row.id = "events_lost";
  row.what = std::to_string(editors) + " editors at 100 events a second each: events lost";
  row.unit = "events";
  const double lost = static_cast<double>(wanted) - arrivals.count.load();
  row.value = {lost, lost, lost};
  row.kind = Bound::kAtMost;
  row.bound = 0;
  row.note = "of " + std::to_string(wanted);
  report.rows.push_back(row);
  row = {};
  row.id = "events_cpu";
  row.what = "the same: processor time of the host";
  row.unit = "%";
  const double share = (CpuMs() - cpuBefore) / tookMs * 100;
  row.value = {share, share, share};
  report.rows.push_back(row);
  row = {};
  row.id = "events_many";
  row.what = "the same: event to callback, the median";
  row.unit = "ms";
  row.value = SpreadOf(arrivals.latencies);
  row.note = "a link gives one text in each pass, so a rate of 100 a second is a little more than it can take";
  report.rows.push_back(row);
  Samples microseconds;
  for (const double latency : arrivals.latencies) {
    microseconds.push_back(latency * 1000);
  }
  report.curves.push_back(
      MakeCurve("Event from an editor to the callback", "event, many editors at once", microseconds));
}

} // namespace

void MeasureEvents(const Effort& effort, Report& report) {
  BecomeHost();
  SetLogLevel(2);
  const SdkLibrary sdk = LoadSdk(ProgramFolder());
  arrivals.release = sdk.releaseCallbackData;
  arrivals.latencies.reserve(kMostEvents);
  std::vector<std::int32_t> ids(1);
  OpenAndWait(sdk, 0, &ids[0]);
  sdk.setBrowserCallback(ids[0], OnEvent, &arrivals);
  WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
  Sleep(500);
  MeasureOne(effort, sdk, ids[0], report);
  MeasureMany(effort, sdk, ids, report);
}

} // namespace bench
