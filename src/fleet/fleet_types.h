// What a program tells a fleet and is told by it. Threads: plain records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/table_setup.h"
#include "protocol/ostrand_dir.h"

namespace OstrandFleet {

// --- Proxies ---

enum class ProxyState {
  kDown,  // never started, or killed
  kRunning,
  kStopping,  // runs, and asks its clients to let it stop
  kStopped,   // all of them allowed it
};

struct ProxyOptions {
  size_t max_connections = 1024;        // further ones are closed at once
  int64_t stop_ask_interval_ms = 1000;  // between two stop notices to a client that did not answer
  // How long a proxy that may stop still serves what its clients had sent before they knew.
  int64_t stop_linger_ms = 200;
};

// What a client may sign up with: the signature, where one is set, or user name and password.
struct Credentials {
  std::string signature;
  std::string user_name;
  std::string password_md5;  // as it stands in the sign-up
};

// How a connection ends.
enum class CloseKind {
  kOrderly,  // as when a program ends
  kReset,    // with a reset; what was not delivered is lost
};

// --- Directory ---

// One row of a route. The wire has 63 characters for the url and 32 for the id.
struct RouteRow {
  std::string url;
  std::string id;
};
using Route = std::vector<RouteRow>;

inline bool operator==(const RouteRow& a, const RouteRow& b) {
  return a.url == b.url && a.id == b.id;
}

// X(enumerator, name in the fleet file, meaning)
#define OSTRAND_FLEET_DIRECTORY_FAULTS(X)                                               \
  X(kNone, "none", "it answers")                                                        \
  X(kAbsent, "absent", "it does not listen, and its connections are closed")            \
  X(kSilent, "silent", "requests get no answer")                                        \
  X(kSlow, "slow", "answers wait for value milliseconds")                               \
  X(kGarbage, "garbage", "random bytes are sent instead of an answer")                  \
  X(kCutFrame, "cut", "half an answer is sent, then the connection is closed")          \
  X(kWrongResult, "wrong-result", "answers carry value as their result, -1 if it is 0") \
  X(kWrongZone, "wrong-zone", "answers are about the zone behind the one asked for")

enum class DirectoryFault : uint8_t {
#define OSTRAND_FLEET_ENUMERATOR(enumerator, name, meaning) enumerator,
  OSTRAND_FLEET_DIRECTORY_FAULTS(OSTRAND_FLEET_ENUMERATOR)
#undef OSTRAND_FLEET_ENUMERATOR
};

// Changes an answer before it is packed, in ways that no route can. Runs on the fleet's thread.
using DirectoryEdit = std::function<void(ostrand_protocol_dir::tagResGetTablesAndAccess& answer)>;

struct DirectoryCounters {
  uint64_t connections_accepted = 0;
  uint64_t requests = 0;
  uint64_t answers = 0;  // made; a fault may have kept them back
  uint64_t malformed_frames = 0;
};

// --- What came ---

// A whole frame that a client sent to a proxy, of any command.
struct RecordedRequest {
  uint64_t number = 0;      // of all that the fleet received, from 1
  size_t proxy = 0;         // index of the proxy that received it
  uint64_t connection = 0;  // the fleet's number of the connection, from 1
  uint32_t cmd = 0;
  uint64_t asyn_id = 0;
  int32_t seq = 0;
  int32_t app_id = 0;
  int32_t zone = 0;
  std::string table;
  std::string user_buffer;
  FieldList key;      // of the head
  std::string frame;  // as it came, for whoever wants to unpack it
};

// Which requests are kept: those that came last, within both limits.
struct RequestLogLimits {
  bool is_on = true;
  size_t max_requests = 1024;
  size_t max_bytes = 16 * 1024 * 1024;  // of the frames together
};

}  // namespace OstrandFleet
