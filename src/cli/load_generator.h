// Keeps a window of requests in flight and counts what becomes of them: the heart of `bench` and
// `demo`, and of benchmarks.
//
//   LoadGenerator generator(client);
//   LoadLimits limits;
//   limits.requests = 100000;
//   generator.Run(source, limits);
//   generator.Figures().latency_ns.Percentile(99.9);
//
// What is sent and what an outcome means is a RequestSource's. Every request that the source makes
// has exactly one outcome: Run ends when the last one is there, so that
//
//   sent = answered + timed_out + failed
//
// Threads: the client's. Memory that runs out is thrown as std::bad_alloc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cli/latency_histogram.h"
#include "client/polling_client.h"

namespace OstrandCli {

// What became of a request.
enum class LoadOutcome {
  kAnswered,  // code: the answer's result
  kTimedOut,  // or lost with its connection, or never sent: nobody answered; code: which
  kFailed,    // not sent; code: why
};

// Makes requests and is told their outcomes, both within LoadGenerator::Run.
class RequestSource {
 public:
  virtual ~RequestSource() = default;

  // Builds the next request, one whose answer comes in one package; `tag` comes back with its
  // outcome. False: there is none now. It is asked again after the next outcomes; Run ends when
  // there is none and nothing is in flight.
  virtual bool Next(OstrandService::ClientRequest& request, uint64_t& tag) = 0;
  // response: null for kFailed.
  virtual void OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                         OstrandService::ClientResponse* response) = 0;
};

struct LoadLimits {
  size_t window = 64;         // requests in flight; at least 1
  uint64_t requests = 0;      // sent in one Run; 0: no limit
  int64_t duration_ms = 0;    // of the sending; 0: no limit
  bool count_proxies = true;  // costs some 30 ns a request
  // Called when a round is sent and before its outcomes are received, at least every 100 ms; false:
  // nothing more is sent.
  std::function<bool()> go_on;
};

// All Runs together.
struct LoadFigures {
  uint64_t sent = 0;       // given to the client
  uint64_t answered = 0;   // whatever the result
  uint64_t refused = 0;    // of these, with a result other than 0
  uint64_t timed_out = 0;  // without an answer, for whatever reason
  uint64_t failed = 0;
  uint64_t strays = 0;                // outcomes that nobody waited for; there should be none
  std::map<int32_t, uint64_t> codes;  // how often each answer's result and failure's code, but 0
  std::map<std::string, uint64_t> by_proxy;  // requests by url of the proxy that they went to
  LatencyHistogram latency_ns;               // of answers, from Send to Receive
  double seconds = 0;
  double user_cpu_seconds = 0;  // of the whole process
  double system_cpu_seconds = 0;
  uint64_t system_calls = 0;  // of the client's network layer

  bool AddUp() const { return sent == answered + timed_out + failed && strays == 0; }
};

class LoadGenerator {
 public:
  // Borrows the client, which nobody else uses meanwhile, and in which nothing is in flight.
  explicit LoadGenerator(OstrandService::PollingClient& client);
  LoadGenerator(const LoadGenerator&) = delete;
  LoadGenerator& operator=(const LoadGenerator&) = delete;

  // 0, or the code with which the client refused to receive.
  int Run(RequestSource& source, const LoadLimits& limits);

  const LoadFigures& Figures() const { return m_figures; }

 private:
  // A request in flight. Its sequence number is the slot's place.
  struct Slot {
    uint64_t asyn_id = 0;  // 0: free
    uint64_t tag = 0;
    int64_t began_ns = 0;
  };
  class Meter;

  bool Fill(RequestSource& source, uint64_t sent_at_most);
  bool SendOne(RequestSource& source, uint64_t tag);
  int Drain(RequestSource& source, int timeout_ms);
  static bool IsNoAnswer(int32_t result);
  void Settle(RequestSource& source);
  Slot* FindSlot();
  void CountProxy();
  size_t InFlight() const { return m_slots.size() - m_free.size(); }

  OstrandService::PollingClient& m_client;
  OstrandService::ClientRequest m_request;
  OstrandService::ClientResponse m_response;
  std::vector<Slot> m_slots;
  std::vector<size_t> m_free;
  bool m_counts_proxies = true;
  std::unordered_map<std::string_view, uint64_t*> m_proxy_counts;  // into m_figures.by_proxy
  LoadFigures m_figures;
};

}  // namespace OstrandCli
