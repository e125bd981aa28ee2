// The router with the runtime's own requests, responses, in-flight table, statistics and judge:
// what is promised about them together.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/judge.h"
#include "client/latency_data_table.h"
#include "client/statistic_mgr.h"
#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"
#include "protocol/codec.h"
#include "protocol/perf_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages

constexpr char kTable[] = "player";
constexpr char kUrl[] = "tcp://10.0.0.1:8001";
constexpr int kIp = 0x0100000A;
constexpr int kPort = 8001;

// A router with one proxy on a ring of one point.
class RouterRoundTrip : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  RouterRoundTrip() {
    real_statistics.RegisterApp(kAppId, kZoneId);
    subscript = real_statistics.RegisterTable(kAppId, kZoneId, kTable);
    real_statistics.AddAccess(kAppId, kZoneId, kUrl, kIp, kPort, "id");
    router = NewRouter(&table, &real_statistics, &real_judge);
    peer = std::make_unique<OstrandRouterPeer>(*router);
    EXPECT_EQ(0, Init());
    ProxyServer* const proxy = AddReadyProxy(peer->m_using_servers(), kUrl);
    mgr.At(kUrl).SetAddress(kIp, kPort);
    peer->m_virtual_nodes()[0] = VirtualServerNode{1, proxy};
    peer->m_virtual_node_count() = 1;
    peer->m_proxy_sign_up_recv() = true;
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
    Begin(OSTRAND_API_GET_REQ);
  }
  ~RouterRoundTrip() override { peer->m_virtual_nodes()[0].server = nullptr; }

  void Begin(uint32_t cmd) {
    ASSERT_EQ(0, request.Init(cmd, kZoneId, kTable));
    request.SetTableSubscript(subscript);
    request.SetTimeout(100);
    request.SetAsynID(77);
    request.SetSequence(-3);
    request.SetKey("id", "42");
  }

  // Sends the request and answers the frame that left, unpacked.
  std::unique_ptr<OStrandPkg> Send() {
    mgr.At(kUrl).ClearSent();
    EXPECT_EQ(0, router->SendRequest(&request));
    const std::string frame = mgr.At(kUrl).sent().at(0);
    auto pkg = NewOStrandPkg();
    EXPECT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                                 nullptr, nullptr, 0));
    return pkg;
  }

  // The proxy's answer to a request; one of several packages when it says so.
  void Answer(const OStrandPkg& to, uint32_t number = 0, bool more = false, int32_t result = 0) {
    const auto answer = NewOStrandPkg();
    OStrandPkgHead& head = answer->stHead;
    head.dwCmd = to.stHead.dwCmd + 1;
    head.iResult = result;
    head.ullAsynID = to.stHead.ullAsynID;
    head.iSeq = to.stHead.iSeq;
    head.stRouterInfo = to.stHead.stRouterInfo;
    head.dwSubCmd = number;
    std::memcpy(head.szUserBuff, to.stHead.szUserBuff, to.stHead.dwUserBuffLen);
    head.dwUserBuffLen = to.stHead.dwUserBuffLen;
    std::memcpy(head.szPerfTest, to.stHead.szPerfTest, to.stHead.dwPerfTestLen);
    head.dwPerfTestLen = to.stHead.dwPerfTestLen;
    ASSERT_EQ(0, answer->stBody.construct(head.dwCmd));
    if (head.dwCmd == OSTRAND_API_GET_BY_PARTKEY_RES) {
      answer->stBody.stGetByPartKeyRes.bHasMorePkgs = more ? 1 : 0;
    }
    std::string frame(8192, '\0');
    size_t len = frame.size();
    ASSERT_EQ(0, PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, *answer, 127, nullptr));
    frame.resize(len);
    mgr.At(kUrl).QueueFrame(frame);
  }

  int32_t Receive() { return router->RecvResponse(&response, nullptr); }

  static std::string UserBuffOf(const OStrandPkg& pkg) {
    return {pkg.stHead.szUserBuff, pkg.stHead.dwUserBuffLen};
  }
  std::string UserBuff() {
    size_t len = 0;
    const char* const bytes = response.GetUserBuff(&len);
    return {bytes, len};
  }
  tagAccessRunStatus& Access() {
    return *real_statistics.GetAccessRunStatus(
        *real_statistics.GetServiceApiStatistic(kAppId, kZoneId), kIp, kPort);
  }

  LatencyDataTable table{kAppId, 1000};
  StatisticMgr real_statistics;
  Judge real_judge;
  tagTableQos qos{};
  int32_t subscript = -1;
  ClientRequest request;
  ClientResponse response;
};

TEST_F(RouterRoundTrip, AnAnswerBringsTheUsersBytesBack) {
  ASSERT_EQ(0, request.SetUserBuff("user", 4));
  const auto sent = Send();
  EXPECT_EQ(18U, UserBuffOf(*sent).size());
  EXPECT_EQ(1U, table.InFlight());
  Answer(*sent);
  ASSERT_EQ(1, Receive());
  EXPECT_EQ("user", UserBuff());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(77U, response.GetAsynID());
  EXPECT_EQ(-3, response.GetSequence());
  EXPECT_STREQ(kTable, response.GetTableName(nullptr));
  EXPECT_EQ(0U, table.InFlight());
  EXPECT_EQ(1U, table.Delays().packages);
  EXPECT_EQ(1U, Access().dwRequestCountPerMin);
  EXPECT_EQ(1U, Access().dwResponseCountPerMin);
  EXPECT_EQ(0, Receive());
}

TEST_F(RouterRoundTrip, OneRequestSentTwiceGetsTwoAnswersWithTheSameBytes) {
  for (const size_t user_len : std::initializer_list<size_t>{0, 4, 1009}) {
    const std::string bytes(user_len, 'u');
    ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
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
  ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
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
  ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
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
  ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
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
  ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
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
  ASSERT_EQ(0, request.SetUserBuff("user", 4));
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
  ASSERT_EQ(0, request.SetUserBuff("user", 4));
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(18U, UserBuffOf(*Send()).size());
  }
  EXPECT_EQ("user", UserBuffOf(*Send())) << "and not with the context before";
  EXPECT_EQ(1000U, table.InFlight());
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ);
  EXPECT_EQ(RUNTIME_ERR_IN_FLIGHT_FULL, router->SendRequest(&request));
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
