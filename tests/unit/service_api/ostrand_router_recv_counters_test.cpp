// What receiving counts: each kind of answer as one row, exactly.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "protocol/perf_test.h"
#include "unit/service_api/router_recv_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::AllocationFaults;
using OstrandFakes::Counters;
using OstrandFakes::NonZeroCounters;

using Names = std::vector<std::string>;

// Response commands of each class.
constexpr uint32_t kRead = 8;
constexpr uint32_t kListRead = 12;
constexpr uint32_t kBatchGet = 24;
constexpr uint32_t kWrite = 2;
constexpr uint32_t kBatchWrite = 146;
constexpr uint32_t kNeither = 4234;

struct Row {
  uint32_t cmd;
  int32_t result;
  Names shared;      // counted overall and for the table
  Names accesses;    // for the proxy's access, beside dwResponseCountPerMin
  const char* slot;  // in the table's own record
};

// Of servers (modules 5, 7, 9 and 13), proxies (17) and the client library (19).
const Names kReadError = {"RespErrNumPerMin", "ReadRespErrNumPerMin"};
const Names kWriteError = {"RespErrNumPerMin", "WriteRespErrNumPerMin"};
const Names kWarning = {"RespWarnNumPerMin", "ReadRespWarnNumPerMin"};
const Names kServerError = {"OstrsvrErrNumPerMin"};
const Names kProxyError = {"OstrroxyErrNumPerMin"};
const Names kByServer = {"dwOstrsvrReturnErrCountPerMin"};
const Names kByProxy = {"dwProxyReturnErrCountPerMin"};

Names operator+(Names names, const Names& more) {
  names.insert(names.end(), more.begin(), more.end());
  return names;
}

