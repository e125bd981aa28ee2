#include "net/kernel_system.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "common/clock.h"
#include "common/host_name.h"
#include "net/kernel_resolver.h"
#include "net/socket_address.h"

namespace OSTRNET {
namespace {

constexpr int64_t kNsPerSecond = 1000000000;

template <typename T>
T OrError(T ret) {
  return ret < 0 ? static_cast<T>(-errno) : ret;
}

// A new descriptor, or -errno. 0, 1 and 2 belong to the program, also when it has closed them: what
// it then prints must not go to a peer.
int AwayFromStandard(int fd) {
  if (fd < 0) {
    return -errno;
  }
  if (fd > STDERR_FILENO) {
    return fd;
  }
  const int moved = OrError(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  close(fd);
  return moved;
}

int SetOption(int fd, int level, int option, int value) {
  return OrError(setsockopt(fd, level, option, &value, sizeof(value)));
}

int EndpointOf(int (*ask)(int, sockaddr*, socklen_t*), int fd, Endpoint& endpoint) {
  sockaddr_storage address{};
  socklen_t len = sizeof(address);
  if (ask(fd, reinterpret_cast<sockaddr*>(&address), &len) != 0) {
    return -errno;
  }
  return FromSocketAddress(reinterpret_cast<const sockaddr*>(&address), endpoint) ? 0
                                                                                  : -EAFNOSUPPORT;
}

// While it stands, writing to a pipe that nobody reads raises no SIGPIPE on this thread.
class NoSigpipe {
 public:
  NoSigpipe() {
    sigset_t pending;
    sigpending(&pending);
    m_was_pending = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&m_sigpipe);
    sigaddset(&m_sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_before);
  }
  ~NoSigpipe() {
    const timespec at_once{};
    while (!m_was_pending && sigtimedwait(&m_sigpipe, nullptr, &at_once) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
  }
  NoSigpipe(const NoSigpipe&) = delete;
  NoSigpipe& operator=(const NoSigpipe&) = delete;

 private:
  sigset_t m_sigpipe{};
  sigset_t m_before{};
  bool m_was_pending = false;
};

}  // namespace

// Never destroyed: loops of static objects may use it until the process is gone.
System& System::Kernel() {
  static System& kernel = *new KernelSystem;
  return kernel;
}

int KernelSystem::OpenSocket(Endpoint::Family family) {
  return AwayFromStandard(socket(family == Endpoint::Family::kIpv4 ? AF_INET : AF_INET6,
                                 SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

int KernelSystem::Close(int fd) { return OrError(close(fd)); }

int KernelSystem::Connect(int fd, const Endpoint& peer) {
  sockaddr_storage address;
  const socklen_t len = ToSocketAddress(peer, address);
  const int ret = OrError(connect(fd, reinterpret_cast<const sockaddr*>(&address), len));
  return ret == -EINTR ? -EINPROGRESS : ret;  // interrupted, the attempt goes on
}

int KernelSystem::SocketError(int fd) {
  int error = 0;
  socklen_t len = sizeof(error);
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0 ? -errno : -error;
}

int KernelSystem::Bind(int fd, const Endpoint& local) {
  sockaddr_storage address;
  const socklen_t len = ToSocketAddress(local, address);
  return OrError(bind(fd, reinterpret_cast<const sockaddr*>(&address), len));
}

int KernelSystem::Listen(int fd, int backlog) { return OrError(listen(fd, backlog)); }

int KernelSystem::Accept(int fd) {
  return AwayFromStandard(accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

int KernelSystem::LocalEndpoint(int fd, Endpoint& local) {
  return EndpointOf(&getsockname, fd, local);
}

int KernelSystem::PeerEndpoint(int fd, Endpoint& peer) {
  return EndpointOf(&getpeername, fd, peer);
}

int KernelSystem::SetNoDelay(int fd) { return SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1); }

int KernelSystem::SetReuseAddress(int fd) { return SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1); }

int KernelSystem::SetResetOnClose(int fd) {
  linger at_once{};
  at_once.l_onoff = 1;
  return OrError(setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once)));
}

ssize_t KernelSystem::Send(int fd, const char* data, size_t len) {
  ssize_t sent = 0;
  do {
    sent = OrError(send(fd, data, len, MSG_NOSIGNAL));
  } while (sent == -EINTR);
  return sent;
}

ssize_t KernelSystem::Receive(int fd, char* data, size_t len) {
  ssize_t got = 0;
  do {
    got = OrError(recv(fd, data, len, 0));
  } while (got == -EINTR);
  return got;
}

int KernelSystem::OpenPoll() { return AwayFromStandard(epoll_create1(EPOLL_CLOEXEC)); }

int KernelSystem::PollAdd(int poll, int fd, uint32_t events, void* handler) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = handler;
  return OrError(epoll_ctl(poll, EPOLL_CTL_ADD, fd, &event));
}

int KernelSystem::PollChange(int poll, int fd, uint32_t events, void* handler) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = handler;
  return OrError(epoll_ctl(poll, EPOLL_CTL_MOD, fd, &event));
}

int KernelSystem::PollRemove(int poll, int fd) {
  epoll_event unused{};
  return OrError(epoll_ctl(poll, EPOLL_CTL_DEL, fd, &unused));
}

int KernelSystem::PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) {
  const int count = OrError(epoll_wait(poll, events, max_events, timeout_ms));
  return count == -EINTR ? 0 : count;
}

