#include "tests/months/driver.h"

#include "foundation/logger.h"
#include "platform/registry.h"
#include "tests/sim/clock.h"
#include "tests/sim/process.h"
#include "tests/sim/registry.h"
#include "tests/sweep/callback_buffers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::int32_t kUnknownId = 1'000'000;

constexpr wchar_t kLogKey[] = L"Software\\Tarnwick\\antivirus\\sysopt";

} // namespace

void Figures::Add(const Figures& other) {
  trace ^= other.trace;
  seeds += other.seeds;
  simulatedMs += other.simulatedMs;
  steps += other.steps;
  wakes += other.wakes;
  engines += other.engines;
  opens += other.opens;
  records += other.records;
  received += other.received;
  dropped += other.dropped;
  events += other.events;
  crashes += other.crashes;
  kills += other.kills;
  reusedPids += other.reusedPids;
  reusedListed += other.reusedListed;
  clockTurns += other.clockTurns;
  buffers += other.buffers;
  deliberate += other.deliberate;
  mostWindows = std::max(mostWindows, other.mostWindows);
  mostEditors = std::max(mostEditors, other.mostEditors);
}

std::string Figures::Text() const {
  const auto line = [](const char* what, std::uint64_t count) {
    return std::string(what) + " " + std::to_string(count);
  };
  return line("seeds", seeds) + line(", simulated hours", simulatedMs / 3'600'000) + line(", steps", steps) +
         line(", wakes", wakes) + line(", engines", engines) + line(", opens", opens) + line(", records", records) +
         line(", received", received) + line(", dropped by a rule", dropped) + line(", events", events) +
         line(", crashes told", crashes) + line(", kills", kills) + line(", pids reused", reusedPids) +
         line(", of them listed", reusedListed) + line(", clock turns", clockTurns) + line(", buffers", buffers) +
         line(", deliberate", deliberate) + line(", most windows", mostWindows) + line(", most editors", mostEditors);
}

MonthsDriver::MonthsDriver(std::uint64_t seed) : m_crowded(seed % 6 == 0), m_random(seed), m_editorRandom(seed + 1) {
  vx::ResetLogger({});
  // At INFO a close without a link ends the host, as its header tells.
  sim::SetDword(platform::kHkeyLocalMachine, kLogKey, L"LogLevel", 2);
  vx::EnsureLoggerReady();
  if (vx::GetMinLogLevel() != 2) {
    Fail("the log level was not read");
  }
  sim::StopAtFullMinute();
  sim::TakeTurns(true);
  sim::SetPidReuse(static_cast<int>(Draw(3)) * 3);
  sim::InstallEditors(DrawScript());
  m_figures.seeds = 1;
  m_buffersBefore = buffers::Made();
}

MonthsDriver::~MonthsDriver() { vx::ResetLogger({}); }

std::string MonthsDriver::Wrong() {
  const std::lock_guard lock(m_lock);
  return m_wrong;
}

void MonthsDriver::Fail(const std::string& what) {
  if (m_wrong.empty()) {
    m_wrong = "step " + std::to_string(m_figures.steps) + ", at " + std::to_string(sim::NowMs()) + " ms: " + what;
  }
}

/// FNV-1a over what happens and when, so that two runs of a seed can be compared.
void MonthsDriver::Trace(const std::string& what) {
  for (const char letter : std::to_string(sim::NowMs()) + what) {
    m_figures.trace = (m_figures.trace ^ static_cast<unsigned char>(letter)) * 0x100000001B3u;
  }
}

bool MonthsDriver::Run(int steps) {
  StartEngine();
  if (m_crowded) {
    GatherCrowd();
  }
  for (int i = 0; i < steps && Wrong().empty(); ++i) {
    ++m_figures.steps;
    Step();
  }
  const bool ended = EndEngine();
  m_figures.simulatedMs = sim::NowMs();
  m_figures.buffers = buffers::Made() - m_buffersBefore;
  m_figures.kills = static_cast<std::uint64_t>(m_killWatch.Kills());
  if (!ended) {
    std::fprintf(stderr, "%s\n", Wrong().c_str());
    std::_Exit(3); // threads of the library still run
  }
  return Wrong().empty();
}

