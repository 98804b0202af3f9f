#pragma once

#include "tests/windows/sdk/host_process.h"
#include "tests/windows/sdk/programs.h"
#include "tests/windows/sdk/test_folder.h"
#include "tests/windows/soak/editor_kind.h"
#include "tests/windows/soak/life.h"
#include "tests/windows/soak/usage.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace soak {

struct Plan {
  std::size_t windows = 8;          // at once
  int cycles = 30;                  // at least so many ids come to their end
  std::chrono::milliseconds time{}; // and it goes on for at least so long
  std::uint32_t seed = 1;
};

/// A host with many windows, whose user opens, edits, replaces and closes pictures while editors die, hang and flood,
/// all by the seed. Adds a failure to the test for whatever is not as it has to be.
class Driver {
public:
  /// Keeps references. The host has been initialised, and has nothing open.
  Driver(sdktest::HostProcess& host, sdktest::TestFolder& folder, const Plan& plan);
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  /// A well-behaved editor in every window, all at the same time. False when that did not come about.
  bool OpenAll();
  /// Goes on as planned, and then closes everything.
  void Run();
  /// Waits until everything has ended that the rules end, and fails the test for what is left behind.
  void CheckLeftBehind();
  /// Waits for the reports that were still to come, and fails the test for those that don't, and for events behind closes
  /// beyond the few that can be under way.
  void CheckReports();

  /// What the host held after each quarter of the cycles, and how many processes had served by then.
  struct Mark {
    std::int64_t processes = 0;
    int cycles = 0;
    Usage usage;
  };
  const std::vector<Mark>& Marks() const { return m_marks; }

  int Cycles() const { return m_cycles; }
  std::size_t Processes() const { return m_served.size(); }
  /// How often the system gave a process id that an earlier process had had.
  int ReusedPids() const { return m_reusedPids; }
  /// One line with all counts.
  std::string Summary() const;

private:
  using Clock = std::chrono::steady_clock;
  enum class Step { kAway, kOpening, kOpen, kWaitEdit, kWaitAnswer, kWaitCancelled, kWaitEnd };

  /// A window, and where its user is with it.
  struct Slot {
    std::int64_t window = 0;
    std::wstring picture;
    Step step = Step::kAway;
    std::unique_ptr<Life> life;
    bool isUnwatched = false; // its window's crash has been told, or cannot be
    Clock::time_point due;    // of what comes next
    Clock::time_point since;  // of this step
  };

  /// A process that the rules may have to end, held so that its id stays its own.
  struct Leaving {
    std::uint32_t pid;
    std::int32_t id;
    bool mayStay; // when its open was under way on a connected link
    std::unique_ptr<sdktest::ProgramHandle> handle;
  };

  void TakeEvents();
  void Look(Slot& slot);
  void LookAtOpening(Slot& slot);
  void LookAtWaiting(Slot& slot);
  void Act(Slot& slot);
  void Open(Slot& slot);
  void Replace(Slot& slot);
  void Close(Slot& slot);
  void CloseWithChanges(Slot& slot);
  void Terminate(Slot& slot);
  void Operate(Slot& slot);
  void EndWindow(Slot& slot);
  void KillWaitingEditor();
  void EndFromOutside(std::uint32_t pid);
  void DestroyWindowOf(Slot& slot);

  /// Whether the id's end has been told or can be asked for; if so, this is noted.
  bool HasEnded(Slot& slot);
  void EndLife(Slot& slot, End how);
  void Release(std::uint32_t pid, std::int32_t id, bool mayStay);
  void Go(Slot& slot, Step step, std::chrono::milliseconds pause);
  void SetKind(const EditorKind& kind);
  static bool HasFailed() { return ::testing::Test::HasFailure(); }
  void Fail(const Life* life, const std::string& what);
  bool IsPast(Clock::time_point time) const { return Clock::now() >= time; }
  /// A window's user rests for so many ms at most: longer for more windows, as the engine serves one after the other.
  int LongestPause() const { return static_cast<int>(m_slots.size()) * 500; }
  std::chrono::milliseconds Between(int least, int most);
  void Sweep();
  void Pass();
  std::size_t CountSlots(Step step) const;
  std::vector<std::uint32_t> ProgramsBut(const std::set<std::uint32_t>& these) const;
  const Life* LastLifeOf(std::uint32_t pid) const;
  std::int64_t Ask(const std::string& command, std::int32_t id);

  sdktest::HostProcess& m_host;
  sdktest::TestFolder& m_folder;
  const Plan m_plan;
  std::mt19937 m_random;
  std::vector<Slot> m_slots;
  std::map<std::int32_t, std::unique_ptr<Life>> m_past;
  std::vector<Leaving> m_leaving;
  std::set<std::uint32_t> m_served; // process ids that have served an id or were ended while they waited
  std::set<std::uint32_t> m_endedFromOutside;
  std::map<std::int32_t, std::int64_t> m_awaited; // ids whose crash is still to be told, each with its window
  std::vector<Mark> m_marks;
  std::size_t m_eventsTaken = 0;
  std::int32_t m_lastId = 0;
  bool m_isEnding = false;
  Clock::time_point m_nextSweep;
  Clock::time_point m_lastProgress;

  int m_cycles = 0;
  int m_opens = 0;
  int m_replaced = 0;
  int m_terminated = 0;
  int m_asked = 0;
  int m_reusedPids = 0;
  int m_leftAlone = 0;
  std::size_t m_peak = 0;
  std::map<std::string, int> m_ends;
};

} // namespace soak
