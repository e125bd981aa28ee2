// The passes over a list that connect and sign up.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "unit/service_api/router_connections_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::LogLevel;
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

// --- Connecting ---

using ConnectTest = ConnectionsTest;

TEST_F(ConnectTest, TellsOfTheAttemptAfterWhatThePassBeforeSaw) {
  struct {
    int pre_status;
    LogLevel level;
    const char* text;
    bool error;
  } const cases[] = {
      {-1, OSTRAND_LOG_LEVEL_DEBUG, "Connect to proxy server_url:", false},
      {kConnected, OSTRAND_LOG_LEVEL_INFO,
       "Connection lost. Reconnect to proxy server_url:", false},
      {kDisconnected, OSTRAND_LOG_LEVEL_ERROR, "Connect proxy 1s timeout. server_url:", true},
      {kConnecting, OSTRAND_LOG_LEVEL_ERROR, "Connect proxy 1s timeout. server_url:", true},
      {77, OSTRAND_LOG_LEVEL_ERROR, "Connect proxy 1s timeout. server_url:", true},
      {-2, OSTRAND_LOG_LEVEL_ERROR, "Connect proxy 1s timeout. server_url:", true},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.pre_status);
    logger.Clear();
    journal.Clear();
    server.SetLastError(11, "older");
    Given(kDisconnected, given.pre_status, true, true, 0);
    proxy->last_connect_time = kNow - 1001;
    EXPECT_EQ(0U, Pass(kNow));
    EXPECT_EQ(Lines({PassLine(given.level, given.text)}), logger.Lines());
    EXPECT_EQ(std::vector<std::string>({std::string("Connect ") + kUrl}), journal.Entries());
    EXPECT_EQ(given.error ? kConnectError : 11, server.last_error_code());
    EXPECT_EQ(given.error ? std::string("Connect proxy failed. server_url:") + kUrl : "older",
              server.last_error_text());
    EXPECT_EQ(0, proxy->pre_status);
    EXPECT_EQ(kNow, proxy->last_connect_time);
    EXPECT_FALSE(proxy->has_sent_auth);
    EXPECT_FALSE(proxy->auth_succeed);
    EXPECT_EQ(0, proxy->last_auth_result) << "not looked at";
  }
}

TEST_F(ConnectTest, TriesAgainAfterMoreThan1000Milliseconds) {
  struct {
    int64_t last_connect_time;
    int64_t now_ms;
    bool tries;
  } const cases[] = {
      {kNow, kNow, false},
      {kNow - 1, kNow, false},
      {kNow - 1000, kNow, false},
      {kNow - 1001, kNow, true},
      {0, kNow, true},
      {0, 1000, false},
      {0, 1001, true},
      {kNow + 1, kNow, true},  // ahead: wraps to a very long wait
      {kNow + 1000000, kNow, true},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::Message() << given.last_connect_time << " " << given.now_ms);
    logger.Clear();
    journal.Clear();
    Given(kDisconnected, -1, true, true, 0);
    proxy->last_connect_time = given.last_connect_time;
    EXPECT_EQ(0U, Pass(given.now_ms));
    EXPECT_EQ(given.tries ? 1U : 0U, journal.EntriesWith("Connect ").size());
    EXPECT_EQ(given.tries ? 1U : 0U, logger.Lines().size());
    EXPECT_EQ(given.tries ? given.now_ms : given.last_connect_time, proxy->last_connect_time);
    EXPECT_EQ(given.tries ? 0 : -1, proxy->pre_status);
    EXPECT_FALSE(proxy->has_sent_auth) << "cleared while it waits, too";
    EXPECT_FALSE(proxy->auth_succeed) << "cleared while it waits, too";
  }
}

