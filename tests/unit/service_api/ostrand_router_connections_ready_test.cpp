// Whether the application may send: the readiness check over the proxies in use.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr int kNotReady = 0;
constexpr int kReady = 1;
constexpr int kPartlyReady = 2;

constexpr char kCheckLine[] = "not need check table meta.";

class CheckConnectAllTest : public testing::Test, public RouterFixture {
 protected:
  CheckConnectAllTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
    peer->m_last_flush_hash_circle_time() = 1;
    logger.Clear();
  }

  static std::string Url(int64_t i) { return "tcp://10.0.0.1:" + std::to_string(1000 + i); }

  // A using list of `total` proxies, the first `signed_up` of them signed up.
  void Fill(int64_t signed_up, int64_t total) {
    peer->ReleaseServerList(in_use);
    for (int64_t i = 0; i < total; ++i) {
      if (i < signed_up) {
        AddReadyProxy(in_use, Url(i));
      } else {
        AddProxy(in_use, Url(i));
      }
    }
    logger.Clear();
    journal.Clear();
  }

  int Check() {
    auth_cnt = -7;
    total_cnt = -8;
    return router->CheckConnectAll(auth_cnt, total_cnt);
  }
  void ExpectCounts(int64_t auth, int64_t total) {
    EXPECT_EQ(auth, auth_cnt);
    EXPECT_EQ(total, total_cnt);
  }
  void ExpectCountsUntouched() { ExpectCounts(-7, -8); }

  // The verdict's line: those of the process's rare line are left out.
  std::vector<LogLine> Verdicts() {
    std::vector<LogLine> verdicts;
    for (const LogLine& line : logger.LinesFrom("CheckConnectAll")) {
      if (line.text != kCheckLine) {
        verdicts.push_back(line);
      }
    }
    return verdicts;
  }
  static LogLine ReadyLine(int64_t auth, int64_t total) {
    return Line(OSTRAND_LOG_LEVEL_INFO, "CheckConnectAll",
                "proxy connected, auth_succeed_cnt(" + std::to_string(auth) + ") / total_cnt(" +
                    std::to_string(total) + ") > ROUTER_AVAILABLE_PROXY_THRESHOLD 80.");
  }
  static LogLine PartlyReadyLine(int64_t auth, int64_t total) {
    return Line(OSTRAND_LOG_LEVEL_DEBUG, "CheckConnectAll",
                "part proxy connected, auth_succeed_cnt(" + std::to_string(auth) +
                    ") / total_cnt(" + std::to_string(total) +
                    ") > ROUTER_AVAILABLE_PROXY_THRESHOLD 40.");
  }

  List* in_use;
  int64_t auth_cnt = 0;
  int64_t total_cnt = 0;
};

TEST_F(CheckConnectAllTest, IsNotReadyBeforeTheFirstRing) {
  Fill(3, 3);
  peer->m_last_flush_hash_circle_time() = 0;
  peer->m_is_all_connected() = true;
  EXPECT_EQ(kNotReady, Check());
  ExpectCountsUntouched();
  EXPECT_TRUE(journal.Entries().empty()) << "the network thread runs on";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(CheckConnectAllTest, IsReadyWithoutCountingWhenAllAreKnownToBeConnected) {
  Fill(0, 3);
  peer->m_is_all_connected() = true;
  EXPECT_EQ(kReady, Check());
  ExpectCountsUntouched();
  EXPECT_TRUE(journal.Entries().empty()) << "the network thread runs on";
  EXPECT_TRUE(Verdicts().empty());
}

// One signed-up proxy never makes 1, also when it is the only one there is.
TEST_F(CheckConnectAllTest, DecidesByTheShareOfSignedUpProxies) {
  struct {
    int64_t auth;
    int64_t total;
    int verdict;
  } const cases[] = {
      {0, 0, kNotReady},      {0, 1, kNotReady},        {0, 5, kNotReady},
      {1, 1, kPartlyReady},   {1, 2, kPartlyReady},  // 100 %, 50 %
      {1, 3, kNotReady},                             // 33 %
      {2, 2, kReady},         {2, 3, kReady},        // at most one is missing
      {2, 4, kPartlyReady},   {2, 5, kPartlyReady},  // 50 %, 40 %
      {2, 6, kNotReady},                             // 33 %
      {3, 4, kReady},         {3, 5, kPartlyReady},     {3, 7, kPartlyReady},  // 60 %, 42 %
      {3, 8, kNotReady},                                                       // 37 %
      {4, 6, kPartlyReady},                                                    // 66 %
      {8, 10, kReady},        {7, 9, kPartlyReady},                            // 80 %, 77 %
      {11, 14, kPartlyReady}, {12, 15, kReady},                                // 78 %, 80 %
      {43, 54, kPartlyReady},  // 79.6 %, counted as 79
      {21, 53, kNotReady},     // 39.6 %, counted as 39
      {160, 200, kReady},     {159, 200, kPartlyReady}, {80, 200, kPartlyReady},
      {79, 200, kNotReady},   {199, 200, kReady},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::Message() << given.auth << " of " << given.total);
    Fill(given.auth, given.total);
    EXPECT_EQ(given.verdict, Check());
    ExpectCounts(given.auth, given.total);
    std::vector<LogLine> line;
    if (given.verdict == kReady) {
      line.push_back(ReadyLine(given.auth, given.total));
    } else if (given.verdict == kPartlyReady) {
      line.push_back(PartlyReadyLine(given.auth, given.total));
    }
    EXPECT_EQ(line, Verdicts());
  }
}

