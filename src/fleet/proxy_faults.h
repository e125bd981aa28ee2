// How a proxy of the fleet misbehaves: switches that a test sets while the proxy runs, or a user
// writes into the fleet file.
//
// Every switch is declared once, in the lists below; the record, the names in the fleet file and
// the table of docs/fleet.md are that list.
//
// Threads: plain records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/export.h"

namespace OstrandFleet {

// What happens to an answer. X(enumerator, name in the fleet file, meaning)
#define OSTRAND_FLEET_ANSWER_FAULTS(X)                                                     \
  X(kNone, "none", "it is sent as it is")                                                  \
  X(kGarbage, "garbage", "random bytes are sent instead")                                  \
  X(kHeadLen0, "head-length-0", "its head says a head length of 0")                        \
  X(kHeadLen12, "head-length-12", "of 12")                                                 \
  X(kHeadLen27, "head-length-27", "of 27")                                                 \
  X(kHeadLenHuge, "head-length-huge", "of 0xFFFFFFF0")                                     \
  X(kAnnounceGiB, "announce-1-gib", "its head says a body of 1 GiB")                       \
  X(kCutFrame, "cut", "its first half is sent, then the connection is closed")             \
  X(kUnknownCommand, "unknown-command", "its command is one that nobody knows")            \
  X(kRequestCode, "request-code", "its command is that of the request")                    \
  X(kForged, "forged",                                                                     \
    "the last byte of its user buffer (without one, its asynchronous id) "                 \
    "is another")                                                                          \
  X(kWrongValue, "wrong-value", "the last byte of the last value in it is another")        \
  X(kDuplicate, "duplicate", "it is sent twice")                                           \
  X(kReplay, "replay", "the answer before it is sent once more behind it")                 \
  X(kReorder, "reorder", "it is held back until the next answer was sent, at most 100 ms") \
  X(kLate, "late", "it waits late_ms longer than the others")                              \
  X(kEndlessMore, "endless-more",                                                          \
    "an answer that may come in several packages never ends: "                             \
    "package after package, each with more to follow")

enum class AnswerFault : uint8_t {
#define OSTRAND_FLEET_ENUMERATOR(enumerator, name, meaning) enumerator,
  OSTRAND_FLEET_ANSWER_FAULTS(OSTRAND_FLEET_ENUMERATOR)
};

// Which answers delay, drop and answer fault are about.
#define OSTRAND_FLEET_ANSWER_SCOPES(X)             \
  X(kTable, "table", "to table operations")        \
  X(kSignUp, "sign-up", "to sign-ups")             \
  X(kHeartbeat, "heartbeat", "to heartbeats")      \
  X(kMetadata, "metadata", "to metadata requests") \
  X(kAll, "all", "all of these")

enum class AnswerScope : uint8_t {
  OSTRAND_FLEET_ANSWER_SCOPES(OSTRAND_FLEET_ENUMERATOR)
#undef OSTRAND_FLEET_ENUMERATOR
};

// X(type, name, initial value, meaning)
#define OSTRAND_FLEET_SWITCHES(X)                                                                \
  X(AnswerScope, scope, AnswerScope::kTable, "the answers that delay_ms to late_ms are about")   \
  X(int64_t, delay_ms, 0, "every answer waits so long")                                          \
  X(int64_t, drop_every, 0, "every n-th answer is not sent: 1 none is sent, 0 all are")          \
  X(AnswerFault, answer, AnswerFault::kNone, "what happens to answers that are sent")            \
  X(int64_t, answer_every, 1, "to every n-th of them")                                           \
  X(int64_t, late_ms, 3000, "how much longer a late answer waits")                               \
  X(int64_t, refuse_sign_up, 0, "result with which sign-ups are refused; 0: they are not")       \
  X(bool, ignore_sign_up, false, "sign-ups get no answer")                                       \
  X(bool, ignore_heartbeats, false, "heartbeats get no answer")                                  \
  X(int64_t, heartbeat_echo_us, 0, "time that heartbeat answers echo; 0: that of the heartbeat") \
  X(int64_t, heartbeat_shift_us, 0, "added to the time that heartbeat answers echo")             \
  X(std::string, heartbeat_text, "CpuUse=10;CpuTotal=100;", "user buffer of heartbeat answers")  \
  X(bool, never_read, false, "nothing is read any more; what is to be sent is sent")             \
  X(bool, silent, false, "half-open: nothing is read or sent; connections are accepted")         \
  X(int64_t, bytes_per_second, 0, "so many bytes are sent a second, one at a time; 0: no limit") \
  X(bool, ignore_connects, false,                                                                \
    "connection attempts get no answer; connections that stand "                                 \
    "go on")

struct ProxyFaults {
#define OSTRAND_FLEET_MEMBER(type, name, initial, meaning) type name = initial;
  OSTRAND_FLEET_SWITCHES(OSTRAND_FLEET_MEMBER)
#undef OSTRAND_FLEET_MEMBER
};

OSTRAND_API bool operator==(const ProxyFaults& a, const ProxyFaults& b);
inline bool operator!=(const ProxyFaults& a, const ProxyFaults& b) { return !(a == b); }

// Sets the switch of this name from a text: a number, a name of the lists above, a text; "" turns a
// bool on. False, and nothing changed, for a name or a value that is none.
OSTRAND_API bool SetSwitch(ProxyFaults& faults, std::string_view name, std::string_view value);

OSTRAND_API const char* NameOf(AnswerFault fault);
OSTRAND_API const char* NameOf(AnswerScope scope);

// A whole decimal number with an optional '-'; false for anything else.
OSTRAND_API bool ParseNumber(std::string_view text, int64_t& number);

}  // namespace OstrandFleet