TEST_F(ConnectTest, AFailedAttemptIsCountedLoggedAndPublished) {
  tagTableQos first{};
  tagTableQos second{};
  first.iZoneID = kZoneId + 1;  // whatever its zone
  second.szTableName[0] = 's';
  router->SetQos(&first);
  router->SetQos(&second);
  auto& overall = statistics.Register(kAppId, kZoneId).stOverallRunStatus;
  for (const int result : {-1, 1, -9747}) {
    SCOPED_TRACE(result);
    first.dwAccessErrCount = 40;
    overall.dwApiConnectOstrroxyErrNumPerMin = 50;
    logger.Clear();
    server.SetLastError(0, "");
    Given(kDisconnected, -1, false, false, -1);
    proxy->last_connect_time = 0;
    connector->SetConnect(result);
    Pass(kNow);
    EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "Connect to proxy server_url:"),
                     PassLine(OSTRAND_LOG_LEVEL_ERROR, "Connect proxy failed. server_url:")}),
              logger.Lines());
    EXPECT_EQ(41U, static_cast<uint32_t>(first.dwAccessErrCount));
    EXPECT_EQ(51U, overall.dwApiConnectOstrroxyErrNumPerMin);
    EXPECT_EQ(kConnectError, server.last_error_code());
    EXPECT_EQ(std::string("Connect proxy failed. server_url:") + kUrl, server.last_error_text());
    EXPECT_EQ(0, proxy->pre_status);
    EXPECT_EQ(kNow, proxy->last_connect_time);
  }
  EXPECT_EQ(0U, static_cast<uint32_t>(second.dwAccessErrCount)) << "only the first table counts";
}

TEST_F(ConnectTest, AStartedAttemptCountsNothing) {
  tagTableQos first{};
  router->SetQos(&first);
  auto& overall = statistics.Register(kAppId, kZoneId).stOverallRunStatus;
  for (int i = 0; i < 3; ++i) {
    connector->SetStatus(kDisconnected);
    Pass(kNow + 1001 * i);
  }
  EXPECT_EQ(0U, static_cast<uint32_t>(first.dwAccessErrCount));
  EXPECT_EQ(0U, overall.dwApiConnectOstrroxyErrNumPerMin);
}

TEST_F(ConnectTest, AFailedAttemptNeedsNeitherTableNorStatisticsNorLogger) {
  const auto& zone = statistics.Register(kAppId, kZoneId + 1).stOverallRunStatus;
  const auto& app = statistics.Register(kAppId + 1, kZoneId).stOverallRunStatus;
  TakeLogger();
  proxy->pre_status = 0;
  connector->SetConnect(-1);
  Pass(kNow);
  EXPECT_EQ(kConnectError, server.last_error_code());
  EXPECT_EQ(std::string("Connect proxy failed. server_url:") + kUrl, server.last_error_text());
  EXPECT_EQ(0U, zone.dwApiConnectOstrroxyErrNumPerMin) << "another zone's";
  EXPECT_EQ(0U, app.dwApiConnectOstrroxyErrNumPerMin) << "another application's";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ConnectTest, LogsBetweenItsEffectsInThisOrder) {
  struct Seen {
    std::string text;
    int connects;
    int pre_status;
    int64_t last_connect_time;
    uint32_t counted;
    int error;
  };
  tagTableQos first{};
  router->SetQos(&first);
  std::vector<Seen> seen;
  logger.OnLine([&](const LogLine& line) {
    seen.push_back({line.text.substr(0, line.text.find('.')), connector->connect_count(),
                    proxy->pre_status, proxy->last_connect_time, first.dwAccessErrCount,
                    server.last_error_code()});
    server.SetLastError(0);
  });
  proxy->pre_status = 1;
  connector->SetConnect(-1);
  Pass(kNow);
  ASSERT_EQ(2U, seen.size());
  EXPECT_EQ("Connect proxy 1s timeout", seen[0].text);
  EXPECT_EQ(1, seen[0].connects);
  EXPECT_EQ(kNow, seen[0].last_connect_time);
  EXPECT_EQ(1, seen[0].pre_status) << "still what the pass before saw";
  EXPECT_EQ(0U, seen[0].counted);
  EXPECT_EQ(0, seen[0].error) << "published behind the line";
  EXPECT_EQ("Connect proxy failed", seen[1].text);
  EXPECT_EQ(0, seen[1].pre_status);
  EXPECT_EQ(1U, seen[1].counted) << "counted before the line";
  EXPECT_EQ(kConnectError, seen[1].error) << "published by the timeout";
  EXPECT_EQ(kConnectError, server.last_error_code()) << "and again";
}

