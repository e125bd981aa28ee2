// When the periodic update writes the ring: at once when more proxies are signed up than it was
// written for, and once a minute when it does not show the proxies in use.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;

std::string WriteCall(int ring_size, int auth_succ_count) {
  return "call WriteHashCircle m_virtual_node_count=" + std::to_string(ring_size) +
         " auth_succ_count=" + std::to_string(auth_succ_count);
}

// --- At once ---

class UpdateRingTest : public RouterUpdateTest {
 protected:
  // Proxies 0 .. in_list - 1, of which the first `ready` are signed up; as if the ring had been
  // written for `written_for` of them, with `ring_size` points.
  void Given(int in_list, int ready, uint32_t ring_size, uint32_t written_for) {
    const Texts urls = ManyUrls(in_list);
    Ready(in_use, Texts(urls.begin(), urls.begin() + ready));
    Waiting(in_use, Texts(urls.begin() + ready, urls.end()), kNow);
    peer->m_virtual_node_count() = ring_size;
    peer->m_last_auth_succ_count() = written_for;
  }
};

TEST_F(UpdateRingTest, WritesItWhenMoreProxiesAreSignedUpWhenItIsEmptyAndWhenForced) {
  const struct {
    const char* what;
    int in_list;
    int ready;
    uint32_t ring_size;
    uint32_t written_for;
    bool forced;
    bool writes;
    bool all_connected;
    bool forced_after;
  } kCases[] = {
      {"the first sign-up", 4, 1, 0, 0, false, true, false, false},
      {"one more", 4, 2, 400, 1, false, true, false, false},
      {"the last one", 4, 4, 400, 3, false, true, true, false},
      {"all, as before", 4, 4, 400, 4, false, false, true, false},
      {"some, as before", 4, 2, 400, 2, false, false, false, false},
      {"one less", 4, 3, 400, 4, false, false, false, false},
      {"an empty ring, as before", 4, 2, 0, 2, false, true, false, false},
      {"an empty ring, one less", 4, 2, 0, 3, false, true, false, false},
      {"forced, all signed up", 4, 4, 400, 4, true, true, true, false},
      {"forced, not all signed up", 4, 3, 400, 4, true, true, false, true},
      {"forced, the only one", 1, 1, 100, 1, true, true, true, false},
      {"nobody", 4, 0, 0, 0, false, false, false, false},
      {"nobody, forced", 4, 0, 0, 0, true, false, false, true},
      {"nobody any more", 4, 0, 400, 4, true, false, false, true},
      {"an empty list", 0, 0, 0, 0, true, false, false, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Given(c.in_list, c.ready, c.ring_size, c.written_for);
    router->SetForceFlushHash(c.forced);
    peer->m_is_all_connected() = !c.all_connected;
    Update(kNow);
    EXPECT_EQ(c.writes ? 1 : 0, RingWrites());
    EXPECT_EQ(
        c.writes ? Lines({Info(WriteCall(static_cast<int>(c.ring_size), c.ready))}) : Lines({}),
        Said());
    EXPECT_EQ(c.all_connected, peer->m_is_all_connected());
    EXPECT_EQ(c.forced_after, peer->m_force_flush_hash());
    EXPECT_EQ(c.writes ? static_cast<uint32_t>(c.ready) : c.written_for,
              peer->m_last_auth_succ_count());
    if (c.writes) {
      EXPECT_EQ(100U * static_cast<uint32_t>(c.in_list), RingSize()) << "with whoever is in use";
    }
    peer->ReleaseServerList(in_use);
    peer->m_virtual_node_count() = 0;
  }
}

TEST_F(UpdateRingTest, SaysThatItCallsBeforeItWrites) {
  Given(2, 2, 0, 0);
  Update(kNow);
  const std::vector<std::string> texts = logger.TextsOf(OSTRAND_LOG_LEVEL_INFO);
  ASSERT_LE(2U, texts.size());
  EXPECT_EQ(WriteCall(0, 2), texts[0]);
  EXPECT_EQ("WriteHashCircle succeed. m_virtual_node_count:200", texts[1]);
}

TEST_F(UpdateRingTest, WritesItOnceForOneForce) {
  Given(3, 3, 300, 3);
  Update(kNow);
  EXPECT_EQ(0, RingWrites()) << "all signed up, and the ring was built of as many";
  router->SetForceFlushHash(true);
  Update(kNow + 10);
  Update(kNow + 20);
  EXPECT_EQ(1, RingWrites());
}

TEST_F(UpdateRingTest, WritesItAgainAndAgainWhileAForceFindsSomebodyNotSignedUp) {
  Given(3, 2, 300, 2);
  router->SetForceFlushHash(true);
  Update(kNow);
  Update(kNow + 10);
  EXPECT_EQ(2, RingWrites());
  ServerAt(in_use, ManyUrls(1, 2)[0].c_str())->auth_succeed = true;
  Update(kNow + 20);
  EXPECT_EQ(3, RingWrites());
  Update(kNow + 30);
  EXPECT_EQ(3, RingWrites());
}

TEST_F(UpdateRingTest, DoesNotNoticeALossThatIsMadeGood) {
  Given(4, 4, 0, 0);
  Update(kNow);
  ASSERT_EQ(1, RingWrites());
  ProxyServer* lost = ServerAt(in_use, ManyUrls(1, 3)[0].c_str());
  lost->auth_succeed = false;
  lost->last_recv_ms = kNow;
  Update(kNow + 10);
  EXPECT_FALSE(peer->m_is_all_connected());
  EXPECT_EQ(4U, peer->m_last_auth_succ_count());
  lost->auth_succeed = true;
  Update(kNow + 20);
  EXPECT_EQ(1, RingWrites());
  EXPECT_TRUE(peer->m_is_all_connected());
}

TEST_F(UpdateRingTest, CountsOnlyWhoIsConnectedAndAccepted) {
  Ready(in_use, {kA, kB, kC, kD});
  ServerAt(in_use, kB)->last_auth_result = 1;  // announced its stop
  mgr.At(kC).SetStatus(1);
  ServerAt(in_use, kD)->is_available = false;  // signed up all the same
  Update(kNow);
  EXPECT_EQ(Lines({Info(WriteCall(0, 2))}), Said());
  EXPECT_FALSE(peer->m_is_all_connected());
}

// --- Once a minute ---

class RecheckRingTest : public RouterUpdateTest {
 protected:
  // Four proxies, on the ring since kNow.
  RecheckRingTest() {
    records = Ready(in_use, {kA, kB, kC, kD});
    Update(kNow);
    EXPECT_EQ(kNow, peer->m_last_flush_hash_circle_time());
    EXPECT_EQ(400U, RingSize());
    StartOver();
  }
  void Lose(ProxyServer* record, int64_t now_ms) {
    record->auth_succeed = false;
    record->last_recv_ms = now_ms;  // its sign-up is under way
  }

  std::vector<ProxyServer*> records;
};

TEST_F(RecheckRingTest, LeavesARingAloneThatShowsTheProxiesInUse) {
  Update(kNow + 60001);
  Update(kNow + 600000);
  EXPECT_EQ(Lines({}), Said());
  EXPECT_EQ(kNow, peer->m_last_flush_hash_circle_time());
}

TEST_F(RecheckRingTest, WritesItAMinuteAfterTheLastTimeWhenAProxyIsMissing) {
  Lose(records[3], kNow + 60000);
  Update(kNow + 60000);
  EXPECT_EQ(Lines({}), Said()) << "not before";
  Update(kNow + 60001);
  EXPECT_EQ(Lines({Info(WriteCall(400, 3))}), Said());
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(400U, RingSize()) << "the missing one stays on it";
  EXPECT_EQ(kNow + 60001, peer->m_last_flush_hash_circle_time());
  EXPECT_EQ(4U, peer->m_last_auth_succ_count()) << "which only the write at once sets";

  Lose(records[3], kNow + 120001);
  Update(kNow + 120001);
  EXPECT_EQ(1, RingWrites());
  Update(kNow + 120002);
  EXPECT_EQ(2, RingWrites()) << "and so on, a minute after each";
}

TEST_F(RecheckRingTest, WritesItWhenAProxyIsOutOfUse) {
  records[0]->is_available = false;
  Update(kNow + 60001);
  EXPECT_EQ(Lines({Info(WriteCall(400, 4))}), Said());
  EXPECT_EQ(4U, OnRing().size()) << "where the proxy stays";
}

TEST_F(RecheckRingTest, WritesItWhenItsSizeIsNotThatOfTheList) {
  peer->m_virtual_node_count() = 399;
  Update(kNow + 60000);
  EXPECT_EQ(0, RingWrites());
  Update(kNow + 60001);
  EXPECT_EQ(Lines({Info(WriteCall(399, 4))}), Said());
  EXPECT_EQ(400U, RingSize());
}

TEST_F(RecheckRingTest, WritesAnEmptyRingAtOnceInstead) {
  peer->m_virtual_node_count() = 0;
  Update(kNow + 60001);
  EXPECT_EQ(Lines({Info(WriteCall(0, 4))}), Said()) << "and not twice";
  EXPECT_EQ(1, RingWrites());
}

// The library's clock is a minute behind, so that the write of this update looks old to it.
TEST_F(RecheckRingTest, DoesWithoutWhenTheRingWasWrittenAtOnce) {
  records[0]->is_available = false;
  router->SetForceFlushHash(true);
  clock.SetMs(kNow);
  router->OnUpdate(kNow + 60001, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(1, RingWrites());
}

TEST_F(RecheckRingTest, DoesWithoutWhenTheRouteWasSwitched) {
  records[0]->is_available = false;
  records[2]->last_recv_ms = kNow + 60001;
  records[3]->last_recv_ms = kNow + 60001;
  Share(kA);
  Share(kB);
  clock.SetMs(kNow);
  router->OnUpdate(kNow + 60001, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_INFO,
                            "call WriteHashCircle m_virtual_node_count=400 "
                            "prepare_auth_succ_count=2"));
}

TEST_F(RecheckRingTest, WritesNothingWhenNobodyIsSignedUp) {
  for (const int64_t later : {60001, 60002, 70000}) {
    for (ProxyServer* record : records) {
      Lose(record, kNow + later);
    }
    StartOver();
    Update(kNow + later);
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "OnUpdate",
                      "auth_succ_count is 0. skip WriteHashCircle"}}),
              Said())
        << "with every update";
  }
  EXPECT_EQ(kNow, peer->m_last_flush_hash_circle_time());
}

TEST_F(RecheckRingTest, WaitsForTheFirstRing) {
  for (ProxyServer* record : records) {
    Lose(record, kNow + 60001);
  }
  for (const int64_t written : {int64_t{0}, int64_t{-1}}) {
    peer->m_last_flush_hash_circle_time() = written;
    Update(kNow + 60001);
    EXPECT_EQ(Lines({}), Said());
  }
  peer->m_last_flush_hash_circle_time() = 1;
  Update(kNow + 60001);
  EXPECT_EQ(1U, Said().size());
}

TEST_F(RecheckRingTest, MeasuresTheMinuteWithTheCallersClock) {
  Lose(records[3], kNow + 60001);
  clock.SetMs(kNow + 7);
  router->OnUpdate(kNow + 60001, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(kNow + 7, peer->m_last_flush_hash_circle_time()) << "the library's clock";
  router->OnUpdate(kNow + 60000, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(1, RingWrites());
}

TEST_F(RecheckRingTest, WaitsWhileTheClockIsBehindTheLastWrite) {
  Lose(records[3], kNow - 100000);
  Update(kNow - 100000);
  EXPECT_EQ(Lines({}), Said());
}

}  // namespace
}  // namespace OstrandService
