#include "pipe/pipe_client.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "pipe/frame.h"
#include "pipe/pipe_channel.h"
#include "pipe/pipe_name.h"
#include "pipe/text_scan.h"
#include "pipe/unique_handle.h"

namespace vpipe {
namespace {

/// One connection. Any thread.
class Connection {
public:
  DWORD Open(const char* name) {
    wchar_t path[kMaxPipePath + 1];
    if (!MakePipePath(name, path)) {
      return ERROR_INVALID_PARAMETER;
    }
    // Made ahead, and kept for the next try where there is no server yet.
    if (!m_stop) {
      m_stop = UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
      if (!m_stop) {
        return GetLastError();
      }
    }
    if (const DWORD error = m_channel.Prepare(); error != ERROR_SUCCESS) {
      return error;
    }
    // The server learns who its client is and can do nothing in the client's name.
    UniqueHandle pipe(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!pipe) {
      return GetLastError();
    }
    return m_channel.Attach(std::move(pipe), m_stop.Get());
  }

  /// `text` is sendable.
  DWORD Communicate(std::string_view text, const char** reply) {
    const std::lock_guard lock(m_lock);
    if (m_stopping.load(std::memory_order_relaxed)) {
      return ERROR_OPERATION_ABORTED;
    }
    if (!m_channel.IsOpen()) {
      return ERROR_PIPE_NOT_CONNECTED;
    }
    try {
      m_encoder.EncodeSendable(text);
    } catch (const std::bad_alloc&) {
      return ERROR_NOT_ENOUGH_MEMORY;
    }
    DWORD error = ERROR_SUCCESS;
    try {
      error = Exchange(reply);
    } catch (const std::bad_alloc&) {
      error = ERROR_NOT_ENOUGH_MEMORY;
    }
    if (error != ERROR_SUCCESS) {
      // Whatever still comes on this pipe would be taken for the answer to a later text.
      m_channel.Close();
    }
    return error;
  }

  void Close() {
    m_stopping.store(true, std::memory_order_relaxed);
    SetEvent(m_stop.Get());
    const std::lock_guard lock(m_lock);
    m_channel.Close();
  }

  /// Makes a closed connection as new but for its events and its buffers of ordinary size. Nobody else holds it.
  void Renew() {
    const std::lock_guard lock(m_lock);
    m_stopping.store(false, std::memory_order_relaxed);
    ResetEvent(m_stop.Get());
    if (m_encoder.Capacity() > kInitialBufferBytes) {
      m_encoder = FrameEncoder();
    }
    if (m_decoder.Capacity() > kInitialBufferBytes) {
      m_decoder = FrameDecoder();
    }
    m_decoder.Reset();
  }

private:
  // Caller holds m_lock.
  DWORD Exchange(const char** reply) {
    const Deadline deadline = Deadline::After(kExchangeLimit);
    DWORD error = m_channel.Write(m_encoder.Frame(), deadline);
    if (error != ERROR_SUCCESS) {
      return error;
    }
    for (;;) {
      const FrameDecoder::Space space = m_decoder.Prepare();
      std::size_t got = 0;
      error = m_channel.Read(space.data, space.size, deadline, &got);
      if (error != ERROR_SUCCESS) {
        return error;
      }
      m_decoder.Commit(got);
      std::string_view text;
      switch (m_decoder.Next(&text)) {
      case FrameDecoder::Status::kMessage:
        if (m_decoder.Buffered() != 0) {
          return ERROR_INVALID_DATA; // more than one reply to one text
        }
        *reply = text.data();
        return ERROR_SUCCESS;
      case FrameDecoder::Status::kBroken:
        return ERROR_INVALID_DATA;
      case FrameDecoder::Status::kNeedMore:
        break;
      }
      // A server that always has a few bytes ready never makes Read wait.
      if (m_stopping.load(std::memory_order_relaxed)) {
        return ERROR_OPERATION_ABORTED;
      }
      if (deadline.HasPassed()) {
        return ERROR_TIMEOUT;
      }
    }
  }

