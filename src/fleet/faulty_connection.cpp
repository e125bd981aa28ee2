#include "fleet/faulty_connection.h"

#include <algorithm>
#include <new>
#include <utility>

namespace OstrandFleet {
namespace {

using OSTRNET::TcpStream;
using OSTRNET::Transport;

constexpr int64_t kMsPerSecond = 1000;

// Plain TCP that takes no more bytes than it is allowed to.
class PacedTransport final : public Transport {
 public:
  PacedTransport(std::unique_ptr<Transport> plain, size_t& allowance, size_t unlimited)
      : m_plain(std::move(plain)), m_allowance(allowance), m_unlimited(unlimited) {}

  Result Handshake() override { return m_plain->Handshake(); }
  Result Read(char* to, size_t room, size_t& got) override { return m_plain->Read(to, room, got); }
  Result Write(const char* from, size_t len, size_t& sent) override {
    if (m_allowance == 0) {
      return Result::kAgain;
    }
    const Result result = m_plain->Write(from, std::min(len, m_allowance), sent);
    if (result == Result::kDone && m_allowance != m_unlimited) {
      m_allowance -= sent;
    }
    return result;
  }
  void Shutdown() override { m_plain->Shutdown(); }
  bool ReadWantsWrite() const override { return m_plain->ReadWantsWrite(); }
  bool WriteWantsRead() const override { return m_plain->WriteWantsRead(); }
  bool HandshakeWantsWrite() const override { return m_plain->HandshakeWantsWrite(); }
  bool HasInput() const override { return m_plain->HasInput(); }
  const char* ErrorText() const override { return m_plain->ErrorText(); }

 private:
  const std::unique_ptr<Transport> m_plain;
  size_t& m_allowance;
  const size_t m_unlimited;
};

TcpStream::Limits StreamLimits(size_t max_input) {
  TcpStream::Limits limits;
  limits.max_input = max_input;
  limits.max_output = FaultyConnection::kMaxOutput;
  return limits;
}

}  // namespace

FaultyConnection::FaultyConnection(FleetLoop& loop, Listener& listener, const Limits& limits)
    : m_listener(listener),
      m_max_waiting_output(limits.max_waiting_output),
      m_stream(loop.net(), *this, StreamLimits(limits.max_waiting_input),
               [this](OSTRNET::EventLoop& net, int fd, const std::string& host) {
                 return std::unique_ptr<Transport>(new (std::nothrow) PacedTransport(
                     OSTRNET::MakePlainTransport(net, fd, host), m_allowance, kUnlimited));
               }),
      m_pace_timer(loop.net(), [this] { SendPaced(); }) {}

void FaultyConnection::Start(int fd) {
  m_open = true;
  if (m_stream.Attach(fd) != 0) {
    Close();
  }
}

void FaultyConnection::Queue(std::string_view bytes) {
  if (m_stream.Queue(bytes.data(), bytes.size()) == 0) {
    Close();
    return;
  }
  ArmPace();
}

int64_t FaultyConnection::OnInput(const char* data, size_t len) {
  const int64_t used = m_listener.OnInput(data, len);
  if (used < 0) {
    Close();
  }
  if (!m_open) {
    return TcpStream::Listener::kClose;
  }
  UpdateReading();
  return used;
}

void FaultyConnection::OnRoom() {
  UpdateReading();
  m_stream.HandOnAgain();
}

void FaultyConnection::UpdateReading() {
  m_stream.SetReading(m_reading && HasRoom());
  if (!HasRoom()) {
    m_stream.AskForRoom(kMaxOutput - m_max_waiting_output + 1);
  }
}

void FaultyConnection::OnClosed(const char* /*reason*/) { Close(); }

void FaultyConnection::Close(CloseKind kind) {
  if (!m_open) {
    return;
  }
  m_open = false;
  m_pace_timer.Cancel();
  kind == CloseKind::kReset ? m_stream.Reset() : m_stream.Close();
  m_listener.OnClosed();
}

void FaultyConnection::SetReading(bool reading) {
  m_reading = reading;
  UpdateReading();
}

void FaultyConnection::SetSending(bool sending) {
  m_sending = sending;
  UpdateSending();
}

void FaultyConnection::SetPace(int64_t bytes_per_second) {
  m_pace = std::clamp<int64_t>(bytes_per_second, 0, kMsPerSecond);
  m_pace_timer.Cancel();
  UpdateSending();
}

void FaultyConnection::UpdateSending() {
  m_allowance = m_pace == 0 ? kUnlimited : 0;
  m_stream.SetSending(m_sending && m_pace == 0);
  ArmPace();
}

void FaultyConnection::ArmPace() {
  if (m_open && m_sending && m_pace > 0 && m_stream.OutputSize() > 0 && !m_pace_timer.IsSet()) {
    m_pace_timer.SetIn(kMsPerSecond / m_pace);
  }
}

void FaultyConnection::SendPaced() {
  m_allowance = 1;
  m_stream.SetSending(m_sending);
  m_allowance = 0;
  m_stream.SetSending(false);  // or it would wait for a socket that has room all the time
  ArmPace();
}

}  // namespace OstrandFleet
