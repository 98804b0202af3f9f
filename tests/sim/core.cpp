#include "tests/sim/core.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "tests/sim/world.h"

namespace sim::internal {
namespace {

// Everything here lives as long as the process: threads may end after the static objects of a test program.
struct Core {
  std::mutex mutex;
  bool stopping = false;
  std::uint32_t nextThreadId = 7000;
  std::uint32_t chosenThreadId = 0; // of the next thread alone, 0: none chosen
  int foreignThreads = 0;           // threads of tests and of the code under test that called in and still live
  std::condition_variable threadEnded;
  std::vector<std::thread> ownThreads;
  int liveOwnThreads = 0;

  std::multimap<std::int64_t, std::function<void()>> tasks;
  std::condition_variable tasksChanged;
  bool schedulerRuns = false;
};

Core& TheCore() {
  static Core& core = *new Core;
  return core;
}

thread_local std::uint32_t t_lastError = 0;
thread_local bool t_own = false;     // of the simulated system
thread_local bool t_counted = false; // among those that a rest waits for

// Knows a thread from its first call until its end. Mutexes that it still owns then are abandoned.
class ThreadRecord {
public:
  ThreadRecord() {
    Lock lock = TakeLock();
    if (!t_own && !IsMainThread()) {
      t_counted = true;
      ++TheCore().foreignThreads;
      BeginTurn(lock);
    }
    id = std::exchange(TheCore().chosenThreadId, 0);
    if (id == 0) {
      id = TheCore().nextThreadId;
      TheCore().nextThreadId += 4;
    }
  }
  ~ThreadRecord() {
    const Lock lock = TakeLock();
    AbandonMutexes(id);
    if (t_counted && !t_own) {
      --TheCore().foreignThreads;
      TheCore().threadEnded.notify_all();
    }
  }
  ThreadRecord(const ThreadRecord&) = delete;
  ThreadRecord& operator=(const ThreadRecord&) = delete;

  std::uint32_t id = 0;
};

const ThreadRecord& Record() {
  thread_local ThreadRecord record;
  return record;
}

void RunScheduler() {
  Lock lock = TakeLock();
  Core& core = TheCore();
  while (!core.stopping) {
    if (core.tasks.empty()) {
      WaitUntil(lock, core.tasksChanged, kNever, [&] { return core.stopping || !core.tasks.empty(); });
      continue;
    }
    const auto first = core.tasks.begin();
    const std::int64_t due = first->first;
    if (NowNs() < due) {
      WaitUntil(lock, core.tasksChanged, due,
                [&] { return core.stopping || core.tasks.empty() || core.tasks.begin()->first < due; });
      continue;
    }
    const std::function<void()> task = std::move(first->second);
    core.tasks.erase(first);
    lock.unlock();
    task();
    lock.lock();
  }
}

} // namespace

std::mutex& Mutex() { return TheCore().mutex; }

Lock TakeLock() { return Lock(Mutex()); }

bool Leave(std::uint32_t error) {
  t_lastError = error;
  return false;
}

std::uint32_t LastError() { return t_lastError; }

bool Stopping() { return TheCore().stopping; }

std::uint32_t ThreadId() { return Record().id; }

void LeaveOut() { t_own = true; }

bool IsMainThread() { return ThreadNumber() == ::getpid(); }

bool IsCounted() { return t_counted; }

long ThreadNumber() { return ::syscall(SYS_gettid); }

void StartOwnThread(std::function<void()> body) {
  OwnThreadBegins();
  TheCore().ownThreads.emplace_back([run = std::move(body)] {
    MarkOwnThread();
    {
      Lock lock = TakeLock();
      BeginTurn(lock);
    }
    run();
    const Lock lock = TakeLock();
    OwnThreadEnds();
  });
}

void MarkOwnThread() {
  t_own = true;
  t_counted = true;
}

void OwnThreadBegins() { ++TheCore().liveOwnThreads; }

void OwnThreadEnds() { --TheCore().liveOwnThreads; }

std::size_t ThreadsAtWork() {
  const int self = t_counted ? 1 : 0;
  return static_cast<std::size_t>(TheCore().foreignThreads + TheCore().liveOwnThreads - self);
}

void Schedule(std::int64_t deadlineNs, std::function<void()> task) {
  Core& core = TheCore();
  if (core.stopping) {
    return;
  }
  if (!core.schedulerRuns) {
    core.schedulerRuns = true;
    StartOwnThread(RunScheduler);
  }
  core.tasks.emplace(deadlineNs, std::move(task));
  core.tasksChanged.notify_all();
}

void Die(const std::string& message) {
  std::fprintf(stderr, "simulated platform: %s\n", message.c_str());
  std::fflush(stderr);
  std::abort();
}

std::wstring Fold(std::wstring_view text) {
  std::wstring folded(text);
  for (wchar_t& unit : folded) {
    const bool ascii = unit >= L'A' && unit <= L'Z';
    const bool latin = unit >= 0xC0 && unit <= 0xDE && unit != 0xD7;
    if (ascii || latin) {
      unit = static_cast<wchar_t>(unit + 32);
    }
  }
  return folded;
}

bool SameText(std::wstring_view a, std::wstring_view b) { return Fold(a) == Fold(b); }

bool CopyText(std::wstring_view text, wchar_t* buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) {
    return false;
  }
  const std::size_t count = text.size() < size ? text.size() : size - 1;
  text.copy(buffer, count);
  buffer[count] = 0;
  return count == text.size();
}

} // namespace sim::internal

namespace sim {

using namespace internal;

void Reset() {
  ThreadId();
  Core& core = TheCore();
  Lock lock = TakeLock();
  core.stopping = true;
  WakeAll();
  core.tasksChanged.notify_all();
  // Servers that the code under test left behind would call into objects that are gone.
  StopServers(lock);
  // A thread that is joined may start no other: Schedule refuses while the world ends.
  while (!core.ownThreads.empty()) {
    std::vector<std::thread> threads = std::exchange(core.ownThreads, {});
    lock.unlock();
    for (std::thread& thread : threads) {
      thread.join();
    }
    lock.lock();
  }
  const int self = !t_own && t_counted ? 1 : 0;
  constexpr auto kLimit = std::chrono::seconds(200);
  if (!core.threadEnded.wait_for(lock, kLimit, [&] { return core.foreignThreads <= self; })) {
    Die("a world was reset while " + std::to_string(core.foreignThreads - self) + " of its threads still run");
  }
  core.tasks.clear();
  core.schedulerRuns = false;
  core.chosenThreadId = 0;
  ResetPipeLibrary();
  ResetHandles();
  ResetSync();
  ResetProcesses();
  ResetWindows();
  ResetRegistry();
  ResetFiles();
  ResetPaths();
  ResetModules();
  ResetDebug();
  ResetFaults();
  ResetClock();
  core.stopping = false;
  lock.unlock();
  BuildWorld();
  Leave(0);
}

void After(std::uint32_t milliseconds, std::function<void()> task) {
  const Lock lock = TakeLock();
  Schedule(DeadlineIn(milliseconds), std::move(task));
}

void SetNextThreadId(std::uint32_t id) {
  const Lock lock = TakeLock();
  TheCore().chosenThreadId = id;
}

int LiveThreads() {
  const Lock lock = TakeLock();
  return TheCore().foreignThreads;
}

} // namespace sim

namespace {

// The first world stands before any test begins, for tests that ask for nothing special.
const bool firstWorldStands = [] {
  sim::Reset();
  return true;
}();

} // namespace
