#pragma once

#include "bench/report.h"

// The sections of the suite. Each runs in a process of its own, since a process has one engine and one log.
namespace bench {

struct Effort {
  bool isShort = false;

  /// Rounds for a full run, or for a short one.
  std::size_t operator()(std::size_t full, std::size_t quick) const { return isShort ? quick : full; }
};

void MeasureRoundTrips(const Effort& effort, Report& report);
void MeasurePeers(const Effort& effort, Report& report);

} // namespace bench
