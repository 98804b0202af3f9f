#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

// What the sources of the simulated platform share. Tests include the headers of the single concerns instead.
//
// One mutex guards the whole simulated system, so no order of locks is needed inside it. It is never held while code of
// the system under test or of a test runs: callbacks are called with it released.
namespace sim::internal {

/// The mutex of the whole simulated system.
std::mutex& Mutex();

using Lock = std::unique_lock<std::mutex>;

/// Takes the mutex of the whole simulated system.
Lock TakeLock();

/// One entry into an operation: takes the mutex until it goes out of scope, counts the call, and knows whether a fault
/// was asked for it.
class Call {
public:
  explicit Call(std::string_view operation);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  /// True when this call is to fail; the thread's last error is then `error`, or the one that the fault carries.
  bool Fails(std::uint32_t error);

  /// Whether this call is to fail, and the error to report: for operations that return it rather than leave it.
  std::optional<std::uint32_t> FailsWith(std::uint32_t error) const;

  Lock& GetLock() { return m_lock; }

private:
  Lock m_lock;
  bool m_fails = false;
  std::optional<std::uint32_t> m_error;
};

/// Sets the thread's last error and returns false.
bool Leave(std::uint32_t error);

/// The thread's last error.
std::uint32_t LastError();

/// Nanoseconds of simulated time since the world began. Needs the mutex.
std::int64_t NowNs();

/// 100-nanosecond steps since 1601 in UTC at a moment of simulated time. Needs the mutex.
std::int64_t UtcAt(std::int64_t nowNs);

inline constexpr std::int64_t kNever = INT64_MAX;
inline constexpr std::int64_t kNsPerMs = 1'000'000;

/// The moment `milliseconds` from now; kNever for 0xFFFFFFFF. Needs the mutex.
std::int64_t DeadlineIn(std::uint32_t milliseconds);

/// Waits on `changed` until `done` holds or simulated time reaches `deadlineNs`; returns the last value of `done`.
/// `done` runs with the mutex held. Follows changes of the clock's speed.
bool WaitUntil(Lock& lock, std::condition_variable& changed, std::int64_t deadlineNs,
               const std::function<bool()>& done);

/// Wakes every wait, so that each looks at the clock and at its condition again. Needs the mutex.
void WakeAll();

/// True while the world ends: waits on behalf of simulated programs and of the pipe library give up. Needs the mutex.
bool Stopping();

/// A number of the calling thread, as the system would give it.
std::uint32_t ThreadId();

/// Starts a thread that belongs to the simulated system; Reset joins it. Needs the mutex.
void StartOwnThread(std::function<void()> body);

/// Marks the calling thread as one that Reset does not wait for.
void MarkOwnThread();

/// Whether it is the main thread, and whether it counts among ThreadsAtWork.
bool IsMainThread();
bool IsCounted();

/// The number that the machine under the tests gave the calling thread: larger for one that was made later.
long ThreadNumber();

/// Where threads take turns: waits until the calling thread, which has just begun, may go on. Needs the mutex.
void BeginTurn(Lock& lock);

/// Leaves the calling thread, which has not called in yet, out of all counts.
void LeaveOut();

/// Counts the threads of the simulated system, those of StartOwnThread by themselves. Both need the mutex.
void OwnThreadBegins();
void OwnThreadEnds();

/// The threads that called the platform or belong to the simulated system and still run, without the main thread and
/// the caller. Needs the mutex.
std::size_t ThreadsAtWork();

/// Runs `task` on a thread of the simulated system once simulated time reaches `deadlineNs`. Needs the mutex.
void Schedule(std::int64_t deadlineNs, std::function<void()> task);

/// Ends the test program with a message: the test itself or the code under test broke a rule of the platform.
[[noreturn]] void Die(const std::string& message);

/// Lower case for comparing names: ASCII and Latin-1 letters.
std::wstring Fold(std::wstring_view text);

bool SameText(std::wstring_view a, std::wstring_view b);

/// Copies `text` and its terminator when it fits, else cuts it and terminates all the same. Returns whether it fitted.
bool CopyText(std::wstring_view text, wchar_t* buffer, std::size_t size);

// Each concern puts its own state back. All need the mutex.
void ResetClock();
void ResetDebug();
void ResetFaults();
void ResetFiles();
void ResetHandles();
void ResetModules();
void ResetPaths();
void ResetPipeLibrary();
void ResetProcesses();
void ResetRegistry();
void ResetSync();
void ResetWindows();

/// Stops and destroys every pipe server that was not released. Needs the mutex, and releases it for a while.
void StopServers(Lock& lock);

/// Gives up every mutex that a thread owns; each becomes abandoned. Needs the mutex of the system.
void AbandonMutexes(std::uint32_t thread);

// Error codes that more than one concern gives.
inline constexpr std::uint32_t kFileNotFound = 2;
inline constexpr std::uint32_t kPathNotFound = 3;
inline constexpr std::uint32_t kAccessDenied = 5;
inline constexpr std::uint32_t kInvalidHandleValue = 6;
inline constexpr std::uint32_t kNotEnoughMemory = 8;
inline constexpr std::uint32_t kNoMoreFiles = 18;
inline constexpr std::uint32_t kInvalidParameter = 87;
inline constexpr std::uint32_t kBrokenPipe = 109;
inline constexpr std::uint32_t kDiskFull = 112;
inline constexpr std::uint32_t kInsufficientBuffer = 122;
inline constexpr std::uint32_t kModuleNotFound = 126;
inline constexpr std::uint32_t kProcedureNotFound = 127;

} // namespace sim::internal