TEST_F(ConnectTest, CutsThePublishedTextTo255Characters) {
  const std::string url = "tcp://" + std::string(1000, 'h');
  ProxyServer* far = AddProxy(in_use, url);
  far->pre_status = 0;
  far->last_connect_time = 0;
  proxy->last_connect_time = kNow;
  logger.Clear();
  Pass(kNow);
  EXPECT_EQ(("Connect proxy failed. server_url:" + url).substr(0, 255), server.last_error_text());
  EXPECT_EQ("Connect proxy 1s timeout. server_url:" + url, logger.Lines().back().text) << "whole";
}

TEST_F(ConnectTest, ARefusedProxyIsTriedEvery1001Milliseconds) {
  connector->SetConnect(0, kDisconnected);  // each attempt starts and comes to nothing
  std::vector<int64_t> attempts;
  for (int64_t ms = 0; ms <= 3100; ++ms) {
    const int before = connector->connect_count();
    Pass(kNow + ms);
    if (connector->connect_count() > before) {
      attempts.push_back(ms);
    }
  }
  EXPECT_EQ(std::vector<int64_t>({0, 1001, 2002, 3003}), attempts);
  const Said timeout = PassLine(OSTRAND_LOG_LEVEL_ERROR, "Connect proxy 1s timeout. server_url:");
  EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "Connect to proxy server_url:"), timeout,
                   timeout, timeout}),
            logger.Lines());
}

TEST_F(ConnectTest, LeavesAloneWhatIsConnectingOrUnknown) {
  for (const int status : {kConnecting, 3, -1, 99}) {
    SCOPED_TRACE(status);
    for (const int pre_status : {-1, 0, 1, 2}) {
      Given(status, pre_status, true, true, 0);
      proxy->last_connect_time = 5;
      proxy->last_recv_ms = 6;
      EXPECT_EQ(0U, Pass(kNow)) << "not counted";
      EXPECT_EQ(pre_status, proxy->pre_status);
      EXPECT_TRUE(proxy->has_sent_auth);
      EXPECT_TRUE(proxy->auth_succeed);
      EXPECT_EQ(5, proxy->last_connect_time);
      EXPECT_EQ(6, proxy->last_recv_ms);
    }
  }
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(journal.Entries().empty());
}

// --- Signing up ---

using SignUpPassTest = ConnectionsTest;

TEST_F(SignUpPassTest, AConnectionThatComesUpIsSignedUpAtOnce) {
  Given(kConnected, kDisconnected, true, false, -1);
  proxy->last_recv_ms = kNow - 50000;
  clock.SetMs(kNow + 3);
  EXPECT_EQ(0U, Pass(kNow));
  EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "Connect proxy succeed. server_url:"),
                   PassLine(OSTRAND_LOG_LEVEL_DEBUG, "SendAuthRequest to ")}),
            PassLines());
  EXPECT_EQ(4U, logger.Lines().size());
  EXPECT_EQ("SendAuthRequest to " + std::string(kUrl), logger.Lines()[3].text)
      << "behind the lines of the package";
  EXPECT_EQ(1U, SignUps());
  EXPECT_EQ(kConnected, proxy->pre_status);
  EXPECT_TRUE(proxy->has_sent_auth);
  EXPECT_EQ(kNow + 3, proxy->last_recv_ms) << "stamped by the sending, by the library's clock";
}

TEST_F(SignUpPassTest, ComingUpStartsTheClockWithTheCallersTime) {
  Given(kConnected, kDisconnected, false, true, 0);
  proxy->last_recv_ms = 7;
  clock.SetMs(kNow + 3);
  EXPECT_EQ(1U, Pass(kNow)) << "signed up already: no sign-up that would stamp again";
  EXPECT_EQ(kNow, proxy->last_recv_ms);
  EXPECT_EQ(0U, SignUps());
}

TEST_F(SignUpPassTest, ComingUpClearsTheMarkOfASentSignUp) {
  Given(kConnected, kDisconnected, true, true, 0);
  Pass(kNow);
  EXPECT_FALSE(proxy->has_sent_auth);
}

