#include "pipe/pipe_server.h"

#include <process.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <utility>

namespace vpipe {
namespace {

// The quota of a pipe in each direction, in bytes: an ordinary frame fits, and its writer does not wait for the reader.
constexpr DWORD kPipeBufferBytes = 68u * 1024;

// Workers that may wait for a client at a time. Making one is dear: a server whose clients come and go keeps one in
// reserve, so that none has to be made between a client's connect and its first reply.
constexpr std::size_t kMostListeners = 2;

// Pause after a failure to wait for clients that may last, in milliseconds.
constexpr DWORD kRetryPause = 100;

} // namespace

NamedPipeServer::NamedPipeServer() {
  for (Worker& worker : m_workers) {
    worker.server = this;
  }
}

void* NamedPipeServer::Destroy(unsigned int flag) {
  Worker* caller = Stop();
  if ((flag & 1) != 0) {
    if (caller != nullptr) {
      // Called from within OnMessage: this worker still needs the object.
      caller->destroys = true;
    } else {
      delete this;
    }
  }
  return this;
}

void NamedPipeServer::SetMsgProcessor(IMsgProcessor* processor) {
  const std::lock_guard lock(m_lock);
  if (!m_started) {
    m_processor = processor;
  }
}

std::int32_t NamedPipeServer::Start(const char* name) {
  DWORD error = ERROR_SUCCESS;
  try {
    const std::lock_guard lock(m_lock);
    error = StartLocked(name);
  } catch (...) {
    error = ERROR_NOT_ENOUGH_MEMORY;
  }
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
  }
  return error == ERROR_SUCCESS ? 1 : 0;
}

DWORD NamedPipeServer::StartLocked(const char* name) {
  if (m_started || m_stopping.load(std::memory_order_relaxed)) {
    return ERROR_ALREADY_INITIALIZED;
  }
  if (m_processor == nullptr || !MakePipePath(name, m_path)) {
    return ERROR_INVALID_PARAMETER;
  }
  // The first instance is refused where the name is in use. That closes every race, but not every system keeps to it.
  if (WaitNamedPipeW(m_path, 1) || GetLastError() != ERROR_FILE_NOT_FOUND) {
    return ERROR_ACCESS_DENIED;
  }
  if (!m_stop) {
    m_stop = UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_stop) {
      return GetLastError();
    }
  }
  if (const DWORD error = m_security.Build(); error != ERROR_SUCCESS) {
    return error;
  }
  const DWORD error = AddListenerLocked(FILE_FLAG_FIRST_PIPE_INSTANCE);
  m_started = error == ERROR_SUCCESS;
  return error;
}

DWORD NamedPipeServer::AddListenerLocked(DWORD openFlags) {
  Worker* worker = nullptr;
  for (Worker& each : m_workers) {
    if (!each.busy) {
      worker = &each;
      break;
    }
  }
  if (worker == nullptr) {
    return ERROR_PIPE_BUSY;
  }
  if (worker->thread) {
    // The former worker has let go of all but its last few instructions.
    WaitForSingleObject(worker->thread.Get(), INFINITE);
    worker->thread.Close();
  }
  UniqueHandle pipe(CreateNamedPipeW(m_path, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | openFlags,
                                     PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                                     kMaxClients, kPipeBufferBytes, kPipeBufferBytes, 0, m_security.Attributes()));
  if (!pipe) {
    return GetLastError();
  }
  if (const DWORD error = worker->channel.Attach(std::move(pipe), m_stop.Get()); error != ERROR_SUCCESS) {
    return error;
  }
  unsigned int threadId = 0;
  worker->thread =
      UniqueHandle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, WorkerThreadFun, worker, 0, &threadId)));
  if (!worker->thread) {
    worker->channel.Close();
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  worker->threadId = threadId;
  worker->busy = true;
  ++m_listening;
  return ERROR_SUCCESS;
}

