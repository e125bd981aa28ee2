#include "cli/latency_histogram.h"

#include <algorithm>
#include <cmath>

namespace OstrandCli {

LatencyHistogram::LatencyHistogram() : m_counts(kBuckets) {}

// The leading kSubBits + 1 bits of a value, counted on from those of the next smaller power of two.
size_t LatencyHistogram::BucketOf(uint64_t value) {
  if (value < (uint64_t{2} << kSubBits)) {
    return static_cast<size_t>(value);
  }
  const int shift = 63 - __builtin_clzll(value) - kSubBits;
  return (static_cast<size_t>(shift) << kSubBits) + static_cast<size_t>(value >> shift);
}

uint64_t LatencyHistogram::LastOf(size_t bucket) {
  if (bucket < (size_t{2} << kSubBits)) {
    return bucket;
  }
  const size_t shift = (bucket >> kSubBits) - 1;
  const uint64_t leading = bucket - (shift << kSubBits);
  return ((leading + 1) << shift) - 1;  // of the last bucket it wraps to the largest number
}

void LatencyHistogram::Add(uint64_t value) {
  ++m_counts[BucketOf(value)];
  ++m_count;
  m_min = std::min(m_min, value);
  m_max = std::max(m_max, value);
  m_sum += static_cast<double>(value);
}

void LatencyHistogram::Merge(const LatencyHistogram& other) {
  for (size_t i = 0; i < kBuckets; ++i) {
    m_counts[i] += other.m_counts[i];
  }
  m_count += other.m_count;
  m_min = std::min(m_min, other.m_min);
  m_max = std::max(m_max, other.m_max);
  m_sum += other.m_sum;
}

double LatencyHistogram::Mean() const {
  return m_count != 0 ? m_sum / static_cast<double>(m_count) : 0;
}

uint64_t LatencyHistogram::Percentile(double percent) const {
  const double wanted = std::ceil(percent / 100 * static_cast<double>(m_count));
  uint64_t seen = 0;
  for (size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += m_counts[bucket];
    if (m_counts[bucket] != 0 && static_cast<double>(seen) >= wanted) {
      return std::min(LastOf(bucket), m_max);
    }
  }
  return m_max;
}

}  // namespace OstrandCli
