#include "tests/sim/text.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <type_traits>

#include "platform/text.h"
#include "tests/sim/core.h"

namespace sim::internal {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// What windows-1252 holds from 0x80 to 0x9F; its five unused bytes stand for the control characters of that number.
constexpr std::array<std::uint16_t, 32> kAnsiUpper = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                                      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool IsHigh(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLow(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

std::uint32_t Unit(wchar_t value) {
  const auto unit = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(value));
  if (unit > 0xFFFF) {
    Die("a wchar_t holds more than one UTF-16 code unit; make such text with sim::Wide");
  }
  return unit;
}

void AppendUtf8(std::string* out, std::uint32_t point) {
  const auto add = [out](std::uint32_t byte) { out->push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  if (point < 0x80) {
    add(point);
  } else if (point < 0x800) {
    add(0xC0 | (point >> 6));
    add(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    add(0xE0 | (point >> 12));
    add(0x80 | ((point >> 6) & 0x3F));
    add(0x80 | (point & 0x3F));
  } else {
    add(0xF0 | (point >> 18));
    add(0x80 | ((point >> 12) & 0x3F));
    add(0x80 | ((point >> 6) & 0x3F));
    add(0x80 | (point & 0x3F));
  }
}

void AppendUtf16(std::wstring* out, std::uint32_t point) {
  if (point >= 0x10000) {
    out->push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
    out->push_back(static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
  } else {
    out->push_back(static_cast<wchar_t>(point));
  }
}

std::string EncodeAnsi(std::wstring_view text) {
  std::string out;
  for (const wchar_t value : text) {
    const std::uint32_t unit = Unit(value);
    if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) {
      out.push_back(static_cast<char>(static_cast<unsigned char>(unit)));
      continue;
    }
    char byte = '?';
    for (std::size_t k = 0; k < kAnsiUpper.size(); ++k) {
      if (kAnsiUpper[k] == unit) {
        byte = static_cast<char>(static_cast<unsigned char>(0x80 + k));
      }
    }
    out.push_back(byte); // each half of a pair gets a stand-in of its own
  }
  return out;
}

std::wstring DecodeAnsi(std::string_view bytes) {
  std::wstring out;
  for (const char value : bytes) {
    const auto byte = static_cast<unsigned char>(value);
    out.push_back(static_cast<wchar_t>(byte >= 0x80 && byte < 0xA0 ? kAnsiUpper[byte - 0x80u] : byte));
  }
  return out;
}

} // namespace

std::string EncodeUtf8(std::wstring_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::uint32_t unit = Unit(text[i]);
    if (IsHigh(unit) && i + 1 < text.size() && IsLow(Unit(text[i + 1]))) {
      AppendUtf8(&out, 0x10000 + ((unit - 0xD800) << 10) + (Unit(text[i + 1]) - 0xDC00));
      ++i;
    } else {
      AppendUtf8(&out, IsHigh(unit) || IsLow(unit) ? kReplacement : unit);
    }
  }
  return out;
}

std::wstring DecodeUtf8(std::string_view bytes) {
  std::wstring out;
  const auto at = [bytes](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])); };
  std::size_t i = 0;
  while (i < bytes.size()) {
    const std::uint32_t lead = at(i++);
    if (lead < 0x80) {
      AppendUtf16(&out, lead);
      continue;
    }
    // The range of the second byte shuts out overlong forms, surrogates and all above U+10FFFF.
    std::uint32_t low = 0x80;
    std::uint32_t high = 0xBF;
    int more = 0;
    std::uint32_t point = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      more = 1;
      point = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      more = 2;
      point = lead & 0x0F;
      low = lead == 0xE0 ? 0xA0 : low;
      high = lead == 0xED ? 0x9F : high;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      more = 3;
      point = lead & 0x07;
      low = lead == 0xF0 ? 0x90 : low;
      high = lead == 0xF4 ? 0x8F : high;
    }
    bool valid = more != 0;
    for (; more > 0; --more) {
      if (i >= bytes.size() || at(i) < low || at(i) > high) {
        valid = false;
        break;
      }
      point = (point << 6) | (at(i++) & 0x3F);
      low = 0x80;
      high = 0xBF;
    }
    AppendUtf16(&out, valid ? point : kReplacement);
  }
  return out;
}

} // namespace sim::internal

namespace platform {

using namespace sim::internal;

namespace {

bool Known(std::uint32_t codePage) { return codePage == kCodePageUtf8 || codePage == kCodePageThreadAnsi; }

} // namespace

int WideCharToMultiByte(std::uint32_t codePage, const wchar_t* text, int length, char* buffer, int size) {
  Call call("WideCharToMultiByte");
  if (call.Fails(kInvalidParameter)) {
    return 0;
  }
  if (!Known(codePage) || text == nullptr || length == 0 || length < -1 || size < 0 ||
      (size > 0 && buffer == nullptr) || static_cast<const void*>(text) == buffer) {
    Leave(kInvalidParameter);
    return 0;
  }
  const std::size_t units = length == -1 ? std::wcslen(text) + 1 : static_cast<std::size_t>(length);
  const std::wstring_view source(text, units);
  const std::string bytes = codePage == kCodePageUtf8 ? EncodeUtf8(source) : EncodeAnsi(source);
  if (bytes.size() > INT32_MAX) {
    Leave(kInvalidParameter);
    return 0;
  }
  if (size == 0) {
    return static_cast<int>(bytes.size());
  }
  // What fits is written all the same, as on the real system.
  const auto room = static_cast<std::size_t>(size);
  bytes.copy(buffer, room);
  if (bytes.size() > room) {
    Leave(kInsufficientBuffer);
    return 0;
  }
  return static_cast<int>(bytes.size());
}

int MultiByteToWideChar(std::uint32_t codePage, const char* text, int length, wchar_t* buffer, int size) {
  Call call("MultiByteToWideChar");
  if (call.Fails(kInvalidParameter)) {
    return 0;
  }
  if (!Known(codePage) || text == nullptr || length == 0 || length < -1 || size < 0 ||
      (size > 0 && buffer == nullptr) || static_cast<const void*>(text) == buffer) {
    Leave(kInvalidParameter);
    return 0;
  }
  const std::size_t count = length == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(length);
  const std::string_view source(text, count);
  const std::wstring units = codePage == kCodePageUtf8 ? DecodeUtf8(source) : DecodeAnsi(source);
  if (size == 0) {
    return static_cast<int>(units.size());
  }
  const auto room = static_cast<std::size_t>(size);
  units.copy(buffer, room);
  if (units.size() > room) {
    Leave(kInsufficientBuffer);
    return 0;
  }
  return static_cast<int>(units.size());
}

} // namespace platform