TEST_F(SignUpPassTest, LogsBetweenItsEffectsInThisOrder) {
  struct Seen {
    std::string text;
    bool has_sent_auth;
    int64_t last_recv_ms;
    int pre_status;
    size_t sign_ups;
  };
  std::vector<Seen> seen;
  logger.OnLine([&](const LogLine& line) {
    if (line.function == "UpdateServerListStatus") {
      seen.push_back(
          {line.text, proxy->has_sent_auth, proxy->last_recv_ms, proxy->pre_status, SignUps()});
    }
  });
  const std::string url = kUrl;
  clock.SetMs(kNow + 3);
  Given(kConnected, kDisconnected, true, false, -1);
  proxy->last_recv_ms = 7;
  Pass(kNow);
  Pass(kNow + 1004);
  ASSERT_EQ(4U, seen.size());
  EXPECT_EQ("Connect proxy succeed. server_url:" + url, seen[0].text);
  EXPECT_FALSE(seen[0].has_sent_auth) << "cleared before the line";
  EXPECT_EQ(kNow, seen[0].last_recv_ms) << "started before the line";
  EXPECT_EQ(kDisconnected, seen[0].pre_status) << "still what the pass before saw";
  EXPECT_EQ(0U, seen[0].sign_ups);
  EXPECT_EQ("SendAuthRequest to " + url, seen[1].text);
  EXPECT_TRUE(seen[1].has_sent_auth);
  EXPECT_EQ(kNow + 3, seen[1].last_recv_ms);
  EXPECT_EQ(kConnected, seen[1].pre_status);
  EXPECT_EQ(1U, seen[1].sign_ups);
  EXPECT_EQ("auth timeout, proxy_url:" + url, seen[2].text);
  EXPECT_TRUE(seen[2].has_sent_auth) << "cleared behind the line";
  EXPECT_EQ(1U, seen[2].sign_ups);
  EXPECT_EQ("SendAuthRequest to " + url, seen[3].text);
  EXPECT_EQ(2U, seen[3].sign_ups);
}

TEST_F(SignUpPassTest, OnlyAnAttemptOfItsOwnIsTold) {
  for (const int pre_status : {-1, kConnecting, kConnected}) {
    logger.Clear();
    Given(kConnected, pre_status, true, false, -1);
    proxy->last_recv_ms = kNow - 5;
    Pass(kNow);
    EXPECT_TRUE(logger.Lines().empty()) << pre_status;
    EXPECT_EQ(kConnected, proxy->pre_status);
    EXPECT_TRUE(proxy->has_sent_auth);
    EXPECT_EQ(kNow - 5, proxy->last_recv_ms);
  }
  EXPECT_EQ(0U, SignUps());
}

TEST_F(SignUpPassTest, AnUnansweredSignUpIsRepeatedAfterMoreThan1000Milliseconds) {
  struct {
    int64_t last_recv_ms;
    bool repeated;
  } const cases[] = {
      {kNow, false},       {kNow - 999, false}, {kNow - 1000, false},
      {kNow - 1001, true}, {0, true},           {kNow + 1, true},  // ahead: wraps
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.last_recv_ms);
    logger.Clear();
    connector->ClearSent();
    Given(kConnected, kConnected, true, false, -1);
    proxy->last_recv_ms = given.last_recv_ms;
    EXPECT_EQ(0U, Pass(kNow));
    EXPECT_EQ(given.repeated ? 1U : 0U, SignUps());
    EXPECT_TRUE(proxy->has_sent_auth);
    EXPECT_EQ(given.repeated ? kNow : given.last_recv_ms, proxy->last_recv_ms);
    if (given.repeated) {
      EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_WARN, "auth timeout, proxy_url:"),
                       PassLine(OSTRAND_LOG_LEVEL_DEBUG, "SendAuthRequest to ")}),
                PassLines());
    } else {
      EXPECT_TRUE(logger.Lines().empty());
    }
  }
}

