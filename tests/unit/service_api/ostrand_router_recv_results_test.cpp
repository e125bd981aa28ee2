// Counting an answer's result as the code that is watched, and in its table's own record.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "unit/service_api/router_recv_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandFakes::Counters;
using OstrandFakes::NonZeroCounters;

// --- The code that is watched ---

class DynamicCodeTest : public RouterRecvTest {
 protected:
  // Whether an answer with this result counts as the watched code.
  bool Counts(int32_t watched, int32_t result) {
    statistics.SetDynamicErrorCode(watched);
    Deliver(kGetRes, result);
    const Counters counted = Counted();
    const Counters expected = {{"dwDynamicErrNumPerMin", 1},
                               {"table 2: dwTableDynamicErrNumPerMin", 1},
                               {"access 0: dwDynamicErrCountPerMin", 1}};
    Counters dynamic;
    for (const auto& [name, count] : counted) {
      if (name.find("Dynamic") != std::string::npos) {
        dynamic[name] = count;
      }
    }
    EXPECT_TRUE(dynamic.empty() || dynamic == expected);
    return !dynamic.empty();
  }
};

TEST_F(DynamicCodeTest, IsCountedWhateverItsModule) {
  for (const int32_t code : {-1, -5, -269, -17, -19, -256, -7949, 1, 269, INT32_MIN, INT32_MAX}) {
    EXPECT_TRUE(Counts(code, code)) << code;
  }
}

TEST_F(DynamicCodeTest, IsNotCountedForOtherResultsNorForSuccess) {
  EXPECT_FALSE(Counts(-269, -270));
  EXPECT_FALSE(Counts(-269, 269));
  EXPECT_FALSE(Counts(-269, 0));
  EXPECT_FALSE(Counts(0, -269));
  EXPECT_FALSE(Counts(0, 0)) << "0: no code is watched";
}

TEST_F(DynamicCodeTest, IsCountedBesideModuleAndKind) {
  statistics.SetDynamicErrorCode(-5393);
  Deliver(kGetRes, -5393);
  EXPECT_EQ(Sum({Shared("RespErrNumPerMin"), Shared("ReadRespErrNumPerMin"),
                 Shared("OstrroxyErrNumPerMin"), Shared("OstrroxySendMsgErrNumPerMin"),
                 Shared("DynamicErrNumPerMin"), Access("dwResponseCountPerMin"),
                 Access("dwProxyReturnErrCountPerMin"), Access("dwProxyReturnSystemErrCountPerMin"),
                 Access("dwDynamicErrCountPerMin")}),
            Counted());
}

TEST_F(DynamicCodeTest, IsCountedForATableOutsideTheRecordOnlyOverall) {
  statistics.SetDynamicErrorCode(-1);
  Deliver(kGetRes, -1, Context(kUnknownId, kTables));
  EXPECT_EQ(Counters({{"dwRespErrNumPerMin", 1},
                      {"dwReadRespErrNumPerMin", 1},
                      {"dwDynamicErrNumPerMin", 1},
                      {"access 0: dwResponseCountPerMin", 1},
                      {"access 0: dwDynamicErrCountPerMin", 1}}),
            Counted());
}

// --- The table's own record ---

class TableErrorTest : public RouterRecvTest {};

const std::map<std::string, std::vector<uint32_t>>& CommandsOfCounters() {
  static const std::map<std::string, std::vector<uint32_t>> kCommands = {
      {"dwQueryErrCount", {8, 12, 16, 24, 26, 84, 92, 118, 130, 154, 4225, 4227, 4240}},
      {"dwInsertErrCount", {2, 18, 146, 156}},
      {"dwUpdateErrCount", {6, 22, 30, 90, 158, 4222, 4224}},
      {"dwReplaceErrCount", {4, 148, 4216, 4218}},
      {"dwDeleteErrCount", {10, 14, 20, 66, 152}},
      // Everything else that a package can carry, the answers to queries among it.
      {"iOtherErrorCount",
       {1,   3,   5,   7,   9,   11,  13,   15,   17,   19,   21,   23,   25,   27,   28,
        29,  51,  52,  53,  54,  65,  67,   68,   83,   89,   91,   117,  129,  145,  147,
        149, 150, 151, 153, 155, 157, 4215, 4217, 4221, 4223, 4226, 4228, 4233, 4234, 4239}}};
  return kCommands;
}

TEST_F(TableErrorTest, IsCountedByCommand) {
  for (const auto& [counter, commands] : CommandsOfCounters()) {
    for (const uint32_t cmd : commands) {
      SCOPED_TRACE(cmd);
      Deliver(cmd, -269);
      EXPECT_EQ(Counters({{counter, 1}}), NonZeroCounters(qos));
      Deliver(cmd, 0);
      EXPECT_EQ(Counters(), NonZeroCounters(qos));
    }
  }
}

TEST_F(TableErrorTest, IsCountedAsOtherForCommandsThatNobodyKnows) {
  for (const uint32_t cmd : {0U, 31U, 9999U, 0x80000008U, 0xFFFFFFFFU}) {
    response.OnUnpack([&](int) { response.pkg().stHead.dwCmd = cmd; });
    Deliver(kGetRes, -269);
    EXPECT_EQ(Counters({{"iOtherErrorCount", 1}}), NonZeroCounters(qos)) << cmd;
  }
}

TEST_F(TableErrorTest, IsCountedForWarningsAndPositiveResultsToo) {
  for (const int32_t result : {-1293, -7949, 1, INT32_MIN, INT32_MAX}) {
    Deliver(kGetRes, result);
    EXPECT_EQ(Counters({{"dwQueryErrCount", 1}}), NonZeroCounters(qos)) << result;
  }
}

TEST_F(TableErrorTest, IsLookedUpInTheZoneOfTheAnswer) {
  tagTableQos foreign = Qos(kZoneId + 3, kTable);
  router->SetQos(&foreign);
  ForgetCounts();
  Answer answer;
  answer.result = -269;
  answer.zone_id = kZoneId + 3;
  answer.user_buff = Context(kUnknownId, kSubscript);
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(Counters({{"dwQueryErrCount", 1}}), NonZeroCounters(foreign));
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_EQ(1U, statistic->stOverallRunStatus.dwRespErrNumPerMin) << "which is the router's zone's";
  answer.zone_id = kZoneId + 4;
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG,
                            "the table(\"players\") is not existed in the array m_table_qos"));
}

TEST_F(TableErrorTest, IsMissedAlsoByAGoodAnswer) {
  LoseTheTables();
  Deliver(kGetRes, 0);
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG,
                            "the table(\"players\") is not existed in the array m_table_qos"));
}

}  // namespace
}  // namespace OstrandService
