#include "fakes/nonzero_counters.h"

#include <utility>

namespace OstrandFakes {

using namespace OstrandService;  // NOLINT: the records and the lists of their counters

namespace {

class Collector {
 public:
  // The names of counters that are 0, by far the most, are never put together.
  template <typename Value>
  void Add(const std::string& prefix, const char* name, Value value) {
    if (value != 0) {
      m_counters[prefix + name] = static_cast<int64_t>(value);
    }
  }
  template <typename Value>
  void Add(const char* name, Value value) {
    Add(std::string(), name, value);
  }

  void AddOverall(const tagOverallRunStatus& all) {
#define OSTRAND_ADD(type, name, unit, meaning) Add(#name, all.name);
    OSTRAND_OVERALL_COUNTERS(OSTRAND_ADD)
#undef OSTRAND_ADD
#define OSTRAND_ADD(name, unit, meaning) Add("dw" #name, all.dw##name);
    OSTRAND_SHARED_COUNTERS(OSTRAND_ADD)
#undef OSTRAND_ADD
#define OSTRAND_ADD(kind)                                               \
  Add("ull" #kind "MaxLatencyPerMin", all.ull##kind##MaxLatencyPerMin); \
  Add("ull" #kind "MaxDelayTime", all.ull##kind##MaxDelayTime);         \
  Add("dw" #kind "MaxDelayCmd", all.dw##kind##MaxDelayCmd);             \
  Add("dw" #kind "MaxDelayIp", all.dw##kind##MaxDelayIp);               \
  Add("dw" #kind "MaxDelayPort", all.dw##kind##MaxDelayPort);
    OSTRAND_LATENCY_KINDS(OSTRAND_ADD)
#undef OSTRAND_ADD
  }

  void AddTable(const std::string& prefix, const tagTableRunStatus& table) {
#define OSTRAND_ADD(name, unit, meaning) Add(prefix, "dwTable" #name, table.dwTable##name);
    OSTRAND_SHARED_COUNTERS(OSTRAND_ADD)
#undef OSTRAND_ADD
  }

  void AddAccess(const std::string& prefix, const tagAccessRunStatus& access) {
#define OSTRAND_ADD(type, name, unit, meaning) Add(prefix, #name, access.name);
    OSTRAND_ACCESS_COUNTERS(OSTRAND_ADD)
#undef OSTRAND_ADD
    AddDelays(prefix, access.stPerfDelay);
  }

  void AddDelays(const std::string& prefix, const PERFSTATUS& delays) {
#define OSTRAND_ADD(name, meaning) AddDelay(prefix + "stPerfDelay." #name ".", delays.name);
    OSTRAND_DELAY_STAGES(OSTRAND_ADD)
#undef OSTRAND_ADD
  }

  Counters Take() { return std::move(m_counters); }

 private:
  void AddDelay(const std::string& prefix, const DELAYSTATUS& delay) {
#define OSTRAND_ADD(name, unit, meaning) Add(prefix, #name, delay.name);
    OSTRAND_DELAY_COUNTERS(OSTRAND_ADD)
#undef OSTRAND_ADD
  }

  Counters m_counters;
};

}  // namespace

Counters NonZeroCounters(const tagServiceApiStatistic& statistic) {
  Collector collector;
  collector.AddOverall(statistic.stOverallRunStatus);
  for (int32_t i = 0; i < tagServiceApiStatistic::kMaxTables; ++i) {
    collector.AddTable("table " + std::to_string(i) + ": ",
                       statistic.astTableStatistic[i].stTableRunStatus);
  }
  collector.AddDelays("", statistic.stPerfDelay);
  for (int32_t i = 0; i < statistic.iAccessCount; ++i) {
    collector.AddAccess("access " + std::to_string(i) + ": ", statistic.astAccessStatistic[i]);
  }
  return collector.Take();
}

Counters NonZeroCounters(const tagTableQos& qos) {
  Collector collector;
  collector.Add("nAccessCount", qos.nAccessCount);
  collector.Add("dwAccessErrCount", qos.dwAccessErrCount);
  collector.Add("dwQueryErrCount", qos.dwQueryErrCount);
  collector.Add("dwInsertErrCount", qos.dwInsertErrCount);
  collector.Add("dwUpdateErrCount", qos.dwUpdateErrCount);
  collector.Add("dwReplaceErrCount", qos.dwReplaceErrCount);
  collector.Add("dwDeleteErrCount", qos.dwDeleteErrCount);
  collector.Add("iPackErrorCount", qos.iPackErrorCount);
  collector.Add("iUnpackErrorCount", qos.iUnpackErrorCount);
  collector.Add("iSendErrorCount", qos.iSendErrorCount);
  collector.Add("iRecvErrorCount", qos.iRecvErrorCount);
  collector.Add("iRounteErrorCount", qos.iRounteErrorCount);
  collector.Add("iOtherErrorCount", qos.iOtherErrorCount);
  collector.Add("iLastError", qos.iLastError);
  collector.Add("iMostError", qos.iMostError);
  collector.Add("iExceptError", qos.iExceptError);
  return collector.Take();
}

}  // namespace OstrandFakes
