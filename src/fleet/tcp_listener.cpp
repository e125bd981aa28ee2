#include "fleet/tcp_listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace OstrandFleet {
namespace {

constexpr int kBacklog = 1024;
constexpr int64_t kRetryMs = 100;
// A queue of length 0 still holds one connection; the second filler is for kernels that hold two.
constexpr int kFillers = 2;

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int NewSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

uint16_t BoundPort(int fd) {
  sockaddr_in address{};
  socklen_t len = sizeof(address);
  return getsockname(fd, reinterpret_cast<sockaddr*>(&address), &len) == 0 ? ntohs(address.sin_port)
                                                                           : uint16_t{0};
}

void CloseKeepingErrno(int fd) {
  const int error = errno;
  close(fd);
  errno = error;
}

// A socket on the port, which others that allow it may be bound to as well while none of them
// listens. -1 with errno when it cannot be had.
int BoundSocket(uint16_t port) {
  const int fd = NewSocket();
  if (fd < 0) {
    return -1;
  }
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  const sockaddr_in address = Loopback(port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    CloseKeepingErrno(fd);
    return -1;
  }
  return fd;
}

bool DescriptorsUsedUp(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

TcpListener::TcpListener(FleetLoop& loop, std::function<void(int fd)> on_accept)
    : m_loop(loop), m_on_accept(std::move(on_accept)), m_retry(loop, [this] {
        if (IsOpen() && !m_ignoring) {
          m_loop.Rewatch(m_fd, EPOLLIN, this);
        }
      }) {}

TcpListener::~TcpListener() {
  Close();
  if (m_reserved_fd >= 0) {
    close(m_reserved_fd);
  }
}

int TcpListener::Listen(uint16_t port) {
  if (IsOpen()) {
    return 0;
  }
  if (m_reserved_fd < 0 && Reserve(port) != 0) {
    return -1;
  }
  const int fd = BoundSocket(m_port);
  if (fd < 0) {
    return -1;
  }
  if (listen(fd, kBacklog) != 0 || m_loop.Watch(fd, EPOLLIN, this) != 0) {
    CloseKeepingErrno(fd);
    return -1;
  }
  m_fd = fd;
  if (m_ignoring) {
    FillQueue();
  }
  return 0;
}

int TcpListener::Reserve(uint16_t port) {
  const int fd = BoundSocket(port);
  if (fd < 0) {
    return -1;
  }
  m_reserved_fd = fd;
  m_port = BoundPort(fd);
  return 0;
}

void TcpListener::Close() {
  EmptyQueue();
  m_retry.Cancel();
  if (IsOpen()) {
    m_loop.Unwatch(m_fd);
    close(m_fd);
    m_fd = -1;
  }
}

void TcpListener::SetIgnoring(bool ignore) {
  if (ignore == m_ignoring) {
    return;
  }
  m_ignoring = ignore;
  if (!IsOpen()) {
    return;
  }
  if (ignore) {
    FillQueue();
  } else {
    EmptyQueue();
    listen(m_fd, kBacklog);
    m_loop.Rewatch(m_fd, EPOLLIN, this);
  }
}

void TcpListener::FillQueue() {
  m_loop.Rewatch(m_fd, 0, this);
  listen(m_fd, 0);
  const sockaddr_in address = Loopback(m_port);
  for (int i = 0; i < kFillers; ++i) {
    const int fd = NewSocket();
    if (fd >= 0) {
      // Under way, made or refused: each of them keeps a place in the queue or costs nothing.
      static_cast<void>(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
      m_fillers.push_back(fd);
    }
  }
}

void TcpListener::EmptyQueue() {
  for (const int fd : m_fillers) {
    close(fd);
  }
  m_fillers.clear();
}

void TcpListener::OnEvents(uint32_t /*epoll_events*/) {
  while (IsOpen() && !m_ignoring) {
    const int fd = accept4(m_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
      const int on = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
      m_on_accept(fd);
    } else if (DescriptorsUsedUp(errno)) {
      m_loop.Rewatch(m_fd, 0, this);  // or the event would come again and again
      m_retry.SetIn(kRetryMs);
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

std::string LoopbackUrl(uint16_t port) { return "tcp://127.0.0.1:" + std::to_string(port); }

}  // namespace OstrandFleet
