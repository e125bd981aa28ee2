// Booking the delays of a sampled request's way.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/perf_test.h"
#include "unit/service_api/router_traffic_test.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::PERFTEST;
using OstrandFakes::Counters;

constexpr int64_t kSendMs = OstrandFakes::FakeClock::kStartMs;
constexpr uint64_t kSendUs = kSendMs * 1000;
constexpr int32_t kSimpleReadRes = 8;
constexpr int32_t kMetadataRes = 28;  // of no kind

class PerfDelayTest : public RouterTrafficTest {
 protected:
  // An answer that was 1 ms on its way to the proxy, 2 in it, 3 to the server, and so on.
  PerfDelayTest() {
    perf.construct();
    perf.ullApiSendTime = kSendUs;
    perf.ullProxyFrontForwardTime = kSendUs + 1000;
    perf.ullProxyEndForwardTime = kSendUs + 3000;
    perf.ullSvrArriveTime = kSendUs + 6000;
    perf.ullSvrMainForwardTime = kSendUs + 6200;
    perf.ullSvrWorkerRecvTime = kSendUs + 6300;
    perf.ullSvrWorkerSendTime = kSendUs + 10000;
    perf.ullProxyFrontBackwardTime = kSendUs + 15000;
    perf.ullProxyEndBackwardTime = kSendUs + 21000;
    perf.ullApiRecvTime = kSendUs + 777000;
    perf.dwProxyReqLen = 12345;
  }

  void Book(int64_t now_ms, int32_t cmd = kMetadataRes) {
    Book(statistic, connector, now_ms, &perf, cmd);
  }
  void Book(tagServiceApiStatistic* in, OSTRNET::CConnector* con, int64_t now_ms, PERFTEST* of,
            int32_t cmd) {
    peer->CalStatisticPerf(in, con, static_cast<uint64_t>(now_ms), of, cmd);
  }
  // The counters of one stage, overall and of access 0, after a single answer.
  static Counters Stage(const std::string& stage, const std::string& bucket, int64_t max_delay) {
    Counters both;
    for (const char* const of : {"stPerfDelay.", "access 0: stPerfDelay."}) {
      both[of + stage + "." + bucket] = 1;
      if (max_delay > 0) {
        both[of + stage + ".dwMaxDelay"] = max_delay;
      }
    }
    return both;
  }
  // What stands of a stage, overall and of access 0.
  Counters Of(const std::string& stage) const {
    Counters of_stage;
    for (const auto& [name, count] : Counted()) {
      if (name.find("stPerfDelay." + stage + ".") != std::string::npos) {
        of_stage[name] = count;
      }
    }
    return of_stage;
  }

  PERFTEST perf;
};

