// The three lists of proxies: adding, finding, detaching, releasing, counting, tracing.
#include <sys/types.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "common/clock.h"
#include "service_api/connect_status.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/proxy_pack_parser.h"

namespace OstrandService {
namespace {

using OSTRNET::CConnector;

// Lengths of a url, exclusive bounds.
constexpr size_t kMinUrlLenExclusive = 10;
constexpr size_t kMaxUrlLenExclusive = sizeof(RealServerNode::server_url);

bool CanTakeRequests(const ProxyServer* server) {
  return server != nullptr && server->connector != nullptr && server->auth_succeed &&
         server->connector->GetStatus() == CConnector::STATUS_CONNECTED && server->is_available &&
         server->last_auth_result == 0;
}

// node: as List hands it out, zeroed.
void FillNode(RealServerNode* node, const char* server_url, const char* server_id,
              ProxyServer* server) {
  std::snprintf(node->server_url, sizeof(node->server_url), "%s", server_url);
  if (server_id != nullptr) {
    std::memcpy(node->server_id, server_id, strnlen(server_id, sizeof(node->server_id)));
  }
  node->server = server;
}

}  // namespace

int OstrandRouter::AddServerNode(List* list, const char* server_url, const char* server_id,
                                 ProxyServer* server) {
  if (m_logger == nullptr) {
    return -1;
  }
  if (server_url == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "Check string failed. %s:NULL", "server_url");
    return ROUTER_ERR_ARGUMENT;
  }
  const size_t url_len = std::strlen(server_url);
  if (url_len <= kMinUrlLenExclusive || url_len >= kMaxUrlLenExclusive) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "Check string length failed. %s:%s %s_len:%zd expect_name_len:(%zd, %zd)",
                     "server_url", server_url, "server_url", static_cast<ssize_t>(url_len),
                     static_cast<ssize_t>(kMinUrlLenExclusive),
                     static_cast<ssize_t>(kMaxUrlLenExclusive));
    return ROUTER_ERR_ARGUMENT;
  }
  if (FindServerNode(list, server_url) != nullptr) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "Server exist in list. server_url:%s",
                     server_url);
    return 0;
  }

  ProxyServer* created = nullptr;
  if (server == nullptr) {
    created = CreateProxyServer(server_url);
    if (created == nullptr) {
      return ROUTER_ERR_ALLOCATION;
    }
    server = created;
  }

  auto* node = list != nullptr ? static_cast<RealServerNode*>(list->PushBack()) : nullptr;
  if (node == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "list->PushBack failed. server_url:%s",
                     server_url);
    if (created != nullptr) {
      ReleaseConnection(created);
      delete created;
    }
    return ROUTER_ERR_ALLOCATION;
  }
  FillNode(node, server_url, server_id, server);

  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__,
                   "AddServerNode succeed. server_url:%s, server_id:%s", server_url,
                   ServerIdText(node->server_id).c_str());
  if (m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE)) {
    TraceLogConnection(m_logger, m_module_id, list, "After AddServerNode.");
  }
  return 0;
}

// The part of AddServerNode that makes a record and its connector; it logs under that name.
ProxyServer* OstrandRouter::CreateProxyServer(const char* server_url) {
  static constexpr char kOperation[] = "AddServerNode";
  auto* server = new (std::nothrow) ProxyServer;
  if (server == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "new ProxyServerConnector failed. server_url:%s", server_url);
    return nullptr;
  }
  server->last_recv_ms = OstrandCommon::GetCurrentMilliseconds();
  server->m_ptrRouter = this;

  CConnector* connector = nullptr;
  const char* error_text = nullptr;
  if (m_connector_mgr != nullptr) {
    connector =
        m_connector_mgr->CreateConnector(server_url, m_pack_parser, -1, RouterCallBack, server);
    if (connector == nullptr) {
      error_text = m_connector_mgr->GetLastErrDesc();
    }
  }
  if (connector == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation,
                     "m_connector_mgr->CreateConnector failed. errmsg:%s server_url:%s",
                     error_text != nullptr ? error_text : "", server_url);
    delete server;
    return nullptr;
  }
  ROUTER_LOG_INFO(m_logger, m_module_id, kOperation, "new ProxyServerConnector %s", server_url);
  server->connector = connector;
  connector->SetIncomingFlag(&server->may_have_incoming);
  return server;
}

RealServerNode* OstrandRouter::FindServerNode(List* list, const char* server_url) {
  ListNode* node = FindListNode(list, server_url);
  return node != nullptr ? ServerOf(node) : nullptr;
}

ListNode* OstrandRouter::FindListNode(List* list, const char* server_url) {
  if (list == nullptr || server_url == nullptr) {
    return nullptr;
  }
  ListNode* node = list->Begin();
  while (node != nullptr && std::strncmp(ServerOf(node)->server_url, server_url,
                                         sizeof(RealServerNode::server_url)) != 0) {
    node = node->next;
  }
  return node;
}

void OstrandRouter::ResetServerNode(List* list, const char* server_url) {
  RealServerNode* node = FindServerNode(list, server_url);
  if (node != nullptr) {
    node->server = nullptr;
  }
}

void OstrandRouter::ReleaseConnection(ProxyServer* server) {
  {
    OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
    // By index: clang's thread-safety analysis does not look into a range-based loop.
    for (uint32_t i = 0; i < MAX_VIRTUAL_NODE_COUNT; ++i) {
      if (m_virtual_nodes[i].server == server) {
        m_virtual_nodes[i].server = nullptr;
      }
    }
  }
  if (server->connector != nullptr && m_connector_mgr != nullptr) {
    m_connector_mgr->RemoveConnector(server->connector);
  }
  server->connector = nullptr;
}

void OstrandRouter::ReleaseServerList(List* list) {
  if (list == nullptr) {
    return;
  }
  while (auto* node = static_cast<RealServerNode*>(list->Front())) {
    ProxyServer* server = node->server;
    if (server != nullptr) {
      ReleaseConnection(server);
      for (List* sharing : {m_using_servers, m_preparing_servers, m_removing_servers}) {
        ResetServerNode(sharing, node->server_url);
      }
      node->server = nullptr;
      delete server;
    }
    list->PopFront();
  }
}

uint32_t OstrandRouter::GetConnectedCount(List* list) {
  uint32_t count = 0;
  for (const RealServerNode& node : ServersOf(list)) {
    if (CanTakeRequests(node.server)) {
      ++count;
    }
  }
  return count;
}

void TraceLogConnection(OstrandCommon::Logger* logger, int module_id, List* list,
                        const char* prefix) {
  int index = 0;
  for (const RealServerNode& node : ServersOf(list)) {
    const ProxyServer* server = node.server;
    const CConnector* connector = server != nullptr ? server->connector : nullptr;
    ROUTER_LOG_DEBUG(logger, module_id, __func__,
                     "%s index:%d server_url:%s server:%p connector:%p status:%s auth:%s",
                     prefix != nullptr ? prefix : "", index, node.server_url,
                     static_cast<const void*>(server), static_cast<const void*>(connector),
                     ConnectStatusName(connector),
                     server != nullptr && server->auth_succeed ? "authed" : "unauthed");
    ++index;
  }
}

}  // namespace OstrandService
