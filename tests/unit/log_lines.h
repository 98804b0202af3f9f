#pragma once

#include "tests/sim/file.h"

#include <string>
#include <vector>

/// The lines of a simulated log, each as its severity, a blank and its text: "INFO Class::Function text". A line that
/// does not end as it should stands there whole.
inline std::vector<std::string> LogLines(const std::wstring& path) {
  std::vector<std::string> lines;
  const std::string bytes = sim::FileBytes(path);
  for (std::size_t begin = 0; begin < bytes.size();) {
    const std::size_t end = bytes.find("\r\n", begin);
    if (end == std::string::npos) {
      lines.push_back(bytes.substr(begin));
      break;
    }
    const std::string line = bytes.substr(begin, end - begin);
    const std::size_t date = line.find('|');
    const std::size_t severity = line.find('|', date + 1);
    const std::size_t site = line.find('|', severity + 1);
    const std::size_t text = line.find("] ", site);
    if (date == std::string::npos || severity == std::string::npos || site == std::string::npos ||
        text == std::string::npos) {
      lines.push_back(line);
    } else {
      const std::size_t word = line.find_first_not_of(' ', severity + 1);
      lines.push_back(line.substr(word, site - word) + line.substr(text + 1));
    }
    begin = end + 2;
  }
  return lines;
}
