// Numbered items, the one due first at hand.
//
// Most items wait for one of few time-outs, so that those of one time-out come in the order in
// which they are due. The queue therefore keeps a few sorted lanes (linked lists) and appends to
// the one whose last deadline is the nearest before the new one, as patience sorting does (C. L.
// Mallows, 1963); what fits behind no lane goes into a heap. On the lanes everything is O(1), in
// the heap O(log n). Among equal deadlines the item entered, or changed, first is due first.
// Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "client/deadline_heap.h"

namespace OstrandService {

class DeadlineQueue {
 public:
  // Makes room for the items 0 to count - 1; those that are new are not in the queue. False without
  // memory; then all is as before.
  bool Reserve(uint32_t count);

  // The item due first and its deadline; false when the queue is empty.
  bool First(uint32_t& item, int64_t& deadline_ms) const;

  // Whether some deadline lies before `now_ms`; then `item` is the one due first. Nearly always it
  // is known without a look at the lanes that none does.
  bool FirstBefore(int64_t now_ms, uint32_t& item) const {
    return now_ms > m_none_before_ms && FindBefore(now_ms, item);
  }

  // REQUIRES here and below: the item is within the room.
  bool Contains(uint32_t item) const { return m_nodes[item].where != kNowhere; }
  // REQUIRES: it is in the queue.
  int64_t DeadlineOf(uint32_t item) const { return m_nodes[item].deadline.ms; }
  // Enters an item, or gives it another deadline.
  void Set(uint32_t item, int64_t deadline_ms);
  // Takes an item out; nothing when it is not there.
  void Erase(uint32_t item) {
    Node& node = m_nodes[item];
    if (node.where < kLanes) {
      Unlink(node);
    } else if (node.where == kHeap) {
      m_heap.Erase(item);
    }
    node.where = kNowhere;
  }

 private:
  static constexpr uint32_t kLanes = 4;
  static constexpr uint32_t kHeap = kLanes;
  static constexpr uint32_t kNowhere = kLanes + 1;
  static constexpr uint32_t kNone = UINT32_MAX;

  struct Node {
    Deadline deadline;
    uint32_t where = kNowhere;  // a lane, kHeap or kNowhere
    uint32_t previous;          // on its lane
    uint32_t next;
  };
  struct Lane {
    uint32_t first = kNone;
    uint32_t last = kNone;
  };

  bool FindBefore(int64_t now_ms, uint32_t& item) const;
  uint32_t LaneFor(const Deadline& deadline) const;
  void Append(uint32_t lane_index, uint32_t item);
  void Unlink(const Node& node) {
    Lane& lane = m_lanes[node.where];
    (node.previous != kNone ? m_nodes[node.previous].next : lane.first) = node.next;
    (node.next != kNone ? m_nodes[node.next].previous : lane.last) = node.previous;
  }

  uint32_t m_room = 0;
  uint32_t m_next_order = 0;
  std::unique_ptr<Node[]> m_nodes;  // one an item
  Lane m_lanes[kLanes];
  uint32_t m_last_lane = 0;  // appended to last
  mutable int64_t m_none_before_ms =
      INT64_MAX;  // no deadline is earlier; what left may have been it
  DeadlineHeap m_heap;
};

}  // namespace OstrandService
