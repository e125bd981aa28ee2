// The fleet file: a small text that says which proxies each zone has and how proxies misbehave. A
// user edits it while the fleet runs.
//
//   # everything behind a '#' is a comment
//   zone 1                                 the proxies that follow are those of zone 1
//   proxy tcp://127.0.0.1:9001 p0          address and, if wanted, id of a proxy of the zone
//   proxy tcp://127.0.0.1:9002 p1
//   fault p1 delay_ms 200                  a switch of proxy_faults.h for the proxy with this id
//   fault p1 ignore_heartbeats
//   fault directory slow 500               a fault of fleet_directory.h and its value
//   down p0                                the proxy is killed while this stands here
//   stop p1                                the proxy asks its clients to let it stop
//
// What is not said is off: a line that is taken out is undone. Threads: no state.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "common/export.h"
#include "fleet/fleet_directory.h"
#include "fleet/proxy_faults.h"

namespace OstrandFleet {

struct FleetFile {
  std::map<int32_t, Route> routes;            // by zone
  std::map<std::string, ProxyFaults> faults;  // by id
  DirectoryFault directory_fault = DirectoryFault::kNone;
  int64_t directory_fault_value = 0;
  std::set<std::string> down;  // ids
  std::set<std::string> stopped;
};

// Parses a whole text. False when a line is not one of the above; then `error` says which and why,
// and `file` is unchanged.
OSTRAND_API bool ParseFleetFile(std::string_view text, FleetFile& file, std::string& error);

// The text of a file that has this route for a zone and nothing else.
OSTRAND_API std::string WriteFleetFile(int32_t zone, const Route& route);

// Reads a file whole. False when it cannot be read or is larger than any fleet file.
OSTRAND_API bool ReadTextFile(const std::string& path, std::string& text);

}  // namespace OstrandFleet
