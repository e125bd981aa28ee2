// The way of a stream from an address to an open connection.

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <new>
#include <utility>

#include "net/name_lookup.h"
#include "net/tcp_stream.h"

namespace OSTRNET {
namespace {

// Of the process or the machine, not of the peer: another address would fare no better.
bool IsOutOfResources(int error) {
  return error == -EMFILE || error == -ENFILE || error == -ENOBUFS || error == -ENOMEM;
}

}  // namespace

int TcpStream::Connect(const TcpAddress& address) try {
  if (m_state != State::kClosed) {
    return 0;
  }
  m_address = address;
  BeginConnecting();
  if (!address.is_numeric) {
    m_phase = Phase::kLookingUp;
    m_timer.SetAt(m_connect_until_ms);
    m_lookup = NameLookup::Start(m_loop, address.host,
                                 [this](std::vector<Endpoint> addresses, const char* error) {
                                   OnAddresses(std::move(addresses), error);
                                 });
    return 0;
  }
  m_addresses.push_back(address.endpoint);
  const int ret = TryNextAddress();
  if (IsOutOfResources(ret)) {
    Release();
    return ret;
  }
  if (ret != 0) {
    Defer(kDueFailure);
  }
  return 0;
} catch (const std::bad_alloc&) {
  SetError("connect", -ENOMEM);
  Release();
  return -ENOMEM;
}

int TcpStream::Attach(int fd) {
  assert(m_state == State::kClosed);
  BeginConnecting();
  System& system = m_loop.Sys();
  system.SetNoDelay(fd);
  system.PeerEndpoint(fd, m_peer);  // of a peer that is gone already reading tells
  m_fd = fd;
  m_address = TcpAddress();
  m_transport = m_make_transport(m_loop, fd, m_address.host);
  m_watched = EPOLLIN;
  const int ret = m_transport != nullptr ? m_loop.Watch(fd, m_watched, this) : -ENOMEM;
  if (ret != 0) {
    SetError("accept", ret);
    Release();
    return ret;
  }
  m_phase = Phase::kHandshaking;
  const Transport::Result result = m_transport->Handshake();
  if (result == Transport::Result::kDone) {
    m_phase = Phase::kOpen;
    m_state = State::kConnected;
    Defer(kDueConnected);
    UpdateInterest();
    if (m_transport->HasInput()) {
      Defer(kDueInput);
    }
  } else if (result == Transport::Result::kAgain) {
    m_timer.SetAt(m_connect_until_ms);
    UpdateInterest();
  } else {
    SetErrorText(result == Transport::Result::kFailed ? m_transport->ErrorText()
                                                      : "handshake: closed by the peer");
    Defer(kDueFailure);
  }
  return 0;
}

void TcpStream::BeginConnecting() {
  m_loop.LookAtClockOutsideRounds();
  m_connect_until_ms = m_loop.NowMs() + m_limits.connect_timeout_ms;
  m_state = State::kConnecting;
  m_phase = Phase::kConnecting;
}

void TcpStream::OnAddresses(std::vector<Endpoint> addresses, const char* error) {
  m_lookup.reset();
  if (error != nullptr) {
    std::snprintf(m_error, sizeof(m_error), "look up: %s", error);
    End();
    return;
  }
  m_addresses = std::move(addresses);
  for (Endpoint& endpoint : m_addresses) {
    endpoint.port = m_address.endpoint.port;
  }
  TryAddresses();
}

// Begins with the next address, which gets its share of the time that is left. 0, or -errno.
int TcpStream::TryNextAddress() {
  const auto left = static_cast<int64_t>(m_addresses.size() - m_next_address);
  m_peer = m_addresses[m_next_address++];
  m_phase = Phase::kConnecting;
  System& system = m_loop.Sys();
  const int fd = system.OpenSocket(m_peer.family);
  if (fd < 0) {
    SetError("socket", fd);
    return fd;
  }
  system.SetNoDelay(fd);
  int ret = system.Connect(fd, m_peer);
  if (ret == 0 || ret == -EINPROGRESS) {
    m_watched = EPOLLOUT;
    ret = m_loop.Watch(fd, m_watched, this);
  }
  if (ret != 0) {
    SetError("connect", ret);
    system.Close(fd);
    return ret;
  }
  m_fd = fd;
  m_timer.SetIn(std::max<int64_t>((m_connect_until_ms - m_loop.NowMs()) / left, 1));
  return 0;
}

void TcpStream::TryAddresses() {
  while (m_next_address < m_addresses.size() && m_loop.NowMs() < m_connect_until_ms) {
    if (TryNextAddress() == 0) {
      return;
    }
  }
  End();
}

// m_error says why.
void TcpStream::EndAttempt() {
  if (m_phase == Phase::kConnecting || m_phase == Phase::kHandshaking) {
    ReleaseSocket();
    TryAddresses();
  } else {
    End();
  }
}

void TcpStream::FinishConnect() {
  if (IsBroken()) {
    return;
  }
  const int error = m_loop.Sys().SocketError(m_fd);
  if (error != 0) {
    SetError("connect", error);
    EndAttempt();
    return;
  }
  if (IsConnectedToItself()) {
    SetErrorText("connect: connected to itself");
    m_loop.Sys().SetResetOnClose(m_fd);  // else the port would be taken for a while
    EndAttempt();
    return;
  }
  m_transport = m_make_transport(m_loop, m_fd, m_address.host);
  if (m_transport == nullptr) {
    SetError("connect", -ENOMEM);
    EndAttempt();
    return;
  }
  m_phase = Phase::kHandshaking;
  ContinueHandshake();
}

bool TcpStream::IsConnectedToItself() const {
  Endpoint local;
  if (m_loop.Sys().LocalEndpoint(m_fd, local) != 0 || local.port != m_peer.port) {
    return false;
  }
  Endpoint peer;
  return m_loop.Sys().PeerEndpoint(m_fd, peer) == 0 && local == peer;
}

void TcpStream::ContinueHandshake() {
  if (IsBroken()) {
    return;
  }
  const Transport::Result result = m_transport->Handshake();
  if (result == Transport::Result::kAgain) {
    UpdateInterest();
    return;
  }
  if (result != Transport::Result::kDone) {
    SetErrorText(result == Transport::Result::kFailed ? m_transport->ErrorText()
                                                      : "handshake: closed by the peer");
    EndAttempt();
    return;
  }
  m_timer.Cancel();
  m_addresses.clear();
  m_next_address = 0;
  m_phase = Phase::kOpen;
  m_state = State::kConnected;
  UpdateInterest();
  if (m_transport->HasInput()) {
    Defer(kDueInput);
  }
  m_listener.OnConnected();
}

}  // namespace OSTRNET
