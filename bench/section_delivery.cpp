// The road from a host's call to an editor, and the pace on it.

#include "bench/child.h"
#include "bench/clock.h"
#include "bench/raw_log.h"
#include "bench/raw_pipe.h"
#include "bench/sdk_host.h"
#include "bench/sections.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace bench {
namespace {

constexpr DWORD kWarning = 2;
constexpr DWORD kInfo = 1;

/// A thread that waits for an event and notes when it woke.
class Sleeper {
public:
  Sleeper() : m_event(CreateEventW(nullptr, FALSE, FALSE, nullptr)), m_thread([this] { Run(); }) {}
  ~Sleeper() {
    m_stop = true;
    SetEvent(m_event);
    m_thread.join();
    CloseHandle(m_event);
  }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;

  double Wake() {
    m_wokeAt = 0;
    const double start = NowUs();
    SetEvent(m_event);
    WaitUntil("a wake", [this] { return m_wokeAt.load() != 0; });
    return m_wokeAt.load() - start;
  }

private:
  void Run() {
    while (WaitForSingleObject(m_event, INFINITE) == WAIT_OBJECT_0 && !m_stop) {
      m_wokeAt = NowUs();
    }
  }

  std::atomic<bool> m_stop{false};
  std::atomic<double> m_wokeAt{0};
  HANDLE m_event;
  std::thread m_thread;
};

/// One message, built and dumped as the prescribed library does.
double BuildMessage() {
  const double start = NowUs();
  nlohmann::json message;
  message["process_id"] = 4711U;
  message["id"] = 1;
  message["status"] = true;
  message["type"] = "operator";
  message["operator"] = 7;
  const std::string text = message.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
  const double took = NowUs() - start;
  if (text.empty()) {
    std::exit(1);
  }
  return took;
}

/// An SDK of a folder with one connected editor and both waiting ones.
struct Host {
  Host(const std::wstring& folder, DWORD level) {
    SetLogLevel(level);
    sdk = LoadSdk(folder);
    const std::uint32_t waiting = WaitingEditors();
    editor = &OpenAndWait(sdk, 0, &id);
    WaitUntil("the waiting editors", [&] { return WaitingEditors() >= waiting + 2; });
  }

  /// From the call to the editor, in microseconds.
  double Deliver() {
    return TimeOfDelivery(*editor, [this] { sdk.operatePic(id, 7); });
  }

  SdkLibrary sdk;
  std::int32_t id = 0;
  EditorPlace* editor = nullptr;
};

void MeasurePace(const Effort& effort, Host& host, Report& report) {
  const auto records = static_cast<std::uint32_t>(effort(400, 100));
  const std::uint32_t first = host.editor->operators.load();
  for (std::uint32_t i = 0; i < records; ++i) {
    host.sdk.operatePic(host.id, 7);
  }
  WaitUntil("all records", [&] { return host.editor->operators.load() == first + records; });
  Samples steps;
  for (std::uint32_t i = 1; i < records; ++i) {
    steps.push_back((host.editor->operatorAt[(first + i) % kKeptTimes].load() -
                     host.editor->operatorAt[(first + i - 1) % kKeptTimes].load()) /
                    1000);
  }
  Row row;
  row.id = "pace";
  row.what = "record pace under a full queue, between two starts";
  row.unit = "ms";
  row.value = SpreadOf(steps);
  row.kind = Bound::kBetween;
  row.bound = 10.0;
  row.upper = 10.6;
  row.note = "the upper bound is for an idle machine";
  report.rows.push_back(row);
}

} // namespace

