// What an engine does while nobody asks anything of it: how often its threads wake, as Linux under Wine counts it.

#include "bench/child.h"
#include "bench/sdk_host.h"
#include "bench/sections.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <thread>

namespace bench {
namespace {

constexpr DWORD kPollMs = 10;
constexpr DWORD kCrashWatchMs = 2000;
constexpr DWORD kKillWatchMs = 5000;

using Wakes = std::map<std::string, double>; // how often each thread has waited, by its number

std::string ReadAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text;
  for (char block[4096]; in.read(block, sizeof block) || in.gcount() > 0;) {
    text.append(block, static_cast<std::size_t>(in.gcount()));
  }
  return text;
}

/// This process's folder under /proc: the one whose command line holds this one's last argument. Empty where there is
/// no such thing.
std::filesystem::path OwnProcFolder() {
  const std::wstring command = GetCommandLineW();
  const std::size_t out = command.find(L"--out \"");
  if (out == std::wstring::npos) {
    return {};
  }
  const std::wstring wide = command.substr(out + 7, command.find(L'"', out + 7) - out - 7);
  const std::string argument(std::filesystem::path(wide).string());
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("Z:\\proc", ignored)) {
    const std::string number = entry.path().filename().string();
    if (number.find_first_not_of("0123456789") == std::string::npos) {
      const std::string line = ReadAll(entry.path() / "cmdline");
      if (line.find("vexelbench.exe") != std::string::npos && line.find(argument) != std::string::npos &&
          line.find("--section") != std::string::npos) {
        return entry.path();
      }
    }
  }
  return {};
}

Wakes ReadWakes(const std::filesystem::path& process) {
  Wakes wakes;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(process / "task", ignored)) {
    const std::string status = ReadAll(entry.path() / "status");
    const std::string key = "\nvoluntary_ctxt_switches:";
    if (const std::size_t at = status.find(key); at != std::string::npos) {
      wakes[entry.path().filename().string()] = std::atof(status.c_str() + at + key.size());
    }
  }
  return wakes;
}

/// The wakes between two looks of the threads that `wakes` knows and `without` does not.
Samples Between(const Wakes& start, const Wakes& end, const Wakes& without) {
  Samples counts;
  for (const auto& [thread, count] : end) {
    const auto found = start.find(thread);
    if (found != start.end() && !without.contains(thread)) {
      counts.push_back(count - found->second);
    }
  }
  std::sort(counts.rbegin(), counts.rend());
  return counts;
}

} // namespace

void MeasureIdle(const Effort& effort, Report& report) {
  const std::filesystem::path process = OwnProcFolder();
  const Wakes own = ReadWakes(process);
  if (own.empty()) {
    std::cerr << "idle: left out: wake-ups are counted under Wine alone\n";
    return;
  }
  // The waits that are prescribed, with nothing around them.
  const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::thread([] {
    for (;;) {
      Sleep(kPollMs);
    }
  }).detach();
  for (const DWORD pause : {kCrashWatchMs, kKillWatchMs}) {
    std::thread([never, pause] {
      while (WaitForSingleObject(never, pause) != WAIT_OBJECT_0) {
      }
    }).detach();
  }
  Sleep(100);
  const Wakes bare = ReadWakes(process);
  BecomeHost();
  SetLogLevel(1);
  const SdkLibrary sdk = LoadSdk(ProgramFolder());
  sdk.init(nullptr);
  WaitUntil("the waiting editors", [] { return WaitingEditors() >= 2; });
  Sleep(1500);

  const auto seconds = static_cast<DWORD>(effort(30, 10));
  const Wakes start = ReadWakes(process);
  Sleep(seconds * 1000);
  const Wakes end = ReadWakes(process);
  // Most wakes first: the inbound thread, the crash watch, the kill list, and who only waits for work.
  const Samples engine = Between(start, end, bare);
  Wakes others = own;
  for (const auto& [thread, count] : end) {
    if (!bare.contains(thread)) {
      others[thread] = count;
    }
  }
  const Samples references = Between(start, end, others);
  if (engine.size() < 4 || references.size() != 3) {
    std::cerr << "idle: " << engine.size() << " threads of the engine, " << references.size() << " of the references\n";
    std::exit(1);
  }
  Row row;
  row.id = "idle_inbound";
  row.what = "wake-ups of the idle inbound thread over those of a bare 10 ms sleep";
  row.unit = "x";
  const double inbound = engine[0] / references[0];
  row.value = {inbound, inbound, inbound};
  row.kind = Bound::kAtMost;
  row.bound = 1.05;
  row.subject = engine[0] / seconds;
  row.reference = references[0] / seconds;
  row.partsUnit = "a second";
  report.rows.push_back(row);
  row = {};
  row.id = "idle_watches";
  row.what = "wake-ups of the two idle watch threads over those of bare waits of 2 s and 5 s";
  row.unit = "x";
  const double watches = (engine[1] + engine[2]) / (references[1] + references[2]);
  row.value = {watches, watches, watches};
  row.kind = Bound::kAtMost;
  row.bound = 1.3; // one wait more or less may end within the time
  row.subject = engine[1] + engine[2];
  row.reference = references[1] + references[2];
  row.partsUnit = "in " + std::to_string(seconds) + " s";
  report.rows.push_back(row);
  row = {};
  row.id = "idle_others";
  row.what = "wake-ups of the idle operator thread and of the pipe library's";
  row.unit = "wakes";
  double beyond = 0;
  for (std::size_t i = 3; i < engine.size(); ++i) {
    beyond += engine[i];
  }
  row.value = {beyond, beyond, beyond};
  row.kind = Bound::kAtMost;
  row.bound = 0;
  row.note = "in " + std::to_string(seconds) + " s, " + std::to_string(engine.size() - 3) + " threads";
  report.rows.push_back(row);
}

} // namespace bench
