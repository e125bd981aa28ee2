// Sampling requests, booking delays, counting results.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>

#include "common/clock.h"
#include "common/ostrand_reqresp_util.h"
#include "protocol/ostrand_protocol_cs.h"
#include "protocol/perf_test.h"
#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_request.h"
#include "service_api/ostrand_service_response.h"
#include "service_api/ostrand_service_statistic_mgr.h"
#include "service_api/statistic_view.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandCommon::OstrandReqRespUtil;

// Results that callers cause and that are no failure of the system.
constexpr int32_t kNotPrinted[] = {-1293, -7949};
constexpr size_t kMaxErrorCodes = 65536;  // that m_recvErrorCodeMap tells apart

// The low byte of a result tells whose it is.
enum Module : uint8_t {
  MODULE_PROXY = 17,
  MODULE_API = 19,
};
constexpr uint8_t kServerModules[] = {5, 7, 9, 13};

uint8_t ModuleOf(int32_t result) {
  const int64_t wide = result;
  return static_cast<uint8_t>(static_cast<uint64_t>(wide < 0 ? -wide : wide) & 0xFF);
}

// A result that has a counter of its own, overall and by table.
struct ResultKind {
  int32_t result;
  uint32_t tagOverallRunStatus::*overall;
  uint32_t tagTableRunStatus::*table;
};

