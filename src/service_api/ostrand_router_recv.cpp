// Collecting the answers.
#include <cstring>

#include "common/clock.h"
#include "protocol/ostrand_protocol_cs.h"
#include "protocol/perf_test.h"
#include "service_api/latency_data_mgr.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/ostrand_service_response.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "service_api/routing_context.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OSTRNET::CConnector;

constexpr int32_t kErrQueueHeadUndeliverable = -12563;  // 0xFFFFCEED; Recover drops the head
constexpr int32_t kErrSubPkgOutOfOrder = -18963;        // 0xFFFFB5ED

const char* UrlOf(const CConnector* connector) {
  const char* url = connector->GetURL();
  return url != nullptr ? url : "";
}

const char* TableNameOf(const OstrandServiceResponse& response) {
  const char* name = response.GetTableName(nullptr);
  return name != nullptr ? name : "";
}

}  // namespace

int32_t OstrandRouter::RecvResponse(OstrandServiceResponse* response,
                                    OstrandServiceRequest* request) {
  if (!m_init_succeed) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  if (response == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "%s failed. %s:%lld(%s)", "RecvResponse",
                     "response", 0LL, "NULL");
    return ROUTER_ERR_ARGUMENT;
  }
  LatencyData* expired = m_latency_data_mgr->TraverseForDeleteTimeOutNode(m_statistic_mgr);
  if (expired != nullptr) {
    response->BuildTimeOutRes(m_app_id, m_zone_id, expired->table_name, expired->req_cmd + 1,
                              expired->user_buffer, expired->user_buffer_len, expired->async_id,
                              expired->seq);
    m_latency_data_mgr->FreeLatencyData(expired);
    return 1;
  }
  OstrandCommon::ScopedLock lock(m_mutex_list);
  // First what is being drained. Proxies in preparation have no answers.
  const int32_t ret = RecvResponseFromList(m_removing_servers, response, request);
  return ret == 1 ? ret : RecvResponseFromList(m_using_servers, response, request);
}

int32_t OstrandRouter::RecvResponseFromList(List* list, OstrandServiceResponse* response,
                                            OstrandServiceRequest* request) {
  (void)request;
  for (const RealServerNode& node : ServersOf(list)) {
    ProxyServer* server = node.server;
    // The flag first: nearly all proxies have nothing, and then it is all that is looked at.
    if (server == nullptr || !server->may_have_incoming || server->connector == nullptr ||
        !server->auth_succeed || server->connector->GetStatus() != CConnector::STATUS_CONNECTED) {
      continue;
    }
    const int32_t ret = InnerRecvResponse(server, response);
    if (ret > 0) {
      return 1;
    }
    if (ret == kErrQueueHeadUndeliverable) {
      server->connector->Recover(LoggerHandle());
    }
  }
  return 0;
}

int32_t OstrandRouter::InnerRecvResponse(ProxyServer* server, OstrandServiceResponse* response) {
  CConnector* connector = server->connector;
  const char* buffer = nullptr;
  int size = 0;
  int ret = connector->PeekPkg(buffer, size, LoggerHandle());
  if (ret == 0) {
    return 0;
  }
  if (ret < 0) {
    CountPeekError();
    const char* const url = UrlOf(connector);
    const char* const text = connector->GetLastErrDesc();  // holds until the next operation
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "Peek failed. ret:%d msg:%s server_url:%s",
                     ret, text != nullptr ? text : "", url);
    return ret;
  }
  ret = response->Unpack(buffer, static_cast<size_t>(size));
  connector->ConsumePkg();
  if (ret != 0) {
    CountUnpackError();
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "response->Unpack failed. ret:%d", ret);
    m_ostrand_server->SetDirAlarmErrorCode(ret);
    return ret;
  }
  if (m_logger != nullptr && m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG)) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "Unpack succeed. table:%s result:%d cmd:%d server_url:%s",
                     TableNameOf(*response), response->GetResult(),
                     static_cast<int>(response->GetCmd()), UrlOf(connector));
  }

  const int64_t now_ms = OstrandCommon::GetCurrentMilliseconds();
  PerfTest perf;
  const bool has_perf = UnpackPerf(*response, perf);
  int16_t table_subscript = -1;
  ret = ProcRespCtx(now_ms, server, response, table_subscript);
  if (ret != 0) {
    return ret;
  }
  if (response->GetCmd() == OSTRAND_API_METADATA_GET_RES) {
    bool is_recheck = false;
    ProcessGetMetaResForRecheck(server, response, nullptr, is_recheck);
    if (is_recheck) {
      return 0;
    }
  }
  if (TableNameOf(*response)[0] != '\0') {
    CountResponse(server, *response, table_subscript, now_ms, has_perf ? &perf : nullptr);
  }
  return 1;
}

// A step of InnerRecvResponse; it logs under that name. Whether there is a record that unpacks.
bool OstrandRouter::UnpackPerf(const OstrandServiceResponse& response, PerfTest& perf) {
  size_t len = 0;
  const char* packed = response.GetPerfTest(&len);
  if (packed == nullptr || len == 0) {
    return false;
  }
  size_t used = 0;
  const int ret = perf.unpack(packed, len, &used, PerfTest::kCurrentVersion);
  if (ret != 0) {
    ROUTER_LOG_WARN(m_logger, m_module_id, "InnerRecvResponse", "perf.unpack failed %d", ret);
    return false;
  }
  return true;
}

