// What proxies send to a router, as whole frames for ScriptedConnectorMgr::Deliver.
#pragma once

#include <cstdint>
#include <string>

namespace OstrandFakes {

// The answer to a sign-up; 0 accepts it.
std::string SignupAnswer(int32_t result);

// The answer to a heartbeat that was sent at this time (microseconds since the epoch).
std::string HeartbeatAnswer(int64_t api_time_us);

// A proxy's notice that it is about to stop.
std::string StopNotice();

}  // namespace OstrandFakes
