#pragma once

#include <windows.h>

#define VEXELSDK_NO_PROTOTYPES
#include "include/vexelsdk.h"

#include <string>

namespace bench {

/// The folder of this program, with a trailing separator.
std::wstring ProgramFolder();

/// The SDK as a host loads it.
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
