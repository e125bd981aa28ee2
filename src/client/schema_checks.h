// Has the application's schemas compared with the server's.
//
// Each table with a schema is asked for with a metadata request of the service's own, on a proxy
// that is usable; its answer is known by its asynchronous id and goes into the router's comparison
// only when its result is 0. An error, or no answer within kAnswerMs, leaves the check to be made;
// it is asked again after pauses that double from kFirstPauseMs to kLongestPauseMs. Nothing of it
// counts as the application's.
//
// Ownership: borrows everything. Threads: the loop's owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/zone.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandService {

// Asynchronous ids from here on are the service's own.
constexpr uint64_t kFirstOwnAsynId = uint64_t{1} << 63;

class SchemaChecks {
 public:
  static constexpr int64_t kAnswerMs = 3000;
  static constexpr int64_t kFirstPauseMs = 3000;
  static constexpr int64_t kLongestPauseMs = 30000;

  // What became of a table's check: RegisterTableInfo's codes.
  using Verdict = std::function<int32_t(int32_t zone_id, const char* table)>;

  SchemaChecks(int32_t app_id, Verdict verdict) : m_app_id(app_id), m_verdict(std::move(verdict)) {}

  // A table to be checked. REQUIRES: before anything else; the zone outlives this.
  void Add(Zone& zone, const std::string& table, int32_t meta_version);

  // Asks for what is due. pkg, buffer: scratch of its own use for this call.
  void Update(int64_t now_ms, ostrand_protocol_cs::OStrandPkg& pkg, char* buffer, size_t size);
  // INT64_MAX: nothing is due by the clock.
  int64_t NextDueMs() const;

  // Takes a frame that answers a request of ours. False: it is none. pkg: scratch.
  bool TakeFrame(const char* frame, size_t len, int64_t now_ms,
                 ostrand_protocol_cs::OStrandPkg& pkg);

  // The last error that a check met and that it has not got over; 0: none.
  int32_t LastError() const;

 private:
  struct Check {
    Zone* zone;
    std::string table;
    int32_t meta_version;
    uint64_t asyn_id = 0;  // of the request that waits for its answer; 0: none does
    int64_t due_ms = 0;    // the answer's deadline, or the next request
    int64_t pause_ms = 0;  // the last one; 0: none
    int32_t last_error = 0;
    bool is_done = false;
    bool waits_for_proxy = false;  // every update looks whether there is one
  };

  bool Ask(Check& check, int64_t now_ms, ostrand_protocol_cs::OStrandPkg& pkg, char* buffer,
           size_t size);
  static void Postpone(Check& check, int64_t now_ms, int32_t error);
  static TcpConnector* AnyUsable(Zone& zone, uint64_t number);

  const int32_t m_app_id;
  const Verdict m_verdict;
  std::vector<Check> m_checks;
  uint64_t m_next_asyn_id = kFirstOwnAsynId;
};

}  // namespace OstrandService
