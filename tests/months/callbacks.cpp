#include "tests/months/driver.h"

#include "tests/sim/clock.h"
#include "tests/sim/faults.h"
#include "tests/sim/process.h"
#include "tests/sim/window.h"
#include "tests/sweep/callback_buffers.h"

#include <algorithm>

namespace {

constexpr std::uint64_t kPaceMs = 10;

} // namespace

// What the library calls: the host's callback, and the editors. Each event and each text is held against what may be.

void MonthsDriver::OnEvent(char* text, void* data) {
  Slot& slot = *static_cast<Slot*>(data);
  slot.driver->TakeEvent(text, slot);
}

void MonthsDriver::TakeEvent(char* buffer, Slot& slot) {
  const std::lock_guard lock(m_lock);
  const std::string text = buffer;
  ++m_figures.events;
  ++m_told;
  Trace(text);
  if (!buffers::IsLive(buffer) || std::find(m_held.begin(), m_held.end(), buffer) != m_held.end()) {
    Fail("a buffer was handed out twice");
  }
  Scan(buffer);
  Judge(text, &slot);
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
    const auto number = static_cast<std::int32_t>(m_nextNumber);
    const bool finished = IsFinished(slot.id);
    if (OperatePic(slot.id, number) == finished) {
      Fail("an operation in a callback of the id " + std::to_string(slot.id) + " gave the wrong result");
    } else if (!finished) {
      Queued(SDK_OPERATE, slot.id, number);
    }
  }
}

/// Brings the account up to date: the processes that were started, the buffers that found no callback, the records that
/// left the queue. `current` is the buffer that is being told.
void MonthsDriver::Scan(const char* current) {
  EngineProbe engine(m_engine);
  const std::size_t waiting = engine.Queued();
  for (const char* const buffer : buffers::TakeFresh()) {
    if (buffer != current) {
      ++m_lost;
      ++m_figures.deliberate;
      Judge(buffer, nullptr);
    }
  }
  m_account.Sees(waiting);
  LinkStarted();
  if (engine.OperatorIsIdle()) {
    m_account.Rests();
  }
  for (const Pid pid : m_account.Unpolled()) {
    m_unread.erase(pid);
  }
  m_account.ForgetUnpolled();
  if (!m_account.Wrong().empty()) {
    Fail(m_account.Wrong());
  }
}

/// The links to the processes that were started by the records up to here.
void MonthsDriver::LinkStarted() {
  if (const int calls = sim::CallCount("CreateProcessW"); calls != m_startCalls) {
    m_startCalls = calls;
    const auto started = sim::StartedPrograms();
    for (; m_startsSeen < started.size(); ++m_startsSeen) {
      const Pid pid = started[m_startsSeen].pid;
      m_serves[pid] = m_programServes;
      m_account.Links(pid, life::CreatedAt(pid), m_programServes);
      // An earlier link of a process id that came back is let go on purpose: its event and its connection stay.
      m_lostLinks += m_linked.insert(pid).second ? 0 : 1;
    }
  }
}

/// A text for the host: told to the callback of a slot, or made and told to nobody.
void MonthsDriver::Judge(const std::string& text, const Slot* slot) {
  if (text.find("testserver") != std::string::npos) {
    Fail("a probe was told: " + text);
  }
  if (const auto number = life::NumberOf(text, "n"); number.has_value()) {
    JudgeEditorEvent(text, static_cast<std::uint64_t>(*number), slot);
    return;
  }
  m_account.Reaches(text, EngineProbe(m_engine).Queued());
  LinkStarted();
  m_account.Makes(text);
  const auto pid = static_cast<Pid>(life::NumberOf(text, "process_id").value_or(0));
  const auto owner = m_account.IdOf(pid);
  const Slot* const due = owner.has_value() ? SlotOf(*owner) : nullptr;
  if (slot != due) {
    Fail((slot == nullptr ? "an event had a callback and was not told: " : "an event was told to the wrong one: ") +
         text);
  }
  if (life::TextOf(text, "type") == "run_error") {
    JudgeCrash(text);
  }
}

void MonthsDriver::JudgeCrash(const std::string& text) {
  const auto id = static_cast<Id>(life::NumberOf(text, "id").value_or(0));
  const auto pid = static_cast<Pid>(life::NumberOf(text, "process_id").value_or(0));
  ++m_figures.crashes;
  const auto found = m_ids.find(id);
  if (found == m_ids.end() || found->second.crashTold) {
    Fail("a crash was told twice, or for nobody: " + text);
    return;
  }
  found->second.crashTold = true;
  if (!m_endedPids.contains(pid) || !m_account.ServesOrDid(id, pid)) {
    Fail("a process is said to have crashed that did not end, or serves another: " + text);
  }
  if (!m_account.IsUnexpected(id, pid) && !m_account.InDoubt(id)) {
    Fail("a crash was told after a normal end: " + text);
  }
  if (!platform::IsWindow(found->second.window) ||
      (sim::ExStyle(found->second.window) & platform::kWsExTransparent) == 0) {
    Fail("a crash was told for a window that is gone or was not marked: " + text);
  }
}

void MonthsDriver::JudgeEditorEvent(const std::string& text, std::uint64_t number, const Slot* slot) {
  const auto pid = static_cast<Pid>(life::NumberOf(text, "pid").value_or(0));
  const auto said = m_said.find(number);
  if (said == m_said.end() || said->second != text || number <= m_lastRead[pid]) {
    Fail("an event was read twice, out of its order or not as it was said: " + text);
    return;
  }
  m_said.erase(said);
  m_lastRead[pid] = number;
  if (const auto unread = m_unread.find(pid); unread != m_unread.end() && !unread->second.numbers.empty()) {
    if (unread->second.numbers.front() != number) {
      Fail("an event before this one was not read: " + text);
    }
    unread->second.numbers.pop_front();
    unread->second.sinceMs = m_ranMs;
  }
  const std::string type = life::TextOf(text, "type");
  const bool own = type == "process_exit" || type == "cancel_process_exit";
  m_account.Reads(text, pid);
  const Slot* const due = own ? nullptr : SlotOf(m_account.IdOf(pid).value_or(0));
  if (slot != due) {
    Fail((slot == nullptr ? "an event had a callback and was not told: "
                          : "an event was told that is the engine's own, or to the wrong one: ") +
         text);
  }
}

sim::EditorStep MonthsDriver::TakeText(Pid pid, const std::string& text) {
  const std::lock_guard lock(m_lock);
  Trace(std::to_string(pid) + text);
  Scan();
  const std::string type = life::TextOf(text, "type");
  const bool isRecord = m_account.Receives(pid, text);
  if (isRecord) {
    const std::uint64_t now = sim::NowMs();
    if (m_anyBegan && now < m_lastBeginMs + kPaceMs) {
      Fail("two records within 10 ms");
    }
    m_anyBegan = true;
    m_lastBeginMs = now;
    m_account.Replies(EditorOf(pid).mood == Mood::kNormal);
  }
  if (!m_account.Wrong().empty()) {
    Fail(m_account.Wrong());
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
