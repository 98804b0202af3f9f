#pragma once

#include <cstdint>
#include <cwctype>
#include <map>
#include <string>
#include <string_view>

// The same rules written a second time, as plainly as can be and by other means than the library uses.
namespace fuzz {

inline constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Six bits of a base64 character, with what a bad one and the padding leave in the output.
inline std::uint32_t Base64Bits(char c) {
  const std::size_t at = kBase64Alphabet.find(c);
  return at != std::string_view::npos ? static_cast<std::uint32_t>(at) : (c == '=' ? 0u : 63u);
}

/// Each group of four is one number of 24 bits; each padded group shortens the whole from behind.
inline std::string DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) {
    return {};
  }
  std::string bytes;
  std::size_t padding = 0;
  for (std::size_t at = 0; at < text.size(); at += 4) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      group = group << 6 | Base64Bits(text[at + i]);
    }
    for (const unsigned shift : {16u, 8u, 0u}) {
      bytes += static_cast<char>(static_cast<unsigned char>(group >> shift));
    }
    if (text[at + 3] == '=') {
      padding += text[at + 2] == '=' ? 2u : 1u;
    }
  }
  bytes.resize(bytes.size() - padding);
  return bytes;
}

inline std::string EncodeBase64(std::string_view bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += at + i > bytes.size() ? '=' : kBase64Alphabet[group >> (18 - 6 * i) & 63];
    }
  }
  return text;
}

inline wchar_t Fold(wchar_t unit) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(unit))); }

inline std::wstring Folded(std::wstring text) {
  for (wchar_t& unit : text) {
    unit = Fold(unit);
  }
  return text;
}

/// The form in which two paths are compared: backslashes only, one where several stand, none at the end. What is behind a
/// run stays as it is for as many characters as the run has lost, and a run that begins there is not seen.
inline std::wstring ComparedPath(std::wstring_view path) {
  std::wstring form;
  std::size_t blind = 0;
  for (std::size_t at = 0; at < path.size();) {
    std::size_t run = 0;
    while (at + run < path.size() && (path[at + run] == L'\\' || path[at + run] == L'/')) {
      ++run;
    }
    if (run == 0 || blind > 0) {
      form += run == 0 ? path[at] : L'\\';
      blind -= blind > 0 ? 1u : 0u;
      ++at;
    } else {
      form += L'\\';
      blind = run - 1;
      at += run;
    }
  }
  while (form.ends_with(L'\\')) {
    form.pop_back();
  }
  return form;
}

/// The path up to its last backslash, or up to its last slash where it has no backslash.
inline std::wstring FolderOf(std::wstring path) {
  const wchar_t separator = path.find(L'\\') != std::wstring::npos ? L'\\' : L'/';
  while (!path.empty() && path.back() != separator) {
    path.pop_back();
  }
  return path;
}

using Switches = std::map<std::wstring, std::wstring>;

/// The switches of a text, one character after the other. Ends at the first NUL.
inline Switches ReadSwitches(std::wstring_view text, bool caseSensitive = false) {
  enum class In { kWord, kName, kColon, kValue, kQuotes };
  text = text.substr(0, text.find(L'\0'));
  Switches switches;
  std::wstring name;
  std::wstring value;
  In in = In::kWord;
  const auto store = [&] {
    if (!name.empty()) {
      switches.emplace(caseSensitive ? name : Folded(name), value); // the first of a name stands
    }
    name.clear();
    value.clear();
    in = In::kWord;
  };
  for (const wchar_t unit : text) {
    switch (in) {
    case In::kWord:
      if (unit == L'-' || unit == L'/') {
        in = In::kName;
      }
      break;
    case In::kName:
      if (unit == L' ') {
        store();
      } else if (unit == L':') {
        in = In::kColon;
      } else {
        name += unit;
      }
      break;
    case In::kColon:
      if (unit == L'"') {
        in = In::kQuotes;
      } else if (unit == L' ') {
        store();
      } else {
        value += unit;
        in = In::kValue;
      }
      break;
    case In::kValue:
    case In::kQuotes:
      if (unit == (in == In::kQuotes ? L'"' : L' ')) {
        store();
      } else {
        value += unit;
      }
      break;
    }
  }
  if (in != In::kWord) {
    store();
  }
  return switches;
}

/// The decimal number at the start of a text, held within 32 bits.
inline std::int32_t ReadNumber(std::wstring_view text) {
  while (!text.empty() && std::iswspace(static_cast<std::wint_t>(text.front())) != 0) {
    text.remove_prefix(1);
  }
  const bool negative = !text.empty() && text.front() == L'-';
  if (negative || (!text.empty() && text.front() == L'+')) {
    text.remove_prefix(1);
  }
  double value = 0; // exact as long as it matters
  for (; !text.empty() && text.front() >= L'0' && text.front() <= L'9'; text.remove_prefix(1)) {
    value = value > 1e12 ? value : value * 10 + (text.front() - L'0');
  }
  value = negative ? -value : value;
  return value > INT32_MAX ? INT32_MAX : value < INT32_MIN ? INT32_MIN : static_cast<std::int32_t>(value);
}

} // namespace fuzz
