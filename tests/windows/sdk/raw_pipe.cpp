#include "tests/windows/sdk/raw_pipe.h"

#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>

namespace sdktest {

RawEventPipe::RawEventPipe(std::uint32_t pid) : m_pipe(INVALID_HANDLE_VALUE) {
  const std::string path = "\\\\.\\pipe\\vexel_browser_" + std::to_string(pid);
  EXPECT_TRUE(WaitFor([&] {
    m_pipe = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    return m_pipe != INVALID_HANDLE_VALUE;
  })) << "no pipe "
      << path;
}

RawEventPipe::~RawEventPipe() { CloseHandle(m_pipe); }

bool RawEventPipe::Write(const std::string& bytes) {
  DWORD written = 0;
  return WriteFile(m_pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE;
}

bool RawEventPipe::WaitUntilClosed() {
  return WaitFor([this] {
    std::array<char, 256> reply{};
    DWORD count = 0;
    if (!PeekNamedPipe(m_pipe, nullptr, 0, nullptr, &count, nullptr)) {
      return true;
    }
    return count > 0 && !ReadFile(m_pipe, reply.data(), static_cast<DWORD>(reply.size()), &count, nullptr);
  });
}

std::string Frame(const std::string& text) {
  std::string frame;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    frame += static_cast<char>((text.size() >> shift) & 0xFFU);
  }
  return frame + text;
}

} // namespace sdktest
