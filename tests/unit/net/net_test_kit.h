// What the tests of loop and streams share: a listener that notes what it is told, a peer, and a
// world whose clocks and names a test sets.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/forwarding_system.h"
#include "net/event_loop.h"
#include "net/tcp_listener.h"
#include "net/tcp_stream.h"

namespace OSTRNET {

constexpr int64_t kPatienceMs = 20000;

// Rounds until the condition holds; fails the test when it does not in time.
template <typename Condition>
void RunUntil(EventLoop& loop, const Condition& condition) {
  const int64_t until_ms = OstrandCommon::GetMonotonicMilliseconds() + kPatienceMs;
  while (!condition()) {
    ASSERT_LT(OstrandCommon::GetMonotonicMilliseconds(), until_ms) << "waited in vain";
    loop.RunOnce(100);
  }
}

// The kernel's world, in which calls are counted, names are scripted and clocks may be moved.
class TestSystem : public OstrandFakes::ForwardingSystem {
 public:
  int64_t MonotonicNanoseconds() override {
    return (frozen ? frozen_ns : ForwardingSystem::MonotonicNanoseconds()) + ahead_ns;
  }
  int64_t WallMicroseconds() override {
    ++wall_reads;
    return frozen ? wall_us : ForwardingSystem::WallMicroseconds();
  }
  void LookUp(const std::string& host, std::shared_ptr<NameListener> listener) override {
    ++lookups;
    if (on_lookup) {
      on_lookup(host, std::move(listener));
    } else {
      listener->OnAddresses(names[host], names[host].empty() ? "no such name" : nullptr);
    }
  }
  int RaiseEvent(int fd) override {
    ++event_raises;
    return ForwardingSystem::RaiseEvent(fd);
  }
  int SetTimer(int fd, int64_t monotonic_ns) override {
    ++timer_sets;
    return ForwardingSystem::SetTimer(fd, monotonic_ns);
  }
  int PollChange(int poll, int fd, uint32_t events, void* handler) override {
    ++poll_changes;
    return ForwardingSystem::PollChange(poll, fd, events, handler);
  }
  int PollWait(int poll, epoll_event* events, int max_events, int timeout_ms) override {
    ++poll_waits;
    return ForwardingSystem::PollWait(poll, events, max_events, timeout_ms);
  }
  ssize_t Send(int fd, const char* data, size_t len) override {
    ++sends;
    return ForwardingSystem::Send(fd, data, len);
  }
  ssize_t Receive(int fd, char* data, size_t len) override {
    ++receives;
    return ForwardingSystem::Receive(fd, data, len);
  }
  int OpenSocket(Endpoint::Family family) override {
    return socket_error != 0 ? socket_error : ForwardingSystem::OpenSocket(family);
  }
  int Accept(int fd) override {
    ++accepts;
    return accept_error != 0 ? accept_error : ForwardingSystem::Accept(fd);
  }

  bool frozen = false;  // the clocks stand where these say
  int64_t frozen_ns = 1000000000;
  int64_t wall_us = 1700000000000000;
  int64_t ahead_ns = 0;
  std::map<std::string, std::vector<Endpoint>> names;
  std::function<void(const std::string&, std::shared_ptr<NameListener>)> on_lookup;
  int socket_error = 0;
  int accept_error = 0;
  int lookups = 0;
  int wall_reads = 0;
  std::atomic<int> event_raises{0};
  int timer_sets = 0;
  int poll_changes = 0;
  int poll_waits = 0;
  int sends = 0;
  int receives = 0;
  int accepts = 0;
};

// Notes everything and, unless told otherwise, uses all input.
class NotingListener final : public TcpStream::Listener {
 public:
  void OnConnected() override {
    ++connected;
    if (on_connected) {
      on_connected();
    }
  }
  int64_t OnInput(const char* data, size_t len) override {
    ++inputs;
    const int64_t used = on_input ? on_input(data, len) : static_cast<int64_t>(len);
    if (used > 0) {
      input.append(data, static_cast<size_t>(used));
    }
    return used;
  }
  void OnRoom() override {
    ++rooms;
    if (on_room) {
      on_room();
    }
  }
  void OnClosed(const char* reason) override {
    ++closed;
    why = reason;
    if (on_closed) {
      on_closed();
    }
  }

