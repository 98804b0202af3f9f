#pragma once

#include <cstdint>

// The binary contract with the pipe library, which another compiler may have built: two tables of virtual operations
// and five functions by name. Each table has exactly one slot for its deleting destructor, slot 0, which takes a flag.
// A C++ virtual destructor would fill two slots with this toolchain's ABI, so slot 0 is an ordinary virtual function,
// and the destructors proper stay protected and out of the tables. The order of the declarations is the contract.

/// The receiver of the texts that an editor sends. The SDK implements it, the library calls it.
class IMsgProcessor {
public:
  /// Slot 0. Destroys the object, frees its memory when bit 0 of `flag` is set, and returns the object's address.
  virtual void* DeletingDestructor(unsigned flag) = 0;
  /// Slot 1. Takes one NUL-terminated text, on any thread of the library. The text stays the library's.
  virtual std::intptr_t OnMessage(const char* text) = 0;
  /// Slot 2.
  virtual void NoOp() = 0;
  /// Slot 3. The object itself.
  virtual IMsgProcessor* Self() = 0;
  /// Slot 4. Destroys another processor through its slot 0; this one and null are left alone.
  virtual void DestroyOther(IMsgProcessor* other) = 0;

protected:
  IMsgProcessor() = default;
  ~IMsgProcessor() = default;
  IMsgProcessor(const IMsgProcessor&) = default;
  IMsgProcessor& operator=(const IMsgProcessor&) = default;
};

/// The server object of the library. Made by `CreatePipeSvr`, given back by `ReleasePipeSvr`, never deleted here.
class PipeServer {
public:
  /// Slot 0.
  virtual void* DeletingDestructor(unsigned flag) = 0;
  /// Slot 1. Remembers the receiver, which stays the caller's.
  virtual void SetMsgProcessor(IMsgProcessor* processor) = 0;
  /// Slot 2. Begins to serve under a NUL-terminated name. 0 on failure, with a last error.
  virtual std::int32_t Start(const char* name) = 0;

protected:
  PipeServer() = default;
  ~PipeServer() = default;
  PipeServer(const PipeServer&) = default;
  PipeServer& operator=(const PipeServer&) = default;
};

// No member beside the table: an object of either class is whatever has such a table in front.
static_assert(sizeof(IMsgProcessor) == sizeof(void*) && sizeof(PipeServer) == sizeof(void*));

extern "C" {
/// Connects to the server of a name. 0 at once when there is none, with a last error.
using CltConnectServerFun = std::uint32_t (*)(const char* name);
/// Closes a connection.
using CltDisConnectFun = void (*)(std::uint32_t connection);
/// Sends a text and blocks for the reply, which stays the library's. Null on failure.
using CltComunicateFun = const char* (*)(std::uint32_t connection, const char* text);
/// A server object that does not serve yet, or null.
using CreatePipeSvrFun = PipeServer* (*)();
/// Stops and destroys a server. No call reaches its processor after the return.
using ReleasePipeSvrFun = void (*)(PipeServer* server);
}