int32_t OstrandRouter::ProcRespCtx(int64_t curMs, ProxyServer* server,
                                   OstrandServiceResponse* response, int16_t& table_subscript) {
  const auto app_id = static_cast<int>(m_app_id);
  const char* const table = TableNameOf(*response);
  const uint32_t resp_cmd = response->GetCmd();
  const auto cmd = static_cast<int>(resp_cmd);
  const char* const proxy = UrlOf(server->connector);

  size_t user_buff_len = 0;
  const char* user_buff = response->GetPkgUserBuff(&user_buff_len);
  if (user_buff == nullptr || user_buff_len < kRoutingContextLen) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "App %d Zone %d table %s cmd %d proxy %s user_buff_len %d too short", app_id,
                     m_zone_id, table, cmd, proxy, static_cast<int>(user_buff_len));
    return 0;
  }
  const RoutingContext context = ReadRoutingContext(user_buff + user_buff_len - kRoutingContextLen);
  if (context.magic != kRoutingContextMagic) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "App %d Zone %d table %s cmd %d proxy %s magic %d invalid", app_id, m_zone_id,
                     table, cmd, proxy, static_cast<int>(context.magic));
    return 0;
  }
  table_subscript = context.table_subscript;
  if (context.crc != context.expected_crc) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "App %d Zone %d table %s cmd %d proxy %s crc %d invalid", app_id, m_zone_id,
                     table, cmd, proxy, static_cast<int>(context.crc));
    return 0;
  }
  const OStrandPkg* const_pkg = nullptr;
  response->GetOstrandPackagePtr(const_pkg);
  if (const_pkg == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NULL == pkg");
    return ROUTER_ERR_FAILED;
  }
  // The response's own storage, which the contract lets the router change.
  auto* pkg = const_cast<OStrandPkg*>(const_pkg);  // NOLINT
  pkg->stHead.dwUserBuffLen = static_cast<uint32_t>(user_buff_len - kRoutingContextLen);

  const auto sub_pkg_seq = static_cast<int32_t>(response->GetSubCmd());
  LatencyData* record = m_latency_data_mgr->GetLatencyData(context.id);
  if (record == nullptr) {
    if (m_ostrand_server->m_local_buffer == nullptr &&
        !(IsMultiPkgRespCmd(resp_cmd) && sub_pkg_seq != 0)) {
      return 0;  // late, but whole
    }
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "App %d Zone %d table %s cmd %d, can not find latency_data id %d, maybe it "
                     "already timeout, proxy %s",
                     app_id, m_zone_id, table, cmd, context.id, proxy);
    return ROUTER_ERR_FAILED;
  }

  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "App %d Zone %d table %s cmd %d proxy %s get latency_data id %d, "
                   "next_sub_pkg_seq %d",
                   app_id, m_zone_id, table, cmd, proxy, context.id, record->next_sub_pkg_seq);
  m_latency_data_mgr->CalculateDelay(record, curMs, m_statistic_mgr);
  if (record->user_buffer != nullptr) {
    response->SetUserBuff(record->user_buffer, record->user_buffer_len);
  }
  if (!IsMultiPkgRespCmd(resp_cmd) || response->GetResult() != 0) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "not need check drop pkg, cmd %d sub pkg seq %d", cmd, sub_pkg_seq);
    m_latency_data_mgr->FreeLatencyData(record);
    return 0;
  }
  if (sub_pkg_seq != 0 && sub_pkg_seq != record->next_sub_pkg_seq) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "App %d Zone %d table %s cmd %d, latency_data id %d expect pkg seq %d != recv "
                     "seq %d, proxy %s",
                     app_id, m_zone_id, table, cmd, context.id, record->next_sub_pkg_seq,
                     sub_pkg_seq, proxy);
    SetMultiRespResult(resp_cmd, pkg, kErrSubPkgOutOfOrder);
  }
  if (response->HaveMoreResPkgs() == 1) {
    record->next_sub_pkg_seq = static_cast<int32_t>(static_cast<uint32_t>(sub_pkg_seq) + 1);
    m_latency_data_mgr->RenewalLatencyData(curMs, record);
    return 0;
  }
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "cmd %d sub pkg seq %d not HaveMoreResPkgs, all complete", cmd, sub_pkg_seq);
  m_latency_data_mgr->FreeLatencyData(record);
  return 0;
}

bool OstrandRouter::IsMultiPkgReqCmd(uint32_t cmd) {
  return cmd == OSTRAND_API_GET_BY_PARTKEY_REQ || cmd == OSTRAND_API_LIST_GETALL_REQ;
}

bool OstrandRouter::IsMultiPkgRespCmd(uint32_t cmd) {
  return cmd == OSTRAND_API_GET_BY_PARTKEY_RES || cmd == OSTRAND_API_LIST_GETALL_RES;
}

void OstrandRouter::SetMultiRespResult(uint32_t cmd, OStrandPkg* pkg, int32_t result) {
  if (pkg == nullptr) {
    return;
  }
  pkg->stHead.iResult = result;
  if (cmd == OSTRAND_API_GET_BY_PARTKEY_RES) {
    pkg->stBody.stGetByPartKeyRes.iResult = result;
  } else if (cmd == OSTRAND_API_LIST_GETALL_RES) {
    pkg->stBody.stListGetAllRes.iResult = result;
  }
}

}  // namespace OstrandService
