// What the router tells its owner of the proxies: a text, a table, the fill of buffers.
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "service_api/connect_status.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/router_status.h"

namespace OstrandService {
namespace {

using OSTRNET::CConnector;

const char* UrlOf(const CConnector* connector) {
  const char* url = connector->GetURL();
  return url != nullptr ? url : "";
}

void FillBuffInfo(BuffStaticBetweenApiAndProxy& info, CConnector* connector, const char* url) {
  info.send_data_size = connector->GetSendBuffDataSize();
  info.recv_data_size = connector->GetRecvBuffDataSize();
  info.send_buff_left_rate = connector->GetSendBuffLeftRate();
  info.recv_buff_left_rate = connector->GetRecvBuffLeftRate();
  std::snprintf(info.server_url, sizeof(info.server_url), "%s", url);
}

// A section of the status text and the number of its lines.
struct Section {
  void Add(const std::string& line) {
    lines += "\t\t" + line + "\n";
    ++count;
  }

  std::string lines;
  int count = 0;
};

}  // namespace

std::string OstrandRouter::GetStatLog() try {
  Section not_connected;
  Section auth_fail;
  Section auth_success;
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    const ProxyServer* server = node.server;
    if (server == nullptr || server->connector == nullptr) {
      not_connected.Add("null");
      continue;
    }
    const std::string url = UrlOf(server->connector);
    const int status = server->connector->GetStatus();
    if (status != CConnector::STATUS_CONNECTED) {
      not_connected.Add(url + " status:" + std::to_string(status));
    } else if (!server->auth_succeed) {
      auth_fail.Add(url + " result:" + std::to_string(server->last_auth_result.Get()) +
                    " has_sent_auth:" + (server->has_sent_auth ? "1" : "0") +
                    " last_recv_ms: " + std::to_string(server->last_recv_ms.Get()));
    } else {
      auth_success.Add(url);
    }
  }
  return "\tnot_connect_proxy_cnt:" + std::to_string(not_connected.count) + "\n" +
         "\tauth_fail_proxy_cnt:" + std::to_string(auth_fail.count) + "\n" +
         "\tauth_success_proxy:" + std::to_string(auth_success.count) + "\n" +
         "\tnot_connect_proxy:\n" + not_connected.lines +  //
         "\tauth_fail_proxy:\n" + auth_fail.lines +        //
         "\tauth_success_proxy:\n" + auth_success.lines;
} catch (const std::bad_alloc&) {
  return {};
}

void OstrandRouter::GetProxyStatus(ProxyStatus* rows, int capacity, int& count) {
  if (rows == nullptr || capacity <= 0) {
    return;
  }
  int filled = 0;
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    if (filled == capacity) {
      return;
    }
    ProxyStatus& row = rows[filled];
    const ProxyServer* server = node.server;
    std::snprintf(row.proxy_url, sizeof(row.proxy_url), "%.*s",
                  static_cast<int>(sizeof(row.proxy_url)) - 1, node.server_url);
    std::snprintf(row.connect_status, sizeof(row.connect_status), "%s",
                  ConnectStatusName(server != nullptr ? server->connector : nullptr));
    row.auth_succeed = server != nullptr && server->auth_succeed;
    ++filled;
    ++count;
  }
}

const char* OstrandRouter::GetUsedProxyUrl() const {
  return m_used_proxy_url[0] != '\0' ? m_used_proxy_url : nullptr;
}

int OstrandRouter::GetConnectorBufferInfo(std::vector<BuffStaticBetweenApiAndProxy>& infos) try {
  infos.clear();
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    if (node.server == nullptr || node.server->connector == nullptr) {
      infos.clear();
      ROUTER_LOG_ERROR(m_logger, m_module_id, "GetConnectorBufferInfo",
                       "it should not get null of connector");
      return ROUTER_ERR_FAILED;
    }
    infos.emplace_back();
    FillBuffInfo(infos.back(), node.server->connector, node.server_url);
  }
  return 0;
} catch (const std::bad_alloc&) {
  infos.clear();
  return ROUTER_ERR_FAILED;
}

int OstrandRouter::GetTraverseConnBuffInfo(BuffStaticBetweenApiAndProxy& info, int hash_code,
                                           const char* table_name) {
  if (!m_init_succeed) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  info = BuffStaticBetweenApiAndProxy{};
  if (table_name == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "NULL == request->GetTableName()");
    return ROUTER_ERR_NOT_INITIALISED;
  }
  ProxyServer* server = nullptr;
  const int ret = GetRouterProxyServer(server, nullptr, hash_code, table_name);
  if (ret != 0) {
    return ret;
  }
  if (server == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "it should not get null of server node");
    return ROUTER_ERR_FAILED;
  }
  if (server->connector == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "it should not get null of connector");
    return ROUTER_ERR_FAILED;
  }
  FillBuffInfo(info, server->connector, UrlOf(server->connector));
  return 0;
}

}  // namespace OstrandService
