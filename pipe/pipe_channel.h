#pragma once

#include <windows.h>

#include <chrono>
#include <string_view>

#include "pipe/unique_handle.h"

namespace vpipe {

/// How long one exchange may take, on each side.
inline constexpr std::chrono::seconds kExchangeLimit{30};

/// A point in time, or none.
class Deadline {
public:
  static Deadline Never() { return {}; }
  static Deadline After(std::chrono::steady_clock::duration limit) {
    Deadline deadline;
    deadline.m_set = true;
    deadline.m_at = std::chrono::steady_clock::now() + limit;
    return deadline;
  }

  bool HasPassed() const { return m_set && std::chrono::steady_clock::now() >= m_at; }

  /// What a wait may take, in milliseconds, rounded up.
  DWORD Remaining() const;

private:
  bool m_set = false;
  std::chrono::steady_clock::time_point m_at;
};

/// One end of a pipe, opened for overlapped use. Each operation blocks its thread until it is done, the deadline passes
/// or the stop event is signalled, and has let go of its memory on return. Results are system error codes, 0 for
/// success: ERROR_TIMEOUT, ERROR_OPERATION_ABORTED after the stop event, ERROR_BROKEN_PIPE when the other end has gone.
/// One thread at a time.
class PipeChannel {
public:
  /// Makes what Attach needs, so that nothing has to be made between a pipe's opening and its first use. Throws nothing.
  DWORD Prepare();

  /// Takes the pipe. `stop`, a manual-reset event, stays the caller's and must outlive the channel's use. Throws
  /// nothing.
  DWORD Attach(UniqueHandle pipe, HANDLE stop);

  /// Waits for a client. One that has come and gone already counts: its data is still there.
  DWORD Connect();

  /// Cuts a client off, so that Connect can wait for another. What the client has not read is lost.
  void Disconnect();

  /// Reads what is there, up to `size` bytes, or waits for the first byte.
  DWORD Read(char* data, std::size_t size, const Deadline& deadline, std::size_t* got);

  /// Writes all of `data`.
  DWORD Write(std::string_view data, const Deadline& deadline);

  /// Closes the pipe. The other end can still read what was written.
  void Close();

  bool IsOpen() const { return static_cast<bool>(m_pipe); }

private:
  DWORD Finish(OVERLAPPED* operation, const Deadline& deadline, DWORD* bytes);

  UniqueHandle m_pipe;
  UniqueHandle m_done;
  HANDLE m_stop = nullptr;
};

} // namespace vpipe
