// Judges from the statistics which proxies serve badly. Verdicts are kept by application, zone and
// proxy url.
//
// Ownership: the service's; outlives the router. Threads: the application's thread only.
#pragma once

#include <cstdint>

#include "common/export.h"

namespace OstrandService {

class OstrandServiceStatisticMgr;

// How one zone is judged, and the judge's own books of it.
struct JudgeProxyOption {
  int32_t threshold;                   // failures that make a period a bad one
  int32_t check_period;                // length of a period, seconds
  int32_t check_times;                 // bad periods in a row that make a proxy unavailable
  int32_t recheck_available_interval;  // seconds until an unavailable proxy is tried again
  int64_t last_call_update_time;
  int64_t last_traverse_time;
  bool should_check;
  int64_t last_report_access_qos_time;
  int32_t max_remove_rate;  // share of the proxies in use that may be out, per cent
};

class OSTRAND_API JudgeProxy {
 public:
  virtual ~JudgeProxy() = default;

  // Takes the current statistics into the books.
  virtual void Update(int32_t app_id, int32_t zone_id,
                      OstrandServiceStatisticMgr& statistic_mgr) = 0;
  // Whether verdicts are due now.
  virtual bool IsShouldCheck(int32_t app_id, int32_t zone_id) = 0;
  virtual bool IsProxyUnavailable(int32_t app_id, int32_t zone_id, const char* url) = 0;
  virtual JudgeProxyOption GetProxyOption(int32_t app_id, int32_t zone_id) = 0;
  // Seconds.
  virtual int64_t GetRecheckAvailableInterval(int32_t app_id, int32_t zone_id) = 0;
  // Forgets what is held against a proxy.
  virtual void ResetJudgeProxyStatus(int32_t app_id, int32_t zone_id, const char* url) = 0;
};

}  // namespace OstrandService
