#include "tests/months/account.h"

#include "tests/sim/faults.h"
#include "tests/sim/process.h"
#include "tests/sweep/life.h"

#include <algorithm>

void Account::Fail(const std::string& what) {
  if (m_wrong.empty()) {
    m_wrong = what;
  }
}

std::string Account::Told(const Record& record) const {
  return "record " + std::to_string(record.number) + ", operator " + std::to_string(record.op) + ", for the id " +
         std::to_string(record.id) + " and the process " + std::to_string(record.pid);
}

// ---- the host

Account::Record& Account::Queue(Record record) {
  record.pid = m_pidOf[record.id];
  return m_queue.emplace_back(record);
}

Account::Close Account::HostCloses(Id id, bool finished) {
  if (finished) {
    return Close::kRefused;
  }
  const auto link = m_links.find(PidOf(id));
  if (link == m_links.end()) {
    m_closing.insert(id);
    m_finished.insert(id);
    return Close::kNoLink;
  }
  if (!link->second.connected) {
    m_closing.insert(id);
    link->second.stopped = true;
    return Close::kConnecting;
  }
  (link->second.modified ? m_modifyClose : m_closing).insert(id);
  return link->second.modified ? Close::kAsks : Close::kSends;
}

void Account::Leaps() { m_run.leapt = true; }

// ---- the operator thread

void Account::Links(Pid pid, std::int64_t created, bool serves) {
  m_links[pid] = Link{.created = created, .serves = serves};
  m_unpolled.insert(pid); // what an earlier link holds is read no more
}

void Account::Sees(std::size_t waiting) {
  while (m_queue.size() > waiting) {
    Next();
  }
}

/// The next record leaves the queue.
void Account::Next() {
  Settle();
  const Record record = m_queue.front();
  m_queue.pop_front();
  if (m_finished.contains(record.id)) {
    m_dropped += record.op != SDK_PreLoadProcess ? 1 : 0;
    return;
  }
  m_run = Run();
  m_run.on = true;
  m_run.record = record;
  m_run.pid = record.pid;
  if (record.op == SDK_OPEN) {
    m_run.pid = 0;
    const Pid old = PidOf(record.id);
    if (const auto link = m_links.find(old); link != m_links.end()) {
      m_run.oldPid = old;
      m_replaced.emplace(record.id, old);
      m_pidOf[record.id] = 0;
      m_idOf[0] = record.id;
      link->second.reading = false;
      m_unpolled.insert(old);
    }
  } else if (const auto link = m_links.find(record.pid); record.op == SDK_CLOSE && link != m_links.end()) {
    if (!link->second.modified) {
      link->second.reading = false;
      m_unpolled.insert(record.pid);
    }
  }
}

/// What came of the process that an open replaced.
void Account::LeavesOld() {
  if (m_run.oldPid != 0 && !m_links[m_run.oldPid].connected) {
    m_exited.insert(m_run.oldPid);
  }
  m_run.oldPid = 0;
}

bool Account::Lives(Pid pid) const {
  const auto link = m_links.find(pid);
  return link != m_links.end() && link->second.created != 0 && life::CreatedAt(pid) == link->second.created;
}

/// Whether there is a reason for which the exchange can have failed.
bool Account::MayHaveFailed() const {
  if (!Lives(m_run.pid)) {
    return true;
  }
  if (m_run.received) {
    return !m_run.replies;
  }
  const auto link = m_links.find(m_run.pid);
  return !link->second.connected && (!link->second.serves || link->second.stopped || m_run.leapt || m_leaping);
}

/// The record that was run is done.
void Account::Settle() {
  if (!m_run.on) {
    return;
  }
  LeavesOld();
  m_run.on = false;
  const Record& record = m_run.record;
  if (record.op == SDK_PreLoadProcess) {
    return;
  }
  m_dropped += m_run.received ? 0 : 1;
  if (m_run.pid == 0) {
    if (record.op == SDK_OPEN && !m_run.refused && record.hasProgram &&
        sim::FaultsFired("CreateProcessW") == record.failedStarts) {
      Fail(Told(record) + " came to nothing");
    }
    return;
  }
  if (m_run.reported) {
    return;
  }
  if (!MayHaveFailed()) {
    Fail(Told(record) +
         (m_run.received ? " was answered, and its success was not reported" : " was lost: its editor did not get it"));
  }
  m_finished.insert(record.id);
}

void Account::Ends() {
  Sees(0);
  Rests();
}

