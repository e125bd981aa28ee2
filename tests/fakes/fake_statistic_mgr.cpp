#include "fakes/fake_statistic_mgr.h"

#include <cstdio>

#include "fakes/allocation_faults.h"

namespace OstrandFakes {

using Lock = std::lock_guard<std::mutex>;
using OstrandService::tagAccessRunStatus;
using OstrandService::tagServiceApiStatistic;

namespace {

tagAccessRunStatus* FindAccess(tagServiceApiStatistic& statistic, int ip, int port) {
  for (int32_t i = 0; i < statistic.iAccessCount; ++i) {
    tagAccessRunStatus& access = statistic.astAccessStatistic[i];
    if (access.iIp == ip && access.iPort == port) {
      return &access;
    }
  }
  return nullptr;
}

}  // namespace

tagServiceApiStatistic* FakeStatisticMgr::GetServiceApiStatistic(int64_t app_id, int32_t zone_id) {
  const Lock lock(m_mutex);
  const auto found = m_records.find({app_id, zone_id});
  return found != m_records.end() ? found->second.get() : nullptr;
}

tagAccessRunStatus* FakeStatisticMgr::GetAccessRunStatus(tagServiceApiStatistic& statistic, int ip,
                                                         int port) {
  const Lock lock(m_mutex);
  return FindAccess(statistic, ip, port);
}

int FakeStatisticMgr::AddAccess(int64_t app_id, int32_t zone_id, const char* url, int ip, int port,
                                const char* server_id) {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add(std::string("AddAccess ") + url);
  }
  const Lock lock(m_mutex);
  m_accesses.push_back(Access{app_id, zone_id, url, ip, port, server_id});
  if (m_add_access_result != 0) {
    return m_add_access_result;
  }
  const auto found = m_records.find({app_id, zone_id});
  if (found == m_records.end()) {
    return -1;
  }
  tagServiceApiStatistic& statistic = *found->second;
  if (FindAccess(statistic, ip, port) != nullptr) {
    return 0;
  }
  if (statistic.iAccessCount >= tagServiceApiStatistic::kMaxAccesses) {
    return -1;
  }
  tagAccessRunStatus& access = statistic.astAccessStatistic[statistic.iAccessCount++];
  std::snprintf(access.szAccessUrl, sizeof(access.szAccessUrl), "%s", url);
  std::snprintf(access.szAccessId, sizeof(access.szAccessId), "%s", server_id);
  access.iIp = ip;
  access.iPort = port;
  return 0;
}

int32_t FakeStatisticMgr::GetDynamicErrorCode(int64_t, int32_t) {
  const Lock lock(m_mutex);
  return m_dynamic_error_code;
}

tagServiceApiStatistic& FakeStatisticMgr::Register(int64_t app_id, int32_t zone_id) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  auto& record = m_records[{app_id, zone_id}];
  if (record == nullptr) {
    record = std::make_unique<tagServiceApiStatistic>();
  }
  return *record;
}

void FakeStatisticMgr::SetAddAccessResult(int result) {
  const Lock lock(m_mutex);
  m_add_access_result = result;
}

void FakeStatisticMgr::SetDynamicErrorCode(int32_t code) {
  const Lock lock(m_mutex);
  m_dynamic_error_code = code;
}

std::vector<FakeStatisticMgr::Access> FakeStatisticMgr::accesses() const {
  const Lock lock(m_mutex);
  return m_accesses;
}

}  // namespace OstrandFakes
