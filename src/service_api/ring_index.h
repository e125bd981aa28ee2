// A hint where on the ring a position lies, so that most lookups touch two cache lines.
//
// For each value of a position's top 15 bits it keeps the index of the first ring point at or after
// the first position with these bits. It is only a hint: a lookup checks the found point against
// its neighbours and falls back to a binary search, so that its answer is a plain lower bound over
// whatever the array holds now.
// Threads: none inside; the router uses it under the ring's mutex.
#pragma once

#include <algorithm>
#include <cstdint>

namespace OstrandService {

class RingIndex {
 public:
  // nodes: ascending by hash_code; count <= 65535.
  template <typename Node>
  void Build(const Node* nodes, uint32_t count) {
    uint32_t position = 0;
    for (uint32_t bucket = 0; bucket < kBuckets; ++bucket) {
      const uint64_t first = static_cast<uint64_t>(bucket) << kShift;
      while (position < count && nodes[position].hash_code < first) {
        ++position;
      }
      m_first[bucket] = static_cast<uint16_t>(position);
    }
  }

  // Index of the first node whose hash_code is not below `hash`; count when there is none.
  template <typename Node>
  uint32_t LowerBound(const Node* nodes, uint32_t count, uint64_t hash) const {
    uint32_t position = m_first[hash >> kShift];
    for (int step = 0; step < kSteps; ++step) {
      if (position >= count || nodes[position].hash_code >= hash) {
        if (position <= count && (position == 0 || nodes[position - 1].hash_code < hash)) {
          return position;
        }
        break;
      }
      ++position;
    }
    return static_cast<uint32_t>(
        std::lower_bound(nodes, nodes + count, hash,
                         [](const Node& node, uint64_t value) { return node.hash_code < value; }) -
        nodes);
  }

 private:
  static constexpr int kBits = 15;
  static constexpr int kShift = 64 - kBits;
  static constexpr uint32_t kBuckets = 1u << kBits;
  static constexpr int kSteps = 8;  // more points in one bucket are rare

  uint16_t m_first[kBuckets] = {};
};

}  // namespace OstrandService