std::vector<Row> Rows() {
  const char* const kQuery = "dwQueryErrCount";
  const char* const kInsert = "dwInsertErrCount";
  return {
      // Success, by class.
      {kRead, 0, {"RespSucNumPerMin", "ReadRespSucNumPerMin"}, {}, nullptr},
      {kListRead, 0, {"RespSucNumPerMin", "ReadRespSucNumPerMin"}, {}, nullptr},
      {26, 0, {"RespSucNumPerMin", "ReadRespSucNumPerMin"}, {}, nullptr},
      {kBatchGet,
       0,
       {"RespSucNumPerMin", "ReadRespSucNumPerMin"},
       {"dwBatchResponseCountPerMin"},
       nullptr},
      {kWrite, 0, {"RespSucNumPerMin", "WriteRespSucNumPerMin"}, {}, nullptr},
      {kBatchWrite, 0, {"RespSucNumPerMin", "WriteRespSucNumPerMin"}, {}, nullptr},
      {kNeither, 0, {"RespSucNumPerMin"}, {}, nullptr},

      // Warnings are for reads; both are a server's all the same.
      {kRead, -1293, kWarning + kServerError + Names{"OstrsvrRecordExistErrNumPerMin"}, kByServer,
       kQuery},
      {kRead, -7949, kWarning + kServerError, kByServer, kQuery},
      {kListRead, -7949, kWarning + kServerError, kByServer, kQuery},
      {kBatchGet, -7949, kWarning + kServerError, kByServer + Names{"dwBatchResponseCountPerMin"},
       kQuery},
      {kWrite, -1293, kWriteError + kServerError + Names{"OstrsvrRecordExistErrNumPerMin"},
       kByServer, kInsert},
      {kWrite, -7949, kWriteError + kServerError, kByServer, kInsert},
      {kNeither, -7949, Names{"RespErrNumPerMin"} + kServerError, kByServer, "iOtherErrorCount"},
      {kRead, 1293, kReadError + kServerError, kByServer, kQuery},

      // Errors, by class.
      {kRead, -1, kReadError, {}, kQuery},
      {kListRead, -1, kReadError, {}, kQuery},
      {kBatchGet, -1, kReadError, {"dwBatchResponseCountPerMin"}, kQuery},
      {kWrite, -1, kWriteError, {}, kInsert},
      {kBatchWrite, -1, kWriteError, {}, kInsert},
      {kNeither, -1, {"RespErrNumPerMin"}, {}, "iOtherErrorCount"},
      {kRead, 1, kReadError, {}, kQuery},

      // By module: the low byte of the absolute value.
      {kRead, -5, kReadError + kServerError, kByServer, kQuery},
      {kRead, -7, kReadError + kServerError, kByServer, kQuery},
      {kRead, -9, kReadError + kServerError, kByServer, kQuery},
      {kRead, -13, kReadError + kServerError, kByServer, kQuery},
      {kWrite, -13, kWriteError + kServerError, kByServer, kInsert},
      {kRead, -19, kReadError + Names{"ApiErrNumPerMin"}, {}, kQuery},
      {kWrite, -19, kWriteError + Names{"ApiErrNumPerMin"}, {}, kInsert},
      {kRead, -20499, kReadError + Names{"ApiErrNumPerMin"}, {}, kQuery},
      {kRead, -17, kReadError + kProxyError, kByProxy, kQuery},
      {kWrite, -17, kWriteError + kProxyError, kByProxy, kInsert},
      {kRead, -0x7FFFFF0D, kReadError + kServerError, kByServer, kQuery},
      {kRead, -0x7FFFFF11, kReadError + kProxyError, kByProxy, kQuery},
      {kRead, -0x7FFFFF13, kReadError + Names{"ApiErrNumPerMin"}, {}, kQuery},
      {kRead, -256, kReadError, {}, kQuery},
      {kRead, -4, kReadError, {}, kQuery},
      {kRead, -6, kReadError, {}, kQuery},
      {kRead, -8, kReadError, {}, kQuery},
      {kRead, -10, kReadError, {}, kQuery},
      {kRead, -12, kReadError, {}, kQuery},
      {kRead, -14, kReadError, {}, kQuery},
      {kRead, -16, kReadError, {}, kQuery},
      {kRead, -18, kReadError, {}, kQuery},
      {kRead, -20, kReadError, {}, kQuery},
      // 0xF3 and 0xED, the complements of 13 and 19.
      {kRead, -243, kReadError, {}, kQuery},
      {kRead, -237, kReadError, {}, kQuery},
      {kRead, INT32_MIN, kReadError, {}, kQuery},
      {kRead, INT32_MAX, kReadError, {}, kQuery},
      // Positive results have a module too, but no kind.
      {kRead, 5, kReadError + kServerError, kByServer, kQuery},
      {kRead, 269, kReadError + kServerError, kByServer, kQuery},
      {kRead, 12301, kReadError + kServerError, kByServer, kQuery},
      {kRead, 17, kReadError + kProxyError, kByProxy, kQuery},
      {kRead, 5393, kReadError + kProxyError, kByProxy, kQuery},
      {kRead, 19, kReadError + Names{"ApiErrNumPerMin"}, {}, kQuery},

      // The kinds of server errors.
      {kRead, -269, kReadError + kServerError + Names{"OstrsvrRouteMsgErrNumPerMin"}, kByServer,
       kQuery},
      {kRead, -8205, kReadError + kServerError + Names{"OstrsvrSystemErrNumPerMin"}, kByServer,
       kQuery},
      {kRead, -4109, kReadError + kServerError + Names{"OstrsvrInvalidIndexErrNumPerMin"},
       kByServer, kQuery},
      {kRead, -1549, kReadError + kServerError + Names{"OstrsvrInvalidFielNameErrNumPerMin"},
       kByServer, kQuery},
      {kRead, -2061, kReadError + kServerError + Names{"OstrsvrInvalidFieldTypeErrNumPerMin"},
       kByServer, kQuery},
      {kRead, -3597, kReadError + kServerError + Names{"OstrsvrInvalidOperationErrNumPerMin"},
       kByServer, kQuery},
      {kRead, -6157, kReadError + kServerError + Names{"OstrsvrListFullErrNumPerMin"}, kByServer,
       kQuery},
      {kRead, -11277, kReadError + kServerError + Names{"OstrsvrCommandMisMatchErrNumPerMin"},
       kByServer, kQuery},
      {kRead, -12301, kReadError + kServerError + Names{"OstrsvrOutUserRangeErrNumPerMin"},
       kByServer, kQuery},
      {kWrite, -12301, kWriteError + kServerError + Names{"OstrsvrOutUserRangeErrNumPerMin"},
       kByServer, kInsert},
      {kBatchGet, -269, kReadError + kServerError + Names{"OstrsvrRouteMsgErrNumPerMin"},
       kByServer + Names{"dwBatchResponseCountPerMin"}, kQuery},

      // The kinds of proxy errors.
      {kRead, -5393, kReadError + kProxyError + Names{"OstrroxySendMsgErrNumPerMin"},
       kByProxy + Names{"dwProxyReturnSystemErrCountPerMin"}, kQuery},
      {kRead, -6929, kReadError + kProxyError + Names{"OstrroxyLackSomeFieldsNumPerMin"}, kByProxy,
       kQuery},
      {kRead, -3089, kReadError + kProxyError + Names{"OstrroxyRouteMsgErrNumPerMin"}, kByProxy,
       kQuery},
      {kRead, -7185, kReadError + kProxyError + Names{"OstrroxyFailedToFindNodeErrNumPerMin"},
       kByProxy, kQuery},
      {kRead, -8209, kReadError + kProxyError + Names{"OstrroxySwiftErrNumPerMin"}, kByProxy,
       kQuery},
      {kRead, -9233, kReadError + kProxyError + Names{"OstrroxyRequestAccessCtrlErrNumPerMin"},
       kByProxy, kQuery},
      {kWrite, -5393, kWriteError + kProxyError + Names{"OstrroxySendMsgErrNumPerMin"},
       kByProxy + Names{"dwProxyReturnSystemErrCountPerMin"}, kInsert},
  };
}

