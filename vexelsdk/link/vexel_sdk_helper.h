#pragma once

#include "vexelsdk/link/editor_messages.h"
#include "vexelsdk/link/operator_data.h"
#include "vexelsdk/link/pipe_binding.h"
#include "vexelsdk/link/reader_msg_proc.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// The SDK's end of the link to one editor process: a server channel on which the editor sends its events, open from
/// the process's start, and a client channel for operators, which opens at the first one and waits for each reply.
///
/// The operator thread makes it and writes to it, the message thread reads from it, host threads look at its flags.
/// There is no lock in it: each flag has one writer, but for the one that stops connecting, which any host thread may set
/// and nobody clears. Relaxed order is enough for all of them, since a flag carries no other data with it and a reader
/// that sees it a moment late is the documented race of the close path.
class VexelSDKHelper {
public:
  VexelSDKHelper() = default;
  VexelSDKHelper(const VexelSDKHelper&) = delete;
  VexelSDKHelper& operator=(const VexelSDKHelper&) = delete;
  /// Ends both channels. When it returns, the pipe library calls in no more. Any thread, nobody else inside.
  ~VexelSDKHelper();

  /// Opens the server channel of the process `pid`. True when it serves, also when it did already: then `pid` is
  /// stored all the same. False when the pipe library is missing or refuses the name; the helper is then for deletion.
  bool StartServer(std::uint32_t pid);

  /// Gives the server channel back: its name is free when this returns, and the pipe library calls in no more. Texts that
  /// have arrived stay for GetOperator. Operator thread.
  void StopServer();

  /// Takes one text of the editor into `out`, and notes its unsaved state when it tells that. False when none waits.
  /// What was read in the text goes to `message` (may be null), so that nobody has to parse it again.
  bool GetOperator(std::string& out, EditorMessage* message = nullptr);

  /// Sends a record and waits for the editor's reply; connects first when there is no connection, for up to
  /// ConnectTimeoutMs. True when the editor replied. `*sent` (`sent` may be null) is false only when no connection
  /// could be made. Blocks the operator thread.
  bool WriteOperator(const SDK_OperatorData& record, bool* sent);

  bool IsModify() const { return m_modified.load(std::memory_order_relaxed); }
  bool IsReading() const { return m_reading.load(std::memory_order_relaxed); }
  bool IsConnecting() const { return m_connecting.load(std::memory_order_relaxed); }

  /// Makes this and every later attempt to connect give up.
  void StopConnect() { m_isStop.store(true, std::memory_order_relaxed); }

  /// Out of line on purpose: DoOperator calls it on a null helper, and the read must be made.
  [[gnu::noinline]] std::uint32_t GetPid() const;

private:
  bool ConnectServer();
  void BuildOperatorMessage(const SDK_OperatorData& record, std::string& out) const;
  void Disconnect();

  std::uint64_t m_openTick = 0; // of the last open, milliseconds; a record, read by nothing
  std::int32_t m_openType = 0;  // of the last open, likewise
  std::wstring m_path;          // of the last open, likewise
  // Written by the operator thread. Relaxed, as all atomics of this class: each is a value alone, by which no other data
  // is reached. What a thread needs beside it has a lock: m_helperLock for the link itself, the reader's for its texts.
  std::atomic<std::uint32_t> m_pid{0};
  std::unique_ptr<PipeServerBinding> m_serverBinding; // operator thread
  PipeServer* m_server = nullptr;                     // operator thread; the library's object
  ReaderMsgProcPtr m_reader;                          // set before the helper is shared, has a lock of its own
  std::unique_ptr<PipeClientBinding> m_clientBinding; // operator thread; there while a connection is tried or held
  std::uint32_t m_connection = 0;                     // operator thread; 0 is none
  std::int32_t m_id = 0;                              // operator thread; editor id of the last open
  // Relaxed. Written by the message thread: the editor holds unsaved changes. A host that closes because of the event
  // about them is behind the store by whatever told it of the event.
  std::atomic<bool> m_modified{false};
  // Relaxed. Written by the operator thread: the message thread polls this link. A pass that still reads the old value
  // takes one text more, as a pass a moment earlier would.
  std::atomic<bool> m_reading{true};
  // Relaxed. Written by the operator thread: no connection has succeeded yet. The connection is that thread's alone.
  std::atomic<bool> m_connecting{true};
  // Relaxed. Written by host threads, never cleared: give up connecting. Read at each attempt: seen late, it costs one
  // attempt more.
  std::atomic<bool> m_isStop{false};
};
