#pragma once

#include <windows.h>

#include "pipe/vpipe.h"

#include <string>

namespace bench {

/// The pipe library as its users load it.
struct PipeLibrary {
  HMODULE module = nullptr;
  decltype(&::CltConnectServer) connectServer = nullptr;
  decltype(&::CltDisConnect) disConnect = nullptr;
  decltype(&::CltComunicate) comunicate = nullptr;
  decltype(&::CreatePipeSvr) createPipeSvr = nullptr;
  decltype(&::ReleasePipeSvr) releasePipeSvr = nullptr;
};

/// The copy beside this program. Ends the program when it is not there.
const PipeLibrary& ThePipeLibrary();

/// Connects again and again until there is a server, for 20 s at most: then the program ends.
std::uint32_t ConnectSoon(const std::string& name);

} // namespace bench
