#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace example {

/// Ways to misbehave on demand, so that a host can be tested against an editor that hangs, dies or floods. All off is a
/// well-behaved editor. A time of -1 means off.
struct Zoo {
  bool hang = false;
  bool dieAtStart = false;
  bool dieOnOpen = false;
  bool dieMidMessage = false;
  bool neverServe = false;
  std::int32_t flood = 0;
  std::int32_t slowMs = 0;
  std::int32_t exitAfterOpenMs = -1;
  std::int32_t crashAfterOpenMs = -1;
  std::vector<std::string> events;
};

/// Reads the list of switches, separated by ";". A switch with a program's file name and ":" before it counts for that
/// program only. What is unknown is passed over.
Zoo ParseZoo(const std::string& list, const std::string& programName);

/// Writes the beginning of an event to that pipe, by itself and not through the pipe library, and ends the process as
/// Crash does before the rest.
[[noreturn]] void CrashInMidMessage(const std::string& pipeName);

/// Ends this process at once and without any announcement, with exit code 3.
[[noreturn]] void Crash();

} // namespace example
