// The fingerprint of the lists that a ring was written from. Digests computed by a separate
// program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "fakes/lock_probe.h"
#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::FakeOstrandServer;
using OstrandFakes::IsHeld;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

using Reports = std::vector<std::pair<int, std::string>>;

// Of the urls 1; 1 and 2; 1, 2 and 10 (which comes first: 0 is below the colon); 3.
constexpr char kMd5Of1[] = "e791ffb4a97b302784bd6fcb795690d8";
constexpr char kMd5Of1And2[] = "cdd1c56a8db06a7c66b36122bf5ad930";
constexpr char kMd5Of10And1And2[] = "220be172332ce1606dc940b23d95f159";
constexpr char kMd5Of3[] = "ee903ca9b0a1973357ef9a1f0d9c15e6";

std::string Url(int number) { return "tcp://10.0.0." + std::to_string(number) + ":8000"; }

class RouterCircleStatTest : public testing::Test, public RouterFixture {
 protected:
  RouterCircleStatTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    in_use = peer->m_using_servers();
    preparing = peer->m_preparing_servers();
    logger.Clear();
  }

  // An element that AddServerNode would not make.
  static void AppendNode(List* list, const std::string& url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = proxy;
  }

  // Takes the figures of a list; none of them is 0 or empty before.
  void Look(List* list) {
    logger.Clear();
    count = 99;
    auth_count = 88;
    md5 = "before";
    peer->GetServerListStat(list, count, auth_count, md5);
  }

  List* in_use;
  List* preparing;
  int count = 0;
  int auth_count = 0;
  std::string md5;
};

// --- One list ---

TEST_F(RouterCircleStatTest, OfAnEmptyListLeavesTheDigestAlone) {
  Look(in_use);
  EXPECT_EQ(0, count);
  EXPECT_EQ(0, auth_count);
  EXPECT_EQ("before", md5);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterCircleStatTest, TellsTheUrlsAndTheirDigest) {
  AddReadyProxy(in_use, Url(2));
  AddProxy(in_use, Url(1));
  Look(in_use);
  EXPECT_EQ(2, count);
  EXPECT_EQ(1, auth_count);
  EXPECT_EQ(kMd5Of1And2, md5);
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat",
              "start Get url tcp://10.0.0.1:8000tcp://10.0.0.2:8000 md5 "},
             {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", std::string("md5 ") + kMd5Of1And2}}),
      logger.Lines())
      << "the first line ends in a blank";
}