int KernelSystem::OpenEvent() { return AwayFromStandard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)); }

int KernelSystem::RaiseEvent(int fd) {
  const uint64_t one = 1;
  while (write(fd, &one, sizeof(one)) < 0) {
    if (errno != EINTR) {
      return errno == EAGAIN ? 0 : -errno;  // full: it is raised
    }
  }
  return 0;
}

int KernelSystem::ClearEvent(int fd) {
  uint64_t count = 0;
  while (read(fd, &count, sizeof(count)) < 0) {
    if (errno != EINTR) {
      return errno == EAGAIN ? 0 : -errno;  // it was not raised
    }
  }
  return 0;
}

int KernelSystem::OpenTimer() {
  return AwayFromStandard(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
}

int KernelSystem::SetTimer(int fd, int64_t monotonic_ns) {
  itimerspec at{};
  at.it_value.tv_sec = static_cast<time_t>(monotonic_ns / kNsPerSecond);
  at.it_value.tv_nsec = static_cast<long>(monotonic_ns % kNsPerSecond);
  return OrError(timerfd_settime(fd, TFD_TIMER_ABSTIME, &at, nullptr));
}

int64_t KernelSystem::MonotonicNanoseconds() { return OstrandCommon::GetMonotonicNanoseconds(); }

// Not that of common/clock.h, which answers the time that is made from this one.
int64_t KernelSystem::WallMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + static_cast<int64_t>(now.tv_nsec) / 1000;
}

uint64_t KernelSystem::RandomNumber() {
  uint64_t number = 0;
  while (getrandom(&number, sizeof(number), 0) < 0) {
    if (errno != EINTR) {  // forbidden to the process: at least no two alike
      return static_cast<uint64_t>(MonotonicNanoseconds()) * 0x9E3779B97F4A7C15U;
    }
  }
  return number;
}

void KernelSystem::LookUp(const std::string& host, std::shared_ptr<NameListener> listener) {
  KernelResolver::Instance().LookUp(host, listener);
}

int KernelSystem::HostName(char* name, size_t size) {
  errno = 0;
  if (OstrandCommon::GetHostName(name, size) == 0 || errno == ENAMETOOLONG) {
    return 0;
  }
  return errno != 0 ? -errno : -EINVAL;
}

// A reader that does not read must not hold the loop up: a piece that a pipe takes at once, or
// nothing.
ssize_t KernelSystem::WriteLog(const char* text, size_t len) {
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  if (poll(&room, 1, 0) == 0) {
    return -EAGAIN;
  }
  const NoSigpipe scope;
  ssize_t written = 0;
  do {
    written = OrError(write(STDERR_FILENO, text, std::min<size_t>(len, PIPE_BUF)));
  } while (written == -EINTR);
  return written;
}

}  // namespace OSTRNET
