// The statistics of a service: one record for each application and zone, counted by the minute.
//
// Registered at the start: applications with their zones, and tables, each of which gets a
// subscript. The proxies' access records come and go with the routes (access_book.h). Once a minute
// the service calls RollMinute.
//
// Ownership: owns the records; they live and stay where they are as long as the manager.
// Threads: AddAccess on the network thread, beside everything else on the application's thread.
// GetServiceApiStatistic and GetAccessRunStatus take no lock.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/export.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {

class OSTRAND_API StatisticMgr : public OstrandServiceStatisticMgr {
 public:
  static constexpr size_t kMaxZones = 256;  // of all applications together

  StatisticMgr();
  ~StatisticMgr() override;
  StatisticMgr(const StatisticMgr&) = delete;
  StatisticMgr& operator=(const StatisticMgr&) = delete;

  // Makes the record of an application and zone; again: nothing. 0; RUNTIME_ERR_STATISTICS_FULL;
  // ROUTER_ERR_ALLOCATION.
  int RegisterApp(int64_t app_id, int32_t zone_id);

  // The table's subscript, 0 to 255, the same one for the same name. RUNTIME_ERR_NOT_REGISTERED for
  // an unknown zone; RUNTIME_ERR_STATISTICS_FULL behind the 256th table of a zone;
  // ROUTER_ERR_ARGUMENT for a name that is null or not of 1 to 31 characters.
  int32_t RegisterTable(int64_t app_id, int32_t zone_id, const char* table_name);

  // The result whose answers are counted by themselves; 0 for none. RUNTIME_ERR_NOT_REGISTERED for
  // an unknown zone.
  int SetDynamicErrorCode(int64_t app_id, int32_t zone_id, int32_t code);

  tagServiceApiStatistic* GetServiceApiStatistic(int64_t app_id, int32_t zone_id) override;
  // statistic: one of this manager's. The access record is valid until the next ReuseIdleAccesses
  // or RollMinute.
  tagAccessRunStatus* GetAccessRunStatus(tagServiceApiStatistic& statistic, int ip,
                                         int port) override;
  // 0, also for an address that waits for ReuseIdleAccesses to find it a record;
  // RUNTIME_ERR_NOT_REGISTERED for an unknown zone; RUNTIME_ERR_STATISTICS_FULL when more than
  // AccessBook::kMaxWaiting wait.
  int AddAccess(int64_t app_id, int32_t zone_id, const char* url, int ip, int port,
                const char* server_id) override;
  int32_t GetDynamicErrorCode(int64_t app_id, int32_t zone_id) override;

  // Gives records of proxies that were not used for long to new ones, when all are taken. The
  // service calls it with every update.
  void ReuseIdleAccesses();

  // Ends the minute: every counter whose name ends in PerMin, the slowest answers and the delays
  // are copied to the last minute's record and cleared. Gauges (dwApiConnectOstrroxyCount) stay;
  // time-outs and system errors of an access are added to its totals. Includes ReuseIdleAccesses.
  void RollMinute();

  // The record as it was when the last minute ended; all zeros in the first, null for an unknown
  // zone.
  const tagServiceApiStatistic* GetLastMinute(int64_t app_id, int32_t zone_id) const;

  // Appends every counter of every zone, of this minute and of the last.
  void PrintStatistics(std::string& text) const;

 private:
  struct Zone;
  struct Key {
    int64_t app_id;
    int32_t zone_id;
  };

  Zone* FindZone(int64_t app_id, int32_t zone_id) const;

  // Written before the count that includes them is (release), then constant.
  std::array<Key, kMaxZones> m_keys;
  std::array<std::unique_ptr<Zone>, kMaxZones> m_zones;
  std::atomic<size_t> m_zone_count{0};
};

}  // namespace OstrandService
