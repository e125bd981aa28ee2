// Chooses keys at random: all alike, or a few of them much oftener than the rest.
//
// Zipfian: key i of n, from 0, comes with a probability proportional to 1 / (i + 1)^theta. The
// numbers are drawn as in J. Gray, P. Sundaresan, S. Englert, K. Baclawski, P. J. Weinberger,
// "Quickly Generating Billion-Record Synthetic Databases", SIGMOD 1994, section 3.2: exact for keys
// 0 and 1, close for the others.
//
// The same seed gives the same keys on every machine. Threads: one at a time.
#pragma once

#include <cstdint>
#include <random>

namespace OstrandCli {

enum class KeyDistribution { kUniform, kZipfian };

class KeyPicker {
 public:
  // keys: at least 1; a zipfian picker needs time in proportion to their number. theta: of a
  // zipfian one, above 0 and below 1.
  KeyPicker(KeyDistribution distribution, uint64_t keys, double theta, uint64_t seed);

  // 0 to keys - 1.
  uint64_t Next();
  // 0 up to, and without, 1; for other choices that the same seed should fix.
  double NextFraction();

 private:
  uint64_t NextZipfian();

  const KeyDistribution m_distribution;
  const uint64_t m_keys;
  std::mt19937_64 m_random;
  // In the paper's names.
  const double m_theta;
  const double m_alpha;
  const double m_zetan;
  const double m_eta;
};

}  // namespace OstrandCli