TEST_F(RouterCircleStatTest, GivesTheSameDigestInEveryOrderOfTheList) {
  std::vector<int> order = {1, 2, 10};
  do {
    for (const int number : order) {
      AppendNode(in_use, Url(number), nullptr);
    }
    Look(in_use);
    EXPECT_EQ(kMd5Of10And1And2, md5);
    EXPECT_EQ("start Get url tcp://10.0.0.10:8000tcp://10.0.0.1:8000tcp://10.0.0.2:8000 md5 ",
              logger.Texts()[0]);
    in_use->Clear();
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(RouterCircleStatTest, SortsBytesAsUnsigned) {
  AppendNode(in_use, "tcp://host\x80:8000", nullptr);
  AppendNode(in_use, "tcp://hostz:8000", nullptr);
  Look(in_use);
  EXPECT_EQ("65ad9455c762d2fb62de2278dd32de0e", md5);
}

TEST_F(RouterCircleStatTest, DigestsTwoHundredUrls) {
  for (int number = 200; number >= 1; --number) {
    AppendNode(in_use, Url(number), nullptr);
  }
  Look(in_use);
  EXPECT_EQ(200, count);
  EXPECT_EQ("1a057049cdb5c617200e374698efe2d4", md5);
}

TEST_F(RouterCircleStatTest, DigestsTheLongestUrlWhole) {
  AppendNode(in_use, "tcp://" + std::string(1017, 'h'), nullptr);
  Look(in_use);
  EXPECT_EQ("6cd695c3b9b1547d0b28c3c3bd1b4445", md5);
}

TEST_F(RouterCircleStatTest, CountsAsSignedUpWhoIsConnectedAndSignedUp) {
  const struct {
    int status;
    bool auth_succeed;
    int expected;
  } kCases[] = {{0, false, 0}, {0, true, 0}, {1, false, 0}, {1, true, 0},
                {2, false, 0}, {2, true, 1}, {3, true, 0},  {-1, true, 0}};
  ProxyServer* proxy = AddProxy(in_use, Url(1));
  for (const auto& c : kCases) {
    mgr.At(Url(1)).SetStatus(c.status);
    proxy->auth_succeed = c.auth_succeed;
    Look(in_use);
    EXPECT_EQ(1, count);
    EXPECT_EQ(c.expected, auth_count) << c.status << ", " << c.auth_succeed;
    EXPECT_EQ(kMd5Of1, md5);
  }
}

TEST_F(RouterCircleStatTest, DoesNotCareWhetherAProxyIsUsable) {
  ProxyServer* proxy = AddReadyProxy(in_use, Url(1));
  proxy->is_available = false;
  proxy->last_auth_result = 1;
  Look(in_use);
  EXPECT_EQ(1, auth_count);
}

TEST_F(RouterCircleStatTest, CountsAndDigestsElementsWithoutServerOrConnector) {
  ProxyServer without_connector;
  without_connector.auth_succeed = true;
  AppendNode(in_use, Url(1), &without_connector);
  AppendNode(in_use, Url(2), nullptr);
  Look(in_use);
  EXPECT_EQ(2, count);
  EXPECT_EQ(0, auth_count);
  EXPECT_EQ(kMd5Of1And2, md5);
  in_use->Clear();
}

// --- The fingerprint ---

TEST_F(RouterCircleStatTest, ReportsUsingAndPreparingListAndTheRingsSize) {
  AddReadyProxy(in_use, Url(2));
  AddProxy(in_use, Url(1));
  AddReadyProxy(preparing, Url(3));
  peer->m_virtual_node_count() = 123;
  logger.Clear();
  peer->UpdateHashCircleStat();
  EXPECT_EQ(Reports({{kZoneId,
                      "5-2-1-cdd1c56a8db06a7c66b36122bf5ad930-1-1-"
                      "ee903ca9b0a1973357ef9a1f0d9c15e6-123"}}),
            server.reports());
  EXPECT_EQ(
      Lines(
          {{OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat", "start GetServerListStat"},
           {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat",
            "start Get url tcp://10.0.0.1:8000tcp://10.0.0.2:8000 md5 "},
           {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", std::string("md5 ") + kMd5Of1And2},
           {OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat",
            std::string("m_using_servers using_cnt 2, using_auth_cnt 1, using_md5 ") + kMd5Of1And2},
           {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", "start Get url tcp://10.0.0.3:8000 md5 "},
           {OSTRAND_LOG_LEVEL_DEBUG, "GetServerListStat", std::string("md5 ") + kMd5Of3},
           {OSTRAND_LOG_LEVEL_INFO, "UpdateHashCircleStat",
            std::string("m_prepare_servers preparing_cnt 1, preparing_auth_cnt 1, "
                        "preparing_md5 ") +
                kMd5Of3}}),
      logger.Lines());
}

TEST_F(RouterCircleStatTest, LeavesTheFieldOfAnEmptyListEmpty) {
  AddReadyProxy(in_use, Url(1));
  peer->WriteHashCircle();
  EXPECT_EQ(Reports({{kZoneId, "5-1-1-e791ffb4a97b302784bd6fcb795690d8-0-0--100"}}),
            server.reports());
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_INFO,
                            "m_prepare_servers preparing_cnt 0, preparing_auth_cnt 0, "
                            "preparing_md5 "));
}

TEST_F(RouterCircleStatTest, DoesNotCountTheRemovingList) {
  AddReadyProxy(in_use, Url(1));
  AddReadyProxy(peer->m_removing_servers(), Url(2));
  peer->UpdateHashCircleStat();
  EXPECT_EQ(Reports({{kZoneId, "5-1-1-e791ffb4a97b302784bd6fcb795690d8-0-0--0"}}),
            server.reports());
}

TEST_F(RouterCircleStatTest, PrintsANegativeZoneWithItsSign) {
  peer->m_zone_id() = -7;
  peer->UpdateHashCircleStat();
  EXPECT_EQ(Reports({{-7, "-7-0-0--0-0--0"}}), server.reports());
}

TEST_F(RouterCircleStatTest, LooksAnewEachTime) {
  ProxyServer* proxy = AddReadyProxy(in_use, Url(1));
  peer->UpdateHashCircleStat();
  proxy->auth_succeed = false;
  peer->UpdateHashCircleStat();
  EXPECT_EQ(Reports({{kZoneId, "5-1-1-e791ffb4a97b302784bd6fcb795690d8-0-0--0"},
                     {kZoneId, "5-1-0-e791ffb4a97b302784bd6fcb795690d8-0-0--0"}}),
            server.reports());
}

TEST_F(RouterCircleStatTest, IgnoresTheAnswerToItsReport) {
  AddReadyProxy(in_use, Url(1));
  server.SetReportResult(-1);
  logger.Clear();
  peer->WriteHashCircle();
  EXPECT_EQ(1U, server.reports().size());
  EXPECT_EQ(100U, peer->m_virtual_node_count());
  EXPECT_EQ(0, logger.Count(OstrandCommon::OSTRAND_LOG_LEVEL_ERROR));
}

TEST_F(RouterCircleStatTest, ReportsWithoutALoggerAndAsksNoLogger) {
  AddReadyProxy(in_use, Url(1));
  logger.Clear();
  peer->UpdateHashCircleStat();
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_DEBUG));
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  logger.Clear();
  peer->UpdateHashCircleStat();
  EXPECT_EQ(2U, server.reports().size());
  EXPECT_TRUE(logger.Lines().empty());
}

// A service that looks at the ring's lock when it receives the report.
class LookingServer : public FakeOstrandServer {
 public:
  using FakeOstrandServer::FakeOstrandServer;
  int ReportDirHashCircleStat(int, std::string&) override {
    held = IsHeld(peer->m_mutex_vistual_nodes());
    count = peer->m_virtual_node_count();
    return 0;
  }

  OstrandRouterPeer* peer = nullptr;
  bool held = false;
  uint32_t count = 0;
};

TEST_F(RouterCircleStatTest, IsReportedUnderTheRingsLock) {
  AddReadyProxy(in_use, Url(1));
  LookingServer looking(&logger);
  looking.peer = peer.get();
  peer->m_ostrand_server() = &looking;
  peer->WriteHashCircle();
  EXPECT_TRUE(looking.held);
  EXPECT_EQ(100U, looking.count);
  peer->m_ostrand_server() = Service();
}

}  // namespace
}  // namespace OstrandService
