#include "tests/months/driver.h"

#include "foundation/logger.h"
#include "platform/registry.h"
#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sim/registry.h"
#include "tests/sim/window.h"
#include "tests/sweep/callback_buffers.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

constexpr std::size_t kMostWindows = 1000;
constexpr std::size_t kMostEditors = 200;
constexpr std::int32_t kIdsPerEngine = 500; // each id's link stays for the engine's life, and its thread with it
constexpr std::uint64_t kPaceMs = 10;
constexpr std::int32_t kUnknownId = 1'000'000;

// base64 of "/apptype:1", "/apptype:2", and of "/apptype:9", which no program has.
constexpr const wchar_t* kLauncherParam = L"L2FwcHR5cGU6MQ==";
constexpr const wchar_t* kEditorParam = L"L2FwcHR5cGU6Mg==";
constexpr const wchar_t* kNoProgramParam = L"L2FwcHR5cGU6OQ==";

constexpr wchar_t kLogKey[] = L"Software\\Tarnwick\\antivirus\\sysopt";

VexelWindow HandleOf(platform::Window window) { return reinterpret_cast<VexelWindow>(window); }

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
         line(", buffers", buffers) + line(", deliberate", deliberate) + line(", most windows", mostWindows) +
         line(", most editors", mostEditors);
}

