// The fleet as a program of its own, for tests and benchmarks that want it in another process.
#pragma once

#include "common/export.h"

namespace OstrandFleet {

// Runs a fleet until SIGINT or SIGTERM and returns the exit status. Once everything listens, it
// writes to standard output, one a line: "directory tcp://127.0.0.1:<port>", then "proxy
// tcp://127.0.0.1:<port> p<n>" for every proxy. Remarks go to standard error. Tables come to be
// when a client first names them.
//
//   --proxies N   number of proxies, 1 to 1000 (1)
//   --port P      port of the directory, the proxies have the ports behind it (0: free ports)
//   --route FILE  the fleet file to follow; written, with the proxies in zone 1, where there is
//   none
//   --stand-in    answer at the least possible cost, without a store
//
// Blocks both signals for the whole process: call it before other threads are made.
OSTRAND_API int RunFleetProgram(int argc, char** argv);

}  // namespace OstrandFleet
