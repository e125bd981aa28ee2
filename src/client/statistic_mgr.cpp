#include "client/statistic_mgr.h"

#include <cstring>
#include <new>
#include <string_view>

#include "client/access_book.h"
#include "client/bounded_copy.h"
#include "client/runtime_errors.h"
#include "client/statistic_text.h"
#include "common/relaxed.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr bool IsPerMinute(std::string_view name) {
  constexpr std::string_view kEnd = "PerMin";
  return name.size() >= kEnd.size() && name.substr(name.size() - kEnd.size()) == kEnd;
}

#define OSTRAND_CLEAR(field) \
  if (IsPerMinute(#field)) record.field = 0

void ClearMinute(tagOverallRunStatus& record) {
#define OSTRAND_FIELD(type, name, unit, meaning) OSTRAND_CLEAR(name);
  OSTRAND_OVERALL_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#define OSTRAND_FIELD(name, unit, meaning) OSTRAND_CLEAR(dw##name);
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
// What belongs to a maximum goes with it.
#define OSTRAND_FIELD(kind)               \
  record.ull##kind##MaxLatencyPerMin = 0; \
  record.ull##kind##MaxDelayTime = 0;     \
  record.dw##kind##MaxDelayCmd = 0;       \
  record.dw##kind##MaxDelayIp = 0;        \
  record.dw##kind##MaxDelayPort = 0;
  OSTRAND_LATENCY_KINDS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
}

void ClearMinute(tagTableRunStatus& record) {
#define OSTRAND_FIELD(name, unit, meaning) OSTRAND_CLEAR(dwTable##name);
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
}

void ClearMinute(tagAccessRunStatus& record) {
  record.ullTimeOutCount += record.dwTimeOutCountPerMin;
  record.ullProxyReturnSystemErrCount += record.dwProxyReturnSystemErrCountPerMin;
#define OSTRAND_FIELD(type, name, unit, meaning) OSTRAND_CLEAR(name);
  OSTRAND_ACCESS_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
  record.dwMaxDelay = 0;
  record.ullMaxDelayTime = 0;
  record.dwMaxDelayCmd = 0;
  record.stPerfDelay = PERFSTATUS();
}

#undef OSTRAND_CLEAR

void MoveMinute(tagServiceApiStatistic& from, tagServiceApiStatistic& to) {
  to.stOverallRunStatus = from.stOverallRunStatus;
  ClearMinute(from.stOverallRunStatus);
  to.stPerfDelay = from.stPerfDelay;
  from.stPerfDelay = PERFSTATUS();
  to.iTableCount = from.iTableCount;
  for (int32_t i = 0; i < from.iTableCount; ++i) {
    to.astTableStatistic[i] = from.astTableStatistic[i];
    ClearMinute(from.astTableStatistic[i].stTableRunStatus);
  }
  const int32_t access_count = from.iAccessCount.load(std::memory_order_acquire);
  to.iAccessCount.store(access_count, std::memory_order_relaxed);
  for (int32_t i = 0; i < access_count; ++i) {
    to.astAccessStatistic[i] = from.astAccessStatistic[i];
    ClearMinute(from.astAccessStatistic[i]);
  }
}

}  // namespace

// The record is a base class, so that it leads to what belongs to it.
struct StatisticMgr::Zone : tagServiceApiStatistic {
  Zone() : accesses(*this) {}

  OstrandCommon::Relaxed<int32_t> dynamic_error_code = 0;
  AccessBook accesses;
  tagServiceApiStatistic last_minute;
};

StatisticMgr::StatisticMgr() = default;
StatisticMgr::~StatisticMgr() = default;

StatisticMgr::Zone* StatisticMgr::FindZone(int64_t app_id, int32_t zone_id) const {
  const size_t count = m_zone_count.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    if (m_keys[i].app_id == app_id && m_keys[i].zone_id == zone_id) {
      return m_zones[i].get();
    }
  }
  return nullptr;
}

