#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The search for a text's end and for a NUL inside of it. Every byte that travels is looked at once on each side, so for
// long texts the search is a good part of the way, and a runtime's own functions may look at single bytes.
namespace vpipe {

/// Whether one of `size` bytes is 0.
inline bool HoldsNul(const char* bytes, std::size_t size) {
  constexpr std::size_t kBlock = 256;
  while (size >= kBlock) {
    // Without a way out of the middle, so that the compiler takes many bytes at a time.
    unsigned char found = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
      found = static_cast<unsigned char>(found | static_cast<unsigned char>(bytes[i] == 0 ? 1 : 0));
    }
    if (found != 0) {
      return true;
    }
    bytes += kBlock;
    size -= kBlock;
  }
  return std::memchr(bytes, 0, size) != nullptr;
}

/// The length of a NUL-terminated text, or `limit` when it is not shorter than that. Reads no byte of a page that the
/// text does not reach.
inline std::size_t LengthUpTo(const char* text, std::size_t limit) {
  constexpr std::size_t kBlock = 256;
  std::size_t length = 0;
  while (length < limit && reinterpret_cast<std::uintptr_t>(text + length) % kBlock != 0) {
    if (text[length] == '\0') {
      return length;
    }
    ++length;
  }
  // An aligned block lies in one page.
  while (limit - length >= kBlock && !HoldsNul(text + length, kBlock)) {
    length += kBlock;
  }
  while (length < limit && text[length] != '\0') {
    ++length;
  }
  return length;
}

} // namespace vpipe
