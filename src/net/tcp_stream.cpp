#include "net/tcp_stream.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "net/name_lookup.h"

namespace OSTRNET {
namespace {

constexpr int64_t kSendRestMs = 3000;
constexpr uint32_t kFailureEvents = uint32_t{EPOLLERR} | uint32_t{EPOLLHUP};
// Kept input up to this size is copied in front of what is read; more of it is read after it where
// it lies.
constexpr size_t kMaxCopied = EventLoop::kReadBufferSize / 2;

}  // namespace

TcpStream::Life::Life(TcpStream& stream)
    : m_stream(stream), m_connection(stream.m_connection), m_outer(stream.m_life) {
  stream.m_life = this;
}

TcpStream::Life::~Life() {
  if (!m_gone) {
    m_stream.m_life = m_outer;
  }
}

TcpStream::TcpStream(EventLoop& loop, Listener& listener, const Limits& limits,
                     TransportFactory make_transport)
    : m_loop(loop),
      m_listener(listener),
      m_limits(limits),
      m_make_transport(std::move(make_transport)),
      m_timer(loop, [this] { OnTimer(); }),
      m_due_handler(*this) {}

TcpStream::~TcpStream() {
  Release();
  for (Life* life = m_life; life != nullptr; life = life->m_outer) {
    life->m_gone = true;
  }
}

void TcpStream::OnEvents(uint32_t epoll_events) {
  switch (m_phase) {
    case Phase::kConnecting: FinishConnect(); return;
    case Phase::kHandshaking: ContinueHandshake(); return;
    case Phase::kOpen:
    case Phase::kSendingRest:
      if (TellConnected()) {
        OnOpenEvents(epoll_events);
      }
      return;
    case Phase::kIdle:
    case Phase::kLookingUp: return;
  }
}

// Whether the connection goes on.
bool TcpStream::TellConnected() {
  if ((m_due & kDueConnected) == 0) {
    return true;
  }
  m_due &= ~uint32_t{kDueConnected};
  const Life life(*this);
  m_listener.OnConnected();
  return life.GoesOn();
}

void TcpStream::Defer(Due due) {
  m_due |= due;
  if (!m_due_asked) {
    m_due_asked = true;
    m_loop.EventsAgain(&m_due_handler);
  }
}

void TcpStream::RunDue() {
  m_due_asked = false;
  if (!TellConnected()) {
    return;
  }
  const uint32_t due = std::exchange(m_due, 0);
  if ((due & kDueFailure) != 0) {
    EndAttempt();
    return;
  }
  if ((due & kDueSent) != 0) {
    DropInput();  // or closing would tell the peer of a broken connection
    SetErrorText("closed when all was sent");
    End();
    return;
  }
  if (m_phase != Phase::kOpen) {
    return;
  }
  const Life life(*this);
  if ((due & kDueRoom) != 0 && m_room_asked != 0 && OutputRoom() >= m_room_asked) {
    m_room_asked = 0;
    m_listener.OnRoom();
  }
  if (life.GoesOn() && m_phase == Phase::kOpen && (due & kDueHandOn) != 0) {
    HandOnKept();
  }
  if (life.GoesOn() && m_phase == Phase::kOpen && (due & kDueInput) != 0 && WantsInput()) {
    ReadSome();
  }
  if (life.GoesOn()) {
    UpdateInterest();
  }
}

void TcpStream::OnOpenEvents(uint32_t epoll_events) {
  const Life life(*this);
  const bool failed = (epoll_events & kFailureEvents) != 0;
  const uint32_t write_event = m_transport->WriteWantsRead() ? EPOLLIN : EPOLLOUT;
  if (m_write_blocked && m_sending && (failed || (epoll_events & write_event) != 0)) {
    m_write_blocked = false;
    SendSome();
  }
  const uint32_t read_event = m_transport->ReadWantsWrite() ? EPOLLOUT : EPOLLIN;
  if (WantsInput()) {
    if (failed || (epoll_events & read_event) != 0) {
      ReadSome();
    }
  } else if (failed && !IsBroken()) {
    const int error = m_loop.Sys().SocketError(m_fd);
    if (error != 0) {
      SetError("receive", error);
    } else {
      SetErrorText("closed by the peer");
    }
    End();
  }
  if (life.GoesOn()) {
    UpdateInterest();
  }
}

bool TcpStream::WantsInput() const {
  return m_phase == Phase::kSendingRest
             ? !m_peer_has_ended
             : m_phase == Phase::kOpen && m_reading && m_input.size() < m_limits.max_input;
}

uint32_t TcpStream::WantedEvents() const {
  if (m_phase == Phase::kHandshaking) {
    return m_transport->HandshakeWantsWrite() ? EPOLLOUT : EPOLLIN;
  }
  uint32_t events = 0;
  if (WantsInput()) {
    events |= m_transport->ReadWantsWrite() ? EPOLLOUT : EPOLLIN;
  }
  if (m_write_blocked && m_sending) {
    events |= m_transport->WriteWantsRead() ? EPOLLIN : EPOLLOUT;
  }
  return events;
}

void TcpStream::UpdateInterest() {
  if (m_transport == nullptr) {
    return;
  }
  const uint32_t wanted = WantedEvents();
  if (wanted != m_watched) {
    m_watched = wanted;
    m_loop.Rewatch(m_fd, wanted, this);
  }
}

// One read a round: what more there is comes with the next one, so that one peer cannot starve the
// others.
void TcpStream::ReadSome() {
  if (m_phase == Phase::kSendingRest) {
    DropInput();
    return;
  }
  char* const shared = m_loop.ReadBuffer();
  const size_t kept = m_input.size();
  const size_t room = std::min(m_limits.max_input - kept,
                               kept > kMaxCopied ? kMaxCopied : EventLoop::kReadBufferSize - kept);
  if (kept > kMaxCopied) {
    char* const to = m_input.Prepare(room);
    if (to == nullptr) {
      SetError("receive", -ENOMEM);
      End();
      return;
    }
    size_t got = 0;
    const Transport::Result result = m_transport->Read(to, room, got);
    if (result != Transport::Result::kDone) {
      OnReadEnd(result);
      return;
    }
    m_input.Commit(got);
    m_bytes_in += got;
    HandOnKept();
    return;
  }
  size_t got = 0;
  const Transport::Result result = m_transport->Read(shared + kept, room, got);
  if (result != Transport::Result::kDone) {
    OnReadEnd(result);
    return;
  }
  m_bytes_in += got;
  if (kept != 0) {
    std::memcpy(shared, m_input.data(), kept);
    m_input.Clear();
  }
  HandOn(shared, kept + got);
}

// data: not in m_input, which is empty.
void TcpStream::HandOn(const char* data, size_t len) {
  const Life life(*this);
  const int64_t used = m_listener.OnInput(data, len);
  if (!life.GoesOn()) {
    return;
  }
  if (used == Listener::kClose) {
    Close();
    return;
  }
  assert(used >= 0 && static_cast<size_t>(used) <= len);
  const size_t rest = len - static_cast<size_t>(used);
  if (m_phase == Phase::kOpen && rest != 0 && !m_input.Append(data + used, rest)) {
    SetError("receive", -ENOMEM);
    End();
    return;
  }
  if (m_transport->HasInput()) {
    Defer(kDueInput);
  }
}

// The bytes are the call's own meanwhile: the listener may destroy the stream and still use them.
void TcpStream::HandOnKept() {
  if (m_input.empty()) {
    return;
  }
  ByteBuffer kept;
  kept.Swap(m_input);
  const Life life(*this);
  const int64_t used = m_listener.OnInput(kept.data(), kept.size());
  if (!life.GoesOn()) {
    return;
  }
  if (used == Listener::kClose) {
    Close();
    return;
  }
  assert(used >= 0 && static_cast<size_t>(used) <= kept.size());
  kept.TakeFront(static_cast<size_t>(used));
  if (m_phase == Phase::kOpen) {
    m_input.Swap(kept);
  }
  if (m_transport->HasInput()) {
    Defer(kDueInput);
  }
}

void TcpStream::OnReadEnd(Transport::Result result) {
  if (result == Transport::Result::kAgain) {
    return;
  }
  if (result == Transport::Result::kFailed) {
    SetErrorText(m_transport->ErrorText());
  } else {
    if (!m_write_blocked && m_sending) {
      SendSome();  // it may have ended its half alone
    }
    SetErrorText(m_input.empty() ? "closed by the peer" : "closed by the peer inside a frame");
  }
  End();
}

void TcpStream::DropInput() {
  size_t got = 0;
  const Transport::Result result =
      m_transport->Read(m_loop.ReadBuffer(), EventLoop::kReadBufferSize, got);
  if (result == Transport::Result::kDone) {
    m_bytes_in += got;
    if (m_transport->HasInput()) {
      Defer(kDueInput);
    }
  } else if (result == Transport::Result::kClosed) {
    m_peer_has_ended = true;
  } else if (result == Transport::Result::kFailed && m_phase == Phase::kSendingRest) {
    SetErrorText(m_transport->ErrorText());
    m_peer_has_ended = true;
    Defer(kDueFailure);
  }
}

int TcpStream::Queue(const char* data, size_t len) {
  if (m_phase != Phase::kOpen || IsBroken()) {
    return -1;
  }
  if (len > OutputRoom()) {
    AskForRoom(m_limits.max_output / 2);
    return 0;
  }
  if (!m_output.Append(data, len)) {
    return -1;
  }
  if (!m_write_blocked) {
    m_loop.FlushLater(this);
  }
  return 1;
}

size_t TcpStream::OutputRoom() const {
  return m_limits.max_output - std::min(m_limits.max_output, m_output.size());
}

void TcpStream::Flush() {
  if ((m_phase == Phase::kOpen || m_phase == Phase::kSendingRest) && m_sending &&
      !m_write_blocked && !m_output.empty()) {
    SendSome();
    UpdateInterest();
  }
}

void TcpStream::SendSome() {
  while (!m_output.empty()) {
    size_t sent = 0;
    const Transport::Result result = m_transport->Write(m_output.data(), m_output.size(), sent);
    if (result == Transport::Result::kAgain) {
      m_write_blocked = true;
      break;
    }
    if (result != Transport::Result::kDone) {
      SetErrorText(result == Transport::Result::kFailed ? m_transport->ErrorText()
                                                        : "send: closed by the peer");
      m_output.Clear();
      Defer(kDueFailure);
      return;
    }
    m_output.TakeFront(sent);
    m_bytes_out += sent;
  }
  if (m_room_asked != 0 && OutputRoom() >= m_room_asked) {
    Defer(kDueRoom);
  }
  if (m_phase == Phase::kSendingRest && m_output.empty()) {
    Defer(kDueSent);
  }
}

void TcpStream::SetReading(bool reading) {
  m_reading = reading;
  if (m_phase == Phase::kOpen) {
    UpdateInterest();
  }
  if (m_phase == Phase::kOpen && reading && m_transport->HasInput()) {
    Defer(kDueInput);
  }
}

void TcpStream::SetSending(bool sending) {
  m_sending = sending;
  m_write_blocked = m_write_blocked && !sending;  // what it waits for may have come meanwhile
  Flush();
  if (m_phase == Phase::kOpen || m_phase == Phase::kSendingRest) {
    UpdateInterest();
  }
}

void TcpStream::AskForRoom(size_t room) {
  m_room_asked = std::max<size_t>(room, 1);
  if (m_phase == Phase::kOpen && OutputRoom() >= m_room_asked) {
    Defer(kDueRoom);
  }
}

void TcpStream::HandOnAgain() {
  if (m_phase == Phase::kOpen) {
    Defer(kDueHandOn);
  }
}

void TcpStream::Close() { Release(); }

void TcpStream::CloseWhenSent() {
  if (m_phase == Phase::kIdle || m_phase == Phase::kSendingRest) {
    return;
  }
  if (m_phase != Phase::kOpen) {
    ReleaseSocket();
    m_addresses.clear();  // none is tried any more
    m_next_address = 0;
    SetErrorText("closed before it was connected");
    Defer(kDueFailure);
    return;
  }
  m_phase = Phase::kSendingRest;
  m_input.Clear();
  m_loop.LookAtClockOutsideRounds();
  m_timer.SetIn(kSendRestMs);
  if (m_output.empty()) {
    Defer(kDueSent);
  }
  UpdateInterest();
}

void TcpStream::Reset() {
  if (m_fd >= 0) {
    m_loop.Sys().SetResetOnClose(m_fd);
  }
  m_transport.reset();  // which takes no leave
  Release();
}

void TcpStream::OnTimer() {
  if (m_phase == Phase::kSendingRest) {
    SetErrorText("closed before all was sent");
    End();
    return;
  }
  SetErrorText(m_phase == Phase::kLookingUp     ? "look up: timed out"
               : m_phase == Phase::kHandshaking ? "handshake: timed out"
                                                : "connect: timed out");
  EndAttempt();
}

void TcpStream::SetError(const char* operation, int error) {
  std::snprintf(m_error, sizeof(m_error), "%s: %s", operation, std::strerror(-error));
}

void TcpStream::SetErrorText(const char* text) {
  std::snprintf(m_error, sizeof(m_error), "%s", text);
}

// Closes and tells the listener why, as m_error says. Only from the loop's rounds.
void TcpStream::End() {
  Release();
  char reason[sizeof(m_error)];
  std::memcpy(reason, m_error, sizeof(reason));
  m_listener.OnClosed(reason);  // it may destroy the stream, and m_error with it
}

void TcpStream::Release() {
  ReleaseSocket();
  ++m_connection;
  m_state = State::kClosed;
  m_phase = Phase::kIdle;
  m_due = 0;
  if (std::exchange(m_due_asked, false)) {
    m_loop.ForgetEventsAgain(&m_due_handler);
  }
  m_loop.ForgetFlush(this);
  m_input.Clear();
  m_output.Clear();
  m_write_blocked = false;
  m_room_asked = 0;
  m_peer_has_ended = false;
  m_addresses.clear();
  m_next_address = 0;
}

// Gives up what the connection, or the attempt, has of the system.
void TcpStream::ReleaseSocket() {
  m_timer.Cancel();
  if (m_lookup != nullptr) {
    m_lookup->Forget();
    m_lookup.reset();
  }
  if (m_transport != nullptr && m_state == State::kConnected && !m_loop.IsAbandoned()) {
    m_transport->Shutdown();
  }
  m_transport.reset();
  if (m_fd >= 0) {
    m_loop.Unwatch(m_fd, this);
    m_loop.Sys().Close(m_fd);
    m_fd = -1;
    m_watched = 0;
  }
}

}  // namespace OSTRNET
