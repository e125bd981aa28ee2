// The receive callback, and what the router does with the answers to its own packages.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/clock.h"
#include "common/ostrand_reqresp_util.h"
#include "protocol/byte_order.h"
#include "protocol/codec.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the records and commands that are handled here
using OstrandCommon::OstrandReqRespUtil;

constexpr size_t kSeqOffset = 20;
constexpr size_t kCmdOffset = 24;
constexpr int kMinFrameLen = static_cast<int>(OSTRAND_FIXED_HEAD_LEN);

constexpr int64_t kLargeHeartbeatLatencyUs = 100000;
constexpr int32_t kStopAnnounced = 1;  // a last_auth_result: no longer available
constexpr int32_t kSignupRefused = -256;
constexpr int kStopReplyFailed = -5;

constexpr int32_t kErrVersionTooLow = -6413;
constexpr int32_t kErrVersionTooHigh = -6669;

bool IsInnerCommand(uint32_t cmd) {
  return cmd == OSTRAND_API_METADATA_GET_RES || cmd == OSTRAND_API_APP_SIGNUP_RES ||
         cmd == OSTRAND_API_HEART_BEAT_RES || cmd == OSTRAND_API_NOTIFY_STOP_REQ;
}

// An element that carries no record, or whose record has no connection, is as good as absent.
RealServerNode* WithServer(RealServerNode* node) {
  return node != nullptr && node->server != nullptr && node->server->connector != nullptr ? node
                                                                                          : nullptr;
}

// The decimal number behind `key` in a text of pairs that end in ';'. 0 without the key; numbers
// that do not fit are saturated.
int32_t ReadConfNumber(char* text, const char* key) {
  char* value = std::strstr(text, key);
  if (value == nullptr) {
    return 0;
  }
  value += std::strlen(key);
  char* end = std::strchr(value, ';');
  if (end != nullptr) {
    *end = '\0';
  }
  const long number = std::strtol(value, nullptr, 10);
  if (end != nullptr) {
    *end = ';';
  }
  return static_cast<int32_t>(number > INT32_MAX   ? INT32_MAX
                              : number < INT32_MIN ? INT32_MIN
                                                   : number);
}

// now - then for two times of which one comes from the peer.
int64_t WrappingDifference(int64_t now, int64_t then) {
  return static_cast<int64_t>(static_cast<uint64_t>(now) - static_cast<uint64_t>(then));
}

void BookHeartbeat(ProxyServer* server, int64_t latency_us) {
  const int64_t counted = latency_us > 0 ? latency_us : 0;
  const int64_t total = server->m_total_heartbeat_latency;
  server->m_heartbeat_num += 1;
  server->m_total_heartbeat_latency = total > INT64_MAX - counted ? INT64_MAX : total + counted;
  if (counted > server->m_max_heartbeat_latency) {
    server->m_max_heartbeat_latency = counted;
  }
  if (latency_us > kLargeHeartbeatLatencyUs) {
    server->m_heartbeat_latency_large_num += 1;
  }
}

}  // namespace

int RouterCallBack(const char* url, const char* data, int len, void* arg) {
  auto* server = static_cast<ProxyServer*>(arg);
  if (server == nullptr || data == nullptr || server->m_ptrRouter == nullptr) {
    return -1;
  }
  auto* router = static_cast<OstrandRouter*>(server->m_ptrRouter);
  OstrandCommon::Logger* logger = router->GetLogger();
  if (logger == nullptr) {
    return -2;
  }
  if (len < kMinFrameLen) {
    return -1;
  }
  const char* const url_text = url != nullptr ? url : "";
  const uint32_t cmd = LoadBigEndian<uint32_t>(data + kCmdOffset);
  if (IsInnerCommand(cmd)) {
    ROUTER_LOG_DEBUG(logger, 0, __func__,
                     "RouterCallBack, recv inner data len:%d from %s cmd:%d seq:%d\n", len,
                     url_text, static_cast<int>(cmd), LoadBigEndian<int32_t>(data + kSeqOffset));
    bool pass_to_user = false;
    router->ProcRouterMsg(url, data, len, pass_to_user);
    return pass_to_user ? 0 : 1;
  }
  if (OstrandReqRespUtil::IsSimpleReadResponse(cmd, 0) ||
      OstrandReqRespUtil::IsSimpleWriteResponse(cmd, 0)) {
    server->m_response_count += 1;
  }
  ROUTER_LOG_DEBUG(logger, 0, __func__, "RouterCallBack, recv user data len:%d from %s cmd:%d\n",
                   len, url_text, static_cast<int>(cmd));
  return 0;
}

