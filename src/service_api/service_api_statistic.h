// The statistics record of one application and zone. Its counters come from the lists of
// service_api_counters.h.
//
// Ownership: the statistics manager's; a record never moves while the manager lives.
// Threads: counted on the application's thread; the membership of the access records belongs to the
// manager, which adds some on the network thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "service_api/service_api_counters.h"

namespace OstrandService {

// Delays of one stage, in buckets.
struct DELAYSTATUS {
#define OSTRAND_FIELD(name, unit, meaning) uint32_t name = 0;
  OSTRAND_DELAY_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
};

// One delay record a stage.
struct PERFSTATUS {
#define OSTRAND_FIELD(name, meaning) DELAYSTATUS name;
  OSTRAND_DELAY_STAGES(OSTRAND_FIELD)
#undef OSTRAND_FIELD
};

// All tables together.
struct tagOverallRunStatus {
#define OSTRAND_FIELD(type, name, unit, meaning) type name = 0;
  OSTRAND_OVERALL_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#define OSTRAND_FIELD(name, unit, meaning) uint32_t dw##name = 0;
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#define OSTRAND_FIELD(kind)                 \
  uint64_t ull##kind##MaxLatencyPerMin = 0; \
  uint64_t ull##kind##MaxDelayTime = 0;     \
  uint32_t dw##kind##MaxDelayCmd = 0;       \
  uint32_t dw##kind##MaxDelayIp = 0;        \
  uint32_t dw##kind##MaxDelayPort = 0;
  OSTRAND_LATENCY_KINDS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
};

// One table.
struct tagTableRunStatus {
#define OSTRAND_FIELD(name, unit, meaning) uint32_t dwTable##name = 0;
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
};

struct tagTableStatistic {
  char szTableName[32] = {};
  tagTableRunStatus stTableRunStatus;
};

// One access: the connection to one proxy, found by its address.
struct tagAccessRunStatus {
  char szAccessUrl[64] = {};
  char szAccessId[33] = {};
  int32_t iIp = 0;
  int32_t iPort = 0;
#define OSTRAND_FIELD(type, name, unit, meaning) type name = 0;
  OSTRAND_ACCESS_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
  PERFSTATUS stPerfDelay;
};

struct tagServiceApiStatistic {
  static constexpr int32_t kMaxTables = 256;
  static constexpr int32_t kMaxAccesses = 1024;

  tagOverallRunStatus stOverallRunStatus;
  int32_t iTableCount = 0;
  tagTableStatistic astTableStatistic[kMaxTables];
  PERFSTATUS stPerfDelay;
  // Access records in use, from the first on. Grows on the network thread, behind the new record's
  // names and address: whoever reads it may read those.
  std::atomic<int32_t> iAccessCount{0};
  tagAccessRunStatus astAccessStatistic[kMaxAccesses];
};

using SERVICEAPISTATISTIC = tagServiceApiStatistic;

}  // namespace OstrandService
