#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

// What the programs of a run tell each other: memory that they share. Times are NowUs.
namespace bench {

inline constexpr std::size_t kMaxEditors = 160;
inline constexpr std::size_t kKeptTimes = 4096;

/// What the host asks of an editor by an operator code at or above this: to send `events` events.
inline constexpr std::int32_t kSendEvents = 1000;

/// One editor's place. The editor writes, the host reads.
struct EditorPlace {
  std::atomic<std::uint32_t> pid;
  std::atomic<double> readyAt;                // it serves; 0 until then
  std::atomic<double> openedAt;               // it has an "open"; 0 until then
  std::atomic<std::uint32_t> operators;       // texts received behind the "open"
  std::atomic<double> operatorAt[kKeptTimes]; // when each came, round and round
  std::atomic<std::uint32_t> eventsSent;
};

struct Board {
  std::atomic<std::uint32_t> hostPid; // editors end when this process does
  std::atomic<std::uint32_t> editors; // places taken
  std::atomic<std::uint32_t> events;  // how many events kSendEvents asks for
  std::atomic<double> eventPaceMs;    // between two events
  std::atomic<double> eventJitterMs;  // and up to so much more
  std::atomic<double> peerAt;         // a pipe peer's time, such as that of its death
  EditorPlace places[kMaxEditors];
};

/// The variable of the environment that names the board for all processes of a run.
inline constexpr wchar_t kBoardVariable[] = L"VEXELBENCH_BOARD";

/// The board of this run: made by the process that has no name in its environment, which then puts one there, opened by
/// all others. Ends the program when that fails. It stays for the life of the process.
Board& TheBoard();

/// Ends all editors on the board, waits until they have gone, and clears their places.
void EndEditors();

} // namespace bench
