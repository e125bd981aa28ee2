// Choosing the proxy for a request.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "protocol/ostrand_protocol_cs.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_request.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and key records
using OSTRNET::CConnector;

bool IsUsable(const ProxyServer* server) {
  return server != nullptr && server->connector != nullptr && server->auth_succeed &&
         server->last_auth_result == 0 &&
         server->connector->GetStatus() == CConnector::STATUS_CONNECTED && server->is_available;
}

bool IsTtlCommand(uint32_t cmd) {
  return cmd == OSTRAND_API_SET_TTL_REQ || cmd == OSTRAND_API_GET_TTL_REQ;
}

uint32_t TtlRecordNum(const OStrandPkg& pkg) {
  return pkg.stHead.dwCmd == OSTRAND_API_SET_TTL_REQ ? pkg.stBody.stSetTTLReq.dwRecordNum
                                                     : pkg.stBody.stGetTTLReq.dwRecordNum;
}

const OStrandKeySet& FirstTtlKey(const OStrandPkg& pkg) {
  return pkg.stHead.dwCmd == OSTRAND_API_SET_TTL_REQ ? pkg.stBody.stSetTTLReq.astKeyInfo[0]
                                                     : pkg.stBody.stGetTTLReq.astKeyInfo[0];
}

// Commands with many keys, or none in the head: any proxy will do.
bool HasNoSingleKey(const OStrandPkg& pkg) {
  switch (pkg.stHead.dwCmd) {
    case OSTRAND_API_BATCH_GET_REQ:
    case OSTRAND_API_PB_BATCH_FIELD_GET_REQ:
    case OSTRAND_API_SQL_REQ:
    case OSTRAND_API_BATCH_INSERT_REQ:
    case OSTRAND_API_BATCH_REPLACE_REQ:
    case OSTRAND_API_BATCH_UPDATE_REQ:
    case OSTRAND_API_BATCH_DELETE_REQ:
    case OSTRAND_API_SQL_EXECUTE_REQ: return true;
    case OSTRAND_API_SET_TTL_REQ:
    case OSTRAND_API_GET_TTL_REQ: return TtlRecordNum(pkg) != 1;
    default: return false;
  }
}

size_t BoundedLen(const OStrandKeyField& field) {
  return std::min<size_t>(field.dwFieldLen, sizeof(field.szFieldBuff));
}

}  // namespace

uint64_t OstrandRouter::CalcRequestHashCode(OstrandServiceRequest* request) {
  OStrandPkg* pkg = request != nullptr ? request->GetPkg() : nullptr;
  if (pkg == nullptr) {
    return 0;
  }
  OStrandKeySet& key = pkg->stHead.stKeyInfo;
  if (IsTtlCommand(pkg->stHead.dwCmd) && TtlRecordNum(*pkg) == 1) {
    CTRecordDecodeHelper::CopyKeySet(key, FirstTtlKey(*pkg));
  }
  const uint32_t field_num =
      std::min<uint32_t>(key.dwFieldNum, static_cast<uint32_t>(OSTRAND_MAX_KEY_FIELD_NUM));
  if (field_num == 0 || HasNoSingleKey(*pkg)) {
    return PickRandomPosition("CalcRequestHashCode");
  }
  if (field_num == 1) {
    return con_hash_func(key.astFields[0].szFieldBuff, BoundedLen(key.astFields[0]));
  }
  return HashKeyFields(key.astFields, field_num);
}

// The order in which the caller set the fields must not matter. The sorted order stays.
uint64_t OstrandRouter::HashKeyFields(OStrandKeyField* fields, uint32_t field_num) {
  if (!std::is_sorted(fields, fields + field_num, OStrandKeyFieldComp)) {
    std::sort(fields, fields + field_num, OStrandKeyFieldComp);
  }
  size_t length = 0;
  for (const OStrandKeyField* field = fields; field != fields + field_num; ++field) {
    const size_t field_len = std::min(BoundedLen(*field), m_pack_buffer_size - length);
    std::memcpy(m_pack_buffer + length, field->szFieldBuff, field_len);
    length += field_len;
  }
  return con_hash_func(m_pack_buffer, length);
}

// The position of a random ring point, so that such requests spread evenly over the points; 0 for
// an empty ring, which is logged under `operation` unless that is null.
uint64_t OstrandRouter::PickRandomPosition(const char* operation) {
  OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
  if (m_virtual_node_count == 0) {
    if (operation != nullptr) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, operation, "m_virtual_node_count is zero");
    }
    return 0;
  }
  const auto random = static_cast<uint32_t>(rand_r(&m_randSed));
  return m_virtual_nodes[random % m_virtual_node_count].hash_code;
}

