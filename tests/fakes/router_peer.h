// What tests see of a router's inside: its members by reference, its private operations by name.
//
//   OstrandRouterPeer peer(router);
//   peer.m_using_servers();                            // List*&
//   peer.AddServerNode(list, url, id, nullptr);        // as the operation itself
//
// A new private member or operation is one more line below.
#pragma once

#include <utility>

#include "common/thread_annotations.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

#define OSTRAND_PEER_MEMBER(name) \
  auto& name() const OSTRAND_NO_THREAD_SAFETY_ANALYSIS { return m_router.name; }

#define OSTRAND_PEER_OPERATION(name)                                            \
  template <typename... Args>                                                   \
  decltype(auto) name(Args&&... args) const OSTRAND_NO_THREAD_SAFETY_ANALYSIS { \
    return m_router.name(std::forward<Args>(args)...);                          \
  }

class OstrandRouterPeer {
 public:
  explicit OstrandRouterPeer(OstrandRouter& router) : m_router(router) {}

  // Members, in the order of their declaration.
  OSTRAND_PEER_MEMBER(m_init_called)
  OSTRAND_PEER_MEMBER(m_init_succeed)
  OSTRAND_PEER_MEMBER(m_set_id)
  OSTRAND_PEER_MEMBER(m_set_name)
  OSTRAND_PEER_MEMBER(m_app_id)
  OSTRAND_PEER_MEMBER(m_app_name)
  OSTRAND_PEER_MEMBER(m_zone_id)
  OSTRAND_PEER_MEMBER(m_zone_name)
  OSTRAND_PEER_MEMBER(m_signature)
  OSTRAND_PEER_MEMBER(m_signType)
  OSTRAND_PEER_MEMBER(m_module_id)
  OSTRAND_PEER_MEMBER(m_pack_buffer)
  OSTRAND_PEER_MEMBER(m_pack_buffer_size)
  OSTRAND_PEER_MEMBER(m_mutex_vistual_nodes)
  OSTRAND_PEER_MEMBER(m_virtual_nodes)
  OSTRAND_PEER_MEMBER(m_virtual_node_count)
  OSTRAND_PEER_MEMBER(m_connector_mgr)
  OSTRAND_PEER_MEMBER(m_pack_parser)
  OSTRAND_PEER_MEMBER(m_mutex_list)
  OSTRAND_PEER_MEMBER(m_using_servers)
  OSTRAND_PEER_MEMBER(m_preparing_servers)
  OSTRAND_PEER_MEMBER(m_removing_servers)
  OSTRAND_PEER_MEMBER(m_table_qos)
  OSTRAND_PEER_MEMBER(m_table_qos_count)
  OSTRAND_PEER_MEMBER(m_last_flush_route_time)
  OSTRAND_PEER_MEMBER(m_used_proxy_url)
  OSTRAND_PEER_MEMBER(m_last_flush_hash_circle_time)
  OSTRAND_PEER_MEMBER(m_last_send_heartbeat_time)
  OSTRAND_PEER_MEMBER(m_check_heartbeat_mseconds)
  OSTRAND_PEER_MEMBER(m_heartbeat_mseconds)
  OSTRAND_PEER_MEMBER(m_sync_timeout)
  OSTRAND_PEER_MEMBER(m_latency_data_mgr)
  OSTRAND_PEER_MEMBER(m_statistic_mgr)
  OSTRAND_PEER_MEMBER(m_judge_proxy)
  OSTRAND_PEER_MEMBER(m_last_recheck_availabe_time)
  OSTRAND_PEER_MEMBER(m_proxy_sign_up_recv)
  OSTRAND_PEER_MEMBER(m_len2ending)
  OSTRAND_PEER_MEMBER(m_totallen2id)
  OSTRAND_PEER_MEMBER(m_all_servers)
  OSTRAND_PEER_MEMBER(m_proxy_ip)
  OSTRAND_PEER_MEMBER(m_proxy_port)
  OSTRAND_PEER_MEMBER(m_ostrand_server)
  OSTRAND_PEER_MEMBER(m_logger)
  OSTRAND_PEER_MEMBER(m_is_all_connected)
  OSTRAND_PEER_MEMBER(m_force_flush_hash)
  OSTRAND_PEER_MEMBER(m_last_auth_succ_count)
  OSTRAND_PEER_MEMBER(m_user_name)
  OSTRAND_PEER_MEMBER(m_password_encrypted)
  OSTRAND_PEER_MEMBER(m_perfPercent)
  OSTRAND_PEER_MEMBER(m_perfId)
  OSTRAND_PEER_MEMBER(m_recvErrorCodeMap)
  OSTRAND_PEER_MEMBER(m_alarmMutex)
  OSTRAND_PEER_MEMBER(m_alarmErrorCode)
  OSTRAND_PEER_MEMBER(m_lastCheckProxyTime)
  OSTRAND_PEER_MEMBER(m_randSed)
  OSTRAND_PEER_MEMBER(m_last_check_time)
  OSTRAND_PEER_MEMBER(m_virtual_node_index)

