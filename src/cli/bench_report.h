// What `bench` answers, for the eye and as JSON. Threads: no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/load_generator.h"
#include "cli/mixed_load.h"

namespace OstrandCli {

struct BenchReport {
  const LoadFigures& figures;
  uint64_t reads;   // of the requests sent
  uint64_t writes;  // the others
  const MixedLoadOptions& options;
  size_t window;
};

// The percentiles that are reported.
extern const std::vector<double> kReportedPercents;
// "p99.9"
std::string PercentName(double percent);
// "1.234 ms" or "87.0 us".
std::string FormatNanoseconds(uint64_t ns);

std::string BenchText(const BenchReport& report);
std::string BenchJson(const BenchReport& report);

}  // namespace OstrandCli
