#include "fakes/fake_judge_proxy.h"

#include "fakes/allocation_faults.h"

namespace OstrandFakes {

void FakeJudgeProxy::Key(int32_t app_id, int32_t zone_id) { keys.emplace(app_id, zone_id); }

void FakeJudgeProxy::Update(int32_t app_id, int32_t zone_id,
                            OstrandService::OstrandServiceStatisticMgr& statistic_mgr) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  ++updates;
  updated_with = &statistic_mgr;
  if (m_journal != nullptr) {
    m_journal->Add("JudgeUpdate");
  }
}

bool FakeJudgeProxy::IsShouldCheck(int32_t app_id, int32_t zone_id) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  return should_check;
}

bool FakeJudgeProxy::IsProxyUnavailable(int32_t app_id, int32_t zone_id, const char* url) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  asked.emplace_back(url);
  return unavailable.count(url) > 0;
}

OstrandService::JudgeProxyOption FakeJudgeProxy::GetProxyOption(int32_t app_id, int32_t zone_id) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  return option;
}

int64_t FakeJudgeProxy::GetRecheckAvailableInterval(int32_t app_id, int32_t zone_id) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  return recheck_interval;
}

void FakeJudgeProxy::ResetJudgeProxyStatus(int32_t app_id, int32_t zone_id, const char* url) {
  const UnwatchedAllocations unwatched;
  Key(app_id, zone_id);
  resets.emplace_back(url);
  unavailable.erase(url);
  if (m_journal != nullptr) {
    m_journal->Add(std::string("ResetJudgeProxyStatus ") + url);
  }
}

}  // namespace OstrandFakes
