#include "tools/vexelctl/text.h"

#include <algorithm>
#include <cstddef>

namespace vexelctl {
namespace {

constexpr char kUnknownLetter[] = "\xEF\xBF\xBD"; // U+FFFD

// The length of the UTF-8 sequence at the start of `text`, 0 when there is none that is valid.
std::size_t SequenceLength(std::string_view text) {
  const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) {
    return 0;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return 0;
    }
  }
  // Overlong forms, surrogates, and what lies beyond the last letter.
  const unsigned char second = byte(1);
  const bool isBad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return isBad ? 0 : length;
}

} // namespace

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

std::string MendWidened(std::string_view text) {
  std::string bytes;
  bool isWidened = false;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t length = SequenceLength(rest);
    const auto first = static_cast<unsigned char>(rest[0]);
    if (length == 1) {
      bytes += rest[0];
    } else if (length == 2 && first <= 0xC3) {
      bytes += static_cast<char>((first & 3) << 6 | (static_cast<unsigned char>(rest[1]) & 0x3F));
      isWidened = true;
    } else {
      return std::string(text);
    }
    rest.remove_prefix(length);
  }
  return isWidened && IsUtf8(bytes) ? bytes : std::string(text);
}

std::string XmlEscaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      out += kUnknownLetter;
      text.remove_prefix(1);
      continue;
    }
    switch (text[0]) {
    case '&':
      out += "&amp;";
      break;
    case '<':
      out += "&lt;";
      break;
    case '>':
      out += "&gt;";
      break;
    case '"':
      out += "&quot;";
      break;
    default:
      if (length == 1 && static_cast<unsigned char>(text[0]) < 0x20) {
        out += ' ';
      } else {
        out += text.substr(0, length);
      }
    }
    text.remove_prefix(length);
  }
  return out;
}

std::string Printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    const auto first = static_cast<unsigned char>(text[0]);
    const bool isControl = length == 0 || (length == 1 && (first < 0x20 || first == 0x7F)) ||
                           (first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0);
    if (first == '\t') {
      out += ' ';
    } else if (isControl) {
      out += kUnknownLetter;
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out;
}

std::string Shortened(std::string_view text, std::size_t length) {
  std::size_t count = 0;
  std::size_t at = 0;
  std::size_t cut = 0; // where the text is cut to make room for the ellipsis
  while (at < text.size()) {
    if (count + 1 == length) {
      cut = at;
    }
    if (count == length) {
      return std::string(text.substr(0, cut)) + "\xE2\x80\xA6";
    }
    const std::size_t step = SequenceLength(text.substr(at));
    at += step == 0 ? 1 : step;
    ++count;
  }
  return std::string(text);
}

bool IsNestedDeep(std::string_view json) {
  constexpr std::ptrdiff_t kDeep = 1000;
  return std::count_if(json.begin(), json.end(), [](char letter) { return letter == '[' || letter == '{'; }) > kDeep;
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

} // namespace vexelctl
