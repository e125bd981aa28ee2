// Percentiles against the values themselves, kept and sorted.
#include "cli/latency_histogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace OstrandCli {
namespace {

TEST(LatencyHistogram, KnowsNothingWithoutValues) {
  const LatencyHistogram histogram;
  EXPECT_EQ(0u, histogram.Count());
  EXPECT_EQ(0u, histogram.Min());
  EXPECT_EQ(0u, histogram.Max());
  EXPECT_EQ(0, histogram.Mean());
  EXPECT_EQ(0u, histogram.Percentile(50));
}

TEST(LatencyHistogram, IsExactForSmallValues) {
  LatencyHistogram histogram;
  for (uint64_t value = 1; value <= 200; ++value) {
    histogram.Add(value);
  }
  EXPECT_EQ(200u, histogram.Count());
  EXPECT_EQ(1u, histogram.Min());
  EXPECT_EQ(200u, histogram.Max());
  EXPECT_DOUBLE_EQ(100.5, histogram.Mean());
  EXPECT_EQ(1u, histogram.Percentile(0));
  EXPECT_EQ(100u, histogram.Percentile(50));
  EXPECT_EQ(101u, histogram.Percentile(50.1)) << "rounded up to a whole value";
  EXPECT_EQ(198u, histogram.Percentile(99));
  EXPECT_EQ(200u, histogram.Percentile(99.9));
  EXPECT_EQ(200u, histogram.Percentile(100));
}

TEST(LatencyHistogram, IsNeverBelowAndAtMostOneIn128AboveTheTruth) {
  for (const double spread : {3.0, 9.0, 18.0}) {
    std::mt19937_64 random(7);
    std::exponential_distribution<double> exponent(1 / spread);
    LatencyHistogram histogram;
    std::vector<uint64_t> values;
    for (int i = 0; i < 20000; ++i) {
      values.push_back(static_cast<uint64_t>(std::exp2(std::min(exponent(random), 63.0))));
      histogram.Add(values.back());
    }
    std::sort(values.begin(), values.end());
    for (const double percent : {1.0, 10.0, 50.0, 90.0, 99.0, 99.9, 99.99, 100.0}) {
      const auto rank = static_cast<size_t>(std::ceil(percent / 100 * 20000));
      const uint64_t truth = values[rank - 1];
      const uint64_t answer = histogram.Percentile(percent);
      EXPECT_GE(answer, truth) << percent;
      EXPECT_LE(answer - truth, truth / 128 + 1) << percent;
    }
  }
}

TEST(LatencyHistogram, HoldsTheWholeRange) {
  LatencyHistogram histogram;
  histogram.Add(0);
  histogram.Add(UINT64_MAX);
  EXPECT_EQ(0u, histogram.Percentile(50));
  EXPECT_EQ(UINT64_MAX, histogram.Percentile(100));
}

TEST(LatencyHistogram, NeverAnswersMoreThanTheLargestValue) {
  LatencyHistogram histogram;
  histogram.Add(1000000);
  EXPECT_EQ(1000000u, histogram.Percentile(99.99));
}

TEST(LatencyHistogram, MergesAsIfAllHadBeenAddedToOne) {
  LatencyHistogram one;
  LatencyHistogram other;
  LatencyHistogram both;
  for (uint64_t value = 0; value < 5000; value += 7) {
    (value % 2 == 0 ? one : other).Add(value);
    both.Add(value);
  }
  one.Merge(other);
  one.Merge(LatencyHistogram());
  EXPECT_EQ(both.Count(), one.Count());
  EXPECT_EQ(both.Min(), one.Min());
  EXPECT_EQ(both.Max(), one.Max());
  EXPECT_DOUBLE_EQ(both.Mean(), one.Mean());
  for (const double percent : {0.0, 25.0, 50.0, 99.0}) {
    EXPECT_EQ(both.Percentile(percent), one.Percentile(percent));
  }
}

}  // namespace
}  // namespace OstrandCli
