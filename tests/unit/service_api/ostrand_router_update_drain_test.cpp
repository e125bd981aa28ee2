// The removing list: who is dropped from it, when, and in which order a proxy dies.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "fakes/proxy_answers.h"
#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::LogLine;
using OstrandFakes::ScriptedConnector;

class DrainTest : public RouterUpdateTest {
 protected:
  // Proxies that were heard of last at this time.
  std::vector<ProxyServer*> Remove(const Texts& urls, int64_t last_recv_ms = kNow) {
    const std::vector<ProxyServer*> records = Ready(removing, urls);
    for (ProxyServer* record : records) {
      record->last_recv_ms = last_recv_ms;
    }
    return records;
  }
  static std::string Dropped(const std::string& url, const ProxyServer* record) {
    return "remove unused proxy. url:" + url + " ptr:" + Pointer(record);
  }
};

// --- When ---

TEST_F(DrainTest, DropsAProxyThatWasSilentForMoreThanAMinute) {
  const struct {
    int64_t silent_for;
    bool dropped;
  } kCases[] = {{0, false},     {59999, false},    {60000, false}, {60001, true},
                {100000, true}, {INT32_MAX, true}, {-1, false},    {-60001, false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.silent_for);
    ProxyServer* const record = Remove({kA}, kNow - c.silent_for)[0];
    Update(kNow);
    EXPECT_EQ(c.dropped ? Texts() : Texts({kA}), UrlsIn(removing));
    EXPECT_EQ(c.dropped ? Lines({Info(Dropped(kA, record))}) : Lines({}), Said());
    EXPECT_EQ(c.dropped ? 0U : 1U, mgr.live_count());
    peer->ReleaseServerList(removing);
  }
}

