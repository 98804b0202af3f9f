#include "tests/windows/host/sdk_library.h"

#include <windows.h>

namespace testhost {
namespace {

HMODULE library = nullptr;

template <typename Function> int Resolve(Function& function, const char* name) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  return function != nullptr ? 1 : 0;
}

} // namespace

Sdk& LoadedSdk() {
  static Sdk sdk;
  return sdk;
}

int LoadSdk(const std::wstring& path) {
  library = LoadLibraryW(path.c_str());
  if (library == nullptr) {
    return -1;
  }
  Sdk& sdk = LoadedSdk();
  int found = 0;
  found += Resolve(sdk.init, "VexelSDK_Init");
  found += Resolve(sdk.unInit, "VexelSDK_UnInit");
  found += Resolve(sdk.getExtensions, "GetPicSupportFileExtensions");
  found += Resolve(sdk.openEditor, "OpenEditor");
  found += Resolve(sdk.fullScreen, "FullScreen");
  found += Resolve(sdk.setWindowsPos, "SetWindowsPos");
  found += Resolve(sdk.changeThemeMode, "ChangeThemeMode");
  found += Resolve(sdk.isSupportPreview, "IsSupportPreview");
  found += Resolve(sdk.closeEditor, "CloseEditor");
  found += Resolve(sdk.isClose, "IsClose");
  found += Resolve(sdk.isPreviewValid, "IsPreviewValid");
  found += Resolve(sdk.getSwitchValue, "GetSwitchValue");
  found += Resolve(sdk.operatePic, "OperatePic");
  found += Resolve(sdk.doBrowserCommand, "DoBrowserCommand");
  found += Resolve(sdk.setBrowserCallback, "SetBrowserCallback");
  found += Resolve(sdk.releaseCallbackData, "ReleaseCallbackData");
  return found;
}

bool UnloadSdk() { return library != nullptr && FreeLibrary(library) != FALSE; }

} // namespace testhost