TEST_F(CheckConnectAllTest, CountsSignedUpAndConnectedWhateverElse) {
  Fill(1, 1);
  ProxyServer* proxy = peer->FindServerNode(in_use, Url(0).c_str())->server;
  struct {
    bool auth_succeed;
    int status;
    int64_t counted;
  } const cases[] = {{true, 2, 1}, {true, 0, 0},  {true, 1, 0},
                     {true, 3, 0}, {true, -1, 0}, {false, 2, 0}};
  proxy->is_available = false;
  proxy->last_auth_result = -1;
  for (const auto& given : cases) {
    proxy->auth_succeed = given.auth_succeed;
    mgr.At(Url(0)).SetStatus(given.status);
    EXPECT_EQ(given.counted > 0 ? kPartlyReady : kNotReady, Check());
    ExpectCounts(given.counted, 1);
  }
}

TEST_F(CheckConnectAllTest, CountsTheListInUseAlone) {
  Fill(1, 2);
  AddReadyProxy(peer->m_preparing_servers(), Url(10));
  AddReadyProxy(peer->m_removing_servers(), Url(11));
  EXPECT_EQ(kPartlyReady, Check());
  ExpectCounts(1, 2);
}

TEST_F(CheckConnectAllTest, ElementsWithoutProxyOrConnectorCountInTheTotal) {
  Fill(3, 3);
  auto* node = static_cast<RealServerNode*>(in_use->PushBack());
  std::snprintf(node->server_url, sizeof(node->server_url), "tcp://nobody");
  node->server = nullptr;
  ProxyServer* proxy = peer->FindServerNode(in_use, Url(0).c_str())->server;
  OSTRNET::CConnector* const connector = proxy->connector;
  proxy->connector = nullptr;
  EXPECT_EQ(kPartlyReady, Check());
  ExpectCounts(2, 4);
  proxy->connector = connector;
}

TEST_F(CheckConnectAllTest, PausesTheNetworkThreadOnceForTheWalkAlone) {
  Fill(2, 2);
  ProxyServer* proxy = peer->FindServerNode(in_use, Url(1).c_str())->server;
  int64_t auth_in_pause = 0;
  server.net_thread().OnPause([&] {
    auth_in_pause = auth_cnt;
    proxy->auth_succeed = false;  // the last callback before the thread stands
  });
  std::vector<std::string> before_line;
  logger.OnLine([&](const LogLine& line) {
    if (line.text != kCheckLine) {
      before_line = journal.Entries();
    }
  });
  EXPECT_EQ(kPartlyReady, Check());
  ExpectCounts(1, 2);
  EXPECT_EQ(-7, auth_in_pause) << "counted behind the pause";
  EXPECT_EQ(std::vector<std::string>({"Pause", "Resume"}), before_line) << "decided behind both";
  EXPECT_EQ(std::vector<std::string>({"Pause", "Resume"}), journal.Entries());
}

