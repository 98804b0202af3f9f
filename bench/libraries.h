#pragma once

#include <windows.h>

#define VEXELSDK_NO_PROTOTYPES
#include "include/vexelsdk.h"
#include "pipe/vpipe.h"

#include <string>

// The two products, as their users load them.
namespace bench {

/// The folder of this program, with a trailing separator.
std::wstring ProgramFolder();

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

struct SdkLibrary {
  HMODULE module = nullptr;
  VexelSDK_InitFn init = nullptr;
  VexelSDK_UnInitFn unInit = nullptr;
  OpenEditorFn openEditor = nullptr;
  CloseEditorFn closeEditor = nullptr;
  OperatePicFn operatePic = nullptr;
  SetBrowserCallbackFn setBrowserCallback = nullptr;
  ReleaseCallbackDataFn releaseCallbackData = nullptr;
};

/// Loads the SDK of a folder, which ends in a separator. Ends the program when it is not there.
SdkLibrary LoadSdk(const std::wstring& folder);

/// Lets this process's SDK read `level` as its log level from now on: a registry key of its own stands for the
/// machine's. A library that has logged keeps the level that it read.
void SetLogLevel(DWORD level);

} // namespace bench
