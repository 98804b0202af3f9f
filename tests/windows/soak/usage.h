#pragma once

#include "tests/windows/sdk/host_process.h"

#include <cstdint>
#include <map>
#include <string>

namespace soak {

/// What a host holds at one moment.
struct Usage {
  std::int64_t heapBytes = 0;
  std::int64_t heapBlocks = 0;
  std::int64_t privateBytes = 0;
  std::int64_t threads = 0;
  std::map<std::string, std::int64_t> handles; // by the type of their object

  std::int64_t AllHandles() const;
  /// Those that no look at a process leaves open on purpose.
  std::int64_t OwnHandles() const;
};

Usage AskUsage(sdktest::HostProcess& host);

/// One line.
std::string Describe(const Usage& usage);

/// What came on top from `before` to `after`, for each of `count` things, as one line.
std::string DescribeGrowth(const Usage& before, const Usage& after, std::int64_t count);

} // namespace soak
