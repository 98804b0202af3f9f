#pragma once

#include <cstdint>

// Conversions between UTF-16 and byte text.
namespace platform {

inline constexpr std::uint32_t kCodePageThreadAnsi = 3;
inline constexpr std::uint32_t kCodePageUtf8 = 65001;

/// Converts `length` 16-bit units (-1: up to and with the terminator) with flags 0, a bad unit becoming U+FFFD.
/// `size` 0 asks for the bytes needed. Returns the bytes written or needed, 0 on failure with a last error
/// (122 when `size` bytes do not suffice). Never blocks.
int WideCharToMultiByte(std::uint32_t codePage, const wchar_t* text, int length, char* buffer, int size);

/// The way back: `length` bytes (-1: up to and with the terminator) into `size` 16-bit units, by the same rules.
int MultiByteToWideChar(std::uint32_t codePage, const char* text, int length, wchar_t* buffer, int size);

} // namespace platform