#define OSTRAND_RESULT_KIND(result, name) \
  { result, &tagOverallRunStatus::dw##name, &tagTableRunStatus::dwTable##name }
constexpr ResultKind kServerKinds[] = {
    OSTRAND_RESULT_KIND(-269, OstrsvrRouteMsgErrNumPerMin),
    OSTRAND_RESULT_KIND(-8205, OstrsvrSystemErrNumPerMin),
    OSTRAND_RESULT_KIND(-1293, OstrsvrRecordExistErrNumPerMin),
    OSTRAND_RESULT_KIND(-4109, OstrsvrInvalidIndexErrNumPerMin),
    OSTRAND_RESULT_KIND(-1549, OstrsvrInvalidFielNameErrNumPerMin),
    OSTRAND_RESULT_KIND(-2061, OstrsvrInvalidFieldTypeErrNumPerMin),
    OSTRAND_RESULT_KIND(-3597, OstrsvrInvalidOperationErrNumPerMin),
    OSTRAND_RESULT_KIND(-6157, OstrsvrListFullErrNumPerMin),
    OSTRAND_RESULT_KIND(-11277, OstrsvrCommandMisMatchErrNumPerMin),
    OSTRAND_RESULT_KIND(-12301, OstrsvrOutUserRangeErrNumPerMin),
};
constexpr int32_t kProxySystemError = -5393;
constexpr ResultKind kProxyKinds[] = {
    OSTRAND_RESULT_KIND(kProxySystemError, OstrroxySendMsgErrNumPerMin),
    OSTRAND_RESULT_KIND(-6929, OstrroxyLackSomeFieldsNumPerMin),
    OSTRAND_RESULT_KIND(-3089, OstrroxyRouteMsgErrNumPerMin),
    OSTRAND_RESULT_KIND(-7185, OstrroxyFailedToFindNodeErrNumPerMin),
    OSTRAND_RESULT_KIND(-8209, OstrroxySwiftErrNumPerMin),
    OSTRAND_RESULT_KIND(-9233, OstrroxyRequestAccessCtrlErrNumPerMin),
};
#undef OSTRAND_RESULT_KIND

template <size_t N>
void CountKind(const ResultKind (&kinds)[N], int32_t result, const StatisticView& view) {
  for (const ResultKind& kind : kinds) {
    if (kind.result == result) {
      view.Count(kind.overall, kind.table);
      return;
    }
  }
}

// The counter of a table's QoS record that a failed answer goes to.
enum class QosCounter { kOther, kQuery, kInsert, kUpdate, kReplace, kDelete };

// 4225 and 4227 are request codes, so that their answers count as other, as that of the batch
// update (150) does: the counters have always been kept so.
QosCounter QosCounterOf(uint32_t cmd) {
  switch (cmd) {
    case 8:
    case 12:
    case 16:
    case 24:
    case 26:
    case 84:
    case 92:
    case 118:
    case 130:
    case 154:
    case 4225:
    case 4227:
    case 4240: return QosCounter::kQuery;
    case 2:
    case 18:
    case 146:
    case 156: return QosCounter::kInsert;
    case 6:
    case 22:
    case 30:
    case 90:
    case 158:
    case 4222:
    case 4224: return QosCounter::kUpdate;
    case 4:
    case 148:
    case 4216:
    case 4218: return QosCounter::kReplace;
    case 10:
    case 14:
    case 20:
    case 66:
    case 152: return QosCounter::kDelete;
    default: return QosCounter::kOther;
  }
}

void CountQosError(tagTableQos* qos, uint32_t cmd) {
  switch (QosCounterOf(cmd)) {  // by field: the record is packed
    case QosCounter::kQuery: qos->dwQueryErrCount += 1; break;
    case QosCounter::kInsert: qos->dwInsertErrCount += 1; break;
    case QosCounter::kUpdate: qos->dwUpdateErrCount += 1; break;
    case QosCounter::kReplace: qos->dwReplaceErrCount += 1; break;
    case QosCounter::kDelete: qos->dwDeleteErrCount += 1; break;
    case QosCounter::kOther: qos->iOtherErrorCount = CountOn(qos->iOtherErrorCount); break;
  }
}

void CountByResult(const OstrandServiceResponse& response, const StatisticView& view) {
  const uint32_t cmd = response.GetCmd();
  const uint32_t sub_cmd = response.GetSubCmd();
  const int32_t result = response.GetResult();
  const bool read = OstrandReqRespUtil::IsReadResponse(cmd, sub_cmd);
  const bool write = !read && OstrandReqRespUtil::IsWriteResponse(cmd, sub_cmd);
  if (result == 0) {
    OSTRAND_COUNT_SHARED(view, RespSucNumPerMin);
    if (read) OSTRAND_COUNT_SHARED(view, ReadRespSucNumPerMin);
    if (write) OSTRAND_COUNT_SHARED(view, WriteRespSucNumPerMin);
  } else if (read && OstrandReqRespUtil::ShouldRegardErrorToWarn(result)) {
    OSTRAND_COUNT_SHARED(view, RespWarnNumPerMin);
    OSTRAND_COUNT_SHARED(view, ReadRespWarnNumPerMin);
  } else {
    OSTRAND_COUNT_SHARED(view, RespErrNumPerMin);
    if (read) OSTRAND_COUNT_SHARED(view, ReadRespErrNumPerMin);
    if (write) OSTRAND_COUNT_SHARED(view, WriteRespErrNumPerMin);
  }
}

void CountByModule(int32_t result, const StatisticView& view, tagAccessRunStatus* access) {
  const uint8_t module = ModuleOf(result);
  if (std::find(std::begin(kServerModules), std::end(kServerModules), module) !=
      std::end(kServerModules)) {
    if (access != nullptr) {
      access->dwOstrsvrReturnErrCountPerMin += 1;
    }
    OSTRAND_COUNT_SHARED(view, OstrsvrErrNumPerMin);
    CountKind(kServerKinds, result, view);
  } else if (module == MODULE_API) {
    OSTRAND_COUNT_SHARED(view, ApiErrNumPerMin);
  } else if (module == MODULE_PROXY) {
    if (access != nullptr) {
      access->dwProxyReturnErrCountPerMin += 1;
      if (result == kProxySystemError) {
        access->dwProxyReturnSystemErrCountPerMin += 1;
      }
    }
    OSTRAND_COUNT_SHARED(view, OstrroxyErrNumPerMin);
    CountKind(kProxyKinds, result, view);
  }
}

constexpr int64_t kUnknown = -1;

// Milliseconds between two stamps in microseconds.
int64_t StageDelay(uint64_t earlier_us, uint64_t later_us) {
  return later_us < earlier_us ? kUnknown : static_cast<int64_t>((later_us - earlier_us) / 1000);
}

// A server that did not stamp leaves 0.
int64_t ServerStageDelay(uint64_t earlier_us, uint64_t later_us, uint64_t server_us) {
  return server_us == 0 ? kUnknown : StageDelay(earlier_us, later_us);
}

int64_t DelayUntilNow(uint64_t now_ms, uint64_t stamp_us) {
  const int64_t delay = static_cast<int64_t>(now_ms) - static_cast<int64_t>(stamp_us / 1000);
  return delay < 0 ? kUnknown : delay;
}

uint32_t SaturateToUint32(int64_t value) {
  return static_cast<uint32_t>(std::min<int64_t>(value, UINT32_MAX));
}

void BookDelay(DELAYSTATUS& status, int64_t delay) {
  if (delay == kUnknown) {
    status.dwDelayLowZero += 1;
    return;
  }
  status.dwMaxDelay = std::max(status.dwMaxDelay, SaturateToUint32(delay));
  uint32_t& bucket = delay < 11     ? status.dwDelayLow10MS
                     : delay < 101  ? status.dwDelayLow100MS
                     : delay < 501  ? status.dwDelayLow500MS
                     : delay > 1000 ? status.dwDelayHigh1S
                                    : status.dwDelayLow1000MS;
  bucket += 1;
}

// One stage that is computed; the handling stages inside the proxy are not.
struct Stage {
  DELAYSTATUS PERFSTATUS::*record;
  int64_t delay;
};

template <size_t N>
void BookStages(PERFSTATUS& summary, const Stage (&stages)[N]) {
  for (const Stage& stage : stages) {
    BookDelay(summary.*stage.record, stage.delay);
  }
}

// The fields of the slowest answer of the minute, by kind of response.
struct LatencyKind {
  bool (*matches)(uint32_t cmd, uint32_t sub_cmd);
  uint64_t tagOverallRunStatus::*max_latency;
  uint64_t tagOverallRunStatus::*time;
  uint32_t tagOverallRunStatus::*cmd;
  uint32_t tagOverallRunStatus::*ip;
  uint32_t tagOverallRunStatus::*port;
};

#define OSTRAND_LATENCY_KIND(matches, kind)                                                      \
  {                                                                                              \
    &OstrandReqRespUtil::matches, &tagOverallRunStatus::ull##kind##MaxLatencyPerMin,             \
        &tagOverallRunStatus::ull##kind##MaxDelayTime,                                           \
        &tagOverallRunStatus::dw##kind##MaxDelayCmd, &tagOverallRunStatus::dw##kind##MaxDelayIp, \
        &tagOverallRunStatus::dw##kind##MaxDelayPort                                             \
  }
constexpr LatencyKind kLatencyKinds[] = {
    OSTRAND_LATENCY_KIND(IsSimpleReadResponse, SimpleRead),
    OSTRAND_LATENCY_KIND(IsSimpleWriteResponse, SimpleWrite),
    OSTRAND_LATENCY_KIND(IsComplexAndTransReadRsp, ComplexRead),
    OSTRAND_LATENCY_KIND(IsComplexAndTransWriteRsp, ComplexWrite),
};
#undef OSTRAND_LATENCY_KIND

}  // namespace

