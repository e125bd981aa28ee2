#include "client/tcp_connector.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "client/tcp_connector_mgr.h"
#include "common/clock.h"

namespace OstrandService {
namespace {

using OstrandCommon::ScopedLock;

// Ahead of each frame that waits to be consumed.
using FrameLen = uint32_t;

int FreeShare(size_t used, size_t limit) {
  return used >= limit ? 0 : static_cast<int>((limit - used) * 100 / limit);
}

unsigned int SaturateToUint(size_t value) {
  return static_cast<unsigned int>(std::min<size_t>(value, UINT_MAX));
}

}  // namespace

TcpConnector::TcpConnector(TcpConnectorMgr& mgr, const char* url, const sockaddr_in& address,
                           OSTRNET::IPackParser* parser, size_t limit,
                           OSTRNET::ReceiveCallback callback, void* arg)
    : m_mgr(mgr),
      m_url(url),
      m_address(address),
      m_parser(parser),
      m_limit(limit),
      m_callback(callback),
      m_arg(arg) {}

TcpConnector::~TcpConnector() { Disconnect(0); }

int TcpConnector::Connect() {
  ScopedLock lock(m_mutex);
  if (m_fd >= 0) {
    return 0;  // under way, or there already
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    std::snprintf(m_error, sizeof(m_error), "socket: %s", std::strerror(errno));
    return -1;
  }
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  int ret = 0;
  do {
    ret = connect(fd, reinterpret_cast<const sockaddr*>(&m_address), sizeof(m_address));
  } while (ret != 0 && errno == EINTR);
  const bool connected = ret == 0;
  if ((!connected && errno != EINPROGRESS) ||
      m_mgr.Loop().Watch(fd, connected ? EPOLLIN : EPOLLOUT, this) != 0) {
    std::snprintf(m_error, sizeof(m_error), "connect: %s", std::strerror(errno));
    close(fd);
    return -1;
  }
  m_fd = fd;
  m_watched = connected ? EPOLLIN : EPOLLOUT;
  m_connection += 1;
  m_read_stopped = false;
  m_status = connected ? STATUS_CONNECTED : STATUS_CONNECTING;
  if (!connected) {
    m_connect_deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + kConnectTimeoutMs;
    m_mgr.AddConnecting();
    m_mgr.Loop().Wake();  // it then counts the time
  }
  return 0;
}

void TcpConnector::Disconnect(int reserved) {
  (void)reserved;
  ScopedLock lock(m_mutex);
  if (m_fd >= 0) {
    CloseLocked(nullptr);
  }
}

// reason: logged; null for a wanted end.
void TcpConnector::CloseLocked(const char* reason) {
  m_mgr.Loop().Unwatch(m_fd);
  close(m_fd);
  m_fd = -1;
  m_watched = 0;
  m_status = STATUS_DISCONNECTED;
  m_send.Clear();
  if (reason != nullptr) {
    std::snprintf(m_error, sizeof(m_error), "%s", reason);
    m_mgr.LogClosed(m_url.c_str(), reason);
  }
}

// Closes unless it was closed, and perhaps opened again, since.
void TcpConnector::CloseWithReason(uint64_t connection, const char* reason) {
  ScopedLock lock(m_mutex);
  if (m_fd >= 0 && m_connection == connection) {
    CloseLocked(reason);
  }
}

void TcpConnector::WatchLocked(uint32_t epoll_events) {
  if (m_watched == epoll_events) {
    return;
  }
  if (epoll_events == 0) {
    m_mgr.Loop().Unwatch(m_fd);  // else errors would still be told, round after round
  } else if (m_watched == 0) {
    m_mgr.Loop().Watch(m_fd, epoll_events, this);
  } else {
    m_mgr.Loop().Rewatch(m_fd, epoll_events, this);
  }
  m_watched = epoll_events;
}

int TcpConnector::SendToQ(const char* buf, unsigned int len, void* log_handle) {
  (void)log_handle;
  bool became_dirty = false;
  {
    ScopedLock lock(m_mutex);
    if (m_status != STATUS_CONNECTED) {
      std::snprintf(m_error, sizeof(m_error), "not connected");
      return -1;
    }
    if (len > static_cast<unsigned int>(INT_MAX) || m_send.size() + len > m_limit) {
      return 0;
    }
    if (!m_send.Append(buf, len)) {
      std::snprintf(m_error, sizeof(m_error), "out of memory");
      return -1;
    }
    if (!m_dirty) {
      m_dirty = true;
      became_dirty = true;
    }
  }
  if (became_dirty) {
    m_mgr.AddDirty(this);
  }
  return static_cast<int>(len);
}

void TcpConnector::Flush() {
  ScopedLock lock(m_mutex);
  m_dirty = false;
  // While the socket is full the network thread goes on when it has room again.
  if (m_status == STATUS_CONNECTED && (m_watched & EPOLLOUT) == 0) {
    FlushLocked();
  }
}

void TcpConnector::FlushLocked() {
  while (!m_send.empty()) {
    m_mgr.m_socket_calls += 1;
    const ssize_t sent = send(m_fd, m_send.data(), m_send.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      m_send.TakeFront(static_cast<size_t>(sent));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      WatchLocked(m_watched | EPOLLOUT);
      return;
    } else if (errno != EINTR) {
      char reason[128];
      std::snprintf(reason, sizeof(reason), "send: %s", std::strerror(errno));
      CloseLocked(reason);
      return;
    }
  }
  WatchLocked(m_watched & ~static_cast<uint32_t>(EPOLLOUT));
}

void TcpConnector::OnNetEvents(uint32_t epoll_events) {
  {
    ScopedLock lock(m_mutex);
    if (m_fd < 0 || (m_status == STATUS_CONNECTING && !FinishConnect())) {
      return;
    }
    if ((epoll_events & EPOLLOUT) != 0 && (m_watched & EPOLLOUT) != 0) {
      FlushLocked();
    }
  }
  if ((epoll_events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
    Receive();
  }
}

// Whether the connection stands.
bool TcpConnector::FinishConnect() {
  int error = 0;
  socklen_t error_len = sizeof(error);
  if (getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &error_len) != 0) {
    error = errno;
  }
  sockaddr_in peer{};
  socklen_t peer_len = sizeof(peer);
  if (error == 0 && getpeername(m_fd, reinterpret_cast<sockaddr*>(&peer), &peer_len) != 0) {
    return false;  // an event of an older attempt: not yet
  }
  if (error != 0) {
    char reason[128];
    std::snprintf(reason, sizeof(reason), "connect: %s", std::strerror(error));
    CloseLocked(reason);
    return false;
  }
  m_status = STATUS_CONNECTED;
  WatchLocked(EPOLLIN);
  return true;
}

int TcpConnector::CheckConnectTimeout(int64_t monotonic_now_ms) {
  ScopedLock lock(m_mutex);
  if (m_status != STATUS_CONNECTING) {
    return -1;
  }
  if (monotonic_now_ms < m_connect_deadline_ms) {
    return static_cast<int>(m_connect_deadline_ms - monotonic_now_ms);
  }
  CloseLocked("connect: timed out");
  return -1;
}

// One read of the socket: more comes with the next round, so that one peer cannot starve the
// others.
void TcpConnector::Receive() {
  char* data = nullptr;
  size_t size = 0;
  uint64_t connection = 0;
  if (!ReadSome(data, size, connection)) {
    return;
  }
  size_t used = 0;
  const bool well_formed = Dispatch(data, size, connection, used);
  Publish();
  if (well_formed) {
    KeepRest(data + used, size - used);
  }
}

// Reads behind the partial frame, if there is one. data, size: all bytes that are there now. False
// when nothing came.
bool TcpConnector::ReadSome(char*& data, size_t& size, uint64_t& connection) {
  char* const scratch = m_mgr.m_scratch.get();
  constexpr size_t kScratchSize = TcpConnectorMgr::kScratchSize;
  ScopedLock lock(m_mutex);
  if (m_fd < 0) {
    return false;
  }
  connection = m_connection;
  if (m_partial_connection != connection) {
    m_partial.Clear();
    m_partial_connection = connection;
  }
  if (m_recv_size + m_partial.size() >= m_limit) {
    m_read_stopped = true;
    if (m_recv_size + m_partial.size() >= m_limit) {
      WatchLocked(m_watched & ~static_cast<uint32_t>(EPOLLIN));
      return false;
    }
    m_read_stopped = false;  // it was consumed meanwhile
  }
  const size_t held = m_recv_size + m_partial.size();
  // A frame longer than the scratch buffer gathers in m_partial itself.
  const bool gather = m_partial.size() >= kScratchSize / 2;
  const size_t room = std::min(m_limit - held, gather ? kScratchSize : kScratchSize / 2);
  char* to = scratch + m_partial.size();
  if (gather) {
    to = m_partial.Prepare(room);
    if (to == nullptr) {
      CloseLocked("receive: out of memory");
      return false;
    }
  }
  m_mgr.m_socket_calls += 1;
  const ssize_t got = recv(m_fd, to, room, 0);
  if (got > 0) {
    if (gather) {
      m_partial.Commit(static_cast<size_t>(got));
      // Dispatch reads it where it lies; KeepRest leaves it there.
      data = const_cast<char*>(m_partial.data());  // NOLINT
      size = m_partial.size();
    } else {
      if (!m_partial.empty()) {
        std::memcpy(scratch, m_partial.data(), m_partial.size());
      }
      data = scratch;
      size = m_partial.size() + static_cast<size_t>(got);
    }
    return true;
  }
  if (got == 0) {
    CloseLocked(m_partial.empty() ? "closed by the peer" : "closed by the peer inside a frame");
  } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
    char reason[128];
    std::snprintf(reason, sizeof(reason), "receive: %s", std::strerror(errno));
    CloseLocked(reason);
  }
  return false;
}

