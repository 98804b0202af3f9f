#include "tools/vexelctl/sdk_library.h"

#include "tools/vexelctl/windows_util.h"

#include <windows.h>

namespace vexelctl {
namespace {

template <typename Function> bool Resolve(HMODULE module, const char* name, Function* function, std::string* error) {
  // By way of a type without arguments: the compilers warn of a direct cast from FARPROC.
  *function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
  if (*function == nullptr) {
    *error += std::string(" lacks the function ") + name + ", so it is no library of this SDK";
  }
  return *function != nullptr;
}

} // namespace

bool SdkLibrary::Load(const std::wstring& path, std::string* error) {
  *error = "'" + ToUtf8(path) + "'";
  if (!IsFile(path)) {
    *error += " does not exist; say with --sdk where the library lies";
    return false;
  }
  const std::string machine = MachineOf(path);
  if (machine.empty()) {
    *error += " is no library";
    return false;
  }
  if (machine != OwnMachine()) {
    *error += " is built for " + machine + ", and this program for " + OwnMachine();
    return false;
  }
  const std::optional<FileVersion> version = VersionOf(path);
  const std::string own = std::to_string(VEXELSDK_VERSION_MAJOR) + "." + std::to_string(VEXELSDK_VERSION_MINOR);
  if (!version.has_value()) {
    *error += " says no version, so it is no library of this SDK";
    return false;
  }
  if (version->major != VEXELSDK_VERSION_MAJOR || version->minor < VEXELSDK_VERSION_MINOR) {
    *error += " is version " + version->text + ", and this program needs " + own + " or a later " +
              std::to_string(VEXELSDK_VERSION_MAJOR) + ".x";
    return false;
  }
  const HMODULE module = LoadLibraryW(path.c_str());
  if (module == nullptr) {
    *error += " could not be loaded, " + SystemMessage(GetLastError());
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

std::wstring LibraryPath(const std::string& option) {
  std::wstring path = option.empty() ? FolderOf(ProgramPath()) : FullPath(ToWide(option));
  if (IsFolder(path) && path.back() != L'\\' && path.back() != L'/') {
    path += L'\\';
  }
  if (!path.empty() && (path.back() == L'\\' || path.back() == L'/')) {
    path += VEXELSDK_LIBRARY_NAME;
  }
  return path;
}

} // namespace vexelctl
