#pragma once

#include "foundation/function_name.h"
#include "platform/error.h"
#include "platform/types.h"

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

// The log: one text file for each pair of host program and library, shared by all processes that write it. It starts
// itself at the first statement and never reports its own failures. Any thread may log at any time.
namespace vx {

enum LogSeverity : std::int32_t {
  LOG_DEBUG = 0,
  LOG_INFO = 1,
  LOG_WARNING = 2,
  LOG_ERROR = 3,
  LOG_FATAL = 4, // writes its line and ends the process
};

/// What a start does to the file of an earlier run.
enum LogStartMode : std::int32_t {
  LOG_DELETE_OLD = 0,
  LOG_APPEND_OLD = 1,
};

// 0 not started, 1 starting, 2 ready. The thread that starts the log stores the outcome with release; whoever logs,
// waits or starts once more reads it with acquire, and so sees all that the start has set up, failed or not.
inline constinit std::atomic<std::int32_t> log_init_state{0};
// Written only during a start. Relaxed: a number alone, and the pairing of log_init_state shows it to whoever logs.
inline constinit std::atomic<std::int32_t> min_log_level{LOG_INFO};

namespace detail {

[[gnu::cold]] bool EnsureLoggerReadySlow() noexcept;

} // namespace detail

/// Starts the log once; a start that failed is tried again at the next call. True when the log is ready. Waits while
/// another thread starts it. Leaves the thread's last error alone.
inline bool EnsureLoggerReady() noexcept {
  return log_init_state.load(std::memory_order_acquire) == 2 || detail::EnsureLoggerReadySlow();
}

/// The lowest severity that is written.
inline std::int32_t GetMinLogLevel() noexcept { return min_log_level.load(std::memory_order_relaxed); }

/// Sets it, at most to 3: fatal statements and errors are never silenced.
void SetMinLogLevel(std::int32_t level) noexcept;

/// Reads the level from the registry; leaves it alone when there is none.
void ReadLogLevel();

/// `<folder of the executable>\log\<executable stem>.<library file name>.log`, making that folder; empty on failure.
/// @throws std::bad_alloc
std::wstring BuildLogFilePath();

/// A module's full path into `buffer`, 260 units, and the file name inside it. False on a null argument, when the module
/// has no path, and when that has no folder.
bool ModuleFileAndName(platform::Module module, wchar_t* buffer, wchar_t** name) noexcept;

/// Makes the mutex that all writers of the file share; tried again at each line until it is made.
/// @throws std::bad_alloc
void InitLogLock();

/// Reads the level, makes the mutex and opens the file, closing one that is open. True when the file is open.
/// @throws std::bad_alloc
bool InitLogger(const LogStartMode* mode);

/// Opens the file unless it is open, and empties one of more than 10 MiB. True when it is open. The log's lock is held.
/// @throws std::bad_alloc
bool OpenLogFile();

/// Opens or makes a file to append to beside other writers; platform::kInvalidHandle on failure. The caller closes it.
platform::Handle OpenLogFileHandle(const wchar_t* path) noexcept;

/// Closes the file, if it is open. The log's lock is held.
void CloseLogFile() noexcept;

/// Whether a file has more than 10 MiB; false when its size is not to be had.
bool LogFileIsOversized(platform::Handle file) noexcept;

/// What takes the place of the fixed places; an empty or null member keeps the fixed one.
struct LoggerOverrides {
  std::wstring log_path_override;                      // the log file, whose folder exists
  std::wstring level_key_override;                     // the key that holds "LogLevel"
  platform::RegistryKey level_root_override = nullptr; // the root of that key
};

/// For tests: closes the log as if the process had never logged, and takes the overrides for the next start. No other
/// thread may be logging.
/// @throws std::bad_alloc
void ResetLogger(const LoggerOverrides& overrides);

/// Holds the log's lock for its own life. Blocks without limit for other writers; without a lock it does nothing.
class LogLockGuard {
public:
  LogLockGuard() noexcept;
  ~LogLockGuard();
  LogLockGuard(const LogLockGuard&) = delete;
  LogLockGuard& operator=(const LogLockGuard&) = delete;

private:
  platform::Handle m_lock;
};

/// One statement: takes its header at the start and its operands one by one, and writes its line when it dies. Lives on
/// the stack of the logging thread, which finds its last error unchanged behind the statement. Nothing here throws;
/// what memory does not suffice for is missing from the line.
class LogMessage {
public:
  /// `sourceFile` is borrowed for the object's life. `lastError` is what the thread gets back behind the statement.
  LogMessage(const wchar_t* sourceFile, std::int32_t sourceLine, LogSeverity level,
             std::uint32_t lastError = platform::GetLastError()) noexcept;
  ~LogMessage();
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  /// Wide text as it is, up to its NUL; nothing for null.
  LogMessage& operator<<(const wchar_t* text) noexcept;
  LogMessage& operator<<(std::wstring_view text) noexcept;

  /// Narrow text, not decoded: each byte becomes the one unit of its value. Nothing for null.
  LogMessage& operator<<(const char* text) noexcept;
  LogMessage& operator<<(std::string_view text) noexcept;

  /// Numbers in decimal, booleans as 0 or 1.
  template <std::integral Value>
  requires(!std::same_as<Value, char> && !std::same_as<Value, wchar_t>) LogMessage& operator<<(Value value) noexcept {
    if constexpr (std::is_signed_v<Value>) {
      return Append(static_cast<std::int64_t>(value));
    } else {
      return Append(static_cast<std::uint64_t>(value));
    }
  }

private:
  LogMessage& Append(std::int64_t value) noexcept;
  LogMessage& Append(std::uint64_t value) noexcept;
  void WriteHeader();
  std::size_t Flush(char* head, std::size_t headSize) noexcept;

  LogSeverity severity;
  std::wostringstream stream;
  const wchar_t* file;
  std::int32_t line;
  std::uint32_t saved_last_error;
};

/// Whether a statement of that severity is written: the only cost of one that is not.
/// The compiler is told to expect no line: one that is written costs a thousand times more than a jump to it.
inline bool ShouldLog(LogSeverity severity) noexcept {
  if (!EnsureLoggerReady()) [[unlikely]] {
    return false;
  }
  if (severity < GetMinLogLevel()) [[likely]] {
    return false;
  }
  return true;
}

namespace detail {

/// Gives both arms of the statement's condition one type.
struct LogVoid {
  void operator&(const LogMessage&) const noexcept {}
};

} // namespace detail

} // namespace vx

// A severity reads the same at every site.
using enum vx::LogSeverity;

/// `SDKLOG(LOG_INFO) << "pid=" << pid;` writes one line that starts with the enclosing function's qualified name and a
/// blank. The operands of a statement below the log's level are not evaluated. One expression, so it needs no braces.
#define SDKLOG(severity)                                                                                               \
  !::vx::ShouldLog(severity) ? static_cast<void>(0)                                                                    \
                             : ::vx::detail::LogVoid() & ::vx::LogMessage(L"" __FILE__, __LINE__, severity)            \
                                                             << ::vx::QualifiedFunctionName(__PRETTY_FUNCTION__).text  \
                                                             << " "
