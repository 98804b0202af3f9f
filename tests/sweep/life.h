#pragma once

#include "tests/unit/engine/engine_probe.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

// How a program lives a life of the library over the simulated platform, with the clock stopped and time moved on from
// one wake to the next, so that a year of waiting costs what there is to do in it and no more.
namespace life {

inline EngineProbe Probe() { return EngineProbe(VexelSDKThread::GetInstance()); }

/// Waits until the engine's threads have begun and everything waits. False when it does not come to that.
bool Rest(int seconds = 30);

/// Lets time run by so many milliseconds, wake by wake. False when the world does not come to rest.
bool RunFor(std::uint64_t milliseconds);

/// Moves time ahead at once, as for a machine that sleeps: each wait that is over ends once.
bool Jump(std::uint64_t milliseconds);

/// VexelSDK_UnInit from a thread of its own while time runs on. Waits first, in simulated time, until the crash watch
/// is out of its second of doubt, in which a stop is lost. False when the call has not returned after `seconds`; then
/// the program can only be left by _Exit.
bool UnInit(int seconds = 60);

/// A value of one of the flat JSON texts of the library and of the tests' editors; nothing when the key is not there.
std::optional<std::int64_t> NumberOf(const std::string& text, const std::string& key);
std::string TextOf(const std::string& text, const std::string& key);
bool FlagOf(const std::string& text, const std::string& key);

/// The moment a process was created, in steps of the simulated clock; 0 for one that does not run.
std::int64_t CreatedAt(std::uint32_t pid);

/// Knows the processes and the kill list. Told at each rest, it sees every end that the library brought about.
class KillWatch {
public:
  /// Looks at the list and at the ends since the last look. Empty, or what is wrong: an entry does not hold its process's
  /// creation time, or a process was ended that had not been on the list with it at the last look.
  std::string Look();

  /// A process that ends without the library, with its CreatedAt. Before the next look.
  void EndsBySelf(std::uint32_t pid, std::int64_t created);

  /// A process that began without the library. The next look finds it.
  void BeganBySelf() { m_starts = -1; }

  /// The processes that the library has ended.
  int Kills() const { return m_kills; }

private:
  std::string LookAtList();

  std::map<std::uint32_t, std::int64_t> m_running;            // by pid: created
  std::map<std::uint32_t, std::int64_t> m_listed;             // by pid: created, of what is on the list
  std::map<std::uint32_t, std::uint64_t> m_entryTimes;        // by pid: as the entry has it
  std::set<std::pair<std::uint32_t, std::int64_t>> m_leaving; // pid and created
  int m_starts = -1;
  int m_terminations = 0;
  int m_kills = 0;
};

} // namespace life