void OstrandRouter::PerfSampling(OstrandServiceRequest* request) {
  const uint32_t cmd = request->GetCmd();
  const uint32_t sub_cmd = request->GetSubCmd();
  if (!OstrandReqRespUtil::IsSimpleReadRequest(cmd, sub_cmd) &&
      !OstrandReqRespUtil::IsSimpleWriteRequest(cmd, sub_cmd)) {
    return;
  }
  const uint64_t id = m_perfId;
  ++m_perfId;
  if (id % 100 >= m_perfPercent) {
    return;
  }
  PerfTest perf{};
  perf.dwVersion = PerfTest::kCurrentVersion;
  perf.ullApiSendTime = static_cast<uint64_t>(OstrandCommon::ReadCurrentMicroseconds());
  char buffer[OSTRAND_MAX_PERF_TEST_LEN];
  size_t used = 0;
  int ret = perf.pack(buffer, sizeof(buffer), &used, PerfTest::kCurrentVersion);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "perf.pack failed %d", ret);
    request->SetPerfTest(nullptr, 0);
    return;
  }
  ret = request->SetPerfTest(buffer, used);
  if (ret != 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, __func__, "perf.pack failed %d", ret);
  }
}

void OstrandRouter::CalStatisticPerf(SERVICEAPISTATISTIC* statistic, OSTRNET::CConnector* con,
                                     uint64_t curMs, PERFTEST* perf, int32_t cmd) {
  if (statistic == nullptr || con == nullptr || perf == nullptr) {
    return;
  }
  const int64_t total = DelayUntilNow(curMs, perf->ullApiSendTime);
  const Stage stages[] = {
      {&PERFSTATUS::stApiTotalDelay, total},
      {&PERFSTATUS::stApiToProxyDelay,
       StageDelay(perf->ullApiSendTime, perf->ullProxyFrontForwardTime)},
      {&PERFSTATUS::stProxyToSvrDelay,
       ServerStageDelay(perf->ullProxyEndForwardTime, perf->ullSvrArriveTime,
                        perf->ullSvrArriveTime)},
      {&PERFSTATUS::stSvrHandleDelay,
       ServerStageDelay(perf->ullSvrArriveTime, perf->ullSvrWorkerSendTime,
                        std::min(perf->ullSvrArriveTime, perf->ullSvrWorkerSendTime))},
      {&PERFSTATUS::stSvrToProxyDelay,
       ServerStageDelay(perf->ullSvrWorkerSendTime, perf->ullProxyFrontBackwardTime,
                        perf->ullSvrWorkerSendTime)},
      {&PERFSTATUS::stProxyTotalDelay,
       StageDelay(perf->ullProxyFrontForwardTime, perf->ullProxyEndBackwardTime)},
      {&PERFSTATUS::stProxyToApiDelay, DelayUntilNow(curMs, perf->ullProxyEndBackwardTime)},
  };
  BookStages(statistic->stPerfDelay, stages);

  int ip = 0;
  int port = 0;
  con->GetIPAndPort(ip, port);
  tagAccessRunStatus* access = m_statistic_mgr->GetAccessRunStatus(*statistic, ip, port);
  if (access != nullptr) {
    BookStages(access->stPerfDelay, stages);
    if (total > static_cast<int64_t>(access->dwMaxDelay)) {
      access->dwMaxDelay = SaturateToUint32(total);
      access->ullMaxDelayTime = curMs;
      access->dwMaxDelayCmd = static_cast<uint32_t>(cmd);
    }
  }

  tagOverallRunStatus& overall = statistic->stOverallRunStatus;
  for (const LatencyKind& kind : kLatencyKinds) {
    if (kind.matches(static_cast<uint32_t>(cmd), 0) &&
        total > static_cast<int64_t>(overall.*kind.max_latency)) {
      overall.*kind.max_latency = static_cast<uint64_t>(total);
      overall.*kind.time = curMs;
      overall.*kind.cmd = static_cast<uint32_t>(cmd);
      overall.*kind.ip = static_cast<uint32_t>(ip);
      overall.*kind.port = static_cast<uint32_t>(port);
      return;
    }
  }
}

