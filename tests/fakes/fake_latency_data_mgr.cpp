#include "fakes/fake_latency_data_mgr.h"

#include <cstdio>
#include <string>

#include "common/clock.h"
#include "fakes/allocation_faults.h"
#include "fakes/fault.h"

namespace OstrandFakes {

using OstrandService::LatencyData;
using OstrandService::OstrandServiceStatisticMgr;

int32_t FakeLatencyDataMgr::PushBack(int32_t zone_id, int64_t send_ms, int32_t timeout_ms,
                                     int32_t ip, int32_t port, uint32_t cmd,
                                     int32_t table_subscript, const char* table_name,
                                     uint64_t async_id, int32_t seq, const char* user_buffer,
                                     uint32_t user_buffer_len) {
  const UnwatchedAllocations unwatched;
  if (m_push_back_result < 0) {
    return m_push_back_result;
  }
  const int32_t id = m_next_id;
  m_next_id = id == INT32_MAX ? 0 : id + 1;
  auto record = std::make_unique<Record>();
  LatencyData& data = record->data;
  data = LatencyData{};
  data.id_for_latency_data = id;
  data.send_ms = send_ms;
  data.timeout_ms = timeout_ms;
  data.deadline_ms = send_ms + timeout_ms;
  data.zone_id = zone_id;
  data.ip = ip;
  data.port = port;
  data.req_cmd = cmd;
  data.table_subscript = table_subscript;
  data.async_id = async_id;
  data.seq = seq;
  std::snprintf(data.table_name, sizeof(data.table_name), "%s",
                table_name != nullptr ? table_name : "");
  data.user_buffer_len = user_buffer_len;
  if (user_buffer != nullptr) {
    record->user_buffer.assign(user_buffer, user_buffer + user_buffer_len);
    data.user_buffer = record->user_buffer.data();
  }
  m_records[id] = std::move(record);
  if (m_journal != nullptr) {
    m_journal->Add("PushBack " + std::to_string(id));
  }
  return id;
}

LatencyData* FakeLatencyDataMgr::GetLatencyData(int32_t id) {
  const auto found = m_records.find(id);
  return found != m_records.end() ? &found->second->data : nullptr;
}

int FakeLatencyDataMgr::CalculateDelay(LatencyData* record, int64_t now_ms,
                                       OstrandServiceStatisticMgr* statistic_mgr) {
  const UnwatchedAllocations unwatched;
  m_delays.emplace_back(record->id_for_latency_data, now_ms);
  if (m_journal != nullptr) {
    m_journal->Add("CalculateDelay " + std::to_string(record->id_for_latency_data));
  }
  m_statistic_mgr = statistic_mgr;
  return 0;
}

void FakeLatencyDataMgr::RenewalLatencyData(int64_t now_ms, LatencyData* record) {
  const UnwatchedAllocations unwatched;
  m_renewals.push_back(record->id_for_latency_data);
  record->deadline_ms = now_ms + record->timeout_ms;
}

void FakeLatencyDataMgr::FreeLatencyData(LatencyData* record) {
  const UnwatchedAllocations unwatched;
  for (auto it = m_records.begin(); it != m_records.end(); ++it) {
    if (&it->second->data == record) {
      m_freed.push_back(it->first);
      if (m_journal != nullptr) {
        m_journal->Add("FreeLatencyData " + std::to_string(it->first));
      }
      m_records.erase(it);
      return;
    }
  }
  Fault("FreeLatencyData of %p, which is not alive", static_cast<void*>(record));
}

LatencyData* FakeLatencyDataMgr::TraverseForDeleteTimeOutNode(
    OstrandServiceStatisticMgr* statistic_mgr) {
  m_statistic_mgr = statistic_mgr;
  LatencyData* earliest = nullptr;
  for (const auto& [id, record] : m_records) {
    LatencyData& data = record->data;
    if (earliest == nullptr || data.deadline_ms < earliest->deadline_ms) {
      earliest = &data;
    }
  }
  const bool expired =
      earliest != nullptr && earliest->deadline_ms < OstrandCommon::GetCurrentMilliseconds();
  return expired ? earliest : nullptr;
}

}  // namespace OstrandFakes
