// The gate on the host's thread, and what grows with windows and processes. Inside: the engine without its threads.

#include "bench/clock.h"
#include "bench/engine_probe.h"
#include "bench/sdk_library.h"
#include "bench/sections.h"
#include "foundation/logger.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t kPushes = 64; // timed together
constexpr std::int32_t kWindows = 10000;
constexpr std::uint32_t kLinks = 64;
constexpr std::uint32_t kFirstPid = 700001;
constexpr platform::Window kOneWindow = 0x1000;

SDK_OperatorData MoveRecord(std::int32_t id) {
  SDK_OperatorData record;
  record.m_op = SDK_SETPOS;
  record.m_id = id;
  record.m_rect = {10, 20, 640, 480};
  return record;
}

SDK_OperatorData OpenRecord(std::int32_t id) {
  SDK_OperatorData record;
  record.m_op = SDK_OPEN;
  record.m_id = id;
  record.m_path = L"C:\\Users\\someone\\Pictures\\2024\\a picture of ordinary length.png";
  record.m_param = L"eyJwaWNfcGFyYW0iOnsiYXBwdHlwZSI6Mn19";
  return record;
}

/// A mutex and a queue with nothing around them.
class BareQueue {
public:
  void Push(const SDK_OperatorData& record) {
    const std::lock_guard lock(m_lock);
    m_queue.push_back(record);
  }
  std::deque<SDK_OperatorData>& Queue() { return m_queue; }

private:
  std::mutex m_lock;
  std::deque<SDK_OperatorData> m_queue;
};

void CutTo(std::deque<SDK_OperatorData>& queue, std::size_t size) {
  while (queue.size() > size) {
    queue.pop_back();
  }
}

class Gate {
public:
  Gate() : m_engine(VexelSDKThread::GetInstance()), m_probe(*m_engine) {
    m_probe.StopThreads();
    if (m_engine->AllocateEditorId(kOneWindow) != 1 || !m_probe.Bind(1, kFirstPid)) {
      std::exit(1);
    }
  }

  EngineProbe& Probe() { return m_probe; }
  VexelSDKThread& Engine() { return *m_engine; }

  /// Nanoseconds for each call.
  double Call(const SDK_OperatorData& record, std::size_t queued) {
    const double start = NowUs();
    for (std::size_t i = 0; i < kPushes; ++i) {
      m_engine->DoOperator(record);
    }
    const double took = NowUs() - start;
    CutTo(m_probe.Queue(), queued);
    return took * 1000 / kPushes;
  }

  /// The same, each call for an id that is `step` further on, from 1 to `ids`.
  double CallEach(SDK_OperatorData& record, std::int32_t step, std::int32_t ids) {
    const double start = NowUs();
    for (std::size_t i = 0; i < kPushes; ++i) {
      record.m_id = 1 + (record.m_id - 1 + step) % ids;
      m_engine->DoOperator(record);
    }
    const double took = NowUs() - start;
    CutTo(m_probe.Queue(), 0);
    return took * 1000 / kPushes;
  }

private:
  std::shared_ptr<VexelSDKThread> m_engine;
  EngineProbe m_probe;
};

double PushBare(BareQueue& bare, const SDK_OperatorData& record, std::size_t queued) {
  const double start = NowUs();
  for (std::size_t i = 0; i < kPushes; ++i) {
    bare.Push(record);
  }
  const double took = NowUs() - start;
  CutTo(bare.Queue(), queued);
  return took * 1000 / kPushes;
}

void MeasureCalls(const Effort& effort, Gate& gate, Report& report) {
  struct Case {
    const char* id;
    const char* what;
    SDK_OperatorData record;
    std::size_t queued;
  };
  const std::vector<Case> cases{
      {"gate_move", "DoOperator, a move, queue of 0", MoveRecord(1), 0},
      {"gate_move_10000", "DoOperator, a move, queue of 10,000", MoveRecord(1), 10000},
      {"gate_open", "DoOperator, an open with its texts, queue of 0", OpenRecord(1), 0},
      {"gate_open_10000", "DoOperator, an open with its texts, queue of 10,000", OpenRecord(1), 10000},
  };
  for (const Case& each : cases) {
    BareQueue bare;
    gate.Probe().Queue().assign(each.queued, each.record);
    bare.Queue().assign(each.queued, each.record);
    const Paired paired = RunPaired(
        effort(150, 40), 20, [&] { return gate.Call(each.record, each.queued); },
        [&] { return PushBare(bare, each.record, each.queued); });
    gate.Probe().Queue().clear();
    Row row;
    row.id = each.id;
    row.what = each.what;
    row.unit = "x";
    row.value = paired.Ratio();
    row.kind = Bound::kAtMost;
    row.bound = 2;
    row.subject = Median(paired.subject);
    row.reference = Median(paired.reference);
    row.partsUnit = "ns";
    row.note = "over a bare mutex and push of the same record";
    report.rows.push_back(row);
  }
}

/// Bytes in use in all heaps of this process.
double HeapBytes() {
  HANDLE heaps[64];
  const DWORD count = GetProcessHeaps(64, heaps);
  double bytes = 0;
  for (DWORD i = 0; i < count && i < 64; ++i) {
    PROCESS_HEAP_ENTRY entry{};
    HeapLock(heaps[i]);
    while (HeapWalk(heaps[i], &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) {
        bytes += entry.cbData + entry.cbOverhead;
      }
    }
    HeapUnlock(heaps[i]);
  }
  return bytes;
}

void Callback(char*, void*) {}

Row Reported(const char* id, const char* what, const char* unit, double value) {
  Row row;
  row.id = id;
  row.what = what;
  row.unit = unit;
  row.value = {value, value, value};
  return row;
}

