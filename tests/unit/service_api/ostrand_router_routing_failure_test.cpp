// Requests that find no proxy: what is said and counted, and when.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/lock_probe.h"
#include "unit/service_api/router_routing_test.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OSTRAND_API_SQL_REQ;
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::IsHeld;
using OstrandFakes::KeyedRequest;
using OstrandFakes::LogLine;

using RouterNoRouteTest = RouterRoutingTest;

// --- No route ---

TEST_F(RouterNoRouteTest, FindsNoRouteOnAnEmptyRing) {
  SetRing({});
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
  EXPECT_EQ(8, RouteErrors());
  EXPECT_EQ(1U, FailuresOfAll());
  EXPECT_EQ(1U, FailuresOfTable(2));
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

TEST_F(RouterNoRouteTest, DoesNotAskWhereARequestLiesOnAnEmptyRing) {
  SetRing({});
  KeyedRequest random(OSTRAND_API_SQL_REQ);
  int asked = 0;
  random.OnGetPkg([&] { ++asked; });
  EXPECT_EQ(kNoRoute, Route(&random));
  EXPECT_EQ(0, asked);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
}

TEST_F(RouterNoRouteTest, FindsNoRouteOnARingOfOneUnusablePoint) {
  TakeOut(1);
  SetRing({{10, proxies[1]}});
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", DefaultLine(10)},
                   {OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:1"}}),
            logger.Lines());
  EXPECT_EQ(8, RouteErrors());
  EXPECT_EQ(1U, FailuresOfAll());
  EXPECT_EQ(1U, FailuresOfTable(2));
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

TEST_F(RouterNoRouteTest, FindsNoRouteAfterOneWalkAroundTheWholeRing) {
  TakeOut(1);
  TakeOut(2);
  TakeOut(3);
  SetRing({{10, proxies[1]}, {20, proxies[2]}, {kKeyPosition, proxies[3]}, {kMax, proxies[1]}});
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", DefaultLine(kKeyPosition)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(3, 1, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(0, 1, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(1, 2, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer", "Can't find route."}}),
            logger.Lines());
  EXPECT_EQ(8, RouteErrors());
  EXPECT_EQ(1U, FailuresOfAll());
  EXPECT_EQ(1U, FailuresOfTable(2));
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

TEST_F(RouterNoRouteTest, WalksTheWholeOfAFullRing) {
  for (int number = 4; number <= 200; ++number) {
    AddProxy(peer->m_using_servers(), Url(number));
  }
  TakeOut(1);
  TakeOut(2);
  TakeOut(3);
  peer->WriteHashCircle();
  ASSERT_EQ(20000U, peer->m_virtual_node_count());
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(20001U, logger.Lines().size()) << "default, 19999 points, no route";
}

// --- What is counted, and when ---

TEST_F(RouterNoRouteTest, CountsAFailureForTheTableOnlyWhereItsSubscriptIsInTheRecord) {
  const struct {
    int32_t table_count;
    int32_t subscript;
    bool counted;
  } kCases[] = {{4, 0, true},      {4, 3, true},     {4, 4, false},          {4, -1, false},
                {0, 0, false},     {256, 255, true}, {300, 255, true},       {300, 256, false},
                {300, 299, false}, {-1, 0, false},   {4, -2147483647, false}};
  SetRing({});
  uint32_t failures = 0;
  for (const auto& c : kCases) {
    counters->iTableCount = c.table_count;
    request.SetTableSubscript(c.subscript);
    uint32_t before = 0;
    for (int table = 0; table < 256; ++table) {
      before += FailuresOfTable(table);
    }
    const uint32_t of_table = c.counted ? FailuresOfTable(c.subscript) : 0;
    EXPECT_EQ(kNoRoute, Route());
    EXPECT_EQ(++failures, FailuresOfAll());
    uint32_t after = 0;
    for (int table = 0; table < 256; ++table) {
      after += FailuresOfTable(table);
    }
    EXPECT_EQ(before + (c.counted ? 1 : 0), after) << c.table_count << ", " << c.subscript;
    if (c.counted) {
      EXPECT_EQ(of_table + 1, FailuresOfTable(c.subscript));
    }
  }
}

