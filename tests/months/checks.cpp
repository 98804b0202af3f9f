#include "tests/months/driver.h"

#include "tests/sim/clock.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sweep/callback_buffers.h"

#include <algorithm>
#include <utility>

// Engines, and what is held at each rest.

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
  CheckBuffers();
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
      if (life::TextOf(buffer, "type") == "run_error") {
        // It went the way of its process id, which came back, to an id that hears nothing any more.
        m_ids[static_cast<Id>(life::NumberOf(buffer, "id").value_or(0))].crashTold = true;
      }
    }
  }
  if (found != held.size()) {
    Fail("a buffer was freed while the host held it");
  }
}