  int connected = 0;
  int inputs = 0;
  int rooms = 0;
  int closed = 0;
  std::string input;
  std::string why;
  std::function<void()> on_connected;
  std::function<int64_t(const char*, size_t)> on_input;
  std::function<void()> on_room;
  std::function<void()> on_closed;
};

inline TcpAddress At(const Endpoint& endpoint) {
  TcpAddress address;
  address.is_numeric = true;
  address.endpoint = endpoint;
  return address;
}

inline TcpAddress Named(const std::string& host, uint16_t port) {
  TcpAddress address;
  address.host = host;
  address.endpoint.port = port;
  return address;
}

// A port on which nobody listens, and nobody will as long as it stands.
class DeadPort {
 public:
  explicit DeadPort(Endpoint::Family family = Endpoint::Family::kIpv4) {
    System& kernel = System::Kernel();
    m_fd = kernel.OpenSocket(family);
    kernel.Bind(m_fd, Endpoint::Loopback(0, family));
    kernel.LocalEndpoint(m_fd, endpoint);
  }
  ~DeadPort() { System::Kernel().Close(m_fd); }
  DeadPort(const DeadPort&) = delete;
  DeadPort& operator=(const DeadPort&) = delete;

  Endpoint endpoint;

 private:
  int m_fd = -1;
};

// A port whose connections are neither made nor refused: its queue is full.
class SilentPort {
 public:
  explicit SilentPort(const Endpoint& local = Endpoint::Loopback(0)) {
    System& kernel = System::Kernel();
    const int listener = kernel.OpenSocket(local.family);
    m_fds.push_back(listener);
    kernel.SetReuseAddress(listener);
    kernel.Bind(listener, local);
    kernel.Listen(listener, 0);
    kernel.LocalEndpoint(listener, endpoint);
    for (int i = 0; i < 2; ++i) {
      m_fds.push_back(kernel.OpenSocket(local.family));
      static_cast<void>(kernel.Connect(m_fds.back(), endpoint));
    }
  }
  ~SilentPort() {
    for (const int fd : m_fds) {
      System::Kernel().Close(fd);
    }
  }
  SilentPort(const SilentPort&) = delete;
  SilentPort& operator=(const SilentPort&) = delete;

  Endpoint endpoint;

 private:
  std::vector<int> m_fds;
};

// A loop with a listening port, a stream towards it, and the streams that it accepted.
class StreamTest : public testing::Test {
 protected:
  StreamTest() { listen_error = listener.Listen(Endpoint::Loopback(0)); }

  // Connects `stream` and takes the other end.
  void Connect() {
    ASSERT_EQ(0, listen_error);
    ASSERT_EQ(0, stream.Connect(At(listener.Local())));
    RunUntil(loop,
             [&] { return told.connected > 0 && peer.GetState() == TcpStream::State::kConnected; });
  }
  template <typename Condition>
  void Until(const Condition& condition) {
    RunUntil(loop, condition);
  }
  // So many rounds that whatever is under way on this machine has happened.
  void SomeRounds() {
    for (int i = 0; i < 20; ++i) {
      loop.RunOnce(1);
    }
  }

  TestSystem system;
  EventLoop loop{system};
  TcpStream::Limits limits;
  NotingListener told;
  NotingListener peer_told;
  TcpStream peer{loop, peer_told, limits};
  int listen_error = 0;
  TcpListener listener{loop, [this](int fd) { peer.Attach(fd); }};
  TcpStream stream{loop, told, limits};
};

}  // namespace OSTRNET
