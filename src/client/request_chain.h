// A chain of pending requests: first and last, as PendingRequests numbers them.
#pragma once

#include <cstdint>

namespace OstrandService {

constexpr uint32_t kNoRequest = UINT32_MAX;

struct RequestChain {
  uint32_t first = kNoRequest;
  uint32_t last = kNoRequest;

  bool empty() const { return first == kNoRequest; }
};

}  // namespace OstrandService
