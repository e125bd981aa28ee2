// The table of requests in flight, for any number of them up to a limit.
//
// Ids run from 0 to 0x7FFFFFFF and then from 0 again, past those that are still in use: an answer
// that comes late finds no record rather than another request's. Records stand in blocks that never
// move; a freed record is the next to be used. An id is found by a hash table of chains (its low
// bits choose the chain, so that ids in a row lie side by side), an expired record by a queue of
// deadlines.
//
// Cost: lookup O(1); PushBack, RenewalLatencyData, FreeLatencyData and expiry O(1) while requests
// have one of few time-outs and the clock runs forward, O(log n) at worst. Memory grows by steps
// with the number in flight, is kept for the next burst and given back at the end; while it need
// not grow, nothing is allocated.
//
// Clock: deadlines are times of the wall clock. If it steps back, requests wait that much longer
// for their time-out; if it steps forward, they time out early, each once all the same.
//
// Ownership: owns its records and the copies of user buffers; a record is valid until it is freed.
// Threads: the application's thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "client/buffer_pool.h"
#include "client/deadline_queue.h"
#include "client/runtime_errors.h"
#include "common/export.h"
#include "service_api/latency_data_mgr.h"

namespace OstrandService {

class OSTRAND_API LatencyDataTable : public LatencyDataMgr {
 public:
  static constexpr size_t kDefaultMaxInFlight = 1000000;

  // What CalculateDelay books: packages that answered a request in flight, sampled or not.
  struct DelayBook {
    uint64_t packages = 0;
    uint64_t total_ms = 0;  // from sending on
    uint64_t max_ms = 0;
  };

  // app_id: whose access records time-outs are counted on. max_in_flight: at most 0x7FFFFFFE count.
  explicit LatencyDataTable(int64_t app_id, size_t max_in_flight = kDefaultMaxInFlight);
  ~LatencyDataTable() override;
  LatencyDataTable(const LatencyDataTable&) = delete;
  LatencyDataTable& operator=(const LatencyDataTable&) = delete;

  // The record's deadline is send_ms + timeout_ms, kept within int64. table_name: the first 31
  // characters are kept; null is the empty name. A null user_buffer keeps user_buffer_len and no
  // bytes. Codes: RUNTIME_ERR_IN_FLIGHT_FULL, ROUTER_ERR_ALLOCATION; then nothing is registered.
  int32_t PushBack(int32_t zone_id, int64_t send_ms, int32_t timeout_ms, int32_t ip, int32_t port,
                   uint32_t cmd, int32_t table_subscript, const char* table_name, uint64_t async_id,
                   int32_t seq, const char* user_buffer, uint32_t user_buffer_len) override;

  // Also finds a record that was handed out as expired, until it is freed.
  LatencyData* GetLatencyData(int32_t id) override;

  // Enters now_ms less the time of sending (0 if the clock went back) into Delays(). Nothing goes
  // into the statistics, which have the delays of sampled requests. Each package of a long answer
  // is booked. 0; ROUTER_ERR_ARGUMENT for null.
  int CalculateDelay(LatencyData* record, int64_t now_ms,
                     OstrandServiceStatisticMgr* statistic_mgr) override;

  // The deadline is now_ms + the time-out. A record that was handed out as expired waits again.
  void RenewalLatencyData(int64_t now_ms, LatencyData* record) override;

  // Null and records that are not in flight are ignored.
  void FreeLatencyData(LatencyData* record) override;

  // A record is expired when the wall clock is past its deadline. It is handed out once, and
  // counted as a time-out of its proxy (the access record's dwTimeOutCountPerMin) where the
  // statistics have that; statistic_mgr may be null.
  LatencyData* TraverseForDeleteTimeOutNode(OstrandServiceStatisticMgr* statistic_mgr) override;

  // While it is held no record expires: answers that came in time are still to be looked at.
  void HoldExpiry(bool is_held) { m_is_expiry_held = is_held; }

  // Records not freed yet.
  size_t InFlight() const { return m_in_flight; }
  // The id that the last PushBack answered, once; -1: none since.
  int32_t TakeLastId() { return std::exchange(m_last_id, -1); }
  // Wall-clock ms after which a record is expired; INT64_MAX: never.
  int64_t NextDeadlineMs() const;
  const DelayBook& Delays() const { return m_delays; }
  void ClearDelays() { m_delays = DelayBook(); }

  // For tests, which do not wait for 2^31 requests: ids run on from this one, which is not
  // negative.
  void SetNextId(int32_t id) {
    m_next_id = id;
    m_ids_come_again = true;
  }

 private:
  static constexpr uint32_t kBlockSize = 1024;  // records
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr int32_t kFreeId = -1;

  struct Slot {
    LatencyData data;  // its id_for_list_node is the slot's index
    uint32_t next;     // in the chain of its id, or of free slots
  };

  Slot& SlotAt(uint32_t index) const { return m_blocks[index / kBlockSize][index % kBlockSize]; }
  uint32_t& ChainOf(int32_t id) const {
    return m_chains[static_cast<uint32_t>(id) & (m_chain_count - 1)];
  }
  bool TakeSlot(uint32_t& index);
  bool GrowFor(uint32_t index);
  void GrowChains();
  int32_t TakeId();
  void Link(uint32_t index);
  void Unlink(uint32_t index);
  static bool IsInFlight(const LatencyData* record);
  void CountTimeOut(const LatencyData& record, OstrandServiceStatisticMgr* statistic_mgr) const;

  const int64_t m_app_id;
  const uint32_t m_max_in_flight;
  int32_t m_next_id = 0;
  int32_t m_last_id = -1;
  bool m_ids_come_again = false;  // 2^31 were given: one may still be in use
  uint32_t m_in_flight = 0;
  bool m_is_expiry_held = false;
  uint32_t m_used_slots = 0;             // slots that were ever in use; those behind are untouched
  uint32_t m_free = kNone;               // the slot freed last
  uint32_t m_chain_count = 0;            // a power of two, or 0 before the first record
  std::unique_ptr<uint32_t[]> m_chains;  // first slot of each chain
  std::unique_ptr<std::unique_ptr<Slot[]>[]> m_blocks;
  uint32_t m_room = 0;        // slots that m_deadlines has room for
  DeadlineQueue m_deadlines;  // slots in flight, but for those handed out as expired
  BufferPool m_buffers;
  DelayBook m_delays;
};

}  // namespace OstrandService
