// The directory of a fleet: tells clients a zone's tables and proxies, or misbehaves.
//
// On the loop only.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "fleet/answer_gate.h"
#include "fleet/fleet_types.h"
#include "fleet/port_listener.h"
#include "fleet/table_store.h"
#include "protocol/ostrand_dir.h"

namespace OstrandFleet {

// False, and nothing changed, for a name that is none.
bool ParseDirectoryFault(std::string_view name, DirectoryFault& fault);

class DirectorySession;

class FleetDirectory {
 public:
  // Result for a zone without route.
  static constexpr int32_t kNoRoute = -1;

  // All outlive the directory.
  FleetDirectory(FleetLoop& loop, const TableStore& store, uint32_t random_seed);
  ~FleetDirectory();
  FleetDirectory(const FleetDirectory&) = delete;
  FleetDirectory& operator=(const FleetDirectory&) = delete;

  // Begins to listen, always on the same port. 0, or -1 with errno.
  int Start(uint16_t port);
  void Stop();
  // "" before the first Start.
  std::string Url() const;

  // The route of one zone; an empty one takes the zone's route away.
  void SetRoute(int32_t zone, Route route);
  // All routes at once.
  void SetRoutes(std::map<int32_t, Route> routes) { m_routes = std::move(routes); }
  // The route of every zone that has none of its own.
  void SetCommonRoute(Route route) { m_common_route = std::move(route); }

  // Settings that answers hand to clients; zeros unless they are set.
  void SetConf(const ostrand_protocol_dir::tagConfData& conf) { m_conf = conf; }
  void SetEdit(DirectoryEdit edit) { m_edit = std::move(edit); }
  // 0; -1 with errno when a directory that was absent does not get its port back.
  int SetFault(DirectoryFault fault, int64_t value);

  const DirectoryCounters& Counters() const { return m_counters; }

 private:
  friend class DirectorySession;

  void OnAccept(int fd);
  void OnSessionClosed(DirectorySession& session);
  // Answers a whole frame; "" when it is not a request.
  std::string Answer(std::string_view frame);
  void FillAnswer(int32_t app_id, int32_t zone);
  void FillTables(int32_t zone);
  void FillRoute(const Route& route);

  FleetLoop& m_loop;
  const TableStore& m_store;
  PortListener m_listener;
  std::map<DirectorySession*, std::unique_ptr<DirectorySession>> m_sessions;
  std::map<int32_t, Route> m_routes;
  Route m_common_route;
  ostrand_protocol_dir::tagConfData m_conf{};
  DirectoryEdit m_edit;
  DirectoryFault m_fault = DirectoryFault::kNone;
  int64_t m_fault_value = 0;
  bool m_started = false;
  Misbehaviour m_misbehaviour;    // the fault, as the sessions' gates know it
  ProxyCounters m_gate_counters;  // of the gates; not shown
  DirectoryCounters m_counters;
  const std::unique_ptr<ostrand_protocol_dir::tagOStrdirCSPkg> m_pkg;
};

}  // namespace OstrandFleet