// What a row counts when the table is number 2.
Counters Expected(const Row& row) {
  Counters expected;
  for (const std::string& name : row.shared) {
    expected["dw" + name] = 1;
    expected["table 2: dwTable" + name] = 1;
  }
  expected["access 0: dwResponseCountPerMin"] = 1;
  for (const std::string& name : row.accesses) {
    expected["access 0: " + name] = 1;
  }
  return expected;
}

class RecvCountersTest : public RouterRecvTest {
 protected:
  static Counters SlotOf(const Row& row) {
    return row.slot != nullptr ? Counters({{row.slot, 1}}) : Counters();
  }
  static std::map<int32_t, int32_t> CodesOf(const Row& row) {
    const bool counted = row.result < 0 && row.result != -1293 && row.result != -7949;
    return counted ? std::map<int32_t, int32_t>({{row.result, 1}}) : std::map<int32_t, int32_t>();
  }

  // Delivers the answer of each row and looks at what was counted.
  template <typename Look>
  void EachRow(const std::string& user_buff, Look look) {
    for (const Row& row : Rows()) {
      SCOPED_TRACE(testing::Message() << "command " << row.cmd << ", result " << row.result);
      Deliver(row.cmd, row.result, user_buff);
      look(row);
    }
  }
  template <typename Look>
  void EachRow(Look look) {
    EachRow(Context(kUnknownId, kSubscript), look);
  }
};

TEST_F(RecvCountersTest, CountsWhatTheRowSays) {
  EachRow([this](const Row& row) {
    EXPECT_EQ(Expected(row), Counted());
    EXPECT_EQ(SlotOf(row), NonZeroCounters(qos));
    EXPECT_EQ(Counters(), NonZeroCounters(first_qos)) << "which is another table's";
    EXPECT_EQ(CodesOf(row), peer->m_recvErrorCodeMap());
    EXPECT_TRUE(logger.LinesOf(OSTRAND_LOG_LEVEL_DEBUG).size() == 1) << "of unpacking alone";
    EXPECT_EQ(0U, proxy->m_response_count) << "counted when the frame came";
  });
}

