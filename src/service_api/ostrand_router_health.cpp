// Which proxies take requests: availability, recheck, heartbeat latency, alarms, stop negotiation.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "common/clock.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/judge_proxy.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_response.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "service_api/recheck_probe.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;
using ostrand_protocol_cs::OStrandPkgHead;
using OSTRNET::CConnector;

constexpr int64_t kFastCheckIntervalMs = 299;
constexpr time_t kLatencyReportIntervalSeconds = 60;
constexpr int kLargeHeartbeatLatencyUs = 100000;

// Whether the availability checks may take this proxy out of use.
bool IsCandidate(const ProxyServer& server) {
  return server.auth_succeed && server.connector->GetStatus() == CConnector::STATUS_CONNECTED &&
         server.last_auth_result == 0 && server.is_available;
}

bool HasConnector(const ProxyServer* server) {
  return server != nullptr && server->connector != nullptr;
}

const char* UrlOf(CConnector* connector) {
  const char* url = connector->GetURL();
  return url != nullptr ? url : "";
}

}  // namespace

bool ProxyServer::IsUnavailable(OstrandCommon::Logger* logger) {
  const uint64_t requests = m_request_count;
  const uint64_t responses = m_response_count;
  const bool unavailable = requests > 10 && requests / 10 >= responses;
  if (unavailable && connector != nullptr) {
    ROUTER_LOG_WARN(logger, 0, __func__,
                    "m_request_count %llu, m_response_count %llu proxy %s IsUnavailable",
                    static_cast<unsigned long long>(requests),
                    static_cast<unsigned long long>(responses), UrlOf(connector));
  }
  m_request_count = 0;
  m_response_count = 0;
  return unavailable;
}

void OstrandRouter::SetUnavailable(ProxyServer* server) {
  auto& isolated = m_statistic_mgr->m_isolateProxyCntMap[m_zone_id];  // first: all that can fail
  server->is_available = false;
  server->last_unavailable_time = OstrandCommon::GetCurrentMilliseconds() / 1000;
  isolated += 1;
}

void OstrandRouter::UpdateProxyAvailableV2() {
  const int64_t now_ms = OstrandCommon::GetCurrentMilliseconds();
  if (m_lastCheckProxyTime < 1) {
    m_lastCheckProxyTime = now_ms;
    return;
  }
  if (m_lastCheckProxyTime + kFastCheckIntervalMs >= now_ms) {
    return;
  }
  m_lastCheckProxyTime = now_ms;

  uint32_t connected = GetConnectedCount(m_using_servers);
  if (connected <= 2) {
    return;
  }
  const int32_t rate =
      m_judge_proxy->GetProxyOption(static_cast<int32_t>(m_app_id), m_zone_id).max_remove_rate;
  if (rate <= 0) {
    return;
  }
  const uint32_t total = UsedCount(m_using_servers);
  const uint32_t hundredths = static_cast<uint32_t>(rate) * total;
  const uint32_t threshold_count = hundredths > 99 ? hundredths / 100 : 1;
  uint32_t removed = total - connected;  // proxies that cannot take requests use up the quota
  if (threshold_count <= removed) {
    return;
  }
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "app_id:%ld, zone_id:%d, cur availabe proxy count %d total %d, "
                   "max_remove_rate %d threshold_count %d",
                   static_cast<long>(m_app_id), m_zone_id, static_cast<int>(connected),
                   static_cast<int>(total), rate, static_cast<int>(threshold_count));

  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    ProxyServer* server = node.server;
    if (!HasConnector(server)) {
      continue;
    }
    if (!IsCandidate(*server)) {
      server->m_request_count = 0;
      server->m_response_count = 0;
      continue;
    }
    if (!server->IsUnavailable(m_logger)) {
      continue;
    }
    --connected;
    ++removed;
    ROUTER_LOG_WARN(m_logger, m_module_id, __func__,
                    "300ms check, the proxy is set unavailable, app_id:%ld, zone_id:%d, url:%s, "
                    "cur the availabe proxy count is:%d total %d",
                    static_cast<long>(m_app_id), m_zone_id, node.server_url,
                    static_cast<int>(connected), static_cast<int>(total));
    SetUnavailable(server);
    if (threshold_count <= removed || connected < 3) {
      return;
    }
  }
}

