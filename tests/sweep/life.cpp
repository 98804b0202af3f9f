#include "tests/sweep/life.h"

#include "include/vexelsdk.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/process.h"
#include "tests/sim/world.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace life {

namespace {

constexpr int kEngineThreads = 4;
constexpr std::uint64_t kTeardownStepMs = 10'000; // a link that nobody serves is given up in a few wakes
constexpr std::uint32_t kDoubtMs = 1000;
constexpr std::int64_t kStepsPerSecond = 10'000'000;
constexpr std::uint64_t kHalfHour = 1800; // seconds

/// Where the value of a key begins, or npos.
std::size_t ValueAt(const std::string& text, const std::string& key) {
  const std::string quoted = "\"" + key + "\":";
  const std::size_t at = text.find(quoted);
  return at == std::string::npos ? at : at + quoted.size();
}

} // namespace

bool Rest(int seconds) {
  return sim::WaitFor([] { return sim::LiveThreads() >= kEngineThreads; }, seconds) && sim::WaitForRest(seconds);
}

bool RunFor(std::uint64_t milliseconds) {
  const std::uint64_t until = sim::NowMs() + milliseconds;
  while (sim::NowMs() < until) {
    sim::StepToNextWake(until - sim::NowMs());
    if (!Rest()) {
      return false;
    }
  }
  return true;
}

bool Jump(std::uint64_t milliseconds) {
  sim::LeapMs(milliseconds);
  return RunFor(1);
}

bool UnInit(int seconds) {
  // A kill thread that is busy waits for the same time, and gets its list done.
  for (int i = 0; i < 10'000 && sim::SomeoneWaitsFor(kDoubtMs); ++i) {
    if (!RunFor(100)) {
      return false;
    }
  }
  const int wakes = sim::CallCount("WakeByAddressSingle");
  const auto returned = std::make_shared<std::atomic<bool>>(false);
  std::thread host([returned] {
    sim::StandAside();
    VexelSDK_UnInit();
    *returned = true;
  });
  // The crash watch must not begin another pass before it has its signal, so time stands until all have theirs.
  sim::WaitFor([&] { return returned->load() || sim::CallCount("WakeByAddressSingle") > wakes; }, seconds);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!returned->load()) {
    if (std::chrono::steady_clock::now() >= limit) {
      host.detach(); // the caller ends the program without a clean-up
      return false;
    }
    // Behind the last thread's end nothing waits for time any more.
    if (sim::WaitForRest(1) && sim::LiveThreads() > 0) {
      sim::LeapMs(kTeardownStepMs);
      sim::StepToNextWake(0);
    }
  }
  host.join();
  return true;
}

std::optional<std::int64_t> NumberOf(const std::string& text, const std::string& key) {
  const std::size_t at = ValueAt(text, key);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), value);
  return error == std::errc() ? std::optional<std::int64_t>(value) : std::nullopt;
}

std::string TextOf(const std::string& text, const std::string& key) {
  const std::size_t at = ValueAt(text, key);
  if (at == std::string::npos || at >= text.size() || text[at] != '"') {
    return {};
  }
  return text.substr(at + 1, text.find('"', at + 1) - at - 1);
}

bool FlagOf(const std::string& text, const std::string& key) {
  const std::size_t at = ValueAt(text, key);
  return at != std::string::npos && text.compare(at, 4, "true") == 0;
}

std::int64_t CreatedAt(std::uint32_t pid) {
  std::int64_t created = 0;
  if (sim::IsRunning(pid)) {
    sim::EditProcess(pid, [&created](const sim::ProcessSpec& spec) { created = spec.created; });
  }
  return created;
}

/// An entry is judged when it comes, for a clock that is turned later changes what its time would be.
std::string KillWatch::LookAtList() {
  const auto entries = Probe().KillEntries();
  std::erase_if(m_listed, [&entries](const auto& each) { return !entries.contains(each.first); });
  std::string wrong;
  for (const auto& [pid, entry] : entries) {
    const auto known = m_entryTimes.find(pid);
    if (m_listed.contains(pid) && known->second == entry.m_createTime) {
      continue;
    }
    m_entryTimes[pid] = entry.m_createTime;
    m_listed[pid] = CreatedAt(pid);
    const auto created = static_cast<std::uint64_t>(m_listed[pid] / kStepsPerSecond);
    // Local, and of another epoch: both differ by whole half hours.
    if (m_listed[pid] != 0 && entry.m_createTime != 0 && entry.m_createTime % kHalfHour != created % kHalfHour) {
      wrong = "process " + std::to_string(pid) + " is listed with another creation time than its own";
    }
  }
  return wrong;
}

std::string KillWatch::Look() {
  const auto before = m_listed;
  std::string wrong = LookAtList();
  const int starts = sim::CallCount("CreateProcessW");
  const int terminations = sim::CallCount("TerminateProcess");
  if (starts == m_starts && terminations == m_terminations) {
    return wrong;
  }
  m_starts = starts;
  std::map<std::uint32_t, std::int64_t> running;
  for (const std::uint32_t pid : sim::RunningPids()) {
    running[pid] = CreatedAt(pid);
  }
  for (const auto& [pid, created] : m_running) {
    const auto still = running.find(pid);
    if ((still != running.end() && still->second == created) || m_leaving.contains({pid, created})) {
      continue;
    }
    ++m_kills;
    const auto listed = before.find(pid);
    // Two runs that begin within one second are not told apart.
    if (terminations == m_terminations || listed == before.end() ||
        listed->second / kStepsPerSecond != created / kStepsPerSecond) {
      wrong = "process " + std::to_string(pid) + " was ended and had not been listed with its creation time";
    }
  }
  m_terminations = terminations;
  m_running = std::move(running);
  std::erase_if(m_leaving, [this](const auto& each) {
    const auto still = m_running.find(each.first);
    return still == m_running.end() || still->second != each.second;
  });
  return wrong;
}

void KillWatch::EndsBySelf(std::uint32_t pid, std::int64_t created) { m_leaving.emplace(pid, created); }

} // namespace life
