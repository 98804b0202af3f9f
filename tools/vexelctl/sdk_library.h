#pragma once

#define VEXELSDK_NO_PROTOTYPES
#include "include/vexelsdk.h"

#include <string>

namespace vexelctl {

/// The SDK, loaded at run time. All functions are set once Load has said true; the library stays for the life of the
/// process.
struct SdkLibrary {
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

  /// Loads the library of that full path. False, with a sentence that says why, when it is not there, is made for
  /// another processor, is of another version than this program, or lacks a function.
  bool Load(const std::wstring& path, std::string* error);
};

/// The pipe library, which the SDK loads at the first open.
inline constexpr wchar_t kPipeLibraryName[] = L"vpipearm64.dll";

/// The library that a command works on: `option`, a file or a folder, or with an empty option the one beside this
/// program.
std::wstring LibraryPath(const std::string& option);

} // namespace vexelctl