// Hands the whole frames to the callback and stages those that stay. used: bytes of whole frames.
// False when the connection ended.
bool TcpConnector::Dispatch(const char* data, size_t size, uint64_t connection, size_t& used) {
  while (used < size) {
    const char* frame = data + used;
    const auto there = static_cast<unsigned int>(size - used);
    const int len = m_parser->ParsePackLength(frame, there);
    if (len < 0) {
      CloseWithReason(connection, "receive: no frame begins like this");
      return false;
    }
    if (static_cast<size_t>(len) > m_limit) {
      CloseWithReason(connection, "receive: the frame is longer than the buffer may grow");
      return false;
    }
    if (len == 0 || static_cast<unsigned int>(len) > there) {
      return true;
    }
    if (m_callback(m_url.c_str(), frame, len, m_arg) == 0) {
      const auto frame_len = static_cast<FrameLen>(len);
      if (!m_staged.Append(&frame_len, sizeof(frame_len)) || !m_staged.Append(frame, frame_len)) {
        CloseWithReason(connection, "receive: out of memory");
        return false;
      }
    }
    used += static_cast<size_t>(len);
  }
  return true;
}

void TcpConnector::KeepRest(const char* rest, size_t size) {
  if (rest + size == m_partial.data() + m_partial.size() && !m_partial.empty()) {
    m_partial.TakeFront(m_partial.size() - size);
    return;
  }
  m_partial.Clear();
  if (size != 0 && !m_partial.Append(rest, size)) {
    CloseWithReason(m_partial_connection, "receive: out of memory");
  }
}

