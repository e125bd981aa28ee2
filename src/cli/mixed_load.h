// The load of `bench`: reads and replacements of the keys of one table, mixed at random.
//
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/key_picker.h"
#include "cli/load_generator.h"

namespace OstrandCli {

struct MixedLoadOptions {
  int32_t zone = 1;
  std::string table = "default";
  std::string key_field = "key";      // its values are "key-0000000042"
  std::string value_field = "value";  // of writes; reads ask for it alone
  double read_share = 0.9;            // of the requests
  KeyDistribution distribution = KeyDistribution::kUniform;
  double zipf_theta = 0.99;
  uint64_t keys = 10000;
  size_t value_size = 100;
  uint64_t seed = 1;
};

// "key-<number>", in ten digits, or more where they are needed.
std::string KeyOfNumber(uint64_t number);

class MixedLoad final : public RequestSource {
 public:
  explicit MixedLoad(const MixedLoadOptions& options);

  bool Next(OstrandService::ClientRequest& request, uint64_t& tag) override;
  void OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                 OstrandService::ClientResponse* response) override;

  uint64_t Reads() const { return m_reads; }
  uint64_t Writes() const { return m_writes; }

 private:
  const MixedLoadOptions m_options;
  KeyPicker m_picker;
  const std::string m_value;
  uint64_t m_reads = 0;
  uint64_t m_writes = 0;
};

// Writes each key once, so that reads find a record; keys that were not written are repeated as
// often as it takes.
class FillLoad final : public RequestSource {
 public:
  explicit FillLoad(const MixedLoadOptions& options);

  bool Next(OstrandService::ClientRequest& request, uint64_t& tag) override;
  void OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                 OstrandService::ClientResponse* response) override;

  uint64_t Written() const { return m_written; }
  // The result of a write that was refused; 0: none was. No further writes are made then.
  int32_t Refusal() const { return m_refusal; }

 private:
  const MixedLoadOptions m_options;
  const std::string m_value;
  std::vector<uint64_t> m_again;
  uint64_t m_next = 0;
  uint64_t m_written = 0;
  int32_t m_refusal = 0;
};

}  // namespace OstrandCli
