#include "tests/windows/host/wire.h"

#include <cstdlib>
#include <sstream>
#include <string_view>

namespace wire {
namespace {

constexpr std::size_t kUnitDigits = 4;

bool IsPlain(wchar_t unit) {
  return (unit >= L'a' && unit <= L'z') || (unit >= L'A' && unit <= L'Z') || (unit >= L'0' && unit <= L'9') ||
         (unit != L'\0' && std::wstring_view(L"._-:/\\=").find(unit) != std::wstring_view::npos);
}

} // namespace

std::string Encode(const wchar_t* text) { return text == nullptr ? "@null" : Encode(std::wstring(text)); }

std::string Encode(const std::wstring& text) {
  if (text.empty()) {
    return "@empty";
  }
  constexpr char kDigits[] = "0123456789abcdef";
  std::string word;
  for (const wchar_t unit : text) {
    if (IsPlain(unit)) {
      word += static_cast<char>(unit);
      continue;
    }
    word += '%';
    for (int shift = 12; shift >= 0; shift -= 4) {
      word += kDigits[(static_cast<unsigned>(unit) >> shift) & 0xFU];
    }
  }
  return word;
}

std::optional<std::wstring> Decode(const std::string& word) {
  if (word == "@null") {
    return std::nullopt;
  }
  std::wstring text;
  if (word == "@empty") {
    return text;
  }
  for (std::size_t at = 0; at < word.size(); ++at) {
    if (word[at] != '%') {
      text += static_cast<wchar_t>(word[at]);
      continue;
    }
    text += static_cast<wchar_t>(std::strtoul(word.substr(at + 1, kUnitDigits).c_str(), nullptr, 16));
    at += kUnitDigits;
  }
  return text;
}

std::string Escape(const std::string& text) {
  std::string line;
  for (const char c : text) {
    switch (c) {
    case '\\':
      line += "\\\\";
      break;
    case '\r':
      line += "\\r";
      break;
    case '\n':
      line += "\\n";
      break;
    default:
      line += c;
    }
  }
  return line;
}

std::string Unescape(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\' || at + 1 == text.size()) {
      plain += text[at];
      continue;
    }
    ++at;
    plain += text[at] == 'r' ? '\r' : text[at] == 'n' ? '\n' : text[at];
  }
  return plain;
}

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

} // namespace wire
