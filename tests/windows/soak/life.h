#pragma once

#include "tests/windows/sdk/host_process.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace soak {

/// How an id came to its end.
enum class End {
  kNone,
  kClosed,       // a plain close: nothing more is heard
  kFinished,     // the editor left and said so
  kCrashed,      // the editor died and the SDK said so
  kReplacedLate, // the editor died, and a replacement came before the SDK said so, which it still has to
  kFailed,       // the open or a later send failed: the id is finished without a word
  kSilent, // the editor died with an end on record: while it asked its user, or under a process id that had ended before
};

const char* NameOf(End end);

/// The events of one id, held against what may come at all.
class Life {
public:
  explicit Life(std::int32_t id) : m_id(id) {}

  std::int32_t Id() const { return m_id; }

  /// Counts an open or a replacement that was asked for.
  void AddOpen() { ++m_opens; }

  /// Takes the id's next event. What is wrong with it, or "".
  std::string Take(const sdktest::Event& event);

  void Finish(End how) { m_end = how; }
  End HowEnded() const { return m_end; }

  int Opens() const { return m_opens; }
  /// Opens that have got a process.
  int Started() const { return static_cast<int>(m_pids.size()); }
  /// The process that serves the id, or served it last; 0 when there was none.
  std::uint32_t Pid() const { return m_pids.empty() ? 0 : m_pids.back(); }
  /// Whether the last process that was started has taken the open.
  bool IsOpen() const { return Started() == m_opens && m_hasOpenSuccess; }
  int Crashes() const { return m_crashes; }
  /// The process whose crash was told; it need not be the one that serves the id now.
  std::uint32_t CrashedPid() const { return m_crashedPid; }
  int Finishes() const { return m_finishes; }
  bool IsModified() const { return m_isModified; }
  /// How the process answers the question about unsaved changes; "" while it has not said so.
  const std::string& Answer() const { return m_answer; }

  /// Whether the process has said that it is one which does as it should.
  bool IsCalm() const { return m_isCalm; }
  /// Events that came after a plain close.
  int EventsAfterClose() const { return m_afterClose; }

  /// All events so far, for a report of what went wrong.
  std::string History() const;

private:
  std::string Judge(const std::string& text);
  /// What a process says behind its flood comes behind all of it.
  bool HasWholeFlood(std::uint32_t pid) { return m_nextFlood[pid] == m_announcedFlood[pid]; }

  std::int32_t m_id;
  End m_end = End::kNone;
  int m_opens = 0;
  std::vector<std::uint32_t> m_pids;
  bool m_hasOpenSuccess = false;
  int m_crashes = 0;
  std::uint32_t m_crashedPid = 0;
  int m_finishes = 0;
  int m_afterClose = 0;
  bool m_isModified = false;
  bool m_isCalm = false;
  std::string m_answer;
  std::map<std::uint32_t, std::int64_t> m_nextFlood;
  std::map<std::uint32_t, std::int64_t> m_announcedFlood; // by the process itself
  std::vector<std::string> m_texts;
};

} // namespace soak
