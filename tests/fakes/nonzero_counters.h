// The counters of a record that are not 0, by name: for tests that say exactly what was counted.
//
//   EXPECT_EQ(Counters({{"dwReqSucNumPerMin", 1}, {"table 2: dwTableReqSucNumPerMin", 1},
//                       {"access 0: dwRequestCountPerMin", 1}}),
//             NonZeroCounters(statistic));
//
// Delays stand as "stPerfDelay.stApiTotalDelay.dwMaxDelay", those of an access as
// "access 0: stPerfDelay.stApiTotalDelay.dwMaxDelay".
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "service_api/service_api_statistic.h"
#include "service_api/table_qos.h"

namespace OstrandFakes {

using Counters = std::map<std::string, int64_t>;

Counters NonZeroCounters(const OstrandService::tagServiceApiStatistic& statistic);
Counters NonZeroCounters(const OstrandService::tagTableQos& qos);

}  // namespace OstrandFakes