int OstrandRouter::ProcRouterMsg(const char* url, const char* data, int len, bool& pass_to_user) {
  if (m_ostrand_server == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "m_ostrand_server is NULL!");
    return -1;
  }
  char* buffer = nullptr;
  size_t buffer_size = 0;
  OStrandPkg* pkg = nullptr;
  m_ostrand_server->NetThreadGetBufPkg(buffer, buffer_size, pkg);
  if (buffer == nullptr || pkg == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NetThreadGetCSPkg failed! pkg=%p, buff=%p",
                     static_cast<void*>(pkg), static_cast<void*>(buffer));
    return -1;
  }
  const int ret = UnpackWholeCsPkgMaybeDecompress(
      *pkg, nullptr, 0, data, static_cast<size_t>(len > 0 ? len : 0), nullptr, nullptr, 0);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "UnpackWholeCsPkgMaybeDecompress failed! ret=%d.", ret);
    m_ostrand_server->SetDirAlarmErrorCode(ret);
    return 0;
  }

  url = url != nullptr ? url : "";
  const uint32_t cmd = pkg->stHead.dwCmd;
  bool in_using = false;
  RealServerNode* node = FindNodeOfInbound(url, cmd, in_using);
  if (node == nullptr) {
    return 0;
  }
  switch (cmd) {
    case OSTRAND_API_HEART_BEAT_RES: return ProcHeartBeatRes(url, node->server, *pkg);
    case OSTRAND_API_APP_SIGNUP_RES:
      return ProcAppSignupRes(url, node->server, pkg->stHead.iResult);
    case OSTRAND_API_NOTIFY_STOP_REQ:
      return ProcNotifyStopReq(url, node->server, in_using, pkg->stHead.ullAsynID);
    case OSTRAND_API_METADATA_GET_RES:
      return ProcMetadataGetRes(url, node->server, pkg, pass_to_user);
    default:
      ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "recv CMD(%d) from URL(%s)",
                       static_cast<int>(cmd), url);
      return 0;
  }
}

// The steps of ProcRouterMsg; they log under that name.

// A proxy that is being connected signs up and sends heartbeats before it is in use; the other
// commands of such a proxy are refused.
RealServerNode* OstrandRouter::FindNodeOfInbound(const char* url, uint32_t cmd, bool& in_using) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  RealServerNode* node = WithServer(FindServerNode(m_using_servers, url));
  in_using = node != nullptr;
  if (in_using) {
    return node;
  }
  ROUTER_LOG_TRACE(m_logger, m_module_id, kOperation,
                   "can not find RealServerNode in m_using_servers for URL(%s), turn to "
                   "m_removing_servers...",
                   url);
  node = WithServer(FindServerNode(m_removing_servers, url));
  if (node != nullptr) {
    return node;
  }
  if (cmd == OSTRAND_API_APP_SIGNUP_RES || cmd == OSTRAND_API_HEART_BEAT_RES) {
    node = WithServer(FindServerNode(m_preparing_servers, url));
    if (node == nullptr) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                       "can not find RealServerNode neither in m_removing_servers "
                       "m_preparing_servers m_using_servers for URL(%s)",
                       url);
    }
    return node;
  }
  ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                   "can not find RealServerNode neither in m_removing_servers or m_using_servers "
                   "for URL(%s)",
                   url);
  return nullptr;
}

