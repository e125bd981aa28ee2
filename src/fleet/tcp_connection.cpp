#include "fleet/tcp_connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace OstrandFleet {
namespace {

constexpr size_t kKeptCapacity = 1024 * 1024;  // a buffer that grew larger is given back when empty
constexpr int64_t kMsPerSecond = 1000;

bool IsTemporary(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

void Clear(std::string& buffer) {
  if (buffer.capacity() > kKeptCapacity) {
    std::string().swap(buffer);
  } else {
    buffer.clear();
  }
}

}  // namespace

TcpConnection::TcpConnection(FleetLoop& loop, int fd, Listener& listener, const Limits& limits)
    : m_loop(loop),
      m_listener(listener),
      m_limits(limits),
      m_fd(fd),
      m_room_timer(loop, [this] { HandleInput(); }),
      m_pace_timer(loop, [this] { SendPaced(); }) {}

TcpConnection::~TcpConnection() {
  if (IsOpen()) {
    m_loop.Unwatch(m_fd);
    close(m_fd);
  }
}

void TcpConnection::Start() {
  m_interest = 0;
  if (m_loop.Watch(m_fd, 0, this) != 0) {
    Close();
    return;
  }
  UpdateInterest();
}

void TcpConnection::OnEvents(uint32_t epoll_events) {
  if ((epoll_events & EPOLLOUT) != 0) {
    Flush();
  }
  if (!IsOpen()) {
    return;
  }
  if ((m_interest & epoll_events & EPOLLIN) != 0) {
    Read();
  } else if ((epoll_events & (EPOLLERR | EPOLLHUP)) != 0) {
    Close();
  }
}

void TcpConnection::Read() {
  std::vector<char>& buffer = m_loop.ReadBuffer();
  const ssize_t len = recv(m_fd, buffer.data(), buffer.size(), 0);
  if (len < 0 && IsTemporary(errno)) {
    return;
  }
  if (len <= 0) {
    Close();
    return;
  }
  m_bytes_in += static_cast<uint64_t>(len);
  Take(buffer.data(), static_cast<size_t>(len));
  Flush();
}

void TcpConnection::Take(const char* data, size_t len) {
  if (m_closing) {
    return;
  }
  if (!m_input.empty()) {
    m_input.append(data, len);
    HandleInput();
    return;
  }
  const size_t used = HandOn(data, len);
  if (IsOpen()) {
    m_input.assign(data + used, len - used);
  }
}

void TcpConnection::HandleInput() {
  if (!IsOpen() || m_closing || m_handing_on || m_input.empty()) {
    return;
  }
  const size_t used = HandOn(m_input.data(), m_input.size());
  if (used == m_input.size()) {
    Clear(m_input);
  } else {
    m_input.erase(0, used);
  }
  Flush();
}

size_t TcpConnection::HandOn(const char* data, size_t len) {
  m_handing_on = true;
  const int64_t used = m_listener.OnInput(data, len);
  m_handing_on = false;
  m_waits_for_room = !HasRoom();
  if (used < 0) {
    Close();
    return len;
  }
  return static_cast<size_t>(used);
}

void TcpConnection::Flush() {
  if (!IsOpen()) {
    return;
  }
  if (m_sending && m_pace == 0) {
    SendSome(WaitingOutput());
  } else if (m_sending && WaitingOutput() > 0 && !m_pace_timer.IsSet()) {
    m_pace_timer.SetIn(kMsPerSecond / m_pace);
  }
  if (m_closing && WaitingOutput() == 0) {
    Close();
  }
  if (m_waits_for_room && HasRoom()) {
    m_waits_for_room = false;
    m_room_timer.SetIn(0);  // in the next round: others have their turn
  }
  UpdateInterest();
}

void TcpConnection::SendPaced() {
  SendSome(1);
  Flush();
}

void TcpConnection::SendSome(size_t limit) {
  while (limit > 0 && IsOpen()) {
    const ssize_t len =
        send(m_fd, m_output.data() + m_sent, std::min(limit, WaitingOutput()), MSG_NOSIGNAL);
    if (len < 0 && errno == EINTR) {
      continue;
    }
    if (len < 0 && IsTemporary(errno)) {
      return;
    }
    if (len < 0) {
      Close();
      return;
    }
    limit -= static_cast<size_t>(len);
    DropSent(static_cast<size_t>(len));
  }
}

void TcpConnection::DropSent(size_t len) {
  m_bytes_out += len;
  m_sent += len;
  if (m_sent == m_output.size()) {
    Clear(m_output);
    m_sent = 0;
  } else if (m_sent > m_output.size() / 2) {
    m_output.erase(0, m_sent);
    m_sent = 0;
  }
}

void TcpConnection::Close(CloseKind kind) {
  if (!IsOpen()) {
    return;
  }
  if (kind == CloseKind::kReset) {
    linger at_once{};
    at_once.l_onoff = 1;
    setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  }
  m_loop.Unwatch(m_fd);
  close(m_fd);
  m_fd = -1;
  m_room_timer.Cancel();
  m_pace_timer.Cancel();
  m_listener.OnClosed();
}

void TcpConnection::CloseWhenFlushed() {
  m_closing = true;
  Flush();
}

void TcpConnection::SetReading(bool reading) {
  m_reading = reading;
  UpdateInterest();
}

void TcpConnection::SetSending(bool sending) {
  m_sending = sending;
  Flush();
}

void TcpConnection::SetPace(int64_t bytes_per_second) {
  m_pace = std::clamp<int64_t>(bytes_per_second, 0, kMsPerSecond);
  m_pace_timer.Cancel();
  Flush();
}

void TcpConnection::UpdateInterest() {
  if (!IsOpen()) {
    return;
  }
  const bool wants_input = m_reading && HasRoom() && m_input.size() < m_limits.max_waiting_input;
  const bool wants_room = m_sending && m_pace == 0 && WaitingOutput() > 0;
  const uint32_t interest =
      (wants_input ? uint32_t{EPOLLIN} : 0U) | (wants_room ? uint32_t{EPOLLOUT} : 0U);
  if (interest != m_interest) {
    m_interest = interest;
    m_loop.Rewatch(m_fd, interest, this);
  }
}

}  // namespace OstrandFleet