TEST_F(PerfDelayTest, AreBookedForEachStage) {
  Book(kSendMs + 28);
  const Counters slowest = {{"access 0: dwMaxDelay", 28},
                            {"access 0: ullMaxDelayTime", kSendMs + 28},
                            {"access 0: dwMaxDelayCmd", kMetadataRes}};
  EXPECT_EQ(Sum({Stage("stApiTotalDelay", "dwDelayLow100MS", 28),
                 Stage("stApiToProxyDelay", "dwDelayLow10MS", 1),
                 Stage("stProxyToSvrDelay", "dwDelayLow10MS", 3),
                 Stage("stSvrHandleDelay", "dwDelayLow10MS", 4),
                 Stage("stSvrToProxyDelay", "dwDelayLow10MS", 5),
                 Stage("stProxyTotalDelay", "dwDelayLow100MS", 20),
                 Stage("stProxyToApiDelay", "dwDelayLow10MS", 7), slowest}),
            Counted())
      << "but not for the two inside the proxy";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(PerfDelayTest, AreNotBookedWhenSomethingIsMissing) {
  Book(nullptr, connector, kSendMs + 28, &perf, kSimpleReadRes);
  Book(statistic, nullptr, kSendMs + 28, &perf, kSimpleReadRes);
  Book(statistic, connector, kSendMs + 28, nullptr, kSimpleReadRes);
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(PerfDelayTest, FallIntoOneBucketEach) {
  const struct {
    int64_t delay;
    const char* bucket;
  } kCases[] = {{0, "dwDelayLow10MS"},    {1, "dwDelayLow10MS"},     {10, "dwDelayLow10MS"},
                {11, "dwDelayLow100MS"},  {100, "dwDelayLow100MS"},  {101, "dwDelayLow500MS"},
                {500, "dwDelayLow500MS"}, {501, "dwDelayLow1000MS"}, {1000, "dwDelayLow1000MS"},
                {1001, "dwDelayHigh1S"},  {60000, "dwDelayHigh1S"},  {4294967295, "dwDelayHigh1S"},
                {-1, "dwDelayLowZero"},   {-60000, "dwDelayLowZero"}};
  // The stages' later stamps; all earlier ones are those of the constructor.
  const struct {
    const char* stage;
    uint64_t PERFTEST::*earlier;
    uint64_t PERFTEST::*later;  // null: the time of receiving
  } kStages[] = {
      {"stApiTotalDelay", &PERFTEST::ullApiSendTime, nullptr},
      {"stApiToProxyDelay", &PERFTEST::ullApiSendTime, &PERFTEST::ullProxyFrontForwardTime},
      {"stProxyToSvrDelay", &PERFTEST::ullProxyEndForwardTime, &PERFTEST::ullSvrArriveTime},
      {"stSvrHandleDelay", &PERFTEST::ullSvrArriveTime, &PERFTEST::ullSvrWorkerSendTime},
      {"stSvrToProxyDelay", &PERFTEST::ullSvrWorkerSendTime, &PERFTEST::ullProxyFrontBackwardTime},
      {"stProxyTotalDelay", &PERFTEST::ullProxyFrontForwardTime,
       &PERFTEST::ullProxyEndBackwardTime},
      {"stProxyToApiDelay", &PERFTEST::ullProxyEndBackwardTime, nullptr}};
  const PERFTEST initial = perf;
  for (const auto& s : kStages) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(testing::Message() << s.stage << " of " << c.delay);
      ForgetCounts();
      perf = initial;
      const uint64_t later_us = perf.*s.earlier + static_cast<uint64_t>(c.delay * 1000);
      if (s.later != nullptr) {
        perf.*s.later = later_us;
      }
      Book(static_cast<int64_t>(later_us / 1000));
      EXPECT_EQ(Stage(s.stage, c.bucket, c.delay), Of(s.stage));
    }
  }
}

TEST_F(PerfDelayTest, OfTwoStampsAreCutToWholeMilliseconds) {
  perf.ullProxyFrontForwardTime = kSendUs + 10999;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stApiToProxyDelay", "dwDelayLow10MS", 10), Of("stApiToProxyDelay"));
  ForgetCounts();
  perf.ullApiSendTime = kSendUs + 999;
  perf.ullProxyFrontForwardTime = kSendUs + 11998;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stApiToProxyDelay", "dwDelayLow10MS", 10), Of("stApiToProxyDelay"))
      << "after they were subtracted";
}

TEST_F(PerfDelayTest, UntilReceivingCutTheStampFirst) {
  perf.ullApiSendTime = kSendUs + 999;
  perf.ullProxyEndBackwardTime = kSendUs + 999;
  Book(kSendMs + 11);
  EXPECT_EQ(Stage("stApiTotalDelay", "dwDelayLow100MS", 11), Of("stApiTotalDelay"));
  EXPECT_EQ(Stage("stProxyToApiDelay", "dwDelayLow100MS", 11), Of("stProxyToApiDelay"));
}

TEST_F(PerfDelayTest, OfLessThanAMillisecondInTheWrongDirectionAreUnknown) {
  perf.ullProxyFrontForwardTime = kSendUs - 1;
  perf.ullSvrWorkerSendTime = perf.ullSvrArriveTime - 1;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stApiToProxyDelay", "dwDelayLowZero", 0), Of("stApiToProxyDelay"));
  EXPECT_EQ(Stage("stSvrHandleDelay", "dwDelayLowZero", 0), Of("stSvrHandleDelay"));
}

