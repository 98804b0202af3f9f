#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// What the code under test tells the debugger, and how it ends.
namespace sim {

/// The texts given to OutputDebugStringA, in order.
std::vector<std::string> DebugTexts();

/// How often DebugBreak was called. A break goes on, as under a debugger that continues.
int DebugBreaks();

/// Thrown by ExitNow when a test asked for it.
struct ProcessExit {
  std::uint32_t status;
};

enum class ExitAction {
  kEndProgram, // writes "simulated platform: ExitNow(<status>)" to stderr and ends the test program with that status,
               // no clean-up: a test sees it by EXPECT_EXIT
  kThrow,      // throws ProcessExit, for code that is no destructor
};

/// What ExitNow does after it was recorded; kEndProgram in a fresh world.
void SetExitAction(ExitAction action);

/// Runs before ExitNow ends the program, on the thread that called it: what a death test wants to see of the world that
/// ends there, it writes to stderr. None in a fresh world.
void AtExitNow(std::function<void()> look);

/// The statuses given to ExitNow, in order.
std::vector<std::uint32_t> ExitStatuses();

} // namespace sim
