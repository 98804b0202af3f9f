#include "bench/sdk_library.h"

#include "bench/resolve.h"

namespace bench {

std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  folder.erase(folder.find_last_of(L'\\') + 1);
  return folder;
}

SdkLibrary LoadSdk(const std::wstring& folder) {
  SdkLibrary library;
  library.module = LoadLibraryW((folder + VEXELSDK_LIBRARY_NAME).c_str());
  if (library.module == nullptr) {
    Fail("vexelsdk.dll");
  }
  Resolve(library.module, "VexelSDK_Init", &library.init);
  Resolve(library.module, "VexelSDK_UnInit", &library.unInit);
  Resolve(library.module, "OpenEditor", &library.openEditor);
  Resolve(library.module, "CloseEditor", &library.closeEditor);
  Resolve(library.module, "OperatePic", &library.operatePic);
  Resolve(library.module, "SetBrowserCallback", &library.setBrowserCallback);
  Resolve(library.module, "ReleaseCallbackData", &library.releaseCallbackData);
  return library;
}

void SetLogLevel(DWORD level) {
  HKEY machine = nullptr;
  HKEY options = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\VexelBench\\machine", 0, nullptr, REG_OPTION_VOLATILE,
                      KEY_ALL_ACCESS, nullptr, &machine, nullptr) != ERROR_SUCCESS ||
      RegCreateKeyExW(machine, L"Software\\Tarnwick\\antivirus\\sysopt", 0, nullptr, REG_OPTION_VOLATILE,
                      KEY_ALL_ACCESS, nullptr, &options, nullptr) != ERROR_SUCCESS ||
      RegSetValueExW(options, L"LogLevel", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level) !=
          ERROR_SUCCESS ||
      RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine) != ERROR_SUCCESS) {
    Fail("the registry");
  }
  RegCloseKey(options);
  RegCloseKey(machine);
}

} // namespace bench
