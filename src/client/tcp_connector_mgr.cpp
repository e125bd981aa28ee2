#include "client/tcp_connector_mgr.h"

#include <algorithm>
#include <new>

#include "client/tcp_url.h"
#include "common/clock.h"
#include "service_api/log_macros.h"

namespace OstrandService {
namespace {

using OstrandCommon::ScopedLock;

constexpr char kSourceUnit[] = "src/client/tcp_connector_mgr";

}  // namespace

TcpConnectorMgr::TcpConnectorMgr(OstrandCommon::Logger* logger, int module_id, size_t default_limit)
    : m_logger(logger),
      m_module_id(module_id),
      m_default_limit(default_limit),
      m_scratch(new (std::nothrow) char[kScratchSize]) {}

TcpConnectorMgr::~TcpConnectorMgr() { Stop(); }

int TcpConnectorMgr::Start() { return m_scratch != nullptr ? m_loop.Start(this) : -1; }

void TcpConnectorMgr::Stop() { m_loop.Stop(); }

OSTRNET::CConnector* TcpConnectorMgr::CreateConnector(const char* url, OSTRNET::IPackParser* parser,
                                                      int buffer_size,
                                                      OSTRNET::ReceiveCallback callback,
                                                      void* arg) {
  sockaddr_in address{};
  if (!ParseTcpUrl(url, address)) {
    m_error = "the url is not of the form tcp://127.0.0.1:9000";
    return nullptr;
  }
  if (parser == nullptr || callback == nullptr) {
    m_error = "a parser and a callback are needed";
    return nullptr;
  }
  const size_t limit = buffer_size > 0 ? static_cast<size_t>(buffer_size) : m_default_limit;
  ScopedPause pause(m_loop);
  try {
    m_connectors.push_back(
        std::make_unique<TcpConnector>(*this, url, address, parser, limit, callback, arg));
    ScopedLock lock(m_mutex);
    m_dirty.reserve(m_connectors.size());
  } catch (const std::bad_alloc&) {
    m_error = "out of memory";
    return nullptr;
  }
  return m_connectors.back().get();
}

int TcpConnectorMgr::RemoveConnector(OSTRNET::CConnector* connector) {
  ScopedPause pause(m_loop);  // no callback runs now, and no fetched event is left
  const auto found =
      std::find_if(m_connectors.begin(), m_connectors.end(),
                   [connector](const auto& owned) { return owned.get() == connector; });
  if (found == m_connectors.end()) {
    return connector == nullptr ? 0 : -1;
  }
  {
    ScopedLock lock(m_mutex);
    m_dirty.erase(std::remove(m_dirty.begin(), m_dirty.end(), found->get()), m_dirty.end());
  }
  *found = std::move(m_connectors.back());
  m_connectors.pop_back();
  return 0;
}

void TcpConnectorMgr::AddDirty(TcpConnector* connector) {
  ScopedLock lock(m_mutex);
  m_dirty.push_back(connector);
  m_has_dirty = true;
}

void TcpConnectorMgr::Flush() {
  while (m_has_dirty) {
    TcpConnector* batch[64];
    size_t count = 0;
    {
      ScopedLock lock(m_mutex);
      while (!m_dirty.empty() && count < std::size(batch)) {
        batch[count++] = m_dirty.back();
        m_dirty.pop_back();
      }
      m_has_dirty = !m_dirty.empty();
    }
    std::for_each(batch, batch + count, [](TcpConnector* connector) { connector->Flush(); });
  }
}

int TcpConnectorMgr::OnRoundEnd() {
  Flush();
  if (m_published) {
    m_published = false;
    m_frames_seen.fetch_add(1);
    if (m_waiting) {
      ScopedLock lock(m_wait_mutex);
      m_frames_came.Broadcast();
    }
  }
  return m_connecting ? CheckConnectTimeouts() : -1;
}

// Returns the ms until the next attempt times out, -1 without one.
int TcpConnectorMgr::CheckConnectTimeouts() {
  m_connecting = false;
  const int64_t now_ms = OstrandCommon::GetMonotonicMilliseconds();
  int next_ms = -1;
  for (const auto& connector : m_connectors) {
    const int left_ms = connector->CheckConnectTimeout(now_ms);
    if (left_ms >= 0) {
      next_ms = next_ms < 0 ? left_ms : std::min(next_ms, left_ms);
    }
  }
  if (next_ms >= 0) {
    m_connecting = true;
  }
  return next_ms;
}

void TcpConnectorMgr::WaitForFrames(uint64_t seen, int64_t monotonic_deadline_ms) {
  Flush();
  ScopedLock lock(m_wait_mutex);
  m_waiting = true;  // before the number is read: OnRoundEnd goes the other way round
  while (m_frames_seen.load() == seen &&
         OstrandCommon::GetMonotonicMilliseconds() < monotonic_deadline_ms) {
    m_frames_came.WaitUntil(m_wait_mutex, monotonic_deadline_ms);
  }
  m_waiting = false;
}

void TcpConnectorMgr::LogClosed(const char* url, const char* reason) {
  OSTRAND_LOG(m_logger, OstrandCommon::OSTRAND_LOG_LEVEL_WARN, m_module_id, kSourceUnit, __func__,
              "connection to %s closed: %s", url, reason);
}

}  // namespace OstrandService
