#include "fleet/port_listener.h"

#include <cerrno>
#include <utility>

namespace OstrandFleet {
namespace {

using OSTRNET::Endpoint;
using OSTRNET::TcpListener;

// A queue of length 0 still holds one connection; the second filler is for kernels that hold two.
constexpr int kFillers = 2;

// 0; or -1 with errno, from 0 or -errno.
int WithErrno(int ret) {
  if (ret >= 0) {
    return 0;
  }
  errno = -ret;
  return -1;
}

}  // namespace

PortListener::PortListener(FleetLoop& loop, std::function<void(int fd)> on_accept)
    : m_system(loop.net().Sys()), m_listener(loop.net(), std::move(on_accept)) {}

PortListener::~PortListener() {
  Close();
  if (m_reserved_fd >= 0) {
    m_system.Close(m_reserved_fd);
  }
}

int PortListener::Listen(uint16_t port) {
  if (IsOpen()) {
    return 0;
  }
  int ret = m_reserved_fd < 0 ? Reserve(port) : 0;
  if (ret == 0) {
    ret = m_listener.Listen(m_local);
  }
  if (ret == 0 && m_ignoring) {
    FillQueue();
  }
  return WithErrno(ret);
}

// A socket on the port, which others that allow it may be bound to as well while none of them
// listens. 0, or -errno.
int PortListener::Reserve(uint16_t port) {
  const int fd = m_system.OpenSocket(Endpoint::Family::kIpv4);
  if (fd < 0) {
    return fd;
  }
  m_system.SetReuseAddress(fd);
  int ret = m_system.Bind(fd, Endpoint::Loopback(port));
  if (ret == 0) {
    ret = m_system.LocalEndpoint(fd, m_local);
  }
  if (ret != 0) {
    m_system.Close(fd);
    return ret;
  }
  m_reserved_fd = fd;
  return 0;
}

void PortListener::Close() {
  EmptyQueue();
  m_listener.Close();
}

void PortListener::SetIgnoring(bool ignore) {
  if (ignore == m_ignoring) {
    return;
  }
  m_ignoring = ignore;
  m_listener.SetAccepting(!ignore);
  if (!IsOpen()) {
    return;
  }
  if (ignore) {
    FillQueue();
  } else {
    EmptyQueue();
    m_system.Listen(m_listener.fd(), TcpListener::kBacklog);
  }
}

void PortListener::FillQueue() {
  m_system.Listen(m_listener.fd(), 0);
  for (int i = 0; i < kFillers; ++i) {
    const int fd = m_system.OpenSocket(Endpoint::Family::kIpv4);
    if (fd >= 0) {
      // Under way, made or refused: each of them keeps a place in the queue or costs nothing.
      static_cast<void>(m_system.Connect(fd, m_local));
      m_fillers.push_back(fd);
    }
  }
}

void PortListener::EmptyQueue() {
  for (const int fd : m_fillers) {
    m_system.Close(fd);
  }
  m_fillers.clear();
}

std::string LoopbackUrl(uint16_t port) { return "tcp://" + Endpoint::Loopback(port).Text(); }

}  // namespace OstrandFleet
