// Coming and going: connecting, a peer that dies, a peer that sends and dies.

#include "bench/board.h"
#include "bench/child.h"
#include "bench/clock.h"
#include "bench/pipe_library.h"
#include "bench/raw_pipe.h"
#include "bench/sections.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {
namespace {

constexpr wchar_t kPeer[] = L"vexelbench_peer.exe";
constexpr DWORD kEvents = 100;

std::string NameOf(const std::string& what) {
  static int last = 0;
  return "vexelbench-" + std::to_string(GetCurrentProcessId()) + "-" + what + std::to_string(++last);
}

const std::string& Text() {
  static const std::string text(200, 'x');
  return text;
}

[[noreturn]] void Broken(const char* what) {
  std::fprintf(stderr, "%s: error %lu\n", what, GetLastError());
  std::exit(1);
}

void MeasureConnecting(const Effort& effort, Report& report) {
  const std::string library = NameOf("connect");
  const std::string raw = NameOf("connect");
  const Child libraryPeer(kPeer, L"library " + Wide(library));
  const Child rawPeer(kPeer, L"message " + Wide(raw) + L" 4096");
  ThePipeLibrary().disConnect(ConnectSoon(library));
  CloseHandle(OpenRawSoon(raw, PipeMode::kMessage));
  const Paired paired = RunPaired(
      effort(150, 30), 5,
      [&] {
        Sleep(2); // the server listens again
        const double start = NowUs();
        const std::uint32_t connection = ThePipeLibrary().connectServer(library.c_str());
        if (connection == 0 || ThePipeLibrary().comunicate(connection, Text().c_str()) == nullptr) {
          Broken("connecting, library");
        }
        const double took = NowUs() - start;
        ThePipeLibrary().disConnect(connection);
        return took;
      },
      [&] {
        Sleep(2);
        WaitNamedPipeA(("\\\\.\\pipe\\" + raw).c_str(), 10000); // its one instance listens again
        std::array<char, 64> reply;
        const double start = NowUs();
        const HANDLE pipe = OpenRaw(raw, PipeMode::kMessage);
        if (pipe == INVALID_HANDLE_VALUE || !RawWrite(pipe, Text().data(), static_cast<DWORD>(Text().size())) ||
            RawRead(pipe, reply.data(), static_cast<DWORD>(reply.size())) == 0) {
          Broken("connecting, raw");
        }
        const double took = NowUs() - start;
        CloseHandle(pipe);
        return took;
      });
  Row row;
  row.id = "connect";
  row.what = "connect to a listening server, and the first reply";
  row.unit = "x";
  row.value = paired.Ratio();
  row.kind = Bound::kAtMost;
  row.bound = 1.3;
  row.subject = Median(paired.subject);
  row.reference = Median(paired.reference);
  row.partsUnit = "us";
  row.note = "over a raw pipe in message mode";
  report.rows.push_back(row);
  report.curves.push_back(MakeCurve("Connect and first reply", "pipe library", paired.subject));
  report.curves.push_back(MakeCurve("Connect and first reply", "raw pipe", paired.reference));
}

void MeasureDeath(const Effort& effort, Report& report) {
  Samples library;
  Samples raw;
  for (std::size_t i = 0; i < effort(30, 8); ++i) {
    {
      const std::string name = NameOf("death");
      const Child peer(kPeer, L"library " + Wide(name));
      const std::uint32_t connection = ConnectSoon(name);
      if (ThePipeLibrary().comunicate(connection, "!") != nullptr) {
        Broken("a peer that should have died");
      }
      library.push_back((NowUs() - TheBoard().peerAt.load()) / 1000);
      ThePipeLibrary().disConnect(connection);
    }
    const std::string name = NameOf("death");
    const Child peer(kPeer, L"message " + Wide(name) + L" 4096");
    const HANDLE pipe = OpenRawSoon(name, PipeMode::kMessage);
    char reply[64];
    RawWrite(pipe, "!", 1);
    if (RawRead(pipe, reply, sizeof reply) != 0) {
      Broken("a raw peer that should have died");
    }
    raw.push_back((NowUs() - TheBoard().peerAt.load()) / 1000);
    CloseHandle(pipe);
  }
  Row row;
  row.id = "peer_death";
  row.what = "peer death seen while waiting";
  row.unit = "ms";
  row.value = SpreadOf(library);
  row.kind = Bound::kAtMost;
  row.bound = 1;
  row.subject = Median(library);
  row.reference = Median(raw);
  row.partsUnit = "ms";
  row.note = "over a raw pipe in message mode";
  report.rows.push_back(row);
}

class Counter final : public IMsgProcessor {
public:
  void* Destroy(unsigned int) override { return this; }
  std::intptr_t OnMessage(const char*) override { return m_count.fetch_add(1) + 1; }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor*) override {}
  std::uint32_t Count() const { return m_count.load(); }

private:
  std::atomic<std::uint32_t> m_count{0};
};

std::uint32_t CountFromLibrary() {
  const std::string name = NameOf("events");
  Counter counter;
  PipeServer* const server = ThePipeLibrary().createPipeSvr();
  server->SetMsgProcessor(&counter);
  if (server->Start(name.c_str()) == 0) {
    Broken("a server");
  }
  Child peer(kPeer, L"events " + Wide(name) + L" " + std::to_wstring(kEvents));
  peer.Wait(30000);
  ThePipeLibrary().releasePipeSvr(server);
  return counter.Count();
}

std::uint32_t CountFromRaw() {
  const std::string name = NameOf("events");
  const HANDLE pipe = MakeRawServer(name, PipeMode::kMessage, 1);
  const Child peer(kPeer, L"raw-events " + Wide(name) + L" " + std::to_wstring(kEvents));
  ConnectNamedPipe(pipe, nullptr);
  std::uint32_t count = 0;
  char buffer[4096];
  while (RawRead(pipe, buffer, sizeof buffer) != 0) {
    ++count;
  }
  CloseHandle(pipe);
  return count;
}

void MeasureLastEvents(const Effort& effort, Report& report) {
  Samples library;
  Samples raw;
  for (std::size_t i = 0; i < effort(20, 5); ++i) {
    library.push_back(CountFromLibrary());
    raw.push_back(CountFromRaw());
  }
  Row row;
  row.id = "last_events";
  row.what = "100 events, then exit at once: the fewest that arrived";
  row.unit = "events";
  row.value = {Quantile(library, 0), Quantile(library, 0), Quantile(library, 1)};
  row.kind = Bound::kAtLeast;
  row.bound = kEvents;
  row.subject = Quantile(library, 0);
  row.reference = Quantile(raw, 0);
  row.partsUnit = "events";
  report.rows.push_back(row);
}

} // namespace

void MeasurePeers(const Effort& effort, Report& report) {
  MeasureConnecting(effort, report);
  MeasureDeath(effort, report);
  MeasureLastEvents(effort, report);
}

} // namespace bench
