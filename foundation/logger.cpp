#include "foundation/logger.h"

#include "foundation/paths.h"
#include "foundation/text_codecs.h"
#include "platform/clock.h"
#include "platform/debug.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "platform/text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iomanip>
#include <ios>
#include <iterator>

namespace vx {
namespace {

constexpr std::int32_t kNotStarted = 0;
constexpr std::int32_t kStarting = 1;
constexpr std::int32_t kReady = 2;

constexpr std::int32_t kHighestLevel = LOG_ERROR; // what is worse can't be shut off
constexpr std::int64_t kLargestFile = 0xA00000;   // bytes
constexpr std::size_t kFatalTextSize = 1024;      // bytes

/// The optional fields of a line.
namespace LogHeaderFlags {
constexpr bool show_process_id = false;
constexpr bool show_thread_id = true;
constexpr bool show_timestamp = true;
constexpr bool show_tick_count = false;
} // namespace LogHeaderFlags

// The process's one log. Nothing of it is given back before the process ends: the last statement may come from anywhere.
// The named mutex guards the file. Where the system grants no mutex, threads meet here all the same, so each handle is an
// atomic and the thread that comes second gives its own handle back.
//
// log_file, log_lock: the exchange that puts a handle in has release, each load of it acquire, so what was done to the
// file before (its end, its cut) comes before the line. log_lock_ready: stored with release behind log_lock and read
// with acquire, so whoever reads true reads a handle too.
constinit std::atomic<platform::Handle> log_file{nullptr};
constinit std::atomic<platform::Handle> log_lock{nullptr};
constinit std::atomic<bool> log_lock_ready{false};
constinit std::wstring* log_file_path = nullptr;          // set by the thread that starts the log, then only read
constinit const LoggerOverrides* log_overrides = nullptr; // set while nothing logs

/// The finished path, once there is one.
std::wstring& LogPathCache() {
  static std::wstring log_path_cache;
  return log_path_cache;
}

const wchar_t* SeverityName(LogSeverity severity) noexcept {
  static constexpr const wchar_t* kNames[] = {L"DEBUG", L"INFO", L"WARNING", L"ERROR", L"FATAL"};
  return severity >= 0 && severity < static_cast<std::int32_t>(std::size(kNames)) ? kNames[severity] : L"UNKNOWN";
}

std::wstring_view BaseName(std::wstring_view path) noexcept {
  const std::size_t separator = path.find_last_of(L"\\/");
  return separator == std::wstring_view::npos ? path : path.substr(separator + 1);
}

/// Gives the thread's last error back as it was.
class LastErrorKeeper {
public:
  LastErrorKeeper() noexcept : m_lastError(platform::GetLastError()) {}
  ~LastErrorKeeper() { platform::SetLastError(m_lastError); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
  std::uint32_t m_lastError;
};

/// Where a fatal line could be handed on before the process ends.
void OnFatalText(const char*, std::size_t) noexcept {}

} // namespace

namespace detail {

bool EnsureLoggerReadySlow() noexcept {
  const LastErrorKeeper keeper;
  std::int32_t state = kNotStarted;
  if (log_init_state.compare_exchange_strong(state, kStarting, std::memory_order_acquire, std::memory_order_relaxed)) {
    SetMinLogLevel(LOG_INFO);
    bool ready = false;
    try {
      const LogStartMode mode = LOG_APPEND_OLD;
      ready = InitLogger(&mode);
    } catch (...) {
      ready = false; // the next statement tries again
    }
    log_init_state.store(ready ? kReady : kNotStarted, std::memory_order_release);
    return ready;
  }
  while (log_init_state.load(std::memory_order_acquire) == kStarting) {
    platform::Sleep(0);
  }
  return log_init_state.load(std::memory_order_acquire) == kReady;
}

} // namespace detail

void SetMinLogLevel(std::int32_t level) noexcept {
  min_log_level.store(std::min(level, kHighestLevel), std::memory_order_relaxed);
}

void ReadLogLevel() {
  platform::RegistryKey root = platform::kHkeyLocalMachine;
  const wchar_t* path = L"Software\\Tarnwick\\antivirus\\sysopt";
  if (log_overrides != nullptr) {
    root = log_overrides->level_root_override != nullptr ? log_overrides->level_root_override : root;
    path = log_overrides->level_key_override.empty() ? path : log_overrides->level_key_override.c_str();
  }
  platform::RegistryKey key = nullptr;
  if (platform::RegOpenKeyExW(root, path, platform::kKeyRead, &key) != 0) {
    return;
  }
  std::uint32_t value = 0;
  std::uint32_t size = sizeof value;
  // Four bytes of any type count.
  if (platform::RegQueryValueExW(key, L"LogLevel", nullptr, &value, &size) == 0) {
    SetMinLogLevel(value < 5 ? static_cast<std::int32_t>(value) : LOG_INFO);
  }
  platform::RegCloseKey(key);
}

bool ModuleFileAndName(platform::Module module, wchar_t* buffer, wchar_t** name) noexcept {
  if (buffer == nullptr || name == nullptr || platform::GetModuleFileNameW(module, buffer, platform::kMaxPath) == 0) {
    return false;
  }
  *name = buffer + (platform::PathFindFileNameW(buffer) - buffer);
  return *name != buffer;
}

std::wstring BuildLogFilePath() {
  if (log_overrides != nullptr && !log_overrides->log_path_override.empty()) {
    return log_overrides->log_path_override;
  }
  std::wstring& log_path_cache = LogPathCache();
  if (!log_path_cache.empty()) {
    return log_path_cache;
  }
  std::array<wchar_t, platform::kMaxPath> path{};
  if (platform::GetModuleFileNameW(nullptr, path.data(), platform::kMaxPath) == 0) {
    return log_path_cache;
  }
  platform::PathRemoveFileSpecW(path.data());
  if (!platform::PathAppendW(path.data(), L"\\log\\")) {
    return log_path_cache;
  }
  if (!platform::CreateDirectoryW(path.data()) && platform::GetLastError() != platform::kErrorAlreadyExists) {
    return log_path_cache;
  }
  std::array<wchar_t, platform::kMaxPath> module{};
  wchar_t* name = nullptr;
  if (!ModuleFileAndName(nullptr, module.data(), &name)) {
    return log_path_cache;
  }
  platform::PathRemoveExtensionW(name);
  if (!platform::PathAppendW(path.data(), name)) {
    return log_path_cache;
  }
  const platform::Module library = ThisModule(); // null would name the executable a second time
  if (library == nullptr || !ModuleFileAndName(library, module.data(), &name)) {
    return log_path_cache;
  }
  log_path_cache = std::wstring(path.data()) + L"." + name + L".log";
  return log_path_cache;
}

void InitLogLock() {
  if (log_lock_ready.load(std::memory_order_acquire)) {
    return;
  }
  if (log_lock.load(std::memory_order_acquire) == nullptr) {
    std::wstring name = BuildLogFilePath();
    if (name.empty()) {
      return; // a lock of no file would be kept for the file of a later start
    }
    std::replace(name.begin(), name.end(), L'\\', L'/');
    const platform::Handle mutex = platform::CreateMutexW(false, (L"Global\\" + name).c_str());
    if (mutex == nullptr) {
      return;
    }
    platform::Handle none = nullptr;
    if (!log_lock.compare_exchange_strong(none, mutex, std::memory_order_release, std::memory_order_relaxed)) {
      platform::CloseHandle(mutex);
    }
  }
  log_lock_ready.store(true, std::memory_order_release);
}

bool InitLogger(const LogStartMode* mode) {
  ReadLogLevel();
  InitLogLock();
  const LogLockGuard lock;
  CloseLogFile();
  if (log_file_path == nullptr) {
    log_file_path = new std::wstring;
  }
  *log_file_path = BuildLogFilePath();
  if (mode != nullptr && *mode == LOG_DELETE_OLD) {
    platform::DeleteFileW(log_file_path->c_str());
  }
  return OpenLogFile();
}

bool OpenLogFile() {
  if (log_file.load(std::memory_order_acquire) != nullptr) {
    return true;
  }
  if (log_file_path == nullptr) {
    log_file_path = new std::wstring(BuildLogFilePath());
  }
  const platform::Handle file = OpenLogFileHandle(log_file_path->c_str());
  if (file == platform::kInvalidHandle || file == nullptr) {
    return false;
  }
  if (LogFileIsOversized(file)) {
    platform::SetFilePointer(file, 0, platform::kFileBegin);
    platform::SetEndOfFile(file);
  } else {
    platform::SetFilePointer(file, 0, platform::kFileEnd);
  }
  platform::Handle none = nullptr;
  if (!log_file.compare_exchange_strong(none, file, std::memory_order_release, std::memory_order_relaxed)) {
    platform::CloseHandle(file);
  }
  return true;
}

platform::Handle OpenLogFileHandle(const wchar_t* path) noexcept {
  return platform::CreateFileW(path, platform::kGenericWrite, platform::kFileShareRead | platform::kFileShareWrite,
                               platform::kOpenAlways, platform::kFileAttributeNormal);
}

void CloseLogFile() noexcept {
  const platform::Handle file = log_file.exchange(nullptr, std::memory_order_acquire);
  if (file != nullptr) {
    platform::CloseHandle(file);
  }
}

bool LogFileIsOversized(platform::Handle file) noexcept {
  std::int64_t size = 0;
  return platform::GetFileSizeEx(file, &size) && size > kLargestFile;
}

void ResetLogger(const LoggerOverrides& overrides) {
  const LoggerOverrides* const old = log_overrides;
  log_overrides = new LoggerOverrides(overrides);
  delete old;
  CloseLogFile();
  const platform::Handle lock = log_lock.exchange(nullptr, std::memory_order_acquire);
  if (lock != nullptr) {
    platform::CloseHandle(lock);
  }
  log_lock_ready.store(false, std::memory_order_release);
  LogPathCache().clear();
  delete log_file_path;
  log_file_path = nullptr;
  SetMinLogLevel(LOG_INFO);
  log_init_state.store(kNotStarted, std::memory_order_release);
}

LogLockGuard::LogLockGuard() noexcept : m_lock(log_lock.load(std::memory_order_acquire)) {
  // Any answer will do: a writer that died with the lock has handed it on, and without a lock the line is still worth
  // writing.
  platform::WaitForSingleObject(m_lock, platform::kInfinite);
}

LogLockGuard::~LogLockGuard() { platform::ReleaseMutex(m_lock); }

LogMessage::LogMessage(const wchar_t* sourceFile, std::int32_t sourceLine, LogSeverity level,
                       std::uint32_t lastError) noexcept
    : severity(level), file(sourceFile), line(sourceLine), saved_last_error(lastError) {
  try {
    WriteHeader();
  } catch (...) {
    stream.setstate(std::ios_base::badbit); // the flush still writes what there is
  }
  platform::SetLastError(saved_last_error); // an operand may ask for it
}

LogMessage::~LogMessage() {
  if (severity == LOG_FATAL) {
    std::array<char, kFatalTextSize> head;
    OnFatalText(head.data(), Flush(head.data(), head.size()));
    platform::DebugBreak();
    platform::ExitNow(1);
  }
  Flush(nullptr, 0);
  platform::SetLastError(saved_last_error);
}

LogMessage& LogMessage::operator<<(const wchar_t* text) noexcept {
  return text != nullptr ? *this << std::wstring_view(text) : *this;
}

LogMessage& LogMessage::operator<<(std::wstring_view text) noexcept {
  const LastErrorKeeper keeper;
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  return *this;
}

LogMessage& LogMessage::operator<<(const char* text) noexcept {
  return text != nullptr ? *this << std::string_view(text) : *this;
}

LogMessage& LogMessage::operator<<(std::string_view text) noexcept {
  const LastErrorKeeper keeper;
  std::array<wchar_t, 128> wide;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, wide.size());
    std::transform(part.begin(), part.end(), wide.begin(),
                   [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
    stream.write(wide.data(), static_cast<std::streamsize>(part.size()));
    text.remove_prefix(part.size());
  }
  return *this;
}

LogMessage& LogMessage::Append(std::int64_t value) noexcept {
  const LastErrorKeeper keeper;
  stream << value;
  return *this;
}

LogMessage& LogMessage::Append(std::uint64_t value) noexcept {
  const LastErrorKeeper keeper;
  stream << value;
  return *this;
}

void LogMessage::WriteHeader() {
  stream << std::left << L"[";
  if constexpr (LogHeaderFlags::show_process_id) {
    stream << std::setw(5) << platform::GetCurrentProcessId() << L"|";
  }
  if constexpr (LogHeaderFlags::show_thread_id) {
    stream << std::setw(5) << platform::GetCurrentThreadId() << L"|";
  }
  if constexpr (LogHeaderFlags::show_timestamp) {
    const platform::SystemTime now = platform::GetLocalTime();
    stream << std::right << std::setfill(L'0') << std::setw(4) << now.year << L"-" << std::setw(2) << now.month << L"-"
           << std::setw(2) << now.day << L" " << std::setw(2) << now.hour << L":" << std::setw(2) << now.minute << L":"
           << std::setw(2) << now.second << L"|" << std::setfill(L' ');
  }
  if constexpr (LogHeaderFlags::show_tick_count) {
    stream << std::left << platform::GetTickCount() << L"|";
  }
  stream << std::right << std::setw(7) << SeverityName(severity) << L"|" << BaseName(file) << L":" << line << L"] ";
}

std::size_t LogMessage::Flush(char* head, std::size_t headSize) noexcept {
  std::size_t copied = 0;
  try {
    stream.clear(); // an operand that memory did not suffice for must not take the line's end along
    stream << L"\r\n";
    const NarrowText text(stream.str().c_str(), platform::kCodePageUtf8);
    copied = std::min(headSize, text.Length());
    std::copy_n(text.Get(), copied, head);
    InitLogLock();
    const LogLockGuard lock;
    if (OpenLogFile()) {
      const platform::Handle handle = log_file.load(std::memory_order_acquire);
      std::uint32_t done = 0;
      platform::SetFilePointer(handle, 0, platform::kFileEnd);
      platform::WriteFile(handle, text.Get(), static_cast<std::uint32_t>(text.Length()), &done);
    }
  } catch (...) {
    // The line is lost, and the site goes on.
    return copied;
  }
  return copied;
}

} // namespace vx
