// Connecting, signing up, dropping the silent, and telling whether all are ready.
#include <atomic>
#include <cstdio>

#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {
namespace {

using OSTRNET::CConnector;

constexpr uint64_t kRetryIntervalMs = 1000;
constexpr int32_t kErrConnect = -18195;

// What pre_status holds beside the connected status.
constexpr int32_t kNeverTried = -1;
constexpr int32_t kAttempted = 0;

// Shares of signed-up proxies, per cent.
constexpr int64_t kRouterAvailableProxyThreshold = 80;
constexpr int64_t kRouterPartAvailableProxyThreshold = 40;

enum Readiness : int { NOT_READY = 0, ALL_CONNECTED = 1, PART_CONNECTED = 2 };

bool IsConnectedAndSignedUp(const ProxyServer* server) {
  return server != nullptr && server->connector != nullptr && server->auth_succeed &&
         server->connector->GetStatus() == CConnector::STATUS_CONNECTED;
}

// The caller's time less an earlier stamp; a stamp that lies ahead wraps to a long time.
uint64_t ElapsedMs(uint64_t now_ms, int64_t since_ms) {
  return now_ms - static_cast<uint64_t>(since_ms);
}

}  // namespace

void OstrandRouter::UpdateServerListStatus(List* list, uint64_t now_ms, const char* auth_arg,
                                           uint32_t& auth_succ_count) {
  auth_succ_count = 0;
  for (const RealServerNode& node : ServersOf(list)) {
    ProxyServer* server = node.server;
    if (server == nullptr || server->connector == nullptr) {
      continue;
    }
    switch (server->connector->GetStatus()) {
      case CConnector::STATUS_DISCONNECTED: ConnectProxy(node, now_ms); break;
      case CConnector::STATUS_CONNECTED:
        SignUpProxy(node, now_ms, auth_arg);
        if (server->auth_succeed && server->last_auth_result == 0) {
          ++auth_succ_count;
        }
        break;
      default: break;
    }
  }
}

// The steps of UpdateServerListStatus for one proxy; they log under that name.

void OstrandRouter::ConnectProxy(const RealServerNode& node, uint64_t now_ms) {
  static constexpr char kOperation[] = "UpdateServerListStatus";
  ProxyServer* server = node.server;
  server->has_sent_auth = false;
  server->auth_succeed = false;
  if (ElapsedMs(now_ms, server->last_connect_time) <= kRetryIntervalMs) {
    return;
  }
  server->last_connect_time = static_cast<int64_t>(now_ms);
  const int ret = server->connector->Connect();
  if (server->pre_status == CConnector::STATUS_CONNECTED) {
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                    "Connection lost. Reconnect to proxy server_url:%s", node.server_url);
  } else if (server->pre_status == kNeverTried) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "Connect to proxy server_url:%s",
                     node.server_url);
  } else {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "Connect proxy 1s timeout. server_url:%s",
                     node.server_url);
    PublishConnectError(node.server_url);
  }
  server->pre_status = kAttempted;
  if (ret != 0) {
    CountConnectError();
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "Connect proxy failed. server_url:%s",
                     node.server_url);
    PublishConnectError(node.server_url);
  }
}

void OstrandRouter::SignUpProxy(const RealServerNode& node, uint64_t now_ms, const char* auth_arg) {
  static constexpr char kOperation[] = "UpdateServerListStatus";
  ProxyServer* server = node.server;
  if (server->pre_status == kAttempted) {
    server->has_sent_auth = false;
    server->last_recv_ms = static_cast<int64_t>(now_ms);  // starts the sign-up clock
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "Connect proxy succeed. server_url:%s",
                     node.server_url);
  }
  server->pre_status = CConnector::STATUS_CONNECTED;
  if (server->auth_succeed) {
    return;
  }
  if (ElapsedMs(now_ms, server->last_recv_ms) > kRetryIntervalMs) {
    ROUTER_LOG_WARN(m_logger, m_module_id, kOperation, "auth timeout, proxy_url:%s",
                    node.server_url);
    server->has_sent_auth = false;
  }
  if (!server->has_sent_auth) {
    SendAuthRequest(server, auth_arg);
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "SendAuthRequest to %s", node.server_url);
  }
}

