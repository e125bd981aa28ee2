// The passes over a list that drop the silent and stamp everybody.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "unit/service_api/router_connections_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::FakeClock;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

// --- Silence ---

class SilenceTest : public ConnectionsTest {
 protected:
  SilenceTest() {
    Given(kConnected, kConnected, true, true, 0);
    router->SetCheckHeartbeatInterval(30000);
  }

  static Said DropLine(const std::string& url, const std::string& now, const std::string& last,
                       const std::string& interval) {
    return {OSTRAND_LOG_LEVEL_INFO, "DisconnectProxyThatNeedToDisconnect",
            "disconnect the proxy: " + url + ", now_time: " + now + ", last_recv_heartbeat_ms: " +
                last + ", check_heartbeat_mseconds: " + interval + "."};
  }
};

TEST_F(SilenceTest, DropsAProxyThatWasSilentForTheInterval) {
  proxy->last_recv_ms = 1699999970000;
  DropSilent(1700000000000);
  EXPECT_EQ(Lines({DropLine(kUrl, "1700000000000", "1699999970000", "30000")}), logger.Lines());
  EXPECT_EQ(std::vector<int>({0}), connector->disconnects());
  EXPECT_EQ(1700000000000, proxy->last_recv_ms);
  EXPECT_EQ(kConnected, proxy->pre_status) << "the next pass finds it lost";
  EXPECT_TRUE(proxy->auth_succeed) << "the next pass clears it";
}

TEST_F(SilenceTest, BeginsAtExactlyTheInterval) {
  struct {
    int64_t last_recv_ms;
    uint32_t interval;
    bool dropped;
  } const cases[] = {
      {kNow - 29999, 30000, false},
      {kNow - 30000, 30000, true},
      {kNow - 30001, 30000, true},
      {kNow, 30000, false},
      {kNow + 1, 30000, false},  // ahead: not silent
      {kNow + 1, 0, false},
      {kNow, 0, true},
      {kNow - 4294967294, 4294967295, false},
      {kNow - 4294967295, 4294967295, true},
      {0, 4294967295, true},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::Message() << given.last_recv_ms << " " << given.interval);
    connector->SetStatus(kConnected);
    journal.Clear();
    router->SetCheckHeartbeatInterval(given.interval);
    proxy->last_recv_ms = given.last_recv_ms;
    DropSilent(kNow);
    EXPECT_EQ(given.dropped ? 1U : 0U, journal.EntriesWith("Disconnect").size());
    EXPECT_EQ(given.dropped ? kNow : given.last_recv_ms, proxy->last_recv_ms);
  }
}

TEST_F(SilenceTest, PrintsTheIntervalAsASignedNumber) {
  router->SetCheckHeartbeatInterval(4294967295);
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  EXPECT_EQ(Lines({DropLine(kUrl, std::to_string(kNow), "0", "-1")}), logger.Lines());
}

TEST_F(SilenceTest, DropsWhateverIsNotDisconnected) {
  struct {
    int status;
    bool dropped;
  } const cases[] = {
      {kDisconnected, false}, {kConnecting, true}, {kConnected, true}, {3, true}, {-1, true}};
  for (const auto& given : cases) {
    journal.Clear();
    logger.Clear();
    connector->SetStatus(given.status);
    proxy->last_recv_ms = 0;
    DropSilent(kNow);
    EXPECT_EQ(given.dropped ? 1U : 0U, journal.EntriesWith("Disconnect").size()) << given.status;
    EXPECT_EQ(given.dropped ? 1U : 0U, logger.Lines().size());
    EXPECT_EQ(given.dropped ? kNow : 0, proxy->last_recv_ms);
  }
}

TEST_F(SilenceTest, AsksNotWhetherTheProxyIsSignedUp) {
  Given(kConnected, kConnected, false, false, -1);
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  EXPECT_EQ(1U, connector->disconnects().size());
}

TEST_F(SilenceTest, LogsBeforeItDrops) {
  proxy->last_recv_ms = 0;
  size_t dropped_by_then = 99;
  int64_t stamp_by_then = 99;
  logger.OnLine([&](const LogLine&) {
    dropped_by_then = connector->disconnects().size();
    stamp_by_then = proxy->last_recv_ms;
  });
  DropSilent(kNow);
  EXPECT_EQ(0U, dropped_by_then);
  EXPECT_EQ(0, stamp_by_then);
}

