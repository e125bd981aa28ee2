// Answers of the directory: from a route to the lists.
#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <string>

#include "common/clock.h"
#include "protocol/ostrand_dir.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_dir;  // NOLINT: the records of the directory

constexpr int kMaxRows = ostrand_protocol_dir::MAX_SERVER_COUNT;
constexpr size_t kUrlRowSize = sizeof(tagResGetTablesAndAccess::aszAccessUrlList[0]);
constexpr size_t kIdRowSize = sizeof(tagResGetTablesAndAccess::aszAccessIdList[0]);

// A row as text: it has no NUL when all its bytes are used.
template <size_t N>
struct RowText {
  explicit RowText(const char (&row)[N]) { std::memcpy(text, row, strnlen(row, N)); }

  char text[N + 1] = {};
};

// A proxy of the new route, even one that had announced its stop.
void AcceptAgain(const RealServerNode& node) {
  if (node.server != nullptr) {
    node.server->last_auth_result = 0;
  }
}

// Rows that are there, whatever count was sent; 0 for a negative one.
int RowCount(const tagResGetTablesAndAccess& route) {
  const int32_t sent_count = route.iAccessCount;  // a copy: no reference to a packed field
  return std::clamp<int>(sent_count, 0, kMaxRows);
}

}  // namespace

int OstrandRouter::FlushRoute(const tagOStrdirCSPkg* response) try {
  if (!m_init_succeed) {
    return ROUTER_ERR_NOT_INITIALISED;
  }
  if (!CheckRoute(response)) {
    return ROUTER_ERR_ARGUMENT;
  }
  const tagResGetTablesAndAccess& route = response->stBody.stResGetTablesAndAccess;
  const int32_t sent_count = route.iAccessCount;
  if (sent_count > kMaxRows) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "FlushRoute",
                     "table_and_access.iAccessCount:%d > MAX_SERVER_COUNT:%u, will use the front "
                     "of %u access",
                     sent_count, static_cast<unsigned>(kMaxRows), static_cast<unsigned>(kMaxRows));
  }
  ConHashFreshAllServer(route);
  if (UsedCount(m_using_servers) == 0) {
    return UseFirstRoute(route);
  }
  if (NeedFlushRoute(response) == 0) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, "FlushRoute", "Skip flush operation");
    return 0;
  }
  m_last_flush_route_time = OstrandCommon::GetCurrentMilliseconds();
  const int ret = PrunePreparing(response);
  return ret != 0 ? ret : FillPreparing(route);
} catch (const std::bad_alloc&) {  // the url index ran out of memory; no list was changed
  return ROUTER_ERR_ALLOCATION;
}

// The steps of FlushRoute; they log under that name.

bool OstrandRouter::CheckRoute(const tagOStrdirCSPkg* response) {
  static constexpr char kOperation[] = "FlushRoute";
  if (response == nullptr) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "%s failed. %s:%lld(%s)", kOperation,
                     "response", 0LL, "NULL");
    return false;
  }
  const uint16_t cmd = response->stHead.wCmd;
  if (cmd != OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "%s failed. %s:%lld != %lld(%s)",
                     kOperation, "response->stHead.wCmd", static_cast<long long>(cmd),
                     static_cast<long long>(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES),
                     "OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES");
    return false;
  }
  const tagResGetTablesAndAccess& route = response->stBody.stResGetTablesAndAccess;
  if (route.iResult != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "%s failed. %s:%lld != %lld(%s)",
                     kOperation, "response->stBody.stResGetTablesAndAccess.iResult",
                     static_cast<long long>(route.iResult), 0LL, "0");
    return false;
  }
  if (route.iAccessCount == 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, kOperation, "%s failed. %s:%lld(%s)", kOperation,
                     "table_and_access.iAccessCount", 0LL, "0");
    return false;
  }
  return true;
}

int OstrandRouter::UseFirstRoute(const tagResGetTablesAndAccess& route) {
  OstrandCommon::ScopedLock lock(m_mutex_list);
  for (int i = 0; i < RowCount(route); ++i) {
    const RowText<kUrlRowSize> url(route.aszAccessUrlList[i]);
    const RowText<kIdRowSize> id(route.aszAccessIdList[i]);
    const int ret = AddServerNode(m_using_servers, url.text, id.text, nullptr);
    if (ret != 0) {
      return ret;
    }
  }
  return 0;
}

// Takes out of preparation what the new route does not have. What is in use keeps its record there;
// the rest is drained.
int OstrandRouter::PrunePreparing(const tagOStrdirCSPkg* response) {
  static constexpr char kOperation[] = "FlushRoute";
  ListNode* next = nullptr;
  for (ListNode* it = m_preparing_servers->Begin(); it != nullptr; it = next) {
    next = it->next;
    RealServerNode* node = ServerOf(it);
    if (IsInNewRoute(response, node->server_url)) {
      AcceptAgain(*node);
      continue;
    }
    if (FindServerNode(m_using_servers, node->server_url) != nullptr) {
      node->server = nullptr;
      m_preparing_servers->Remove(it);
      continue;
    }
    OstrandCommon::ScopedLock lock(m_mutex_list);
    const ServerIdText id(node->server_id);
    const int ret = AddServerNode(m_removing_servers, node->server_url, id.c_str(), node->server);
    if (ret != 0) {
      return ret;
    }
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                     "Move server from m_preparing_servers to m_removing_servers. server_url:%s, "
                     "server_id:%s",
                     node->server_url, id.c_str());
    node->server = nullptr;
    m_preparing_servers->Remove(it);
  }
  return 0;
}

