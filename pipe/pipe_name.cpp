#include "pipe/pipe_name.h"

#include <cstring>
#include <iterator>

namespace vpipe {
namespace {

constexpr wchar_t kPrefix[] = L"\\\\.\\pipe\\";
constexpr int kPrefixLength = static_cast<int>(std::size(kPrefix)) - 1;

} // namespace

bool MakePipePath(const char* name, wchar_t (&path)[kMaxPipePath + 1]) {
  if (name == nullptr || *name == '\0' || std::strpbrk(name, "/\\") != nullptr) {
    return false;
  }
  std::memcpy(path, kPrefix, sizeof kPrefix);
  // Fails for what is not UTF-8 and for what does not fit with its NUL.
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, path + kPrefixLength,
                             kMaxPipePath + 1 - kPrefixLength) > 0;
}

} // namespace vpipe