TEST_F(RecvCountersTest, CountsATableOutsideTheRecordOnlyOverall) {
  const struct {
    int32_t tables;
    int16_t subscript;
  } kOutside[] = {
      {4, 4},        {4, -1},    {4, 255},   {0, 0},      {300, 256},         {300, 299},
      {-1, 0},       {256, 256}, {4, 32767}, {4, -32768}, {INT32_MAX, 32767}, {4, 258},
      {INT32_MIN, 0}};
  for (const auto& outside : kOutside) {
    SCOPED_TRACE(testing::Message() << outside.subscript << " of " << outside.tables);
    statistic->iTableCount = outside.tables;
    EachRow(Context(kUnknownId, outside.subscript),
            [this](const Row& row) { EXPECT_EQ(WithoutTables(Expected(row)), Counted()); });
  }
}

TEST_F(RecvCountersTest, CountsTheFirstAndTheLastTable) {
  const struct {
    int32_t tables;
    int16_t subscript;
  } kInside[] = {{1, 0}, {256, 255}, {1000, 255}};
  for (const auto& inside : kInside) {
    statistic->iTableCount = inside.tables;
    EachRow(Context(kUnknownId, inside.subscript), [&](const Row& row) {
      const Counters counted = Counted();
      for (const std::string& name : row.shared) {
        EXPECT_EQ(1U,
                  counted.count("table " + std::to_string(inside.subscript) + ": dwTable" + name))
            << name;
      }
    });
  }
}

TEST_F(RecvCountersTest, CountsAnAnswerWithoutContextOnlyOverall) {
  EachRow("", [this](const Row& row) {
    EXPECT_EQ(WithoutTables(Expected(row)), Counted());
    EXPECT_EQ(SlotOf(row), NonZeroCounters(qos));
  });
}

TEST_F(RecvCountersTest, TakesTheTableOfADamagedContextButNotOfAForeignOne) {
  std::string damaged = Context(kUnknownId, kSubscript);
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  EachRow(damaged, [this](const Row& row) { EXPECT_EQ(Expected(row), Counted()); });
  EachRow(Context(kUnknownId, kSubscript, 0x12345679),
          [this](const Row& row) { EXPECT_EQ(WithoutTables(Expected(row)), Counted()); });
}

TEST_F(RecvCountersTest, CountsInTheRoutersOwnWithoutAStatisticsRecord) {
  LoseTheStatistics();
  statistics.SetDynamicErrorCode(-269);
  EachRow([this](const Row& row) {
    EXPECT_EQ(Counters(), Counted());
    EXPECT_EQ(SlotOf(row), NonZeroCounters(qos)) << "by the response's zone";
    EXPECT_EQ(CodesOf(row), peer->m_recvErrorCodeMap());
  });
}

TEST_F(RecvCountersTest, CountsTheRestForAProxyWithoutAccess) {
  connector->SetAddress(1, 2);
  EachRow([this](const Row& row) {
    Counters expected = Expected(row);
    expected.erase("access 0: dwResponseCountPerMin");
    for (const std::string& name : row.accesses) {
      expected.erase("access 0: " + name);
    }
    EXPECT_EQ(expected, Counted());
    EXPECT_EQ(SlotOf(row), NonZeroCounters(qos));
  });
}

TEST_F(RecvCountersTest, CountsTheRestWithoutARegisteredTable) {
  LoseTheTables();
  EachRow([this](const Row& row) {
    EXPECT_EQ(Expected(row), Counted());
    EXPECT_EQ(Counters(), NonZeroCounters(qos));
    EXPECT_EQ(CodesOf(row), peer->m_recvErrorCodeMap());
    EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG,
                              "the table(\"players\") is not existed in the array m_table_qos"));
    EXPECT_EQ("InnerRecvResponse", logger.Lines().back().function);
  });
}

