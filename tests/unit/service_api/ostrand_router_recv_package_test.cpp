// Taking one package from a proxy: unpacking it, its performance record, whose it is.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/protocol/raw_frame.h"
#include "unit/service_api/router_recv_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OstrandFakes::NonZeroCounters;

using Texts = std::vector<std::string>;

constexpr int kBadArgument = -1811;

using InnerRecvTest = RouterRecvTest;

TEST_F(InnerRecvTest, AnswersNothingWhenThereIsNothing) {
  EXPECT_EQ(0, InnerRecv());
  EXPECT_EQ(0, response.unpacks());
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(std::vector<void*>({&logger}), connector->peek_log_handles());
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(InnerRecvTest, AnswersTheCodeOfPeeking) {
  connector->PushPeekError(-104);
  connector->SetLastErrDesc("connection reset");
  Queue({});
  bool counted = false;
  logger.OnLine([&](const LogLine&) {
    counted =
        first_qos.iRecvErrorCount == 1 && statistic->stOverallRunStatus.dwRespErrNumPerMin == 1;
  });
  EXPECT_EQ(-104, InnerRecv());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerRecvResponse",
                    std::string("Peek failed. ret:-104 msg:connection reset server_url:") + kUrl}}),
            logger.Lines());
  EXPECT_TRUE(counted) << "before the line";
  EXPECT_EQ(0, response.unpacks());
  EXPECT_EQ(1, InnerRecv()) << "the next package is served";
}

TEST_F(InnerRecvTest, DropsAPackageThatCannotBeUnpacked) {
  const std::string good = FrameOf({});
  for (const std::string& bad :
       {std::string("x"), std::string(100, '\0'), good.substr(0, good.size() - 1), good + "x"}) {
    ForgetCounts();
    connector->QueueFrame(bad);
    connector->QueueFrame(good);
    const int32_t result = InnerRecv();
    EXPECT_LT(result, 0);
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerRecvResponse",
                      "response->Unpack failed. ret:" + std::to_string(result)}}),
              logger.Lines());
    EXPECT_EQ(result, server.dir_alarm_codes().back());
    EXPECT_EQ(1U, connector->queued_frames());
    EXPECT_EQ(Counters({{"dwUnpackErrNumPerMin", 1}}), Counted());
    EXPECT_EQ(1, InnerRecv()) << "the next package is served";
  }
}

TEST_F(InnerRecvTest, ConsumesAPackageAfterItWasUnpacked) {
  int unpacked = 0;
  for (const int result : {0, -77}) {
    response.SetUnpackResult(result);
    response.OnUnpack([&](int code) {
      ++unpacked;
      EXPECT_EQ(result, code);
      EXPECT_EQ(1U, connector->queued_frames());
    });
    Queue({});
    EXPECT_EQ(result == 0 ? 1 : -77, InnerRecv());
    EXPECT_EQ(0U, connector->queued_frames()) << "also when that failed";
  }
  EXPECT_EQ(2, unpacked);
}

TEST_F(InnerRecvTest, CountsThenLogsThenReportsAPackageThatCannotBeUnpacked) {
  response.SetUnpackResult(-77);
  Queue({});
  bool between = false;
  logger.OnLine([&](const LogLine&) {
    between = statistic->stOverallRunStatus.dwUnpackErrNumPerMin == 1 &&
              first_qos.iUnpackErrorCount == 1 && connector->queued_frames() == 0 &&
              server.dir_alarm_codes().empty();
  });
  EXPECT_EQ(-77, InnerRecv());
  EXPECT_TRUE(between);
  EXPECT_EQ(Texts({"Unpack", "SetDirAlarmErrorCode -77"}), journal.Entries());
}

// A length that leads out of the head's own room.
TEST_F(InnerRecvTest, DropsAPackageWhoseUserBufferIsTooLong) {
  constexpr int kTooLong = -27923;  // 0x6D13
  ostrand_protocol_cs::RawFrame bad(kGetRes);
  bad.user_buff = ostrand_protocol_cs::Counted(UserBytes(1025));
  bad.result = static_cast<uint32_t>(-269);  // so that it needs no body
  ostrand_protocol_cs::RawFrame longest = bad;
  longest.user_buff = ostrand_protocol_cs::Counted(UserBytes(1024));
  connector->QueueFrame(bad.Bytes());
  connector->QueueFrame(longest.Bytes());
  EXPECT_EQ(kTooLong, InnerRecv());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerRecvResponse",
                    "response->Unpack failed. ret:-27923"}}),
            logger.Lines());
  EXPECT_EQ(std::vector<int>({kTooLong}), server.dir_alarm_codes());
  EXPECT_EQ(Counters({{"dwUnpackErrNumPerMin", 1}}), Counted());
  EXPECT_EQ(Counters({{"iUnpackErrorCount", 1}}), NonZeroCounters(first_qos));
  EXPECT_EQ(1, InnerRecv()) << "the next package is served";
  EXPECT_EQ(UserBytes(1024), response.UserBytes());
}

