// Taking proxies out of use: a proxy's own count of answers, and the check every 300 ms.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "unit/service_api/router_availability_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::FakeClock;
using OstrandFakes::LogLine;

// --- IsUnavailable ---

class IsUnavailableTest : public testing::Test {
 protected:
  IsUnavailableTest() { proxy.connector = &connector; }

  OstrandFakes::RecordingLogger logger;
  OstrandFakes::ScriptedConnector connector{"tcp://10.0.0.1:1000", nullptr};
  ProxyServer proxy;
};

TEST_F(IsUnavailableTest, MeansAtMostOneAnswerInTenOfMoreThanTenRequests) {
  struct Case {
    uint64_t requests;
    uint64_t responses;
    bool unavailable;
  };
  for (const Case& one :
       {Case{0, 0, false}, Case{10, 0, false}, Case{11, 0, true}, Case{11, 1, true},
        Case{11, 2, false}, Case{19, 1, true}, Case{19, 2, false}, Case{20, 2, true},
        Case{20, 3, false}, Case{29, 2, true}, Case{29, 3, false}, Case{30, 3, true},
        Case{11, 11, false}, Case{11, 1000, false}, Case{10, 1000, false},
        Case{UINT64_MAX, UINT64_MAX / 10, true}, Case{UINT64_MAX, UINT64_MAX / 10 + 1, false}}) {
    logger.Clear();
    proxy.m_request_count = one.requests;
    proxy.m_response_count = one.responses;
    EXPECT_EQ(one.unavailable, proxy.IsUnavailable(&logger))
        << one.requests << " requests, " << one.responses << " answers";
    EXPECT_EQ(0U, proxy.m_request_count) << "each look starts a new period";
    EXPECT_EQ(0U, proxy.m_response_count);
    const LogLine line = IsUnavailableLine("tcp://10.0.0.1:1000", std::to_string(one.requests),
                                           std::to_string(one.responses));
    EXPECT_EQ(one.unavailable ? std::vector<LogLine>({line}) : std::vector<LogLine>(),
              logger.Lines());
  }
}

TEST_F(IsUnavailableTest, NeedsNoLogger) {
  proxy.m_request_count = 11;
  proxy.m_response_count = 1;
  EXPECT_TRUE(proxy.IsUnavailable(nullptr));
  EXPECT_EQ(0U, proxy.m_request_count);
  EXPECT_EQ(0U, proxy.m_response_count);
}

TEST_F(IsUnavailableTest, LogsNothingWithoutAConnector) {
  proxy.connector = nullptr;
  proxy.m_request_count = 11;
  proxy.m_response_count = 1;
  EXPECT_TRUE(proxy.IsUnavailable(&logger));
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(0U, proxy.m_request_count);
  EXPECT_EQ(0U, proxy.m_response_count);
}

TEST_F(IsUnavailableTest, JudgesThePeriodSinceTheLastLook) {
  proxy.m_request_count = 9;
  EXPECT_FALSE(proxy.IsUnavailable(&logger));
  proxy.m_request_count = 9;
  EXPECT_FALSE(proxy.IsUnavailable(&logger)) << "18 in two periods";
}

// --- The check every 300 ms ---

class FastCheckTest : public AvailabilityTest {
 protected:
  // A check that is due, whenever the last one was.
  void Check() {
    peer->m_lastCheckProxyTime() = clock.Ms() - 300;
    peer->UpdateProxyAvailableV2();
  }
  LogLine Begins(int connected, int total, int rate, int threshold_count) {
    return Line(OSTRAND_LOG_LEVEL_DEBUG, "UpdateProxyAvailableV2",
                "app_id:1001, zone_id:5, cur availabe proxy count " + std::to_string(connected) +
                    " total " + std::to_string(total) + ", max_remove_rate " +
                    std::to_string(rate) + " threshold_count " + std::to_string(threshold_count));
  }
  LogLine Removes(int i, int left, int total) {
    return Line(OSTRAND_LOG_LEVEL_WARN, "UpdateProxyAvailableV2",
                "300ms check, the proxy is set unavailable, app_id:1001, zone_id:5, url:" +
                    UrlOf(i) + ", cur the availabe proxy count is:" + std::to_string(left) +
                    " total " + std::to_string(total));
  }
};

