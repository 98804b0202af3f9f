#pragma once

#include <string>

namespace vexelctl {

/// Whether an open parameter, base64 text, holds switches at all. The SDK takes one that does not as if there were none.
bool HoldsSwitches(const std::string& param);

extern const char* const kNoSwitches; // a sentence that says so

} // namespace vexelctl