void OstrandRouter::PublishConnectError(const char* server_url) {
  char text[sizeof(RealServerNode::server_url) + 64];
  std::snprintf(text, sizeof(text), "Connect proxy failed. server_url:%s", server_url);
  m_ostrand_server->SetLastError(kErrConnect, text);
}

void OstrandRouter::CountConnectError() {
  if (m_table_qos[0] != nullptr) {
    m_table_qos[0]->dwAccessErrCount += 1;
  }
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  if (statistic != nullptr) {
    statistic->stOverallRunStatus.dwApiConnectOstrroxyErrNumPerMin += 1;
  }
}

void OstrandRouter::DisconnectProxyThatNeedToDisconnect(List* list, int64_t now_ms) {
  for (const RealServerNode& node : ServersOf(list)) {
    ProxyServer* server = node.server;
    if (server == nullptr || server->connector == nullptr ||
        server->connector->GetStatus() == CConnector::STATUS_DISCONNECTED) {
      continue;
    }
    const int64_t last_recv_ms = server->last_recv_ms;
    if (now_ms - last_recv_ms < static_cast<int64_t>(m_check_heartbeat_mseconds)) {
      continue;
    }
    const char* url = server->connector->GetURL();
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                    "disconnect the proxy: %s, now_time: %lu, last_recv_heartbeat_ms: %lu, "
                    "check_heartbeat_mseconds: %d.",
                    url != nullptr ? url : "", static_cast<unsigned long>(now_ms),
                    static_cast<unsigned long>(last_recv_ms),
                    static_cast<int>(m_check_heartbeat_mseconds));
    server->connector->Disconnect(0);
    server->last_recv_ms = now_ms;
  }
}

void OstrandRouter::SetLastRecvTime(List* list, int64_t ms) {
  for (const RealServerNode& node : ServersOf(list)) {
    if (node.server != nullptr) {
      node.server->last_recv_ms = ms;
    }
  }
}

int OstrandRouter::CheckConnectAll(int64_t& auth_cnt, int64_t& total_cnt) {
  if (m_last_flush_hash_circle_time == 0) {
    return NOT_READY;
  }
  static std::atomic<uint64_t> calls{0};  // of all routers
  if (calls.fetch_add(1, std::memory_order_relaxed) % 100000 == 0) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "not need check table meta.");
  }
  if (m_is_all_connected) {
    return ALL_CONNECTED;
  }
  if (m_ostrand_server == nullptr) {  // an Init after Fini was given none
    return NOT_READY;
  }
  {
    ScopedPause pause(m_ostrand_server->GetNetThread());
    auth_cnt = 0;
    total_cnt = 0;
    for (const RealServerNode& node : ServersOf(m_using_servers)) {
      ++total_cnt;
      if (IsConnectedAndSignedUp(node.server)) {
        ++auth_cnt;
      }
    }
  }
  if (auth_cnt == 0) {
    return NOT_READY;
  }
  const int64_t percent = auth_cnt * 100 / total_cnt;
  // A single signed-up proxy is never all of them, even when it is the only one.
  if (auth_cnt >= 2 && (total_cnt - auth_cnt <= 1 || percent >= kRouterAvailableProxyThreshold)) {
    ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                    "proxy connected, auth_succeed_cnt(%ld) / total_cnt(%ld) > "
                    "ROUTER_AVAILABLE_PROXY_THRESHOLD %d.",
                    static_cast<long>(auth_cnt), static_cast<long>(total_cnt),
                    static_cast<int>(kRouterAvailableProxyThreshold));
    return ALL_CONNECTED;
  }
  if (percent < kRouterPartAvailableProxyThreshold) {
    return NOT_READY;
  }
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "part proxy connected, auth_succeed_cnt(%ld) / total_cnt(%ld) > "
                   "ROUTER_AVAILABLE_PROXY_THRESHOLD %d.",
                   static_cast<long>(auth_cnt), static_cast<long>(total_cnt),
                   static_cast<int>(kRouterPartAvailableProxyThreshold));
  return PART_CONNECTED;
}

}  // namespace OstrandService
