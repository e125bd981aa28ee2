// Keeps the statistics records of a service, one an application and zone.
//
// Ownership: the service's; outlives the router.
// Threads: AddAccess on the network thread, everything else on the application's, beside it.
#pragma once

#include <cstdint>
#include <map>

#include "common/export.h"
#include "service_api/service_api_statistic.h"

namespace OstrandService {

class OSTRAND_API OstrandServiceStatisticMgr {
 public:
  virtual ~OstrandServiceStatisticMgr() = default;

  // The record, or null while (app, zone) is not registered. It never moves.
  virtual tagServiceApiStatistic* GetServiceApiStatistic(int64_t app_id, int32_t zone_id) = 0;

  // The access record of one proxy connection, or null.
  virtual tagAccessRunStatus* GetAccessRunStatus(tagServiceApiStatistic& statistic, int ip,
                                                 int port) = 0;

  // Enters a proxy connection; entering it again changes nothing. 0, or a negative code.
  // server_id: at most 32 characters, NUL-terminated.
  virtual int AddAccess(int64_t app_id, int32_t zone_id, const char* url, int ip, int port,
                        const char* server_id) = 0;

  // The error code that is watched just now; 0 when none is.
  virtual int32_t GetDynamicErrorCode(int64_t app_id, int32_t zone_id) = 0;

  uint64_t m_perfPercent = 0;                       // written by SetPerfSampPercent
  std::map<int32_t, int32_t> m_isolateProxyCntMap;  // zone id to proxies taken out of use
};

}  // namespace OstrandService
