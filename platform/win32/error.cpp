#include "platform/error.h"

#include <windows.h>

namespace platform {

std::uint32_t GetLastError() { return ::GetLastError(); }

void SetLastError(std::uint32_t error) { ::SetLastError(error); }

} // namespace platform
