#include "vexelsdk/link/pipe_binding.h"

#include "foundation/paths.h"
#include "platform/module.h"

#include <cwchar>
#include <string>

namespace {

constexpr wchar_t kPipeLibrary[] = L"vpipearm64.dll";
constexpr std::size_t kDirectoryUnits = 520;

template <typename Function> Function Resolve(platform::Module module, const char* name) {
  return module == nullptr ? nullptr : reinterpret_cast<Function>(platform::GetProcAddress(module, name));
}

constexpr int kClientTries = 1;
constexpr int kServerTries = 2;

/// Beside the host first, then beside the SDK.
platform::Module FindPipeLibrary(int tries) {
  const platform::Module besideHost = LoadPipeLibrary(nullptr, tries);
  return besideHost != nullptr ? besideHost : LoadPipeLibrary(vx::ThisModule(), tries);
}

} // namespace

bool BuildModuleDirectory(platform::Module module, wchar_t* buffer) {
  if (platform::GetModuleFileNameW(module, buffer, platform::kMaxPath) == 0) {
    return false;
  }
  wchar_t* const last = std::wcsrchr(buffer, L'\\');
  if (last == nullptr) {
    return false;
  }
  *last = L'\0';
  const std::size_t length = std::wcslen(buffer);
  if (length != 0 && (buffer[length - 1] == L'\\' || buffer[length - 1] == L'/')) {
    return true;
  }
  buffer[length] = L'\\';
  buffer[length + 1] = L'\0';
  return true;
}

platform::Module LoadPipeLibrary(platform::Module module, int tries) {
  if (const platform::Module loaded = platform::GetModuleHandleW(kPipeLibrary); loaded != nullptr) {
    return loaded;
  }
  for (int i = 0; i < tries; ++i) {
    wchar_t directory[kDirectoryUnits] = {};
    if (!BuildModuleDirectory(module, directory)) {
      return nullptr;
    }
    const std::wstring path = std::wstring(directory) + kPipeLibrary;
    if (const platform::Module library = platform::LoadLibraryW(path.c_str()); library != nullptr) {
      return library;
    }
  }
  return nullptr;
}

PipeClientBinding::PipeClientBinding()
    : m_module(FindPipeLibrary(kClientTries)),
      m_cltConnectServer(Resolve<CltConnectServerFun>(m_module, "CltConnectServer")),
      m_cltDisConnect(Resolve<CltDisConnectFun>(m_module, "CltDisConnect")),
      m_cltComunicate(Resolve<CltComunicateFun>(m_module, "CltComunicate")) {}

std::uint32_t PipeClientBinding::CltConnectServer(const char* name) const {
  return m_cltConnectServer == nullptr ? 0 : m_cltConnectServer(name);
}

void PipeClientBinding::CltDisConnect(std::uint32_t connection) const { m_cltDisConnect(connection); }

const char* PipeClientBinding::CltComunicate(std::uint32_t connection, const char* text) const {
  return m_cltComunicate(connection, text);
}

PipeServerBinding::PipeServerBinding()
    : m_module(FindPipeLibrary(kServerTries)), m_createPipeSvr(Resolve<CreatePipeSvrFun>(m_module, "CreatePipeSvr")),
      m_releasePipeSvr(Resolve<ReleasePipeSvrFun>(m_module, "ReleasePipeSvr")) {}

PipeServer* PipeServerBinding::CreatePipeSvr() const {
  return m_createPipeSvr == nullptr ? nullptr : m_createPipeSvr();
}

void PipeServerBinding::ReleasePipeSvr(PipeServer* server) const {
  if (m_releasePipeSvr != nullptr) {
    m_releasePipeSvr(server);
  }
}
