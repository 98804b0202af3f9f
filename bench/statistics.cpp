#include "bench/statistics.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace bench {
namespace {

double Over(double subject, double reference) { return reference > 0 ? subject / reference : 0; }

} // namespace

double Quantile(Samples samples, double share) {
  if (samples.empty()) {
    return 0;
  }
  const auto last = static_cast<double>(samples.size() - 1);
  const auto at = static_cast<std::ptrdiff_t>(std::lround(share * last));
  std::nth_element(samples.begin(), samples.begin() + at, samples.end());
  return samples[static_cast<std::size_t>(at)];
}

Spread SpreadOf(const Samples& samples) {
  return {Quantile(samples, 0.5), Quantile(samples, 0.25), Quantile(samples, 0.75)};
}

void Paired::Add(Samples subjectBatch, Samples referenceBatch) {
  subject.insert(subject.end(), subjectBatch.begin(), subjectBatch.end());
  reference.insert(reference.end(), referenceBatch.begin(), referenceBatch.end());
  subjectBatches.push_back(std::move(subjectBatch));
  referenceBatches.push_back(std::move(referenceBatch));
}

Spread Paired::Ratio() const {
  Samples ratios;
  for (std::size_t i = 0; i < subjectBatches.size(); ++i) {
    ratios.push_back(Over(Median(subjectBatches[i]), Median(referenceBatches[i])));
  }
  return SpreadOf(ratios);
}

Spread Paired::RatioOfP99(std::size_t blocks) const {
  Samples ratios;
  const std::size_t perBlock = std::max<std::size_t>(1, subjectBatches.size() / blocks);
  for (std::size_t from = 0; from + perBlock <= subjectBatches.size(); from += perBlock) {
    Samples subjects;
    Samples references;
    for (std::size_t i = from; i < from + perBlock; ++i) {
      subjects.insert(subjects.end(), subjectBatches[i].begin(), subjectBatches[i].end());
      references.insert(references.end(), referenceBatches[i].begin(), referenceBatches[i].end());
    }
    ratios.push_back(Over(Quantile(subjects, 0.99), Quantile(references, 0.99)));
  }
  return SpreadOf(ratios);
}

Paired RunPaired(std::size_t batches, std::size_t perBatch, const std::function<double()>& subject,
                 const std::function<double()>& reference) {
  Paired paired;
  for (std::size_t i = 0; i < batches; ++i) {
    Samples subjects;
    Samples references;
    for (std::size_t each = 0; each < perBatch; ++each) {
      subjects.push_back(subject());
    }
    for (std::size_t each = 0; each < perBatch; ++each) {
      references.push_back(reference());
    }
    if (i != 0) { // the first batches fill caches
      paired.Add(std::move(subjects), std::move(references));
    }
  }
  return paired;
}

} // namespace bench
