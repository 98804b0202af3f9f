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
