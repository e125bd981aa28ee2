#include "fleet/fleet_proxy.h"

#include <algorithm>
#include <utility>

namespace OstrandFleet {
namespace {

// The beginning of an answer that never comes whole: the first bytes of a head.
constexpr char kFrameBegin[] = "\x4F\x54\x00\x7F\x00\x00\x00\x52\x00\x00\x00\x08\x00\x00\x00\x00";
constexpr size_t kFrameBeginLen = sizeof(kFrameBegin) - 1;

}  // namespace

FleetProxy::FleetProxy(SessionContext& context, size_t index, ProxySettings settings,
                       std::function<void()> on_state_change)
    : m_context(context),
      m_settings(std::move(settings)),
      m_on_state_change(std::move(on_state_change)),
      m_record{index, {}, {}},
      m_listener(context.loop, [this](int fd) { OnAccept(fd); }),
      m_ask_timer(context.loop.net(), [this] { AskSessions(); }),
      m_linger_timer(context.loop.net(), [this] { Finish(); }) {
  m_record.misbehaviour.random.seed(m_settings.random_seed + static_cast<uint32_t>(index));
}

FleetProxy::~FleetProxy() = default;

int FleetProxy::Start() {
  if (m_listener.IsOpen()) {
    return 0;
  }
  if (m_listener.Listen(m_settings.port) != 0) {
    return -1;
  }
  SetState(ProxyState::kRunning);
  return 0;
}

void FleetProxy::Kill() {
  m_ask_timer.Cancel();
  m_linger_timer.Cancel();
  m_listener.Close();
  SetState(ProxyState::kDown);
  CloseConnections(CloseKind::kOrderly);
}

void FleetProxy::AskToStop() {
  if (m_state == ProxyState::kRunning) {
    SetState(ProxyState::kStopping);
    AskSessions();
  }
}

void FleetProxy::CancelStop() {
  if (m_state != ProxyState::kStopping) {
    return;
  }
  m_ask_timer.Cancel();
  m_linger_timer.Cancel();
  for (ProxySession* session : Sessions()) {
    session->ForgetStop();
  }
  SetState(ProxyState::kRunning);
}

void FleetProxy::SetFaults(const ProxyFaults& faults) {
  m_record.misbehaviour.faults = faults;
  m_listener.SetIgnoring(faults.ignore_connects);
  for (ProxySession* session : Sessions()) {
    session->ApplyFaults();
  }
}

void FleetProxy::CloseConnections(CloseKind kind) {
  for (ProxySession* session : Sessions()) {
    session->connection().Close(kind);
  }
}

void FleetProxy::CloseInsideFrame() {
  for (ProxySession* session : Sessions()) {
    session->connection().Queue({kFrameBegin, kFrameBeginLen});
    session->connection().CloseWhenFlushed();
  }
}

void FleetProxy::SendBytes(std::string_view bytes) {
  for (ProxySession* session : Sessions()) {
    session->connection().Queue(bytes);
    session->connection().Flush();
  }
}

ProxyCounters FleetProxy::Counters() const {
  ProxyCounters counters = m_record.counters;
  for (ProxySession* session : Sessions()) {
    counters.bytes_in += session->connection().bytes_in();
    counters.bytes_out += session->connection().bytes_out();
  }
  return counters;
}

std::string FleetProxy::Url() const {
  return m_listener.port() == 0 ? std::string() : LoopbackUrl(m_listener.port());
}

void FleetProxy::OnAccept(int fd) {
  if (m_sessions.size() >= m_settings.options.max_connections) {
    m_context.loop.net().Sys().Close(fd);
    return;
  }
  ProxySession::Owner& owner = *this;
  auto session = std::make_unique<ProxySession>(m_context, m_record, owner);
  ProxySession* const key = session.get();
  m_sessions.emplace(key, std::move(session));
  key->Start(fd);
}

void FleetProxy::OnSessionClosed(ProxySession& session) {
  const auto place = m_sessions.find(&session);
  m_context.loop.DeleteLater(std::move(place->second));
  m_sessions.erase(place);
  OnSessionChanged();
}

void FleetProxy::OnSessionChanged() {
  if (m_state != ProxyState::kStopping || m_linger_timer.IsSet()) {
    return;
  }
  if (MayStop()) {
    m_ask_timer.Cancel();
    m_linger_timer.SetIn(m_settings.options.stop_linger_ms);
  }
}

std::vector<ProxySession*> FleetProxy::Sessions() const {
  std::vector<ProxySession*> sessions;
  for (const auto& session : m_sessions) {
    sessions.push_back(session.first);
  }
  return sessions;
}

void FleetProxy::AskSessions() {
  for (ProxySession* session : Sessions()) {
    if (session->is_signed_up()) {
      session->AskToStop();
    }
  }
  m_ask_timer.SetIn(m_settings.options.stop_ask_interval_ms);
  OnSessionChanged();
}

bool FleetProxy::MayStop() const {
  return std::all_of(m_sessions.begin(), m_sessions.end(), [](const auto& session) {
    return !session.first->is_signed_up() || session.first->allows_stop();
  });
}

// A client that signed up while the proxy lingered is asked first.
void FleetProxy::Finish() {
  if (!MayStop()) {
    AskSessions();
    return;
  }
  m_listener.Close();
  SetState(ProxyState::kStopped);
  for (ProxySession* session : Sessions()) {
    session->connection().CloseWhenFlushed();
  }
}

void FleetProxy::SetState(ProxyState state) {
  if (state != m_state) {
    m_state = state;
    m_on_state_change();
  }
}

}  // namespace OstrandFleet
