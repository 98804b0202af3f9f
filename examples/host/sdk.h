#pragma once

#define VEXELSDK_NO_PROTOTYPES
#include "include/vexelsdk.h"

#include <string>

namespace example {

/// The SDK, loaded at run time. All functions are set once Load has said true; the library stays for the life of the
/// process.
struct Sdk {
  VexelSDK_InitFn init = nullptr;
  VexelSDK_UnInitFn unInit = nullptr;
  GetPicSupportFileExtensionsFn getPicSupportFileExtensions = nullptr;
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

  /// Loads vexelsdk.dll from this program's own folder. False when that failed, with a sentence that says why.
  bool Load(std::string* error);
};

} // namespace example
