#include "platform/error.h"

#include "tests/sim/core.h"

namespace platform {

std::uint32_t GetLastError() {
  const sim::internal::Call call("GetLastError");
  return sim::internal::LastError();
}

void SetLastError(std::uint32_t error) {
  const sim::internal::Call call("SetLastError");
  sim::internal::Leave(error);
}

} // namespace platform
