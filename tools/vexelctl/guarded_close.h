#pragma once

#include <cstdint>
#include <string>

#include "tools/vexelctl/sdk_library.h"

namespace vexelctl {

/// Calls CloseEditor. A close that meets an id without a link is an access violation inside the library, and nothing
/// that a host can ask tells of the link before: then the program says `sentence` on standard error and ends with
/// kExitProblem. One thread at a time.
bool CloseGuarded(const SdkLibrary& sdk, std::int32_t id, bool closeAll, const std::string& sentence);

} // namespace vexelctl
