#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "pipe/vpipe.h"

// Used by the tests and by their child program: the library as its users load it, and pipes without the library.

/// The library's five functions, found by name in the DLL beside the program. Ends the program when it is not there.
struct Library {
  HMODULE module = nullptr;
  decltype(&::CltConnectServer) connectServer = nullptr;
  decltype(&::CltDisConnect) disConnect = nullptr;
  decltype(&::CltComunicate) comunicate = nullptr;
  decltype(&::CreatePipeSvr) createPipeSvr = nullptr;
  decltype(&::ReleasePipeSvr) releasePipeSvr = nullptr;
};
const Library& TheLibrary();

/// Connects again and again, every few ms, until there is a connection or 30 s are over: 0 then.
std::uint32_t ConnectSoon(const std::string& name);

/// The frame of `text`, built by hand.
std::string RawFrame(std::string_view text);

/// Opens the client end of a pipe for blocking use, waiting up to 30 s for its server. INVALID_HANDLE_VALUE on failure.
HANDLE RawConnect(const std::string& name);

/// Blocking. False when the other end has gone.
bool RawWrite(HANDLE pipe, std::string_view bytes);

/// Blocking: what is there, at least a byte. Empty when the other end has gone.
std::string RawRead(HANDLE pipe);

/// An IMsgProcessor whose other slots do nothing.
class ProcessorBase : public IMsgProcessor {
public:
  void* Destroy(unsigned int) override { return this; }
  void NoOp() override {}
  IMsgProcessor* Self() override { return this; }
  void DestroyOther(IMsgProcessor*) override {}

protected:
  ~ProcessorBase() = default;
};
