// The router's own packages: sign-up, heartbeat, metadata probe, stop reply.
#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/clock.h"
#include "common/host_name.h"
#include "protocol/codec.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "service_api/recheck_probe.h"
#include "vex/vex.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the records and commands of the packages built here
using OSTRNET::CConnector;

constexpr uint16_t kInnerPkgVersion = 127;

enum InnerRequestError : int {
  INNER_ERR_NO_PKG = -1,
  INNER_ERR_MISSING_ARGUMENT = -2,
  INNER_ERR_TABLE_NAME = -3,
  INNER_ERR_COMMAND = -5,
  INNER_ERR_SEND = -6,
  INNER_ERR_PACK = -2323,
};

template <size_t N>
void CopyText(char (&to)[N], const char* from) {
  std::snprintf(to, N, "%s", from != nullptr ? from : "");
}

const char* UrlOf(const ProxyServer* server) {
  const char* url =
      server != nullptr && server->connector != nullptr ? server->connector->GetURL() : nullptr;
  return url != nullptr ? url : "";
}

}  // namespace

int OstrandRouter::InitCsPkgForInnerRequest(ProxyServer* server, OStrandApiCmds cmd,
                                            uint64_t asyn_id, const char* signature,
                                            const char* table_name) {
  char* buffer = nullptr;
  size_t buffer_size = 0;
  OStrandPkg* pkg = nullptr;
  if (m_ostrand_server != nullptr) {
    m_ostrand_server->NetThreadGetBufPkg(buffer, buffer_size, pkg);
  }
  if (buffer == nullptr || pkg == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NetThreadGetCSPkg failed! pkg=%p, buff=%p",
                     static_cast<void*>(pkg), static_cast<void*>(buffer));
    return INNER_ERR_NO_PKG;
  }

  int ret = pkg->stHead.construct();
  if (ret == 0) {
    pkg->stHead.dwCmd = static_cast<uint32_t>(cmd);
    ret = pkg->stBody.construct(cmd);
  }
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "InitOStrandPackage failed! ret=%d, cmd=%d",
                     ret, static_cast<int>(cmd));
    return INNER_ERR_NO_PKG;
  }
  FillInnerHead(pkg->stHead, cmd, asyn_id, table_name);
  ret = FillInnerBody(server, cmd, signature, table_name, pkg);
  if (ret != 0) {
    return ret;
  }
  return SendInnerPkg(server, *pkg, buffer, buffer_size);
}

// The steps of InitCsPkgForInnerRequest; they log under that name.

void OstrandRouter::FillInnerHead(OStrandPkgHead& head, OStrandApiCmds cmd, uint64_t asyn_id,
                                  const char* table_name) {
  head.wVersion = kInnerPkgVersion;
  head.ullAsynID = asyn_id;
  head.iSeq = 0;
  head.dwCmd = static_cast<uint32_t>(cmd);
  head.iFlags = 0;
  head.stRouterInfo.iAppID = static_cast<int32_t>(m_app_id);
  head.stRouterInfo.iZoneID = m_zone_id;
  head.stRouterInfo.iShardID = 0;
  head.stRouterInfo.dwTableNameLen = 0;
  head.stRouterInfo.szTableName[0] = '\0';
  head.dwUserBuffLen = 0;
  head.szUserBuff[0] = '\0';
  head.stKeyInfo.iVersion = -1;
  head.stKeyInfo.dwFieldNum = 0;
  head.iVexMetaVersion = m_ostrand_server->GetTableMetaVersion(m_zone_id, table_name);
  head.bReqBodyCompressType = 0;
  head.bRespBodyCompressType = 0;
  head.dwSplitTableKeyBuffLen = 0;
}

