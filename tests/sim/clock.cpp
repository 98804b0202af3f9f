#include "tests/sim/clock.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <utility>

#include "tests/sim/core.h"

namespace sim {

using namespace internal;
using Real = std::chrono::steady_clock;

namespace {

constexpr std::int64_t kStepsPerMs = 10'000;
constexpr std::int64_t kStepsPerDay = 864'000'000'000;
constexpr std::int64_t kStepsPerMinute = 600'000'000;
constexpr std::int64_t kDaysTo1601 = 584'694;               // from the first of March of the year 0
constexpr std::uint64_t kFirstTick = 3'600'000;             // the machine has been up for an hour
constexpr std::int64_t kFirstUtc = 134'129'382'450'000'000; // some moment in January 2026

struct Waiter {
  std::condition_variable* changed;
  std::int64_t deadlineNs;
  std::int64_t askedMs; // what it was asked for, -1 for a deadline that was not counted from its beginning
  const std::function<bool()>* done;
  bool over = false;    // its time is up, while the clock stands
  bool counted = true;  // by a thread that a rest waits for
  bool granted = false; // its turn has come, where threads take turns
  long begin = 0;       // for a thread that begins: its place among those, else 0
};

struct Clock {
  double speed = 1;
  Real::time_point realBase = Real::now();
  std::int64_t simBaseNs = 0;
  std::int64_t tickOffsetMs = static_cast<std::int64_t>(kFirstTick);
  std::int64_t utcOffset = kFirstUtc;
  int zoneMinutes = 60;
  bool turns = false;      // threads take turns while the clock stands
  std::list<Waiter> waits; // in the order in which they began
};

// Told of every wait that begins.
std::condition_variable& WaitBegan() {
  static std::condition_variable& began = *new std::condition_variable;
  return began;
}

Clock& TheClock() {
  static Clock& clock = *new Clock;
  return clock;
}

// The length that the calling thread last asked for, and the deadline that it became. The wait begins somewhat later, and
// with a clock that runs much later on a machine that is busy.
struct Asked {
  std::int64_t deadlineNs = kNever;
  std::int64_t milliseconds = -1;
};
thread_local Asked t_asked;

// Makes the present the new base, so that a change of speed leaves the past alone.
void Rebase() {
  const std::int64_t now = NowNs();
  TheClock().realBase = Real::now();
  TheClock().simBaseNs = now;
}

bool AllWait() {
  const auto& waits = TheClock().waits;
  const auto count =
      std::count_if(waits.begin(), waits.end(), [](const Waiter& wait) { return wait.counted && !wait.granted; });
  return static_cast<std::size_t>(count) == ThreadsAtWork();
}

// The first wait that can end, null for none.
Waiter* FirstReady() {
  auto& waits = TheClock().waits;
  const auto ready = std::find_if(waits.begin(), waits.end(),
                                  [](const Waiter& wait) { return !wait.granted && (wait.over || (*wait.done)()); });
  return ready == waits.end() ? nullptr : &*ready;
}

// Whether waits end in turn only. The main thread gives the turns, so it takes none itself.
bool TakesTurns() { return TheClock().turns && TheClock().speed <= 0 && !Stopping() && !IsMainThread(); }

} // namespace

namespace internal {

std::int64_t NowNs() {
  const Clock& clock = TheClock();
  const auto real = std::chrono::duration_cast<std::chrono::nanoseconds>(Real::now() - clock.realBase).count();
  return clock.simBaseNs + static_cast<std::int64_t>(static_cast<double>(real) * clock.speed);
}

std::int64_t UtcAt(std::int64_t nowNs) { return TheClock().utcOffset + nowNs / 100; }

std::int64_t DeadlineIn(std::uint32_t milliseconds) {
  if (milliseconds == 0xFFFFFFFFu) {
    return kNever;
  }
  t_asked = {NowNs() + static_cast<std::int64_t>(milliseconds) * kNsPerMs, static_cast<std::int64_t>(milliseconds)};
  return t_asked.deadlineNs;
}

bool WaitUntil(Lock& lock, std::condition_variable& changed, std::int64_t deadlineNs,
               const std::function<bool()>& done) {
  Clock& clock = TheClock();
  const std::int64_t asked = deadlineNs == t_asked.deadlineNs ? t_asked.milliseconds : -1;
  const auto place = clock.waits.insert(
      clock.waits.end(), {&changed, deadlineNs, asked, &done, deadlineNs <= NowNs(), IsCounted(), false, 0});
  bool result = done();
  while (!result) {
    WaitBegan().notify_all();
    if (TakesTurns()) {
      while (!place->granted && TakesTurns()) {
        changed.wait(lock);
      }
      place->granted = false;
      result = done();
      if (!result && place->over) {
        break;
      }
      continue;
    }
    if (deadlineNs == kNever) {
      changed.wait(lock);
    } else {
      const std::int64_t left = deadlineNs - NowNs();
      if (left <= 0 && (place->over || clock.speed > 0)) {
        break;
      }
      if (clock.speed <= 0) {
        changed.wait(lock);
      } else {
        constexpr double kLongest = 3.6e12; // an hour of real time; then it looks again
        const double real = static_cast<double>(left) / clock.speed + 1;
        changed.wait_for(lock, std::chrono::nanoseconds(static_cast<std::int64_t>(real < kLongest ? real : kLongest)));
      }
    }
    result = done();
  }
  clock.waits.erase(place);
  return result;
}

void BeginTurn(Lock& lock) {
  if (!TakesTurns()) {
    return;
  }
  // Threads that begin together are told apart by the order in which they were made.
  static std::condition_variable& turn = *new std::condition_variable;
  static const std::function<bool()>& done = *new std::function<bool()>([] { return true; });
  Clock& clock = TheClock();
  const long number = ThreadNumber();
  const auto behind = std::find_if(clock.waits.begin(), clock.waits.end(),
                                   [number](const Waiter& wait) { return wait.begin > number; });
  const auto place = clock.waits.insert(behind, {&turn, kNever, -1, &done, false, IsCounted(), false, number});
  WaitBegan().notify_all();
  while (!place->granted && TakesTurns()) {
    turn.wait(lock);
  }
  clock.waits.erase(place);
}

void WakeAll() {
  for (const Waiter& wait : TheClock().waits) {
    wait.changed->notify_all();
  }
}

std::int64_t ZoneSteps() { return TheClock().zoneMinutes * kStepsPerMinute; }

bool SplitTime(std::int64_t steps, platform::SystemTime* parts) {
  if (steps < 0) {
    return false;
  }
  const std::int64_t days = steps / kStepsPerDay;
  const std::int64_t ms = steps % kStepsPerDay / kStepsPerMs;
  // Years that begin in March put the leap day last, so that the month follows from the day by one formula.
  const std::int64_t z = days + kDaysTo1601;
  const std::int64_t era = z / 146'097;
  const std::int64_t dayOfEra = z % 146'097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shifted = (5 * dayOfYear + 2) / 153;
  const std::int64_t month = shifted < 10 ? shifted + 3 : shifted - 9;
  parts->year = static_cast<std::uint16_t>(era * 400 + yearOfEra + (month <= 2 ? 1 : 0));
  parts->month = static_cast<std::uint16_t>(month);
  parts->day = static_cast<std::uint16_t>(dayOfYear - (153 * shifted + 2) / 5 + 1);
  parts->dayOfWeek = static_cast<std::uint16_t>((days + 1) % 7);
  parts->hour = static_cast<std::uint16_t>(ms / 3'600'000);
  parts->minute = static_cast<std::uint16_t>(ms / 60'000 % 60);
  parts->second = static_cast<std::uint16_t>(ms / 1000 % 60);
  parts->milliseconds = static_cast<std::uint16_t>(ms % 1000);
  return true;
}

void ResetClock() {
  Clock& clock = TheClock();
  // Moved and not copied: a wait in progress keeps its place in the list.
  std::list<Waiter> waits = std::move(clock.waits);
  clock = Clock();
  clock.waits = std::move(waits);
}

} // namespace internal

void SetClockSpeed(double multiple) {
  const Lock lock = TakeLock();
  Rebase();
  TheClock().speed = multiple;
  for (Waiter& wait : TheClock().waits) {
    wait.over = wait.deadlineNs <= NowNs();
  }
  WakeAll();
}

void StopAtFullMinute() {
  SetClockSpeed(0);
  constexpr std::int64_t kMinuteNs = 60'000 * kNsPerMs;
  const Lock lock = TakeLock();
  TheClock().simBaseNs = (TheClock().simBaseNs / kMinuteNs + 1) * kMinuteNs;
}

void AdvanceMs(std::uint64_t milliseconds) {
  const Lock lock = TakeLock();
  TheClock().simBaseNs += static_cast<std::int64_t>(milliseconds) * kNsPerMs;
  for (Waiter& wait : TheClock().waits) {
    wait.over = wait.deadlineNs <= NowNs();
  }
  WakeAll();
}

bool WaitForRest(int seconds) {
  const auto limit = Real::now() + std::chrono::seconds(seconds);
  Lock lock = TakeLock();
  while (true) {
    if (AllWait()) {
      Waiter* const ready = FirstReady();
      if (ready == nullptr) {
        return true;
      }
      if (TheClock().turns) {
        ready->granted = true;
        ready->changed->notify_all();
      }
    }
    if (Real::now() >= limit) {
      return false;
    }
    // The end of a thread is not told, so it looks again by itself.
    WaitBegan().wait_for(lock, std::chrono::milliseconds(2));
  }
}

void TakeTurns(bool turns) {
  const Lock lock = TakeLock();
  TheClock().turns = turns;
  WakeAll();
}

void StandAside() { LeaveOut(); }

namespace {

// Moves time to the end of the wait that ends next, or to the limit when none ends before. True when a wait ends. Needs
// the mutex.
bool StepTowards(std::int64_t limit) {
  Clock& clock = TheClock();
  // Of those that end together the one that began first: min_element returns the first of equals.
  const auto next = std::min_element(clock.waits.begin(), clock.waits.end(),
                                     [](const Waiter& a, const Waiter& b) { return a.deadlineNs < b.deadlineNs; });
  if (next == clock.waits.end() || next->deadlineNs > limit) {
    clock.simBaseNs = limit;
    return false;
  }
  clock.simBaseNs = std::max(clock.simBaseNs, next->deadlineNs);
  next->over = true;
  next->changed->notify_all();
  return true;
}

} // namespace

bool StepToNextWake(std::uint64_t milliseconds) {
  const Lock lock = TakeLock();
  return StepTowards(NowNs() + static_cast<std::int64_t>(milliseconds) * kNsPerMs);
}

bool LetPass(std::uint64_t milliseconds) {
  // Not rounded: a wait of that length that has begun at the same time must end within.
  const auto now = [] {
    const Lock lock = TakeLock();
    return NowNs();
  };
  const std::int64_t until = now() + static_cast<std::int64_t>(milliseconds) * kNsPerMs;
  while (WaitForRest()) {
    if (now() >= until) {
      return true;
    }
    const Lock lock = TakeLock();
    StepTowards(until);
  }
  return false;
}

void LeapMs(std::uint64_t milliseconds) {
  const Lock lock = TakeLock();
  TheClock().simBaseNs += static_cast<std::int64_t>(milliseconds) * kNsPerMs;
}

bool SomeoneWaitsFor(std::uint32_t milliseconds) {
  const Lock lock = TakeLock();
  return std::any_of(TheClock().waits.begin(), TheClock().waits.end(), [milliseconds](const Waiter& wait) {
    return wait.deadlineNs != kNever && wait.askedMs == static_cast<std::int64_t>(milliseconds);
  });
}

std::uint64_t NowMs() {
  const Lock lock = TakeLock();
  return static_cast<std::uint64_t>(NowNs() / kNsPerMs);
}

void SetTickCount64(std::uint64_t milliseconds) {
  const Lock lock = TakeLock();
  TheClock().tickOffsetMs = static_cast<std::int64_t>(milliseconds) - NowNs() / kNsPerMs;
}

void SetUtc(std::int64_t steps) {
  const Lock lock = TakeLock();
  TheClock().utcOffset = steps - NowNs() / 100;
}

std::int64_t GetUtc() {
  const Lock lock = TakeLock();
  return UtcAt(NowNs());
}

void SetTimeZone(int minutes) {
  const Lock lock = TakeLock();
  TheClock().zoneMinutes = minutes;
}

std::int64_t StepsOf(const platform::SystemTime& time) {
  const std::int64_t year = time.month <= 2 ? time.year - 1 : time.year;
  const std::int64_t shifted = time.month > 2 ? time.month - 3 : time.month + 9;
  const std::int64_t dayOfYear = (153 * shifted + 2) / 5 + time.day - 1;
  const std::int64_t days = 365 * year + year / 4 - year / 100 + year / 400 + dayOfYear - kDaysTo1601;
  const std::int64_t ms = ((time.hour * 60LL + time.minute) * 60 + time.second) * 1000 + time.milliseconds;
  return days * kStepsPerDay + ms * kStepsPerMs;
}

} // namespace sim

namespace platform {

using namespace sim::internal;

std::uint32_t GetTickCount() {
  const Call call("GetTickCount");
  return static_cast<std::uint32_t>(NowNs() / kNsPerMs + sim::TheClock().tickOffsetMs);
}

std::uint64_t GetTickCount64() {
  const Call call("GetTickCount64");
  return static_cast<std::uint64_t>(NowNs() / kNsPerMs + sim::TheClock().tickOffsetMs);
}

SystemTime GetLocalTime() {
  const Call call("GetLocalTime");
  SystemTime parts{};
  SplitTime(UtcAt(NowNs()) + ZoneSteps(), &parts);
  return parts;
}

} // namespace platform
