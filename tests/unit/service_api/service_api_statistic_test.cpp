// The statistics record has a field for every counter that the router counts.
//
// That a name below compiles is the proof that the field is there; what is looked at is its type,
// its initial value, and that no two names share a field.
#include "service_api/service_api_statistic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <type_traits>

namespace OstrandService {
namespace {

// Collects the addresses of fields, each of the type it must have, 0 at first.
template <typename Type>
class Fields {
 public:
  template <typename Field>
  Fields& Has(const Field& field) {
    static_assert(std::is_same_v<Type, Field>);
    EXPECT_EQ(0U, field);
    ++m_count;
    m_addresses.insert(&field);
    EXPECT_EQ(m_count, m_addresses.size()) << "two names, one field";
    return *this;
  }

 private:
  size_t m_count = 0;
  std::set<const void*> m_addresses;
};

TEST(ServiceApiStatistic, CountsOverallWhatOnlyTheWholeHas) {
  const tagOverallRunStatus all;
  Fields<uint32_t>()
      .Has(all.dwApiConnectOstrroxyCount)
      .Has(all.dwApiConnectOstrroxyErrNumPerMin)
      .Has(all.dwPackErrNumPerMin)
      .Has(all.dwUnpackErrNumPerMin);
}

// Counters of the whole and of each table: dw<name> and dwTable<name>.
#define OSTRAND_SHARED_NAMES(X)           \
  X(ApiFindRouteErrNumPerMin)             \
  X(ReqSucNumPerMin)                      \
  X(ReadReqSucNumPerMin)                  \
  X(WriteReqSucNumPerMin)                 \
  X(ReqErrNumPerMin)                      \
  X(ReadReqErrNumPerMin)                  \
  X(WriteReqErrNumPerMin)                 \
  X(RespErrNumPerMin)                     \
  X(RespWarnNumPerMin)                    \
  X(ReadRespWarnNumPerMin)                \
  X(ApiErrNumPerMin)                      \
  X(DynamicErrNumPerMin)                  \
  X(OstrsvrErrNumPerMin)                  \
  X(OstrsvrRouteMsgErrNumPerMin)          \
  X(OstrsvrSystemErrNumPerMin)            \
  X(OstrsvrRecordExistErrNumPerMin)       \
  X(OstrsvrInvalidIndexErrNumPerMin)      \
  X(OstrsvrInvalidFielNameErrNumPerMin)   \
  X(OstrsvrInvalidFieldTypeErrNumPerMin)  \
  X(OstrsvrInvalidOperationErrNumPerMin)  \
  X(OstrsvrListFullErrNumPerMin)          \
  X(OstrsvrCommandMisMatchErrNumPerMin)   \
  X(OstrsvrOutUserRangeErrNumPerMin)      \
  X(OstrroxyErrNumPerMin)                 \
  X(OstrroxySendMsgErrNumPerMin)          \
  X(OstrroxyLackSomeFieldsNumPerMin)      \
  X(OstrroxyRouteMsgErrNumPerMin)         \
  X(OstrroxyFailedToFindNodeErrNumPerMin) \
  X(OstrroxySwiftErrNumPerMin)            \
  X(OstrroxyRequestAccessCtrlErrNumPerMin)

TEST(ServiceApiStatistic, CountsOverallAndForEachTable) {
  const tagOverallRunStatus all;
  const tagTableRunStatus table;
  Fields<uint32_t> of_all;
  Fields<uint32_t> of_table;
#define OSTRAND_LOOK_AT(name) \
  of_all.Has(all.dw##name);   \
  of_table.Has(table.dwTable##name);
  OSTRAND_SHARED_NAMES(OSTRAND_LOOK_AT)
#undef OSTRAND_LOOK_AT
}

TEST(ServiceApiStatistic, KeepsTheSlowestAnswerOfEachKind) {
  const tagOverallRunStatus all;
  Fields<uint64_t> times;
  Fields<uint32_t> places;
#define OSTRAND_LOOK_AT(kind)                 \
  times.Has(all.ull##kind##MaxLatencyPerMin); \
  times.Has(all.ull##kind##MaxDelayTime);     \
  places.Has(all.dw##kind##MaxDelayCmd);      \
  places.Has(all.dw##kind##MaxDelayIp);       \
  places.Has(all.dw##kind##MaxDelayPort);
  OSTRAND_LOOK_AT(SimpleRead)
  OSTRAND_LOOK_AT(SimpleWrite)
  OSTRAND_LOOK_AT(ComplexRead)
  OSTRAND_LOOK_AT(ComplexWrite)
#undef OSTRAND_LOOK_AT
}

TEST(ServiceApiStatistic, CountsForEachAccess) {
  const tagAccessRunStatus access;
  Fields<uint32_t>()
      .Has(access.dwRequestCountPerMin)
      .Has(access.dwBatchRequestCountPerMin)
      .Has(access.dwResponseCountPerMin)
      .Has(access.dwOstrsvrReturnErrCountPerMin)
      .Has(access.dwProxyReturnErrCountPerMin)
      .Has(access.dwProxyReturnSystemErrCountPerMin)
      .Has(access.dwDynamicErrCountPerMin)
      .Has(access.dwMaxDelay)
      .Has(access.dwMaxDelayCmd);
  Fields<uint64_t>().Has(access.ullMaxDelayTime);
}

TEST(ServiceApiStatistic, CountsDelaysInBuckets) {
  const DELAYSTATUS delay;
  Fields<uint32_t>()
      .Has(delay.dwMaxDelay)
      .Has(delay.dwDelayLowZero)
      .Has(delay.dwDelayLow10MS)
      .Has(delay.dwDelayLow100MS)
      .Has(delay.dwDelayLow500MS)
      .Has(delay.dwDelayLow1000MS)
      .Has(delay.dwDelayHigh1S);
  EXPECT_EQ(7 * sizeof(uint32_t), sizeof(DELAYSTATUS)) << "and nothing else";
  EXPECT_LT(&delay.dwMaxDelay, &delay.dwDelayLowZero) << "in this order";
  EXPECT_LT(&delay.dwDelayLow1000MS, &delay.dwDelayHigh1S);
}

TEST(ServiceApiStatistic, HasADelayRecordForEachStageInTheOrderOfTheWay) {
  const PERFSTATUS perf;
  const DELAYSTATUS* const stages[] = {
      &perf.stApiTotalDelay,       &perf.stApiToProxyDelay, &perf.stProxyReqHandleDelay,
      &perf.stProxyToSvrDelay,     &perf.stSvrHandleDelay,  &perf.stSvrToProxyDelay,
      &perf.stProxyRspHandleDelay, &perf.stProxyTotalDelay, &perf.stProxyToApiDelay};
  for (size_t i = 0; i < std::size(stages); ++i) {
    EXPECT_EQ(reinterpret_cast<const DELAYSTATUS*>(&perf) + i, stages[i]);
  }
  EXPECT_EQ(std::size(stages) * sizeof(DELAYSTATUS), sizeof(PERFSTATUS));
}

TEST(ServiceApiStatistic, HoldsTheWholeItsTablesItsDelaysAndItsAccesses) {
  const auto statistic = std::make_unique<tagServiceApiStatistic>();
  EXPECT_EQ(0, statistic->iTableCount);
  EXPECT_EQ(256U, std::size(statistic->astTableStatistic));
  EXPECT_STREQ("", statistic->astTableStatistic[255].szTableName);
  EXPECT_EQ(0U, statistic->astTableStatistic[255].stTableRunStatus.dwTableReqSucNumPerMin);
  EXPECT_EQ(0U, statistic->stOverallRunStatus.dwReqSucNumPerMin);
  EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwMaxDelay);
  EXPECT_EQ(0U, statistic->astAccessStatistic[0].stPerfDelay.stApiTotalDelay.dwMaxDelay);
  static_assert(std::is_same_v<SERVICEAPISTATISTIC, tagServiceApiStatistic>);
}

}  // namespace
}  // namespace OstrandService
