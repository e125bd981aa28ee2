// What a client counts of its requests.
#pragma once

#include <cstdint>

namespace OstrandService {

struct ClientCounters {
  uint64_t accepted = 0;   // by Send
  uint64_t outcomes = 0;   // handed out: answers and what stands in their place
  uint64_t timed_out = 0;  // of these, without an answer in time
  uint64_t lost = 0;       // of these, with the connection that they were sent on
  uint64_t cancelled = 0;  // given up: without outcome
  uint64_t repeated = 0;   // tries beyond each request's first
  uint64_t dropped = 0;    // came for a request that had its outcome, or for nobody
};

}  // namespace OstrandService
