// The choice of a proxy for a request, on rings written by hand around the position of one key.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <utility>
#include <vector>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_routing_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::AllocationFaults;

// --- Arguments ---

TEST_F(RouterRoutingTest, RefusesARouterThatDidNotFinishInit) {
  SetRing({{1, proxies[1]}});
  router->Fini();
  logger.Clear();
  ProxyServer stranger;
  out = &stranger;
  EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, &request, kZoneId, kTable));
  EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, nullptr, kZoneId, nullptr));
  EXPECT_EQ(&stranger, out) << "as it was";
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(7, RouteErrors());
}

TEST_F(RouterRoutingTest, RefusesARouterWithoutInitAndAfterAFailedOne) {
  const auto raw = NewRouter(&latency, &statistics, &judge);
  const OstrandRouterPeer raw_peer(*raw);
  ProxyServer stranger;
  out = &stranger;
  EXPECT_EQ(kNotInitialised, raw_peer.GetRouterProxyServer(out, &request, kZoneId, kTable));
  EXPECT_EQ(-256, raw->Init(&mgr, nullptr, &logger));
  logger.Clear();
  EXPECT_EQ(kNotInitialised, raw_peer.GetRouterProxyServer(out, &request, kZoneId, kTable));
  EXPECT_EQ(&stranger, out) << "as it was";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterRoutingTest, RefusesANullOrEmptyTableName) {
  SetRing({{1, proxies[1]}});
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    logger.Clear();
    out = proxies[1];
    EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, &request, kZoneId, name));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer", "NULL == table_name"}}),
              logger.Lines());
  }
  EXPECT_EQ(7, RouteErrors());
  EXPECT_EQ(0U, FailuresOfAll());
}

TEST_F(RouterRoutingTest, RefusesATableThatIsNotRegisteredAndCountsNothing) {
  SetRing({});
  const std::pair<int, const char*> kTables[] = {
      {kZoneId, "player"}, {kZoneId, "players2"}, {kZoneId + 1, kTable}};
  for (const auto& [zone_id, name] : kTables) {
    logger.Clear();
    out = proxies[1];
    EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, &request, zone_id, name));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                      "The table(\"" + std::string(name) +
                          "\") is not existed in the array m_table_qos"}}),
              logger.Lines());
  }
  EXPECT_EQ(7, RouteErrors());
  EXPECT_EQ(0U, FailuresOfAll());
}

// --- Where a position leads ---

TEST_F(RouterRoutingTest, LeadsToTheFirstPointAtOrBehindThePosition) {
  const struct {
    const char* what;
    std::vector<uint64_t> points;
    size_t expected;
  } kCases[] = {{"exactly at a point", {5, kKeyPosition, kMax}, 1},
                {"one below a point", {5, kKeyPosition + 1, kMax}, 1},
                {"one above a point", {5, kKeyPosition - 1, kMax}, 2},
                {"below all points", {kKeyPosition + 9, kMax - 1, kMax}, 0},
                {"above all points", {0, 5, kKeyPosition - 1}, 0},
                {"at the first point", {kKeyPosition, kMax - 1, kMax}, 0},
                {"at the last point", {0, 5, kKeyPosition}, 2},
                {"between neighbours", {kKeyPosition - 1, kKeyPosition, kKeyPosition + 1}, 1}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    SetRing({{c.points[0], proxies[1]}, {c.points[1], proxies[2]}, {c.points[2], proxies[3]}});
    EXPECT_EQ(0, Route());
    EXPECT_EQ(proxies[c.expected + 1], out);
    EXPECT_EQ(
        Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", RouteLine(c.points[c.expected])}}),
        logger.Lines());
  }
  EXPECT_EQ(7, RouteErrors());
  EXPECT_EQ(0U, FailuresOfAll());
}

TEST_F(RouterRoutingTest, LeadsAroundARingOfOnePoint) {
  for (const uint64_t point : {uint64_t{0}, kKeyPosition, kMax}) {
    SetRing({{point, proxies[2]}});
    EXPECT_EQ(0, Route());
    EXPECT_EQ(proxies[2], out);
  }
}

