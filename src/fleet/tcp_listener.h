// A listening socket on loopback, and its port, which nobody else gets while it does not listen. On
// the loop only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fleet/fleet_loop.h"

namespace OstrandFleet {

class TcpListener final : public EventHandler {
 public:
  // on_accept takes the descriptor of each new connection, non-blocking; it is its owner.
  TcpListener(FleetLoop& loop, std::function<void(int fd)> on_accept);
  ~TcpListener();
  TcpListener(const TcpListener&) = delete;
  TcpListener& operator=(const TcpListener&) = delete;

  // Listens on the port that it listened on before; the first time on this one, 0 for one that is
  // free. 0, or -1 with errno when the port cannot be had.
  int Listen(uint16_t port);
  // Connection attempts are refused from now on. The port stays reserved.
  void Close();
  bool IsOpen() const { return m_fd >= 0; }
  // 0 before the first Listen.
  uint16_t port() const { return m_port; }

  // True: connection attempts get no answer any more, as from a machine that is gone. The queue of
  // the socket is made as short as it can be and filled by connections of our own.
  void SetIgnoring(bool ignore);

 private:
  void OnEvents(uint32_t epoll_events) override;
  int Reserve(uint16_t port);
  void FillQueue();
  void EmptyQueue();

  FleetLoop& m_loop;
  const std::function<void(int fd)> m_on_accept;
  Timer m_retry;           // accepts again after descriptors were used up
  int m_reserved_fd = -1;  // bound to the port, never listening
  uint16_t m_port = 0;
  int m_fd = -1;
  bool m_ignoring = false;
  std::vector<int> m_fillers;  // connections that fill the queue
};

// "tcp://127.0.0.1:<port>"
std::string LoopbackUrl(uint16_t port);

}  // namespace OstrandFleet
