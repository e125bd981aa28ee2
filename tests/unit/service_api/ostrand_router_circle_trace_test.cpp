// What the writing of the ring tells: its lines, their place, each proxy's coverage.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fakes/lock_probe.h"
#include "unit/service_api/router_circle_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::FakeClock;
using OstrandFakes::FakeOstrandServer;
using OstrandFakes::IsHeld;
using OstrandFakes::LogLine;

using RouterCircleTraceTest = RouterCircleTest;

// --- Log lines and their place ---

TEST_F(RouterCircleTraceTest, TellsEverythingAtTrace) {
  Use(1);
  AddReadyProxy(peer->m_preparing_servers(), Url(2));
  AppendNode(peer->m_removing_servers(), Url(3), nullptr);
  Partition({{0x0000000000000010, kHalf, 30, 40, 60, 50}});
  Write();
  const std::string of_first = "server:" + Pointer(Proxy(1)) +
                               " connector:" + Pointer(&mgr.At(Url(1))) +
                               " status:DISCONNECTED auth:unauthed";
  const ProxyServer* second =
      peer->FindServerNode(peer->m_preparing_servers(), Url(2).c_str())->server;
  const std::string of_second = "server:" + Pointer(second) +
                                " connector:" + Pointer(&mgr.At(Url(2))) +
                                " status:CONNECTED auth:authed";
  const std::string kHeading = "After connector_mgr->Update. ";
  EXPECT_EQ(
      Lines({
          {OSTRAND_LOG_LEVEL_DEBUG, "WriteHashCircle",
           "Begin to WriteHashCircle. m_using_servers.Count()=1"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle",
           "avaliable server_url:tcp://10.0.0.1:8000, m_virtual_node_count: 0, "
           "m_len2ending[0].size(): 6"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle", "url_num[tcp://10.0.0.1:8000][0]: 16"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle",
           "url_num[tcp://10.0.0.1:8000][0]: 9223372036854775808"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle", "url_num[tcp://10.0.0.1:8000][0]: 30"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle", "url_num[tcp://10.0.0.1:8000][0]: 40"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle", "url_num[tcp://10.0.0.1:8000][0]: 60"},
          {OSTRAND_LOG_LEVEL_INFO, "WriteHashCircle",
           "WriteHashCircle succeed. m_virtual_node_count:6"},
          {OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat", "start GetServerListStat"},
          {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", "start Get url tcp://10.0.0.1:8000 md5 "},
          {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", "md5 e791ffb4a97b302784bd6fcb795690d8"},
          {OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat",
           "m_using_servers using_cnt 1, using_auth_cnt 0, using_md5 "
           "e791ffb4a97b302784bd6fcb795690d8"},
          {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", "start Get url tcp://10.0.0.2:8000 md5 "},
          {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", "md5 36b4e54524459b275731795a174de6df"},
          {OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat",
           "m_prepare_servers preparing_cnt 1, preparing_auth_cnt 1, preparing_md5 "
           "36b4e54524459b275731795a174de6df"},
          {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle",
           "server tcp://10.0.0.1:8000|18446744073709551615 covers 100.00%"},
          {OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
           kHeading + "m_using_servers index:0 server_url:tcp://10.0.0.1:8000 " + of_first},
          {OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
           kHeading + "m_preparing_servers index:0 server_url:tcp://10.0.0.2:8000 " + of_second},
          {OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
           kHeading + "m_removing_servers index:0 server_url:tcp://10.0.0.3:8000 server:(nil) "
                      "connector:(nil) status:NULL auth:unauthed"},
      }),
      logger.Lines());
}

TEST_F(RouterCircleTraceTest, PrintsThePositionOfTheProxyBesideEachOfItsFirstFiveEndings) {
  Use(2);
  Write();
  EXPECT_EQ(std::vector<std::string>({"url_num[tcp://10.0.0.1:8000][0]: 7133309968240590734",
                                      "url_num[tcp://10.0.0.1:8000][0]: 12127290366892733413",
                                      "url_num[tcp://10.0.0.1:8000][0]: 12578298624107024527",
                                      "url_num[tcp://10.0.0.1:8000][0]: 12387286861884375470",
                                      "url_num[tcp://10.0.0.1:8000][0]: 16344923937373026025",
                                      "url_num[tcp://10.0.0.2:8000][1]: 2909528635106930688",
                                      "url_num[tcp://10.0.0.2:8000][1]: 6762229947168857263",
                                      "url_num[tcp://10.0.0.2:8000][1]: 15519289243447277511",
                                      "url_num[tcp://10.0.0.2:8000][1]: 2243158537149647924",
                                      "url_num[tcp://10.0.0.2:8000][1]: 612661561555216712"}),
            LinesThatBegin("url_num["));
  EXPECT_EQ(std::vector<std::string>({"avaliable server_url:tcp://10.0.0.1:8000, "
                                      "m_virtual_node_count: 0, m_len2ending[0].size(): 100",
                                      "avaliable server_url:tcp://10.0.0.2:8000, "
                                      "m_virtual_node_count: 100, m_len2ending[1].size(): 100"}),
            LinesThatBegin("avaliable "));
}

TEST_F(RouterCircleTraceTest, ComputesCoverageAndTracesListsOnlyWhenTraceIsEnabled) {
  Use(2);
  logger.SetThreshold(OSTRAND_LOG_LEVEL_DEBUG);
  Write();
  EXPECT_TRUE(CoverageLines().empty());
  EXPECT_TRUE(logger.LinesFrom("TraceLogConnection").empty());
  EXPECT_EQ(10U, LinesThatBegin("url_num[").size()) << "these are cheap";
  EXPECT_EQ(1, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_DEBUG));
}

TEST_F(RouterCircleTraceTest, WritesTheRingWithoutALogger) {
  Use(2);
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  Write();
  EXPECT_EQ(200U, peer->m_virtual_node_count());
  EXPECT_EQ(1U, server.reports().size());
  Partition({});
  Write();
  EXPECT_EQ(200U, peer->m_virtual_node_count());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterCircleTraceTest, HoldsTheLockFromBehindTheFirstLineToTheEnd) {
  Use(2);
  std::vector<std::pair<std::string, bool>> lines;
  logger.OnLine([&](const LogLine& line) {
    lines.emplace_back(line.text, IsHeld(peer->m_mutex_vistual_nodes()));
  });
  Write();
  ASSERT_LT(1U, lines.size());
  EXPECT_FALSE(lines[0].second) << lines[0].first;
  for (size_t i = 1; i < lines.size(); ++i) {
    EXPECT_TRUE(lines[i].second) << lines[i].first;
  }
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));

  lines.clear();
  Partition({});
  Write();
  EXPECT_FALSE(lines.front().second);
  EXPECT_TRUE(lines.back().second) << lines.back().first;
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

TEST_F(RouterCircleTraceTest, HasSortedAndNotedTheTimeBeforeItTellsOfSuccess) {
  Use(3);
  bool told = false;
  logger.OnLine([&](const LogLine& line) {
    if (line.text == "WriteHashCircle succeed. m_virtual_node_count:300") {
      told = true;
      const Points ring = Ring();
      EXPECT_TRUE(std::is_sorted(ring.begin(), ring.end()));
      EXPECT_EQ(FakeClock::kStartMs, peer->m_last_flush_hash_circle_time());
      EXPECT_TRUE(server.reports().empty());
    }
  });
  Write();
  EXPECT_TRUE(told);
}

// --- Coverage ---

TEST_F(RouterCircleTraceTest, SumsTheArcsThatEndAtAProxysPoints) {
  Use(3);
  Partition({{10, 0xFFFFFFFFFFFFFFF6}, {40}, {100}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|18446744073709551526 covers 100.00%",
                                "server tcp://10.0.0.2:8000|30 covers 0.00%",
                                "server tcp://10.0.0.3:8000|60 covers 0.00%"}),
      CoverageLines())
      << "the first point's arc begins at the last point";
}

TEST_F(RouterCircleTraceTest, IsComputedInSinglePrecision) {
  Use(2);
  Partition({{9344198209463831547U}, {0}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|9344198209463831547 covers 50.66%",
                                "server tcp://10.0.0.2:8000|9102545864245720069 covers 49.34%"}),
      CoverageLines())
      << "50.654999994 and 49.345000006 per cent in double precision";
}

TEST_F(RouterCircleTraceTest, TakesACoverageOfZeroForTheWholeRing) {
  Use(1);
  Partition({{12345}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|18446744073709551615 covers 100.00%"}),
      CoverageLines());
}

TEST_F(RouterCircleTraceTest, ListsCoverageInByteOrderOfTheUrls) {
  for (const char* url : {"tcp://host-z:8000", "tcp://host-\x80:8000", "tcp://host-B:8000"}) {
    AddProxy(in_use, url);
  }
  Partition({{kHalf}, {kHalf + kHalf / 2}, {0}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://host-B:8000|4611686018427387904 covers 25.00%",
                                "server tcp://host-z:8000|9223372036854775808 covers 50.00%",
                                "server tcp://host-\x80:8000|4611686018427387904 covers 25.00%"}),
      CoverageLines());
}

TEST_F(RouterCircleTraceTest, CountsArcsBehindPointsWithoutServerToNobody) {
  Use(1);
  AppendNode(in_use, Url(2), nullptr);
  Partition({{kHalf}, {0}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|9223372036854775808 covers 50.00%"}),
      CoverageLines());
}

TEST_F(RouterCircleTraceTest, CountsCoverageByTheConnectorsUrl) {
  Use(1);
  AppendNode(in_use, "tcp://alias.of.it:1", Proxy(1));
  Partition({{kHalf}, {0}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|18446744073709551615 covers 100.00%"}),
      CoverageLines());
  EXPECT_EQ(2U, LinesThatBegin("avaliable ").size());
  in_use->PopBack();
}

TEST_F(RouterCircleTraceTest, CountsARecordWithoutConnectorToNobody) {
  Use(1);
  ProxyServer without_connector;
  AppendNode(in_use, Url(2), &without_connector);
  Partition({{kHalf}, {0}});
  Write();
  EXPECT_EQ(
      std::vector<std::string>({"server tcp://10.0.0.1:8000|9223372036854775808 covers 50.00%"}),
      CoverageLines());
  in_use->PopBack();
  peer->m_virtual_node_count() = 0;
  peer->m_virtual_nodes()[0].server = nullptr;
}

// --- A report that fails ---

// A service whose report throws.
class ThrowingServer : public FakeOstrandServer {
 public:
  using FakeOstrandServer::FakeOstrandServer;
  int ReportDirHashCircleStat(int, std::string&) override { throw std::runtime_error("report"); }
};

TEST_F(RouterCircleTraceTest, ReleasesTheLockWhenAnExceptionLeavesIt) {
  Use(1);
  ThrowingServer throwing(&logger);
  peer->m_ostrand_server() = &throwing;
  EXPECT_THROW(Write(), std::runtime_error);
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
  peer->m_ostrand_server() = Service();
}

}  // namespace
}  // namespace OstrandService
