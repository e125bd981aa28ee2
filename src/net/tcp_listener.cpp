#include "net/tcp_listener.h"

#include <cerrno>
#include <utility>

namespace OSTRNET {
namespace {

constexpr int64_t kRestMs = 100;
constexpr int kMaxAcceptsPerRound = 64;  // then others have their turn

bool IsOutOfDescriptors(int error) {
  return error == -EMFILE || error == -ENFILE || error == -ENOBUFS || error == -ENOMEM;
}

// The next one in the queue may be well: what failed concerns this connection alone.
bool IsOfOneConnection(int error) {
  return error == -EINTR || error == -ECONNABORTED || error == -EPROTO;
}

}  // namespace

TcpListener::TcpListener(EventLoop& loop, std::function<void(int fd)> on_accept)
    : m_loop(loop),
      m_on_accept(std::move(on_accept)),
      m_retry(loop, [this] { UpdateInterest(); }) {}

TcpListener::~TcpListener() {
  Close();
  if (m_destroyed != nullptr) {
    *m_destroyed = true;
  }
}

int TcpListener::Listen(const Endpoint& local) {
  Close();
  System& system = m_loop.Sys();
  const int fd = system.OpenSocket(local.family);
  if (fd < 0) {
    return fd;
  }
  system.SetReuseAddress(fd);
  int ret = system.Bind(fd, local);
  if (ret == 0) {
    ret = system.Listen(fd, kBacklog);
  }
  Endpoint bound;
  if (ret == 0) {
    ret = system.LocalEndpoint(fd, bound);
  }
  m_watched = m_accepting ? uint32_t{EPOLLIN} : 0U;
  if (ret == 0) {
    ret = m_loop.Watch(fd, m_watched, this);
  }
  if (ret != 0) {
    system.Close(fd);
    return ret;
  }
  m_fd = fd;
  m_local = bound;
  return 0;
}

void TcpListener::Close() {
  m_retry.Cancel();
  if (IsOpen()) {
    m_loop.Unwatch(m_fd, this);
    m_loop.Sys().Close(m_fd);
    m_fd = -1;
  }
}

void TcpListener::SetAccepting(bool accepting) {
  m_accepting = accepting;
  UpdateInterest();
}

void TcpListener::UpdateInterest() {
  const uint32_t wanted = m_accepting && !m_retry.IsSet() ? uint32_t{EPOLLIN} : 0U;
  if (IsOpen() && wanted != m_watched) {
    m_watched = wanted;
    m_loop.Rewatch(m_fd, wanted, this);
  }
}

void TcpListener::OnEvents(uint32_t /*epoll_events*/) {
  bool destroyed = false;
  m_destroyed = &destroyed;
  for (int i = 0; i < kMaxAcceptsPerRound && IsOpen() && m_accepting; ++i) {
    m_loop.CountSystemCall();
    const int fd = m_loop.Sys().Accept(m_fd);
    if (fd >= 0) {
      m_on_accept(fd);
      if (destroyed) {
        return;
      }
    } else if (IsOutOfDescriptors(fd)) {
      m_retry.SetIn(kRestMs);
      UpdateInterest();  // or the event would come again and again
      break;
    } else if (!IsOfOneConnection(fd)) {
      break;
    }
  }
  m_destroyed = nullptr;
}

}  // namespace OSTRNET