void MeasureGrowth(const Effort& effort, Gate& gate, Report& report) {
  const double before = HeapBytes();
  EngineProbe::Tables large;
  gate.Probe().Swap(large);
  for (std::int32_t i = 0; i < kWindows; ++i) {
    const std::int32_t id = gate.Engine().AllocateEditorId(0x10000 + static_cast<std::uintptr_t>(i) * 4);
    gate.Probe().Bind(id, kFirstPid + static_cast<std::uint32_t>(i) % kLinks);
    gate.Engine().SetCallback(id, Callback, nullptr);
  }
  gate.Call(MoveRecord(kWindows), 0); // brings about what the gate keeps of its own
  const double perWindow = (HeapBytes() - before) / kWindows;
  gate.Probe().Swap(large); // aside: the small tables are in place

  struct Case {
    const char* id;
    const char* what;
    std::int32_t step;
  };
  const Case cases[] = {
      {"growth_gate", "DoOperator for one window, with 10,000 windows and 64 processes over 1 and 1", 0},
      {"growth_gate_each", "the same, each call for another of the 10,000 windows", 7919},
  };
  for (const Case& each : cases) {
    SDK_OperatorData small = MoveRecord(1);
    SDK_OperatorData big = MoveRecord(kWindows / 3);
    Paired paired;
    for (std::size_t batch = 0; batch < effort(200, 50); ++batch) {
      Samples references;
      Samples subjects;
      for (int i = 0; i < 10; ++i) {
        references.push_back(gate.CallEach(small, each.step, 1));
      }
      gate.Probe().Swap(large);
      for (int i = 0; i < 10; ++i) {
        subjects.push_back(gate.CallEach(big, each.step, kWindows));
      }
      gate.Probe().Swap(large);
      paired.Add(std::move(subjects), std::move(references));
    }
    Row row;
    row.id = each.id;
    row.what = each.what;
    row.unit = "x";
    row.value = paired.Ratio();
    row.kind = Bound::kAtMost;
    row.bound = 1.2;
    row.subject = Median(paired.subject);
    row.reference = Median(paired.reference);
    row.partsUnit = "ns";
    report.rows.push_back(row);
  }
  report.rows.push_back(Reported("growth_window", "memory for each window", "bytes", perWindow));
}

/// One look at every link, in microseconds.
double PassOf(Gate& gate) {
  const double start = NowUs();
  for (int i = 0; i < 20; ++i) {
    gate.Probe().Poll();
  }
  return (NowUs() - start) / 20;
}

void MeasurePasses(const Effort& effort, Gate& gate, Report& report) {
  const PipeClientBinding client;
  std::vector<std::uint32_t> connections;
  double perLinkAt8 = 0;
  gate.Probe().AddLink(kFirstPid); // what the first one alone brings with it, such as the library, is not counted
  const double before = HeapBytes();
  for (std::uint32_t links = 1; links <= kLinks; ++links) {
    const std::uint32_t pid = kFirstPid + links - 1;
    if (links > 1 && !gate.Probe().AddLink(pid)) {
      std::fprintf(stderr, "a link does not serve\n");
      std::exit(1);
    }
    if (links == 8 || links == kLinks) {
      Samples passes;
      for (std::size_t i = 0; i < effort(200, 50); ++i) {
        passes.push_back(PassOf(gate));
      }
      Samples perLink;
      for (const double pass : passes) {
        perLink.push_back(pass * 1000 / links);
      }
      if (links == 8) {
        perLinkAt8 = Median(perLink);
      } else {
        report.rows.push_back(Reported("growth_process", "memory for each process's link", "bytes",
                                       (HeapBytes() - before) / (kLinks - 1)));
        Row row = Reported("pass_link", "inbound pass with nothing to do, for each of 64 links", "ns", 0);
        row.value = SpreadOf(perLink);
        report.rows.push_back(row);
        row = Reported("pass_linear", "the same over each of 8 links (1 is linear)", "x", Median(perLink) / perLinkAt8);
        row.subject = Median(perLink);
        row.reference = perLinkAt8;
        row.partsUnit = "ns";
        report.rows.push_back(row);
      }
    }
  }
  for (std::uint32_t link = 0; link < kLinks; ++link) {
    connections.push_back(client.CltConnectServer(("vexel_browser_" + std::to_string(kFirstPid + link)).c_str()));
    if (connections.back() == 0) {
      std::fprintf(stderr, "a link takes no client\n");
      std::exit(1);
    }
  }
  Samples perText;
  for (std::size_t round = 0; round < effort(60, 15); ++round) {
    for (const std::uint32_t connection : connections) {
      const std::string text =
          R"({"number":)" + std::to_string(round) + R"(,"process_id":4711,"status":true,"type":"custom_message"})";
      client.CltComunicate(connection, text.c_str());
    }
    const double start = NowUs();
    gate.Probe().Poll();
    perText.push_back((NowUs() - start) / kLinks);
  }
  Row row = Reported("pass_text", "inbound pass with a text from each of 64 links, for each", "us", 0);
  row.value = SpreadOf(perText);
  report.rows.push_back(row);
  for (const std::uint32_t connection : connections) {
    client.CltDisConnect(connection);
  }
  gate.Probe().DropLinks();
}

} // namespace

void MeasureGate(const Effort& effort, Report& report) {
  vx::LoggerOverrides overrides;
  overrides.log_path_override = ProgramFolder() + L"section-gate.log";
  vx::ResetLogger(overrides);
  if (!vx::EnsureLoggerReady()) {
    std::fprintf(stderr, "the log does not start\n");
    std::exit(1);
  }
  vx::SetMinLogLevel(LOG_WARNING);
  Gate gate;
  MeasureCalls(effort, gate, report);
  MeasureGrowth(effort, gate, report);
  MeasurePasses(effort, gate, report);
}

} // namespace bench
