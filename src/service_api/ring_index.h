// A hint where on the ring a position lies, so that most lookups touch two cache lines.
//
// For each value of a position's top 15 bits it keeps the lower bound of the middle one of the
// positions with these bits (64 KiB in all). On a full ring of 20000 points that is the answer
// itself six times in seven, else nearly always a neighbour of it. It is only a hint: a lookup
// checks its answer against both neighbours and falls back to a binary search, so that it is a
// plain lower bound over whatever the array holds now.
//
// The search is by branches on purpose: rightly predicted, they let the processor go on with the
// answer before the ring's memory has arrived, which counts when the ring has left the cache.
//
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
      const uint64_t middle = (static_cast<uint64_t>(bucket) << kShift) + kHalfBucket;
      while (position < count && nodes[position].hash_code < middle) {
        ++position;
      }
      m_hints[bucket] = static_cast<uint16_t>(position);
    }
  }

  // Index of the first node whose hash_code is not below `hash`; count when there is none.
  template <typename Node>
  uint32_t LowerBound(const Node* nodes, uint32_t count, uint64_t hash) const {
    uint32_t position = m_hints[hash >> kShift];
    if (position >= count || nodes[position].hash_code >= hash) {
      position = std::min(position, count);
      for (int step = 0; step < kSteps; ++step, --position) {
        if (position == 0 || nodes[position - 1].hash_code < hash) {
          return position;
        }
      }
    } else {
      for (int step = 0; step < kSteps; ++step) {
        ++position;
        if (position == count || nodes[position].hash_code >= hash) {
          return position;
        }
      }
    }
    return static_cast<uint32_t>(
        std::lower_bound(nodes, nodes + count, hash,
                         [](const Node& node, uint64_t value) { return node.hash_code < value; }) -
        nodes);
  }

 private:
  static constexpr int kBits = 15;
  static constexpr int kShift = 64 - kBits;
  static constexpr uint64_t kHalfBucket = uint64_t{1} << (kShift - 1);
  static constexpr uint32_t kBuckets = 1u << kBits;
  static constexpr int kSteps = 8;  // from the hint, before it is given up

  uint16_t m_hints[kBuckets] = {};
};

}  // namespace OstrandService
