// A router's whole life, from its first route to its end.
//
// The directory's answers, the proxies and the judge are scripted and the clock is set; everything
// else happens as in a service that updates its router every 100 ms: proxies accept connections,
// sign-ups and heartbeats by the next update, unless they are told to be silent. After every update
// the invariants of lists, records and ring are checked.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>

#include "fakes/keyed_request.h"
#include "fakes/proxy_answers.h"
#include "service_api/table_qos.h"
#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::KeyedRequest;
using OstrandFakes::ScriptedConnector;

constexpr int64_t kStepMs = 100;
constexpr uint32_t kSignupReq = 51;
constexpr uint32_t kHeartBeatReq = 53;

uint32_t CommandOf(const std::string& frame) {
  uint32_t cmd = 0;
  for (size_t i = 24; i < 28; ++i) {
    cmd = cmd << 8 | static_cast<unsigned char>(frame.at(i));
  }
  return cmd;
}

class RouterLifeTest : public RouterRouteTest {
 protected:
  RouterLifeTest()
      : m_signup_answer(OstrandFakes::SignupAnswer(0)),
        m_heartbeat_answer(OstrandFakes::HeartbeatAnswer(clock.Us())) {
    judge.option.max_remove_rate = 0;
    std::snprintf(m_qos.szTableName, sizeof(m_qos.szTableName), "%s", kTable);
    m_qos.iZoneID = kZoneId;
    router->SetQos(&m_qos);
  }
  ~RouterLifeTest() override { router->RemoveTableQos(kZoneId, kTable); }

  // Updates every 100 ms for so long.
  void Live(int64_t ms) {
    for (const int64_t end_ms = clock.Ms() + ms; clock.Ms() < end_ms;) {
      clock.AdvanceMs(kStepMs);
      LetProxiesAct();
      router->OnUpdate(clock.Ms(), 0, kSignature, nullptr, nullptr);
      ASSERT_EQ(Texts(), Broken()) << "after " << clock.Ms() - OstrandFakes::FakeClock::kStartMs;
    }
  }
  // Forgets what was said and done, and answers what was sent before.
  void NextChapter() {
    LetProxiesAct();
    logger.Clear();
    journal.Clear();
  }

  // Urls of the proxies that a thousand requests of random keys are routed to.
  std::set<std::string> Reached() {
    std::set<std::string> urls;
    for (int i = 0; i < 1000; ++i) {
      m_request.SetKey({{"key", "key " + std::to_string(i)}});
      ProxyServer* proxy = nullptr;
      const int result = peer->GetRouterProxyServer(proxy, &m_request, kZoneId, kTable);
      urls.insert(result == 0 ? proxy->connector->GetURL() : std::to_string(result));
    }
    return urls;
  }
  uint32_t RingSize() { return peer->m_virtual_node_count(); }
  int RingWrites() { return static_cast<int>(journal.EntriesWith("ReportDirHash").size()); }
  bool SaidInfo(const std::string& text) { return logger.Find(OSTRAND_LOG_LEVEL_INFO, text); }
  int CheckConnectAll() {
    int64_t signed_up = 0;
    int64_t total = 0;
    return router->CheckConnectAll(signed_up, total);
  }

  // Each tells one chapter; they only work in this order.
  void TheFirstRouteIsUsedAtOnce();
  void AllSignUpAndTheRingIsWritten();
  void ASecondRouteIsPrepared();
  void TheRouterSwitchesToIt();
  void OneOfTheDepartedComesBack();
  void TheOtherIsDrained();
  void OneGoesSilentAndRecovers();
  void OneIsIsolatedAndPutBackOnTrial();
  void TheRouterEnds();

  std::set<std::string> silent;  // accept connections and answer nothing

 private:
  static constexpr char kTable[] = "table";

  void LetProxiesAct() {
    for (ScriptedConnector* connector : mgr.Live()) {
      if (connector->GetStatus() == 1) {
        connector->SetStatus(2);
      }
      const Texts frames = connector->sent();
      connector->ClearSent();
      if (silent.count(connector->GetURL()) != 0) {
        continue;
      }
      for (const std::string& frame : frames) {
        if (CommandOf(frame) == kSignupReq) {
          EXPECT_EQ(1, mgr.Deliver(*connector, m_signup_answer));
        } else if (CommandOf(frame) == kHeartBeatReq) {
          EXPECT_EQ(1, mgr.Deliver(*connector, m_heartbeat_answer));
        }
      }
    }
  }

  const std::string m_signup_answer;
  const std::string m_heartbeat_answer;
  tagTableQos m_qos = {};
  KeyedRequest m_request;
};

using Urls = std::set<std::string>;

