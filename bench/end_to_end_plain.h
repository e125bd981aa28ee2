// What the end-to-end benchmark measures with, and the plain client that it compares the library
// with. Threads: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/latency_histogram.h"

namespace ostrand_bench {

struct Configuration {
  int ports;
  uint64_t window;
  uint64_t requests;
  size_t value_len = 100;
};

struct Figures {
  double seconds = 0;
  double user_us = 0;  // of all requests together
  double system_us = 0;
  uint64_t voluntary_switches = 0;
  uint64_t errors = 0;
  uint64_t system_calls = 0;
  OstrandCli::LatencyHistogram latency_ns;
};

// Monotonic.
int64_t NowNs();

// Processor time and context switches of this process from construction to Stop.
class Meter {
 public:
  Meter();
  void Stop(Figures& figures) const;

 private:
  int64_t m_began_ns;
  double m_user_us;
  double m_system_us;
  long m_switches;
};

// Sends the requests of `configuration` through one epoll loop. urls: the directory's, then the
// proxies'. False, with a remark on standard error, when a proxy cannot be used.
bool MeasurePlain(const std::vector<std::string>& urls, const Configuration& configuration,
                  Figures& figures);

}  // namespace ostrand_bench
