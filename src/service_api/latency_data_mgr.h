// The table of requests in flight: what the router remembers of a request until its answer comes or
// its time is over.
//
// Ownership: the service owns the table, the table owns its records; a record is valid until it is
// freed. Threads: the application's thread only.
#pragma once

#include <cstdint>

#include "common/export.h"

namespace OstrandService {

class OstrandServiceStatisticMgr;

struct LatencyData {
  int32_t id_for_latency_data;  // what PushBack answered
  int32_t id_for_list_node;     // the table's own use
  int64_t send_ms;
  int32_t timeout_ms;
  int64_t deadline_ms;
  int32_t zone_id;
  int32_t ip;
  int32_t port;
  uint32_t req_cmd;
  int32_t next_sub_pkg_seq;  // number expected next of a multi-package answer; starts at 0
  int32_t table_subscript;
  uint64_t async_id;
  int32_t seq;
  char table_name[32];
  char* user_buffer;         // a copy of the user's bytes, or null when they travel themselves
  uint32_t user_buffer_len;  // as given to PushBack, also when nothing was kept
};

class OSTRAND_API LatencyDataMgr {
 public:
  virtual ~LatencyDataMgr() = default;

  // Registers a request sent at send_ms. user_buffer, when not null, is copied (user_buffer_len
  // bytes). Returns the record's id (>= 0), or a negative code when the table is full.
  virtual int32_t PushBack(int32_t zone_id, int64_t send_ms, int32_t timeout_ms, int32_t ip,
                           int32_t port, uint32_t cmd, int32_t table_subscript,
                           const char* table_name, uint64_t async_id, int32_t seq,
                           const char* user_buffer, uint32_t user_buffer_len) = 0;

  // The live record with this id, or null. Any id is allowed: it may come from the wire.
  virtual LatencyData* GetLatencyData(int32_t id) = 0;

  // Books the time that the answer took. 0, or a negative code.
  virtual int CalculateDelay(LatencyData* record, int64_t now_ms,
                             OstrandServiceStatisticMgr* statistic_mgr) = 0;

  // Gives the next package of the same answer the request's whole time-out again, from now_ms on.
  virtual void RenewalLatencyData(int64_t now_ms, LatencyData* record) = 0;

  virtual void FreeLatencyData(LatencyData* record) = 0;

  // One expired record, the one with the earliest deadline first, or null. The caller frees it.
  virtual LatencyData* TraverseForDeleteTimeOutNode(OstrandServiceStatisticMgr* statistic_mgr) = 0;
};

}  // namespace OstrandService
