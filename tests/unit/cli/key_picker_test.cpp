// How often keys come, against the probabilities computed one by one.
#include "cli/key_picker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace OstrandCli {
namespace {

std::vector<double> Shares(KeyPicker picker, uint64_t keys, int draws) {
  std::vector<double> shares(keys);
  for (int i = 0; i < draws; ++i) {
    const uint64_t key = picker.Next();
    EXPECT_LT(key, keys);
    shares[key] += 1.0 / draws;
  }
  return shares;
}

// The probability of each key, as the law says it.
std::vector<double> ZipfLaw(uint64_t keys, double theta) {
  std::vector<double> law;
  double sum = 0;
  for (uint64_t i = 1; i <= keys; ++i) {
    law.push_back(1 / std::pow(static_cast<double>(i), theta));
    sum += law.back();
  }
  for (double& probability : law) {
    probability /= sum;
  }
  return law;
}

TEST(KeyPicker, UniformKeysAllComeAboutAsOften) {
  const std::vector<double> shares =
      Shares(KeyPicker(KeyDistribution::kUniform, 50, 0.99, 1), 50, 200000);
  for (const double share : shares) {
    EXPECT_NEAR(0.02, share, 0.002);  // six standard deviations
  }
}

TEST(KeyPicker, ZipfianKeysFollowTheLaw) {
  for (const double theta : {0.5, 0.8, 0.99}) {
    SCOPED_TRACE(theta);
    constexpr uint64_t kKeys = 1000;
    const std::vector<double> law = ZipfLaw(kKeys, theta);
    const std::vector<double> shares =
        Shares(KeyPicker(KeyDistribution::kZipfian, kKeys, theta, 1), kKeys, 400000);
    EXPECT_NEAR(law[0], shares[0], 0.004) << "exact";
    EXPECT_NEAR(law[1], shares[1], 0.003) << "exact";
    // Of the rest the method is an approximation: the first keys together, and the last half.
    double law_sum = 0;
    double share_sum = 0;
    for (size_t i = 0; i < kKeys / 2; ++i) {
      law_sum += law[i];
      share_sum += shares[i];
      if (i == 9 || i == 99 || i == 499) {
        EXPECT_NEAR(law_sum, share_sum, 0.03) << "the first " << i + 1;
      }
    }
  }
}

TEST(KeyPicker, WorksWithVeryFewKeys) {
  for (const uint64_t keys : {uint64_t{1}, uint64_t{2}, uint64_t{3}}) {
    const std::vector<double> law = ZipfLaw(keys, 0.9);
    const std::vector<double> shares =
        Shares(KeyPicker(KeyDistribution::kZipfian, keys, 0.9, 5), keys, 100000);
    EXPECT_NEAR(law[0], shares[0], 0.01) << keys;
    const std::vector<double> even =
        Shares(KeyPicker(KeyDistribution::kUniform, keys, 0.9, 5), keys, 100000);
    EXPECT_NEAR(1.0 / static_cast<double>(keys), even[0], 0.01) << keys;
  }
}

TEST(KeyPicker, TheSeedDecides) {
  for (const KeyDistribution distribution :
       {KeyDistribution::kUniform, KeyDistribution::kZipfian}) {
    KeyPicker one(distribution, 1000000, 0.9, 42);
    KeyPicker same(distribution, 1000000, 0.9, 42);
    KeyPicker other(distribution, 1000000, 0.9, 43);
    int equal = 0;
    for (int i = 0; i < 100; ++i) {
      const uint64_t key = one.Next();
      EXPECT_EQ(key, same.Next());
      equal += key == other.Next() ? 1 : 0;
    }
    EXPECT_LT(equal, 50);
  }
}

// The standard fixes what the generator gives, so that runs can be compared across machines.
TEST(KeyPicker, FractionsAreTheGeneratorsUpper53Bits) {
  KeyPicker picker(KeyDistribution::kUniform, 10, 0.9, 5489);
  EXPECT_DOUBLE_EQ(static_cast<double>(14514284786278117030u >> 11) / 9007199254740992.0,
                   picker.NextFraction());
}

}  // namespace
}  // namespace OstrandCli
