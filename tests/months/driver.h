#pragma once

#include "include/vexelsdk.h"
#include "platform/window.h"
#include "tests/months/account.h"
#include "tests/sim/editor.h"
#include "tests/sim/world.h"
#include "tests/sweep/life.h"
#include "vexelsdk/link/operator_data.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <vector>

/// What a run has seen.
struct Figures {
  std::uint64_t seeds = 0;
  std::uint64_t simulatedMs = 0;
  std::uint64_t steps = 0;
  std::uint64_t wakes = 0;
  std::uint64_t engines = 0;
  std::uint64_t opens = 0;
  std::uint64_t records = 0;  // accepted by the gate, preloads aside
  std::uint64_t received = 0; // of them, by an editor
  std::uint64_t dropped = 0;  // of them, by a rule
  std::uint64_t events = 0;   // told to the host
  std::uint64_t crashes = 0;  // of them, crashes
  std::uint64_t kills = 0;
  std::uint64_t reusedPids = 0;
  std::uint64_t reusedListed = 0; // of them, on the kill list
  std::uint64_t clockTurns = 0;
  std::uint64_t buffers = 0;
  std::uint64_t deliberate = 0; // buffers that found no callback
  std::size_t mostWindows = 0;  // with an id, of one engine
  std::size_t mostEditors = 0;
  std::uint64_t trace = 0; // of all that was sent and told, and when

  void Add(const Figures& other);
  std::string Text() const;
};

/// A host and its user, drawn from a seed: opens pictures, operates on them, edits, closes, kills and hangs editors,
/// drops windows, restarts the engine and turns the clock, and holds after every step what must always be true.
///
/// The clock stands while the host acts, time moves from one wake of a thread to the next, and threads take turns, so the
/// run of a seed is the same each time.
class MonthsDriver {
public:
  explicit MonthsDriver(std::uint64_t seed);
  ~MonthsDriver();
  MonthsDriver(const MonthsDriver&) = delete;
  MonthsDriver& operator=(const MonthsDriver&) = delete;

  /// Goes so many steps and ends the engine. True when everything held; else Wrong() says what did not.
  bool Run(int steps);

  std::string Wrong();
  const Figures& Seen() const { return m_figures; }

private:
  using Id = Account::Id;
  using Pid = Account::Pid;

  /// One registration of a callback, and its user data.
  struct Slot {
    MonthsDriver* driver = nullptr;
    Id id = 0;
  };

  struct EditorId {
    platform::Window window = 0;
    Slot* slot = nullptr;   // null when cleared
    bool crashTold = false; // or made, and heard by nobody
  };

  /// A crash that the engine has seen and waits a moment to tell.
  struct Doubt {
    Id id = 0;
    Pid pid = 0;
    platform::Window window = 0;
    std::uint64_t sinceMs = 0; // in time that ran wake by wake
    bool excused = false;      // the window went, or a normal end came
  };

  struct Expectation {
    Pid pid = 0;
    std::uint64_t sinceMs = 0;  // in time that ran wake by wake
    std::uint64_t resolved = 0; // expectations resolved by then
  };

  enum class Mood { kNormal, kSilent, kNull, kDies };
  struct Editor {
    std::int64_t created = 0;
    Mood mood = Mood::kNormal;
  };

  /// What an editor has said and nobody has read yet.
  struct Unread {
    std::deque<std::uint64_t> numbers;
    std::uint64_t sinceMs = 0; // in time that ran wake by wake: since the first is the first
  };

  void Step();

  // ---- steps.cpp
  void GatherCrowd();
  void OpenPicture();
  void OpenIn(platform::Window window);
  void Operate();
  void Close();
  void ChangeCallback();
  void EditorEvent();
  void KillEditor();
  void EndEditorInOrder();
  void ChangeMood();
  void DropWindow();
  void ReuseListedPid();
  void TurnClock();
  void ChangePrograms();
  void PassTime();
  void RestartEngine();

  // ---- checks.cpp
  void StartEngine();
  bool EndEngine();
  void LimitEditors();
  void Advance(std::uint64_t milliseconds);
  void AfterRest();
  void LookForCrashes();
  void CheckWindows();
  void CheckFinished();
  void CheckUnread();
  void CheckBuffers();

