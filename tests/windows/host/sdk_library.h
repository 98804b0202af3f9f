#pragma once

#define VEXELSDK_NO_PROTOTYPES
#include "include/vexelsdk.h"

#include <string>

namespace testhost {

/// The sixteen functions, resolved by name. Null while the library is not loaded.
struct Sdk {
  VexelSDK_InitFn init = nullptr;
  VexelSDK_UnInitFn unInit = nullptr;
  GetPicSupportFileExtensionsFn getExtensions = nullptr;
  OpenEditorFn openEditor = nullptr;
  FullScreenFn fullScreen = nullptr;
  SetWindowsPosFn setWindowsPos = nullptr;
  ChangeThemeModeFn changeThemeMode = nullptr;
  IsSupportPreviewFn isSupportPreview = nullptr;
  CloseEditorFn closeEditor = nullptr;
  IsCloseFn isClose = nullptr;
  IsPreviewValidFn isPreviewValid = nullptr;
  GetSwitchValueFn getSwitchValue = nullptr;
  OperatePicFn operatePic = nullptr;
  DoBrowserCommandFn doBrowserCommand = nullptr;
  SetBrowserCallbackFn setBrowserCallback = nullptr;
  ReleaseCallbackDataFn releaseCallbackData = nullptr;
};

/// The functions of the library that is loaded.
Sdk& LoadedSdk();

/// Loads the library at `path` and resolves all functions. Gives how many were found, -1 when it does not load.
int LoadSdk(const std::wstring& path);

/// Gives the library back. The functions stay as they are: the engine may hold the library.
bool UnloadSdk();

} // namespace testhost
