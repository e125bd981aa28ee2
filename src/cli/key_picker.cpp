#include "cli/key_picker.h"

#include <algorithm>
#include <cmath>

namespace OstrandCli {
namespace {

double Zeta(uint64_t n, double theta) {
  double sum = 0;
  for (uint64_t i = 1; i <= n; ++i) {
    sum += std::pow(1 / static_cast<double>(i), theta);
  }
  return sum;
}

// Not needed, and not finite, for fewer than 3 keys.
double Eta(uint64_t n, double theta, double zetan) {
  return (1 - std::pow(2 / static_cast<double>(n), 1 - theta)) / (1 - Zeta(2, theta) / zetan);
}

}  // namespace

KeyPicker::KeyPicker(KeyDistribution distribution, uint64_t keys, double theta, uint64_t seed)
    : m_distribution(distribution),
      m_keys(keys),
      m_random(seed),
      m_theta(theta),
      m_alpha(1 / (1 - theta)),
      m_zetan(distribution == KeyDistribution::kZipfian ? Zeta(keys, theta) : 1),
      m_eta(keys > 2 ? Eta(keys, theta, m_zetan) : 0) {}

double KeyPicker::NextFraction() {
  constexpr double kTwoToMinus53 = 1.0 / 9007199254740992.0;
  return static_cast<double>(m_random() >> 11) * kTwoToMinus53;
}

uint64_t KeyPicker::Next() {
  if (m_distribution == KeyDistribution::kZipfian) {
    return NextZipfian();
  }
  const double chosen = NextFraction() * static_cast<double>(m_keys);
  return std::min(static_cast<uint64_t>(chosen), m_keys - 1);
}

uint64_t KeyPicker::NextZipfian() {
  const double u = NextFraction();
  const double uz = u * m_zetan;
  if (uz < 1 || m_keys == 1) {
    return 0;
  }
  if (uz < 1 + std::pow(0.5, m_theta) || m_keys == 2) {
    return 1;
  }
  const double chosen = static_cast<double>(m_keys) * std::pow(m_eta * u - m_eta + 1, m_alpha);
  return std::min(static_cast<uint64_t>(chosen), m_keys - 1);
}

}  // namespace OstrandCli