void OstrandRouter::CountPeekError() {
  if (m_table_qos[0] != nullptr) {
    m_table_qos[0]->iRecvErrorCount = CountOn(m_table_qos[0]->iRecvErrorCount);
  }
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  if (statistic != nullptr) {
    statistic->stOverallRunStatus.dwRespErrNumPerMin += 1;
  }
}

void OstrandRouter::CountUnpackError() {
  if (m_table_qos[0] != nullptr) {
    m_table_qos[0]->iUnpackErrorCount = CountOn(m_table_qos[0]->iUnpackErrorCount);
  }
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  if (statistic != nullptr) {
    statistic->stOverallRunStatus.dwUnpackErrNumPerMin += 1;
  }
}

// A proxy that invents results fills the map up to a bound. Then the code next to 0 makes room: the
// print begins with the others and ends long before it. Without memory a new code is not listed.
void OstrandRouter::CountErrorCode(int32_t result) {
  const auto known = m_recvErrorCodeMap.find(result);
  if (known != m_recvErrorCodeMap.end()) {
    known->second = CountOn(known->second);
    return;
  }
  try {
    m_recvErrorCodeMap.emplace(result, 1);
    if (m_recvErrorCodeMap.size() > kMaxErrorCodes) {
      m_recvErrorCodeMap.erase(std::prev(m_recvErrorCodeMap.end()));
    }
  } catch (const std::bad_alloc&) {
  }
}