  // The lists.
  OSTRAND_PEER_OPERATION(AddServerNode)
  OSTRAND_PEER_OPERATION(FindServerNode)
  OSTRAND_PEER_OPERATION(FindListNode)
  OSTRAND_PEER_OPERATION(ResetServerNode)
  OSTRAND_PEER_OPERATION(ReleaseServerList)
  OSTRAND_PEER_OPERATION(GetConnectedCount)

  // The ring's partition.
  OSTRAND_PEER_OPERATION(ConHashCalcHashNode)
  OSTRAND_PEER_OPERATION(ConHashSplitHashRing)

  // Health.
  OSTRAND_PEER_OPERATION(UpdateProxyAvailableV2)
  OSTRAND_PEER_OPERATION(UpdateProxyAvailable)
  OSTRAND_PEER_OPERATION(RecheckProxyAvailable)
  OSTRAND_PEER_OPERATION(ProcessGetMetaResForRecheck)
  OSTRAND_PEER_OPERATION(SetHeartbeatAlarm)
  OSTRAND_PEER_OPERATION(CheckHeartbeatLatency)
  OSTRAND_PEER_OPERATION(ProxyServerCanStop)

  // Tables.
  OSTRAND_PEER_OPERATION(FindTableQos)
  OSTRAND_PEER_OPERATION(InitStatisticAccess)
  OSTRAND_PEER_OPERATION(GetDataProtocolType)

  // Directory answers.
  OSTRAND_PEER_OPERATION(IsMatchList)
  OSTRAND_PEER_OPERATION(IsInNewRoute)
  OSTRAND_PEER_OPERATION(NeedFlushRoute)
  OSTRAND_PEER_OPERATION(ConHashFreshAllServer)

  // Connections.
  OSTRAND_PEER_OPERATION(UpdateServerListStatus)
  OSTRAND_PEER_OPERATION(DisconnectProxyThatNeedToDisconnect)
  OSTRAND_PEER_OPERATION(SetLastRecvTime)

  // The router's own packages.
  OSTRAND_PEER_OPERATION(InitCsPkgForInnerRequest)
  OSTRAND_PEER_OPERATION(SendAuthRequest)
  OSTRAND_PEER_OPERATION(SendHeartBeatToList)

  // Writing the ring.
  OSTRAND_PEER_OPERATION(WriteHashCircle)
  OSTRAND_PEER_OPERATION(ConHashGetUrlIndex)
  OSTRAND_PEER_OPERATION(UpdateHashCircleStat)
  OSTRAND_PEER_OPERATION(GetServerListStat)

  // Choosing a proxy.
  OSTRAND_PEER_OPERATION(CalcRequestHashCode)
  OSTRAND_PEER_OPERATION(GetRouterProxyServer)
  OSTRAND_PEER_OPERATION(FindUserRouteProxy)

  // Requests.
  OSTRAND_PEER_OPERATION(SetRequestCtx)
  OSTRAND_PEER_OPERATION(InnerSendRequest)

  // Responses.
  OSTRAND_PEER_OPERATION(RecvResponseFromList)
  OSTRAND_PEER_OPERATION(InnerRecvResponse)
  OSTRAND_PEER_OPERATION(ProcRespCtx)
  OSTRAND_PEER_OPERATION(IsMultiPkgReqCmd)
  OSTRAND_PEER_OPERATION(IsMultiPkgRespCmd)
  OSTRAND_PEER_OPERATION(SetMultiRespResult)

  // Statistics.
  OSTRAND_PEER_OPERATION(PerfSampling)
  OSTRAND_PEER_OPERATION(CalStatisticPerf)

 private:
  OstrandRouter& m_router;
};

#undef OSTRAND_PEER_MEMBER
#undef OSTRAND_PEER_OPERATION

}  // namespace OstrandService