int OstrandRouter::FillInnerBody(ProxyServer* server, OStrandApiCmds cmd, const char* signature,
                                 const char* table_name, OStrandPkg* pkg) {
  switch (cmd) {
    case OSTRAND_API_METADATA_GET_REQ: return FillRecheckProbe(table_name, pkg);
    case OSTRAND_API_APP_SIGNUP_REQ: return FillAppSignup(signature, pkg);
    case OSTRAND_API_HEART_BEAT_REQ: FillHeartBeat(server, pkg); return 0;
    case OSTRAND_API_NOTIFY_STOP_RES: return 0;
    default:
      ROUTER_LOG_ERROR(m_logger, m_module_id, "InitCsPkgForInnerRequest", "unknowned cmd: %d",
                       static_cast<int>(cmd));
      return INNER_ERR_COMMAND;
  }
}

// The markers tell the answer to the router's own probe from those that the user asked for.
int OstrandRouter::FillRecheckProbe(const char* table_name, OStrandPkg* pkg) {
  if (table_name == nullptr) {
    return INNER_ERR_MISSING_ARGUMENT;
  }
  OStrandPkgHead& head = pkg->stHead;
  head.ullAsynID = kRecheckProbeAsynId;
  head.iSeq = kRecheckProbeSeq;
  pkg->stBody.stMetadataGetReq.dwMetadataVersion = 0;
  std::memcpy(head.szUserBuff, kRecheckProbeUserBuff, sizeof(kRecheckProbeUserBuff));
  head.dwUserBuffLen = sizeof(kRecheckProbeUserBuff);

  const size_t name_len = std::strlen(table_name);
  if (name_len >= sizeof(head.stRouterInfo.szTableName)) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "InitCsPkgForInnerRequest",
                     "invalid table_name:[%s] table_name_size:%zd", table_name,
                     static_cast<ssize_t>(name_len));
    return INNER_ERR_TABLE_NAME;
  }
  CopyText(head.stRouterInfo.szTableName, table_name);
  head.stRouterInfo.dwTableNameLen = static_cast<uint32_t>(name_len + 1);
  return 0;
}

int OstrandRouter::FillAppSignup(const char* signature, OStrandPkg* pkg) {
  if (signature == nullptr && (m_user_name == nullptr || m_password_encrypted == nullptr)) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "InitCsPkgForInnerRequest",
                     "signature == NULL && (NULL == m_user_name || NULL == m_password_encrypted), "
                     "valid");
    return INNER_ERR_MISSING_ARGUMENT;
  }
  OStrandAppSignupReq& body = pkg->stBody.stAppSignupReq;
  CopyText(body.szSignature, signature);
  CopyText(body.szUserName, m_user_name);
  CopyText(body.szPasswordMd5, m_password_encrypted);
  body.nType = static_cast<int16_t>(m_signType);

  char host_name[256];
  OstrandCommon::GetHostName(host_name, sizeof(host_name));
  OStrandPkgHead& head = pkg->stHead;
  const int printed =
      std::snprintf(head.szUserBuff, sizeof(head.szUserBuff), "hostname=%s", host_name);
  head.dwUserBuffLen =
      static_cast<uint32_t>(std::min(printed, static_cast<int>(sizeof(head.szUserBuff)) - 1) + 1);
  return 0;
}

void OstrandRouter::FillHeartBeat(ProxyServer* server, OStrandPkg* pkg) {
  const int64_t now_us = OstrandCommon::ReadCurrentMicroseconds();
  OStrandHeartBeatReq& body = pkg->stBody.stHeartBeatReq;
  vex_utctime_to_vexdatetime(&body.tCurTime, static_cast<time_t>(now_us / 1000000));
  SetHeartbeatAlarm(pkg);
  if (pkg->stHead.szUserBuff[0] != '\0') {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "InitCsPkgForInnerRequest",
                     "SetHeartbeatAlarm %s to proxy %s", pkg->stHead.szUserBuff, UrlOf(server));
  }
  body.llApiTimeUs = now_us;  // echoed by the answer, which latency is measured from
}

