// A log statement that is suppressed, and one that is written. Inside: through the log's own library.

#include "bench/clock.h"
#include "bench/raw_log.h"
#include "bench/sdk_library.h"
#include "bench/sections.h"
#include "foundation/logger.h"

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr int kStatements = 100000; // so few that most loops run without an interruption
constexpr char kText[] = R"(data={"id":1,"operator":3,"process_id":4711,"status":true,"type":"operator"})";

void Barrier(int& value) { asm volatile("" : "+r"(value) : : "memory"); }

// The loop around nothing.
double EmptyLoop() {
  const double start = NowUs();
  for (int i = 0; i < kStatements; ++i) {
    Barrier(i);
  }
  return (NowUs() - start) * 1000 / kStatements;
}

double SuppressedLoop() {
  const double start = NowUs();
  for (int i = 0; i < kStatements; ++i) {
    Barrier(i);
    SDKLOG(LOG_INFO) << "number=" << kStatements; // a constant: the counter stays in its register
  }
  return (NowUs() - start) * 1000 / kStatements;
}

double WrittenLine() {
  const double start = NowUs();
  SDKLOG(LOG_INFO) << kText;
  return NowUs() - start;
}

} // namespace

void MeasureLog(const Effort& effort, Report& report) {
  vx::LoggerOverrides overrides;
  overrides.log_path_override = ProgramFolder() + L"section-log.log";
  DeleteFileW(overrides.log_path_override.c_str());
  vx::ResetLogger(overrides);
  if (!vx::EnsureLoggerReady()) {
    std::fprintf(stderr, "the log does not start\n");
    std::exit(1);
  }

  vx::SetMinLogLevel(LOG_WARNING);
  const Paired suppressed = RunPaired(effort(1000, 300), 1, SuppressedLoop, EmptyLoop);
  Samples differences;
  for (std::size_t i = 0; i < suppressed.subject.size(); ++i) {
    differences.push_back(suppressed.subject[i] - suppressed.reference[i]);
  }
  Row row;
  row.id = "log_suppressed";
  row.what = "a suppressed log statement";
  row.unit = "ns";
  row.value = SpreadOf(differences);
  row.kind = Bound::kAtMost;
  row.bound = 1;
  row.subject = Median(suppressed.subject);
  row.reference = Median(suppressed.reference);
  row.partsUnit = "ns";
  row.note = "less the loop around it";
  report.rows.push_back(row);

  vx::SetMinLogLevel(LOG_INFO);
  RawLog raw(L"section-log-raw.log");
  const Paired written = RunPaired(effort(200, 40), 50, WrittenLine, [&] {
    const double start = NowUs();
    raw.Line(L"bench::WrittenLine", kText);
    return NowUs() - start;
  });
  row = {};
  row.id = "log_line";
  row.what = "a written log line";
  row.unit = "x";
  row.value = written.Ratio();
  row.kind = Bound::kAtMost;
  row.bound = 1.15;
  row.subject = Median(written.subject);
  row.reference = Median(written.reference);
  row.partsUnit = "us";
  row.note = "over formatting by a stream, a shared mutex, a seek and a write";
  report.rows.push_back(row);
  report.curves.push_back(MakeCurve("A log line", "the log", written.subject));
  report.curves.push_back(MakeCurve("A log line", "stream, mutex, seek, write", written.reference));
}

} // namespace bench
