// A judge whose verdicts a test writes down.
//
// Threads: the application's thread, as its contract says.
// Journal entries: "JudgeUpdate", "ResetJudgeProxyStatus <url>".
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/journal.h"
#include "service_api/judge_proxy.h"

namespace OstrandFakes {

class FakeJudgeProxy : public OstrandService::JudgeProxy {
 public:
  explicit FakeJudgeProxy(Journal* journal = nullptr) : m_journal(journal) {}

  void Update(int32_t app_id, int32_t zone_id,
              OstrandService::OstrandServiceStatisticMgr& statistic_mgr) override;
  bool IsShouldCheck(int32_t app_id, int32_t zone_id) override;
  bool IsProxyUnavailable(int32_t app_id, int32_t zone_id, const char* url) override;
  OstrandService::JudgeProxyOption GetProxyOption(int32_t app_id, int32_t zone_id) override;
  int64_t GetRecheckAvailableInterval(int32_t app_id, int32_t zone_id) override;
  // Also takes the url out of `unavailable`.
  void ResetJudgeProxyStatus(int32_t app_id, int32_t zone_id, const char* url) override;

  // The verdicts. Initially: nothing to check, everybody is available, recheck after 60 s, and at
  // most half of the proxies may be out.
  bool should_check = false;
  std::set<std::string> unavailable;
  int64_t recheck_interval = 60;
  OstrandService::JudgeProxyOption option = {100, 10, 3, 60, 0, 0, false, 0, 50};

  // What happened.
  int updates = 0;
  OstrandService::OstrandServiceStatisticMgr* updated_with = nullptr;  // of the last Update
  std::vector<std::string> asked;                                      // urls, in order
  std::vector<std::string> resets;                                     // urls, in order
  // Application and zone of every call, each pair once.
  std::set<std::pair<int32_t, int32_t>> keys;

 private:
  void Key(int32_t app_id, int32_t zone_id);

  Journal* const m_journal;
};

}  // namespace OstrandFakes
