// Sending the application's requests.
#include <sys/types.h>

#include <cstring>

#include "common/clock.h"
#include "common/ostrand_reqresp_util.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/latency_data_mgr.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/ostrand_service_request.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "service_api/routing_context.h"
#include "service_api/statistic_view.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands
using OstrandCommon::OstrandReqRespUtil;

// The longest user buffer that a routing context is added to.
constexpr size_t kMaxUserBuffWithCtx = 1009;

}  // namespace

int32_t OstrandRouter::SendRequest(OstrandServiceRequest* request) {
  if (!m_init_succeed || request == nullptr) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  const char* table_name = request->GetTableName(nullptr);
  if (table_name == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NULL == request->GetTableName()");
    return ROUTER_ERR_NOT_INITIALISED;
  }
  if (!m_proxy_sign_up_recv) {  // dropped, and success to the caller
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "ZoneID(%d), TableName(%s) Not Received SignUp Res, Skip the Request.",
                     request->GetZoneId(), table_name);
    return 0;
  }
  ProxyServer* server = nullptr;
  const int ret = GetRouterProxyServer(server, request, request->GetZoneId(), table_name);
  if (ret != 0) {
    return ret;
  }
  if (m_proxy_ip[0] != '\0' && m_proxy_port > 0) {
    ProxyServer* pinned = FindUserRouteProxy();
    server = pinned != nullptr ? pinned : server;
  }
  PerfSampling(request);
  return InnerSendRequest(server, request);
}

int32_t OstrandRouter::SetRequestCtx(ProxyServer* server, OstrandServiceRequest* request) {
  const uint32_t cmd = request->GetCmd();
  if (cmd == OSTRAND_API_METADATA_GET_REQ) {
    return 0;
  }
  const auto table_subscript = static_cast<int16_t>(request->GetTableSubscript());
  size_t user_buff_len = 0;
  char* user_buff = request->GetUserBuff(&user_buff_len);
  const bool multi_pkg = IsMultiPkgReqCmd(cmd);
  bool local_buffer = m_ostrand_server->m_local_buffer != nullptr;
  if (!local_buffer && user_buff_len > kMaxUserBuffWithCtx) {
    if (!multi_pkg) {
      return 0;  // no room for a context: the request goes without one
    }
    local_buffer = true;
  }

  int ip = 0;
  int port = 0;
  server->connector->GetIPAndPort(ip, port);
  const char* table_name = request->GetTableName(nullptr);
  const int32_t id = m_latency_data_mgr->PushBack(
      m_zone_id, OstrandCommon::GetCurrentMilliseconds(), request->timeout_ms, ip, port, cmd,
      table_subscript, table_name, request->GetAsynID(), request->GetSequence(),
      local_buffer ? user_buff : nullptr, static_cast<uint32_t>(user_buff_len));
  if (id < 0) {
    if (!local_buffer && !multi_pkg) {
      return 0;
    }
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "Zone %d Table %s, Get Context for cmd %d error %d", m_zone_id,
                     table_name != nullptr ? table_name : "", static_cast<int>(cmd), id);
    return id;
  }

  if (local_buffer) {
    user_buff_len = 0;  // the in-flight table keeps the user's bytes
  }
  WriteRoutingContext(user_buff + user_buff_len, id, table_subscript);
  user_buff_len += kRoutingContextLen;
  const int ret = request->SetPkgUserBuff(user_buff, user_buff_len);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "request->SetUserBuff()failed. ret:%d", ret);
    return ret;
  }
  return 0;
}

