#include "examples/host/sdk.h"

#include "examples/common/text.h"

#include <windows.h>

namespace example {
namespace {

template <typename Function> bool Resolve(HMODULE module, const char* name, Function* function, std::string* error) {
  // By way of a type without arguments: the compilers warn of a direct cast from FARPROC.
  *function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
  if (*function == nullptr) {
    *error = std::string("vexelsdk.dll lacks the function ") + name + ".";
  }
  return *function != nullptr;
}

} // namespace

bool Sdk::Load(std::string* error) {
  const std::wstring path = Folder(ProgramPath()) + VEXELSDK_LIBRARY_NAME;
  const HMODULE module = LoadLibraryW(path.c_str());
  if (module == nullptr) {
    *error =
        "vexelsdk.dll could not be loaded from this program's folder (error " + std::to_string(GetLastError()) + ").";
    return false;
  }
  return Resolve(module, "VexelSDK_Init", &init, error) && Resolve(module, "VexelSDK_UnInit", &unInit, error) &&
         Resolve(module, "GetPicSupportFileExtensions", &getPicSupportFileExtensions, error) &&
         Resolve(module, "OpenEditor", &openEditor, error) && Resolve(module, "FullScreen", &fullScreen, error) &&
         Resolve(module, "SetWindowsPos", &setWindowsPos, error) &&
         Resolve(module, "ChangeThemeMode", &changeThemeMode, error) &&
         Resolve(module, "IsSupportPreview", &isSupportPreview, error) &&
         Resolve(module, "CloseEditor", &closeEditor, error) && Resolve(module, "IsClose", &isClose, error) &&
         Resolve(module, "IsPreviewValid", &isPreviewValid, error) &&
         Resolve(module, "GetSwitchValue", &getSwitchValue, error) &&
         Resolve(module, "OperatePic", &operatePic, error) &&
         Resolve(module, "DoBrowserCommand", &doBrowserCommand, error) &&
         Resolve(module, "SetBrowserCallback", &setBrowserCallback, error) &&
         Resolve(module, "ReleaseCallbackData", &releaseCallbackData, error);
}

} // namespace example
