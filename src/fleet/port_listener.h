// A listening socket on loopback, and its port, which nobody else gets while it does not listen. On
// the loop only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fleet/fleet_loop.h"
#include "net/tcp_listener.h"

namespace OstrandFleet {

class PortListener final {
 public:
  // on_accept takes the descriptor of each new connection, non-blocking; it is its owner.
  PortListener(FleetLoop& loop, std::function<void(int fd)> on_accept);
  ~PortListener();
  PortListener(const PortListener&) = delete;
  PortListener& operator=(const PortListener&) = delete;

  // Listens on the port that it listened on before; the first time on this one, 0 for one that is
  // free. 0, or -1 with errno when the port cannot be had.
  int Listen(uint16_t port);
  // Connection attempts are refused from now on. The port stays reserved.
  void Close();
  bool IsOpen() const { return m_listener.IsOpen(); }
  // 0 before the first Listen.
  uint16_t port() const { return m_local.port; }

  // True: connection attempts get no answer any more, as from a machine that is gone. The queue of
  // the socket is made as short as it can be and filled by connections of our own.
  void SetIgnoring(bool ignore);

 private:
  int Reserve(uint16_t port);
  void FillQueue();
  void EmptyQueue();

  OSTRNET::System& m_system;
  OSTRNET::TcpListener m_listener;
  int m_reserved_fd = -1;  // bound to the port, never listening
  OSTRNET::Endpoint m_local;
  bool m_ignoring = false;
  std::vector<int> m_fillers;  // connections that fill the queue
};

// "tcp://127.0.0.1:<port>"
std::string LoopbackUrl(uint16_t port);

}  // namespace OstrandFleet
