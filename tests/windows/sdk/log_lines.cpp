#include "tests/windows/sdk/log_lines.h"

#include <cctype>
#include <cstddef>
#include <string_view>

namespace sdktest {
namespace {

bool TakeDigits(const std::string& line, std::size_t& at) {
  const std::size_t begin = at;
  while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])) != 0) {
    ++at;
  }
  return at > begin;
}

bool TakeText(const std::string& line, std::size_t& at, std::string_view text) {
  if (line.compare(at, text.size(), text) != 0) {
    return false;
  }
  at += text.size();
  return true;
}

bool TakeTime(const std::string& line, std::size_t& at) {
  constexpr std::string_view kForm = "9999-99-99 99:99:99|";
  for (const char form : kForm) {
    if (at >= line.size() ||
        (form == '9' ? std::isdigit(static_cast<unsigned char>(line[at])) == 0 : line[at] != form)) {
      return false;
    }
    ++at;
  }
  return true;
}

bool TakeLevel(const std::string& line, std::size_t& at) {
  return TakeText(line, at, "   INFO|") || TakeText(line, at, "WARNING|") || TakeText(line, at, "  ERROR|");
}

} // namespace

bool IsWholeLogLine(const std::string& line) {
  std::size_t at = 0;
  if (!TakeText(line, at, "[") || !TakeDigits(line, at)) {
    return false;
  }
  while (at < line.size() && line[at] == ' ') {
    ++at;
  }
  if (!TakeText(line, at, "|") || !TakeTime(line, at) || !TakeLevel(line, at)) {
    return false;
  }
  const std::size_t colon = line.find(':', at);
  if (colon == std::string::npos) {
    return false;
  }
  const std::string file = line.substr(at, colon - at);
  if (!file.ends_with(".cpp") && !file.ends_with(".h")) {
    return false;
  }
  at = colon + 1;
  return TakeDigits(line, at) && TakeText(line, at, "] ") && at < line.size() &&
         line.find("|   INFO|", at) == std::string::npos;
}

std::string BrokenLine(const std::string& bytes) {
  std::size_t begin = 0;
  while (begin < bytes.size()) {
    const std::size_t end = bytes.find('\n', begin);
    if (end == std::string::npos || end == begin || bytes[end - 1] != '\r') {
      return "without CR LF at its end: " + bytes.substr(begin, 200);
    }
    const std::string line = bytes.substr(begin, end - 1 - begin);
    if (!IsWholeLogLine(line) || line.find('\0') != std::string::npos) {
      return line;
    }
    begin = end + 1;
  }
  return {};
}

} // namespace sdktest