TEST_F(CheckConnectAllTest, MayBeCalledWhileTheNetworkThreadStands) {
  Fill(2, 2);
  const ScopedPause paused(server.GetNetThread());
  EXPECT_EQ(kReady, Check());
  EXPECT_EQ(1, server.net_thread().depth()) << "still the caller's pause";
}

// A mutex that the check took would stop this test for good.
TEST_F(CheckConnectAllTest, TakesNoneOfTheRoutersMutexes) {
  Fill(2, 2);
  OstrandCommon::Mutex& list_mutex = peer->m_mutex_list();
  OstrandCommon::Mutex& ring_mutex = peer->m_mutex_vistual_nodes();
  OstrandCommon::Mutex& alarm_mutex = peer->m_alarmMutex();
  int verdict = -1;
  {
    const OstrandCommon::ScopedLock list_lock(list_mutex);
    const OstrandCommon::ScopedLock ring_lock(ring_mutex);
    const OstrandCommon::ScopedLock alarm_lock(alarm_mutex);
    verdict = Check();
  }
  EXPECT_EQ(kReady, verdict);
}

TEST_F(CheckConnectAllTest, NeedsNoLogger) {
  Fill(2, 2);
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)) << "takes the logger away";
  EXPECT_EQ(kReady, Check());
  peer->FindServerNode(in_use, Url(0).c_str())->server->auth_succeed = false;
  EXPECT_EQ(kPartlyReady, Check());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(CheckConnectAllTest, FindsNobodyAfterFini) {
  Fill(2, 2);
  router->Fini();
  EXPECT_EQ(kNotReady, Check());
  ExpectCounts(0, 0);
}

TEST_F(CheckConnectAllTest, IsNotReadyWhenAnInitAfterFiniWasGivenNoService) {
  Fill(2, 2);
  router->Fini();
  EXPECT_EQ(-256, router->Init(&mgr, nullptr, &logger));
  EXPECT_EQ(kNotReady, Check());
  ExpectCountsUntouched();
}

TEST_F(CheckConnectAllTest, IsNotReadyOnAFreshRouter) {
  const auto fresh = NewRouter(&latency, &statistics, &judge);
  EXPECT_EQ(kNotReady, fresh->CheckConnectAll(auth_cnt, total_cnt));
}

// --- The rare line ---

// Runs in a process of its own, where nobody has called the check before.
class CheckConnectAllDeathTest : public CheckConnectAllTest {
 protected:
  CheckConnectAllDeathTest() {
    style_before = testing::GTEST_FLAG(death_test_style);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
  }
  ~CheckConnectAllDeathTest() override { testing::GTEST_FLAG(death_test_style) = style_before; }

  // The numbers, from 1, of those calls that wrote the line.
  std::vector<int> CallsThatLog() {
    peer->m_last_flush_hash_circle_time() = 0;
    for (int i = 0; i < 5; ++i) {
      Check();  // not counted
    }
    peer->m_last_flush_hash_circle_time() = 1;
    peer->m_is_all_connected() = true;
    const auto second = NewRouter(&latency, &statistics, &judge);
    second->Init(&mgr, Service(), &logger);
    OstrandRouterPeer second_peer(*second);
    second_peer.m_last_flush_hash_circle_time() = 1;
    second_peer.m_is_all_connected() = true;
    logger.Clear();
    std::vector<int> calls;
    for (int call = 1; call <= 200002; ++call) {
      (call % 3 == 0 ? *second : *router).CheckConnectAll(auth_cnt, total_cnt);
      if (!logger.Lines().empty()) {
        const LogLine line = Line(OSTRAND_LOG_LEVEL_DEBUG, "CheckConnectAll", kCheckLine);
        calls.push_back(logger.Lines() == std::vector<LogLine>({line}) ? call : -call);
        logger.Clear();
      }
    }
    return calls;
  }

  std::string style_before;
};

TEST_F(CheckConnectAllDeathTest, LogsOnTheFirstAndEvery100000thCallOfTheProcessAfterIt) {
  EXPECT_EXIT(
      {
        for (const int call : CallsThatLog()) {
          std::fprintf(stderr, "[%d]", call);
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^\\[1\\]\\[100001\\]\\[200001\\]$");
}

}  // namespace
}  // namespace OstrandService
