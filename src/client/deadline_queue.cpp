#include "client/deadline_queue.h"

#include <algorithm>
#include <new>

namespace OstrandService {

bool DeadlineQueue::Reserve(uint32_t count) {
  if (count <= m_room) {
    return true;
  }
  std::unique_ptr<Node[]> nodes(new (std::nothrow) Node[count]);
  if (nodes == nullptr || !m_heap.Reserve(count)) {
    return false;
  }
  std::copy_n(m_nodes.get(), m_room, nodes.get());
  m_nodes = std::move(nodes);
  m_room = count;
  return true;
}

bool DeadlineQueue::First(uint32_t& item, int64_t& deadline_ms) const {
  const Deadline* first = nullptr;
  if (!m_heap.empty()) {
    first = &m_heap.top_deadline();
    item = m_heap.top();
  }
  for (const Lane& lane : m_lanes) {
    if (lane.first == kNone) {
      continue;
    }
    const Deadline& deadline = m_nodes[lane.first].deadline;
    if (first == nullptr || deadline < *first) {
      first = &deadline;
      item = lane.first;
    }
  }
  if (first == nullptr) {
    return false;
  }
  deadline_ms = first->ms;
  return true;
}

bool DeadlineQueue::FindBefore(int64_t now_ms, uint32_t& item) const {
  int64_t first_ms = INT64_MAX;
  First(item, first_ms);
  m_none_before_ms = first_ms;
  return first_ms < now_ms;
}

void DeadlineQueue::Set(uint32_t item, int64_t deadline_ms) {
  Erase(item);
  Node& node = m_nodes[item];
  node.deadline = {deadline_ms, m_next_order++};
  m_none_before_ms = std::min(m_none_before_ms, deadline_ms);
  // Many come in the same millisecond, with the same time-out: no lane ends nearer.
  const uint32_t last = m_lanes[m_last_lane].last;
  if (last != kNone && m_nodes[last].deadline.ms == deadline_ms) {
    Append(m_last_lane, item);
    return;
  }
  const uint32_t lane = LaneFor(node.deadline);
  if (lane == kNone) {
    node.where = kHeap;
    m_heap.Insert(item, node.deadline);
  } else {
    Append(lane, item);
  }
}

// The lane that ends nearest before the deadline, else an empty one, else none.
uint32_t DeadlineQueue::LaneFor(const Deadline& deadline) const {
  uint32_t found = kNone;
  uint32_t empty = kNone;
  for (uint32_t i = 0; i < kLanes; ++i) {
    const uint32_t last = m_lanes[i].last;
    if (last == kNone) {
      empty = empty == kNone ? i : empty;
    } else if (m_nodes[last].deadline < deadline &&
               (found == kNone || m_nodes[m_lanes[found].last].deadline < m_nodes[last].deadline)) {
      found = i;
    }
  }
  return found != kNone ? found : empty;
}

void DeadlineQueue::Append(uint32_t lane_index, uint32_t item) {
  m_last_lane = lane_index;
  Lane& lane = m_lanes[lane_index];
  Node& node = m_nodes[item];
  node.where = lane_index;
  node.previous = lane.last;
  node.next = kNone;
  (lane.last != kNone ? m_nodes[lane.last].next : lane.first) = item;
  lane.last = item;
}

}  // namespace OstrandService
