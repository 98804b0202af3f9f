#pragma once

#include <string>

namespace sdktest {

/// Whether a log line, without its end, has the header that every line has, and once only.
bool IsWholeLogLine(const std::string& line);

/// The first thing that is wrong with the bytes of a log, or "".
std::string BrokenLine(const std::string& bytes);

} // namespace sdktest
