#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

#include "pipe/frame.h"
#include "pipe/pipe_channel.h"
#include "pipe/pipe_name.h"
#include "pipe/pipe_security.h"
#include "pipe/unique_handle.h"
#include "pipe/vpipe.h"

namespace vpipe {

/// The most clients that one server has at a time; with the one that listens, the most pipe instances.
inline constexpr std::size_t kMaxClients = 64;

/// The server behind CreatePipeSvr. Each worker thread owns one pipe instance: it waits for a client, sees to it that
/// another worker waits for the next one, and then talks to its client, so that no message changes threads. As long as
/// the server runs, at least one instance exists, so the name never comes free.
class NamedPipeServer final : public PipeServer {
public:
  NamedPipeServer();
  NamedPipeServer(const NamedPipeServer&) = delete;
  NamedPipeServer& operator=(const NamedPipeServer&) = delete;

  void* Destroy(unsigned int flag) override;
  void SetMsgProcessor(IMsgProcessor* processor) override;
  std::int32_t Start(const char* name) override;

private:
  /// A place for a worker. Not busy: free, though the handle of a thread that is about to end may still be there.
  struct Worker {
    NamedPipeServer* server = nullptr; // constant
    UniqueHandle thread;               // m_lock until m_stopping, then the thread that stops
    DWORD threadId = 0;                // m_lock
    bool busy = false;                 // m_lock
    bool destroys = false;             // the worker's thread: the server goes with this worker
    PipeChannel channel;               // m_lock until busy, then the worker's thread
  };

  ~NamedPipeServer() = default;

  static unsigned __stdcall WorkerThreadFun(void* worker);

  DWORD StartLocked(const char* name);
  DWORD AddListenerLocked(DWORD openFlags);
  Worker* Stop();
  void Work(Worker& worker);
  void Converse(PipeChannel& channel);
  bool Answer(PipeChannel& channel, FrameEncoder& encoder, std::intptr_t result, bool* peerReads);
  std::intptr_t Deliver(const char* text) noexcept;
  void Accepted();
  bool ListensAgain(Worker& worker);

  std::mutex m_lock;           // never held across OnMessage or a wait for a client
  bool m_started = false;      // m_lock
  std::size_t m_listening = 0; // m_lock: workers that wait for a client
  std::array<Worker, kMaxClients> m_workers;
  // Written under m_lock, which decides that no worker is added any more. Relaxed: a worker that looks without the lock
  // and misses it meets the event behind it, or sees it at a later text, and Stop waits for the worker's thread before
  // anything is taken away.
  std::atomic<bool> m_stopping{false};
  UniqueHandle m_stop;                  // signalled together with m_stopping; constant once started
  IMsgProcessor* m_processor = nullptr; // m_lock until started, then constant
  wchar_t m_path[kMaxPipePath + 1]{};   // m_lock until started, then constant
  PipeSecurity m_security;              // m_lock until started, then constant
};

} // namespace vpipe
