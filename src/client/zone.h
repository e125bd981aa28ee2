// One zone of a service: its router with what belongs to it alone.
//
// Ownership: the service's; the router dies before what it borrows here. Threads: the loop's owner.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "client/latency_data_table.h"
#include "client/request_chain.h"
#include "client/request_store.h"
#include "client/tcp_connector_mgr.h"
#include "service_api/ostrand_router.h"
#include "service_api/proxy_server.h"

namespace OstrandService {

struct Zone {
  int32_t zone_id = 0;
  uint16_t index = 0;
  std::unique_ptr<TcpConnectorMgr> connectors;
  std::unique_ptr<LatencyDataTable> latency;
  std::unique_ptr<OstrandRouter> router;
  std::string circle_line;  // the ring's fingerprint; empty before it was first written

  // Settings of the options or the directory; Service::ApplyIntervals gives them to the router.
  uint32_t heartbeat_ms = 0;
  uint32_t check_heartbeat_ms = 0;
  bool settings_fit = true;  // the directory's last ones

  // The router's heartbeats, as they follow from when it is driven. The first period is a share of
  // the others at random, so that clients that started together do not stay in step.
  int64_t last_heartbeat_ms = 0;  // wall clock; 0: none yet
  uint64_t heartbeats = 0;
  uint32_t first_period_ms = 0;

  // Requests that wait, in the order in which they came, and what they are.
  RequestChain waiting;
  size_t waiting_count = 0;
  RequestStore store;
  bool wake = false;  // something happened with which they may be sent

  // Whether the router would find a proxy: known without asking it.
  bool can_route = false;
  uint64_t usable = 0;        // tells which connections requests could be routed to; 0: none
  bool look_again = true;     // can_route may no longer hold
  bool lists_changed = true;  // connectors' is_in_use may no longer hold

  // What the router goes by when it looks for a proxy.
  static bool IsUsable(const TcpConnector& connector) {
    const auto* server = static_cast<const ProxyServer*>(connector.arg());
    return connector.is_in_use && server->auth_succeed && server->last_auth_result == 0 &&
           server->is_available && connector.GetStatus() == OSTRNET::CConnector::STATUS_CONNECTED;
  }
};

}  // namespace OstrandService
