#include "tests/months/driver.h"

#include "tests/sim/clock.h"
#include "tests/sim/handles.h"
#include "tests/sim/process.h"
#include "tests/sweep/callback_buffers.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::uint64_t kReadMs = 100;   // a pass over the editors takes ten of them
constexpr std::uint64_t kDoubtMs = 1100; // how long a crash is thought over, and a wake
constexpr std::uint32_t kCrashPassMs = 2000;

} // namespace

// Engines, and what is held at each rest.

void MonthsDriver::StartEngine() {
  m_account = Account();
  m_account.Queue({.op = SDK_PreLoadProcess});
  m_made = buffers::Made();
  m_freed = buffers::Freed();
  m_told = 0;
  m_lost = 0;
  VexelSDK_Init(nullptr);
  ++m_figures.engines;
  const bool rests = life::Rest();
  const std::lock_guard lock(m_lock);
  m_engine = VexelSDKThread::GetInstance();
  if (!rests) {
    Fail("a new engine does not come to rest");
  }
  Scan();
  for (const Pid pid : sim::RunningPids()) {
    if (!m_linked.contains(pid) && life::Probe().GetHelperByPid(pid) != nullptr) {
      m_linked.insert(pid); // taken over
      m_account.Links(pid, life::CreatedAt(pid), m_serves[pid]);
    }
  }
}

bool MonthsDriver::EndEngine() {
  for (int i = 0; i < 10'000 && sim::SomeoneWaitsFor(1000) && Wrong().empty(); ++i) {
    Advance(100);
  }
  LookForCrashes();
  {
    const std::lock_guard lock(m_lock);
    m_endingEngine = true;
    m_account.KeepsLeaping();
  }
  const bool returned = life::UnInit();
  const std::lock_guard lock(m_lock);
  m_endingEngine = false;
  if (!returned) {
    Fail("the teardown does not return");
    return false;
  }
  Scan();
  m_account.Ends();
  if (!m_account.Wrong().empty()) {
    Fail(m_account.Wrong());
  }
  m_figures.received += m_account.Received();
  m_figures.dropped += m_account.Dropped();
  CheckFinished();
  m_engine.reset();
  for (char* const buffer : m_held) {
    ReleaseCallbackData(buffer);
  }
  m_held.clear();
  CheckBuffers();
  if (buffers::Made() - m_made != m_told + m_lost || buffers::Freed() - m_freed != m_told) {
    Fail(std::to_string(buffers::Made() - m_made) + " buffers were made, " + std::to_string(m_told) + " told, " +
         std::to_string(m_lost) + " lost on purpose and " + std::to_string(buffers::Freed() - m_freed) + " given back");
  }
  buffers::DropLive();
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
  m_expected.clear();
  m_doubts.clear();
  m_unread.clear();
  m_slots.clear();
  m_lastId = 0;
  m_idLimit = kIdsPerEngine;
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
  for (const auto& [pid, created] : m_leaving) {
    m_killWatch.EndsBySelf(pid, created);
  }
  m_leaving.clear();
  const int kills = m_killWatch.Kills();
  if (const std::string wrong = m_killWatch.Look(); !wrong.empty()) {
    Fail(wrong);
  }
  if (m_killWatch.Kills() != kills) {
    for (const auto& [id, pid] : m_account.Pids()) {
      if (!sim::IsRunning(pid)) {
        m_endedPids.insert(pid); // whoever it was, it has ended
      }
    }
  }
  Scan();
  CheckWindows();
  CheckFinished();
}

