// The periodic update: one function a step, in the order in which they run.
#include <algorithm>
#include <new>

#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {
namespace {

constexpr int64_t kDrainMs = 60000;  // silence after which a removed proxy is dropped
constexpr int64_t kRingRecheckMs = 60000;
constexpr int64_t kPartialSwitchMs = 10000;  // time since the route for a partial one to be used

}  // namespace

void OstrandRouter::OnUpdate(int64_t now_ms, int32_t type, const char* signature,
                             OstrandServiceRequest* request, OstrandServiceResponse* response) try {
  (void)type;
  (void)response;
  if (!m_init_succeed) {
    return;
  }
  UpdateProxyAvailable();
  RecheckProxyAvailable(now_ms / 1000, request);
  uint32_t auth_succ_count = 0;
  bool has_flush_hash_circle = UpdateUsing(now_ms, signature, auth_succ_count);
  if (UsedCount(m_preparing_servers) != 0 && UpdatePreparing(now_ms, signature, auth_succ_count)) {
    has_flush_hash_circle = true;
  }
  if (UsedCount(m_removing_servers) != 0) {
    DrainRemoving(now_ms);
  }
  if (!has_flush_hash_circle) {
    RecheckHashCircle(now_ms, auth_succ_count);
  }
  if (now_ms - m_last_send_heartbeat_time > static_cast<int64_t>(m_heartbeat_mseconds)) {
    HeartBeat(now_ms);
  }
  CheckHeartbeatLatency();
} catch (const std::bad_alloc&) {  // the next update does what is left
}

// The steps of OnUpdate; they log under that name.

// Connects and signs up the proxies in use. Whether the ring was written: it is when there are more
// signed-up proxies than it was last written for, never when there are fewer.
bool OstrandRouter::UpdateUsing(int64_t now_ms, const char* signature, uint32_t& auth_succ_count) {
  static constexpr char kOperation[] = "OnUpdate";
  UpdateServerListStatus(m_using_servers, static_cast<uint64_t>(now_ms), signature,
                         auth_succ_count);
  m_is_all_connected = auth_succ_count != 0 && auth_succ_count == UsedCount(m_using_servers);
  if (auth_succ_count == 0 || !(m_virtual_node_count == 0 ||
                                m_last_auth_succ_count < auth_succ_count || m_force_flush_hash)) {
    return false;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "call WriteHashCircle m_virtual_node_count=%d auth_succ_count=%d",
                  static_cast<int>(m_virtual_node_count), static_cast<int>(auth_succ_count));
  WriteHashCircle();
  m_last_auth_succ_count = auth_succ_count;
  if (m_is_all_connected) {
    m_force_flush_hash = false;
  }
  return true;
}

// Connects and signs up the proxies of the next route, and switches to it when enough of them are
// ready. Whether the ring was written.
bool OstrandRouter::UpdatePreparing(int64_t now_ms, const char* signature,
                                    uint32_t auth_succ_count) {
  static constexpr char kOperation[] = "OnUpdate";
  uint32_t prepare_auth_succ_count = 0;
  UpdateServerListStatus(m_preparing_servers, static_cast<uint64_t>(now_ms), signature,
                         prepare_auth_succ_count);
  if (!NeedSwitch(now_ms, prepare_auth_succ_count, auth_succ_count)) {
    return false;
  }

  MovedServers moved;
  MoveDepartedToRemoving(moved);
  MovePreparedToUsing(moved);
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "call WriteHashCircle m_virtual_node_count=%d prepare_auth_succ_count=%d",
                  static_cast<int>(m_virtual_node_count),
                  static_cast<int>(prepare_auth_succ_count));
  try {
    WriteHashCircle();
  } catch (const std::bad_alloc&) {
    ReleaseUnlisted(moved);
    throw;
  }
  ReleaseUnlisted(moved);
  TraceListsIfEnabled("After replace prepaired servers. ");
  return true;
}

bool OstrandRouter::NeedSwitch(int64_t now_ms, uint32_t prepare_auth_succ_count,
                               uint32_t auth_succ_count) {
  static constexpr char kOperation[] = "OnUpdate";
  const auto prepared = static_cast<int>(prepare_auth_succ_count);
  const uint32_t prepare_count = UsedCount(m_preparing_servers);
  if (prepare_auth_succ_count == 0) {
    return false;
  }
  if (prepare_auth_succ_count == prepare_count) {
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                    "set need_switch = true m_preparing_servers prepare_auth_succ_count %d all",
                    prepared);
    return true;
  }
  if (prepare_auth_succ_count < auth_succ_count) {
    if (prepare_auth_succ_count < prepare_count / 2 ||
        now_ms - m_last_flush_route_time <= kPartialSwitchMs) {
      return false;
    }
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                    "set need_switch = true prepare_auth_succ_count %d", prepared);
    return true;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "set need_switch = true prepare_auth_succ_count %d > using auth_succ_count %d",
                  prepared, static_cast<int>(auth_succ_count));
  return true;
}

