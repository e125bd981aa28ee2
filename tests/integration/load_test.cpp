// Load against a fleet in a process of its own that is killed, stopped, slowed down and rearranged
// meanwhile.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/clock.h"
#include "integration/integration_kit.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using OstrandService::ClientResponse;

class Load : public RuntimeTest {
 protected:
  void StartAll(size_t proxies, const std::string& more_options = "") {
    StartFleetProcess(proxies, more_options);
    StartClient();
    ASSERT_TRUE(m_work->Run(500));
    ASSERT_TRUE(m_work->Drain());
  }
  // The text of a fleet file with these proxies of the fleet, and further lines.
  std::string Route(const std::vector<size_t>& proxies, const std::string& more_lines = "") {
    std::string text = "zone " + std::to_string(kZone) + "\n";
    for (const size_t proxy : proxies) {
      text += "proxy " + m_process->ProxyUrls()[proxy] + " p" + std::to_string(proxy) + "\n";
    }
    return text + more_lines;
  }
  bool IsServing(size_t proxy) { return RuntimeTest::IsServing(m_process->ProxyUrls()[proxy]); }
  void ExpectNothingLost() {
    ASSERT_TRUE(m_work->Drain());
    EXPECT_EQ(m_work->tally().timed_out, 0u);
    EXPECT_EQ(m_work->tally().failed, 0u);
    EXPECT_EQ(m_work->tally().Refused(), 0u);
  }
};

TEST_F(Load, RouteChangesLoseNothingAndAnswerNothingWrongly) {
  StartAll(6);
  for (int i = 0; i < 6; ++i) {
    m_process->WriteFleetFile(Route({0, 1, 2, 3}));
    ASSERT_TRUE(m_work->RunUntil([&] { return IsServing(0) && !IsServing(5); })) << i;
    ASSERT_TRUE(m_work->Run(1000, 256));
    m_process->WriteFleetFile(Route({2, 3, 4, 5}));
    ASSERT_TRUE(m_work->RunUntil([&] { return IsServing(5) && !IsServing(0); })) << i;
    ASSERT_TRUE(m_work->Run(1000, 256));
  }
  ExpectNothingLost();
}

TEST_F(Load, AProxyIsKilledAndComesBack) {
  WarpedClock clock(10);
  StartAll(3);
  m_work->SetTimeout(2000);
  m_process->WriteFleetFile(Route({0, 1, 2}, "down p1\n"));
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged(" closed: "); }, 256));
  ASSERT_TRUE(m_work->Drain());
  const uint64_t timed_out = m_work->tally().timed_out;
  m_work->SetTimeout(0);
  ASSERT_TRUE(m_work->Run(1000, 256));
  EXPECT_EQ(m_work->tally().timed_out, timed_out) << "the others serve all";
  m_process->WriteFleetFile(Route({0, 1, 2}));
  ASSERT_TRUE(m_work->Run(1000, 256));
}

TEST_F(Load, ASlowProxySlowsDownItsOwnShareOnly) {
  StartAll(3);
  m_process->WriteFleetFile(Route({0, 1, 2}, "fault p1 delay_ms 100\n"));
  ASSERT_TRUE(m_work->Run(1500));
  m_process->WriteFleetFile(Route({0, 1, 2}));
  ASSERT_TRUE(m_work->Run(1000));
  ExpectNothingLost();
}

TEST_F(Load, AHalfOpenProxyIsTakenOutOfUse) {
  WarpedClock clock(10);
  StartFleetProcess(4);
  auto options = Options();
  options.heartbeat_ms = 200;
  options.check_heartbeat_ms = 3000;
  StartClient(options);
  m_work->SetTimeout(1000);
  ASSERT_TRUE(m_work->Run(500));
  m_process->WriteFleetFile(Route({0, 1, 2, 3}, "fault p2 silent\n"));
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().timed_out >= 20; }));
  // Either check finds it: answers that fail to come, or heartbeats.
  ASSERT_TRUE(m_work->RunUntil([&] {
    const uint64_t before = m_work->tally().timed_out;
    return m_work->Run(500) && m_work->tally().timed_out == before;
  }));
  m_process->WriteFleetFile(Route({0, 1, 2, 3}));
}

TEST_F(Load, EveryMisbehaviourAtOnce) {
  WarpedClock clock(10);
  StartAll(8);
  m_work->SetTimeout(1000);
  m_process->WriteFleetFile(Route({0, 1, 2, 3, 4, 5, 6, 7},
                                  "fault p0 answer garbage\nfault p0 answer_every 50\n"
                                  "fault p1 refuse_sign_up -9233\nfault p1 drop_every 3\n"
                                  "fault p2 ignore_sign_up\nfault p2 answer cut\n"
                                  "fault p2 answer_every 100\n"
                                  "fault p3 delay_ms 200\n"
                                  "fault p4 answer duplicate\n"
                                  "fault p5 ignore_heartbeats\nfault p5 answer replay\n"
                                  "fault p6 answer announce-1-gib\nfault p6 answer_every 60\n"
                                  "fault directory garbage\n"));
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().timed_out >= 100; }, 256));
  m_process->WriteFleetFile(Route({0, 1, 2, 3, 4, 5, 6, 7}));
  ASSERT_TRUE(m_work->Run(1000, 256));
}