void OstrandRouter::UpdateProxyAvailable() {
  UpdateProxyAvailableV2();

  const auto app_id = static_cast<int32_t>(m_app_id);
  m_judge_proxy->Update(app_id, m_zone_id, *m_statistic_mgr);
  if (!m_judge_proxy->IsShouldCheck(app_id, m_zone_id)) {
    return;
  }
  uint32_t available = GetConnectedCount(m_using_servers);
  if (available < 3) {
    return;
  }
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    ProxyServer* server = node.server;
    if (!HasConnector(server) || !IsCandidate(*server)) {
      continue;
    }
    if (available == 2) {  // two are always kept
      return;
    }
    if (!m_judge_proxy->IsProxyUnavailable(app_id, m_zone_id, node.server_url)) {
      continue;
    }
    --available;
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "the proxy is set unavailable, app_id:%ld, zone_id:%d, url:%s, cur the "
                     "availabe proxy count is:%d total %d",
                     static_cast<long>(m_app_id), m_zone_id, node.server_url,
                     static_cast<int>(available), static_cast<int>(UsedCount(m_using_servers)));
    SetUnavailable(server);
  }
}

int OstrandRouter::RecheckProxyAvailable(int64_t now, OstrandServiceRequest* request) {
  (void)request;
  const auto app_id = static_cast<int32_t>(m_app_id);
  const int64_t interval = m_judge_proxy->GetRecheckAvailableInterval(app_id, m_zone_id);
  const int64_t last = m_last_recheck_availabe_time;
  if (last != 0 && last <= now) {
    if (now - last < interval) {
      return 0;
    }
    for (const RealServerNode& node : ServersOf(m_using_servers)) {
      ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                       "RecheckProxyAvailable. cur_time: %lu, m_last_recheck_availabe_time: %lu, "
                       "recheck_interval: %d",
                       static_cast<unsigned long>(now), static_cast<unsigned long>(last),
                       static_cast<int>(interval));
      if (HasConnector(node.server) && !node.server->is_available) {
        RecheckProxy(node, now, interval);
      }
    }
  }
  m_last_recheck_availabe_time = now;
  return 0;
}

// A step of RecheckProxyAvailable; it logs under that name.
void OstrandRouter::RecheckProxy(const RealServerNode& node, int64_t now, int64_t interval) {
  static constexpr char kOperation[] = "RecheckProxyAvailable";
  ProxyServer* server = node.server;
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation, "RecheckProxyAvailable %s", node.server_url);
  const int64_t elapsed = now - server->last_unavailable_time;
  if (elapsed < 0) {  // the clock went back
    server->last_unavailable_time = now;
    return;
  }
  if (elapsed < interval) {
    return;
  }
  m_judge_proxy->ResetJudgeProxyStatus(static_cast<int32_t>(m_app_id), m_zone_id,
                                       UrlOf(server->connector));
  server->connector->Disconnect(0);
  server->is_available = true;
  server->last_unavailable_time = 0;
  server->has_sent_auth = false;
  server->auth_succeed = false;
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation, "RecheckProxyAvailable retry connect %s",
                  node.server_url);
}

int OstrandRouter::ProcessGetMetaResForRecheck(ProxyServer* server,
                                               OstrandServiceResponse* response, OStrandPkg* pkg,
                                               bool& is_recheck) {
  (void)server;
  is_recheck = false;
  if (pkg == nullptr && response == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "NULL == pkg && NULL == response, system error");
    return -1;
  }
  if (pkg != nullptr && response != nullptr) {
    ROUTER_LOG_WARN(m_logger, m_module_id, __func__,
                    "NULL == pkg && NULL == response, use response instead of pkg");
  }

  const char* user_buff = nullptr;
  size_t user_buff_len = 0;
  int32_t seq = 0;
  uint64_t asyn_id = 0;
  if (response != nullptr) {
    if (response->GetCmd() != ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                       "OSTRAND_API_METADATA_GET_RES != response->GetCmd().");
      return -2;
    }
    response->GetResult();
    seq = response->GetSequence();
    asyn_id = response->GetAsynID();
    user_buff = response->GetUserBuff(&user_buff_len);
  } else {
    const OStrandPkgHead& head = pkg->stHead;
    user_buff_len = head.dwUserBuffLen;
    seq = head.iSeq;
    user_buff = head.szUserBuff;
    asyn_id = head.ullAsynID;
  }
  if (user_buff == nullptr || user_buff_len == 0) {
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "user_buff_len == 0 || NULL == user_buff.");
    return -3;
  }
  if (seq != kRecheckProbeSeq || asyn_id != kRecheckProbeAsynId ||
      user_buff_len != sizeof(kRecheckProbeUserBuff) ||
      std::memcmp(user_buff, kRecheckProbeUserBuff, sizeof(kRecheckProbeUserBuff)) != 0) {
    return 0;  // the user's
  }
  const int ret = ProcessGetMetaResForCheckTable(pkg);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "CheckTable vexmeta failed, ret:%d", ret);
  }
  is_recheck = true;
  return 0;
}

