#pragma once

#include "pipe/vpipe.h"

namespace example {

/// The pipe library, loaded at run time. All functions are set once Load has said true; the library stays for the life
/// of the process.
struct PipeLibrary {
  decltype(&CltConnectServer) connect = nullptr;
  decltype(&CltDisConnect) disconnect = nullptr;
  decltype(&CltComunicate) communicate = nullptr;
  decltype(&CreatePipeSvr) createServer = nullptr;
  decltype(&ReleasePipeSvr) releaseServer = nullptr;

  /// Loads vpipearm64.dll from this program's own folder. False when it is not there or lacks a function.
  bool Load();
};

} // namespace example