TEST_F(RouterRoutingTest, FindsItsWayOnAWrittenRing) {
  peer->WriteHashCircle();
  ASSERT_EQ(300U, peer->m_virtual_node_count());
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[3], out);
  EXPECT_EQ(RouteLine(0x96A080CDA6051504), logger.Texts().at(0));
}

TEST_F(RouterRoutingTest, TakesOnlyAProxyThatIsSignedUpConnectedAndAvailable) {
  const struct {
    bool auth_succeed;
    int last_auth_result;
    int status;
    bool is_available;
    bool usable;
  } kCases[] = {{true, 0, 2, true, true},   {false, 0, 2, true, false}, {true, 1, 2, true, false},
                {true, -1, 2, true, false}, {true, 0, 0, true, false},  {true, 0, 1, true, false},
                {true, 0, 3, true, false},  {true, 0, -1, true, false}, {true, 0, 2, false, false}};
  for (const auto& c : kCases) {
    proxies[1]->auth_succeed = c.auth_succeed;
    proxies[1]->last_auth_result = c.last_auth_result;
    mgr.At(Url(1)).SetStatus(c.status);
    proxies[1]->is_available = c.is_available;
    const std::string figures = "state:" + std::to_string(c.status) +
                                ", auth_succeed:" + std::to_string(c.auth_succeed) +
                                ", last_auth_result:" + std::to_string(c.last_auth_result) +
                                ", is_available:" + std::to_string(c.is_available);
    SCOPED_TRACE(figures);
    SetRing({{kKeyPosition, proxies[1]}, {kMax, proxies[2]}});
    EXPECT_EQ(0, Route());
    EXPECT_EQ(proxies[c.usable ? 1 : 2], out) << "as the default";

    TakeOut(3);
    SetRing({{5, proxies[2]}, {kKeyPosition, proxies[3]}, {kMax, proxies[1]}});
    EXPECT_EQ(0, Route());
    EXPECT_EQ(proxies[c.usable ? 1 : 2], out) << "on the walk";
    EXPECT_EQ(c.usable ? 0 : 1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG, SkipLine(2, 1, figures)));
  }
}

// --- The walk ---

TEST_F(RouterRoutingTest, WalksPastUnusableProxiesAndAroundTheEnd) {
  TakeOut(1);
  TakeOut(2);
  SetRing({{10, proxies[1]},
           {20, proxies[3]},
           {30, proxies[3]},
           {kKeyPosition, proxies[2]},
           {kKeyPosition + 1, proxies[1]},
           {kMax, proxies[1]}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[3], out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", DefaultLine(kKeyPosition)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(4, 1, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(5, 1, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", SkipLine(0, 1, kTakenOut)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", RouteLine(20)}}),
            logger.Lines());
  EXPECT_EQ(7, RouteErrors());
  EXPECT_EQ(0U, FailuresOfAll());
}

TEST_F(RouterRoutingTest, WalksFromTheLastPointToTheFirst) {
  TakeOut(1);
  SetRing({{10, proxies[2]}, {kKeyPosition, proxies[1]}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", DefaultLine(kKeyPosition)},
                   {OSTRAND_LOG_LEVEL_DEBUG, "GetRouterProxyServer", RouteLine(10)}}),
            logger.Lines());
}