void OstrandRouter::SetAlarmErrorCode(int32_t code) {
  OstrandCommon::ScopedLock lock(m_alarmMutex);
  try {
    m_alarmErrorCode.insert(code);
  } catch (const std::bad_alloc&) {  // this code is lost, the others stay
  }
}

void OstrandRouter::SetHeartbeatAlarm(OStrandPkg* pkg) {
  OStrandPkgHead& head = pkg->stHead;
  constexpr size_t kCapacity = sizeof(head.szUserBuff);
  OstrandCommon::ScopedLock lock(m_alarmMutex);
  head.szUserBuff[0] = '\0';
  if (m_alarmErrorCode.empty()) {
    return;
  }
  size_t length = 0;
  for (const int32_t code : m_alarmErrorCode) {
    const int printed = std::snprintf(head.szUserBuff + length, kCapacity - length,
                                      length == 0 ? "AlarmCode=%d" : ",%d", code);
    length += static_cast<size_t>(std::max(printed, 0));
    if (length > kCapacity - 1) {  // the codes stay until one heartbeat can carry all of them
      head.dwUserBuffLen = kCapacity;
      return;
    }
  }
  m_alarmErrorCode.clear();
  const int printed = std::snprintf(head.szUserBuff + length, kCapacity - length, ";");
  length += static_cast<size_t>(std::max(printed, 0));
  head.dwUserBuffLen = static_cast<uint32_t>(std::min(length + 1, kCapacity));
}

void OstrandRouter::CheckHeartbeatLatency() {
  const auto now = static_cast<time_t>(OstrandCommon::GetCurrentMicroseconds() / 1000000);
  if (m_last_check_time < 1) {
    m_last_check_time = now;
    return;
  }
  if (now - m_last_check_time < kLatencyReportIntervalSeconds) {
    return;
  }
  m_last_check_time = now;

  char text[10000];
  size_t length = 0;
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    ProxyServer* server = node.server;
    if (server == nullptr) {
      continue;
    }
    if (server->m_heartbeat_latency_large_num > 0 && length < sizeof(text)) {
      const int32_t num = server->m_heartbeat_num;
      const int64_t average = num != 0 ? server->m_total_heartbeat_latency / num : 0;
      const int printed = std::snprintf(
          text + length, sizeof(text) - length,
          "Proxy[%s] heartbeat_num[%d], max_latency[%ldus], avg_latency[%ldus], >%dus_num[%d]\n",
          node.server_url, num, static_cast<long>(server->m_max_heartbeat_latency),
          static_cast<long>(average), kLargeHeartbeatLatencyUs,
          server->m_heartbeat_latency_large_num.Get());
      length += static_cast<size_t>(std::max(printed, 0));
    }
    server->m_heartbeat_num = 0;
    server->m_total_heartbeat_latency = 0;
    server->m_max_heartbeat_latency = 0;
    server->m_heartbeat_latency_large_num = 0;
  }
  if (length > 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "%s", text);
  }
}

int OstrandRouter::ProxyServerCanStop(const char* url) {
  url = url != nullptr ? url : "";
  int available = 0;
  bool found = false;
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    const ProxyServer* server = node.server;
    if (server == nullptr) {
      continue;
    }
    const bool serves =
        server->auth_succeed && server->is_available && server->last_auth_result == 0;
    const bool asks = std::strncmp(node.server_url, url, sizeof(node.server_url)) == 0;
    if (asks && !serves) {
      ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                      "proxy %s not available, so can stop, auth_succeed %d is_available %d "
                      "last_auth_result %d",
                      url, server->auth_succeed.Get(), server->is_available.Get(),
                      server->last_auth_result.Get());
      return 0;
    }
    found = found || asks;
    if (serves && server->connector != nullptr &&
        server->connector->GetStatus() == CConnector::STATUS_CONNECTED) {
      ++available;
    }
  }
  if (!found) {
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "proxy %s not in using, so can stop", url);
    return 0;
  }
  const auto total = static_cast<int>(UsedCount(m_using_servers));
  if (available <= 1 || total / 2 >= available) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "available proxy num %d total %d, proxy not enough %s can not stop", available,
                     total, url);
    return -1;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                  "available proxy num %d total %d,enough proxy so %s can stop", available, total,
                  url);
  return 0;
}

}  // namespace OstrandService
