// The request and the response of the kit, and the reader of counters.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_request.h"
#include "fakes/fake_response.h"
#include "fakes/nonzero_counters.h"

namespace OstrandFakes {
namespace {

using OstrandService::tagServiceApiStatistic;
using OstrandService::tagTableQos;

TEST(FakeMessages, GoThroughTheCodecUnchanged) {
  FakeRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 5, "players");
  request.pkg().stHead.ullAsynID = 11;
  request.pkg().stHead.iSeq = -12;
  EXPECT_EQ(0, request.SetPkgUserBuff("user", 4));
  EXPECT_EQ(0, request.SetPerfTest("perf", 4));
  std::vector<char> frame(4096);
  size_t len = frame.size();
  ASSERT_EQ(0, request.Pack(frame.data(), len));

  FakeResponse response;
  ASSERT_EQ(0, response.Unpack(frame.data(), len));
  EXPECT_EQ(7U, response.GetCmd());
  EXPECT_EQ(5, response.GetZoneId());
  EXPECT_STREQ("players", response.GetTableName(nullptr));
  EXPECT_EQ(11U, response.GetAsynID());
  EXPECT_EQ(-12, response.GetSequence());
  EXPECT_EQ("user", response.UserBytes());
  size_t perf_len = 0;
  const char* perf = response.GetPerfTest(&perf_len);
  EXPECT_EQ("perf", std::string(perf, perf_len));
}

TEST(FakeMessages, HaveNoTableNameUnlessTheyAreGivenOne) {
  size_t len = 1;
  const FakeRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 5, nullptr);
  EXPECT_EQ(nullptr, request.GetTableName(&len));
  EXPECT_EQ(0U, len);
  EXPECT_STREQ("", FakeRequest(7, 5, "").GetTableName(&len));
  FakeResponse response;
  response.Begin(8, 5, "");
  EXPECT_EQ(nullptr, response.GetTableName(&len));
}

TEST(FakeMessages, FailWhenTheyAreToldTo) {
  Journal journal;
  FakeRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 5, "players", &journal);
  request.SetPkgUserBuffResult(-1);
  request.SetPackResult(-2);
  request.SetPerfTestResult(-3);
  request.SetPrintResult(-4);
  char buffer[8] = "before";
  size_t len = sizeof(buffer);
  EXPECT_EQ(-3, request.SetPerfTest("perf", 4));
  EXPECT_EQ(-1, request.SetPkgUserBuff("user", 4));
  EXPECT_EQ(-4, request.Print(buffer, sizeof(buffer)));
  EXPECT_EQ(-2, request.Pack(buffer, len));
  EXPECT_STREQ("before", buffer);
  EXPECT_EQ(0U, request.pkg().stHead.dwUserBuffLen);
  EXPECT_EQ(0U, request.pkg().stHead.dwPerfTestLen);
  EXPECT_EQ((std::vector<std::string>{"SetPerfTest", "SetPkgUserBuff", "Print", "Pack"}),
            journal.Entries());
}

TEST(FakeMessages, KeepTheUserBufferThatTheyAreGivenUntilTheNextPackage) {
  FakeResponse response;
  response.Begin(8, 5, "players");
  response.SetPkgUserBytes("travelled");
  EXPECT_EQ("travelled", response.UserBytes());
  EXPECT_EQ(0, response.SetUserBuff("kept", 4));
  EXPECT_EQ("kept", response.UserBytes());
  EXPECT_NE(0, response.Unpack("x", 1));
  EXPECT_EQ("", response.UserBytes());
}

TEST(NonZeroCounters, AreNamedAsTheirFields) {
  const auto statistic = std::make_unique<tagServiceApiStatistic>();
  EXPECT_EQ(Counters(), NonZeroCounters(*statistic));
  statistic->stOverallRunStatus.dwPackErrNumPerMin = 1;
  statistic->stOverallRunStatus.dwReqErrNumPerMin = 2;
  statistic->stOverallRunStatus.ullComplexWriteMaxDelayTime = 3;
  statistic->astTableStatistic[255].stTableRunStatus.dwTableReqErrNumPerMin = 4;
  statistic->stPerfDelay.stProxyToApiDelay.dwDelayHigh1S = 5;
  statistic->astAccessStatistic[1].dwMaxDelay = 6;
  statistic->astAccessStatistic[1].stPerfDelay.stApiTotalDelay.dwMaxDelay = 7;
  statistic->astAccessStatistic[2].dwMaxDelay = 8;
  statistic->iAccessCount = 2;
  EXPECT_EQ(Counters({{"dwPackErrNumPerMin", 1},
                      {"dwReqErrNumPerMin", 2},
                      {"ullComplexWriteMaxDelayTime", 3},
                      {"table 255: dwTableReqErrNumPerMin", 4},
                      {"stPerfDelay.stProxyToApiDelay.dwDelayHigh1S", 5},
                      {"access 1: dwMaxDelay", 6},
                      {"access 1: stPerfDelay.stApiTotalDelay.dwMaxDelay", 7}}),
            NonZeroCounters(*statistic));
  tagTableQos qos = {};
  qos.iZoneID = 9;
  qos.iExceptError = -10;
  EXPECT_EQ(Counters({{"iExceptError", -10}}), NonZeroCounters(qos));
}

}  // namespace
}  // namespace OstrandFakes