int32_t OstrandRouter::InnerSendRequest(ProxyServer* server, OstrandServiceRequest* request) {
  int ret = SetRequestCtx(server, request);
  if (ret != 0) {
    return ret;
  }
  const bool debug =
      m_logger != nullptr && m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG);
  if (debug) {  // before packing, which overwrites the buffer
    if (m_pack_buffer_size > 0) {
      m_pack_buffer[0] = '\0';  // should the request not print itself
    }
    request->Print(m_pack_buffer, m_pack_buffer_size);
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "---------- request dump ----------\n%s",
                     m_pack_buffer);
  }
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);

  size_t size = m_pack_buffer_size;
  ret = request->Pack(m_pack_buffer, size);
  if (ret != 0) {
    CountPackError(statistic);
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "request->Pack failed. ret:%d size:%zd", ret,
                     static_cast<ssize_t>(size));
    return ret;
  }

  OSTRNET::CConnector* connector = server->connector;
  const char* url = connector->GetURL();
  url = url != nullptr ? url : "";
  ret = connector->SendToQ(m_pack_buffer, static_cast<unsigned int>(size), LoggerHandle());
  if (ret < 0) {
    if (m_table_qos[0] != nullptr) {
      m_table_qos[0]->iSendErrorCount = CountOn(m_table_qos[0]->iSendErrorCount);
    }
    CountSendError(statistic, *request);
    const char* text = connector->GetLastErrDesc();
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "connector->Send failed. ret:%d msg:%s net_size:%zd server_url:%s", ret,
                     text != nullptr ? text : "", static_cast<ssize_t>(size), url);
    return ret;
  }
  if (ret == 0) {
    CountSendError(statistic, *request);
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "connector->Send failed. the sending net buff is full,cannot send msg,  "
                     "net_size:%zd server_url:%s",
                     static_cast<ssize_t>(size), url);
    return ROUTER_ERR_SEND_BUFFER_FULL;
  }
  request->net_size = size;
  if (debug) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "connector->Send succeed. net_size:%zd server_url:%s",
                     static_cast<ssize_t>(size), url);
  }
  CountSent(statistic, server, *request);
  const size_t url_len = strnlen(url, sizeof(m_used_proxy_url) - 1);
  std::memcpy(m_used_proxy_url, url, url_len);
  m_used_proxy_url[url_len] = '\0';
  return 0;
}

void OstrandRouter::CountPackError(tagServiceApiStatistic* statistic) {
  if (m_table_qos[0] != nullptr) {
    m_table_qos[0]->iPackErrorCount = CountOn(m_table_qos[0]->iPackErrorCount);
  }
  if (statistic != nullptr) {
    statistic->stOverallRunStatus.dwPackErrNumPerMin += 1;
    statistic->stOverallRunStatus.dwReqErrNumPerMin += 1;
  }
}

void OstrandRouter::CountSendError(tagServiceApiStatistic* statistic,
                                   const OstrandServiceRequest& request) {
  const StatisticView view(statistic, request.GetTableSubscript());
  OSTRAND_COUNT_SHARED(view, ReqErrNumPerMin);
  if (OstrandReqRespUtil::IsReadRequest(request.GetCmd(), request.GetSubCmd())) {
    OSTRAND_COUNT_SHARED(view, ReadReqErrNumPerMin);
  } else if (OstrandReqRespUtil::IsWriteRequest(request.GetCmd(), request.GetSubCmd())) {
    OSTRAND_COUNT_SHARED(view, WriteReqErrNumPerMin);
  }
}

void OstrandRouter::CountSent(tagServiceApiStatistic* statistic, ProxyServer* server,
                              const OstrandServiceRequest& request) {
  const uint32_t cmd = request.GetCmd();
  if (OstrandReqRespUtil::IsSimpleReadRequest(cmd, 0) ||
      OstrandReqRespUtil::IsSimpleWriteRequest(cmd, 0)) {
    server->m_request_count += 1;
  }
  if (statistic == nullptr) {
    return;
  }
  const StatisticView view(statistic, request.GetTableSubscript());
  OSTRAND_COUNT_SHARED(view, ReqSucNumPerMin);
  if (OstrandReqRespUtil::IsReadRequest(cmd, request.GetSubCmd())) {
    OSTRAND_COUNT_SHARED(view, ReadReqSucNumPerMin);
  } else if (OstrandReqRespUtil::IsWriteRequest(cmd, request.GetSubCmd())) {
    OSTRAND_COUNT_SHARED(view, WriteReqSucNumPerMin);
  }
  tagAccessRunStatus* access = FindAccess(*statistic, server->connector);
  if (access != nullptr) {
    access->dwRequestCountPerMin += 1;
    if (cmd == OSTRAND_API_BATCH_GET_REQ) {
      access->dwBatchRequestCountPerMin += 1;
    }
  }
}

tagAccessRunStatus* OstrandRouter::FindAccess(tagServiceApiStatistic& statistic,
                                              OSTRNET::CConnector* connector) {
  int ip = 0;
  int port = 0;
  connector->GetIPAndPort(ip, port);
  return m_statistic_mgr->GetAccessRunStatus(statistic, ip, port);
}

void* OstrandRouter::LoggerHandle() const {
  return m_logger != nullptr ? m_logger->GetLoggerHandle() : nullptr;
}

}  // namespace OstrandService
