#pragma once

#include "bench/report.h"

#include <iosfwd>

namespace bench {

/// Draws the distributions as an SVG picture: one panel for each group of curves, time to the right on a logarithmic
/// scale, the share of the samples that took no longer upwards.
void WritePlot(std::ostream& out, const std::vector<Curve>& curves);

} // namespace bench
