#include "foundation/text_codecs.h"

#include "platform/error.h"
#include "platform/types.h"

#include <climits>
#include <cwctype>

namespace vx {
namespace {

constexpr std::size_t kLongestText = INT_MAX;      // the system counts in signed 32 bits
constexpr std::size_t kNarrowBytesForEachUnit = 4; // room for any form that one unit takes

wchar_t FoldUnit(wchar_t unit) noexcept { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(unit))); }

/// One conversion with its one retry: `convert(buffer, size)` is the system's call. Returns the elements written, the
/// terminator included.
template <typename Element, typename Convert>
std::size_t ConvertInto(detail::ConversionBuffer<Element>& buffer, std::size_t room, const Convert& convert) {
  if (room > kLongestText) {
    throw TextError("text too long to convert");
  }
  int written = convert(buffer.Reserve(room), static_cast<int>(room));
  if (written == 0 && platform::GetLastError() == platform::kErrorInsufficientBuffer) {
    const int needed = convert(nullptr, 0);
    written = needed > 0 ? convert(buffer.Reserve(static_cast<std::size_t>(needed)), needed) : 0;
  }
  if (written <= 0) {
    throw TextError("text conversion failed");
  }
  return static_cast<std::size_t>(written);
}

} // namespace

std::string WideToMultiByte(const std::wstring& text, std::uint32_t codePage) {
  if (text.empty() || text.size() > kLongestText) {
    return {};
  }
  const int length = static_cast<int>(text.size());
  const int size = platform::WideCharToMultiByte(codePage, text.data(), length, nullptr, 0);
  if (size <= 0) {
    return {};
  }
  std::string narrow(static_cast<std::size_t>(size), '\0');
  platform::WideCharToMultiByte(codePage, text.data(), length, narrow.data(), size);
  return narrow;
}

std::string WideToUtf8(const std::wstring& text) { return WideToMultiByte(text, platform::kCodePageUtf8); }

std::wstring MultiByteToWide(const std::string& text, std::uint32_t codePage) {
  if (text.empty() || text.size() > kLongestText) {
    return {};
  }
  const int length = static_cast<int>(text.size());
  const int size = platform::MultiByteToWideChar(codePage, text.data(), length, nullptr, 0);
  if (size <= 0) {
    return {};
  }
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  platform::MultiByteToWideChar(codePage, text.data(), length, wide.data(), size);
  return wide;
}

void ToLower(std::wstring& text) noexcept {
  for (wchar_t& unit : text) {
    unit = FoldUnit(unit);
  }
}

bool EqualsIgnoreCase(std::wstring_view left, std::wstring_view right) noexcept {
  if (left.size() != right.size()) {
    return false;
  }
  for (std::size_t at = 0; at < left.size(); ++at) {
    if (left[at] != right[at] && FoldUnit(left[at]) != FoldUnit(right[at])) {
      return false;
    }
  }
  return true;
}

std::int32_t DecimalToInt(const wchar_t* text) noexcept {
  if (text == nullptr) {
    return 0;
  }
  while (std::iswspace(static_cast<std::wint_t>(*text)) != 0) {
    ++text;
  }
  const bool negative = *text == L'-';
  if (negative || *text == L'+') {
    ++text;
  }
  const std::int64_t limit = negative ? -static_cast<std::int64_t>(INT32_MIN) : INT32_MAX;
  std::int64_t value = 0;
  for (; *text >= L'0' && *text <= L'9'; ++text) {
    value = value * 10 + (*text - L'0');
    if (value >= limit) {
      value = limit; // and the rest of the digits changes nothing
      break;
    }
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

NarrowText::NarrowText(const wchar_t* text, std::uint32_t codePage) : m_isNull(text == nullptr) {
  if (m_isNull) {
    return;
  }
  const std::size_t units = std::char_traits<wchar_t>::length(text) + 1;
  if (units > kLongestText / kNarrowBytesForEachUnit) {
    throw TextError("text too long to convert");
  }
  m_length = ConvertInto(m_buffer, units * kNarrowBytesForEachUnit,
                         [&](char* buffer, int size) {
                           return platform::WideCharToMultiByte(codePage, text, static_cast<int>(units), buffer, size);
                         }) -
             1;
}

WideText::WideText(const char* text, std::uint32_t codePage) : m_isNull(text == nullptr) {
  if (m_isNull) {
    return;
  }
  const std::size_t bytes = std::char_traits<char>::length(text) + 1;
  if (bytes > kLongestText) {
    throw TextError("text too long to convert");
  }
  m_length = ConvertInto(m_buffer, bytes,
                         [&](wchar_t* buffer, int size) {
                           return platform::MultiByteToWideChar(codePage, text, static_cast<int>(bytes), buffer, size);
                         }) -
             1;
}

} // namespace vx
