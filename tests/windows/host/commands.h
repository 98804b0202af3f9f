#pragma once

#include <string>

namespace testhost {

/// Carries out one command line and gives the answer: "ok", "value ..." or "err ...". "quit" does not return.
std::string Obey(const std::string& line);

} // namespace testhost
