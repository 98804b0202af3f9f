#include "tests/windows/sdk/text.h"

#include <windows.h>

#include <array>
#include <chrono>
#include <cstdlib>

namespace sdktest {
namespace {

constexpr std::chrono::seconds kLimit{60};
constexpr DWORD kLookMs = 10;

} // namespace

bool WaitFor(const std::function<bool()>& isTrue) {
  const auto end = std::chrono::steady_clock::now() + kLimit;
  while (!isTrue()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    Sleep(kLookMs);
  }
  return true;
}

std::string Utf8(const std::wstring& text) {
  const int units = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), units, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), units, narrow.data(), size, nullptr, nullptr);
  return narrow;
}

std::wstring Wide(const std::string& text) {
  const int bytes = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), bytes, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), bytes, wide.data(), size);
  return wide;
}

std::wstring Base64(const std::string& text) {
  constexpr wchar_t kDigits[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::wstring out;
  for (std::size_t at = 0; at < text.size(); at += 3) {
    std::uint32_t block = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      block = block << 8 | (at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      out += at + i > text.size() ? L'=' : kDigits[block >> (18 - 6 * i) & 0x3FU];
    }
  }
  return out;
}

std::int64_t NumberAfter(const std::string& text, const std::string& label) {
  const std::size_t at = text.find(label);
  return at == std::string::npos ? -1 : std::strtoll(text.c_str() + at + label.size(), nullptr, 10);
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string ReadFileBytes(const std::wstring& path) {
  std::string bytes;
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return bytes;
  }
  std::array<char, 65536> buffer{};
  DWORD count = 0;
  while (ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) && count > 0) {
    bytes.append(buffer.data(), count);
  }
  CloseHandle(file);
  return bytes;
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  const HANDLE file =
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return;
  }
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::vector<std::string> ReadLines(const std::wstring& path) {
  std::vector<std::string> lines;
  const std::string bytes = ReadFileBytes(path);
  std::size_t begin = 0;
  for (std::size_t end = bytes.find('\n'); end != std::string::npos; end = bytes.find('\n', begin)) {
    const std::size_t length = end - begin - (end > begin && bytes[end - 1] == '\r' ? 1U : 0U);
    lines.push_back(bytes.substr(begin, length));
    begin = end + 1;
  }
  return lines;
}

std::string SmallPicture() {
  BITMAPFILEHEADER file{};
  BITMAPINFOHEADER info{};
  constexpr std::size_t kPixelBytes = 16; // two rows of two pixels, each row filled up to eight bytes
  file.bfType = 0x4D42;
  file.bfOffBits = sizeof file + sizeof info;
  file.bfSize = static_cast<DWORD>(file.bfOffBits + kPixelBytes);
  info.biSize = sizeof info;
  info.biWidth = 2;
  info.biHeight = 2;
  info.biPlanes = 1;
  info.biBitCount = 24;
  return std::string(reinterpret_cast<const char*>(&file), sizeof file) +
         std::string(reinterpret_cast<const char*>(&info), sizeof info) + std::string(kPixelBytes, '\x7f');
}

} // namespace sdktest