TEST_F(RouterRoutingTest, WalksFromTheFirstPointWhenThePositionIsAboveAll) {
  TakeOut(1);
  SetRing({{10, proxies[1]}, {20, proxies[2]}, {30, proxies[3]}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
  EXPECT_EQ((std::vector<std::string>{DefaultLine(10), RouteLine(20)}), logger.Texts());
}

TEST_F(RouterRoutingTest, StepsOverPointsWithoutServerOrConnector) {
  ProxyServer without_connector;
  without_connector.auth_succeed = true;
  without_connector.last_auth_result = 0;
  SetRing(
      {{10, proxies[3]}, {kKeyPosition, nullptr}, {kMax - 1, &without_connector}, {kMax, nullptr}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[3], out);
  const std::string kNothing =
      " connector:(nil) state:-1, auth_succeed:0, last_auth_result:0, is_available:0";
  EXPECT_EQ((std::vector<std::string>{
                DefaultLine(kKeyPosition), "Skip virtual server node. index:2" + kNothing,
                "Skip virtual server node. index:3" + kNothing, RouteLine(10)}),
            logger.Texts());

  SetRing({{10, proxies[3]}, {kKeyPosition, &without_connector}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[3], out);
}

TEST_F(RouterRoutingTest, TellsNothingOfTheWayUnlessDebugIsEnabled) {
  TakeOut(1);
  SetRing({{10, proxies[2]}, {20, proxies[1]}, {kKeyPosition, proxies[1]}});
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
  TakeOut(2);
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer", "Can't find route."}}),
            logger.Lines());
}

TEST_F(RouterRoutingTest, RoutesWithoutALogger) {
  EXPECT_EQ(kNotInitialised, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  TakeOut(1);
  SetRing({{10, proxies[2]}, {20, proxies[1]}, {kKeyPosition, proxies[1]}});
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
  TakeOut(2);
  EXPECT_EQ(kNoRoute, Route());
  SetRing({});
  EXPECT_EQ(kNoRoute, Route());
  EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, &request, kZoneId, nullptr));
  EXPECT_EQ(kNotInitialised, peer->GetRouterProxyServer(out, &request, kZoneId, "unknown"));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterRoutingTest, AllocatesNothing) {
  TakeOut(1);
  SetRing({{10, proxies[2]}, {kKeyPosition, proxies[1]}});
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  logger.Clear();
  AllocationFaults faults;
  EXPECT_EQ(0, peer->GetRouterProxyServer(out, &request, kZoneId, kTable));
  EXPECT_EQ(0, peer->GetRouterProxyServer(out, nullptr, kZoneId, kTable));
  EXPECT_EQ(0, faults.count());
}

// --- Without a request, without a key ---

TEST_F(RouterRoutingTest, TakesARandomPointWithoutARequest) {
  SetRing({{10, proxies[1]}, {kKeyPosition, proxies[2]}, {kMax, proxies[3]}});
  uint32_t seed = 4711;
  peer->m_randSed() = seed;
  for (int i = 0; i < 30; ++i) {
    const uint32_t index = static_cast<uint32_t>(rand_r(&seed)) % 3;
    EXPECT_EQ(0, Route(nullptr));
    EXPECT_EQ(proxies[index + 1], out);
    const std::string position = std::to_string(peer->m_virtual_nodes()[index].hash_code);
    EXPECT_EQ("Route Request. hash_code:" + position + "->" + position, logger.Texts().at(0))
        << "the position is the point's own";
  }
  EXPECT_EQ(seed, peer->m_randSed());
}

TEST_F(RouterRoutingTest, CountsAFailureWithoutARequestForAllTablesOnly) {
  SetRing({});
  EXPECT_EQ(kNoRoute, Route(nullptr));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                    "Can't find route. m_virtual_node_count:0"}}),
            logger.Lines());
  EXPECT_EQ(1U, FailuresOfAll());
  for (int table = 0; table < 4; ++table) {
    EXPECT_EQ(0U, FailuresOfTable(table));
  }
  EXPECT_EQ(8, RouteErrors());
}

TEST_F(RouterRoutingTest, TakesPositionZeroForARequestWithoutPackage) {
  SetRing({{0, proxies[2]}, {kMax, proxies[1]}});
  request.LoseThePackage();
  EXPECT_EQ(0, Route());
  EXPECT_EQ(proxies[2], out);
  EXPECT_EQ("Route Request. hash_code:0->0", logger.Texts().at(0));
}

}  // namespace
}  // namespace OstrandService