void RouterLifeTest::TheFirstRouteIsUsedAtOnce() {
  ASSERT_EQ(0, Flush({kA, kB, kC}));
  EXPECT_EQ(Texts({kA, kB, kC}), UrlsIn(in_use));
  EXPECT_EQ(Urls({"-13843"}), Reached()) << "no ring yet";
  EXPECT_EQ(0, CheckConnectAll());
  Live(100);
  EXPECT_EQ(3U, journal.EntriesWith("Connect tcp").size());
  EXPECT_EQ(0U, RingSize());
}

void RouterLifeTest::AllSignUpAndTheRingIsWritten() {
  silent = {kC};
  Live(200);
  EXPECT_TRUE(SaidInfo("call WriteHashCircle m_virtual_node_count=0 auth_succ_count=2"));
  EXPECT_EQ(300U, RingSize()) << "C has its points already";
  EXPECT_EQ(Urls({kA, kB}), Reached()) << "but is passed over";
  EXPECT_FALSE(peer->m_is_all_connected());

  silent = {};
  Live(1500);  // C's sign-up is repeated after a second.
  EXPECT_TRUE(SaidInfo("call WriteHashCircle m_virtual_node_count=300 auth_succ_count=3"));
  EXPECT_EQ(2, RingWrites());
  EXPECT_EQ(Urls({kA, kB, kC}), Reached());
  EXPECT_TRUE(peer->m_is_all_connected());
  EXPECT_EQ(1, CheckConnectAll());

  NextChapter();
  Live(70000);
  EXPECT_EQ(0, RingWrites()) << "nothing to repair";
  EXPECT_EQ(Texts(), journal.EntriesWith("Disconnect")) << "heartbeats keep all three";
}

// It shares B with the first; D and E are new, and E does not answer.
void RouterLifeTest::ASecondRouteIsPrepared() {
  NextChapter();
  silent = {kE};
  ASSERT_EQ(0, Flush({kB, kD, kE}));
  EXPECT_EQ(Texts({kB, kD, kE}), UrlsIn(preparing));
  EXPECT_EQ(ServerAt(in_use, kB), ServerAt(preparing, kB));
  Live(10000);
  EXPECT_EQ(Texts({kA, kB, kC}), UrlsIn(in_use)) << "two of three, fewer than are in use";
  EXPECT_EQ(Urls({kA, kB, kC}), Reached());
  EXPECT_EQ(0, RingWrites());
  EXPECT_EQ(Texts({std::string("CreateConnector ") + kD, std::string("CreateConnector ") + kE}),
            journal.EntriesWith("CreateConnector"));
}

void RouterLifeTest::TheRouterSwitchesToIt() {
  NextChapter();
  ProxyServer* const a = ServerAt(in_use, kA);
  Live(100);
  EXPECT_TRUE(SaidInfo("set need_switch = true prepare_auth_succ_count 2"));
  EXPECT_EQ(Texts({kB, kD, kE}), UrlsIn(in_use));
  EXPECT_EQ(Texts({kA, kC}), UrlsIn(removing));
  EXPECT_EQ(a, ServerAt(removing, kA));
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(300U, RingSize());
  EXPECT_EQ(Urls({kB, kD}), Reached());
  EXPECT_EQ(5U, mgr.live_count());

  silent = {};
  Live(1500);
  EXPECT_EQ(Urls({kB, kD, kE}), Reached());
  EXPECT_EQ(1, RingWrites()) << "E had its points already, and three are no more than before";
  EXPECT_TRUE(peer->m_is_all_connected());
}

void RouterLifeTest::OneOfTheDepartedComesBack() {
  NextChapter();
  Live(20000);
  ProxyServer* const a = ServerAt(removing, kA);
  const int connects = mgr.At(kA).connect_count();
  ASSERT_EQ(0, Flush({kB, kD, kE, kA}));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  Live(100);
  EXPECT_TRUE(SaidInfo("set need_switch = true m_preparing_servers prepare_auth_succ_count 4 all"))
      << "it is still signed up";
  EXPECT_EQ(Texts({kB, kD, kE, kA}), UrlsIn(in_use));
  EXPECT_EQ(a, ServerAt(in_use, kA));
  EXPECT_EQ(connects, mgr.At(kA).connect_count());
  EXPECT_EQ(Texts(), journal.EntriesWith("CreateConnector"));
  EXPECT_EQ(400U, RingSize());
  EXPECT_EQ(Urls({kA, kB, kD, kE}), Reached());
}