void TcpConnector::Publish() {
  if (m_staged.empty()) {
    return;
  }
  ScopedLock lock(m_mutex);
  m_recv_size += m_staged.size();
  if (m_incoming.empty()) {
    m_incoming.Swap(m_staged);
  } else if (!m_incoming.Append(m_staged.data(), m_staged.size())) {
    CloseLocked("receive: out of memory");
  }
  m_staged.Clear();
  *m_may_have_incoming = true;
  m_mgr.m_published = true;
}

int TcpConnector::PeekPkg(const char*& buffer, int& size, void* log_handle) {
  (void)log_handle;
  if (m_ready.empty()) {
    if (!*m_may_have_incoming) {
      return 0;
    }
    ScopedLock lock(m_mutex);
    m_ready.Swap(m_incoming);
    if (m_ready.empty()) {
      *m_may_have_incoming = false;
      return 0;
    }
  }
  FrameLen frame_len = 0;
  std::memcpy(&frame_len, m_ready.data(), sizeof(frame_len));
  buffer = m_ready.data() + sizeof(frame_len);
  size = static_cast<int>(frame_len);
  return size;
}

void TcpConnector::SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) {
  ScopedLock lock(m_mutex);
  *flag = !m_ready.empty() || !m_incoming.empty();
  m_may_have_incoming = flag;
}

void TcpConnector::ConsumePkg() {
  const char* buffer = nullptr;
  int size = 0;
  if (m_ready.empty() || PeekPkg(buffer, size, nullptr) <= 0) {
    return;
  }
  const size_t taken = sizeof(FrameLen) + static_cast<size_t>(size);
  m_ready.TakeFront(taken);
  ++m_mgr.m_frames_consumed;
  m_recv_size -= taken;
  if (m_read_stopped && m_recv_size <= m_limit / 2) {
    ScopedLock lock(m_mutex);
    m_read_stopped = false;
    if (m_status == STATUS_CONNECTED) {
      WatchLocked(m_watched | EPOLLIN);
    }
  }
}

void TcpConnector::Recover(void* log_handle) {
  (void)log_handle;
  ConsumePkg();
}

const char* TcpConnector::GetLastErrDesc() {
  ScopedLock lock(m_mutex);
  std::memcpy(m_error_copy, m_error, sizeof(m_error));
  return m_error_copy;
}

void TcpConnector::GetIPAndPort(int& ip, int& port) {
  ip = static_cast<int>(m_address.sin_addr.s_addr);
  port = ntohs(m_address.sin_port);
}

unsigned int TcpConnector::GetSendBuffDataSize() {
  ScopedLock lock(m_mutex);
  return SaturateToUint(m_send.size());
}

unsigned int TcpConnector::GetRecvBuffDataSize() { return SaturateToUint(m_recv_size); }

int TcpConnector::GetSendBuffLeftRate() {
  ScopedLock lock(m_mutex);
  return FreeShare(m_send.size(), m_limit);
}

int TcpConnector::GetRecvBuffLeftRate() { return FreeShare(m_recv_size, m_limit); }

}  // namespace OstrandService
