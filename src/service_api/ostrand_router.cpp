#include "service_api/ostrand_router.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "common/clock.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_server.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "service_api/proxy_pack_parser.h"

namespace OstrandService {

OstrandRouter::OstrandRouter(int32_t module_id, char* pack_buffer, size_t pack_buffer_size,
                             int64_t app_id, int32_t zone_id, const char* signature,
                             int32_t sign_type, LatencyDataMgr* latency_data_mgr,
                             OstrandServiceStatisticMgr* statistic_mgr, JudgeProxy* judge_proxy,
                             uint32_t sync_timeout)
    : m_init_called(false),
      m_init_succeed(false),
      m_set_id(0),
      m_set_name{},
      m_app_id(app_id),
      m_app_name{},
      m_zone_id(zone_id),
      m_zone_name{},
      m_signature(signature),
      m_signType(sign_type),
      m_module_id(module_id),
      m_pack_buffer(pack_buffer),
      m_pack_buffer_size(pack_buffer_size),
      m_virtual_nodes{},
      m_virtual_node_count(0),
      m_connector_mgr(nullptr),
      m_pack_parser(nullptr),
      m_using_servers(nullptr),
      m_preparing_servers(nullptr),
      m_removing_servers(nullptr),
      m_table_qos{},
      m_table_qos_count(0),
      m_last_flush_route_time(0),
      m_used_proxy_url{},
      m_last_flush_hash_circle_time(0),
      m_last_send_heartbeat_time(0),
      m_check_heartbeat_mseconds(30000),
      m_heartbeat_mseconds(1000),
      m_sync_timeout(sync_timeout),
      m_latency_data_mgr(latency_data_mgr),
      m_statistic_mgr(statistic_mgr),
      m_judge_proxy(judge_proxy),
      m_last_recheck_availabe_time(0),
      m_proxy_sign_up_recv(false),
      m_proxy_ip{},
      m_proxy_port(0),
      m_ostrand_server(nullptr),
      m_logger(nullptr),
      m_is_all_connected(false),
      m_force_flush_hash(false),
      m_last_auth_succ_count(0),
      m_user_name(nullptr),
      m_password_encrypted(nullptr),
      m_perfPercent(0),
      m_perfId(1),
      m_lastCheckProxyTime(0),
      m_randSed(0),
      m_last_check_time(0) {}

OstrandRouter::~OstrandRouter() { Fini(); }

int32_t OstrandRouter::Init(OSTRNET::CConnectorMgr* connector_mgr, void* server,
                            OstrandCommon::Logger* logger) {
  m_logger = logger;
  m_randSed = static_cast<uint32_t>(OstrandCommon::GetCurrentMicroseconds() % 1000000);
  if (m_init_called) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  m_init_called = true;
  m_connector_mgr = connector_mgr;

  m_pack_parser = new (std::nothrow) ProxyPackParser(m_logger, m_module_id);
  if (m_pack_parser == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "%s failed. %s:%lld(%s)",
                     "new ProxyPackParser", "m_pack_parser", 0LL, "NULL");
    return ROUTER_ERR_ALLOCATION;
  }

  // What was made before a failure stays; Fini frees it.
  const struct {
    List*& list;
    const char* action;
    const char* name;
  } lists[] = {
      {m_using_servers, "new m_using_servers", "m_using_servers"},
      {m_preparing_servers, "new m_preparing_servers", "m_preparing_servers"},
      {m_removing_servers, "new m_removing_servers", "m_removing_servers"},
  };
  for (const auto& made : lists) {
    made.list = new (std::nothrow) List(sizeof(RealServerNode));
    if (made.list == nullptr) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "%s failed. %s:%lld(%s)", made.action,
                       made.name, 0LL, "NULL");
      return ROUTER_ERR_ALLOCATION;
    }
  }

  const int ret = ConHashCalcHashNode(MAX_SERVER_COUNT);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "CalcHashNode failed, ret %d", ret);
    return ret;
  }
  if (m_latency_data_mgr == nullptr || m_statistic_mgr == nullptr || m_judge_proxy == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "NULL == m_delay_data_mgr || NULL == m_statistic_mgr || NULL == "
                     "m_judge_proxy");
    return ROUTER_ERR_ARGUMENT;
  }
  m_ostrand_server = static_cast<OstrandServer*>(server);
  if (m_ostrand_server == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "%s failed. %s:%lld(%s)",
                     "convert OstrandServer", "m_ostrand_server", 0LL, "NULL");
    return ROUTER_ERR_FAILED;
  }
  m_init_succeed = true;
  return 0;
}

void OstrandRouter::Fini() {
  for (List** list : {&m_using_servers, &m_preparing_servers, &m_removing_servers}) {
    if (*list != nullptr) {
      ReleaseServerList(*list);
      delete *list;
      *list = nullptr;
    }
  }
  delete m_pack_parser;
  m_pack_parser = nullptr;
  m_virtual_node_count = 0;
  m_init_called = false;
  m_init_succeed = false;
}

void OstrandRouter::SetUserNameAndPassword(const char* user, const char* password_encrypted) {
  m_user_name = user;
  m_password_encrypted = password_encrypted;
}

OstrandCommon::Logger* OstrandRouter::GetLogger() {
  return m_ostrand_server != nullptr ? m_ostrand_server->GetLogger() : nullptr;
}

void OstrandRouter::SetPerfSampPercent(int32_t percent) {
  m_perfPercent = static_cast<uint64_t>(static_cast<int64_t>(percent));
  if (m_statistic_mgr != nullptr) {
    m_statistic_mgr->m_perfPercent = m_perfPercent;
  }
}

void OstrandRouter::SetSpecialOstrroxyIPAndPort(const char* ip, int32_t port) {
  std::snprintf(m_proxy_ip, sizeof(m_proxy_ip), "%s", ip != nullptr ? ip : "");
  m_proxy_port = port;
}

void OstrandRouter::ReSetSpecialOstrroxyIPAndPort() {
  m_proxy_ip[0] = '\0';
  m_proxy_port = 0;
}

void OstrandRouter::GetCombineBuf(char*& buf, int32_t& len) {
  buf = m_pack_buffer;
  len = static_cast<int32_t>(m_pack_buffer_size);
}

}  // namespace OstrandService
