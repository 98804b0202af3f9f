#include <windows.h>

#include <new>

#include "pipe/pipe_client.h"
#include "pipe/pipe_server.h"
#include "pipe/vpipe.h"

namespace {

/// Runs `call`, which returns a system error code, and leaves that as the last error. What was thrown counts as a lack
/// of memory: nothing else throws here.
template <typename Call> void Guarded(Call call) noexcept {
  DWORD error = ERROR_NOT_ENOUGH_MEMORY;
  try {
    error = call();
  } catch (...) {
  }
  SetLastError(error);
}

} // namespace

extern "C" {

std::uint32_t CltConnectServer(const char* name) {
  std::uint32_t connection = 0;
  Guarded([&] { return vpipe::ConnectToServer(name, &connection); });
  return connection;
}

void CltDisConnect(std::uint32_t connection) {
  Guarded([&] { return vpipe::DisconnectFromServer(connection); });
}

const char* CltComunicate(std::uint32_t connection, const char* text) {
  const char* reply = nullptr;
  Guarded([&] { return vpipe::Communicate(connection, text, &reply); });
  return reply;
}

PipeServer* CreatePipeSvr() {
  PipeServer* server = nullptr;
  Guarded([&] {
    server = new vpipe::NamedPipeServer;
    return DWORD{ERROR_SUCCESS};
  });
  return server;
}

void ReleasePipeSvr(PipeServer* server) {
  Guarded([&] {
    if (server != nullptr) {
      server->Destroy(1);
    }
    return DWORD{ERROR_SUCCESS};
  });
}
}