int OstrandRouter::SendInnerPkg(ProxyServer* server, const OStrandPkg& pkg, char* buffer,
                                size_t buffer_size) {
  static constexpr char kOperation[] = "InitCsPkgForInnerRequest";
  const auto cmd = static_cast<int>(pkg.stHead.dwCmd);
  size_t size = buffer_size;
  const int pack_ret =
      PackWholeCsPkgMaybeCompress(buffer, size, nullptr, 0, pkg, pkg.stHead.wVersion, nullptr);
  if (pack_ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "PackWholeCsPkgMaybeCompress() failed with ret(%d) cmd:%d. buffer=%p, "
                     "buffer_size=%zd",
                     pack_ret, cmd, static_cast<void*>(buffer), static_cast<ssize_t>(size));
    return INNER_ERR_PACK;
  }

  CConnector* connector = server != nullptr ? server->connector : nullptr;
  const int ret = connector != nullptr
                      ? connector->SendToQ(buffer, static_cast<unsigned int>(size), nullptr)
                      : -1;
  ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                   "InitCsPkgForInnerRequest cmd(%d) url:(%s) ret:%d", cmd, UrlOf(server), ret);
  if (ret < 1) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "SendToQ Failed. buflen=%zd, ret=%d",
                     static_cast<ssize_t>(size), ret);
    return INNER_ERR_SEND;
  }

  // The bytes are the connector's own by now; the text takes their place.
  buffer[0] = '\0';
  size_t used = 0;
  pkg.visualize(buffer, buffer_size, &used, 0, '\n');
  ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "---------- request dump ----------\n%s",
                   buffer);
  return 0;
}

int OstrandRouter::SendAuthRequest(ProxyServer* server, const char* signature) {
  const int ret =
      InitCsPkgForInnerRequest(server, OSTRAND_API_APP_SIGNUP_REQ, 0, signature, nullptr);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "InitCsPkgForInnerRequest for OSTRAND_API_APP_SIGNUP_REQ failed, ret=%d", ret);
    return ret;
  }
  server->has_sent_auth = true;
  server->last_recv_ms = OstrandCommon::GetCurrentMilliseconds();
  return 0;
}

void OstrandRouter::SendHeartBeatToList(List* list) {
  for (const RealServerNode& node : ServersOf(list)) {
    ProxyServer* server = node.server;
    if (server == nullptr || server->connector == nullptr || !server->auth_succeed ||
        server->connector->GetStatus() != CConnector::STATUS_CONNECTED) {
      continue;
    }
    InitCsPkgForInnerRequest(server, OSTRAND_API_HEART_BEAT_REQ, 0, nullptr, nullptr);
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                     "InitCsPkgForInnerRequest OSTRAND_API_HEART_BEAT_REQ for proxy_url: %s",
                     node.server_url);
  }
}

int OstrandRouter::SendGetMetaReqForRecheckProxyAvailable(ProxyServer* server) {
  char table_name[sizeof(tagTableQos::szTableName) + 1] = {};
  for (int i = 0; i < m_table_qos_count; ++i) {
    const tagTableQos* qos = m_table_qos[i];
    if (qos != nullptr && qos->iZoneID == m_zone_id) {
      std::memcpy(table_name, qos->szTableName,
                  strnlen(qos->szTableName, sizeof(qos->szTableName)));
      break;
    }
  }
  if (table_name[0] == '\0') {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "Find none table of app_id:%ld zone_id:%d in m_table_qos",
                     static_cast<long>(m_app_id), m_zone_id);
    return -1;
  }
  const int ret =
      InitCsPkgForInnerRequest(server, OSTRAND_API_METADATA_GET_REQ, 0, nullptr, table_name);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "InitCsPkgForInnerRequest for OSTRAND_API_METADATA_GET_REQ failed, ret=%d",
                     ret);
  }
  return ret;
}

}  // namespace OstrandService
