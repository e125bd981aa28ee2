// How long requests took: counts in buckets that grow with the value, so that any percentile is
// known to better than one per cent, in constant memory and without keeping the values.
//
// Values below 256 have a bucket each. Above, each power of two is cut into 128 buckets of equal
// width, so that a bucket is at most 1/128 of its values wide.
//
// Ownership: 58 KiB of its own. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace OstrandCli {

class LatencyHistogram {
 public:
  LatencyHistogram();

  void Add(uint64_t value);
  // Adds everything that another one counted.
  void Merge(const LatencyHistogram& other);

  uint64_t Count() const { return m_count; }
  uint64_t Min() const { return m_count != 0 ? m_min : 0; }
  uint64_t Max() const { return m_max; }
  double Mean() const;

  // The least value that is known not to be below `percent` per cent of the values: the end of a
  // bucket, but no more than the largest value. 0 without values; percent is 0 to 100.
  uint64_t Percentile(double percent) const;

 private:
  static constexpr int kSubBits = 7;
  static constexpr size_t kBuckets = size_t{64 - kSubBits + 1} << kSubBits;

  static size_t BucketOf(uint64_t value);
  static uint64_t LastOf(size_t bucket);

  std::vector<uint64_t> m_counts;
  uint64_t m_count = 0;
  uint64_t m_min = UINT64_MAX;
  uint64_t m_max = 0;
  double m_sum = 0;
};

}  // namespace OstrandCli
