#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vx {

/// One entry for each input byte below 128: its six bits, 64 for "=", 255 for a byte that is no base64.
extern const std::uint32_t Base64DecodeTable[128];

/// Decodes `length` bytes into `output`, which has room for `length / 4 * 3` bytes, and returns how many of them count.
/// 0, with nothing written, when the length is below 4 or no multiple of 4. Bad bytes are not noticed, and padding
/// shortens the count wherever it stands. Never fails, any thread.
std::size_t Base64DecodeBlock(unsigned char* output, const char* input, std::size_t length,
                              const std::uint32_t* table) noexcept;

/// The bytes that `length` bytes of base64 text stand for, NUL bytes included; empty for null, for no text and for a
/// length that is no multiple of 4. Any thread.
/// @throws std::bad_alloc
std::string Base64Decode(const char* input, std::size_t length);

} // namespace vx
