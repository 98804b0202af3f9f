#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The number that stands directly behind the first `mark` in `text`; 0 without one.
inline std::uint64_t NumberBehind(std::string_view text, std::string_view mark) {
  const std::size_t at = text.find(mark);
  std::uint64_t number = 0;
  for (std::size_t i = at + mark.size(); at != text.npos && i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10 + static_cast<std::uint64_t>(text[i] - '0');
  }
  return number;
}
