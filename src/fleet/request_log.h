// The requests that a fleet received last. On the loop only.
#pragma once

#include <cstdint>
#include <deque>
#include <string_view>
#include <vector>

#include "fleet/fleet_types.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFleet {

class RequestLog {
 public:
  explicit RequestLog(const RequestLogLimits& limits) : m_limits(limits) {}

  void Switch(bool is_on) { m_limits.is_on = is_on; }
  bool is_on() const { return m_limits.is_on; }

  // Keeps the request while the log is on.
  void Add(size_t proxy, uint64_t connection, const ostrand_protocol_cs::OStrandPkg& request,
           std::string_view frame);
  std::vector<RecordedRequest> Requests() const { return {m_requests.begin(), m_requests.end()}; }
  void Clear();

 private:
  void DropFirst();

  RequestLogLimits m_limits;
  uint64_t m_last_number = 0;
  size_t m_bytes = 0;
  std::deque<RecordedRequest> m_requests;
};

}  // namespace OstrandFleet
