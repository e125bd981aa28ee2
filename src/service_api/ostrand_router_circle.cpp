// Writing the ring from its partition, and the fingerprint of what it was written from.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "common/clock.h"
#include "common/md5.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"

namespace OstrandService {
namespace {

using OSTRNET::CConnector;

constexpr int kTracedArcs = 5;
constexpr float kOfWholeRing = 5.421011e-20f;  // 2^-64

bool VirtualServerNodeCompare(const VirtualServerNode& a, const VirtualServerNode& b) {
  return a.hash_code < b.hash_code;
}

}  // namespace

void OstrandRouter::WriteHashCircle() {
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "Begin to %s. m_using_servers.Count()=%d",
                   "WriteHashCircle", static_cast<int>(UsedCount(m_using_servers)));
  OstrandCommon::ScopedLock lock(m_mutex_vistual_nodes);
  if (UsedCount(m_using_servers) == 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "skip WriteHashCircle. m_using_servers.Count()=%d",
                     static_cast<int>(UsedCount(m_using_servers)));
    return;
  }
  const uint32_t count_bak = m_virtual_node_count;
  FillHashCircle();
  if (m_virtual_node_count == 0) {  // nothing was overwritten: the old ring is in force again
    m_virtual_node_count = count_bak;
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__,
                     "m_virtual_node_count 0, use virtual_nodes_bak %d",
                     static_cast<int>(count_bak));
    return;
  }
  std::sort(m_virtual_nodes, m_virtual_nodes + m_virtual_node_count, VirtualServerNodeCompare);
  m_virtual_node_index.Build(m_virtual_nodes, m_virtual_node_count);
  m_last_flush_hash_circle_time = OstrandCommon::GetCurrentMilliseconds();
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "%s succeed. m_virtual_node_count:%u",
                  "WriteHashCircle", m_virtual_node_count);
  UpdateHashCircleStat();
  if (m_logger != nullptr && m_logger->IsPriorityEnabled(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE)) {
    TraceHashCircle();
  }
}

// The steps of WriteHashCircle; they log under that name.

// Every element contributes, whatever its state: usability is judged when a request is routed.
void OstrandRouter::FillHashCircle() {
  static constexpr char kOperation[] = "WriteHashCircle";
  static const Len2Ending kNoArcs;
  m_virtual_node_count = 0;
  int position = 0;
  for (const RealServerNode& node : ServersOf(m_using_servers)) {
    const Len2Ending& arcs = position < MAX_SERVER_COUNT ? m_len2ending[position] : kNoArcs;
    ROUTER_LOG_TRACE(m_logger, m_module_id, kOperation,
                     "avaliable server_url:%s, m_virtual_node_count: %u, m_len2ending[%d].size(): "
                     "%zu",
                     node.server_url, m_virtual_node_count, position, arcs.size());
    int arc_number = 0;
    for (const auto& [len, ending] : arcs) {
      if (arc_number < kTracedArcs) {
        ROUTER_LOG_TRACE(m_logger, m_module_id, kOperation, "url_num[%s][%d]: %lu", node.server_url,
                         position, ending);
      }
      ++arc_number;
      m_virtual_nodes[m_virtual_node_count] = {ending, node.server};
      ++m_virtual_node_count;
      if (m_virtual_node_count >= MAX_VIRTUAL_NODE_COUNT) {
        return;
      }
    }
    ++position;
  }
}

