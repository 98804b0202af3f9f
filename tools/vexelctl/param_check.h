#pragma once

#include <string>

namespace vexelctl {

/// Whether an open parameter, base64 text, holds switches. The SDK takes one without as if there were no parameter.
bool HoldsSwitches(const std::string& param);

extern const char* const kNoSwitches; // a sentence that says so

} // namespace vexelctl