  // Written before the event is signalled. Relaxed: a caller that misses it meets the event at its next wait, or the
  // channel that Close has closed under m_lock.
  std::atomic<bool> m_stopping{false};
  UniqueHandle m_stop; // signalled together with m_stopping; written before the connection is shared
  std::mutex m_lock;   // guards what follows
  PipeChannel m_channel;
  FrameEncoder m_encoder;
  FrameDecoder m_decoder;
};

/// The connections by number. Any thread.
class ConnectionTable {
public:
  std::uint32_t Add(std::shared_ptr<Connection> connection) {
    const std::lock_guard lock(m_lock);
    // Numbers go once round before one comes again.
    do {
      ++m_last;
    } while (m_last == 0 || m_connections.count(m_last) != 0);
    m_connections.emplace(m_last, std::move(connection));
    return m_last;
  }

  std::shared_ptr<Connection> Find(std::uint32_t number) {
    const std::lock_guard lock(m_lock);
    const auto found = m_connections.find(number);
    return found == m_connections.end() ? nullptr : found->second;
  }

  std::shared_ptr<Connection> Remove(std::uint32_t number) {
    const std::lock_guard lock(m_lock);
    const auto found = m_connections.find(number);
    if (found == m_connections.end()) {
      return nullptr;
    }
    std::shared_ptr<Connection> connection = std::move(found->second);
    m_connections.erase(found);
    return connection;
  }

  /// A connection to open: the one in reserve, or a new one.
  std::shared_ptr<Connection> TakeSpare() {
    {
      const std::lock_guard lock(m_lock);
      if (m_spare != nullptr) {
        return std::move(m_spare);
      }
    }
    return std::make_shared<Connection>();
  }

  /// Keeps a connection that is not open in reserve.
  void GiveSpare(std::shared_ptr<Connection> connection) {
    const std::lock_guard lock(m_lock);
    m_spare.swap(connection);
  }

private:
  std::mutex m_lock;
  std::shared_ptr<Connection> m_spare; // its events serve the next connection, and each try while a server comes up
  std::uint32_t m_last = 0;
  std::unordered_map<std::uint32_t, std::shared_ptr<Connection>> m_connections;
};

ConnectionTable& Table() {
  // Never destroyed: at the end of the process another thread may have been stopped anywhere inside of it.
  static ConnectionTable* const table = new ConnectionTable;
  return *table;
}

} // namespace

DWORD ConnectToServer(const char* name, std::uint32_t* connection) {
  std::shared_ptr<Connection> opened = Table().TakeSpare();
  const DWORD error = opened->Open(name);
  if (error == ERROR_SUCCESS) {
    *connection = Table().Add(std::move(opened));
  } else {
    Table().GiveSpare(std::move(opened));
  }
  return error;
}

DWORD DisconnectFromServer(std::uint32_t connection) {
  const std::shared_ptr<Connection> removed = Table().Remove(connection);
  if (removed == nullptr) {
    return ERROR_INVALID_HANDLE;
  }
  removed->Close();
  // Out of the table, so nobody else can come to hold it. The count is read relaxed, which is enough: who held it used it
  // under m_lock only, and Renew takes that lock.
  if (removed.use_count() == 1) {
    removed->Renew();
    Table().GiveSpare(removed);
  }
  return ERROR_SUCCESS;
}

DWORD Communicate(std::uint32_t connection, const char* text, const char** reply) {
  const std::shared_ptr<Connection> found = Table().Find(connection);
  if (found == nullptr) {
    return ERROR_INVALID_HANDLE;
  }
  const std::string_view view(text, text == nullptr ? 0 : LengthUpTo(text, kMaxTextBytes + 1));
  if (view.empty() || view.size() > kMaxTextBytes) {
    return ERROR_INVALID_PARAMETER;
  }
  return found->Communicate(view, reply);
}

} // namespace vpipe
