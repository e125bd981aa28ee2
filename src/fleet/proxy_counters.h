// What a proxy of the fleet counts. Threads: plain records.
#pragma once

#include <cstdint>

namespace OstrandFleet {

// X(name, meaning)
#define OSTRAND_FLEET_COUNTERS(X)                                             \
  X(connections_accepted, "connections ever")                                 \
  X(connections_open, "connections now")                                      \
  X(sign_ups, "sign-ups that came, refused and unanswered ones too")          \
  X(sign_ups_accepted, "sign-ups accepted")                                   \
  X(signed_up, "connections that are signed up now")                          \
  X(heartbeats, "heartbeats that came")                                       \
  X(metadata_requests, "metadata requests that came")                         \
  X(table_requests, "requests of table operations that came")                 \
  X(answers, "frames of answers that were sent or wait to be, of every kind") \
  X(answers_dropped, "answers that a fault kept back")                        \
  X(answers_spoilt, "answers that a fault changed, doubled or moved")         \
  X(malformed_frames, "frames that ended their connection")                   \
  X(stop_notices, "stop notices sent")                                        \
  X(stop_replies, "replies to them")                                          \
  X(bytes_in, "bytes received")                                               \
  X(bytes_out, "bytes sent")

struct ProxyCounters {
#define OSTRAND_FLEET_COUNTER(name, meaning) uint64_t name = 0;
  OSTRAND_FLEET_COUNTERS(OSTRAND_FLEET_COUNTER)
#undef OSTRAND_FLEET_COUNTER
};

}  // namespace OstrandFleet