bool Account::Fits(const Record& record, const std::string& type, const std::string& text) {
  const auto is = [&](const char* name, const char* key) {
    return type == name && life::NumberOf(text, key) == record.value;
  };
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

bool Account::Receives(Pid pid, const std::string& text) {
  const std::string type = life::TextOf(text, "type");
  const auto link = m_links.find(pid);
  if (link == m_links.end() || !Lives(pid)) {
    Fail("process " + std::to_string(pid) + " received a text and has no link: " + text);
    return false;
  }
  link->second.connected = true;
  const bool replaced = type == "close" && !life::FlagOf(text, "status");
  if (replaced) {
    if (!m_run.on || m_run.oldPid != pid) {
      Fail("process " + std::to_string(pid) + " was told to close and is not replaced: " + text);
    }
  } else if (!m_run.on || m_run.pid != pid || m_run.received || !Fits(m_run.record, type, text)) {
    Fail("process " + std::to_string(pid) + " received what nobody had queued, or not at that place: " + text +
         (m_run.on ? ", at " + Told(m_run.record) : ""));
  } else {
    m_run.received = true;
    ++m_received;
  }
  if (life::NumberOf(text, "id") != link->second.openId) {
    Fail("a record went out under another id: " + text);
  }
  return !replaced;
}

// ---- the events

void Account::Reads(const std::string& text, Pid pid) {
  const auto link = m_links.find(pid);
  if (link == m_links.end() || !link->second.reading) {
    Fail("a process is read that has no link, or none that is polled: " + text);
    return;
  }
  const std::string type = life::TextOf(text, "type");
  Id& id = m_idOf[pid];
  if (type == "edit") {
    link->second.modified = life::FlagOf(text, "status");
  } else if (type == "finish_operator") {
    m_finished.insert(id);
  } else if (type == "cancel_process_exit") {
    m_modifyClose.erase(id);
  } else if (const auto exited = life::NumberOf(text, "process_id"); type == "process_exit" && exited.has_value()) {
    m_exited.insert(static_cast<Pid>(*exited));
    m_modifyClose.erase(id);
  }
}

/// Whether the record that is run has this to tell.
bool Account::IsAt(const std::string& text) const {
  if (!m_run.on || m_run.record.id != life::NumberOf(text, "id")) {
    return false;
  }
  if (life::TextOf(text, "param") == "open_pic_success") {
    return m_run.pid == life::NumberOf(text, "process_id") && m_run.received && m_run.replies && !m_run.reported;
  }
  return m_run.record.op == SDK_OPEN && !m_run.bound && !m_run.refused;
}

void Account::Reaches(const std::string& text, std::size_t waiting) {
  while (life::TextOf(text, "type") == "custom_message" && !IsAt(text) && m_queue.size() > waiting) {
    Next();
  }
}

void Account::Makes(const std::string& text) {
  if (life::TextOf(text, "type") != "custom_message") {
    return;
  }
  const std::string param = life::TextOf(text, "param");
  const auto id = static_cast<Id>(life::NumberOf(text, "id").value_or(0));
  const auto pid = static_cast<Pid>(life::NumberOf(text, "process_id").value_or(0));
  if (!IsAt(text)) {
    Fail("an event came at a place where nothing is to be told: " + text);
  } else if (param == "open_pic_success") {
    m_run.reported = true;
  } else if (param == "open_pic_process_success") {
    if (!m_links.contains(pid) || m_finished.contains(id)) {
      Fail("a process that has no link, or that an id which is over cannot have, is said to serve: " + text);
    }
    LeavesOld();
    m_run.bound = true;
    m_run.pid = pid;
    m_links[pid].openId = id;
    m_pidOf[id] = pid;
    m_idOf[pid] = id;
  } else {
    if (pid != 0 || !m_finished.contains(id)) {
      Fail("an open is said to fail that did not: " + text);
    }
    LeavesOld();
    m_run.refused = true;
  }
}

// ---- what follows

Account::Pid Account::PidOf(Id id) const {
  const auto found = m_pidOf.find(id);
  return found == m_pidOf.end() ? 0 : found->second;
}

std::optional<Account::Id> Account::IdOf(Pid pid) const {
  const auto found = m_idOf.find(pid);
  return found == m_idOf.end() ? std::nullopt : std::optional<Id>(found->second);
}

bool Account::InDoubt(Id id) const {
  return m_run.on && m_run.record.id == id && m_run.pid != 0 && !m_run.reported && MayHaveFailed();
}

bool Account::IsUnexpected(Id id, Pid pid) const {
  return !m_closing.contains(id) && !m_finished.contains(id) && !m_modifyClose.contains(id) && !m_exited.contains(pid);
}

bool Account::IsPolled(Pid pid) const {
  const auto link = m_links.find(pid);
  return link != m_links.end() && link->second.reading;
}

bool Account::ServesOrDid(Id id, Pid pid) const { return PidOf(id) == pid || m_replaced.contains({id, pid}); }

std::set<Account::Pid> Account::ProcessesOf(Id id) const {
  std::set<Pid> pids = {PidOf(id)};
  for (const auto& [each, pid] : m_replaced) {
    if (each == id) {
      pids.insert(pid);
    }
  }
  pids.erase(0);
  return pids;
}