void MonthsDriver::Step() {
  using Action = void (MonthsDriver::*)();
  struct Share {
    std::uint64_t weight;
    Action action;
  };
  static constexpr Share kShares[] = {
      {14, &MonthsDriver::OpenPicture},     {30, &MonthsDriver::Operate},       {9, &MonthsDriver::Close},
      {3, &MonthsDriver::ChangeCallback},   {20, &MonthsDriver::EditorEvent},   {5, &MonthsDriver::KillEditor},
      {3, &MonthsDriver::EndEditorInOrder}, {2, &MonthsDriver::ChangeMood},     {3, &MonthsDriver::DropWindow},
      {1, &MonthsDriver::TurnClock},        {2, &MonthsDriver::ChangePrograms}, {24, &MonthsDriver::PassTime},
  };
  std::uint64_t sum = 0;
  for (const Share& share : kShares) {
    sum += share.weight;
  }
  std::uint64_t drawn = Draw(sum);
  for (const Share& share : kShares) {
    if (drawn < share.weight) {
      (this->*share.action)();
      break;
    }
    drawn -= share.weight;
  }
  Advance(0);
  if (Chance(50)) {
    ReuseListedPid();
  }
  LimitEditors();
  LookForCrashes();
  if (m_lastId > m_idLimit || Draw(700) == 0) {
    RestartEngine();
  }
}

// ---- helpers

Account::Record& MonthsDriver::Queued(SDK_Operator op, Id id, std::int64_t value) {
  Account::Record record;
  record.number = m_nextNumber++;
  record.op = op;
  record.id = id;
  record.value = value;
  ++m_figures.records;
  return m_account.Queue(record);
}

void MonthsDriver::Register(Id id) {
  m_slots.push_back(std::make_unique<Slot>());
  Slot* const slot = m_slots.back().get();
  slot->driver = this;
  slot->id = id;
  SetBrowserCallback(id, &MonthsDriver::OnEvent, slot);
  m_ids[id].slot = slot;
}

void MonthsDriver::Clear(Id id) {
  if (const auto found = m_ids.find(id); found != m_ids.end()) {
    found->second.slot = nullptr;
  }
}

void MonthsDriver::Ends(Pid pid) {
  m_endedPids.insert(pid);
  m_leaving.emplace_back(pid, life::CreatedAt(pid));
}

MonthsDriver::Editor& MonthsDriver::EditorOf(Pid pid) {
  Editor& editor = m_editors[pid];
  if (const std::int64_t created = life::CreatedAt(pid); created != 0 && created != editor.created) {
    if (editor.created != 0) {
      ++m_figures.reusedPids;
    }
    editor = Editor();
    editor.created = created;
  }
  return editor;
}

std::string MonthsDriver::EventText(Pid pid, const std::string& type, const std::string& more) {
  const std::uint64_t number = m_nextEvent++;
  std::string text =
      "{\"n\":" + std::to_string(number) + ",\"pid\":" + std::to_string(pid) + more + ",\"type\":\"" + type + "\"}";
  m_said[number] = text;
  if (type != "testserver") {
    Expect(pid, number);
  }
  return text;
}

/// A text that is about to arrive at a link that is polled has to be read.
void MonthsDriver::Expect(Pid pid, std::uint64_t number) {
  if (m_account.IsPolled(pid)) {
    Unread& unread = m_unread[pid];
    if (unread.numbers.empty()) {
      unread.sinceMs = m_ranMs;
    }
    unread.numbers.push_back(number);
  }
}

/// Nothing but the engine knows how an exchange ended that fails about now.
bool MonthsDriver::IsFinished(Id id) {
  return m_account.InDoubt(id) ? m_engine->IsFinished(id) : m_account.Finished().contains(id);
}

const MonthsDriver::Slot* MonthsDriver::SlotOf(Id id) const {
  const auto found = m_ids.find(id);
  return found == m_ids.end() ? nullptr : found->second.slot;
}

MonthsDriver::Id MonthsDriver::PickId() {
  if (m_lastId == 0 || Draw(200) == 0) {
    return kUnknownId + static_cast<Id>(Draw(5));
  }
  // Mostly one of the latest.
  const Id back = static_cast<Id>(Chance(70) ? Draw(20) : Draw(static_cast<std::uint64_t>(m_lastId)));
  return std::max(m_lastId - back, 1);
}

MonthsDriver::Pid MonthsDriver::PickEditor() {
  std::vector<Pid> running = sim::RunningPids();
  return running.empty() ? 0 : Pick(running);
}

sim::EditorScript MonthsDriver::DrawScript() {
  sim::EditorScript script;
  script.serves = !Chance(8);
  m_programServes = script.serves;
  script.serveAfterMs = Chance(20) ? 200 : 0;
  script.refusedConnects = Chance(20) ? 3 : 0;
  script.connectMs = Chance(20) ? 30 : 0;
  script.silenceMs = 5000;
  script.handler = [this](Pid pid, const std::string& text) { return TakeText(pid, text); };
  return script;
}