void OstrandRouter::TraceHashCircle() {
  static constexpr char kOperation[] = "WriteHashCircle";
  std::map<std::string, uint64_t> covered_by_url;
  uint64_t previous = m_virtual_nodes[m_virtual_node_count - 1].hash_code;
  for (uint32_t k = 0; k < m_virtual_node_count; ++k) {
    const VirtualServerNode& entry = m_virtual_nodes[k];
    if (entry.server != nullptr && entry.server->connector != nullptr) {
      const char* url = entry.server->connector->GetURL();
      covered_by_url[url != nullptr ? url : ""] += entry.hash_code - previous;
    }
    previous = entry.hash_code;
  }
  for (const auto& [url, total] : covered_by_url) {
    // A proxy alone covers 2^64, which wraps to 0.
    const uint64_t covered = total != 0 ? total : UINT64_MAX;
    const float percent = static_cast<float>(covered) * 100.0f * kOfWholeRing;
    ROUTER_LOG_TRACE(m_logger, m_module_id, kOperation, "server %s|%lu covers %.2lf%%", url.c_str(),
                     covered, static_cast<double>(percent));
  }
  TraceLists("After connector_mgr->Update. ");
}

// Logs the three lists, each headed by `prefix` and its name.
void OstrandRouter::TraceLists(const char* prefix) {
  const struct {
    List* list;
    const char* name;
  } lists[] = {
      {m_using_servers, "m_using_servers"},
      {m_preparing_servers, "m_preparing_servers"},
      {m_removing_servers, "m_removing_servers"},
  };
  for (const auto& traced : lists) {
    char heading[128];
    std::snprintf(heading, sizeof(heading), "%s%s", prefix, traced.name);
    TraceLogConnection(m_logger, m_module_id, traced.list, heading);
  }
}

int OstrandRouter::ConHashGetUrlIndex(const char* url) {
  const auto found = m_all_servers.find(std::string(url));
  if (found == m_all_servers.end()) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "can not find %s in m_all_servers(%zd)", url,
                     static_cast<ssize_t>(m_all_servers.size()));
    return -1;
  }
  return found->second;
}

void OstrandRouter::UpdateHashCircleStat() {
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "start GetServerListStat");
  int using_cnt = 0;
  int using_auth_cnt = 0;
  std::string using_md5;
  GetServerListStat(m_using_servers, using_cnt, using_auth_cnt, using_md5);
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                  "m_using_servers using_cnt %d, using_auth_cnt %d, using_md5 %s", using_cnt,
                  using_auth_cnt, using_md5.c_str());

  int preparing_cnt = 0;
  int preparing_auth_cnt = 0;
  std::string preparing_md5;
  GetServerListStat(m_preparing_servers, preparing_cnt, preparing_auth_cnt, preparing_md5);
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__,
                  "m_prepare_servers preparing_cnt %d, preparing_auth_cnt %d, preparing_md5 %s",
                  preparing_cnt, preparing_auth_cnt, preparing_md5.c_str());

  char text[512];
  std::snprintf(text, sizeof(text), "%d-%d-%d-%s-%d-%d-%s-%d", m_zone_id, using_cnt, using_auth_cnt,
                using_md5.c_str(), preparing_cnt, preparing_auth_cnt, preparing_md5.c_str(),
                static_cast<int>(m_virtual_node_count));
  std::string line = text;
  m_ostrand_server->ReportDirHashCircleStat(m_zone_id, line);
}

void OstrandRouter::GetServerListStat(List* list, int& count, int& auth_count, std::string& md5) {
  count = 0;
  auth_count = 0;
  std::vector<std::string> urls;
  for (const RealServerNode& node : ServersOf(list)) {
    const ProxyServer* server = node.server;
    if (server != nullptr && server->connector != nullptr &&
        server->connector->GetStatus() == CConnector::STATUS_CONNECTED && server->auth_succeed) {
      ++auth_count;
    }
    urls.emplace_back(node.server_url);
    ++count;
  }
  if (count < 1) {
    return;
  }
  std::sort(urls.begin(), urls.end());
  std::string all_urls;
  for (const std::string& url : urls) {
    all_urls += url;
  }
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "start Get url %s md5 ", all_urls.c_str());
  char digest[64];
  OstrandCommon::md5_sum(all_urls.data(), all_urls.size(), digest, sizeof(digest));
  md5 = digest;
  ROUTER_LOG_DEBUG(m_logger, m_module_id, __func__, "md5 %s", md5.c_str());
}

}  // namespace OstrandService