void MeasureDelivery(const Effort& effort, Report& report) {
  BecomeHost();
  Host quiet(ProgramFolder(), kWarning);
  Host logging(ProgramFolder() + L"second\\", kInfo);
  const std::string name = "vexelbench-" + std::to_string(GetCurrentProcessId()) + "-delivery";
  const Child peer(L"vexelbench_peer.exe", L"message " + Wide(name) + L" 4096");
  const HANDLE pipe = OpenRawSoon(name, PipeMode::kMessage);
  const std::string text(200, 'x');
  RawLog rawLog(L"section-delivery-raw.log");
  Sleeper sleeper;
  Sleep(500); // all that has started comes to rest

  Paired atWarning; // over one and a half times half a round trip, a wake and a message
  Paired atInfo;    // over the delivery at WARNING and a raw log line
  Samples roundTrips;
  Samples wakes;
  Samples builds;
  Samples lines;
  for (std::size_t batch = 0; batch < effort(60, 12); ++batch) {
    Samples quietly;
    Samples logged;
    Samples references;
    Samples withLines;
    for (int i = 0; i < 5; ++i) {
      // Everything comes out of a sleep, as a host's call does, and the two engines have waited out their pace.
      Sleep(4);
      const double delivery = quiet.Deliver();
      Sleep(4);
      const double deliveryLogged = logging.Deliver();
      Sleep(4);
      char reply[64];
      double start = NowUs();
      if (!RawWrite(pipe, text.data(), static_cast<DWORD>(text.size())) || RawRead(pipe, reply, sizeof reply) == 0) {
        std::fprintf(stderr, "the raw exchange broke\n");
        std::exit(1);
      }
      const double roundTrip = NowUs() - start;
      Sleep(4);
      const double wake = sleeper.Wake();
      Sleep(4);
      const double build = BuildMessage();
      Sleep(4);
      start = NowUs();
      rawLog.Line(L"VexelSDKThread::DoOperator", "m_op(SDK_Operator)=16, m_id=1, m_pid=0");
      const double line = NowUs() - start;
      quietly.push_back(delivery);
      logged.push_back(deliveryLogged);
      references.push_back(roundTrip / 2 + wake + build);
      withLines.push_back(delivery + line);
      roundTrips.push_back(roundTrip);
      wakes.push_back(wake);
      builds.push_back(build);
      lines.push_back(line);
    }
    atWarning.Add(std::move(quietly), std::move(references));
    atInfo.Add(std::move(logged), std::move(withLines));
  }
  CloseHandle(pipe);

  // The bound is 1.5 halves of a round trip and one each of the other two: written as a ratio over the plain sum, it
  // depends on the parts.
  const double bound = (0.75 * Median(roundTrips) + Median(wakes) + Median(builds)) /
                       (0.5 * Median(roundTrips) + Median(wakes) + Median(builds));
  Row row;
  row.id = "delivery";
  row.what = "host call to editor, log at WARNING, over half a raw round trip, a wake and a message build";
  row.unit = "x";
  row.value = atWarning.Ratio();
  row.kind = Bound::kAtMost;
  row.bound = bound;
  row.subject = Median(atWarning.subject);
  row.reference = Median(atWarning.reference);
  row.partsUnit = "us";
  char note[160];
  std::snprintf(note, sizeof note, "raw round trip %.1f us, wake %.1f us, message build %.1f us, each out of a sleep",
                Median(roundTrips), Median(wakes), Median(builds));
  row.note = note;
  report.rows.push_back(row);
  row = {};
  row.id = "delivery_info";
  row.what = "the same with the log at INFO, over WARNING and a raw log line";
  row.unit = "x";
  row.value = atInfo.Ratio();
  row.kind = Bound::kAtMost;
  row.bound = 1.10;
  row.subject = Median(atInfo.subject);
  row.reference = Median(atInfo.reference);
  row.partsUnit = "us";
  std::snprintf(note, sizeof note, "one line is on the road; a raw line takes %.1f us out of a sleep", Median(lines));
  row.note = note;
  report.rows.push_back(row);
  report.curves.push_back(MakeCurve("Host call to editor", "log at WARNING", atWarning.subject));
  report.curves.push_back(MakeCurve("Host call to editor", "log at INFO", atInfo.subject));
  report.curves.push_back(MakeCurve("Host call to editor", "raw round trip", roundTrips));
  report.curves.push_back(MakeCurve("Host call to editor", "event wake", wakes));
  MeasurePace(effort, quiet, report);
}

} // namespace bench
