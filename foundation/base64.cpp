#include "foundation/base64.h"

namespace vx {
namespace {

constexpr std::uint32_t kPadding = 64;
constexpr std::uint32_t kNoBase64 = 255;

std::uint32_t Entry(const std::uint32_t* table, char input) noexcept {
  const auto byte = static_cast<unsigned char>(input);
  return byte < 128 ? table[byte] : kNoBase64; // the table ends where ASCII does
}

} // namespace

// clang-format off
const std::uint32_t Base64DecodeTable[128] = {
  255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, // controls
  255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
  255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,  62, 255, 255, 255,  63, // + and /
   52,  53,  54,  55,  56,  57,  58,  59,  60,  61, 255, 255, 255,  64, 255, 255, // 0 to 9 and =
  255,   0,   1,   2,   3,   4,   5,   6,   7,   8,   9,  10,  11,  12,  13,  14, // A to O
   15,  16,  17,  18,  19,  20,  21,  22,  23,  24,  25, 255, 255, 255, 255, 255, // P to Z
  255,  26,  27,  28,  29,  30,  31,  32,  33,  34,  35,  36,  37,  38,  39,  40, // a to o
   41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51, 255, 255, 255, 255, 255, // p to z
};
// clang-format on

std::size_t Base64DecodeBlock(unsigned char* output, const char* input, std::size_t length,
                              const std::uint32_t* table) noexcept {
  if (length < 4 || length % 4 != 0) {
    return 0;
  }
  std::size_t count = 0;
  for (std::size_t at = 0; at < length; at += 4) {
    const std::uint32_t t0 = Entry(table, input[at]);
    const std::uint32_t t1 = Entry(table, input[at + 1]);
    const std::uint32_t t2 = Entry(table, input[at + 2]);
    const std::uint32_t t3 = Entry(table, input[at + 3]);
    *output++ = static_cast<unsigned char>((t0 & 63) << 2 | (t1 & 48) >> 4);
    *output++ = static_cast<unsigned char>((t1 & 15) << 4 | (t2 & 60) >> 2);
    *output++ = static_cast<unsigned char>((t2 & 3) << 6 | (t3 & 63));
    count += 3;
    // Padding counts in every group; all bytes stay where they are, and the caller cuts at the end.
    if (t3 == kPadding) {
      --count;
      if (t2 == kPadding) {
        --count;
      }
    }
  }
  return count;
}

std::string Base64Decode(const char* input, std::size_t length) {
  if (input == nullptr || length == 0) {
    return {};
  }
  std::string decoded((length / 4 + (length % 4 != 0 ? 1 : 0)) * 3, '\0');
  decoded.resize(Base64DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()), input, length, Base64DecodeTable));
  return decoded;
}

} // namespace vx
