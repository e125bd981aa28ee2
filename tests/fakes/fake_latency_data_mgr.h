// An in-flight table that really keeps its records, in memory.
//
// Ids count up from 0 and are never used again. A record is expired once the clock has passed its
// deadline (send time and time-out; from the last renewal on, that time and the time-out).
// Ownership: owns its records until FreeLatencyData.
// Threads: the application's thread, as its contract says.
// Journal entries: "PushBack <id>", "CalculateDelay <id>", "FreeLatencyData <id>".
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "fakes/journal.h"
#include "service_api/latency_data_mgr.h"

namespace OstrandFakes {

class FakeLatencyDataMgr : public OstrandService::LatencyDataMgr {
 public:
  explicit FakeLatencyDataMgr(Journal* journal = nullptr) : m_journal(journal) {}

  int32_t PushBack(int32_t zone_id, int64_t send_ms, int32_t timeout_ms, int32_t ip, int32_t port,
                   uint32_t cmd, int32_t table_subscript, const char* table_name, uint64_t async_id,
                   int32_t seq, const char* user_buffer, uint32_t user_buffer_len) override;
  OstrandService::LatencyData* GetLatencyData(int32_t id) override;
  int CalculateDelay(OstrandService::LatencyData* record, int64_t now_ms,
                     OstrandService::OstrandServiceStatisticMgr* statistic_mgr) override;
  void RenewalLatencyData(int64_t now_ms, OstrandService::LatencyData* record) override;
  // Faults on a record that is not alive.
  void FreeLatencyData(OstrandService::LatencyData* record) override;
  OstrandService::LatencyData* TraverseForDeleteTimeOutNode(
      OstrandService::OstrandServiceStatisticMgr* statistic_mgr) override;

  // From now on every PushBack answers this code (negative) and keeps nothing; 0: works again.
  void SetPushBackResult(int32_t code) { m_push_back_result = code; }
  // The id of the next record; for ids that stand out in what is sent.
  void SetNextId(int32_t id) { m_next_id = id; }

  size_t live_count() const { return m_records.size(); }
  int32_t last_id() const { return m_next_id - 1; }  // of the last successful PushBack
  const std::vector<std::pair<int32_t, int64_t>>& delays() const { return m_delays; }  // id, now
  const std::vector<int32_t>& renewals() const { return m_renewals; }                  // ids
  const std::vector<int32_t>& freed() const { return m_freed; }                        // ids
  OstrandService::OstrandServiceStatisticMgr* statistic_mgr() const { return m_statistic_mgr; }

 private:
  struct Record {
    OstrandService::LatencyData data;
    std::vector<char> user_buffer;  // exactly the given bytes
  };

  Journal* const m_journal;
  int32_t m_push_back_result = 0;
  int32_t m_next_id = 0;
  std::map<int32_t, std::unique_ptr<Record>> m_records;
  std::vector<std::pair<int32_t, int64_t>> m_delays;
  std::vector<int32_t> m_renewals;
  std::vector<int32_t> m_freed;
  OstrandService::OstrandServiceStatisticMgr* m_statistic_mgr = nullptr;  // of the last call
};

}  // namespace OstrandFakes
