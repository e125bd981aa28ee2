// The router with the runtime's own requests, responses, in-flight table, statistics and judge:
// what is promised about them together.
#include "unit/client/router_round_trip_test.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/judge.h"
#include "client/runtime_errors.h"
#include "protocol/perf_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages

TEST_F(RouterRoundTrip, AnAnswerBringsTheUsersBytesBack) {
  request.SetUserBuff("user");
  const auto sent = Send();
  EXPECT_EQ(18U, UserBuffOf(*sent).size());
  EXPECT_EQ(1U, table.InFlight());
  Answer(*sent);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ("user", UserBuff());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(77U, response.GetAsynID());
  EXPECT_EQ(-3, response.GetSequence());
  EXPECT_STREQ(kTable, response.GetTableName());
  EXPECT_EQ(0U, table.InFlight());
  EXPECT_EQ(1U, table.Delays().packages);
  EXPECT_EQ(1U, Access().dwRequestCountPerMin);
  EXPECT_EQ(1U, Access().dwResponseCountPerMin);
  EXPECT_EQ(0, Receive());
}

TEST_F(RouterRoundTrip, OneRequestSentTwiceGetsTwoAnswersWithTheSameBytes) {
  for (const size_t user_len : std::initializer_list<size_t>{0, 4, 1009}) {
    const std::string bytes(user_len, 'u');
    request.SetUserBuff(bytes);
    const auto first = Send();
    const auto second = Send();
    EXPECT_EQ(user_len + 14, UserBuffOf(*first).size());
    EXPECT_EQ(user_len + 14, UserBuffOf(*second).size());
    EXPECT_NE(UserBuffOf(*first), UserBuffOf(*second)) << "contexts of their own";
    EXPECT_EQ(2U, table.InFlight());
    for (const auto* sent : {&second, &first}) {
      Answer(**sent);
      ASSERT_EQ(1, Receive());
      EXPECT_EQ(bytes, UserBuff());
    }
    EXPECT_EQ(0U, table.InFlight());
  }
}

TEST_F(RouterRoundTrip, UserBytesThatStayHereComeBackEachTime) {
  server.m_local_buffer = &server;
  const std::string bytes(1024, 'u');
  request.SetUserBuff(bytes);
  for (int i = 0; i < 3; ++i) {
    const auto sent = Send();
    EXPECT_EQ(14U, UserBuffOf(*sent).size());
    Answer(*sent);
    ASSERT_EQ(1, Receive());
    EXPECT_EQ(bytes, UserBuff());
  }
}

TEST_F(RouterRoundTrip, OneByteTooManyForTheContextAndItTravelsWithout) {
  const std::string bytes(1010, 'u');
  request.SetUserBuff(bytes);
  const auto sent = Send();
  EXPECT_EQ(bytes, UserBuffOf(*sent));
  EXPECT_EQ(0U, table.InFlight());
  Answer(*sent);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(bytes, UserBuff());
}

TEST_F(RouterRoundTrip, ALongMultiPackageRequestKeepsItsBytesForEveryPackage) {
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ);
  const std::string bytes(1010, 'u');
  request.SetUserBuff(bytes);
  const auto sent = Send();
  EXPECT_EQ(14U, UserBuffOf(*sent).size());
  for (uint32_t number = 0; number < 3; ++number) {
    Answer(*sent, number, number < 2);
    ASSERT_EQ(1, Receive());
    EXPECT_EQ(bytes, UserBuff());
    EXPECT_EQ(number < 2 ? 1 : 0, response.HaveMoreResPkgs());
    EXPECT_EQ(number < 2 ? 1U : 0U, table.InFlight());
  }
}

// What was kept is in the in-flight record alone, and that is gone.
TEST_F(RouterRoundTrip, ALateFirstPackageOfALongRequestComesWithAnEmptyUserBuffer) {
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ);
  const std::string bytes(1010, 'u');
  request.SetUserBuff(bytes);
  const auto sent = Send();
  clock.AdvanceMs(101);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(ClientResponse::kResultTimeOut, response.GetResult());
  EXPECT_EQ(bytes, UserBuff());
  Answer(*sent, 0, true);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ("", UserBuff());
}

TEST_F(RouterRoundTrip, EachPackageGivesTheNextOneTheWholeTimeOut) {
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ);
  const auto sent = Send();
  for (uint32_t number = 0; number < 5; ++number) {
    clock.AdvanceMs(100);
    Answer(*sent, number, true);
    ASSERT_EQ(1, Receive());
    EXPECT_EQ(0, response.GetResult());
  }
  clock.AdvanceMs(101);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(ClientResponse::kResultTimeOut, response.GetResult());
  EXPECT_EQ(1U, Access().dwTimeOutCountPerMin);
}

TEST_F(RouterRoundTrip, ATimeOutStandsInForTheAnswerAndTheLateOneFollows) {
  request.SetUserBuff("user");
  const auto sent = Send();
  clock.AdvanceMs(100);
  EXPECT_EQ(0, Receive());
  clock.AdvanceMs(1);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(-20499, response.GetResult());
  EXPECT_EQ(8U, response.GetCmd());
  EXPECT_EQ(77U, response.GetAsynID());
  EXPECT_EQ(-3, response.GetSequence());
  EXPECT_EQ("", UserBuff()) << "its bytes travel, so nobody has them here";
  EXPECT_EQ(0U, table.InFlight());
  EXPECT_EQ(1U, Access().dwTimeOutCountPerMin);
  Answer(*sent);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ("user", UserBuff());
}

TEST_F(RouterRoundTrip, AFullTableSendsSinglePackagesWithoutContextAndRefusesTheOthers) {
  request.SetUserBuff("user");
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(18U, UserBuffOf(*Send()).size());
  }
  EXPECT_EQ("user", UserBuffOf(*Send())) << "and not with the context before";
  EXPECT_EQ(1000U, table.InFlight());
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ);
  EXPECT_EQ(RUNTIME_ERR_IN_FLIGHT_FULL, SendToRouter());
}

TEST_F(RouterRoundTrip, ASampledRequestIsSampledOnce) {
  router->SetPerfSampPercent(1);  // request 1 is not sampled, request 100 is
  peer->m_perfId() = 99;
  EXPECT_EQ(0U, Send()->stHead.dwPerfTestLen);
  EXPECT_EQ(PerfTest::kPackedLen, Send()->stHead.dwPerfTestLen);
  EXPECT_EQ(0U, Send()->stHead.dwPerfTestLen);
}

TEST_F(RouterRoundTrip, TheJudgeSeesTheTimeOutsOfAProxy) {
  JudgeProxyOption option = Judge::kDefaultOption;
  option.threshold = 5;
  option.check_times = 1;
  ASSERT_EQ(0, real_judge.SetProxyOption(kAppId, kZoneId, option));
  real_judge.Update(kAppId, kZoneId, real_statistics);
  for (int i = 0; i < 5; ++i) {
    Send();
  }
  clock.AdvanceMs(10000);
  while (Receive() == 1) {
  }
  real_judge.Update(kAppId, kZoneId, real_statistics);
  EXPECT_TRUE(real_judge.IsShouldCheck(kAppId, kZoneId));
  EXPECT_TRUE(real_judge.IsProxyUnavailable(kAppId, kZoneId, kUrl));
}

}  // namespace
}  // namespace OstrandService
