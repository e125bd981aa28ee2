// A load for a client, every outcome of which is checked.
//
// Ownership: borrows the client. Threads: the client's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/polling_client.h"

namespace OstrandTests {

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";

// For what is bound to happen; waited for in full only by a test that fails.
constexpr int64_t kPatienceMs = 20000;

// A load of reads and writes over a few thousand records. It knows what each record must hold and
// checks every outcome: none twice, none for nobody, no value that was not written last.
class Workload {
 public:
  // Whether all proxies share one store. Where they do not, a read may find nothing or an old
  // value, but never another record's.
  enum class Store { kShared, kSeveral };

  struct Tally {
    uint64_t accepted = 0;            // requests that Send took
    uint64_t answered = 0;            // of these, outcomes with result 0
    uint64_t timed_out = 0;           // without an answer
    uint64_t failed = 0;              // with another result
    uint64_t wrong = 0;               // answers that say what cannot be
    uint64_t stray = 0;               // outcomes of nothing that is in flight
    std::map<int, uint64_t> refused;  // codes of Send
    std::map<int, uint64_t> results;  // of failed outcomes
    uint64_t Outcomes() const { return answered + timed_out + failed; }
    uint64_t Refused() const;
  };

  explicit Workload(OstrandService::PollingClient& client, Store store = Store::kShared);

  void SetTimeout(int32_t ms) { m_timeout_ms = ms; }
  // Bytes of each value, at least.
  void SetValueSize(size_t bytes) { m_value_size = bytes; }

  // Sends one request; Send's code.
  int SendOne();
  // Receives one outcome, waiting for it. Whether there was one.
  bool ReceiveOne(int timeout_ms);
  // Books an outcome that somebody else received.
  void Book(OstrandService::ClientResponse& response);

  // Keeps `window` requests in flight until so many more outcomes came. False when they do not
  // within the patience.
  bool Run(uint64_t outcomes, size_t window = 64);
  // The same until the condition holds.
  bool RunUntil(const std::function<bool()>& condition, size_t window = 64,
                int64_t limit_ms = kPatienceMs);
  // For so long.
  void RunFor(int64_t ms, size_t window = 64);
  // Receives what is in flight.
  bool Drain();

  const Tally& tally() const { return m_tally; }
  // Expects that nothing was wrong, and nothing lost or handed out twice.
  void ExpectSound() const;

 private:
  struct Record {
    std::string value;    // written last, and confirmed
    uint64_t writes = 0;  // ever sent
    bool is_written = false;
    bool is_uncertain = false;  // the outcome of a write is not known
    bool is_busy = false;
  };
  struct InFlight {
    size_t record;
    std::string value;  // being written; empty: a read
  };

  static std::string KeyOf(size_t record);
  bool PickNext(size_t& record, bool& is_write);
  void BookRead(Record& record, size_t number, OstrandService::ClientResponse& response);

  OstrandService::PollingClient& m_client;
  const Store m_store;
  OstrandService::ClientRequest m_request;
  OstrandService::ClientResponse m_response;
  std::vector<Record> m_records;
  std::map<uint64_t, InFlight> m_in_flight;  // by asynchronous id
  Tally m_tally;
  uint64_t m_turn = 0;
  int32_t m_timeout_ms = 0;
  size_t m_value_size = 0;
};

}  // namespace OstrandTests
