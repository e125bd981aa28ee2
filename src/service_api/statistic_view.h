// The two records in which one request or response is counted, each of which may be missing.
#pragma once

#include <cstdint>

#include "service_api/service_api_statistic.h"

namespace OstrandService {

struct StatisticView {
  // table_subscript: a table outside the record is not counted.
  StatisticView(tagServiceApiStatistic* statistic, int32_t table_subscript) {
    if (statistic == nullptr) {
      return;
    }
    overall = &statistic->stOverallRunStatus;
    if (table_subscript >= 0 && table_subscript < statistic->iTableCount &&
        table_subscript < tagServiceApiStatistic::kMaxTables) {
      table = &statistic->astTableStatistic[table_subscript].stTableRunStatus;
    }
  }

  // Adds 1 to a counter of both records.
  void Count(uint32_t tagOverallRunStatus::*overall_counter,
             uint32_t tagTableRunStatus::*table_counter) const {
    if (overall != nullptr) {
      overall->*overall_counter += 1;
    }
    if (table != nullptr) {
      table->*table_counter += 1;
    }
  }

  tagOverallRunStatus* overall = nullptr;
  tagTableRunStatus* table = nullptr;
};

// Adds 1 to the counter `name` of OSTRAND_SHARED_COUNTERS in both records.
#define OSTRAND_COUNT_SHARED(view, name)                       \
  (view).Count(&OstrandService::tagOverallRunStatus::dw##name, \
               &OstrandService::tagTableRunStatus::dwTable##name)

}  // namespace OstrandService