TEST_F(DrainTest, MeasuresTheSilenceWithTheCallersClock) {
  Remove({kA});
  clock.SetMs(kNow + 1000000);
  router->OnUpdate(kNow + 60000, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(1U, mgr.live_count());
  clock.SetMs(kNow);
  router->OnUpdate(kNow + 60001, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(DrainTest, DropsAProxyWhateverItsConnection) {
  Remove({kA, kB, kC});
  mgr.At(kA).SetStatus(0);
  mgr.At(kB).SetStatus(1);
  ServerAt(removing, kC)->connector = nullptr;
  Update(kNow + 60001);
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Texts({kA, kB}), mgr.removals());
  EXPECT_EQ(3U, Said().size());
  mgr.RemoveConnector(mgr.Find(kC));  // It was the test that took it away.
}

TEST_F(DrainTest, KeepsAnElementWithoutARecord) {
  AppendNode(removing, kA, nullptr);
  Remove({kB});
  Update(kNow + 1000000);
  EXPECT_EQ(Texts({kA}), UrlsIn(removing));
}

TEST_F(DrainTest, DropsInEveryPlaceOfTheList) {
  const struct {
    const char* what;
    Texts silent;
    Texts left;
  } kCases[] = {
      {"the first", {kA}, {kB, kC, kD}},       {"the last", {kD}, {kA, kB, kC}},
      {"in the middle", {kB}, {kA, kC, kD}},   {"two neighbours", {kB, kC}, {kA, kD}},
      {"every other one", {kA, kC}, {kB, kD}}, {"all", {kA, kB, kC, kD}, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Remove({kA, kB, kC, kD});
    for (const std::string& url : c.silent) {
      ServerAt(removing, url.c_str())->last_recv_ms = kNow - 60001;
    }
    Update(kNow);
    EXPECT_EQ(c.left, UrlsIn(removing));
    EXPECT_EQ(c.silent.size(), Said().size());
    EXPECT_EQ(Texts(), Broken());
    peer->ReleaseServerList(removing);
  }
}

TEST_F(DrainTest, LeavesTheOtherListsAlone) {
  Ready(in_use, {kA});
  Ready(preparing, {kB});
  Waiting(preparing, {kC}, kNow + 60001);
  peer->m_last_flush_route_time() = kNow + 60001;
  ServerAt(preparing, kB)->last_auth_result = 1;  // No switch.
  ServerAt(in_use, kA)->last_recv_ms = kNow - 1000000;
  ServerAt(preparing, kB)->last_recv_ms = kNow - 1000000;
  Remove({kD});
  Update(kNow + 60001);
  EXPECT_EQ(Texts({kA}), UrlsIn(in_use));
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing));
  EXPECT_EQ(3U, mgr.live_count());
}

// --- A removed proxy's last hour ---

class DrainWithHeartbeatsTest : public DrainTest {
 protected:
  DrainWithHeartbeatsTest() { router->SetHeartbeatInterval(1000); }
};

TEST_F(DrainWithHeartbeatsTest, DropsItAMinuteAfterItsConnectionWasDroppedForSilence) {
  ProxyServer* const record = Remove({kA})[0];
  Update(kNow + 29999);
  EXPECT_EQ(2, mgr.At(kA).GetStatus());
  Update(kNow + 31001);  // The next heartbeat pass.
  EXPECT_EQ(Texts({std::string("Disconnect ") + kA}), journal.EntriesWith("Disconnect"));
  EXPECT_EQ(kNow + 31001, record->last_recv_ms) << "the silence starts anew";
  Update(kNow + 60001);
  EXPECT_EQ(1U, mgr.live_count()) << "more than a minute after its last package";
  Update(kNow + 31001 + 60000);
  EXPECT_EQ(1U, mgr.live_count());
  Update(kNow + 31001 + 60001);
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(DrainWithHeartbeatsTest, DropsItAMinuteAfterItsLastPackageWhenSilenceIsAllowedForLonger) {
  router->SetCheckHeartbeatInterval(100000);
  Remove({kA});
  Update(kNow + 60000);
  EXPECT_EQ(1U, mgr.live_count());
  Update(kNow + 60001);
  EXPECT_EQ(0U, mgr.live_count());
  EXPECT_EQ(Texts(), journal.EntriesWith("Disconnect"));
}

TEST_F(DrainWithHeartbeatsTest, KeepsAProxyThatAnswersHeartbeats) {
  Remove({kA});
  const std::string answer = OstrandFakes::HeartbeatAnswer(kNow * 1000);
  int64_t now_ms = kNow;
  for (int i = 0; i < 20; ++i) {
    now_ms += 20000;
    Update(now_ms);
    clock.AdvanceMs(9999);
    now_ms = clock.Ms();
    ASSERT_EQ(1, mgr.Deliver(kA, answer));
  }
  EXPECT_EQ(1U, mgr.live_count()) << "ten minutes later";
  EXPECT_EQ(0U, mgr.At(kA).sent().size()) << "though it is sent none any more";
  router->SetHeartbeatInterval(kNever);
  Update(now_ms + 60000);
  EXPECT_EQ(1U, mgr.live_count());
  Update(now_ms + 60001);
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(DrainTest, DropsAProxyThatSendsOtherThingsThanHeartbeatAnswers) {
  ProxyServer* const record = Remove({kA})[0];
  clock.SetMs(kNow + 60001);
  ASSERT_EQ(1, mgr.Deliver(kA, OstrandFakes::SignupAnswer(0)));
  ASSERT_EQ(1, mgr.Deliver(kA, OstrandFakes::StopNotice()));
  EXPECT_EQ(kNow, record->last_recv_ms);
  Update(kNow + 60001);
  EXPECT_EQ(0U, mgr.live_count());
}

// --- How a proxy dies ---

TEST_F(DrainTest, NullsTheRingSlotsThenRemovesTheConnectorThenSaysItAndThenUnlinks) {
  const std::vector<ProxyServer*> records = Remove({kA, kB});
  ServerAt(removing, kB)->last_recv_ms = kNow + 60001;
  VirtualServerNode* ring = peer->m_virtual_nodes();
  peer->m_virtual_node_count() = 3;
  for (uint64_t i = 0; i < 3; ++i) {
    ring[i] = {i, records[i % 2]};
  }
  ring[3] = {7, records[0]};  // behind the ring's end
  ring[19999] = {8, records[0]};
  ASSERT_EQ(4, SlotsOf(records[0]));

  std::vector<std::string> seen;
  mgr.OnRemove([&](ScriptedConnector& connector) {
    seen.push_back(std::string("removes ") + connector.GetURL());
    EXPECT_TRUE(ListIsLocked());
    EXPECT_FALSE(RingIsLocked());
    EXPECT_EQ(0, SlotsOf(records[0]));
    EXPECT_EQ(Texts({kA, kB}), UrlsIn(removing));
  });
  logger.OnLine([&](const LogLine& line) {
    if (line.function == "OnUpdate") {
      seen.push_back(line.text);
      EXPECT_TRUE(ListIsLocked());
      EXPECT_EQ(nullptr, mgr.Find(kA));
      const RealServerNode* node = peer->FindServerNode(removing, kA);
      ASSERT_NE(nullptr, node);
      EXPECT_EQ(records[0], node->server);
      EXPECT_EQ(nullptr, records[0]->connector);
    }
  });
  Update(kNow + 60001);
  EXPECT_EQ(Texts({std::string("removes ") + kA, Dropped(kA, records[0])}), seen);
  EXPECT_EQ(Texts({kB}), UrlsIn(removing));
  EXPECT_EQ(1, SlotsOf(records[1])) << "others keep theirs";
  EXPECT_FALSE(ListIsLocked());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(DrainTest, DropsUnderTheListsLockAndTracesWithoutIt) {
  Remove({kA, kB});
  logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE);
  Ready(in_use, {kC});
  std::vector<std::pair<std::string, bool>> seen;
  logger.OnLine([&](const LogLine& line) {
    if (line.text.compare(0, 12, "After remove") == 0) {
      seen.emplace_back("trace", ListIsLocked());
    }
    if (line.text.compare(0, 19, "remove unused proxy") == 0) {
      seen.emplace_back("drop", ListIsLocked());
    }
  });
  Update(kNow + 60001);
  using Seen = std::vector<std::pair<std::string, bool>>;
  EXPECT_EQ(Seen({{"drop", true}, {"drop", true}, {"trace", false}}), seen);
}

// --- The trace ---

class DrainTraceTest : public DrainTest {
 protected:
  DrainTraceTest() { logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE); }

  // Caption and url of each line of the trace.
  Texts Traced() {
    Texts traced;
    for (const LogLine& line : logger.LinesFrom("TraceLogConnection")) {
      if (line.text.compare(0, 12, "After remove") == 0) {
        traced.push_back(line.text.substr(0, line.text.find(" server:")));
      }
    }
    return traced;
  }
};

TEST_F(DrainTraceTest, ShowsTheListsAfterTheWalk) {
  Ready(in_use, {kA});
  Waiting(preparing, {kB}, kNow + 60001);
  Remove({kC, kD});
  ServerAt(removing, kD)->last_recv_ms = kNow + 60001;
  Update(kNow + 60001);
  EXPECT_EQ(
      Texts(
          {std::string("After remove unused servers. m_using_servers index:0 server_url:") + kA,
           std::string("After remove unused servers. m_preparing_servers index:0 server_url:") + kB,
           std::string("After remove unused servers. m_removing_servers index:0 server_url:") +
               kD}),
      Traced());
}

TEST_F(DrainTraceTest, ShowsThemAlsoWhenNobodyWasDropped) {
  Remove({kC});
  Update(kNow);
  EXPECT_EQ(Texts({std::string("After remove unused servers. m_removing_servers index:0 "
                               "server_url:") +
                   kC}),
            Traced());
}

TEST_F(DrainTraceTest, ShowsNothingWhenTheListWasEmptyOrTraceIsOff) {
  Ready(in_use, {kA});
  Update(kNow);
  EXPECT_EQ(Texts(), Traced());
  Remove({kC});
  logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG);
  Update(kNow + 60001);
  EXPECT_EQ(0U, removing->GetUsed());
  EXPECT_EQ(Texts(), Traced());
}

TEST_F(DrainTraceTest, DoesWithoutALogger) {
  Remove({kA, kB});
  ServerAt(removing, kB)->last_recv_ms = kNow + 60001;
  ASSERT_NE(0, router->Init(&mgr, Service(), nullptr)) << "refused, but it takes the logger away";
  Update(kNow + 60001);
  EXPECT_EQ(Texts({kB}), UrlsIn(removing));
  EXPECT_EQ(1U, mgr.live_count());
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