int StatisticMgr::RegisterApp(int64_t app_id, int32_t zone_id) {
  if (FindZone(app_id, zone_id) != nullptr) {
    return 0;
  }
  const size_t count = m_zone_count.load(std::memory_order_relaxed);
  if (count == kMaxZones) {
    return RUNTIME_ERR_STATISTICS_FULL;
  }
  m_zones[count].reset(new (std::nothrow) Zone);
  if (m_zones[count] == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  m_keys[count] = {app_id, zone_id};
  m_zone_count.store(count + 1, std::memory_order_release);
  return 0;
}

int32_t StatisticMgr::RegisterTable(int64_t app_id, int32_t zone_id, const char* table_name) {
  constexpr size_t kNameSize = sizeof(tagTableStatistic::szTableName);
  const size_t len = table_name != nullptr ? strnlen(table_name, kNameSize) : 0;
  if (len == 0 || len == kNameSize) {
    return ROUTER_ERR_ARGUMENT;
  }
  Zone* const zone = FindZone(app_id, zone_id);
  if (zone == nullptr) {
    return RUNTIME_ERR_NOT_REGISTERED;
  }
  for (int32_t i = 0; i < zone->iTableCount; ++i) {
    if (std::strcmp(zone->astTableStatistic[i].szTableName, table_name) == 0) {
      return i;
    }
  }
  if (zone->iTableCount == tagServiceApiStatistic::kMaxTables) {
    return RUNTIME_ERR_STATISTICS_FULL;
  }
  CopyBounded(zone->astTableStatistic[zone->iTableCount].szTableName, table_name);
  return zone->iTableCount++;
}

int StatisticMgr::SetDynamicErrorCode(int64_t app_id, int32_t zone_id, int32_t code) {
  Zone* const zone = FindZone(app_id, zone_id);
  if (zone == nullptr) {
    return RUNTIME_ERR_NOT_REGISTERED;
  }
  zone->dynamic_error_code = code;
  return 0;
}

tagServiceApiStatistic* StatisticMgr::GetServiceApiStatistic(int64_t app_id, int32_t zone_id) {
  return FindZone(app_id, zone_id);
}

tagAccessRunStatus* StatisticMgr::GetAccessRunStatus(tagServiceApiStatistic& statistic, int ip,
                                                     int port) {
  return static_cast<Zone&>(statistic).accesses.Find(ip, port);
}

int StatisticMgr::AddAccess(int64_t app_id, int32_t zone_id, const char* url, int ip, int port,
                            const char* server_id) {
  Zone* const zone = FindZone(app_id, zone_id);
  return zone != nullptr ? zone->accesses.Add(url, ip, port, server_id)
                         : RUNTIME_ERR_NOT_REGISTERED;
}

int32_t StatisticMgr::GetDynamicErrorCode(int64_t app_id, int32_t zone_id) {
  const Zone* const zone = FindZone(app_id, zone_id);
  return zone != nullptr ? zone->dynamic_error_code.Get() : 0;
}

void StatisticMgr::ReuseIdleAccesses() {
  for (size_t i = 0; i < m_zone_count.load(std::memory_order_relaxed); ++i) {
    m_zones[i]->accesses.ReuseIdle();
  }
}

void StatisticMgr::RollMinute() {
  for (size_t i = 0; i < m_zone_count.load(std::memory_order_relaxed); ++i) {
    MoveMinute(*m_zones[i], m_zones[i]->last_minute);
  }
  ReuseIdleAccesses();
}

const tagServiceApiStatistic* StatisticMgr::GetLastMinute(int64_t app_id, int32_t zone_id) const {
  const Zone* const zone = FindZone(app_id, zone_id);
  return zone != nullptr ? &zone->last_minute : nullptr;
}

void StatisticMgr::PrintStatistics(std::string& text) const {
  for (size_t i = 0; i < m_zone_count.load(std::memory_order_relaxed); ++i) {
    const std::string of =
        "app " + std::to_string(m_keys[i].app_id) + " zone " + std::to_string(m_keys[i].zone_id);
    text += of + ", this minute\n";
    AppendStatistic(text, *m_zones[i]);
    text += of + ", last minute\n";
    AppendStatistic(text, m_zones[i]->last_minute);
  }
}

}  // namespace OstrandService
