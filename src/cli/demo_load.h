// The demo's requests, and the book of what every record has to be.
//
// At most one request is about a record at a time, so that it is always known what a read has to
// bring back. A request without an answer is repeated until it has one. A write that got none may
// still be carried out later; nothing newer is written to its record, so that it changes nothing.
//
// Ownership: borrows the records. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/key_picker.h"
#include "cli/load_generator.h"
#include "cli/package_records.h"

namespace OstrandCli {

// What has come out so far.
struct DemoCounts {
  uint64_t acknowledged = 0;        // writes
  uint64_t compared = 0;            // reads, field by field
  uint64_t wrong = 0;               // answers that are not what they have to be
  uint64_t repeated = 0;            // requests that got no answer, or could not be sent
  std::vector<std::string> faults;  // the first wrong answers, in words
};

class DemoLoad final : public RequestSource {
 public:
  enum class Phase {
    kWriteAll,  // each record once
    kReadAll,   // the same, compared
    kMixed,     // reads and updates of records at random, without end
    kSettle,    // only what still has to be repeated
  };

  DemoLoad(const std::vector<PackageRecord>& records, uint64_t seed);

  // REQUIRES: nothing is in flight, nothing waits to be repeated.
  void Begin(Phase phase);
  // Ends the phase: no new request, only repetitions. They count as the phase's.
  void Settle() { m_phase = Phase::kSettle; }

  bool Next(OstrandService::ClientRequest& request, uint64_t& tag) override;
  void OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                 OstrandService::ClientResponse* response) override;

  const DemoCounts& Counts() const { return m_counts; }
  // Records of the phase that have their answer; of kMixed, the requests.
  uint64_t Done() const { return m_done; }
  // Requests that wait to be repeated.
  size_t Waiting() const { return m_again.size(); }
  // Whether each record was acknowledged.
  bool AllAcknowledged() const;

 private:
  static constexpr double kReadShare = 0.7;

  struct Entry {
    uint32_t acknowledged = 0;  // revision; 0: it was never written
    uint32_t wanted = 0;        // of the write in flight, or that has to be repeated
    bool is_busy = false;
    bool is_frozen = false;  // a write of it got no answer
  };

  bool Choose(uint64_t& tag);
  bool ChooseMixed(uint64_t& tag);
  bool Build(OstrandService::ClientRequest& request, uint64_t tag);
  void OnWritten(size_t index, int32_t code);
  void OnRead(size_t index, int32_t code, OstrandService::ClientResponse& response);
  void Blame(size_t index, const std::string& fault);

  const std::vector<PackageRecord>& m_records;
  KeyPicker m_picker;
  std::vector<Entry> m_entries;
  Phase m_phase = Phase::kWriteAll;
  size_t m_next = 0;  // of the phases that go through all
  uint64_t m_done = 0;
  std::vector<uint64_t> m_again;  // tags
  DemoCounts m_counts;
};

}  // namespace OstrandCli
