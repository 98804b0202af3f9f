#pragma once

#include <cstddef>
#include <functional>
#include <vector>

// Figures out of samples. What is compared runs alternately in small batches, and each batch of the one is held against
// the batch of the other beside it: a machine that is busy for a while slows both.
namespace bench {

using Samples = std::vector<double>;

/// The value below which `share` (0 to 1) of the samples lie. 0 without samples.
double Quantile(Samples samples, double share);

inline double Median(const Samples& samples) { return Quantile(samples, 0.5); }

/// A figure with the middle half of what it is the median of.
struct Spread {
  double median = 0;
  double low = 0;
  double high = 0;
};
Spread SpreadOf(const Samples& samples);

/// Samples of two things that ran alternately.
struct Paired {
  Samples subject;
  Samples reference;
  std::vector<Samples> subjectBatches;
  std::vector<Samples> referenceBatches;

  /// Takes a batch of each.
  void Add(Samples subjectBatch, Samples referenceBatch);

  /// The ratios of the batches' medians.
  Spread Ratio() const;

  /// The ratios of the 99th percentiles of `blocks` blocks of neighbouring batches.
  Spread RatioOfP99(std::size_t blocks) const;
};

/// `batches` times `perBatch` calls of `subject` and then of `reference`, each returning its own time.
Paired RunPaired(std::size_t batches, std::size_t perBatch, const std::function<double()>& subject,
                 const std::function<double()>& reference);

} // namespace bench
