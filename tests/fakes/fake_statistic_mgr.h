// A statistics manager that keeps its records in memory.
//
// Ownership: owns the records; they never move.
// Threads: any; it locks inside. The two plain fields of its base and the records' counters belong
// to the application's thread.
// Journal entries: "AddAccess <url>".
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fakes/journal.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandFakes {

class FakeStatisticMgr : public OstrandService::OstrandServiceStatisticMgr {
 public:
  // The arguments of one call of AddAccess.
  struct Access {
    int64_t app_id;
    int32_t zone_id;
    std::string url;
    int ip;
    int port;
    std::string server_id;
  };

  explicit FakeStatisticMgr(Journal* journal = nullptr) : m_journal(journal) {}

  OstrandService::tagServiceApiStatistic* GetServiceApiStatistic(int64_t app_id,
                                                                 int32_t zone_id) override;
  OstrandService::tagAccessRunStatus* GetAccessRunStatus(
      OstrandService::tagServiceApiStatistic& statistic, int ip, int port) override;
  // Enters the access in the zone's record, if that is registered and the address is new.
  int AddAccess(int64_t app_id, int32_t zone_id, const char* url, int ip, int port,
                const char* server_id) override;
  int32_t GetDynamicErrorCode(int64_t app_id, int32_t zone_id) override;

  // Makes an empty record for the zone and answers it; the same one when it is there already.
  OstrandService::tagServiceApiStatistic& Register(int64_t app_id, int32_t zone_id);
  // AddAccess answers this and enters nothing, unless it is 0.
  void SetAddAccessResult(int result);
  void SetDynamicErrorCode(int32_t code);

  std::vector<Access> accesses() const;  // every call of AddAccess

 private:
  Journal* const m_journal;
  mutable std::mutex m_mutex;  // guards everything below
  std::map<std::pair<int64_t, int32_t>, std::unique_ptr<OstrandService::tagServiceApiStatistic>>
      m_records;
  int m_add_access_result = 0;
  int32_t m_dynamic_error_code = 0;
  std::vector<Access> m_accesses;
};

}  // namespace OstrandFakes