/// A window is forgotten when its editor is seen to have crashed, and for nothing else. A moment later that is told.
void MonthsDriver::CheckWindows() {
  EngineProbe engine(m_engine);
  if (engine.Windows() != m_idOfWindow.size()) {
    for (auto at = m_idOfWindow.begin(); at != m_idOfWindow.end();) {
      const auto [window, id] = *at;
      if (engine.KnowsWindow(window)) {
        ++at;
        continue;
      }
      at = m_idOfWindow.erase(at);
      const std::set<Pid> pids = m_account.ProcessesOf(id);
      const auto crashed = std::find_if(pids.begin(), pids.end(), [this, each = id](Pid pid) {
        return !sim::IsRunning(pid) && m_account.IsUnexpected(each, pid);
      });
      if (crashed != pids.end()) {
        m_doubts.push_back({id, *crashed, window, m_ranMs, false});
      } else if (!m_account.InDoubt(id)) {
        Fail("the window of the id " + std::to_string(id) + " was forgotten, and its editor did not crash");
      }
    }
  }
  std::erase_if(m_doubts, [this](Doubt& doubt) {
    doubt.excused = doubt.excused || !platform::IsWindow(doubt.window) ||
                    !m_account.IsUnexpected(doubt.id, doubt.pid) || m_account.InDoubt(doubt.id);
    const bool told = m_ids[doubt.id].crashTold;
    const bool over = m_ranMs - doubt.sinceMs > kDoubtMs;
    if (over && !told && !doubt.excused) {
      Fail("the crash of the process " + std::to_string(doubt.pid) + " of the id " + std::to_string(doubt.id) +
           " was seen and not told");
    }
    return told || over;
  });
  if (m_account.AnyReplaced() && sim::SomeoneWaitsFor(kCrashPassMs)) {
    m_account.ForgetReplaced(); // the crash watch is between two looks
  }
}

/// An id is over when the account says so, and not otherwise.
void MonthsDriver::CheckFinished() {
  EngineProbe engine(m_engine);
  if (m_account.AnyDoubt() || engine.FinishedCount() == m_account.Finished().size()) {
    return;
  }
  const std::set<Id> finished = engine.FinishedIds();
  std::vector<Id> differ;
  std::set_symmetric_difference(finished.begin(), finished.end(), m_account.Finished().begin(),
                                m_account.Finished().end(), std::back_inserter(differ));
  Fail("the id " + std::to_string(differ.front()) +
       (finished.contains(differ.front()) ? " is over, for no reason" : " is not over, and has to be"));
}

/// Each pass over the editors takes a text of each of them.
void MonthsDriver::CheckUnread() {
  for (const auto& [pid, unread] : m_unread) {
    if (!unread.numbers.empty() && m_ranMs - unread.sinceMs > kReadMs) {
      Fail("an event of a process that is polled was not read: " + m_said[unread.numbers.front()]);
    }
  }
}

void MonthsDriver::LookForCrashes() {
  m_restsSinceLook = 0;
  const std::lock_guard lock(m_lock);
  CheckBuffers();
  CheckUnread();
  if (m_engine->CopyIdToPid() != m_account.Pids()) {
    Fail("an id is served by another process than by the one that was told for it");
  }
  if (!m_account.AnyDoubt() && EngineProbe(m_engine).FinishedIds() != m_account.Finished()) {
    Fail("other ids are over than those that have to be");
  }
  std::set<Id> due;
  for (const auto& [id, pid] : m_account.Pids()) {
    const auto found = m_ids.find(id);
    if (pid == 0 || found == m_ids.end() || sim::IsRunning(pid)) {
      continue;
    }
    const EditorId& editor = found->second;
    const auto owner = m_idOfWindow.find(editor.window);
    if (editor.crashTold || owner == m_idOfWindow.end() || owner->second != id || m_account.InDoubt(id) ||
        !m_account.IsUnexpected(id, pid) || !platform::IsWindow(editor.window)) {
      continue;
    }
    Expectation& expected = m_expected[id];
    if (expected.pid != pid) {
      expected = {pid, m_ranMs, m_resolved};
    }
    due.insert(id);
  }
  for (auto at = m_expected.begin(); at != m_expected.end();) {
    if (!due.contains(at->first)) {
      at = m_expected.erase(at); // seen, or no crash any more
      ++m_resolved;
    } else {
      ++at;
    }
  }
  // A pass begins at most two seconds after the last, and takes a second for each crash in it.
  for (const auto& [id, expected] : m_expected) {
    const std::uint64_t others = m_expected.size() + m_resolved - expected.resolved;
    if (m_ranMs - expected.sinceMs > 6000 + 1000 * others) {
      Fail("the crash of the process " + std::to_string(expected.pid) + " of the id " + std::to_string(id) +
           " was not told");
    }
  }
}

/// What the host holds lives. Every other buffer that lives was judged by Scan.
void MonthsDriver::CheckBuffers() {
  for (const char* const buffer : m_held) {
    if (!buffers::IsLive(buffer)) {
      Fail("a buffer was freed while the host held it");
    }
  }
}
