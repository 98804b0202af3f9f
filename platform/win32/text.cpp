#include "platform/text.h"

#include <windows.h>

namespace platform {

int WideCharToMultiByte(std::uint32_t codePage, const wchar_t* text, int length, char* buffer, int size) {
  return ::WideCharToMultiByte(codePage, 0, text, length, buffer, size, nullptr, nullptr);
}

int MultiByteToWideChar(std::uint32_t codePage, const char* text, int length, wchar_t* buffer, int size) {
  return ::MultiByteToWideChar(codePage, 0, text, length, buffer, size);
}

} // namespace platform
