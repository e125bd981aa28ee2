// A listening TCP socket.
//
// Accepts as long as there are descriptors; when they are used up it rests for a moment instead of
// spinning. Ownership: owns its descriptor; borrows the loop. Threads: the loop's.
#pragma once

#include <cstdint>
#include <functional>

#include "common/export.h"
#include "net/address.h"
#include "net/event_loop.h"

namespace OSTRNET {

class OSTRAND_API TcpListener final : private EventHandler {
 public:
  static constexpr int kBacklog = 1024;  // connections that wait to be accepted

  // on_accept takes the descriptor of each new connection and owns it; called in the loop's rounds.
  // It may close or destroy the listener.
  TcpListener(EventLoop& loop, std::function<void(int fd)> on_accept);
  ~TcpListener();
  TcpListener(const TcpListener&) = delete;
  TcpListener& operator=(const TcpListener&) = delete;

  // Listens, instead of where it listened before; port 0: one that is free. 0, or -errno.
  int Listen(const Endpoint& local);
  void Close();
  bool IsOpen() const { return m_fd >= 0; }
  // Not accepting: connections wait in the kernel's queue. As long as the listener lives.
  void SetAccepting(bool accepting);
  // Where it listens; its port is 0 before the first Listen.
  const Endpoint& Local() const { return m_local; }
  int fd() const { return m_fd; }

 private:
  void OnEvents(uint32_t epoll_events) override;
  void UpdateInterest();

  EventLoop& m_loop;
  const std::function<void(int fd)> m_on_accept;
  Timer m_retry;  // set while it rests
  Endpoint m_local;
  int m_fd = -1;
  uint32_t m_watched = 0;  // events
  bool m_accepting = true;
  bool* m_destroyed = nullptr;  // of the handling that goes on
};

}  // namespace OSTRNET