TEST_F(InnerRecvTest, TracesWhatWasUnpacked) {
  Answer answer = AnswerOf(kInsertRes, -269, "");
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_DEBUG, "InnerRecvResponse",
              std::string("Unpack succeed. table:players result:-269 cmd:2 server_url:") + kUrl}}),
      logger.LinesFrom("InnerRecvResponse"));
  answer.table_name = "";
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "InnerRecvResponse",
                    std::string("Unpack succeed. table: result:-269 cmd:2 server_url:") + kUrl}}),
            logger.LinesFrom("InnerRecvResponse"));
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_TRUE(logger.LinesFrom("InnerRecvResponse").empty());
}

TEST_F(InnerRecvTest, HandsOnTheLoggersNativeHandle) {
  int handle = 0;
  logger.ResetLogHandler(&handle);
  EXPECT_EQ(0, InnerRecv());
  EXPECT_EQ(std::vector<void*>({&handle}), connector->peek_log_handles());
}

TEST_F(InnerRecvTest, WorksWithoutALogger) {
  peer->m_logger() = nullptr;
  LoseTheTables();
  Answer answer;
  answer.user_buff = Context(InFlight(7), kSubscript);
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  answer.perf_test = "not one";
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  connector->QueueFrame("no frame");
  EXPECT_GT(0, InnerRecv());
  connector->PushPeekError(-5);
  EXPECT_EQ(-5, InnerRecv());
  Queue(AnswerOf(kListGetAllRes, 0, Context(kUnknownId, kSubscript), 1));
  EXPECT_EQ(-256, InnerRecv());
  EXPECT_EQ(kBadArgument, router->RecvResponse(nullptr, nullptr));
}

TEST_F(InnerRecvTest, AnswersARefusedPackageAndCountsNothing) {
  Queue(AnswerOf(kListGetAllRes, -269, Context(kUnknownId, kSubscript), 1));
  Queue({});
  EXPECT_EQ(-256, InnerRecv());
  EXPECT_EQ(Counters(), Counted());
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  EXPECT_EQ(1, InnerRecv()) << "the next package is served";
}

TEST_F(InnerRecvTest, TakesAPackageInTheMiddleOfAnAnswerToo) {
  const int32_t id = InFlight(25);
  for (const uint32_t number : {0U, 1U, 2U}) {
    Answer package = AnswerOf(kGetByPartKeyRes, 0, "mine" + Context(id, kSubscript), number);
    package.more = number < 2;
    Queue(package);
    EXPECT_EQ(1, InnerRecv());
    EXPECT_EQ("mine", response.UserBytes());
    EXPECT_EQ(0, response.GetResult());
    EXPECT_EQ(number < 2 ? 1U : 0U, latency.live_count());
  }
}

TEST_F(InnerRecvTest, DeliversAnAnswerWithoutTableNameUncounted) {
  Answer answer = AnswerOf(kGetRes, -269, "mine" + Context(InFlight(7), kSubscript));
  answer.table_name = "";
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ("mine", response.UserBytes()) << "its context is taken off";
  EXPECT_EQ(0U, latency.live_count());
  EXPECT_EQ(Counters(), Counted());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  EXPECT_EQ(Counters(), NonZeroCounters(first_qos));
}

// --- Performance records ---

class InnerRecvPerfTest : public RouterRecvTest {
 protected:
  // Sent 28 ms ago; nobody else stamped it.
  static std::string Record() {
    ostrand_protocol_cs::PerfTest perf;
    perf.construct();
    perf.ullApiSendTime = static_cast<uint64_t>(kNow - 28) * 1000;
    char packed[256];
    size_t len = 0;
    EXPECT_EQ(0, perf.pack(packed, sizeof(packed), &len, 119));
    return std::string(packed, len);
  }
};

TEST_F(InnerRecvPerfTest, BooksTheDelaysOfARecord) {
  Answer answer;
  answer.perf_test = Record();
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(1U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLow100MS);
  EXPECT_EQ(28U, statistic->astAccessStatistic[0].dwMaxDelay);
  EXPECT_EQ(static_cast<uint64_t>(kNow), statistic->astAccessStatistic[0].ullMaxDelayTime);
  EXPECT_EQ(kGetRes, statistic->astAccessStatistic[0].dwMaxDelayCmd);
  EXPECT_EQ(28U, statistic->stOverallRunStatus.ullSimpleReadMaxLatencyPerMin);
}

