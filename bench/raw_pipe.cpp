#include "bench/raw_pipe.h"

#include "bench/clock.h"

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr DWORD kBufferBytes = 65536;

std::string PathOf(const std::string& name) { return "\\\\.\\pipe\\" + name; }

[[noreturn]] void Fail(const std::string& name) {
  std::fprintf(stderr, "raw pipe %s: error %lu\n", name.c_str(), GetLastError());
  std::exit(1);
}

} // namespace

HANDLE MakeRawServer(const std::string& name, PipeMode mode, DWORD instances) {
  const DWORD modes = mode == PipeMode::kMessage ? PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE : PIPE_TYPE_BYTE;
  const HANDLE pipe = CreateNamedPipeA(PathOf(name).c_str(), PIPE_ACCESS_DUPLEX, modes | PIPE_WAIT, instances,
                                       kBufferBytes, kBufferBytes, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) {
    Fail(name);
  }
  return pipe;
}

HANDLE OpenRaw(const std::string& name, PipeMode mode) {
  const HANDLE pipe =
      CreateFileA(PathOf(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (pipe != INVALID_HANDLE_VALUE && mode == PipeMode::kMessage) {
    DWORD wanted = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe, &wanted, nullptr, nullptr);
  }
  return pipe;
}

HANDLE OpenRawSoon(const std::string& name, PipeMode mode) {
  const double start = NowUs();
  while (NowUs() - start < 20e6) {
    if (const HANDLE pipe = OpenRaw(name, mode); pipe != INVALID_HANDLE_VALUE) {
      return pipe;
    }
    Sleep(5);
  }
  Fail(name);
}

bool RawWrite(HANDLE pipe, const char* data, DWORD size) {
  DWORD written = 0;
  return WriteFile(pipe, data, size, &written, nullptr) && written == size;
}

DWORD RawRead(HANDLE pipe, char* data, DWORD size) {
  DWORD got = 0;
  return ReadFile(pipe, data, size, &got, nullptr) ? got : 0;
}

bool RawReadAll(HANDLE pipe, char* data, DWORD size) {
  while (size > 0) {
    const DWORD got = RawRead(pipe, data, size);
    if (got == 0) {
      return false;
    }
    data += got;
    size -= got;
  }
  return true;
}

} // namespace bench