TEST_F(SignUpPassTest, IsSentWhenItWasNotSentYetHoweverYoungTheConnection) {
  Given(kConnected, kConnected, false, false, -1);
  proxy->last_recv_ms = kNow;
  Pass(kNow);
  EXPECT_EQ(1U, SignUps());
  EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "SendAuthRequest to ")}), PassLines());
}

TEST_F(SignUpPassTest, AFailedOneLeavesTheProxyAndIsTriedAgainInTheNextPass) {
  connector->SetSendResult(0);
  Given(kConnected, kConnected, false, false, -1);
  proxy->last_recv_ms = kNow - 5;
  for (size_t attempt = 1; attempt <= 3; ++attempt) {
    logger.Clear();
    Pass(kNow);
    EXPECT_EQ(attempt, SignUps());
    EXPECT_FALSE(proxy->has_sent_auth);
    EXPECT_EQ(kNow - 5, proxy->last_recv_ms);
    EXPECT_EQ(Lines({PassLine(OSTRAND_LOG_LEVEL_DEBUG, "SendAuthRequest to ")}), PassLines())
        << "told also of one that failed";
    EXPECT_EQ(1U, logger.LinesFrom("SendAuthRequest").size());
    EXPECT_EQ(PassLines().back(), logger.Lines().back()) << "last";
  }
}

TEST_F(SignUpPassTest, ATimedOutOneThatCannotBeSentStaysUnsent) {
  connector->SetSendResult(-1);
  Given(kConnected, kConnected, true, false, -1);
  proxy->last_recv_ms = kNow - 1001;
  Pass(kNow);
  EXPECT_FALSE(proxy->has_sent_auth);
  EXPECT_EQ(kNow - 1001, proxy->last_recv_ms);
}

TEST_F(SignUpPassTest, HandsTheSignatureOn) {
  Given(kConnected, kConnected, false, false, -1);
  Pass(kNow, "one");
  EXPECT_NE(std::string::npos, connector->sent().back().find(std::string("one\0", 4)));
  Given(kConnected, kConnected, false, false, -1);
  Pass(kNow, nullptr);
  EXPECT_EQ(1U, SignUps()) << "neither signature nor user name";
  router->SetUserNameAndPassword("al", "5ebe");
  Pass(kNow, nullptr);
  EXPECT_EQ(2U, SignUps());
  EXPECT_NE(std::string::npos, connector->sent().back().find(std::string("5ebe\0", 5)));
}

TEST_F(SignUpPassTest, IsRepeatedAboutEverySecondUntilItIsAnswered) {
  Given(kConnected, kDisconnected, false, false, -1);
  std::vector<int64_t> sent_at;
  for (int64_t ms = 0; ms <= 3100; ++ms) {
    clock.SetMs(kNow + ms);
    const size_t before = SignUps();
    Pass(kNow + ms);
    if (SignUps() > before) {
      sent_at.push_back(ms);
    }
  }
  EXPECT_EQ(std::vector<int64_t>({0, 1001, 2002, 3003}), sent_at);
  EXPECT_EQ(3,
            logger.Count(OSTRAND_LOG_LEVEL_WARN, std::string("auth timeout, proxy_url:") + kUrl));
  proxy->auth_succeed = true;
  proxy->last_auth_result = 0;
  clock.SetMs(kNow + 9000);
  EXPECT_EQ(1U, Pass(kNow + 9000));
  EXPECT_EQ(4U, sent_at.size());
}

TEST_F(SignUpPassTest, ACallersClockThatRunsAheadRepeatsItInEveryPass) {
  Given(kConnected, kDisconnected, false, false, -1);
  clock.SetMs(kNow - 1001);
  Pass(kNow);
  EXPECT_EQ(kNow - 1001, proxy->last_recv_ms);
  Pass(kNow);
  Pass(kNow);
  EXPECT_EQ(3U, SignUps());
}

TEST_F(SignUpPassTest, ACallersClockThatRunsBehindRepeatsItInEveryPass) {
  Given(kConnected, kDisconnected, false, false, -1);
  clock.SetMs(kNow + 1);
  Pass(kNow);
  Pass(kNow);
  Pass(kNow);
  EXPECT_EQ(3U, SignUps()) << "a stamp ahead wraps";
}

