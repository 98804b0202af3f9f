#pragma once

#include <cstdint>

/// Texts between processes of one user on one machine, over named pipes: a client sends a text and waits for the reply,
/// a server hands each text to its processor and sends the processor's result back.
///
/// Names are narrow UTF-8 strings without the system's path prefix, 1 to 247 UTF-16 units, with no slash or backslash.
/// Texts are NUL-terminated, 1 byte to 16 MiB; they are passed on as they are, whether valid UTF-8 or not. Servers and
/// clients see each other only within one user account (and the system's own).
///
/// The functions are plain C with the platform's default calling convention and may be called from any thread, but not
/// from DllMain. No exception leaves them. The two classes are a binary contract: only the order of their virtual
/// functions counts. The library may not be unloaded while a server or a connection exists.

/// Receives a server's texts. Slot order is fixed. This library calls OnMessage only and never owns a processor.
class IMsgProcessor {
public:
  /// Slot 0, the deleting destructor: destroys the object, and frees it when bit 0 of `flag` is set. Returns the
  /// object.
  virtual void* Destroy(unsigned int flag) = 0;
  /// Slot 1: `text` is a NUL-terminated text, valid during the call. Runs on a thread of the library, one for each
  /// connection, so several calls may run at once; the texts of one connection come in order. The result goes back to
  /// the client as decimal text. An exception of this library's own C++ runtime that leaves the call counts as -1.
  virtual std::intptr_t OnMessage(const char* text) = 0;
  /// Slot 2.
  virtual void NoOp() = 0;
  /// Slot 3: the object itself.
  virtual IMsgProcessor* Self() = 0;
  /// Slot 4.
  virtual void DestroyOther(IMsgProcessor* other) = 0;

protected:
  ~IMsgProcessor() = default;
};

/// A server object. Slot order is fixed. Made by CreatePipeSvr, given back to ReleasePipeSvr.
class PipeServer {
public:
  /// Slot 0, the deleting destructor: stops as ReleasePipeSvr does, and frees the object when bit 0 of `flag` is set.
  /// Without that bit the object stays for ReleasePipeSvr and cannot be started again. Returns the object's address.
  virtual void* Destroy(unsigned int flag) = 0;
  /// Slot 1: remembers the processor, which must live until ReleasePipeSvr has returned. The caller keeps ownership.
  /// Ignored once the server has been started.
  virtual void SetMsgProcessor(IMsgProcessor* processor) = 0;
  /// Slot 2: begins to serve `name`. Not 0 on success. 0 on failure with a last error: ERROR_INVALID_PARAMETER for a
  /// bad name or when there is no processor, ERROR_ACCESS_DENIED when the name is taken, ERROR_ALREADY_INITIALIZED when
  /// this object has been started before. After a failure it may be tried again. Up to 64 clients are served at a time;
  /// further ones get ERROR_PIPE_BUSY until one leaves. A client that sends what is no text, or reads no reply for 30
  /// seconds, is disconnected. A text that was received whole is delivered also when its sender has gone.
  virtual std::int32_t Start(const char* name) = 0;

protected:
  ~PipeServer() = default;
};

// No member beside the table: an object of either class is whatever has such a table in front.
static_assert(sizeof(IMsgProcessor) == sizeof(void*) && sizeof(PipeServer) == sizeof(void*));

extern "C" {

/// Connects to the server `name`. Returns a connection number, or 0 with a last error: ERROR_FILE_NOT_FOUND when there
/// is no such server, ERROR_PIPE_BUSY when it has no place free just now, ERROR_INVALID_PARAMETER for a bad name. Never
/// waits. The caller gives the number back to CltDisConnect, also when the connection breaks.
std::uint32_t CltConnectServer(const char* name);

/// Closes a connection. An exchange that another thread has under way on it is broken off, and has ended on return; the
/// last reply is freed. A number that is none is ignored, with the last error ERROR_INVALID_HANDLE.
void CltDisConnect(std::uint32_t connection);

/// Sends `text` and waits for the reply, for 30 seconds at most. Returns the reply, NUL-terminated: it stays the
/// library's and is valid until the next call with this connection, by any thread. Exchanges of several threads on one
/// connection follow one another; threads that share one need a lock of their own around the use of the reply. Null on
/// failure with a last error. The connection stays in use after ERROR_INVALID_PARAMETER (null, empty or too long text)
/// and ERROR_NOT_ENOUGH_MEMORY before the sending. It is closed after ERROR_TIMEOUT, ERROR_BROKEN_PIPE (the server has
/// gone), ERROR_INVALID_DATA (the reply is no text) and any other error; from then on the error is
/// ERROR_PIPE_NOT_CONNECTED. ERROR_INVALID_HANDLE is for a number that is none, ERROR_OPERATION_ABORTED for a
/// CltDisConnect during the call.
const char* CltComunicate(std::uint32_t connection, const char* text);

/// Makes a server object, not yet serving. Null with a last error when there is no memory. The caller gives it to
/// ReleasePipeSvr.
PipeServer* CreatePipeSvr();

/// Stops the server, ends its connections and destroys it. Blocks until every OnMessage has returned; no call reaches
/// the processor afterwards. Within OnMessage it waits for the other connections' calls only and the object goes when
/// that OnMessage returns. Null does nothing.
void ReleasePipeSvr(PipeServer* server);
}