/// Ends all workers but the calling one, which is returned if the caller is one.
NamedPipeServer::Worker* NamedPipeServer::Stop() {
  {
    const std::lock_guard lock(m_lock);
    m_stopping.store(true, std::memory_order_relaxed);
    if (m_stop) {
      SetEvent(m_stop.Get());
    }
  }
  // From here on no worker is added, so the table of threads stands still.
  Worker* caller = nullptr;
  for (Worker& worker : m_workers) {
    if (!worker.thread) {
      continue;
    }
    if (worker.threadId == GetCurrentThreadId()) {
      caller = &worker;
      continue;
    }
    WaitForSingleObject(worker.thread.Get(), INFINITE);
    worker.thread.Close();
  }
  return caller;
}

unsigned __stdcall NamedPipeServer::WorkerThreadFun(void* argument) {
  Worker& worker = *static_cast<Worker*>(argument);
  worker.server->Work(worker);
  if (worker.destroys) {
    delete worker.server;
  }
  return 0;
}

void NamedPipeServer::Work(Worker& worker) {
  for (;;) {
    const DWORD error = worker.channel.Connect();
    if (m_stopping.load(std::memory_order_relaxed)) {
      break;
    }
    if (error != ERROR_SUCCESS) {
      worker.channel.Disconnect();
      WaitForSingleObject(m_stop.Get(), kRetryPause);
      continue;
    }
    Accepted();
    try {
      Converse(worker.channel);
    } catch (const std::bad_alloc&) {
      // No memory for this client's text: the client is cut off like one that breaks the rules.
    }
    if (m_stopping.load(std::memory_order_relaxed)) {
      break;
    }
    if (!ListensAgain(worker)) {
      return;
    }
    worker.channel.Disconnect();
  }
  worker.channel.Close();
}

/// Talks to one client until it leaves, breaks the rules or the server stops.
void NamedPipeServer::Converse(PipeChannel& channel) {
  // Gone with the client: the next one may be long in coming.
  FrameDecoder decoder;
  FrameEncoder encoder;
  bool peerReads = true;
  for (;;) {
    std::string_view text;
    switch (decoder.Next(&text)) {
    case FrameDecoder::Status::kMessage:
      if (m_stopping.load(std::memory_order_relaxed) || !Answer(channel, encoder, Deliver(text.data()), &peerReads)) {
        return;
      }
      break;
    case FrameDecoder::Status::kBroken:
      return;
    case FrameDecoder::Status::kNeedMore: {
      const FrameDecoder::Space space = decoder.Prepare();
      std::size_t got = 0;
      if (channel.Read(space.data, space.size, Deadline::Never(), &got) != ERROR_SUCCESS) {
        return;
      }
      decoder.Commit(got);
      break;
    }
    }
  }
}

std::intptr_t NamedPipeServer::Deliver(const char* text) noexcept {
  try {
    return m_processor->OnMessage(text);
  } catch (...) {
    // The client is told; there is nobody else to tell.
    return -1;
  }
}

/// Sends a result back. False when the conversation is over.
bool NamedPipeServer::Answer(PipeChannel& channel, FrameEncoder& encoder, std::intptr_t result, bool* peerReads) {
  if (!*peerReads) {
    return true;
  }
  char digits[24];
  const char* end = std::to_chars(digits, digits + sizeof digits, result).ptr;
  encoder.Encode({digits, static_cast<std::size_t>(end - digits)});
  switch (channel.Write(encoder.Frame(), Deadline::After(kExchangeLimit))) {
  case ERROR_SUCCESS:
    return true;
  case ERROR_BROKEN_PIPE:
    // It has gone, but what it sent before that counts.
    *peerReads = false;
    return true;
  default:
    return false;
  }
}

/// Sees to it that another worker waits for the next client.
void NamedPipeServer::Accepted() {
  const std::lock_guard lock(m_lock);
  --m_listening;
  if (m_listening == 0 && !m_stopping.load(std::memory_order_relaxed)) {
    // Where this fails, the first worker that loses its client listens again.
    AddListenerLocked(0);
  }
}

/// Whether this worker is needed to wait for the next client. If not, its place is given up.
bool NamedPipeServer::ListensAgain(Worker& worker) {
  const std::lock_guard lock(m_lock);
  if (m_listening >= kMostListeners) {
    // In one step, so that the next client's worker finds this place and this instance free.
    worker.channel.Close();
    worker.busy = false;
    return false;
  }
  ++m_listening;
  return true;
}

} // namespace vpipe