TEST_F(FastCheckTest, OnlyRecordsTheTimeAtFirst) {
  AddReady(3);
  StarveAll();
  for (const int64_t never : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
    peer->m_lastCheckProxyTime() = never;
    peer->UpdateProxyAvailableV2();
    EXPECT_EQ(FakeClock::kStartMs, peer->m_lastCheckProxyTime());
  }
  EXPECT_TRUE(Unavailable().empty());
  EXPECT_EQ(11U, Proxy(1).m_request_count) << "nobody was looked at";
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(judge.keys.empty());
}

TEST_F(FastCheckTest, ChecksEvery300Milliseconds) {
  AddReady(4);
  struct Case {
    int64_t elapsed_ms;
    bool checks;
  };
  for (const Case& one :
       {Case{0, false}, Case{1, false}, Case{299, false}, Case{300, true}, Case{301, true},
        Case{100000, true}, Case{-1, false}, Case{-100000, false}}) {
    Proxy(1).m_request_count = 1;
    const int64_t last = clock.Ms();
    peer->m_lastCheckProxyTime() = last;
    clock.AdvanceMs(one.elapsed_ms);
    peer->UpdateProxyAvailableV2();
    EXPECT_EQ(one.checks ? 0U : 1U, Proxy(1).m_request_count) << one.elapsed_ms;
    EXPECT_EQ(one.checks ? clock.Ms() : last, peer->m_lastCheckProxyTime()) << one.elapsed_ms;
  }
}

TEST_F(FastCheckTest, TakesAProxyOutOfUse) {
  AddReady(3);
  judge.option.max_remove_rate = 10;
  clock.SetMs(FakeClock::kStartMs + 999);
  Starve({2});
  Check();
  EXPECT_EQ(std::vector<int>({2}), Unavailable());
  EXPECT_EQ(kStartSeconds, Proxy(2).last_unavailable_time) << "in seconds";
  EXPECT_EQ(0, Proxy(1).last_unavailable_time);
  EXPECT_EQ(1, IsolatedCount());
  EXPECT_EQ(std::vector<LogLine>({Begins(3, 3, 10, 1), SelfMade(2), Removes(2, 2, 3)}),
            logger.Lines());
  EXPECT_TRUE(Proxy(2).auth_succeed) << "it stays signed up and connected";
  EXPECT_TRUE(mgr.At(UrlOf(2)).disconnects().empty());
}

TEST_F(FastCheckTest, LogsARemovalBeforeIt) {
  AddReady(3);
  Starve({2});
  logger.OnLine([&](const LogLine&) {
    EXPECT_TRUE(Proxy(2).is_available);
    EXPECT_EQ(-1, IsolatedCount());
  });
  Check();
  EXPECT_EQ(3U, logger.Lines().size());
  EXPECT_FALSE(Proxy(2).is_available);
  logger.OnLine(nullptr);
}

TEST_F(FastCheckTest, NeverTouchesTheRing) {
  AddReady(5);
  peer->WriteHashCircle();
  const RingCopy before = Ring();
  ASSERT_EQ(500U, before.points.size());
  Starve({1, 2});
  clock.AdvanceMs(1000);
  logger.Clear();
  Check();
  EXPECT_EQ(std::vector<int>({1, 2}), Unavailable());
  EXPECT_TRUE(before == Ring());
  EXPECT_TRUE(logger.LinesFrom("WriteHashCircle").empty());
}

TEST_F(FastCheckTest, SaysThatItLooksEvenWhenAllIsWell) {
  AddReady(3);
  judge.option.max_remove_rate = 10;
  Check();
  EXPECT_EQ(std::vector<LogLine>({Begins(3, 3, 10, 1)}), logger.Lines());
  EXPECT_EQ(-1, IsolatedCount()) << "no entry is made for nothing";
}

TEST_F(FastCheckTest, CountsTheIsolatedProxiesOfItsZone) {
  AddReady(6);
  statistics.m_isolateProxyCntMap[kZoneId] = 7;
  statistics.m_isolateProxyCntMap[kZoneId + 1] = 1;
  Starve({1, 4});
  Check();
  EXPECT_EQ(std::vector<int>({1, 4}), Unavailable());
  EXPECT_EQ(9, IsolatedCount());
  EXPECT_EQ(1, statistics.m_isolateProxyCntMap[kZoneId + 1]);
}

