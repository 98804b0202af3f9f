#pragma once

#include "vexelsdk/link/operator_data.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

/// The driver's own account of an engine: which process serves which id, which ends are normal, which ids are over. It
/// follows from what the host calls, from what the editors say and from the texts that reach either, so that the engine
/// can be held against it. Of the engine it is told how many records wait, and no more. Every other call that finds
/// something wrong leaves it in Wrong().
class Account {
public:
  using Id = std::int32_t;
  using Pid = std::uint32_t;

  /// A record that the gate took.
  struct Record {
    std::uint64_t number = 0;
    SDK_Operator op = SDK_NONE;
    Id id = 0;
    Pid pid = 0;            // its process when it was queued, 0 when it had none
    std::int64_t value = 0; // what distinguishes it from others of its kind
    int failedStarts = 0;   // starts that had failed when it was queued
    bool hasProgram = true; // the open parameter names a program
  };

  std::uint64_t Received() const { return m_received; }
  std::uint64_t Dropped() const { return m_dropped; }
  /// What is wrong, in words; empty while nothing is. The first finding stays.
  const std::string& Wrong() const { return m_wrong; }

  // ---- what the host does
  /// Queues a record, and gives it its process.
  Record& Queue(Record record);
  enum class Close { kRefused, kNoLink, kConnecting, kAsks, kSends };
  /// What a close of the id comes to. A record follows kAsks and kSends.
  Close HostCloses(Id id, bool finished);
  /// Time or a clock made a leap, or makes them from now on: whoever tries to connect may give up.
  void Leaps();
  void KeepsLeaping() { m_leaping = true; }

  // ---- what the system and the editors do
  /// The engine made a link to a process: created as CreatedAt has it, and a program that serves its pipe or does not.
  void Links(Pid pid, std::int64_t created, bool serves);
  /// `waiting` records are in the engine's queue.
  void Sees(std::size_t waiting);
  /// No record is run.
  void Rests() { Settle(); }
  /// An editor got a text. True when it is a record's, and not the close of a replaced one.
  bool Receives(Pid pid, const std::string& text);
  /// What comes of the exchange with that record: a reply, or none.
  void Replies(bool replies) { m_run.replies = replies; }
  /// The engine has read an editor's text of that number.
  void Reads(const std::string& text, Pid pid);
  /// The engine made an event of its own for the host. First the record that it belongs to, `waiting` as for Sees; behind
  /// that the links which the record has made.
  void Reaches(const std::string& text, std::size_t waiting);
  void Makes(const std::string& text);
  /// Every record has been run.
  void Ends();

  // ---- what follows
  const std::map<Id, Pid>& Pids() const { return m_pidOf; }
  Pid PidOf(Id id) const;
  /// Whom the texts of a process go to; nobody for one without an entry.
  std::optional<Id> IdOf(Pid pid) const;
  const std::set<Id>& Finished() const { return m_finished; }
  bool IsClosing(Id id) const { return m_closing.contains(id); }
  /// The exchange of the id may have failed just now, which nothing has shown yet.
  bool InDoubt(Id id) const;
  bool AnyDoubt() const { return m_run.on && InDoubt(m_run.record.id); }
  /// No normal end of the pair is on record.
  bool IsUnexpected(Id id, Pid pid) const;
  bool IsPolled(Pid pid) const;
  /// Whether the process serves the id, or did until it was replaced: a look that began before takes it for the id's.
  bool ServesOrDid(Id id, Pid pid) const;
  std::set<Pid> ProcessesOf(Id id) const;
  bool AnyReplaced() const { return !m_replaced.empty(); }
  void ForgetReplaced() { m_replaced.clear(); }
  /// Processes whose link is read no more, or anew, since they were forgotten.
  const std::set<Pid>& Unpolled() const { return m_unpolled; }
  void ForgetUnpolled() { m_unpolled.clear(); }

private:
  struct Link {
    std::int64_t created = 0;
    Id openId = 0; // of the last open that was sent over it
    bool serves = true;
    bool connected = false;
    bool reading = true;
    bool modified = false;
    bool stopped = false;
  };

  /// The record that the operator thread is at.
  struct Run {
    bool on = false;
    Record record;
    Pid pid = 0;    // where it goes
    Pid oldPid = 0; // of an open: whom it replaces
    bool bound = false;
    bool refused = false;  // an open whose id was over
    bool received = false; // by the editor
    bool replies = false;
    bool reported = false; // its success
    bool leapt = false;    // time leapt meanwhile
  };

  void Next();
  bool IsAt(const std::string& text) const;
  void Settle();
  void LeavesOld();
  bool MayHaveFailed() const;
  bool Lives(Pid pid) const;
  std::string Told(const Record& record) const;
  void Fail(const std::string& what);
  static bool Fits(const Record& record, const std::string& type, const std::string& text);

  std::deque<Record> m_queue;
  Run m_run;
  std::map<Id, Pid> m_pidOf;
  std::map<Pid, Id> m_idOf;
  std::map<Pid, Link> m_links;
  std::set<std::pair<Id, Pid>> m_replaced; // since they were forgotten
  std::set<Pid> m_unpolled;                // since they were forgotten
  std::set<Id> m_finished;
  std::set<Id> m_closing;
  std::set<Id> m_modifyClose;
  std::set<Pid> m_exited;
  bool m_leaping = false;
  std::uint64_t m_received = 0;
  std::uint64_t m_dropped = 0;
  std::string m_wrong;
};
