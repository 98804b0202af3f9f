#include "bench/libraries.h"

#include "bench/clock.h"

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "%s: error %lu\n", what, GetLastError());
  std::exit(1);
}

template <typename Function> void Resolve(HMODULE module, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  if (*function == nullptr) {
    Fail(name);
  }
}

PipeLibrary LoadPipeLibrary() {
  PipeLibrary library;
  library.module = LoadLibraryW((ProgramFolder() + L"vpipearm64.dll").c_str());
  if (library.module == nullptr) {
    Fail("vpipearm64.dll");
  }
  Resolve(library.module, "CltConnectServer", &library.connectServer);
  Resolve(library.module, "CltDisConnect", &library.disConnect);
  Resolve(library.module, "CltComunicate", &library.comunicate);
  Resolve(library.module, "CreatePipeSvr", &library.createPipeSvr);
  Resolve(library.module, "ReleasePipeSvr", &library.releasePipeSvr);
  return library;
}

} // namespace

std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  folder.erase(folder.find_last_of(L'\\') + 1);
  return folder;
}

const PipeLibrary& ThePipeLibrary() {
  static const PipeLibrary library = LoadPipeLibrary();
  return library;
}

std::uint32_t ConnectSoon(const std::string& name) {
  const double start = NowUs();
  while (NowUs() - start < 20e6) {
    if (const std::uint32_t connection = ThePipeLibrary().connectServer(name.c_str()); connection != 0) {
      return connection;
    }
    Sleep(5);
  }
  Fail(name.c_str());
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
