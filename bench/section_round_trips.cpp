// The pipe library's exchanges against those of a raw pipe.

#include "bench/child.h"
#include "bench/clock.h"
#include "bench/pipe_library.h"
#include "bench/raw_pipe.h"
#include "bench/sections.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr wchar_t kPeer[] = L"vexelbench_peer.exe";
constexpr std::size_t kTextBytes = 200;
constexpr std::size_t kOneWayCount = 200;

std::string NameOf(const char* what) { return "vexelbench-" + std::to_string(GetCurrentProcessId()) + "-" + what; }

[[noreturn]] void Broken(const char* what) {
  std::fprintf(stderr, "%s: the exchange broke: error %lu\n", what, GetLastError());
  std::exit(1);
}

/// A library client and a raw client, each with its own peer.
class Pair {
public:
  Pair(const char* what, PipeMode mode, std::size_t bytes)
      : m_text(bytes, 'x'), m_mode(mode), m_name(NameOf(what)),
        m_libraryPeer(kPeer, L"library " + Wide(m_name + "-library")),
        m_rawPeer(kPeer, (mode == PipeMode::kMessage ? L"message " : L"byte ") + Wide(m_name + "-raw ") +
                             std::to_wstring(bytes)),
        m_connection(ConnectSoon(m_name + "-library")), m_pipe(OpenRawSoon(m_name + "-raw", mode)) {}
  ~Pair() {
    ThePipeLibrary().disConnect(m_connection);
    CloseHandle(m_pipe);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  double Library() {
    const double start = NowUs();
    if (ThePipeLibrary().comunicate(m_connection, m_text.c_str()) == nullptr) {
      Broken("library");
    }
    return NowUs() - start;
  }

  double Raw() {
    std::array<char, 64> reply;
    const double start = NowUs();
    if (!RawWrite(m_pipe, m_text.data(), static_cast<DWORD>(m_text.size())) ||
        RawRead(m_pipe, reply.data(), static_cast<DWORD>(reply.size())) == 0) {
      Broken("raw");
    }
    return NowUs() - start;
  }

private:
  std::string m_text;
  PipeMode m_mode;
  std::string m_name;
  Child m_libraryPeer;
  Child m_rawPeer;
  std::uint32_t m_connection;
  HANDLE m_pipe;
};

Row RatioRow(const char* id, const char* what, const Spread& ratio, double bound, double subject, double reference) {
  Row row;
  row.id = id;
  row.what = what;
  row.unit = "x";
  row.value = ratio;
  row.kind = Bound::kAtMost;
  row.bound = bound;
  row.subject = subject;
  row.reference = reference;
  row.partsUnit = "us";
  return row;
}

void MeasureSmall(const Effort& effort, Report& report) {
  Pair pair("small", PipeMode::kMessage, kTextBytes);
  const Paired paired = RunPaired(
      effort(300, 60), 50, [&] { return pair.Library(); }, [&] { return pair.Raw(); });
  Row row = RatioRow("round_trip", "pipe library, round trip 200 B / 20 B", paired.Ratio(), 1.10,
                     Median(paired.subject), Median(paired.reference));
  row.note = "over a raw pipe in message mode";
  report.rows.push_back(row);
  row = RatioRow("round_trip_p99", "the same, 99th percentile", paired.RatioOfP99(10), 1.5,
                 Quantile(paired.subject, 0.99), Quantile(paired.reference, 0.99));
  report.rows.push_back(row);
  report.curves.push_back(MakeCurve("Round trip 200 B / 20 B", "pipe library", paired.subject));
  report.curves.push_back(MakeCurve("Round trip 200 B / 20 B", "raw pipe", paired.reference));
}

void MeasureLarge(const Effort& effort, Report& report, const char* id, const char* what, std::size_t bytes,
                  std::size_t batches, std::size_t perBatch) {
  Pair pair(id, PipeMode::kByte, bytes);
  const Paired paired = RunPaired(
      effort(batches, batches / 4), perBatch, [&] { return pair.Library(); }, [&] { return pair.Raw(); });
  Row row = RatioRow(id, what, paired.Ratio(), 1.15, Median(paired.subject), Median(paired.reference));
  row.note = "over a raw pipe in byte mode";
  report.rows.push_back(row);
}

/// The rate of texts that a server counts, over that of a raw pipe whose client waits for nothing.
void MeasureOneWay(const Effort& effort, Report& report) {
  const std::string text(kTextBytes, 'x');
  const std::string name = NameOf("one-way");
  const Child libraryPeer(kPeer, L"library " + Wide(name + "-library"));
  const Child rawPeer(kPeer, L"count " + Wide(name + "-raw ") + std::to_wstring(kOneWayCount));
  const std::uint32_t connection = ConnectSoon(name + "-library");
  const HANDLE pipe = OpenRawSoon(name + "-raw", PipeMode::kMessage);
  const Paired paired = RunPaired(
      effort(60, 15), 1,
      [&] {
        const double start = NowUs();
        for (std::size_t i = 0; i < kOneWayCount; ++i) {
          if (ThePipeLibrary().comunicate(connection, text.c_str()) == nullptr) {
            Broken("one way, library");
          }
        }
        return (NowUs() - start) / kOneWayCount;
      },
      [&] {
        std::array<char, 64> reply;
        const double start = NowUs();
        for (std::size_t i = 0; i < kOneWayCount; ++i) {
          RawWrite(pipe, text.data(), static_cast<DWORD>(text.size()));
        }
        if (RawRead(pipe, reply.data(), static_cast<DWORD>(reply.size())) == 0) {
          Broken("one way, raw");
        }
        return (NowUs() - start) / kOneWayCount;
      });
  const Spread slower = paired.Ratio();
  Row row = RatioRow("one_way", "pipe library, one way 200 B, rate, against unanswered raw writes",
                     {1 / slower.median, 1 / slower.high, 1 / slower.low}, 0.9, Median(paired.subject),
                     Median(paired.reference));
  row.kind = Bound::kAtLeast;
  // A reply to each text is the contract, so a round trip each is the least that this can cost.
  row.note = "every text of the library is answered; the raw writes are not";
  row.accepted = 0.2;
  report.rows.push_back(row);
  ThePipeLibrary().disConnect(connection);
  CloseHandle(pipe);
}

} // namespace

void MeasureRoundTrips(const Effort& effort, Report& report) {
  MeasureSmall(effort, report);
  MeasureOneWay(effort, report);
  // The longest first: how a server of the system holds its memory for the messages settles with that.
  MeasureLarge(effort, report, "round_trip_1m", "pipe library, round trip 1 MiB", std::size_t{1024} * 1024, 40, 4);
  MeasureLarge(effort, report, "round_trip_64k", "pipe library, round trip 64 KiB", std::size_t{64} * 1024, 60, 20);
}

} // namespace bench