int OstrandRouter::FillPreparing(const tagResGetTablesAndAccess& route) {
  for (int i = 0; i < RowCount(route); ++i) {
    const RowText<kUrlRowSize> url(route.aszAccessUrlList[i]);
    const RowText<kIdRowSize> id(route.aszAccessIdList[i]);
    const int ret = PrepareServer(url.text, id.text);
    if (ret != 0) {
      return ret;
    }
  }
  return 0;
}

// A known proxy keeps its connection and the id that it has.
int OstrandRouter::PrepareServer(const char* url, const char* id) {
  static constexpr char kOperation[] = "FlushRoute";
  if (FindServerNode(m_preparing_servers, url) != nullptr) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation, "Server exists. server_url:%s", url);
    return 0;
  }
  if (RealServerNode* in_use = FindServerNode(m_using_servers, url)) {
    AcceptAgain(*in_use);
    OstrandCommon::ScopedLock lock(m_mutex_list);
    const int ret = ShareWithPreparing(*in_use);
    if (ret == 0) {
      ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                       "Copy server from m_using_servers to m_preparing_servers. server_url:%s, "
                       "server_id:%s",
                       in_use->server_url, ServerIdText(in_use->server_id).c_str());
    }
    return ret;
  }
  if (ListNode* it = FindListNode(m_removing_servers, url)) {
    RealServerNode* removing = ServerOf(it);
    AcceptAgain(*removing);
    OstrandCommon::ScopedLock lock(m_mutex_list);
    const int ret = ShareWithPreparing(*removing);
    if (ret == 0) {
      ROUTER_LOG_DEBUG(m_logger, m_module_id, kOperation,
                       "Copy server from m_removing_servers to m_preparing_servers. "
                       "server_url:%s, server_id:%s",
                       removing->server_url, ServerIdText(removing->server_id).c_str());
      removing->server = nullptr;
      m_removing_servers->Remove(it);  // it moves, whatever the line says
    }
    return ret;
  }
  OstrandCommon::ScopedLock lock(m_mutex_list);
  return AddServerNode(m_preparing_servers, url, id, nullptr);
}

int OstrandRouter::ShareWithPreparing(const RealServerNode& known) {
  return AddServerNode(m_preparing_servers, known.server_url, ServerIdText(known.server_id).c_str(),
                       known.server);
}

int OstrandRouter::NeedFlushRoute(const tagOStrdirCSPkg* response) {
  if (m_preparing_servers == nullptr) {
    return 0;
  }
  List* replaced = UsedCount(m_preparing_servers) != 0 ? m_preparing_servers : m_using_servers;
  return IsMatchList(response, replaced) ? 0 : 1;
}

bool OstrandRouter::IsMatchList(const tagOStrdirCSPkg* response, List* list) {
  if (response == nullptr) {
    return false;
  }
  const tagResGetTablesAndAccess& route = response->stBody.stResGetTablesAndAccess;
  const int64_t sent_count = route.iAccessCount;
  if (sent_count != static_cast<int64_t>(UsedCount(list)) || sent_count > RowCount(route)) {
    return false;
  }
  for (int i = 0; i < RowCount(route); ++i) {
    if (FindServerNode(list, RowText<kUrlRowSize>(route.aszAccessUrlList[i]).text) == nullptr) {
      return false;
    }
  }
  for (const RealServerNode& node : ServersOf(list)) {
    if (!IsInNewRoute(response, node.server_url)) {
      return false;
    }
  }
  return true;
}

bool OstrandRouter::IsInNewRoute(const tagOStrdirCSPkg* response, const char* server_url) {
  if (response == nullptr || server_url == nullptr) {
    return false;
  }
  const tagResGetTablesAndAccess& route = response->stBody.stResGetTablesAndAccess;
  for (int i = 0; i < RowCount(route); ++i) {
    if (std::strncmp(route.aszAccessUrlList[i], server_url, kUrlRowSize) == 0) {
      return true;
    }
  }
  return false;
}

int OstrandRouter::ConHashFreshAllServer(const tagResGetTablesAndAccess& table_and_access) {
  std::set<std::string> urls;
  for (int i = 0; i < RowCount(table_and_access); ++i) {
    const RowText<kUrlRowSize> url(table_and_access.aszAccessUrlList[i]);
    if (!urls.insert(url.text).second) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "url %s already exist", url.text);
    }
  }
  std::map<std::string, int32_t> all_servers;  // takes the place of the old one whole or not at all
  int32_t index = 0;
  for (const std::string& url : urls) {
    if (all_servers.emplace(url, index).second) {
      ROUTER_LOG_TRACE(m_logger, m_module_id, __func__, "insert url %s success, size: %zu",
                       url.c_str(), all_servers.size());
    } else {
      ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "url %s already exist", url.c_str());
    }
    ++index;
  }
  m_all_servers.swap(all_servers);
  ROUTER_LOG_INFO(m_logger, m_module_id, __func__, "ConHashFreshAllServer, server count: %d -> %zd",
                  static_cast<int>(all_servers.size()), static_cast<ssize_t>(m_all_servers.size()));
  return 0;
}

}  // namespace OstrandService