TEST_F(FastCheckTest, LeavesTwoConnectedProxiesAlone) {
  AddReady(2);
  StarveAll();
  Check();
  EXPECT_TRUE(Unavailable().empty());
  EXPECT_EQ(clock.Ms(), peer->m_lastCheckProxyTime()) << "but it was a check";
  EXPECT_EQ(11U, Proxy(1).m_request_count);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(FastCheckTest, CountsOnlyWhoCanTakeRequests) {
  AddReady(4);
  StarveAll();
  Proxy(3).auth_succeed = false;
  Proxy(4).last_auth_result = 1;
  Check();
  EXPECT_EQ(11U, Proxy(1).m_request_count) << "two of four are usable";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(FastCheckTest, NeedsARemoveRateAboveZero) {
  AddReady(3);
  for (const int rate : {0, -1, INT32_MIN}) {
    StarveAll();
    judge.option.max_remove_rate = rate;
    Check();
    EXPECT_TRUE(Unavailable().empty()) << rate;
    EXPECT_EQ(11U, Proxy(1).m_request_count);
  }
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(FastCheckTest, DerivesTheQuotaFromTheRateAndTheWholeList) {
  struct Case {
    int rate;
    int total;
    int threshold_count;
  };
  for (const Case& one :
       {Case{1, 3, 1}, Case{10, 3, 1}, Case{33, 3, 1}, Case{34, 3, 1}, Case{66, 3, 1},
        Case{67, 3, 2}, Case{100, 3, 3}, Case{1000, 3, 30}, Case{24, 4, 1}, Case{25, 4, 1},
        Case{50, 4, 2}, Case{66, 5, 3}, Case{19, 5, 1}, Case{39, 5, 1}, Case{40, 5, 2},
        // 32-bit arithmetic without a sign: 3 * 1431655766 is 2 above 2^32, 4 * (2^31 - 1) is
        // 2^32 - 4.
        Case{1431655766, 3, 1}, Case{INT32_MAX, 4, 42949672}}) {
    proxies.clear();
    MakeRouter();
    ASSERT_EQ(0, Init());
    AddReady(one.total);
    judge.option.max_remove_rate = one.rate;
    Check();
    EXPECT_EQ(std::vector<LogLine>({Begins(one.total, one.total, one.rate, one.threshold_count)}),
              logger.Lines());
  }
}

TEST_F(FastCheckTest, LetsProxiesThatAreNotUsableUseUpTheQuota) {
  AddReady(6);
  judge.option.max_remove_rate = 34;  // Two of six.
  mgr.At(UrlOf(6)).SetStatus(0);
  StarveAll();
  Check();
  EXPECT_EQ(std::vector<int>({1}), Unavailable());
  EXPECT_EQ(std::vector<LogLine>({Begins(5, 6, 34, 2), SelfMade(1), Removes(1, 4, 6)}),
            logger.Lines());

  logger.Clear();
  StarveAll();
  Check();
  EXPECT_EQ(std::vector<int>({1}), Unavailable()) << "the quota is used up";
  EXPECT_EQ(11U, Proxy(2).m_request_count);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(FastCheckTest, StopsLookingOnceTheQuotaIsUsedUp) {
  AddReady(5);
  judge.option.max_remove_rate = 40;  // Two of five.
  StarveAll();
  Check();
  EXPECT_EQ(std::vector<int>({1, 2}), Unavailable());
  EXPECT_EQ(2, IsolatedCount());
  EXPECT_EQ(std::vector<LogLine>({Begins(5, 5, 40, 2), SelfMade(1), Removes(1, 4, 5), SelfMade(2),
                                  Removes(2, 3, 5)}),
            logger.Lines());
  EXPECT_EQ(11U, Proxy(3).m_request_count) << "not looked at, so its period goes on";
}

TEST_F(FastCheckTest, StopsLookingWhenTwoAreLeft) {
  AddReady(4);
  StarveAll();
  Check();
  EXPECT_EQ(std::vector<int>({1, 2}), Unavailable());
  EXPECT_EQ(std::vector<LogLine>({Begins(4, 4, 100, 4), SelfMade(1), Removes(1, 3, 4), SelfMade(2),
                                  Removes(2, 2, 4)}),
            logger.Lines());
  EXPECT_EQ(11U, Proxy(3).m_request_count);
}

TEST_F(FastCheckTest, StartsANewPeriodForAllThatItLooksAt) {
  AddReady(10);
  for (ProxyServer* proxy : proxies) {
    proxy->m_request_count = 5;
    proxy->m_response_count = 5;
  }
  Proxy(2).auth_succeed = false;
  mgr.At(UrlOf(3)).SetStatus(0);
  mgr.At(UrlOf(4)).SetStatus(1);
  mgr.At(UrlOf(5)).SetStatus(3);
  Proxy(6).last_auth_result = -1;
  Proxy(7).is_available = false;
  Check();
  for (const ProxyServer* proxy : proxies) {
    EXPECT_EQ(0U, proxy->m_request_count);
    EXPECT_EQ(0U, proxy->m_response_count);
  }
}

TEST_F(FastCheckTest, PassesOverProxiesThatAreNotUsable) {
  AddReady(10);
  StarveAll();
  Proxy(2).auth_succeed = false;
  mgr.At(UrlOf(3)).SetStatus(0);
  mgr.At(UrlOf(4)).SetStatus(1);
  mgr.At(UrlOf(5)).SetStatus(3);
  Proxy(6).last_auth_result = -1;
  Proxy(7).is_available = false;
  Proxy(7).last_unavailable_time = 123;
  Proxy(1).m_request_count = 0;
  Check();
  EXPECT_EQ(std::vector<int>({7, 8, 9}), Unavailable()) << "until two of five are left: 1 and 10";
  EXPECT_EQ(123, Proxy(7).last_unavailable_time);
  EXPECT_EQ(2, IsolatedCount());
}

TEST_F(FastCheckTest, StepsOverElementsWithoutRecordOrConnector) {
  AddReady(6);
  StarveAll();
  RealServerNode* detached = peer->FindServerNode(peer->m_using_servers(), UrlOf(1).c_str());
  OSTRNET::CConnector* const connector = Proxy(2).connector;
  detached->server = nullptr;
  Proxy(2).connector = nullptr;
  Check();
  EXPECT_EQ(std::vector<int>({3, 4}), Unavailable());
  EXPECT_EQ(11U, Proxy(1).m_request_count);
  EXPECT_EQ(11U, Proxy(2).m_request_count) << "skipped, not only passed over";
  EXPECT_EQ(Begins(4, 6, 100, 6), logger.Lines()[0]) << "they count in the total";
  detached->server = proxies[0];
  Proxy(2).connector = connector;
}

TEST_F(FastCheckTest, LooksAtTheProxiesInUseAlone) {
  AddReady(3);
  for (List* list : {peer->m_preparing_servers(), peer->m_removing_servers()}) {
    ProxyServer* proxy = AddReadyProxy(list, UrlOf(list == peer->m_preparing_servers() ? 8 : 9));
    proxy->m_request_count = 11;
    logger.Clear();
    Check();
    EXPECT_TRUE(proxy->is_available);
    EXPECT_EQ(11U, proxy->m_request_count);
    EXPECT_EQ(std::vector<LogLine>({Begins(3, 3, 100, 3)}), logger.Lines());
  }
}

TEST_F(FastCheckTest, AsksTheJudgeForItsApplicationAndZone) {
  AddReady(3);
  peer->m_app_id() = 0x200000003;
  Check();
  EXPECT_EQ((std::set<std::pair<int32_t, int32_t>>{{3, kZoneId}}), judge.keys) << "32 bits of it";
  EXPECT_EQ(
      "app_id:8589934595, zone_id:5, cur availabe proxy count 3 total 3, max_remove_rate 100 "
      "threshold_count 3",
      logger.Lines()[0].text);
}

TEST_F(FastCheckTest, LeavesTheRingAlone) {
  AddReady(3);
  peer->m_virtual_nodes()[0] = {17, proxies[0]};
  peer->m_virtual_node_count() = 1;
  Starve({1});
  Check();
  EXPECT_EQ(std::vector<int>({1}), Unavailable());
  EXPECT_EQ(1U, peer->m_virtual_node_count());
  EXPECT_EQ(proxies[0], peer->m_virtual_nodes()[0].server) << "it is passed over, not taken off";
}

TEST_F(FastCheckTest, WorksWithoutALogger) {
  AddReady(3);
  ASSERT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  StarveAll();
  Check();
  EXPECT_EQ(std::vector<int>({1}), Unavailable());
}

TEST_F(FastCheckTest, DoesNothingWithoutLists) {
  router->Fini();
  logger.Clear();
  Check();
  EXPECT_EQ(clock.Ms(), peer->m_lastCheckProxyTime());
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
