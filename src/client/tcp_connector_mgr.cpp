#include "client/tcp_connector_mgr.h"

#include <algorithm>
#include <new>
#include <utility>

#include "service_api/log_macros.h"

namespace OstrandService {
namespace {

constexpr char kSourceUnit[] = "src/client/tcp_connector_mgr";

}  // namespace

TcpConnectorMgr::TcpConnectorMgr(OSTRNET::EventLoop& loop, OstrandCommon::Logger* logger,
                                 int module_id, ConnectorEvents& events, size_t default_limit)
    : m_loop(loop),
      m_logger(logger),
      m_module_id(module_id),
      m_events(events),
      m_default_limit(default_limit) {}

TcpConnectorMgr::~TcpConnectorMgr() {
  while (!m_connectors.empty()) {
    RemoveConnector(m_connectors.back().get());
  }
}

OSTRNET::CConnector* TcpConnectorMgr::CreateConnector(const char* url, OSTRNET::IPackParser* parser,
                                                      int buffer_size,
                                                      OSTRNET::ReceiveCallback callback,
                                                      void* arg) {
  if (parser == nullptr || callback == nullptr) {
    m_error = "a parser and a callback are needed";
    return nullptr;
  }
  const size_t limit = buffer_size > 0 ? static_cast<size_t>(buffer_size) : m_default_limit;
  try {
    OSTRNET::TcpAddress address;
    if (url == nullptr || !OSTRNET::ParseTcpUrl(url, address)) {
      m_error = std::string("the url is not of the form ") + OSTRNET::kTcpUrlForms;
      return nullptr;
    }
    m_connectors.reserve(m_connectors.size() + 1);
    m_watched.reserve(m_connectors.capacity());
    m_connectors.push_back(
        std::make_unique<TcpConnector>(*this, url, address, parser, limit, callback, arg));
  } catch (const std::bad_alloc&) {
    m_error = "out of memory";
    return nullptr;
  }
  return m_connectors.back().get();
}

int TcpConnectorMgr::RemoveConnector(OSTRNET::CConnector* connector) {
  const auto found =
      std::find_if(m_connectors.begin(), m_connectors.end(),
                   [connector](const auto& owned) { return owned.get() == connector; });
  if (found == m_connectors.end()) {
    return connector == nullptr ? 0 : -1;
  }
  const std::unique_ptr<TcpConnector> removed = std::move(*found);
  *found = std::move(m_connectors.back());
  m_connectors.pop_back();
  m_watched.erase(std::remove(m_watched.begin(), m_watched.end(), removed.get()), m_watched.end());
  m_over_half -= removed->m_is_over_half ? 1 : 0;
  if (m_last_queued_on == removed.get()) {
    m_last_queued_on = nullptr;
  }
  return 0;
}

TcpConnector* TcpConnectorMgr::Find(const OSTRNET::CConnector* connector) const {
  for (const auto& owned : m_connectors) {
    if (owned.get() == connector) {
      return owned.get();
    }
  }
  return nullptr;
}

// There is room: one place a connector was reserved.
void TcpConnectorMgr::Watch(TcpConnector* connector) { m_watched.push_back(connector); }

bool TcpConnectorMgr::CheckWatched() {
  bool told = false;
  m_watched.erase(std::remove_if(m_watched.begin(), m_watched.end(),
                                 [&told](TcpConnector* connector) {
                                   const bool is_awaited = connector->TellsRoom();
                                   const bool goes_on = connector->CheckRoom();
                                   told = told || (is_awaited && !connector->TellsRoom());
                                   return !goes_on;
                                 }),
                  m_watched.end());
  return told;
}

void TcpConnectorMgr::LogClosed(const char* url, const char* reason) {
  OSTRAND_LOG(m_logger, OstrandCommon::OSTRAND_LOG_LEVEL_WARN, m_module_id, kSourceUnit, __func__,
              "connection to %s closed: %s", url, reason);
}

}  // namespace OstrandService
