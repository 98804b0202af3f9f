#include "tests/windows/host/console.h"

#include <windows.h>

#include <array>
#include <mutex>

namespace testhost {

namespace {

HANDLE input = nullptr;
HANDLE output = nullptr;

HANDLE Take(DWORD which) {
  const HANDLE given = GetStdHandle(which);
  HANDLE own = nullptr;
  DuplicateHandle(GetCurrentProcess(), given, GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
  SetStdHandle(which, nullptr);
  CloseHandle(given);
  return own;
}

} // namespace

void TakeStandardHandles() {
  input = Take(STD_INPUT_HANDLE);
  output = Take(STD_OUTPUT_HANDLE);
}

void PrintLine(const std::string& line) {
  static std::mutex lock;
  const std::string text = line + "\n";
  const std::lock_guard guard(lock);
  std::size_t written = 0;
  while (written < text.size()) {
    DWORD count = 0;
    if (!WriteFile(output, text.data() + written, static_cast<DWORD>(text.size() - written), &count, nullptr)) {
      return; // nobody reads any more
    }
    written += count;
  }
}

bool ReadLine(std::string& line) {
  static std::string pending;
  for (;;) {
    if (const std::size_t end = pending.find('\n'); end != std::string::npos) {
      line = pending.substr(0, end);
      pending.erase(0, end + 1);
      return true;
    }
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    if (!ReadFile(input, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) || count == 0) {
      return false;
    }
    pending.append(buffer.data(), count);
  }
}

} // namespace testhost