// --- Counting ---

TEST_F(ConnectionsTest, CountsWhoIsConnectedSignedUpAndAccepted) {
  struct {
    int status;
    bool auth_succeed;
    int last_auth_result;
    uint32_t counted;
  } const cases[] = {
      {kConnected, true, 0, 1},    {kConnected, true, 1, 0},     {kConnected, true, -1, 0},
      {kConnected, false, 0, 0},   {kConnecting, true, 0, 0},    {3, true, 0, 0},
      {kDisconnected, true, 0, 0}, {kConnected, true, -6413, 0},
  };
  for (const auto& given : cases) {
    Given(given.status, kConnected, true, given.auth_succeed, given.last_auth_result);
    EXPECT_EQ(given.counted, Pass(kNow))
        << given.status << " " << given.auth_succeed << " " << given.last_auth_result;
  }
}

TEST_F(ConnectionsTest, CountsAProxyThatIsOutOfUse) {
  Given(kConnected, kConnected, true, true, 0);
  proxy->is_available = false;
  EXPECT_EQ(1U, Pass(kNow));
}

TEST_F(ConnectionsTest, CountsAnewInEachPassAndFromZeroForAnEmptyList) {
  Given(kConnected, kConnected, true, true, 0);
  AddReadyProxy(in_use, kOther);
  AddProxy(in_use, kThird);
  EXPECT_EQ(2U, Pass(kNow));
  EXPECT_EQ(2U, Pass(kNow));
  uint32_t count = 99;
  peer->UpdateServerListStatus(peer->m_removing_servers(), static_cast<uint64_t>(kNow), "sig",
                               count);
  EXPECT_EQ(0U, count);
}

TEST_F(ConnectionsTest, TakesTheListInOrder) {
  AddProxy(in_use, kOther);
  AddProxy(in_use, kThird);
  mgr.At(kOther).SetStatus(kConnected);
  journal.Clear();
  Pass(kNow);
  EXPECT_EQ(
      std::vector<std::string>({std::string("Connect ") + kUrl, std::string("SendToQ ") + kOther,
                                std::string("Connect ") + kThird}),
      journal.Entries());
}

TEST_F(ConnectionsTest, PassesOverElementsWithoutProxyOrConnectorSilently) {
  proxy->connector = nullptr;
  proxy->auth_succeed = true;
  proxy->last_auth_result = 0;
  proxy->last_recv_ms = 7;
  AppendNode(kOther, nullptr);
  AddReadyProxy(in_use, kThird);
  logger.Clear();
  EXPECT_EQ(1U, Pass(kNow));
  DropSilent(kNow);
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(7, proxy->last_recv_ms);
  peer->SetLastRecvTime(in_use, 55);
  EXPECT_EQ(55, peer->FindServerNode(in_use, kThird)->server->last_recv_ms);
  proxy->connector = connector;
}

TEST_F(ConnectionsTest, AProxyInTwoListsIsPassedTwice) {
  List* preparing = peer->m_preparing_servers();
  ASSERT_EQ(0, peer->AddServerNode(preparing, kUrl, "id", proxy));
  Given(kConnected, kDisconnected, false, false, -1);
  connector->SetSendResult(-1);
  Pass(kNow);
  uint32_t count = 99;
  peer->UpdateServerListStatus(preparing, static_cast<uint64_t>(kNow), "sig", count);
  EXPECT_EQ(2U, SignUps());
}

TEST_F(ConnectionsTest, NamesTheElementsUrl) {
  std::snprintf(peer->FindServerNode(in_use, kUrl)->server_url, 1024, "tcp://alias");
  connector->SetConnect(-1);
  proxy->pre_status = 0;
  Pass(kNow);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "UpdateServerListStatus",
                    "Connect proxy 1s timeout. server_url:tcp://alias"},
                   {OSTRAND_LOG_LEVEL_ERROR, "UpdateServerListStatus",
                    "Connect proxy failed. server_url:tcp://alias"}}),
            logger.Lines());
  EXPECT_EQ("Connect proxy failed. server_url:tcp://alias", server.last_error_text());
}

}  // namespace
}  // namespace OstrandService
