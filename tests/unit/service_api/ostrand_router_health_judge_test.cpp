// Taking proxies out of use that the judge calls unavailable.
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "unit/service_api/router_availability_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::FakeClock;
using OstrandFakes::LogLine;

class JudgedTest : public AvailabilityTest {
 protected:
  JudgedTest() { judge.should_check = true; }

  void Condemn(std::initializer_list<int> which) {
    for (const int i : which) {
      judge.unavailable.insert(UrlOf(i));
    }
  }
  // The check every 300 ms is not due.
  void Check() {
    peer->m_lastCheckProxyTime() = clock.Ms();
    peer->UpdateProxyAvailable();
  }
  LogLine Removes(int i, int left, int total) {
    return Line(OSTRAND_LOG_LEVEL_ERROR, "UpdateProxyAvailable",
                "the proxy is set unavailable, app_id:1001, zone_id:5, url:" + UrlOf(i) +
                    ", cur the availabe proxy count is:" + std::to_string(left) + " total " +
                    std::to_string(total));
  }
  static std::vector<std::string> Urls(std::initializer_list<int> which) {
    std::vector<std::string> urls;
    for (const int i : which) {
      urls.push_back(UrlOf(i));
    }
    return urls;
  }
};

TEST_F(JudgedTest, GivesTheJudgeTheStatisticsOnEveryCall) {
  judge.should_check = false;
  AddReady(3);
  Condemn({1, 2, 3});
  Check();
  Check();
  EXPECT_EQ(2, judge.updates);
  EXPECT_EQ(&statistics, judge.updated_with);
  EXPECT_TRUE(judge.asked.empty()) << "no verdicts are due";
  EXPECT_TRUE(Unavailable().empty());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(JudgedTest, TakesAProxyOutOfUse) {
  AddReady(3);
  clock.SetMs(FakeClock::kStartMs + 999);
  Condemn({2});
  Check();
  EXPECT_EQ(std::vector<int>({2}), Unavailable());
  EXPECT_EQ(kStartSeconds, Proxy(2).last_unavailable_time) << "in seconds";
  EXPECT_EQ(1, IsolatedCount());
  EXPECT_EQ(std::vector<LogLine>({Removes(2, 2, 3)}), logger.Lines());
  EXPECT_EQ(Urls({1, 2}), judge.asked) << "two are left, so the third is not asked about";
  EXPECT_TRUE(Proxy(2).auth_succeed);
  EXPECT_TRUE(mgr.At(UrlOf(2)).disconnects().empty());
}

TEST_F(JudgedTest, LogsARemovalBeforeIt) {
  AddReady(3);
  Condemn({2});
  logger.OnLine([&](const LogLine&) {
    EXPECT_TRUE(Proxy(2).is_available);
    EXPECT_EQ(0, Proxy(2).last_unavailable_time);
    EXPECT_EQ(-1, IsolatedCount());
  });
  Check();
  EXPECT_EQ(1U, logger.Lines().size());
  EXPECT_FALSE(Proxy(2).is_available);
  logger.OnLine(nullptr);
}

TEST_F(JudgedTest, CountsEachRemovalBeforeItGoesOn) {
  AddReady(5);
  Condemn({1, 3, 4});
  std::vector<int> isolated;
  logger.OnLine([&](const LogLine&) { isolated.push_back(IsolatedCount()); });
  Check();
  logger.OnLine(nullptr);
  EXPECT_EQ(std::vector<int>({-1, 1, 2}), isolated) << "at each line";
  EXPECT_EQ(3, IsolatedCount());
}

// Requests pass over the points of a proxy that is out of use, until the ring is written again.
TEST_F(JudgedTest, NeverTouchesTheRing) {
  AddReady(5);
  peer->WriteHashCircle();
  const RingCopy before = Ring();
  ASSERT_EQ(500U, before.points.size());
  Condemn({1, 2, 3});
  clock.AdvanceMs(1000);
  logger.Clear();
  Check();
  EXPECT_EQ(std::vector<int>({1, 2, 3}), Unavailable());
  EXPECT_TRUE(before == Ring());
  EXPECT_TRUE(logger.LinesFrom("WriteHashCircle").empty());
}

TEST_F(JudgedTest, NeedsThreeThatCanTakeRequests) {
  AddReady(3);
  Condemn({1, 2, 3});
  Proxy(3).is_available = false;
  Check();
  EXPECT_EQ(1, judge.updates);
  EXPECT_TRUE(judge.asked.empty());
  EXPECT_EQ(std::vector<int>({3}), Unavailable());
}

TEST_F(JudgedTest, AsksNobodyWhenOneIsLeft) {
  AddReady(3);
  Condemn({1, 2, 3});
  Proxy(2).auth_succeed = false;
  mgr.At(UrlOf(3)).SetStatus(0);
  Check();
  EXPECT_TRUE(judge.asked.empty());
  EXPECT_TRUE(Unavailable().empty());
}

TEST_F(JudgedTest, AlwaysKeepsTwo) {
  AddReady(5);
  Condemn({1, 2, 3, 4, 5});
  Check();
  EXPECT_EQ(std::vector<int>({1, 2, 3}), Unavailable());
  EXPECT_EQ(3, IsolatedCount());
  EXPECT_EQ(Urls({1, 2, 3}), judge.asked);
  EXPECT_EQ(std::vector<LogLine>({Removes(1, 4, 5), Removes(2, 3, 5), Removes(3, 2, 5)}),
            logger.Lines());
}

TEST_F(JudgedTest, KnowsNoQuota) {
  AddReady(5);
  judge.option.max_remove_rate = 0;
  Condemn({2, 4, 5});
  Check();
  EXPECT_EQ(std::vector<int>({2, 4, 5}), Unavailable());
  EXPECT_EQ(Urls({1, 2, 3, 4, 5}), judge.asked);
}

TEST_F(JudgedTest, AsksOnlyAboutThoseThatCanTakeRequests) {
  AddReady(10);
  Proxy(2).auth_succeed = false;
  mgr.At(UrlOf(3)).SetStatus(0);
  mgr.At(UrlOf(4)).SetStatus(1);
  mgr.At(UrlOf(5)).SetStatus(3);
  Proxy(6).last_auth_result = 1;
  Proxy(7).is_available = false;
  Condemn({2, 3, 4, 5, 6, 7, 8});
  Check();
  EXPECT_EQ(Urls({1, 8, 9, 10}), judge.asked);
  EXPECT_EQ(std::vector<int>({7, 8}), Unavailable());
  EXPECT_EQ(std::vector<LogLine>({Removes(8, 3, 10)}), logger.Lines());
}

TEST_F(JudgedTest, StepsOverElementsWithoutRecordOrConnector) {
  AddReady(5);
  Condemn({1, 2, 3});
  RealServerNode* detached = peer->FindServerNode(peer->m_using_servers(), UrlOf(1).c_str());
  OSTRNET::CConnector* const connector = Proxy(2).connector;
  detached->server = nullptr;
  Proxy(2).connector = nullptr;
  Check();
  EXPECT_EQ(Urls({3}), judge.asked);
  EXPECT_EQ(std::vector<LogLine>({Removes(3, 2, 5)}), logger.Lines());
  detached->server = proxies[0];
  Proxy(2).connector = connector;
}

TEST_F(JudgedTest, ComesAfterTheCheckEvery300Milliseconds) {
  AddReady(4);
  judge.option.max_remove_rate = 25;  // One of four.
  Starve({1});
  Condemn({1, 2, 3, 4});
  peer->m_lastCheckProxyTime() = clock.Ms() - 300;
  peer->UpdateProxyAvailable();
  EXPECT_EQ(Urls({2}), judge.asked) << "1 is out already, and then two are left";
  EXPECT_EQ(std::vector<int>({1, 2}), Unavailable());
  EXPECT_EQ(2, IsolatedCount());
  const auto texts = logger.TextsOf(OSTRAND_LOG_LEVEL_WARN);
  ASSERT_EQ(2U, texts.size());
  EXPECT_EQ(Removes(2, 2, 4), logger.Lines().back());
}

TEST_F(JudgedTest, DoesNotTouchTheCountersOfRequests) {
  AddReady(3);
  StarveAll();
  Check();
  EXPECT_EQ(11U, Proxy(1).m_request_count);
}

TEST_F(JudgedTest, AsksTheJudgeForItsApplicationAndZone) {
  AddReady(3);
  peer->m_app_id() = 0x200000003;
  Condemn({1});
  Check();
  EXPECT_EQ((std::set<std::pair<int32_t, int32_t>>{{3, kZoneId}}), judge.keys) << "32 bits of it";
  EXPECT_EQ("the proxy is set unavailable, app_id:8589934595, zone_id:5, url:" + UrlOf(1) +
                ", cur the availabe proxy count is:2 total 3",
            logger.Lines()[0].text);
}

TEST_F(JudgedTest, WorksWithoutALogger) {
  AddReady(3);
  ASSERT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  Condemn({3});
  Check();
  EXPECT_EQ(std::vector<int>({3}), Unavailable());
}

}  // namespace
}  // namespace OstrandService
