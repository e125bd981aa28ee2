// The modes of the end-to-end benchmark that measure the library, and what the benchmark itself
// costs. urls: the directory's, then the proxies'. Each answers false, with a remark on standard
// error, when it could not measure. Threads: as each says.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "end_to_end_plain.h"

namespace ostrand_bench {

constexpr uint64_t kCallers = 4;  // threads of the modes that call

// No client at all: requests are built, clocks read and times counted as the others do it.
bool MeasureOwn(const std::vector<std::string>& urls, const Configuration& configuration,
                Figures& figures);

// A PollingClient on the calling thread.
bool MeasurePolling(const std::vector<std::string>& urls, const Configuration& configuration,
                    Figures& figures);

// A Client: the calling thread sends, callbacks count.
bool MeasureClient(const std::vector<std::string>& urls, const Configuration& configuration,
                   Figures& figures);

// kCallers threads in Client::Call of one Client; the window counts for nothing.
bool MeasureCalls(const std::vector<std::string>& urls, const Configuration& configuration,
                  Figures& figures);

// kCallers threads in PollingClient::Call, each of a client of its own.
bool MeasurePollingCalls(const std::vector<std::string>& urls, const Configuration& configuration,
                         Figures& figures);

struct IdleFigures {
  double wake_ups_a_second = 0;  // of one client: voluntary context switches
  double resident_kib = 0;       // of one client
};
constexpr int kIdleClients = 8;

// kIdleClients PollingClients on one thread, each updated when it says so; or as many Clients.
bool MeasureIdle(const std::vector<std::string>& urls, bool with_threads, int seconds,
                 IdleFigures& figures);

}  // namespace ostrand_bench
