#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Faults on demand, and counters of calls.
namespace sim {

enum FaultMode { kOnce, kForever };

/// Makes the `nth` call (1 is the next one) of an operation fail, once or from then on, in that operation's own way of
/// failing. `error` is the last error, or the code returned; 0 takes the one that is usual for the operation. One fault
/// for each operation: a second call replaces the first. An unknown name, or one that can't fail, ends the program.
///
/// A CloseHandle or RegCloseKey that fails leaves its handle open, and a TerminateProcess that fails ends nothing.
void FailNth(std::string_view operation, int nth, FaultMode mode = kOnce, std::uint32_t error = 0);

/// Makes every call from the next one on fail.
void FailAlways(std::string_view operation, std::uint32_t error = 0);

/// Takes all faults away. The counters stay.
void ClearFaults();

/// How many calls failed on demand since the world began. A sweep is done when a run leaves this at 0.
int FaultsFired();
int FaultsFired(std::string_view operation);

/// How often an operation was called since the world began.
int CallCount(std::string_view operation);

/// The names of all operations, and of those that can fail. Besides the platform's functions these are the entries of
/// PSAPI and of the pipe library, and the latter's server operations as "PipeServer::SetMsgProcessor" and
/// "PipeServer::Start".
const std::vector<std::string>& AllOperations();
const std::vector<std::string>& FailableOperations();

} // namespace sim