TEST_F(InnerRecvPerfTest, TakesTheTimeAfterItUnpacked) {
  constexpr int64_t kUnpacked = kNow + 5;
  response.OnUnpack([this](int) { clock.AdvanceMs(5); });
  Answer answer;
  answer.user_buff = Context(InFlight(7), kSubscript);
  answer.perf_test = Record();
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
  ASSERT_EQ(1U, latency.delays().size());
  EXPECT_EQ(kUnpacked, latency.delays()[0].second);
  EXPECT_EQ(static_cast<uint64_t>(kUnpacked), statistic->astAccessStatistic[0].ullMaxDelayTime);
  EXPECT_EQ(33U, statistic->astAccessStatistic[0].dwMaxDelay);
}

TEST_F(InnerRecvPerfTest, BooksNothingWithoutARecord) {
  Queue({});
  EXPECT_EQ(1, InnerRecv());
  EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLow100MS);
  EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLowZero);
}

TEST_F(InnerRecvPerfTest, DeliversAnAnswerWhoseRecordIsNone) {
  const std::string whole = Record();
  const struct {
    std::string record;
    int code;
  } kCases[] = {{whole.substr(0, 87), -31507},
                {"x", -31507},
                {std::string("\x00\x00\x00\x4E", 4) + whole.substr(4), -31251}};
  for (const auto& c : kCases) {
    ForgetCounts();
    Answer answer;
    answer.perf_test = c.record;
    Queue(answer);
    EXPECT_EQ(1, InnerRecv());
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_WARN, "InnerRecvResponse",
                      "perf.unpack failed " + std::to_string(c.code)}}),
              logger.LinesOf(OSTRAND_LOG_LEVEL_WARN));
    EXPECT_EQ(1U, statistic->stOverallRunStatus.dwRespSucNumPerMin) << "and counts it";
    EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLow100MS);
    EXPECT_EQ(0U, statistic->stPerfDelay.stApiTotalDelay.dwDelayLowZero);
  }
}

TEST_F(InnerRecvPerfTest, LooksAtTheRecordOfARefusedAnswerToo) {
  Answer answer = AnswerOf(kListGetAllRes, 0, Context(kUnknownId, kSubscript), 1);
  answer.perf_test = "x";
  Queue(answer);
  EXPECT_EQ(-256, InnerRecv());
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_WARN));
}

// --- Metadata answers ---

class MetadataAnswerTest : public RouterRecvTest {
 protected:
  static Answer Probe() {
    Answer answer;
    answer.cmd = kMetadataRes;
    answer.user_buff = std::string("recheck proxy available", 24);
    answer.seq = -110;
    answer.async_id = 110;
    return answer;
  }
};

TEST_F(MetadataAnswerTest, ToTheRoutersOwnProbeIsConsumed) {
  Queue(Probe());
  EXPECT_EQ(0, InnerRecv());
  EXPECT_EQ(0U, connector->queued_frames());
  EXPECT_EQ(Counters(), Counted());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "ProcessGetMetaResForRecheck",
                    "CheckTable vexmeta failed, ret:-1"}}),
            logger.LinesFrom("ProcessGetMetaResForRecheck"))
      << "there is a response, and no package";
  Queue(Probe());
  Answer answer;
  answer.seq = 5;
  other_connector->QueueFrame(FrameOf(answer));
  EXPECT_EQ(1, Recv()) << "the next proxy is asked at once";
  EXPECT_EQ(5, response.GetSequence());
}

TEST_F(MetadataAnswerTest, ToTheUserIsDeliveredAndCounted) {
  for (const char* const user_buff : {"", "mine"}) {
    ForgetCounts();
    Answer answer = Probe();
    answer.user_buff = user_buff;
    Queue(answer);
    EXPECT_EQ(1, InnerRecv());
    EXPECT_EQ(user_buff, response.UserBytes());
    EXPECT_EQ(1U, statistic->stOverallRunStatus.dwRespSucNumPerMin);
  }
  Answer answer = Probe();
  answer.seq = -111;
  Queue(answer);
  EXPECT_EQ(1, InnerRecv());
}

// --- Cost ---

TEST_F(InnerRecvTest, AllocatesNothingOnceWarm) {
  constexpr int kCount = 100;
  logger.SetThreshold(OSTRAND_LOG_LEVEL_WARN);
  for (int i = 0; i <= kCount; ++i) {
    Queue(AnswerOf(kGetRes, -269, "mine" + Context(InFlight(7), kSubscript)));
  }
  EXPECT_EQ(1, router->RecvResponse(&response, nullptr));
  const AllocationFaults faults;
  for (int i = 0; i < kCount; ++i) {
    ASSERT_EQ(1, router->RecvResponse(&response, nullptr));
  }
  EXPECT_EQ(0, router->RecvResponse(&response, nullptr));
  EXPECT_EQ(0, faults.count());
  EXPECT_EQ(0U, latency.live_count());
}

}  // namespace
}  // namespace OstrandService
