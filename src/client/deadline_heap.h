// A priority queue of numbered items by deadline, in which every item can be found.
//
// Algorithm: a 4-ary heap in an array, with the place of each item beside it (D. B. Johnson,
// "Priority queues with update and finding minimum spanning trees", 1975). O(log n).
// Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace OstrandService {

// When something is due. Equal deadlines are told apart by `order`, which runs and wraps: the
// earlier number is due first.
struct Deadline {
  int64_t ms;
  uint32_t order;

  bool operator<(const Deadline& other) const {
    return ms != other.ms ? ms < other.ms : static_cast<int32_t>(order - other.order) < 0;
  }
};

class DeadlineHeap {
 public:
  // Makes room for the items 0 to count - 1; those that are new are not in the heap. False without
  // memory; then all is as before.
  bool Reserve(uint32_t count);

  bool empty() const { return m_size == 0; }
  // The item due first. REQUIRES: not empty.
  uint32_t top() const { return m_entries[0].item; }
  const Deadline& top_deadline() const { return m_entries[0].deadline; }

  // REQUIRES: the item is within the room and not in the heap.
  void Insert(uint32_t item, const Deadline& deadline);
  // REQUIRES: the item is in the heap.
  void Erase(uint32_t item);

 private:
  static constexpr uint32_t kArity = 4;

  struct Entry {
    Deadline deadline;
    uint32_t item;
  };

  void Put(uint32_t place, const Entry& entry);
  void MoveUp(uint32_t place, const Entry& entry);
  void MoveDown(uint32_t place, const Entry& entry);

  uint32_t m_size = 0;
  uint32_t m_room = 0;
  std::unique_ptr<Entry[]> m_entries;    // the heap; the children of i are 4i + 1 to 4i + 4
  std::unique_ptr<uint32_t[]> m_places;  // of each item that is in the heap
};

}  // namespace OstrandService
