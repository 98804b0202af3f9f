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
void MeasureLog(const Effort& effort, Report& report);
void MeasureGate(const Effort& effort, Report& report);
void MeasureDelivery(const Effort& effort, Report& report);
void MeasureEvents(const Effort& effort, Report& report);
void MeasureStarting(const Effort& effort, Report& report);
/// One round of MeasureStarting, which runs it in a process of its own.
void MeasureOneOpening(const Effort& effort, Report& report);
void MeasureIdle(const Effort& effort, Report& report);

} // namespace bench