TEST_F(PerfDelayTest, KeepTheLargest) {
  for (const int64_t delay : {50, 20, 60, 60, -1, 40}) {
    Book(kSendMs + delay);
  }
  Counters expected;
  for (const char* const of : {"stPerfDelay.", "access 0: stPerfDelay."}) {
    expected[of + std::string("stApiTotalDelay.dwMaxDelay")] = 60;
    expected[of + std::string("stApiTotalDelay.dwDelayLow100MS")] = 5;
    expected[of + std::string("stApiTotalDelay.dwDelayLowZero")] = 1;
  }
  EXPECT_EQ(expected, Of("stApiTotalDelay"));
}

TEST_F(PerfDelayTest, AtAServerThatStampedNothingAreUnknown) {
  perf.ullSvrArriveTime = 0;
  perf.ullSvrMainForwardTime = 0;
  perf.ullSvrWorkerRecvTime = 0;
  perf.ullSvrWorkerSendTime = 0;
  Book(kSendMs + 28);
  for (const char* const stage : {"stProxyToSvrDelay", "stSvrHandleDelay", "stSvrToProxyDelay"}) {
    EXPECT_EQ(Stage(stage, "dwDelayLowZero", 0), Of(stage));
  }
  EXPECT_EQ(Stage("stApiToProxyDelay", "dwDelayLow10MS", 1), Of("stApiToProxyDelay"));
  EXPECT_EQ(Stage("stProxyTotalDelay", "dwDelayLow100MS", 20), Of("stProxyTotalDelay"));
}

TEST_F(PerfDelayTest, OnBothSidesOfAMissingServerStampAreUnknown) {
  perf.ullSvrArriveTime = 0;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stProxyToSvrDelay", "dwDelayLowZero", 0), Of("stProxyToSvrDelay"));
  EXPECT_EQ(Stage("stSvrHandleDelay", "dwDelayLowZero", 0), Of("stSvrHandleDelay"));
  EXPECT_EQ(Stage("stSvrToProxyDelay", "dwDelayLow10MS", 5), Of("stSvrToProxyDelay"));

  ForgetCounts();
  perf.ullSvrArriveTime = kSendUs + 6000;
  perf.ullSvrWorkerSendTime = 0;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stProxyToSvrDelay", "dwDelayLow10MS", 3), Of("stProxyToSvrDelay"));
  EXPECT_EQ(Stage("stSvrHandleDelay", "dwDelayLowZero", 0), Of("stSvrHandleDelay"));
  EXPECT_EQ(Stage("stSvrToProxyDelay", "dwDelayLowZero", 0), Of("stSvrToProxyDelay"));
}

TEST_F(PerfDelayTest, AtAProxyThatStampedNothingAreWhatTheStampsSay) {
  perf.ullProxyFrontForwardTime = 0;
  perf.ullProxyEndForwardTime = 0;
  perf.ullProxyFrontBackwardTime = 0;
  perf.ullProxyEndBackwardTime = 0;
  Book(kSendMs + 28);
  EXPECT_EQ(Stage("stApiToProxyDelay", "dwDelayLowZero", 0), Of("stApiToProxyDelay"));
  EXPECT_EQ(Stage("stSvrToProxyDelay", "dwDelayLowZero", 0), Of("stSvrToProxyDelay"));
  EXPECT_EQ(Stage("stProxyTotalDelay", "dwDelayLow10MS", 0), Of("stProxyTotalDelay"));
  EXPECT_EQ(Stage("stProxyToSvrDelay", "dwDelayHigh1S", 4294967295), Of("stProxyToSvrDelay"))
      << "since the epoch, which is more than the field can tell";
  EXPECT_EQ(Stage("stProxyToApiDelay", "dwDelayHigh1S", 4294967295), Of("stProxyToApiDelay"));
}