MonthsDriver::MonthsDriver(std::uint64_t seed) : m_random(seed), m_editorRandom(seed + 1) {
  vx::ResetLogger({});
  // At INFO a close without a link ends the host, as its header tells.
  sim::SetDword(platform::kHkeyLocalMachine, kLogKey, L"LogLevel", 2);
  vx::EnsureLoggerReady();
  if (vx::GetMinLogLevel() != 2) {
    Fail("the log level was not read");
  }
  sim::SetClockSpeed(0);
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
  if (Draw(3) == 0) {
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
  {
    const std::lock_guard lock(m_lock);
    CheckBuffers();
  }
  if (Chance(25)) {
    ReuseListedPid();
  }
  LimitEditors();
  LookForCrashes();
  if (m_lastId > kIdsPerEngine || Draw(700) == 0) {
    RestartEngine();
  }
}

// ---- steps

/// As many windows and editors as there may be.
void MonthsDriver::GatherCrowd() {
  while (m_windows.size() < kMostWindows) {
    m_windows.push_back(sim::MakeWindow(0x100));
  }
  m_figures.mostWindows = kMostWindows;
  for (std::size_t i = 0; i < kMostEditors && Wrong().empty(); ++i) {
    OpenPicture();
    Advance(40);
    LimitEditors();
  }
}

void MonthsDriver::OpenPicture() {
  platform::Window window = 0;
  if (m_windows.empty() || (m_windows.size() < kMostWindows && Chance(60))) {
    platform::Window value = 0;
    if (!m_goneWindows.empty() && Chance(20)) { // a value comes again
      value = m_goneWindows.back();
      m_goneWindows.pop_back();
    }
    window = sim::MakeWindow(0x100, 0, value);
    m_windows.push_back(window);
    m_figures.mostWindows = std::max(m_figures.mostWindows, m_windows.size());
  } else {
    window = Pick(m_windows);
  }
  constexpr const wchar_t* kParams[] = {nullptr, kLauncherParam, kEditorParam};
  const bool hasProgram = !Chance(2);
  const wchar_t* const param = hasProgram ? kParams[Draw(3)] : kNoProgramParam;

  const std::lock_guard lock(m_lock);
  const Id before = m_idOfWindow[window];
  const bool keeps =
      before > 0 && life::Probe().KnowsWindow(window) && !m_engine->IsFinished(before) && !m_engine->IsClosing(before);
  const int failedStarts = sim::FaultsFired("CreateProcessW"); // the record may be run before the call returns
  const Id id = OpenEditor(L"C:\\pics\\a.png", HandleOf(window), static_cast<std::int32_t>(m_nextNumber), param);
  if (keeps ? id != before : id != m_lastId + 1) {
    Fail("a window of the id " + std::to_string(before) + " got the id " + std::to_string(id) + " behind " +
         std::to_string(m_lastId));
  }
  if (!keeps) {
    m_lastId = id;
    m_idOfWindow[window] = id;
    m_ids[id].window = window;
    m_ids[id].early = 2;
  }
  if (m_ids[id].slot == nullptr || Chance(10)) {
    Register(id);
  }
  Record& record = Queued(SDK_OPEN, id, 0, static_cast<std::int64_t>(m_nextNumber));
  record.hasProgram = hasProgram;
  record.failedStarts = failedStarts;
  m_bindingsMoved = true;
  ++m_figures.opens;
}

void MonthsDriver::Operate() {
  const int times = Chance(10) ? 20 : 1 + static_cast<int>(Draw(3));
  for (int i = 0; i < times; ++i) {
    {
      const std::lock_guard lock(m_lock);
      const Id id = PickId();
      const bool finished = m_engine->IsFinished(id);
      const Pid pid = PidOf(id);
      const auto number = static_cast<std::int32_t>(m_nextNumber);
      switch (Draw(6)) {
      case 0:
        if (const bool full = Chance(50); FullScreen(id, full), !finished) {
          Queued(SDK_FULLSCREEN, id, pid, full ? 1 : 0);
        }
        break;
      case 1:
        if (SetWindowsPos(id, number, 0, 800, 600); !finished) {
          Queued(SDK_SETPOS, id, pid, number);
        }
        break;
      case 2: {
        if (!Chance(10)) {
          break;
        }
        const bool dark = Chance(50);
        const auto all = m_engine->CopyIdToPid();
        ChangeThemeMode(dark);
        for (const auto& [each, itsPid] : all) {
          if (!m_engine->IsFinished(each)) {
            Queued(SDK_CHANGE_THEME, each, itsPid, dark ? 2 : 1);
          }
        }
        break;
      }
      case 3:
        if (DoBrowserCommand(id, number) == finished) {
          Fail("a command on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_BROWSER_COMMAND, id, pid, number);
        }
        break;
      default:
        if (OperatePic(id, number) == finished) {
          Fail("an operation on the id " + std::to_string(id) + " gave the wrong result");
        } else if (!finished) {
          Queued(SDK_OPERATE, id, pid, number);
        }
        break;
      }
    }
    Advance(0);
  }
}

void MonthsDriver::Close() {
  const std::lock_guard lock(m_lock);
  const Id id = PickId();
  const bool finished = m_engine->IsFinished(id);
  const bool closing = m_engine->IsClosing(id);
  const Pid pid = PidOf(id);
  const auto link = m_engine->CopyIdToPid().contains(id) ? life::Probe().GetHelperByPid(pid) : nullptr;
  const bool sends = link != nullptr && !link->IsConnecting();
  const bool asks = sends && link->IsModify();
  const bool all = Chance(50);
  const bool result = CloseEditor(id, all);
  if (result != (asks && !finished)) {
    Fail("a close of the id " + std::to_string(id) + " gave the wrong result");
  }
  if (finished) {
    return;
  }
  if (sends) {
    Queued(SDK_CLOSE, id, pid, all ? 1 : 0);
  }
  if (!asks) {
    Clear(id);
  }
  if (IsClose(id) != (closing || !asks)) {
    // A queued close may fail at once and finish the id.
    if (!m_engine->IsFinished(id)) {
      Fail("the id " + std::to_string(id) + " does not know whether it is closed");
    }
  }
}

void MonthsDriver::ChangeCallback() {
  const std::lock_guard lock(m_lock);
  const Id id = PickId();
  if (!m_ids.contains(id)) {
    return;
  }
  if (Chance(40)) {
    SetBrowserCallback(id, nullptr, nullptr);
    Clear(id);
  } else {
    Register(id);
  }
}

void MonthsDriver::EditorEvent() {
  const Pid pid = PickEditor();
  if (pid == 0) {
    return;
  }
  std::string text;
  {
    const std::lock_guard lock(m_lock);
    const std::uint64_t drawn = Draw(100);
    if (drawn < 30) {
      text = EventText(pid, "edit", drawn < 15 ? ",\"status\":true" : ",\"status\":false");
    } else if (drawn < 36) {
      text = EventText(pid, "finish_operator");
    } else if (drawn < 42) {
      text = EventText(pid, "cancel_process_exit");
    } else if (drawn < 45) {
      text = EventText(pid, "process_exit", ",\"process_id\":" + std::to_string(pid));
    } else if (drawn < 47) {
      text = EventText(pid, "process_exit");
    } else if (drawn < 50) {
      text = EventText(pid, "testserver");
    } else if (drawn < 53) {
      text = "neither JSON nor anything";
    } else {
      text = EventText(pid, "custom_message", ",\"param\":\"moved\"");
    }
  }
  sim::SendEvent(pid, text);
  if (Chance(5)) {
    for (int i = 0; i < 30; ++i) {
      std::string more;
      {
        const std::lock_guard lock(m_lock);
        more = EventText(pid, "custom_message", ",\"param\":\"many\"");
      }
      sim::SendEvent(pid, more);
    }
  }
}

void MonthsDriver::KillEditor() {
  if (const Pid pid = PickEditor(); pid != 0) {
    {
      const std::lock_guard lock(m_lock);
      Ends(pid);
    }
    sim::CrashProcess(pid);
  }
}

void MonthsDriver::EndEditorInOrder() {
  const Pid pid = PickEditor();
  if (pid == 0) {
    return;
  }
  std::string text;
  {
    const std::lock_guard lock(m_lock);
    text = EventText(pid, "process_exit", ",\"process_id\":" + std::to_string(pid));
  }
  sim::SendEvent(pid, text);
  Advance(50);
  if (sim::IsRunning(pid)) {
    const std::lock_guard lock(m_lock);
    Ends(pid);
    sim::EndProcess(pid);
  }
}

void MonthsDriver::ChangeMood() {
  if (const Pid pid = PickEditor(); pid != 0) {
    const std::lock_guard lock(m_lock);
    constexpr Mood kMoods[] = {Mood::kNormal, Mood::kNormal, Mood::kSilent, Mood::kNull, Mood::kDies};
    EditorOf(pid).mood = kMoods[Draw(std::size(kMoods))];
  }
}

void MonthsDriver::DropWindow() {
  if (m_windows.empty()) {
    return;
  }
  const std::size_t at = Draw(m_windows.size());
  sim::DestroyWindow(m_windows[at]);
  m_goneWindows.push_back(m_windows[at]);
  m_windows.erase(m_windows.begin() + static_cast<std::ptrdiff_t>(at));
}

/// A process that is to be ended goes by itself, and its id to another run of its program.
void MonthsDriver::ReuseListedPid() {
  const auto entries = life::Probe().KillEntries();
  if (entries.empty()) {
    return;
  }
  const KillEntry& entry = entries.begin()->second;
  if (const std::lock_guard lock(m_lock); sim::IsRunning(entry.m_pid)) {
    Ends(entry.m_pid);
    sim::EndProcess(entry.m_pid);
  }
  Advance(1000 + Draw(500)); // two runs that begin in the same second are not told apart
  if (!sim::IsRunning(entry.m_pid)) {
    sim::ProcessSpec spec;
    spec.path = entry.m_path;
    spec.pid = entry.m_pid;
    sim::StartProcess(spec);
    m_killWatch.BeganBySelf();
    ++m_figures.reusedPids;
  }
}

void MonthsDriver::TurnClock() {
  constexpr std::int64_t kDay = 864'000'000'000; // in steps of the wall clock
  switch (Draw(3)) {
  case 0:
    sim::SetUtc(134'129'382'450'000'000 + (static_cast<std::int64_t>(Draw(1400)) - 700) * kDay);
    break;
  case 1:
    sim::SetTimeZone((static_cast<int>(Draw(49)) - 24) * 30);
    break;
  default:
    sim::SetTickCount64(Chance(50) ? Draw(1'000'000) : 0xFFFFFF00u + Draw(1000));
    break;
  }
}

void MonthsDriver::ChangePrograms() {
  if (Chance(20)) {
    sim::FailNth("CreateProcessW", 1 + static_cast<int>(Draw(3)));
  } else {
    sim::InstallEditors(DrawScript());
  }
}

void MonthsDriver::PassTime() {
  const std::uint64_t drawn = Draw(100);
  if (drawn < 70) {
    Advance(10 + Draw(300));
  } else if (drawn < 88) {
    Advance(1000 + Draw(5000));
  } else {
    sim::LeapMs(60'000 + Draw(4 * 3'600'000)); // the machine sleeps
    Advance(1);
  }
}

void MonthsDriver::RestartEngine() {
  if (EndEngine()) {
    StartEngine();
  } else {
    std::fprintf(stderr, "%s\n", Wrong().c_str());
    std::_Exit(3);
  }
}

// ---- the world

void MonthsDriver::StartEngine() {
  VexelSDK_Init(nullptr);
  ++m_figures.engines;
  const bool rests = life::Rest();
  const std::lock_guard lock(m_lock);
  m_engine = VexelSDKThread::GetInstance();
  if (!rests) {
    Fail("a new engine does not come to rest");
  }
  for (const Pid pid : sim::RunningPids()) {
    if (life::Probe().GetHelperByPid(pid) != nullptr) {
      m_linked.insert(pid); // started by this preload, or taken over
    }
  }
  m_startsSeen = sim::StartedPrograms().size();
}

bool MonthsDriver::EndEngine() {
  for (int i = 0; i < 10'000 && sim::SomeoneWaitsFor(1000) && Wrong().empty(); ++i) {
    Advance(100);
  }
  {
    const std::lock_guard lock(m_lock);
    m_endingEngine = true;
  }
  const bool returned = life::UnInit();
  const std::lock_guard lock(m_lock);
  m_endingEngine = false;
  if (!returned) {
    Fail("the teardown does not return");
    return false;
  }
  for (const Record& record : m_queue) {
    if (!MayBeDropped(record)) {
      Fail("record " + std::to_string(record.number) + " was lost in the teardown");
    }
    ++m_figures.dropped;
  }
  m_queue.clear();
  m_engine.reset();
  for (const std::unique_ptr<Slot>& slot : m_slots) {
    slot->dead = true;
  }
  for (char* const buffer : m_held) {
    ReleaseCallbackData(buffer);
  }
  m_held.clear();
  CheckBuffers();
  buffers::DropLive();
  m_lost.clear();
  // An earlier link of a process id that came back is let go on purpose: its event and its connection stay.
  const auto started = sim::StartedPrograms();
  for (std::size_t i = m_startsSeen; i < started.size(); ++i) {
    m_lostLinks += m_linked.insert(started[i].pid).second ? 0 : 1;
  }
  m_linked.clear();
  for (const auto& [kind, name] :
       {std::pair{sim::HandleKind::kProcess, "process"}, std::pair{sim::HandleKind::kThread, "thread"},
        std::pair{sim::HandleKind::kToken, "token"}, std::pair{sim::HandleKind::kSnapshot, "snapshot"},
        std::pair{sim::HandleKind::kEvent, "event"}, std::pair{sim::HandleKind::kRegistryKey, "registry"}}) {
    if (sim::OpenHandles(kind) != (kind == sim::HandleKind::kEvent ? m_lostLinks : 0)) {
      Fail(std::to_string(sim::OpenHandles(kind)) + " handles of the kind " + name +
           " are left open, and links let go: " + std::to_string(m_lostLinks));
    }
  }
  if (sim::BadCloses() != 0 || sim::LiveServers() != 0 || sim::OpenConnections() > m_lostLinks) {
    Fail("an engine left a link behind, or closed what was none");
  }
  m_ids.clear();
  m_idOfWindow.clear();
  m_boundIds.clear();
  m_expected.clear();
  m_dying.clear();
  m_slots.clear();
  m_lastId = 0;
  m_anyBegan = false;
  return true;
}

void MonthsDriver::LimitEditors() {
  std::vector<Pid> running = sim::RunningPids();
  m_figures.mostEditors = std::max(m_figures.mostEditors, running.size());
  while (running.size() > kMostEditors) {
    const std::size_t at = Draw(running.size());
    {
      const std::lock_guard lock(m_lock);
      Ends(running[at]);
    }
    sim::EndProcess(running[at]);
    running.erase(running.begin() + static_cast<std::ptrdiff_t>(at));
  }
}

void MonthsDriver::Advance(std::uint64_t milliseconds) {
  const std::uint64_t until = sim::NowMs() + milliseconds;
  bool rests = life::Rest();
  AfterRest();
  while (rests && sim::NowMs() < until) {
    const std::uint64_t before = sim::NowMs();
    sim::StepToNextWake(until - before);
    rests = life::Rest();
    m_ranMs += sim::NowMs() - before;
    ++m_figures.wakes;
    AfterRest();
    if (++m_restsSinceLook >= 20) {
      LookForCrashes();
    }
  }
  if (!rests) {
    const std::lock_guard lock(m_lock);
    Fail("the world does not come to rest");
  }
}

void MonthsDriver::AfterRest() {
  const std::lock_guard lock(m_lock);
  for (Slot* const slot : m_dying) {
    slot->dead = true;
  }
  m_dying.clear();
  for (const auto& [pid, created] : m_leaving) {
    m_killWatch.EndsBySelf(pid, created);
  }
  m_leaving.clear();
  const int kills = m_killWatch.Kills();
  if (const std::string wrong = m_killWatch.Look(); !wrong.empty()) {
    Fail(wrong);
  }
  if (m_killWatch.Kills() != kills) {
    // Whoever it was, it has ended: its id may be served by nobody now.
    for (const auto& [pid, ids] : m_boundIds) {
      if (!sim::IsRunning(pid)) {
        m_endedPids.insert(pid);
      }
    }
  }
  const bool idle = life::Probe().OperatorIsIdle();
  if (m_bindingsMoved) {
    for (const auto& [id, pid] : m_engine->CopyIdToPid()) {
      if (pid != 0) {
        m_boundIds[pid].insert(id);
      }
    }
    m_bindingsMoved = !idle;
  }
  if (idle) {
    CheckDrained();
  }
}

void MonthsDriver::CheckDrained() {
  for (const Record& record : m_queue) {
    if (!MayBeDropped(record)) {
      Fail("record " + std::to_string(record.number) + ", operator " + std::to_string(record.op) + ", for the id " +
           std::to_string(record.id) + " and the process " + std::to_string(record.pid) + " was lost");
    }
    ++m_figures.dropped;
  }
  m_queue.clear();
}

void MonthsDriver::LookForCrashes() {
  m_restsSinceLook = 0;
  const std::lock_guard lock(m_lock);
  std::set<Id> due;
  std::uint64_t untold = 0;
  for (const auto& [id, pid] : m_engine->CopyIdToPid()) {
    const auto found = m_ids.find(id);
    if (pid == 0 || found == m_ids.end() || sim::IsRunning(pid)) {
      continue;
    }
    const EditorId& editor = found->second;
    if (editor.crashTold || !m_engine->IsUnexpectedExit(id, pid) || !platform::IsWindow(editor.window)) {
      continue;
    }
    if (editor.slot == nullptr) {
      ++untold; // nobody hears of it, and it takes its time all the same
      continue;
    }
    const auto expected = m_expected.find(id);
    if (expected != m_expected.end() && expected->second.pid == pid) {
      due.insert(id);
    } else if (m_idOfWindow[editor.window] == id && life::Probe().KnowsWindow(editor.window)) {
      m_expected[id] = {pid, m_ranMs, m_resolved};
      due.insert(id);
    }
  }
  for (auto at = m_expected.begin(); at != m_expected.end();) {
    if (!due.contains(at->first)) {
      at = m_expected.erase(at); // told, or no crash any more
      ++m_resolved;
    } else {
      ++at;
    }
  }
  // A pass begins at most two seconds after the last, and takes a second for each crash in it.
  for (const auto& [id, expected] : m_expected) {
    const std::uint64_t others = untold + m_expected.size() + m_resolved - expected.resolved;
    if (m_ranMs - expected.sinceMs > 6000 + 1000 * others) {
      Fail("the crash of the process " + std::to_string(expected.pid) + " of the id " + std::to_string(id) +
           " was not told");
    }
  }
}

bool MonthsDriver::MayBeUntold(const std::string& text) {
  const std::string type = life::TextOf(text, "type");
  const auto lost = [this](Id id) {
    const auto found = m_ids.find(id);
    return found == m_ids.end() || found->second.cleared;
  };
  if (type == "process_exit" || type == "cancel_process_exit") {
    return true;
  }
  const std::int64_t pid = life::NumberOf(text, "process_id").value_or(life::NumberOf(text, "pid").value_or(0));
  if (pid == 0) {
    return true; // "open_pic_process_fail", which goes to whoever had no process last, and what is no message at all
  }
  const auto bound = m_boundIds.find(static_cast<Pid>(pid));
  if (bound == m_boundIds.end() || std::any_of(bound->second.begin(), bound->second.end(), lost)) {
    return true;
  }
  if (life::NumberOf(text, "n").has_value()) {
    return true; // an editor may speak before it has an id
  }
  const auto id = static_cast<Id>(life::NumberOf(text, "id").value_or(0));
  return lost(id) || (type == "custom_message" && m_ids[id].early-- > 0);
}

/// Each buffer that lives is held by the host or lost on purpose, and what the host holds lives.
void MonthsDriver::CheckBuffers() {
  const std::set<const char*> held(m_held.begin(), m_held.end());
  std::size_t found = 0;
  for (const char* const buffer : buffers::Live()) {
    if (held.contains(buffer)) {
      ++found;
    } else if (m_lost.insert(buffer).second) {
      ++m_figures.deliberate;
      if (!MayBeUntold(buffer)) {
        Fail("an event had a callback and was not told: " + std::string(buffer));
      }
    }
  }
  if (found != held.size()) {
    Fail("a buffer was freed while the host held it");
  }
}

// ---- called by the library

void MonthsDriver::OnEvent(char* text, void* data) {
  Slot& slot = *static_cast<Slot*>(data);
  slot.driver->TakeEvent(text, slot);
}

void MonthsDriver::TakeEvent(char* buffer, Slot& slot) {
  const std::lock_guard lock(m_lock);
  const std::string text = buffer;
  ++m_figures.events;
  Trace(text);
  if (slot.dead) {
    Fail("the id " + std::to_string(slot.id) + " was told after its callback was cleared: " + text);
  }
  if (!buffers::IsLive(buffer) || std::find(m_held.begin(), m_held.end(), buffer) != m_held.end()) {
    Fail("a buffer was handed out twice");
  }
  if (text.find("testserver") != std::string::npos) {
    Fail("a probe was told: " + text);
  }
  if (life::NumberOf(text, "n").has_value()) {
    TakeEditorEvent(text, slot.id);
  } else if (const auto pid = life::NumberOf(text, "process_id"); pid.has_value()) {
    TakeOwnEvent(text, static_cast<Id>(life::NumberOf(text, "id").value_or(0)), static_cast<Pid>(*pid));
  }
  if (m_editorRandom() % 4 == 0) {
    m_held.push_back(buffer);
  } else {
    ReleaseCallbackData(buffer);
  }
  if (m_held.size() > 50) {
    ReleaseCallbackData(m_held.front());
    m_held.erase(m_held.begin());
  }
  if (!m_endingEngine && m_editorRandom() % 8 == 0) {
    const Pid before = PidOf(slot.id);
    const auto number = static_cast<std::int32_t>(m_nextNumber);
    if (OperatePic(slot.id, number)) {
      const Pid after = PidOf(slot.id);
      Queued(SDK_OPERATE, slot.id, after, number).loose = before != after;
    }
  }
}

void MonthsDriver::TakeOwnEvent(const std::string& text, Id id, Pid pid) {
  const std::string type = life::TextOf(text, "type");
  const std::string param = life::TextOf(text, "param");
  if (type == "custom_message" && param != "open_pic_process_fail") {
    if (pid == 0 || (!sim::IsRunning(pid) && !m_endedPids.contains(pid))) {
      Fail("a process that never was is said to serve: " + text);
    }
    m_boundIds[pid].insert(id);
  }
  if (type != "run_error") {
    return;
  }
  ++m_figures.crashes;
  const auto found = m_ids.find(id);
  if (found == m_ids.end() || found->second.crashTold) {
    Fail("a crash was told twice, or for nobody: " + text);
    return;
  }
  found->second.crashTold = true;
  if (!m_endedPids.contains(pid) || !m_boundIds[pid].contains(id)) {
    Fail("a process is said to have crashed that did not end: " + text);
  }
  if (!m_engine->IsUnexpectedExit(id, pid)) {
    Fail("a crash was told after a normal end: " + text);
  }
  if (!platform::IsWindow(found->second.window) ||
      (sim::ExStyle(found->second.window) & platform::kWsExTransparent) == 0) {
    Fail("a crash was told for a window that is gone or was not marked: " + text);
  }
}

void MonthsDriver::TakeEditorEvent(const std::string& text, Id id) {
  const auto pid = static_cast<Pid>(life::NumberOf(text, "pid").value_or(0));
  const auto number = static_cast<std::uint64_t>(life::NumberOf(text, "n").value_or(0));
  const std::string type = life::TextOf(text, "type");
  if (type == "process_exit" || type == "cancel_process_exit") {
    Fail("an event that is the engine's own was told: " + text);
  }
  Editor& editor = m_editors[pid];
  if (number <= editor.lastEvent) {
    Fail("an event was told twice or out of its order: " + text);
  }
  editor.lastEvent = number;
  if (m_bindingsMoved) {
    for (const auto& [each, itsPid] : m_engine->CopyIdToPid()) {
      m_boundIds[itsPid].insert(each);
    }
  }
  if (!m_boundIds[pid].contains(id)) {
    Fail("the id " + std::to_string(id) + " was told what an editor of another says: " + text);
  }
}

bool MonthsDriver::Fits(const Record& record, Pid pid, const std::string& type, const std::string& text) {
  const auto is = [&](const char* name, const char* key) {
    return type == name && life::NumberOf(text, key) == record.value;
  };
  if (record.op != SDK_OPEN && record.pid != pid && !record.loose) {
    return false;
  }
  switch (record.op) {
  case SDK_OPEN:
    return is("open", "open_type");
  case SDK_CLOSE:
    return type == "close" && life::FlagOf(text, "closeall") == (record.value != 0);
  case SDK_FULLSCREEN:
    return type == "fullscreen" && life::FlagOf(text, "isFullScreen") == (record.value != 0);
  case SDK_SETPOS:
    return is("setpos", "x");
  case SDK_OPERATE:
    return is("operator", "operator");
  case SDK_BROWSER_COMMAND:
    return is("browser_command", "operator");
  case SDK_CHANGE_THEME:
    return is("change_theme_mode", "theme_mode");
  default:
    return false;
  }
}

/// Whether a record that no editor has seen may be one that was dropped by a rule, or whose sending failed: then its id
/// is finished.
bool MonthsDriver::MayBeDropped(const Record& record) {
  if (record.loose || m_engine->IsFinished(record.id)) {
    return true;
  }
  if (record.op == SDK_OPEN) {
    return !record.hasProgram || sim::FaultsFired("CreateProcessW") > record.failedStarts;
  }
  return record.pid == 0;
}

sim::EditorStep MonthsDriver::TakeText(Pid pid, const std::string& text) {
  const std::lock_guard lock(m_lock);
  Trace(std::to_string(pid) + text);
  const std::string type = life::TextOf(text, "type");
  const bool replaced = type == "close" && !life::FlagOf(text, "status");
  if (!replaced) {
    const std::uint64_t now = sim::NowMs();
    if (m_anyBegan && now < m_lastBeginMs + kPaceMs) {
      Fail("two records within 10 ms");
    }
    m_anyBegan = true;
    m_lastBeginMs = now;
    // Ids that one process id served in turn are told apart by their ends: a finished one sends nothing more.
    const auto isIt = [&](const Record& record) {
      return Fits(record, pid, type, text) &&
             (life::NumberOf(text, "id") == record.id || !m_engine->IsFinished(record.id));
    };
    while (!m_queue.empty() && !isIt(m_queue.front())) {
      if (!MayBeDropped(m_queue.front())) {
        const Record& record = m_queue.front();
        Fail("record " + std::to_string(record.number) + ", operator " + std::to_string(record.op) + ", for the id " +
             std::to_string(record.id) + " and the process " + std::to_string(record.pid) +
             " was passed over, or comes late, before: " + text);
      }
      ++m_figures.dropped;
      m_queue.pop_front();
    }
    if (m_queue.empty()) {
      Fail("process " + std::to_string(pid) + " received what nobody had queued, or not at that place: " + text);
    } else {
      const Record& record = m_queue.front();
      if (record.op == SDK_OPEN && PidOf(record.id) != pid) {
        Fail("an open went to a process that does not serve its id: " + text);
      }
      m_boundIds[pid].insert(record.id);
      if (m_boundIds[pid].size() == 1 && !m_endedPids.contains(pid) && life::NumberOf(text, "id") != record.id) {
        Fail("a record went out under another id: " + text);
      }
      ++m_figures.received;
      m_queue.pop_front();
    }
  }

  sim::EditorStep step;
  switch (EditorOf(pid).mood) {
  case Mood::kSilent:
    step.answer = sim::Answer::kSilent;
    return step;
  case Mood::kNull:
    step.answer = sim::Answer::kNull;
    return step;
  case Mood::kDies:
    step.answer = sim::Answer::kDie;
    Ends(pid);
    return step;
  case Mood::kNormal:
    break;
  }
  const std::uint64_t drawn = m_editorRandom() % 100;
  if (type == "close") {
    if (drawn < 15) {
      step.events.push_back(EventText(pid, "cancel_process_exit"));
    } else if (drawn < 85) {
      if (drawn < 50) {
        step.events.push_back(
            EventText(pid, drawn < 30 ? "finish_operator" : "process_exit", ",\"process_id\":" + std::to_string(pid)));
      }
      step.exitsAfterReply = true;
      Ends(pid);
    }
  } else if (drawn < 10) {
    step.delayMs = static_cast<std::uint32_t>(m_editorRandom() % 200);
    step.events.push_back(EventText(pid, "edit", drawn < 5 ? ",\"status\":true" : ",\"status\":false"));
  }
  return step;
}

// ---- helpers

MonthsDriver::Record& MonthsDriver::Queued(SDK_Operator op, Id id, Pid pid, std::int64_t value) {
  Record record;
  record.number = m_nextNumber++;
  record.op = op;
  record.id = id;
  record.pid = pid;
  record.value = value;
  ++m_figures.records;
  return m_queue.emplace_back(record);
}

void MonthsDriver::Register(Id id) {
  m_slots.push_back(std::make_unique<Slot>());
  Slot* const slot = m_slots.back().get();
  slot->driver = this;
  slot->id = id;
  SetBrowserCallback(id, &MonthsDriver::OnEvent, slot);
  EditorId& editor = m_ids[id];
  if (editor.slot != nullptr) {
    m_dying.push_back(editor.slot);
  }
  editor.slot = slot;
}

void MonthsDriver::Clear(Id id) {
  const auto found = m_ids.find(id);
  if (found != m_ids.end() && found->second.slot != nullptr) {
    m_dying.push_back(found->second.slot);
    found->second.slot = nullptr;
  }
  if (found != m_ids.end()) {
    found->second.cleared = true;
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
    const std::uint64_t lastEvent = editor.lastEvent;
    editor = Editor();
    editor.created = created;
    editor.lastEvent = lastEvent; // numbers go on through all editors
  }
  return editor;
}

std::string MonthsDriver::EventText(Pid pid, const std::string& type, const std::string& more) {
  return "{\"n\":" + std::to_string(m_nextEvent++) + ",\"pid\":" + std::to_string(pid) + more + ",\"type\":\"" + type +
         "\"}";
}

MonthsDriver::Pid MonthsDriver::PidOf(Id id) {
  const auto all = m_engine->CopyIdToPid();
  const auto found = all.find(id);
  return found == all.end() ? 0 : found->second;
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
  script.serves = !Chance(4);
  script.serveAfterMs = Chance(20) ? 200 : 0;
  script.refusedConnects = Chance(20) ? 3 : 0;
  script.connectMs = Chance(20) ? 30 : 0;
  script.silenceMs = 5000;
  script.handler = [this](Pid pid, const std::string& text) { return TakeText(pid, text); };
  return script;
}
