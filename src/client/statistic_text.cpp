#include "client/statistic_text.h"

#include <cstdint>

namespace OstrandService {
namespace {

void AppendCounter(std::string& text, const char* name, uint64_t value) {
  text += name;
  text += ':';
  text += std::to_string(value);
}

void AppendLine(std::string& text, const char* name, uint64_t value, const char* unit) {
  text += '\t';
  AppendCounter(text, name, value);
  text += ' ';
  text += unit;
  text += '\n';
}

void AppendOverall(std::string& text, const tagOverallRunStatus& record) {
#define OSTRAND_FIELD(type, name, unit, meaning) AppendLine(text, #name, record.name, unit);
  OSTRAND_OVERALL_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#define OSTRAND_FIELD(name, unit, meaning) AppendLine(text, "dw" #name, record.dw##name, unit);
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#define OSTRAND_LINE(name, unit) AppendLine(text, #name, record.name, unit)
#define OSTRAND_FIELD(kind)                                    \
  OSTRAND_LINE(ull##kind##MaxLatencyPerMin, "ms");             \
  OSTRAND_LINE(ull##kind##MaxDelayTime, "ms since the epoch"); \
  OSTRAND_LINE(dw##kind##MaxDelayCmd, "command code");         \
  OSTRAND_LINE(dw##kind##MaxDelayIp, "address");               \
  OSTRAND_LINE(dw##kind##MaxDelayPort, "port");
  OSTRAND_LATENCY_KINDS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
#undef OSTRAND_LINE
}

uint64_t Bookings(const DELAYSTATUS& record) {
  return uint64_t{record.dwDelayLowZero} + record.dwDelayLow10MS + record.dwDelayLow100MS +
         record.dwDelayLow500MS + record.dwDelayLow1000MS + record.dwDelayHigh1S;
}

void AppendStage(std::string& text, const char* indent, const char* name,
                 const DELAYSTATUS& record) {
  if (Bookings(record) == 0) {
    return;
  }
  text += indent;
  text += name;
#define OSTRAND_FIELD(counter, unit, meaning) \
  text += ' ';                                \
  AppendCounter(text, #counter, record.counter);
  OSTRAND_DELAY_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
  text += '\n';
}

void AppendStages(std::string& text, const char* indent, const PERFSTATUS& record) {
#define OSTRAND_FIELD(name, meaning) AppendStage(text, indent, #name, record.name);
  OSTRAND_DELAY_STAGES(OSTRAND_FIELD)
#undef OSTRAND_FIELD
}

void AppendTable(std::string& text, const tagTableStatistic& table) {
  text += "\ttable ";
  text += table.szTableName;
  const tagTableRunStatus& record = table.stTableRunStatus;
#define OSTRAND_FIELD(name, unit, meaning) \
  text += ' ';                             \
  AppendCounter(text, "dwTable" #name, record.dwTable##name);
  OSTRAND_SHARED_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
  text += '\n';
}

void AppendAccess(std::string& text, const tagAccessRunStatus& record) {
  text += "\taccess ";
  text += record.szAccessUrl;
  text += ' ';
  text += record.szAccessId;
#define OSTRAND_FIELD(type, name, unit, meaning) \
  text += ' ';                                   \
  AppendCounter(text, #name, record.name);
  OSTRAND_ACCESS_COUNTERS(OSTRAND_FIELD)
#undef OSTRAND_FIELD
  text += '\n';
  AppendStages(text, "\t\t", record.stPerfDelay);
}

}  // namespace

void AppendStatistic(std::string& text, const tagServiceApiStatistic& statistic) {
  AppendOverall(text, statistic.stOverallRunStatus);
  AppendStages(text, "\t", statistic.stPerfDelay);
  for (int32_t i = 0; i < statistic.iTableCount; ++i) {
    AppendTable(text, statistic.astTableStatistic[i]);
  }
  const int32_t access_count = statistic.iAccessCount.load(std::memory_order_acquire);
  for (int32_t i = 0; i < access_count; ++i) {
    AppendAccess(text, statistic.astAccessStatistic[i]);
  }
}

}  // namespace OstrandService