TEST_F(PerfDelayTest, ThatDoNotFitAreTheLargestThatDoes) {
  for (const int64_t delay : {int64_t{4294967296}, int64_t{4294967297}, kSendMs}) {
    ForgetCounts();
    perf.ullApiSendTime = static_cast<uint64_t>(kSendMs - delay) * 1000;
    Book(kSendMs, kSimpleReadRes);
    EXPECT_EQ(Stage("stApiTotalDelay", "dwDelayHigh1S", 4294967295), Of("stApiTotalDelay"));
    EXPECT_EQ(4294967295U, statistic->astAccessStatistic[0].dwMaxDelay);
    EXPECT_EQ(static_cast<uint64_t>(delay),
              statistic->stOverallRunStatus.ullSimpleReadMaxLatencyPerMin)
        << "which is wide enough";
  }
}

TEST_F(PerfDelayTest, OfForgedStampsDoNoHarm) {
  const uint64_t kStamps[] = {0, 1, kSendUs, 1ULL << 63, (1ULL << 63) - 1, UINT64_MAX};
  for (const uint64_t send : kStamps) {
    for (const uint64_t end : kStamps) {
      ForgetCounts();
      perf.ullApiSendTime = send;
      perf.ullProxyFrontForwardTime = end;
      perf.ullSvrArriveTime = send;
      perf.ullSvrWorkerSendTime = end;
      perf.ullProxyEndBackwardTime = end;
      Book(kSendMs, kSimpleReadRes);
      const DELAYSTATUS& to_proxy = statistic->stPerfDelay.stApiToProxyDelay;
      EXPECT_EQ(end < send ? 1U : 0U, to_proxy.dwDelayLowZero) << send << " to " << end;
      const DELAYSTATUS& total = statistic->stPerfDelay.stApiTotalDelay;
      EXPECT_EQ(send > kSendUs ? 1U : 0U, total.dwDelayLowZero) << send;
    }
  }
}

// --- The slowest answer of a proxy ---

TEST_F(PerfDelayTest, NameTheSlowestAnswerOfTheProxy) {
  const tagAccessRunStatus& access = statistic->astAccessStatistic[0];
  Book(kSendMs, 8);
  EXPECT_EQ(0U, access.ullMaxDelayTime) << "0 ms exceeds nothing";
  Book(kSendMs - 1, 8);
  EXPECT_EQ(0U, access.ullMaxDelayTime) << "nor does an unknown delay";
  Book(kSendMs + 30, 8);
  Book(kSendMs + 29, 2);
  perf.ullApiSendTime += 1000;
  Book(kSendMs + 31, 4);
  EXPECT_EQ(30U, access.dwMaxDelay);
  EXPECT_EQ(static_cast<uint64_t>(kSendMs + 30), access.ullMaxDelayTime) << "the first of its like";
  EXPECT_EQ(8U, access.dwMaxDelayCmd);
  Book(kSendMs + 32, 6);
  EXPECT_EQ(31U, access.dwMaxDelay);
  EXPECT_EQ(static_cast<uint64_t>(kSendMs + 32), access.ullMaxDelayTime);
  EXPECT_EQ(6U, access.dwMaxDelayCmd);
  EXPECT_EQ(0U, statistic->astAccessStatistic[1].dwMaxDelay);
}

TEST_F(PerfDelayTest, AreBookedOverallForAProxyWithoutAccess) {
  connector->SetAddress(1, 2);
  Book(kSendMs + 28);
  const Counters expected = {{"stPerfDelay.stApiTotalDelay.dwDelayLow100MS", 1},
                             {"stPerfDelay.stApiTotalDelay.dwMaxDelay", 28}};
  EXPECT_EQ(expected, Of("stApiTotalDelay"));
  EXPECT_EQ(0U, statistic->astAccessStatistic[0].dwMaxDelay);
}

// --- The slowest answer of each kind ---

