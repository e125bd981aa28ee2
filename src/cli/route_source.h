// Routes as the command line names them: which proxies a zone has, in order.
//
//   8                                       8 proxies without addresses
//   tcp://127.0.0.1:9001,tcp://127.0.0.1:9002   these
//   directory                               what the directory of the connection answers now
//   fleet.txt                               the zone's proxies in a fleet file (docs/fleet.md)
//
// As clients do, it leaves out a url that is there twice, and what stands behind the 200th.
// Threads: one at a time; asking a directory runs a loop on the caller's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/connection.h"
#include "fleet/fleet_types.h"

namespace OstrandCli {

using OstrandFleet::Route;

constexpr char kLiveRoute[] = "directory";

// A live route needs a directory. False: `error` holds a sentence. `remarks` get one for each row
// that is left out.
bool ReadRoute(const std::string& name, const Connection& connection, Route& route,
               std::vector<std::string>& remarks, std::string& error);

// Asks the connection's directories, at least one, for the route of its zone, for up to wait_ms.
bool AskForRoute(const Connection& connection, Route& route, std::string& error);

// Their urls, in order.
std::vector<std::string> UrlsOf(const Route& route);

}  // namespace OstrandCli
