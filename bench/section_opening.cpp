// Starting: the library itself, the engine, and a picture with and without a waiting process.

#include "bench/child.h"
#include "bench/clock.h"
#include "bench/sdk_host.h"
#include "bench/sections.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

namespace bench {
namespace {

Row Reported(const char* id, const char* what, const char* unit, const Spread& value) {
  Row row;
  row.id = id;
  row.what = what;
  row.unit = unit;
  row.value = value;
  return row;
}

void MeasureLoading(const Effort& effort, Report& report) {
  const std::filesystem::path path = std::filesystem::path(ProgramFolder()) / VEXELSDK_LIBRARY_NAME;
  const auto size = static_cast<double>(std::filesystem::file_size(path));
  report.rows.push_back(Reported("dll_size", "size of vexelsdk.dll", "bytes", {size, size, size}));
  Samples loads;
  for (std::size_t i = 0; i < effort(40, 10); ++i) {
    const double start = NowUs();
    const HMODULE module = LoadLibraryW(path.c_str());
    loads.push_back((NowUs() - start) / 1000);
    FreeLibrary(module);
  }
  report.rows.push_back(Reported("dll_load", "loading vexelsdk.dll", "ms", SpreadOf(loads)));
}

/// What the start of four threads takes, each of which waits for its maker as the engine's do.
double StartFourThreads() {
  std::mutex made;
  std::vector<std::thread> threads;
  double took = 0;
  {
    const std::lock_guard lock(made);
    const double start = NowUs();
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&made] { const std::lock_guard wait(made); });
    }
    took = NowUs() - start;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return took / 1000;
}

void MeasureInit(const Effort& effort, const SdkLibrary& sdk, Report& report) {
  Samples inits;
  Samples bare;
  for (std::size_t i = 0; i < effort(20, 6); ++i) {
    BecomeHost();
    const double start = NowUs();
    sdk.init(nullptr);
    inits.push_back((NowUs() - start) / 1000);
    WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
    sdk.unInit();
    EndEditors();
    bare.push_back(StartFourThreads());
  }
  Row row = Reported("init", "VexelSDK_Init on the host's thread", "ms", SpreadOf(inits));
  row.kind = Bound::kAtMost;
  row.bound = 1;
  row.subject = Median(inits);
  row.reference = Median(bare);
  row.partsUnit = "ms";
  row.note = "over the start of four bare threads";
  report.rows.push_back(row);
}

/// Each in a process of its own: only an engine that nobody has called before finds no process waiting.
void MeasureOpenings(const Effort& effort, Report& report) {
  const std::filesystem::path out = std::filesystem::path(ProgramFolder()) / "section-opening.txt";
  Paired paired;
  for (std::size_t i = 0; i < effort(20, 5); ++i) {
    Child child(L"vexelbench.exe", L"--section opening --out \"" + out.wstring() + L"\"");
    const int code = child.Wait(120000);
    EndEditors();
    Report round;
    std::ifstream in(out, std::ios::binary);
    round.Read(in);
    if (code != 0 || round.rows.size() != 1) {
      std::fprintf(stderr, "a round of openings failed\n");
      std::exit(1);
    }
    paired.Add({round.rows[0].subject}, {round.rows[0].reference});
  }
  Row row =
      Reported("open", "open on a preloaded process over open with a cold start, to the editor", "x", paired.Ratio());
  row.kind = Bound::kAtMost;
  row.bound = 0.2;
  row.subject = Median(paired.subject);
  row.reference = Median(paired.reference);
  row.partsUnit = "us";
  report.rows.push_back(row);
  report.curves.push_back(MakeCurve("Open, to the editor", "preloaded", paired.subject));
  report.curves.push_back(MakeCurve("Open, to the editor", "cold start", paired.reference));
}

} // namespace

void MeasureStarting(const Effort& effort, Report& report) {
  SetLogLevel(1);
  MeasureLoading(effort, report);
  const SdkLibrary sdk = LoadSdk(ProgramFolder());
  MeasureInit(effort, sdk, report);
  MeasureOpenings(effort, report);
}

void MeasureOneOpening(const Effort&, Report& report) {
  SetLogLevel(1);
  const SdkLibrary sdk = LoadSdk(ProgramFolder());
  BecomeHost();
  sdk.operatePic(1, 0); // starts the log and the threads, and reaches nobody
  Sleep(100);
  std::int32_t id = 0;
  double start = NowUs();
  const double cold = OpenAndWait(sdk, 0, &id).openedAt.load() - start;
  WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
  Sleep(200); // the queue has come to rest
  start = NowUs();
  const double preloaded = OpenAndWait(sdk, 1, &id).openedAt.load() - start;
  Row row;
  row.id = "opening";
  row.subject = preloaded;
  row.reference = cold;
  report.rows.push_back(row);
  WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
}

} // namespace bench
