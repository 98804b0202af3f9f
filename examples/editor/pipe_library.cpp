#include "examples/editor/pipe_library.h"

#include "examples/common/text.h"

#include <windows.h>

namespace example {
namespace {

template <typename Function> bool Resolve(HMODULE module, const char* name, Function* function) {
  // By way of a type without arguments: the compilers warn of a direct cast from FARPROC.
  *function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
  return *function != nullptr;
}

} // namespace

bool PipeLibrary::Load() {
  const HMODULE module = LoadLibraryW((Folder(ProgramPath()) + L"vpipearm64.dll").c_str());
  return module != nullptr && Resolve(module, "CltConnectServer", &connect) &&
         Resolve(module, "CltDisConnect", &disconnect) && Resolve(module, "CltComunicate", &communicate) &&
         Resolve(module, "CreatePipeSvr", &createServer) && Resolve(module, "ReleasePipeSvr", &releaseServer);
}

} // namespace example