void OstrandRouter::MoveDepartedToRemoving(MovedServers& moved) {
  static constexpr char kOperation[] = "OnUpdate";
  ListNode* next = nullptr;
  for (ListNode* it = m_using_servers->Begin(); it != nullptr; it = next) {
    next = it->next;
    if (FindServerNode(m_preparing_servers, ServerOf(it)->server_url) != nullptr) {
      continue;
    }
    const RealServerNode node = *ServerOf(it);
    int ret = 0;
    {
      OstrandCommon::ScopedLock lock(m_mutex_list);
      ret = AddServerNode(m_removing_servers, node.server_url, ServerIdText(node.server_id).c_str(),
                          node.server);
      ServerOf(it)->server = nullptr;
      m_using_servers->Remove(it);
    }
    moved.Add(node.server);
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                    "Route Change! Move server from m_using_servers to m_removing_servers. ret:%d "
                    "server_url:%s",
                    ret, node.server_url);
  }
}

void OstrandRouter::MovePreparedToUsing(MovedServers& moved) {
  static constexpr char kOperation[] = "OnUpdate";
  OstrandCommon::ScopedLock lock(m_mutex_list);
  while (auto* node = static_cast<RealServerNode*>(m_preparing_servers->Front())) {
    AddServerNode(m_using_servers, node->server_url, ServerIdText(node->server_id).c_str(),
                  node->server);
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                    "Route Change! Add server To m_using_servers server_url:%s", node->server_url);
    moved.Add(node->server);
    node->server = nullptr;
    m_preparing_servers->PopFront();
  }
  m_preparing_servers->Clear();
}

// Releases what a failed move left in no list.
void OstrandRouter::ReleaseUnlisted(MovedServers& moved) {
  for (uint32_t i = 0; i < moved.count; ++i) {
    ProxyServer* server = moved.servers[i];
    if (IsListed(server)) {
      continue;
    }
    OstrandCommon::ScopedLock lock(m_mutex_list);
    ReleaseConnection(server);
    std::replace(moved.servers + i, moved.servers + moved.count, server,
                 static_cast<ProxyServer*>(nullptr));
    delete server;
  }
}

bool OstrandRouter::IsListed(const ProxyServer* server) const {
  if (server == nullptr) {
    return true;
  }
  for (List* list : {m_using_servers, m_preparing_servers, m_removing_servers}) {
    for (const RealServerNode& node : ServersOf(list)) {
      if (node.server == server) {
        return true;
      }
    }
  }
  return false;
}

void OstrandRouter::DrainRemoving(int64_t now_ms) {
  static constexpr char kOperation[] = "OnUpdate";
  ListNode* next = nullptr;
  for (ListNode* it = m_removing_servers->Begin(); it != nullptr; it = next) {
    next = it->next;
    RealServerNode* node = ServerOf(it);
    ProxyServer* server = node->server;
    if (server == nullptr || now_ms - server->last_recv_ms <= kDrainMs) {
      continue;
    }
    OstrandCommon::ScopedLock lock(m_mutex_list);
    ReleaseConnection(server);
    ROUTER_LOG_INFO(m_logger, m_module_id, kOperation, "remove unused proxy. url:%s ptr:%p",
                    node->server_url, static_cast<void*>(server));
    delete server;
    node->server = nullptr;
    m_removing_servers->Remove(it);
  }
  TraceListsIfEnabled("After remove unused servers. ");
}

void OstrandRouter::TraceListsIfEnabled(const char* prefix) {
  if (m_logger != nullptr && m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE)) {
    TraceLists(prefix);
  }
}

// Repairs a ring that does not show the proxies in use, at most once a minute.
void OstrandRouter::RecheckHashCircle(int64_t now_ms, uint32_t auth_succ_count) {
  static constexpr char kOperation[] = "OnUpdate";
  if (m_last_flush_hash_circle_time <= 0 ||
      now_ms - m_last_flush_hash_circle_time <= kRingRecheckMs) {
    return;
  }
  const uint32_t used = UsedCount(m_using_servers);
  if (GetConnectedCount(m_using_servers) == used &&
      m_virtual_node_count == static_cast<uint32_t>(MAX_NODE_PER_SERVER) * used) {
    return;
  }
  if (auth_succ_count == 0) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                     "auth_succ_count is 0. skip WriteHashCircle");
    return;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "call WriteHashCircle m_virtual_node_count=%d auth_succ_count=%d",
                  static_cast<int>(m_virtual_node_count), static_cast<int>(auth_succ_count));
  WriteHashCircle();
}

void OstrandRouter::HeartBeat(int64_t now_ms) {
  if (m_table_qos[0] != nullptr) {
    m_table_qos[0]->nAccessCount = static_cast<int16_t>(GetConnectedCount(m_using_servers));
  }
  const bool first = m_last_send_heartbeat_time == 0;  // silence is measured from now
  for (List* list : {m_using_servers, m_preparing_servers, m_removing_servers}) {
    if (first) {
      SetLastRecvTime(list, now_ms);
    } else {
      DisconnectProxyThatNeedToDisconnect(list, now_ms);
    }
  }
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  if (statistic != nullptr) {
    statistic->stOverallRunStatus.dwApiConnectOstrroxyCount = GetConnectedCount(m_using_servers);
  }
  m_last_send_heartbeat_time = now_ms;
  SendHeartBeatToList(m_using_servers);
  SendHeartBeatToList(m_preparing_servers);
}

}  // namespace OstrandService