// The counting step of InnerRecvResponse; it logs under that name.
void OstrandRouter::CountResponse(ProxyServer* server, const OstrandServiceResponse& response,
                                  int16_t table_subscript, int64_t now_ms, PerfTest* perf) {
  const uint32_t cmd = response.GetCmd();
  const int32_t result = response.GetResult();
  tagServiceApiStatistic* statistic = m_statistic_mgr->GetServiceApiStatistic(m_app_id, m_zone_id);
  const StatisticView view(statistic, table_subscript);
  tagAccessRunStatus* access =
      statistic != nullptr ? FindAccess(*statistic, server->connector) : nullptr;
  if (access != nullptr) {
    access->dwResponseCountPerMin += 1;
    if (cmd == OSTRAND_API_BATCH_GET_RES) {
      access->dwBatchResponseCountPerMin += 1;
    }
  }
  if (result < 0 &&
      std::find(std::begin(kNotPrinted), std::end(kNotPrinted), result) == std::end(kNotPrinted)) {
    CountErrorCode(result);
  }
  CountByResult(response, view);
  CountByModule(result, view, access);
  if (m_statistic_mgr->GetDynamicErrorCode(m_app_id, m_zone_id) == result && result != 0) {
    if (access != nullptr) {
      access->dwDynamicErrCountPerMin += 1;
    }
    OSTRAND_COUNT_SHARED(view, DynamicErrNumPerMin);
  }

  const char* table = response.GetTableName(nullptr);
  const int qos_index = FindTableQos(response.GetZoneId(), table);
  if (qos_index < 0) {
    ROUTER_LOG_DEBUG(m_logger, m_module_id, "InnerRecvResponse",
                     "the table(\"%s\") is not existed in the array m_table_qos", table);
  } else if (result != 0) {
    CountQosError(m_table_qos[qos_index], cmd);
  }
  CalStatisticPerf(statistic, server->connector, static_cast<uint64_t>(now_ms), perf,
                   static_cast<int32_t>(cmd));
}

void OstrandRouter::PrintErrorCodeStatistics() {
  if (m_recvErrorCodeMap.empty()) {
    return;
  }
  char text[1024];
  size_t length = 0;
  for (const auto& [code, count] : m_recvErrorCodeMap) {
    const int printed =
        std::snprintf(text + length, sizeof(text) - length, "\t%d:%d\n", code, count);
    length += static_cast<size_t>(std::max(printed, 0));
    if (length >= sizeof(text)) {
      break;
    }
  }
  ROUTER_LOG_CRIT(m_logger, m_module_id, __func__,
                  "App %d Zone %d ErrCode Statistics(ErrCode-Num):\n%s", static_cast<int>(m_app_id),
                  m_zone_id, text);
  m_recvErrorCodeMap.clear();
}

}  // namespace OstrandService