// Over twenty seconds after its last heartbeat answer.
void RouterLifeTest::TheOtherIsDrained() {
  NextChapter();
  Live(10000);
  EXPECT_EQ(Texts({std::string("Disconnect ") + kC}), journal.EntriesWith("Disconnect"));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  Live(50000);
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  Live(10000);
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Texts({std::string("RemoveConnector ") + kC}), journal.EntriesWith("RemoveConnector"));
  EXPECT_EQ(4U, mgr.live_count());
  EXPECT_EQ(Urls({kA, kB, kD, kE}), Reached());
}

void RouterLifeTest::OneGoesSilentAndRecovers() {
  NextChapter();
  silent = {kD};
  Live(29000);
  EXPECT_EQ(Texts(), journal.EntriesWith("Disconnect"));
  EXPECT_EQ(Urls({kA, kB, kD, kE}), Reached()) << "nobody knows yet";
  Live(3000);
  EXPECT_EQ(Texts({std::string("Disconnect ") + kD}), journal.EntriesWith("Disconnect"));
  EXPECT_TRUE(SaidInfo(std::string("Connection lost. Reconnect to proxy server_url:") + kD));
  EXPECT_EQ(2, mgr.At(kD).GetStatus()) << "it takes connections still, but no sign-up";
  EXPECT_FALSE(ServerAt(in_use, kD)->auth_succeed);
  EXPECT_EQ(Urls({kA, kB, kE}), Reached());
  EXPECT_FALSE(peer->m_is_all_connected());
  EXPECT_EQ(1, CheckConnectAll()) << "three of four will do";

  Live(70000);
  EXPECT_TRUE(SaidInfo("call WriteHashCircle m_virtual_node_count=400 auth_succ_count=3"));
  EXPECT_EQ(400U, RingSize()) << "its points are kept for it";
  EXPECT_EQ(1U, journal.EntriesWith("Disconnect").size()) << "sign-ups restart its clock";

  silent = {};
  Live(1500);
  EXPECT_EQ(Urls({kA, kB, kD, kE}), Reached());
  EXPECT_TRUE(peer->m_is_all_connected());
}

void RouterLifeTest::OneIsIsolatedAndPutBackOnTrial() {
  NextChapter();
  judge.should_check = true;
  judge.unavailable = {kB};
  Live(100);
  judge.should_check = false;
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_ERROR,
                            std::string("the proxy is set unavailable, app_id:1001, zone_id:5, "
                                        "url:") +
                                kB + ", cur the availabe proxy count is:3 total 4"));
  EXPECT_EQ(Urls({kA, kD, kE}), Reached());
  EXPECT_TRUE(peer->m_is_all_connected()) << "it is signed up";
  EXPECT_EQ(400U, RingSize()) << "and stays on the ring";

  Live(59000);
  EXPECT_EQ(Urls({kA, kD, kE}), Reached());
  EXPECT_EQ(Texts(), journal.EntriesWith("Disconnect"));
  Live(62000);  // A minute, looked at once a minute.
  EXPECT_TRUE(SaidInfo(std::string("RecheckProxyAvailable retry connect ") + kB));
  EXPECT_EQ(Texts({std::string("Disconnect ") + kB}), journal.EntriesWith("Disconnect"));
  EXPECT_EQ(Texts({std::string("Connect ") + kB}), journal.EntriesWith("Connect "));
  EXPECT_EQ(Texts({kB}), judge.resets);
  EXPECT_EQ(Urls({kA, kB, kD, kE}), Reached());
}

void RouterLifeTest::TheRouterEnds() {
  NextChapter();
  ASSERT_EQ(0, Flush({kB, kF}));
  router->Fini();
  EXPECT_EQ(0U, mgr.live_count());
  EXPECT_EQ(0U, RingSize());
  for (const VirtualServerNode& node : peer->m_virtual_nodes()) {
    ASSERT_EQ(nullptr, node.server);
  }
}

TEST_F(RouterLifeTest, GoesFromTheFirstRouteToTheEnd) {
  ASSERT_NO_FATAL_FAILURE(TheFirstRouteIsUsedAtOnce());
  ASSERT_NO_FATAL_FAILURE(AllSignUpAndTheRingIsWritten());
  ASSERT_NO_FATAL_FAILURE(ASecondRouteIsPrepared());
  ASSERT_NO_FATAL_FAILURE(TheRouterSwitchesToIt());
  ASSERT_NO_FATAL_FAILURE(OneOfTheDepartedComesBack());
  ASSERT_NO_FATAL_FAILURE(TheOtherIsDrained());
  ASSERT_NO_FATAL_FAILURE(OneGoesSilentAndRecovers());
  ASSERT_NO_FATAL_FAILURE(OneIsIsolatedAndPutBackOnTrial());
  ASSERT_NO_FATAL_FAILURE(TheRouterEnds());
}

}  // namespace
}  // namespace OstrandService