  // ---- callbacks.cpp, on threads of the library
  static void OnEvent(char* text, void* data);
  void TakeEvent(char* buffer, Slot& slot);
  void Scan(const char* current = nullptr);
  void LinkStarted();
  void Judge(const std::string& text, const Slot* slot);
  void JudgeEditorEvent(const std::string& text, std::uint64_t number, const Slot* slot);
  void JudgeCrash(const std::string& text);
  sim::EditorStep TakeText(Pid pid, const std::string& text);

  // ---- helpers; m_lock is held
  Account::Record& Queued(SDK_Operator op, Id id, std::int64_t value);
  void Register(Id id);
  void Ends(Pid pid);
  Editor& EditorOf(Pid pid);
  std::string EventText(Pid pid, const std::string& type, const std::string& more = {});
  void Expect(Pid pid, std::uint64_t number);
  bool IsFinished(Id id);
  const Slot* SlotOf(Id id) const;
  void Clear(Id id);
  void Trace(const std::string& what);
  void Fail(const std::string& what);

  std::uint64_t Draw(std::uint64_t below) { return m_random() % below; }
  bool Chance(int percent) { return Draw(100) < static_cast<std::uint64_t>(percent); }
  template <class T> T& Pick(std::vector<T>& from) { return from[Draw(from.size())]; }
  Id PickId();
  Pid PickEditor();
  sim::EditorScript DrawScript();

  static constexpr std::size_t kMostEditors = 200;
  static constexpr Id kIdsPerEngine = 500; // each id's link stays for the engine's life, and its thread with it

  // The driver's own, on its thread.
  sim::World m_world;
  bool m_crowded; // a sixth of the seeds: a crowd takes its time
  std::mt19937_64 m_random;
  std::vector<platform::Window> m_windows;
  std::vector<platform::Window> m_goneWindows;
  std::map<platform::Window, Id> m_idOfWindow; // of this engine
  std::map<Id, Expectation> m_expected;
  std::uint64_t m_resolved = 0;
  std::uint64_t m_ranMs = 0; // time that ran wake by wake
  Id m_lastId = 0;
  Id m_idLimit = kIdsPerEngine;
  life::KillWatch m_killWatch;
  int m_restsSinceLook = 0;
  std::vector<Doubt> m_doubts;
  std::size_t m_buffersBefore = 0;

  std::mutex m_lock; // guards what follows; no lock of the library is taken before it
  std::mt19937_64 m_editorRandom;
  std::shared_ptr<VexelSDKThread> m_engine;
  Account m_account;                           // of this engine
  std::map<Id, EditorId> m_ids;                // of this engine
  std::map<Pid, Editor> m_editors;             // by process id; the latest run of it
  std::map<std::uint64_t, std::string> m_said; // by number: what was said and not read
  std::map<Pid, Unread> m_unread;              // of polled links
  std::map<Pid, std::uint64_t> m_lastRead;     // the number of the last text that was read of a process
  std::set<Pid> m_endedPids;
  std::set<Pid> m_linked; // of this engine
  std::map<Pid, bool> m_serves;
  bool m_programServes = true; // those started from now on
  std::size_t m_startsSeen = 0;
  int m_startCalls = -1;
  int m_lostLinks = 0;                                 // of all engines
  std::vector<std::pair<Pid, std::int64_t>> m_leaving; // ends that the editors brought about, for the kill watch
  std::vector<char*> m_held;                           // buffers to be given back later
  std::deque<std::unique_ptr<Slot>> m_slots;
  std::uint64_t m_nextNumber = 1;
  std::uint64_t m_nextEvent = 1;
  std::size_t m_made = 0; // buffers, and what became of them, of this engine
  std::size_t m_freed = 0;
  std::size_t m_told = 0;
  std::size_t m_lost = 0;
  std::uint64_t m_lastBeginMs = 0;
  bool m_anyBegan = false;
  bool m_endingEngine = false;
  std::string m_wrong;
  Figures m_figures;
};
