#include "tests/pipe/pipe_util.h"

#include <cstdio>
#include <cstdlib>

namespace {

template <typename Function> Function Entry(HMODULE module, const char* name) {
  const auto entry = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  if (entry == nullptr) {
    std::fprintf(stderr, "vpipearm64.dll has no %s\n", name);
    std::abort();
  }
  return entry;
}

Library Load() {
  wchar_t path[MAX_PATH];
  std::wstring file(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
  file = file.substr(0, file.find_last_of(L'\\') + 1) + L"vpipearm64.dll";
  Library library;
  library.module = LoadLibraryW(file.c_str());
  if (library.module == nullptr) {
    std::fprintf(stderr, "vpipearm64.dll does not load: %lu\n", GetLastError());
    std::abort();
  }
  library.connectServer = Entry<decltype(library.connectServer)>(library.module, "CltConnectServer");
  library.disConnect = Entry<decltype(library.disConnect)>(library.module, "CltDisConnect");
  library.comunicate = Entry<decltype(library.comunicate)>(library.module, "CltComunicate");
  library.createPipeSvr = Entry<decltype(library.createPipeSvr)>(library.module, "CreatePipeSvr");
  library.releasePipeSvr = Entry<decltype(library.releasePipeSvr)>(library.module, "ReleasePipeSvr");
  return library;
}

} // namespace

const Library& TheLibrary() {
  static const Library library = Load();
  return library;
}

std::uint32_t ConnectSoon(const std::string& name) {
  const ULONGLONG start = GetTickCount64();
  std::uint32_t connection = 0;
  while ((connection = TheLibrary().connectServer(name.c_str())) == 0 && GetTickCount64() - start < 30000) {
    Sleep(2);
  }
  return connection;
}

std::string RawFrame(std::string_view text) {
  std::string frame;
  for (unsigned i = 0; i < 4; ++i) {
    frame += static_cast<char>(static_cast<unsigned char>(text.size() >> (8 * i)));
  }
  return frame.append(text);
}

HANDLE RawConnect(const std::string& name) {
  const std::string path = "\\\\.\\pipe\\" + name;
  const ULONGLONG start = GetTickCount64();
  HANDLE pipe = INVALID_HANDLE_VALUE;
  do {
    pipe = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) {
      return pipe;
    }
    Sleep(2);
  } while (GetTickCount64() - start < 30000);
  return pipe;
}

bool RawWrite(HANDLE pipe, std::string_view bytes) {
  DWORD done = 0;
  return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) && done == bytes.size();
}

std::string RawRead(HANDLE pipe) {
  std::string bytes(65536, '\0');
  DWORD done = 0;
  if (!ReadFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr)) {
    done = 0;
  }
  bytes.resize(done);
  return bytes;
}
