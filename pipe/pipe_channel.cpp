#include "pipe/pipe_channel.h"

#include <algorithm>

namespace vpipe {
namespace {

// The system copies what a write has in flight into memory that all processes share. The frame of a text of 1 MiB goes in
// one piece.
constexpr std::size_t kChunkBytes = 2u * 1024 * 1024;

DWORD Normalised(DWORD error) {
  // The two ends of a pipe close in steps, and each step has an error of its own.
  return error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED ? DWORD{ERROR_BROKEN_PIPE} : error;
}

} // namespace

DWORD Deadline::Remaining() const {
  if (!m_set) {
    return INFINITE;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_at - std::chrono::steady_clock::now()).count();
  return left > 0 ? static_cast<DWORD>(left) : 0;
}

DWORD PipeChannel::Prepare() {
  if (!m_done) {
    m_done = UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  }
  return m_done ? DWORD{ERROR_SUCCESS} : GetLastError();
}

DWORD PipeChannel::Attach(UniqueHandle pipe, HANDLE stop) {
  if (const DWORD error = Prepare(); error != ERROR_SUCCESS) {
    return error;
  }
  m_pipe = std::move(pipe);
  m_stop = stop;
  return ERROR_SUCCESS;
}

DWORD PipeChannel::Connect() {
  OVERLAPPED operation{};
  operation.hEvent = m_done.Get();
  DWORD error = ERROR_SUCCESS;
  if (!ConnectNamedPipe(m_pipe.Get(), &operation)) {
    error = GetLastError();
    if (error == ERROR_IO_PENDING) {
      DWORD bytes = 0;
      error = Finish(&operation, Deadline::Never(), &bytes);
    }
  }
  return error == ERROR_PIPE_CONNECTED || error == ERROR_NO_DATA ? DWORD{ERROR_SUCCESS} : error;
}

void PipeChannel::Disconnect() { DisconnectNamedPipe(m_pipe.Get()); }

DWORD PipeChannel::Read(char* data, std::size_t size, const Deadline& deadline, std::size_t* got) {
  OVERLAPPED operation{};
  operation.hEvent = m_done.Get();
  DWORD bytes = 0;
  DWORD error = ERROR_SUCCESS;
  if (!ReadFile(m_pipe.Get(), data, static_cast<DWORD>(std::min(size, kChunkBytes)), &bytes, &operation)) {
    error = GetLastError();
    if (error == ERROR_IO_PENDING) {
      error = Finish(&operation, deadline, &bytes);
    }
  }
  *got = error == ERROR_SUCCESS ? bytes : 0;
  return Normalised(error);
}

DWORD PipeChannel::Write(std::string_view data, const Deadline& deadline) {
  while (!data.empty()) {
    OVERLAPPED operation{};
    operation.hEvent = m_done.Get();
    DWORD bytes = 0;
    if (!WriteFile(m_pipe.Get(), data.data(), static_cast<DWORD>(std::min(data.size(), kChunkBytes)), &bytes,
                   &operation)) {
      DWORD error = GetLastError();
      if (error == ERROR_IO_PENDING) {
        error = Finish(&operation, deadline, &bytes);
      }
      if (error != ERROR_SUCCESS) {
        return Normalised(error);
      }
    }
    data.remove_prefix(bytes);
    if (!data.empty() && deadline.HasPassed()) {
      return ERROR_TIMEOUT;
    }
  }
  return ERROR_SUCCESS;
}

void PipeChannel::Close() { m_pipe.Close(); }

DWORD PipeChannel::Finish(OVERLAPPED* operation, const Deadline& deadline, DWORD* bytes) {
  const HANDLE handles[] = {m_done.Get(), m_stop};
  DWORD wait = WAIT_TIMEOUT;
  do {
    wait = WaitForMultipleObjects(2, handles, FALSE, deadline.Remaining());
    // A wait may end a little before its time.
  } while (wait == WAIT_TIMEOUT && !deadline.HasPassed());
  if (wait != WAIT_OBJECT_0) {
    CancelIoEx(m_pipe.Get(), operation);
  }
  // The operation and its memory belong to the system until it says that it is over, cancelled or not.
  if (GetOverlappedResult(m_pipe.Get(), operation, bytes, TRUE)) {
    return ERROR_SUCCESS;
  }
  const DWORD error = GetLastError();
  return error == ERROR_OPERATION_ABORTED && wait == WAIT_TIMEOUT ? DWORD{ERROR_TIMEOUT} : error;
}

} // namespace vpipe