// Stopped and continued: what was in flight times out, what is answered later is dropped, and all
// goes on over the connections that stand.
TEST_F(Load, TheFleetStopsForAWhile) {
  StartAll(4);
  m_work->SetTimeout(200);
  m_process->Signal(SIGSTOP);
  const uint64_t accepted = m_work->tally().accepted;
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().accepted >= accepted + 100; }, 256));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_GT(m_work->tally().timed_out, 0u);
  m_process->Signal(SIGCONT);
  EXPECT_TRUE(UpdateUntil([&] { return m_client->Counters().dropped != 0; }));
  m_work->SetTimeout(0);
  ASSERT_TRUE(m_work->Run(1000));
  EXPECT_FALSE(IsLogged("closed"));
}

// One proxy of several is stopped, as a process of its own that shares nothing with the others.
TEST_F(Load, AStoppedProxyAmongOthers) {
  StartFleetProcess(3);
  FleetProcess other(1);
  const std::string route = Route({0, 1, 2}, "proxy " + other.ProxyUrls()[0] + " other\n");
  m_process->WriteFleetFile(route);
  StartClient(Options(), Workload::Store::kSeveral);
  ASSERT_TRUE(m_work->RunUntil([&] { return RuntimeTest::IsServing(other.ProxyUrls()[0]); }));
  ASSERT_TRUE(m_work->Drain());
  m_work->SetTimeout(100);
  ASSERT_TRUE(m_work->Run(500));
  other.Signal(SIGSTOP);
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().timed_out >= 20; }));
  // The others take over its share once too few of its answers come.
  ASSERT_TRUE(m_work->RunUntil([&] {
    const uint64_t before = m_work->tally().timed_out;
    return m_work->Run(500) && m_work->tally().timed_out == before;
  }));
  other.Signal(SIGCONT);
  ASSERT_TRUE(m_work->Run(500));
}

TEST_F(Load, TheFleetIsKilledAndStartedAgain) {
  WarpedClock clock(10);
  StartFleetProcess(4);
  StartClient(Options(), Workload::Store::kSeveral);  // the store is lost
  m_work->SetTimeout(1000);
  ASSERT_TRUE(m_work->Run(500));
  m_process->Kill();
  ASSERT_TRUE(m_work->RunUntil(
      [&] { return m_work->tally().results.count(OstrandService::ROUTER_ERR_NO_ROUTE) != 0; }));
  ASSERT_TRUE(m_work->Drain());
  m_process->Restart();
  ASSERT_TRUE(m_work->Run(500));
}

TEST_F(Load, TwoHundredProxiesAtOnce) {
  StartFleetProcess(200);
  StartClient();
  ASSERT_TRUE(m_work->RunUntil(
      [&] { return m_client->StatusText().find("auth_success_proxy:200\n") != std::string::npos; },
      16));
  ASSERT_TRUE(m_work->Run(10000, 256));
  ExpectNothingLost();
}

// More than the buffers on the way hold: what does not fit waits, what would exceed the bound on
// that is refused with a code, and what was taken is answered when the proxies read again.
TEST_F(Load, SendBuffersThatFill) {
  StartFleetProcess(2);
  auto options = Options();
  options.buffer_limit = 256 * 1024;
  options.max_kept_bytes = 1024 * 1024;
  StartClient(options);
  m_work->SetValueSize(50000);
  for (int i = 0; i < 2; ++i) {
    m_process->Signal(SIGSTOP);
    int ret = 0;
    while (ret == 0) {
      ret = m_work->SendOne();
    }
    EXPECT_EQ(ret, OstrandService::CLIENT_ERR_TOO_MANY);
    EXPECT_LT(m_client->InFlight(), 1900u) << "the load itself has no more records";
    m_process->Signal(SIGCONT);
    ASSERT_TRUE(m_work->Drain());
  }
  m_work->SetValueSize(0);
  ASSERT_TRUE(m_work->Run(1000));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out, 0u);
  EXPECT_EQ(m_work->tally().failed, 0u);
}

TEST_F(Load, StopDrainsWhatIsInFlight) {
  StartAll(3);
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  EXPECT_EQ(m_client->Stop(static_cast<int>(kPatienceMs),
                           [&](ClientResponse& response) { m_work->Book(response); }),
            0u);
  EXPECT_EQ(m_work->tally().timed_out, 0u);
  m_serves_at_end = false;
}

TEST_F(Load, StopTimesOutWhatIsInFlightWhenTheFleetIsStopped) {
  StartAll(3);
  ASSERT_TRUE(m_work->Drain());
  m_process->Signal(SIGSTOP);
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  const int64_t began_ms = OstrandCommon::GetMonotonicMilliseconds();
  EXPECT_EQ(m_client->Stop(100, [&](ClientResponse& response) { m_work->Book(response); }), 500u);
  EXPECT_GE(OstrandCommon::GetMonotonicMilliseconds() - began_ms, 100);
  EXPECT_EQ(m_work->tally().timed_out, 500u);
  m_process->Signal(SIGCONT);
  m_serves_at_end = false;
}

}  // namespace
}  // namespace OstrandTests