TEST_F(RouterNoRouteTest, CountsAFailureInTheRecordOfTheRoutersOwnZone) {
  tagTableQos elsewhere = qos;
  elsewhere.iZoneID = 9;
  elsewhere.iRounteErrorCount = 0;
  router->SetQos(&elsewhere);
  tagServiceApiStatistic& other = statistics.Register(kAppId, 9);
  SetRing({});
  EXPECT_EQ(kNoRoute, peer->GetRouterProxyServer(out, &request, 9, kTable));
  EXPECT_EQ(1U, FailuresOfAll());
  EXPECT_EQ(0U, other.stOverallRunStatus.dwApiFindRouteErrNumPerMin);
  EXPECT_EQ(1, RouteErrorsOf(elsewhere)) << "but in the slot of the given one";
  EXPECT_EQ(7, RouteErrors());
}

TEST_F(RouterNoRouteTest, FailsTheSameWithoutAStatisticsRecord) {
  peer->m_app_id() = kAppId + 1;
  SetRing({});
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
  EXPECT_EQ(8, RouteErrors());
  EXPECT_EQ(0U, FailuresOfAll());
}

TEST_F(RouterNoRouteTest, CountsAFailureBeforeItTellsOfItUnderTheLock) {
  TakeOut(1);
  int told = 0;
  logger.OnLine([&](const LogLine& line) {
    EXPECT_TRUE(IsHeld(peer->m_mutex_vistual_nodes())) << line.text;
    EXPECT_EQ(8, RouteErrors()) << line.text;
    if (line.level == OSTRAND_LOG_LEVEL_ERROR) {
      ++told;
      EXPECT_EQ(static_cast<uint32_t>(told), FailuresOfAll()) << line.text;
      qos.iRounteErrorCount = 7;  // For the next one.
    }
  });
  SetRing({});
  Route();
  SetRing({{10, proxies[1]}});
  Route();
  SetRing({{10, proxies[1]}, {20, proxies[1]}});
  Route();
  EXPECT_EQ(3, told);
}

TEST_F(RouterNoRouteTest, RaisesTheTablesCountFirstAndLowersItBehindTheLastLine) {
  SetRing({{10, proxies[1]}});
  std::vector<int> seen;
  request.OnGetPkg([&] {
    seen.push_back(RouteErrors());
    EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes())) << "nothing is held between the two looks";
  });
  logger.OnLine([&](const LogLine& line) {
    seen.push_back(RouteErrors());
    EXPECT_TRUE(IsHeld(peer->m_mutex_vistual_nodes())) << line.text;
  });
  EXPECT_EQ(0, Route());
  EXPECT_EQ(std::vector<int>({8, 8}), seen);
  EXPECT_EQ(7, RouteErrors());
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

// --- The ring changes between the two looks ---

TEST_F(RouterNoRouteTest, FindsNoRouteWhenTheRingBecomesEmptyInBetween) {
  SetRing({{10, proxies[1]}});
  request.OnGetPkg([&] { SetRing({}); });
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
  EXPECT_EQ(8, RouteErrors());
  EXPECT_EQ(1U, FailuresOfAll());
  EXPECT_EQ(1U, FailuresOfTable(2));
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

TEST_F(RouterNoRouteTest, SaysTwiceThatTheRingBecameEmptyBeforeARandomPick) {
  SetRing({{10, proxies[1]}});
  KeyedRequest random(OSTRAND_API_SQL_REQ);
  random.OnGetPkg([&] { SetRing({}); });
  EXPECT_EQ(kNoRoute, Route(&random));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "CalcRequestHashCode", "m_virtual_node_count is zero"},
                   {OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
  EXPECT_EQ(1U, FailuresOfAll()) << "counted once";
}

TEST_F(RouterNoRouteTest, TakesTheRingThatItFindsAtTheSecondLook) {
  SetRing({{10, proxies[1]}});
  request.OnGetPkg([&] { SetRing({{10, proxies[1]}, {kKeyPosition, proxies[2]}}); });
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
}

}  // namespace
}  // namespace OstrandService
