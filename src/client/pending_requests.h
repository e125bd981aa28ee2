// The requests that a client accepted and for which it has not handed out the outcome yet: each
// gets exactly one.
//
// Ids. A request is known by the asynchronous id that Add gave it. On the wire each of its tries
// has an id of its own; the first has the request's. An id names its slot in its low bits, so both
// are found at once, and an older try's id finds nothing.
//
// A request is in one chain at a time: of those in flight on a connection, of those that wait in a
// zone, or of those whose outcome is there.
//
// Cost: everything O(1); no allocation once it has grown. Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "client/deadline_queue.h"
#include "client/request_chain.h"
#include "client/request_store.h"

namespace OstrandService {

struct PendingRequest {
  enum class State : uint8_t {
    kFree,
    kSending,   // being tried; in no chain
    kInFlight,  // chained to its connector, if that is still there
    kAnswered,  // its whole answer lies in a queue; in no chain
    kWaiting,   // chained to its zone
    kEnded,     // chained to those whose outcome is there
  };

  uint64_t id = 0;              // the application's
  uint64_t wire_id = 0;         // of the try
  int64_t deadline_ms = 0;      // monotonic; of the request
  int64_t try_deadline_ms = 0;  // of the try
  int32_t timeout_ms = 0;
  uint32_t cmd = 0;
  int32_t sequence = 0;
  int32_t end_result = 0;   // kEnded
  int32_t latency_id = -1;  // the try's record in the router's table; -1: none
  uint16_t zone = 0;        // index
  uint16_t table = 0;       // index
  int16_t tries_left = 0;   // after this one
  State state = State::kFree;
  bool has_package = false;  // a package of its answer was handed out
  uint32_t next = kNoRequest;
  uint32_t previous = kNoRequest;
  RequestChain* chain = nullptr;
  StoredRequest* stored = nullptr;  // while it waits or may be sent again
};

class PendingRequests {
 public:
  // max_pending: how many there may be at once.
  explicit PendingRequests(size_t max_pending) : m_max_pending(max_pending) {}

  // Enters a request and gives it its id; null when the table is full. May throw std::bad_alloc;
  // then nothing is entered.
  PendingRequest* Add();
  // REQUIRES: in no chain, nothing stored.
  void Remove(PendingRequest& request);

  // Null when nothing is pending under the application's id, or the try's.
  PendingRequest* Find(uint64_t id);
  PendingRequest* FindTry(uint64_t wire_id);
  // An id for another try.
  uint64_t NewId(const PendingRequest& request);

  // The slot that an id names; there are never more than were ever in use at once.
  static uint32_t SlotOfId(uint64_t id) { return static_cast<uint32_t>(id & kSlotMask); }
  uint32_t SlotOf(const PendingRequest& request) const { return SlotOfId(request.id); }
  PendingRequest& At(uint32_t slot) { return m_blocks[slot / kBlock][slot % kBlock]; }

  void Append(RequestChain& chain, PendingRequest& request);
  void Unchain(PendingRequest& request);

  // When the request is to be looked at.
  void SetDue(PendingRequest& request, int64_t monotonic_ms) {
    m_due.Set(SlotOf(request), monotonic_ms);
  }
  void NeverDue(PendingRequest& request) { m_due.Erase(SlotOf(request)); }
  // REQUIRES: it is due ever.
  int64_t DueOf(const PendingRequest& request) const { return m_due.DeadlineOf(SlotOf(request)); }
  // The try's deadline, with some time for the router, which times those it has a record of itself.
  static int64_t WithGrace(const PendingRequest& request) {
    return request.try_deadline_ms + (request.latency_id >= 0 ? kGraceMs : 0);
  }
  // INT64_MAX: none is due ever.
  int64_t FirstDueMs() const;
  // The request that is due first, if its time is over; else null.
  PendingRequest* FirstOverdue(int64_t now_ms);

  // visit(request) of every request.
  template <typename Visit>
  void ForEach(Visit visit) {
    for (uint32_t slot = 0; slot < m_used; ++slot) {
      if (At(slot).id != 0) {
        visit(At(slot));
      }
    }
  }

  size_t size() const { return m_size; }

 private:
  static constexpr int64_t kGraceMs = 5000;
  static constexpr uint32_t kBlock = 1024;
  static constexpr int kSlotBits = 31;
  static constexpr uint64_t kSlotMask = (uint64_t{1} << kSlotBits) - 1;

  void Grow();
  uint64_t NewIdOf(uint32_t slot);

  const size_t m_max_pending;
  std::vector<std::unique_ptr<PendingRequest[]>> m_blocks;  // requests never move
  uint32_t m_free = kNoRequest;                             // chained by `next`
  uint32_t m_used = 0;                                      // slots that were ever in use
  DeadlineQueue m_due;
  size_t m_due_room = 0;  // slots that m_due has room for
  size_t m_size = 0;
  uint32_t m_last_number = 0;  // of ids
};

}  // namespace OstrandService