class PerfKindTest : public PerfDelayTest {
 protected:
  // The fields of the slowest answers.
  Counters Slowest() const {
    Counters slowest;
    for (const auto& [name, value] : Counted()) {
      for (const char* const kind : {"SimpleRead", "SimpleWrite", "ComplexRead", "ComplexWrite"}) {
        if (name.find(std::string(kind) + "Max") != std::string::npos) {
          slowest[name] = value;
        }
      }
    }
    return slowest;
  }
  static Counters OfKind(const std::string& kind, int64_t delay, int32_t cmd) {
    return {{"ull" + kind + "MaxLatencyPerMin", delay},
            {"ull" + kind + "MaxDelayTime", kSendMs + delay},
            {"dw" + kind + "MaxDelayCmd", cmd},
            {"dw" + kind + "MaxDelayIp", kIp},
            {"dw" + kind + "MaxDelayPort", kPort}};
  }
};

TEST_F(PerfKindTest, IsNamedForEachKind) {
  const struct {
    const char* kind;
    std::vector<int32_t> commands;
  } kKinds[] = {{"SimpleRead", {8, 16, 84, 154}},
                {"SimpleWrite", {2, 4, 6, 10, 14, 18, 20, 22, 30, 66, 156, 158}},
                {"ComplexRead", {12, 24, 26, 92, 118, 130, 4226, 4228, 4240}},
                {"ComplexWrite", {90, 146, 148, 150, 152, 4216, 4218, 4222, 4224}}};
  for (const auto& k : kKinds) {
    for (const int32_t cmd : k.commands) {
      ForgetCounts();
      Book(kSendMs + 28, cmd);
      EXPECT_EQ(OfKind(k.kind, 28, cmd), Slowest()) << cmd;
    }
  }
}

TEST_F(PerfKindTest, IsNotNamedForCommandsOfNoKind) {
  for (const int32_t cmd : {0, 1, 7, 11, 28, 52, 54, 67, 4225, 4227, 4234, 9999, -1, INT32_MIN}) {
    Book(kSendMs + 28, cmd);
    EXPECT_EQ(Counters(), Slowest()) << cmd;
  }
}

TEST_F(PerfKindTest, IsReplacedByASlowerOneOnly) {
  Book(kSendMs - 1, 8);
  EXPECT_EQ(Counters(), Slowest()) << "an unknown delay is no maximum";
  Book(kSendMs, 8);
  EXPECT_EQ(Counters(), Slowest()) << "0 is not below 0";
  Book(kSendMs + 30, 8);
  Book(kSendMs + 29, 16);
  EXPECT_EQ(OfKind("SimpleRead", 30, 8), Slowest());
  perf.ullApiSendTime += 1000;
  Book(kSendMs + 31, 16);
  EXPECT_EQ(OfKind("SimpleRead", 30, 8), Slowest()) << "an equal one stays";
  perf.ullApiSendTime -= 1000;
  Book(kSendMs + 31, 16);
  EXPECT_EQ(OfKind("SimpleRead", 31, 16), Slowest());
  Book(kSendMs - 5, 16);
  EXPECT_EQ(OfKind("SimpleRead", 31, 16), Slowest());
  Book(kSendMs + 12, 2);
  EXPECT_EQ(Sum({OfKind("SimpleRead", 31, 16), OfKind("SimpleWrite", 12, 2)}), Slowest());
}

TEST_F(PerfKindTest, NamesAddress0OfAConnectorThatDoesNotKnowIt) {
  AddReadyProxy(peer->m_using_servers(), "tcp://10.0.0.3:8003");
  Book(statistic, &mgr.At("tcp://10.0.0.3:8003"), kSendMs + 28, &perf, kSimpleReadRes);
  Counters expected = OfKind("SimpleRead", 28, 8);
  expected.erase("dwSimpleReadMaxDelayIp");
  expected.erase("dwSimpleReadMaxDelayPort");
  EXPECT_EQ(expected, Slowest());
}

}  // namespace
}  // namespace OstrandService