TEST_F(SilenceTest, NamesTheConnectorsUrl) {
  std::snprintf(peer->FindServerNode(in_use, kUrl)->server_url, 1024, "tcp://alias");
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  EXPECT_EQ(Lines({DropLine(kUrl, std::to_string(kNow), "0", "30000")}), logger.Lines());
}

TEST_F(SilenceTest, IsNotDroppedAgainAtOnce) {
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  connector->SetStatus(kConnected);
  DropSilent(kNow + 29999);
  EXPECT_EQ(1U, connector->disconnects().size());
  DropSilent(kNow + 30000);
  EXPECT_EQ(2U, connector->disconnects().size());
}

TEST_F(SilenceTest, LooksAtEveryProxyOfTheList) {
  ProxyServer* other = AddReadyProxy(in_use, kOther);
  ProxyServer* third = AddReadyProxy(in_use, kThird);
  proxy->last_recv_ms = 0;
  other->last_recv_ms = kNow - 1;
  third->last_recv_ms = kNow - 30000;
  logger.Clear();
  journal.Clear();
  DropSilent(kNow);
  EXPECT_EQ(std::vector<std::string>(
                {std::string("Disconnect ") + kUrl, std::string("Disconnect ") + kThird}),
            journal.Entries());
  DropSilent(kNow + 40000);
  EXPECT_EQ(3U, journal.Entries().size()) << "the two are disconnected now, the third is left";
}

TEST_F(SilenceTest, ADroppedProxyIsReconnectedByTheNextPass) {
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  logger.Clear();
  EXPECT_EQ(0U, Pass(kNow));
  EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_INFO,
                            "Connection lost. Reconnect to proxy "
                            "server_url:")}),
            logger.Lines());
  EXPECT_FALSE(proxy->auth_succeed);
  connector->SetStatus(kConnected);
  logger.Clear();
  Pass(kNow + 1);
  EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "Connect proxy succeed. server_url:"),
                   PassLine(OSTRAND_LOG_LEVEL_DEBUG, "SendAuthRequest to ")}),
            PassLines());
}

TEST_F(SilenceTest, AProxyThatNeverAnswersItsSignUpIsNeverDropped) {
  Given(kConnected, kDisconnected, false, false, -1);
  for (int64_t ms = 0; ms <= 100000; ms += 500) {
    clock.SetMs(kNow + ms);
    Pass(kNow + ms);
    DropSilent(kNow + ms);
  }
  EXPECT_TRUE(connector->disconnects().empty()) << "each sign-up starts the clock anew";
  EXPECT_EQ(67U, SignUps()) << "every third pass, 1500 ms apart";
}

TEST_F(SilenceTest, AProxyInTwoListsIsLookedAtTwice) {
  ASSERT_EQ(0, peer->AddServerNode(peer->m_preparing_servers(), kUrl, "id", proxy));
  router->SetCheckHeartbeatInterval(0);
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  connector->SetStatus(kConnecting);
  peer->DisconnectProxyThatNeedToDisconnect(peer->m_preparing_servers(), kNow);
  EXPECT_EQ(2U, connector->disconnects().size());
}

TEST_F(SilenceTest, NeedsNoLogger) {
  TakeLogger();
  proxy->last_recv_ms = 0;
  DropSilent(kNow);
  EXPECT_EQ(1U, connector->disconnects().size());
  for (const int pre_status : {-1, 0, 2}) {
    Given(kDisconnected, pre_status, true, true, 0);
    proxy->last_connect_time = 0;
    Pass(kNow);
  }
  EXPECT_EQ(3, connector->connect_count());
  Given(kConnected, kDisconnected, false, false, -1);
  Pass(kNow);
  EXPECT_EQ(1U, SignUps());
  EXPECT_TRUE(logger.Lines().empty());
}

// --- SetLastRecvTime ---

TEST_F(ConnectionsTest, SetLastRecvTimeStampsEveryProxyOfTheListWhateverItsState) {
  ProxyServer* other = AddReadyProxy(in_use, kOther);
  ProxyServer* elsewhere = AddProxy(peer->m_removing_servers(), kThird);
  for (const int64_t ms : {kNow, int64_t{0}, int64_t{-1}}) {
    peer->SetLastRecvTime(in_use, ms);
    EXPECT_EQ(ms, proxy->last_recv_ms);
    EXPECT_EQ(ms, other->last_recv_ms);
    EXPECT_EQ(FakeClock::kStartMs, elsewhere->last_recv_ms);
  }
  logger.Clear();
  peer->SetLastRecvTime(peer->m_preparing_servers(), kNow);
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
