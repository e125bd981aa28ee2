// The requests that a Client accepted and for which it has not handed out the outcome yet: each
// gets exactly one.
//
// Found by asynchronous id, which the table gives out: they run, and none is used again while its
// request is pending. O(1), no allocation once it has grown.
// Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <queue>
#include <vector>

namespace OstrandService {

struct PendingRequest {
  uint64_t asyn_id = 0;  // 0: the slot is free
  int64_t deadline_ms = 0;
  uint32_t cmd = 0;
  int32_t zone_id = 0;
  int32_t subscript = 0;  // of the table
  int32_t seq = 0;
  bool is_watched = false;
};

class PendingRequests {
 public:
  // max_pending: how many there may be at once.
  explicit PendingRequests(size_t max_pending);

  // Enters a request and gives it its id; null when the table is full or memory is out.
  PendingRequest* Add();
  // Null when nothing is pending under this id.
  PendingRequest* Find(uint64_t asyn_id);
  void Remove(uint64_t asyn_id);

  // Has the request looked at when its deadline is over: for those that nobody else times.
  void Watch(PendingRequest& request);

  // A request whose deadline is over, or null. Watched ones come in time; the others are a net
  // below the router's own time-outs, and are found within some `rounds_for_all` calls.
  PendingRequest* FindOverdue(int64_t now_ms, size_t rounds_for_all);

  size_t size() const { return m_size; }
  // Any request that is pending, or null.
  PendingRequest* Any();

 private:
  struct Watched {
    int64_t deadline_ms;
    uint64_t asyn_id;
    bool operator>(const Watched& other) const { return deadline_ms > other.deadline_ms; }
  };

  bool Grow();
  PendingRequest& SlotOf(uint64_t asyn_id) { return m_slots[asyn_id & (m_slots.size() - 1)]; }

  const size_t m_max_pending;
  std::vector<PendingRequest> m_slots;  // a power of two of them
  std::priority_queue<Watched, std::vector<Watched>, std::greater<Watched>> m_watched;
  size_t m_size = 0;
  size_t m_scan = 0;  // next slot that FindOverdue looks at
  uint64_t m_next_id = 1;
};

}  // namespace OstrandService