TEST_F(RecvCountersTest, CountsForTheProxyThatAnswered) {
  ForgetCounts();
  other_connector->QueueFrame(FrameOf({}));
  EXPECT_EQ(1, peer->InnerRecvResponse(other_proxy, &response));
  EXPECT_EQ(1U, Counted().count("access 1: dwResponseCountPerMin"));
  EXPECT_EQ(0U, Counted().count("access 0: dwResponseCountPerMin"));
}

TEST_F(RecvCountersTest, AddsUp) {
  ForgetCounts();
  for (int i = 0; i < 3; ++i) {
    Queue(AnswerOf(kRead, -269, Context(kUnknownId, kSubscript)));
    Queue(AnswerOf(kWrite, 0, Context(kUnknownId, kSubscript)));
    EXPECT_EQ(1, InnerRecv());
    EXPECT_EQ(1, InnerRecv());
  }
  EXPECT_EQ(6U, statistic->astAccessStatistic[0].dwResponseCountPerMin);
  EXPECT_EQ(3U, statistic->stOverallRunStatus.dwRespErrNumPerMin);
  EXPECT_EQ(3U, statistic->stOverallRunStatus.dwOstrsvrRouteMsgErrNumPerMin);
  EXPECT_EQ(3U, statistic->astTableStatistic[2].stTableRunStatus.dwTableRespSucNumPerMin);
  EXPECT_EQ(3U, qos.dwQueryErrCount);
  EXPECT_EQ((std::map<int32_t, int32_t>{{-269, 3}}), peer->m_recvErrorCodeMap());
}

// A proxy may invent results without end; what the print begins with is kept.
TEST_F(RecvCountersTest, KeepsTheLowestCodesOfVeryMany) {
  constexpr size_t kMost = 65536;
  ForgetCounts();
  std::map<int32_t, int32_t>& codes = peer->m_recvErrorCodeMap();
  for (size_t i = 0; i < kMost; ++i) {
    codes[-100000 - static_cast<int32_t>(i)] = 7;
  }
  for (const int32_t result : {-99999, -900000, -900000, -100001}) {
    Queue(AnswerOf(kRead, result, Context(kUnknownId, kSubscript)));
    EXPECT_EQ(1, InnerRecv());
  }
  EXPECT_EQ(kMost, codes.size());
  EXPECT_EQ(2, codes[-900000]);
  EXPECT_EQ(8, codes[-100001]);
  EXPECT_EQ(0U, codes.count(-99999));
  EXPECT_EQ(0U, codes.count(-100000)) << "which made room";
}

TEST_F(RecvCountersTest, CountsTheRestWithoutMemoryForANewCode) {
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  Queue(AnswerOf(kRead, -269, Context(kUnknownId, kSubscript)));
  StartOver();
  AllocationFaults faults;
  faults.FailThrowing(1);
  EXPECT_EQ(1, peer->InnerRecvResponse(proxy, &response));
  EXPECT_TRUE(faults.struck());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  EXPECT_EQ(1U, statistic->stOverallRunStatus.dwRespErrNumPerMin);
  EXPECT_EQ(1U, qos.dwQueryErrCount);
}

// The client library's own verdict counts as the answer's result.
TEST_F(RecvCountersTest, CountsAPackageOutOfOrderAsAnErrorOfTheLibrary) {
  const int32_t id = InFlight(25);
  Answer package = AnswerOf(kGetByPartKeyRes, 0, Context(id, kSubscript), 0);
  package.more = true;
  Queue(package);
  EXPECT_EQ(1, InnerRecv());
  ASSERT_EQ(1, latency.GetLatencyData(id)->next_sub_pkg_seq);
  ForgetCounts();
  package.number = 2;
  Queue(package);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(Sum({Shared("RespErrNumPerMin"), Shared("ReadRespErrNumPerMin"),
                 Shared("ApiErrNumPerMin"), Access("dwResponseCountPerMin")}),
            Counted());
  EXPECT_EQ(Counters({{"dwQueryErrCount", 1}}), NonZeroCounters(qos));
  EXPECT_EQ((std::map<int32_t, int32_t>{{-18963, 1}}), peer->m_recvErrorCodeMap());
}

