// A proxy of the fleet: a listener, its sessions, its faults, and how it stops. On the loop only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/port_listener.h"
#include "fleet/proxy_session.h"

namespace OstrandFleet {

struct ProxySettings {
  std::string id;
  uint16_t port = 0;  // 0: a free one
  uint32_t random_seed = 1;
  ProxyOptions options;
};

class FleetProxy final : private ProxySession::Owner {
 public:
  // The context outlives the proxy. on_state_change is called behind every change.
  FleetProxy(SessionContext& context, size_t index, ProxySettings settings,
             std::function<void()> on_state_change);
  ~FleetProxy();
  FleetProxy(const FleetProxy&) = delete;
  FleetProxy& operator=(const FleetProxy&) = delete;

  // Begins to listen, always on the same port. 0, or -1 with errno.
  int Start();
  // Closes listener and connections at once.
  void Kill();
  // Sends every client that is signed up a stop notice, and again until it answers. When all have,
  // the proxy serves for the linger time and closes.
  void AskToStop();
  // Takes a stop back that was not granted by all clients yet.
  void CancelStop();

  void SetFaults(const ProxyFaults& faults);
  const ProxyFaults& faults() const { return m_record.misbehaviour.faults; }

  void CloseConnections(CloseKind kind);
  // Sends each client the beginning of a frame, then closes.
  void CloseInsideFrame();
  // Sends any bytes to each client.
  void SendBytes(std::string_view bytes);

  ProxyState state() const { return m_state; }
  ProxyCounters Counters() const;
  const std::string& id() const { return m_settings.id; }
  // "" before the first Start.
  std::string Url() const;

 private:
  void OnAccept(int fd);
  void OnSessionClosed(ProxySession& session) override;
  void OnSessionChanged() override;
  std::vector<ProxySession*> Sessions() const;
  void AskSessions();
  bool MayStop() const;
  void Finish();
  void SetState(ProxyState state);

  SessionContext& m_context;
  const ProxySettings m_settings;
  const std::function<void()> m_on_state_change;
  ProxyRecord m_record;
  PortListener m_listener;
  std::map<ProxySession*, std::unique_ptr<ProxySession>> m_sessions;
  ProxyState m_state = ProxyState::kDown;
  Timer m_ask_timer;
  Timer m_linger_timer;
};

}  // namespace OstrandFleet
