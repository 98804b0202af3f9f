#include "bench/pipe_library.h"

#include "bench/clock.h"
#include "bench/resolve.h"
#include "bench/sdk_library.h"

namespace bench {
namespace {

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

} // namespace bench