int OstrandRouter::ProcHeartBeatRes(const char* url, ProxyServer* server, const OStrandPkg& pkg) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  server->last_recv_ms = OstrandCommon::GetCurrentMilliseconds();
  ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                   "recv OSTRAND_API_HEART_BEAT_RES from URL(%s)", url);
  const int64_t latency_us = WrappingDifference(OstrandCommon::GetCurrentMicroseconds(),
                                                pkg.stBody.stHeartBeatRes.llApiTimeUs);
  const OStrandPkgHead& head = pkg.stHead;
  if (head.dwUserBuffLen != 0) {
    // A copy of its own: behind the received bytes the record still holds older ones.
    char text[sizeof(head.szUserBuff) + 1] = {};
    std::memcpy(text, head.szUserBuff,
                head.dwUserBuffLen < sizeof(head.szUserBuff) ? head.dwUserBuffLen
                                                             : sizeof(head.szUserBuff));
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                     "recv OSTRAND_API_HEART_BEAT_RES from URL(%s) kvConf %s", url, text);
    const int32_t cpu_use = ReadConfNumber(text, "CpuUse=");
    const int32_t cpu_total = ReadConfNumber(text, "CpuTotal=");
    server->cpuUse = cpu_use;
    server->cpuTotal = cpu_total;
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                     "recv cpuUse(%d), cpuTotal(%d) from URL(%s)", cpu_use, cpu_total, url);
  }
  BookHeartbeat(server, latency_us);
  return 1;
}

int OstrandRouter::ProcAppSignupRes(const char* url, ProxyServer* server, int32_t result) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation, "recv OSTRAND_API_APP_SIGNUP_RES from URL(%s)",
                  url);
  m_proxy_sign_up_recv = true;
  server->last_auth_result = result;
  if (result == 0) {
    server->auth_succeed = true;
    const char* own_url = server->connector != nullptr ? server->connector->GetURL() : nullptr;
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "Auth succeed. url:%s",
                     own_url != nullptr ? own_url : "");
    InitStatisticAccess();
    return 1;
  }
  PublishSignupRefusal(url, result);
  return kSignupRefused;  // auth_succeed keeps its value: the verdict is in last_auth_result
}

void OstrandRouter::PublishSignupRefusal(const char* url, int32_t result) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  char text[OstrandServer::kLastErrorTextSize + 1024 + 64];
  if (result == kErrVersionTooLow || result == kErrVersionTooHigh) {
    const char* version = m_ostrand_server->GetApiVersion();
    version = version != nullptr ? version : "";
    if (result == kErrVersionTooLow) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                       "Client version %s is too low. Proxy url %s, PLEASE update your service "
                       "api library!",
                       version, url);
      std::snprintf(text, sizeof(text),
                    "Client version %s is too low. Proxy url %s, PLEASE update your service api "
                    "library!",
                    version, url);
    } else {
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                       "Client version %s is too high. Proxy url %s, PLEASE change to an old "
                       "service api library!",
                       version, url);
      std::snprintf(text, sizeof(text),
                    "Client version %s is too high. Proxy url %s, PLEASE change to an old service "
                    "api library!",
                    version, url);
    }
  } else {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "Auth failed. url:%s result:%d", url,
                     result);
    std::snprintf(text, sizeof(text), "Auth failed. url:%s,  result:%d", url, result);
  }
  m_ostrand_server->SetLastError(result, text);
}

int OstrandRouter::ProcNotifyStopReq(const char* url, ProxyServer* server, bool in_using,
                                     uint64_t asyn_id) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "recv OSTRAND_API_NOTIFY_STOP_REQ from URL(%s)", url);
  if (in_using) {
    const int ret = ProxyServerCanStop(url);
    if (ret != 0) {  // it will ask again
      ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "ProxyServer %s can not stop, ret=%d",
                       url, ret);
      return 0;
    }
  }
  server->last_auth_result = kStopAnnounced;
  const int ret =
      InitCsPkgForInnerRequest(server, OSTRAND_API_NOTIFY_STOP_RES, asyn_id, nullptr, nullptr);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "InitCsPkgForInnerRequest(%s) for OSTRAND_API_NOTIFY_STOP_REQ failed, ret=%d",
                     url, ret);
    return kStopReplyFailed;
  }
  return 1;
}

int OstrandRouter::ProcMetadataGetRes(const char* url, ProxyServer* server, OStrandPkg* pkg,
                                      bool& pass_to_user) {
  static constexpr char kOperation[] = "ProcRouterMsg";
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation,
                  "recv OSTRAND_API_METADATA_GET_RES from URL(%s)", url);
  bool is_recheck = false;
  const int ret = ProcessGetMetaResForRecheck(server, nullptr, pkg, is_recheck);
  pass_to_user = !is_recheck;
  ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "recv CMD(%d) from URL(%s)",
                   static_cast<int>(OSTRAND_API_METADATA_GET_RES), url);
  return ret;
}

}  // namespace OstrandService
