#pragma once

#include <cstdint>

#include "platform/clock.h"

// Simulated time. Sleep, waits, tick counts, the wall clock and creation times all follow it.
namespace sim {

/// Lets simulated time run `multiple` times as fast as real time from now on; 1 in a fresh world. 0 stops it, so that
/// only AdvanceMs moves it. Waits in progress follow at once.
void SetClockSpeed(double multiple);

/// Stops the clock at the next full minute since the world began, so that what follows bears the same times however long
/// the machine took to come here.
void StopAtFullMinute();

/// Moves simulated time ahead at once. Waits whose time is then over return.
void AdvanceMs(std::uint64_t milliseconds);

/// With the clock stopped: waits until every thread that has called the platform and every thread of the simulated
/// system waits in it, for time or for one another; the caller and the main thread aside. What a test then reads stays
/// as it is until it acts. False when `seconds` of real time did not suffice.
bool WaitForRest(int seconds = 200);

/// With `turns`, one thread runs at a time while the clock stands: waits end, and threads begin, only within WaitForRest
/// on the main thread, one after the other in the order in which they began. What then happens is the same each time. Code
/// under test must not make a thread wait for time while it holds a lock that another one takes. Off in a fresh world.
void TakeTurns(bool turns);

/// The calling thread is none that a rest waits for, as the main thread is. To be called before all else here.
void StandAside();

/// With the clock stopped and the world at rest: moves time to the end of the wait that ends next, or by
/// `milliseconds` when none ends before. Waits that begin while the clock stands end one by one, in the order of their
/// beginning if they end together. True when a wait ends.
bool StepToNextWake(std::uint64_t milliseconds);

/// With the clock stopped: moves time ahead and ends no wait; StepToNextWake then ends one by one those that are over.
void LeapMs(std::uint64_t milliseconds);

/// With the clock stopped: lets `milliseconds` pass, each wait ending at its own time, however slow the machine is. False
/// when the world does not come to rest.
bool LetPass(std::uint64_t milliseconds);

/// Whether some thread waits, having asked for so many milliseconds.
bool SomeoneWaitsFor(std::uint32_t milliseconds);

/// Milliseconds of simulated time since the world began.
std::uint64_t NowMs();

/// Sets what GetTickCount64 says now. It goes on from there.
void SetTickCount64(std::uint64_t milliseconds);

/// Sets the wall clock in UTC, in 100-nanosecond steps since 1601. It goes on from there.
void SetUtc(std::int64_t steps);

/// The wall clock in UTC, in 100-nanosecond steps since 1601.
std::int64_t GetUtc();

/// Local time less UTC, in minutes; 60 in a fresh world.
void SetTimeZone(int minutes);

/// A calendar time as 100-nanosecond steps since 1601. The day of the week is not looked at.
std::int64_t StepsOf(const platform::SystemTime& time);

namespace internal {
/// Splits 100-nanosecond steps since 1601. False for values below 0.
bool SplitTime(std::int64_t steps, platform::SystemTime* parts);
/// Local time less UTC in 100-nanosecond steps. Needs the mutex.
std::int64_t ZoneSteps();
} // namespace internal

} // namespace sim