// Results are counted before the table's own record is looked up, delays behind it.
TEST_F(RecvCountersTest, CountsThenLooksTheTableUpThenBooksTheDelay) {
  LoseTheTables();
  ostrand_protocol_cs::PerfTest perf;
  perf.construct();
  perf.ullApiSendTime = static_cast<uint64_t>(kNow - 28) * 1000;
  char packed[256];
  size_t len = 0;
  ASSERT_EQ(0, perf.pack(packed, sizeof(packed), &len, 119));
  Answer answer = AnswerOf(kRead, -269, Context(kUnknownId, kSubscript));
  answer.perf_test.assign(packed, len);
  ForgetCounts();
  Queue(answer);
  int seen = 0;
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    if (line.text == "the table(\"players\") is not existed in the array m_table_qos") {
      ++seen;
      EXPECT_EQ(1U, statistic->stOverallRunStatus.dwRespErrNumPerMin);
      EXPECT_EQ(1U, statistic->stOverallRunStatus.dwOstrsvrRouteMsgErrNumPerMin);
      EXPECT_EQ((std::map<int32_t, int32_t>{{-269, 1}}), peer->m_recvErrorCodeMap());
      EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLow100MS);
      EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwMaxDelay);
    }
  });
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(1, seen);
  EXPECT_EQ(1U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLow100MS);
  EXPECT_EQ(28U, statistic->stPerfDelay.stApiTotalDelay.dwMaxDelay);
}

// --- Packages that never became an answer ---

TEST_F(RecvCountersTest, CountsAFailedPeekInTheFirstRecordAndOverall) {
  connector->PushPeekError(-269);
  EXPECT_EQ(-269, InnerRecv());
  EXPECT_EQ(Counters({{"iRecvErrorCount", 1}}), NonZeroCounters(first_qos));
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_EQ(Counters({{"dwRespErrNumPerMin", 1}}), Counted());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
}

TEST_F(RecvCountersTest, CountsAFailedUnpackingInTheFirstRecordAndOverall) {
  response.SetUnpackResult(-269);
  Queue({});
  EXPECT_EQ(-269, InnerRecv());
  EXPECT_EQ(Counters({{"iUnpackErrorCount", 1}}), NonZeroCounters(first_qos));
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_EQ(Counters({{"dwUnpackErrNumPerMin", 1}}), Counted());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
}

TEST_F(RecvCountersTest, CountsFailuresWithoutAStatisticsRecord) {
  LoseTheStatistics();
  connector->PushPeekError(-269);
  EXPECT_EQ(-269, InnerRecv());
  response.SetUnpackResult(-77);
  Queue({});
  EXPECT_EQ(-77, InnerRecv());
  EXPECT_EQ(Counters({{"iRecvErrorCount", 1}, {"iUnpackErrorCount", 1}}),
            NonZeroCounters(first_qos));
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(RecvCountersTest, CountsFailuresWithoutARegisteredTable) {
  LoseTheTables();
  connector->PushPeekError(-269);
  EXPECT_EQ(-269, InnerRecv());
  response.SetUnpackResult(-77);
  Queue({});
  EXPECT_EQ(-77, InnerRecv());
  EXPECT_EQ(Counters({{"dwRespErrNumPerMin", 1}, {"dwUnpackErrNumPerMin", 1}}), Counted());
  EXPECT_EQ(Counters(), NonZeroCounters(first_qos));
}

}  // namespace
}  // namespace OstrandService