int OstrandRouter::GetRouterProxyServer(ProxyServer*& out, OstrandServiceRequest* request,
                                        int zone_id, const char* table_name) {
  if (!m_init_succeed) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  out = nullptr;
  if (table_name == nullptr || table_name[0] == '\0') {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NULL == table_name");
    return ROUTER_ERR_NOT_INITIALISED;
  }
  const int qos_index = FindTableQos(zone_id, table_name);
  if (qos_index < 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "The table(\"%s\") is not existed in the array m_table_qos", table_name);
    return ROUTER_ERR_NOT_INITIALISED;
  }
  // Taken back on success, so that only failed routings remain counted.
  tagTableQos* const qos = m_table_qos[qos_index];
  qos->iRounteErrorCount = CountOn(qos->iRounteErrorCount);
  {
    OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
    if (m_virtual_node_count == 0) {
      return FailOnEmptyRing(request);
    }
  }
  const uint64_t hash =
      request != nullptr ? CalcRequestHashCode(request) : PickRandomPosition(nullptr);

  OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
  const int ret = FindUsableOnRing(hash, request, out);
  if (ret == 0) {
    qos->iRounteErrorCount = CountOn(qos->iRounteErrorCount, -1);
  }
  return ret;
}

// The steps of GetRouterProxyServer; they log under that name.

int OstrandRouter::FindUsableOnRing(uint64_t hash, OstrandServiceRequest* request,
                                    ProxyServer*& out) {
  static constexpr char kOperation[] = "GetRouterProxyServer";
  const uint32_t count = m_virtual_node_count;
  if (count == 0) {
    return FailOnEmptyRing(request);
  }
  uint32_t start = m_virtual_node_index.LowerBound(m_virtual_nodes, count, hash);
  start = start < count ? start : 0;
  const bool debug =
      m_logger != nullptr && m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG);
  const VirtualServerNode* entry = &m_virtual_nodes[start];
  if (!IsUsable(entry->server)) {
    if (debug) {
      ROUTER_LOG_DEBUG(
          m_logger, m_module_id, kOperation, "Skip default route. hash_code:%llu->%llu",
          static_cast<unsigned long long>(hash), static_cast<unsigned long long>(entry->hash_code));
    }
    if (count == 1) {
      CountRouteFailure(request);
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                       "Can't find route. m_virtual_node_count:1");
      return ROUTER_ERR_NO_ROUTE;
    }
    entry = WalkToUsable(start, debug);
    if (entry == nullptr) {
      CountRouteFailure(request);
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "Can't find route.");
      return ROUTER_ERR_NO_ROUTE;
    }
  }
  out = entry->server;
  if (debug) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "Route Request. hash_code:%llu->%llu",
                     static_cast<unsigned long long>(hash),
                     static_cast<unsigned long long>(entry->hash_code));
  }
  return 0;
}

// The first usable entry clockwise behind `start`; null when the walk comes back to it.
const VirtualServerNode* OstrandRouter::WalkToUsable(uint32_t start, bool debug) {
  static constexpr char kOperation[] = "GetRouterProxyServer";
  const uint32_t count = m_virtual_node_count;
  for (uint32_t i = (start + 1) % count; i != start; i = i + 1 < count ? i + 1 : 0) {
    const VirtualServerNode& entry = m_virtual_nodes[i];
    if (IsUsable(entry.server)) {
      return &entry;
    }
    if (!debug) {
      continue;
    }
    const ProxyServer* server = entry.server;
    const CConnector* connector = server != nullptr ? server->connector : nullptr;
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                     "Skip virtual server node. index:%llu connector:%p state:%d, "
                     "auth_succeed:%d, last_auth_result:%d, is_available:%d",
                     static_cast<unsigned long long>(i), static_cast<const void*>(connector),
                     connector != nullptr ? connector->GetStatus() : -1,
                     connector != nullptr ? server->auth_succeed.Get() : 0,
                     connector != nullptr ? server->last_auth_result.Get() : 0,
                     connector != nullptr ? server->is_available.Get() : 0);
  }
  return nullptr;
}

int OstrandRouter::FailOnEmptyRing(const OstrandServiceRequest* request) {
  CountRouteFailure(request);
  ROUTER_LOG_ERROR(m_logger, m_module_id, "GetRouterProxyServer",
                   "Can't find route. m_virtual_node_count:0");
  return ROUTER_ERR_NO_ROUTE;
}

void OstrandRouter::CountRouteFailure(const OstrandServiceRequest* request) {
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  if (statistic == nullptr) {
    return;
  }
  const int32_t subscript = request != nullptr ? request->GetTableSubscript() : -1;
  if (subscript >= 0 && subscript < statistic->iTableCount &&
      subscript < tagServiceApiStatistic::kMaxTables) {
    statistic->astTableStatistic[subscript].stTableRunStatus.dwTableApiFindRouteErrNumPerMin += 1;
  }
  statistic->stOverallRunStatus.dwApiFindRouteErrNumPerMin += 1;
}

ProxyServer* OstrandRouter::FindUserRouteProxy() {
  char url[128] = {};
  const int printed = std::snprintf(url, sizeof(url), "tcp://%s:%d", m_proxy_ip, m_proxy_port);
  const size_t length = std::min(static_cast<size_t>(printed), sizeof(url) - 1);
  OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
  // All slots, also those that the ring does not use now; a longer url with this beginning matches.
  for (const VirtualServerNode& slot : m_virtual_nodes) {
    if (slot.server == nullptr || slot.server->connector == nullptr) {
      continue;
    }
    const char* slot_url = slot.server->connector->GetURL();
    if (slot_url != nullptr && std::strncmp(url, slot_url, length) == 0) {
      return slot.server;
    }
  }
  return nullptr;
}

}  // namespace OstrandService
