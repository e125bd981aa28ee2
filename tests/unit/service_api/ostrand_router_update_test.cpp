// The periodic update as a whole: the order of its steps, and what it hands on to them.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::LogLine;

// Lines stand in the journal beside the calls, so that it shows the order of both.
class UpdateOrderTest : public RouterUpdateTest {
 protected:
  UpdateOrderTest() {
    logger.OnLine([this](const LogLine& line) {
      for (const char* function : {"OnUpdate", "UpdateProxyAvailable", "UpdateProxyAvailableV2",
                                   "RecheckProxyAvailable", "CheckHeartbeatLatency"}) {
        if (line.function == function) {
          journal.Add(line.function + ": " + line.text);
        }
      }
    });
  }

  // The journal, each entry cut to its first words.
  Texts Steps(const Texts& expected) {
    Texts steps = journal.Entries();
    for (size_t i = 0; i < steps.size() && i < expected.size(); ++i) {
      if (steps[i].compare(0, expected[i].size(), expected[i]) == 0) {
        steps[i] = expected[i];
      }
    }
    return steps;
  }
};

TEST_F(UpdateOrderTest, IsTheSameForEveryUpdate) {
  router->SetHeartbeatInterval(1000);
  judge.should_check = true;
  judge.unavailable = {kB};
  judge.recheck_interval = 60;
  const int64_t now_ms = kNow + 2000;

  // In use: A, E and F do well, B is judged, C is put back on trial.
  Ready(in_use, {kA, kB, kC, kE, kF});
  ServerAt(in_use, kC)->is_available = false;
  ServerAt(in_use, kC)->last_unavailable_time = now_ms / 1000 - 60;
  peer->m_last_recheck_availabe_time() = now_ms / 1000 - 60;
  ProxyServer* const slow = ServerAt(in_use, kA);
  slow->m_heartbeat_num = 1;
  slow->m_heartbeat_latency_large_num = 1;
  peer->m_last_check_time() = static_cast<time_t>(now_ms / 1000 - 60);
  // Prepared: A and a new one that needs its sign-up; enough, and the route is ten seconds old.
  Share(kA);
  const std::string new_one = "tcp://10.0.0.7:1007";
  AddProxy(preparing, new_one);
  mgr.At(new_one).SetStatus(2);
  ServerAt(preparing, new_one.c_str())->pre_status = 0;
  peer->m_last_flush_route_time() = now_ms - 10001;
  // Being removed: D was silent for over a minute.
  Ready(removing, {kD});
  ServerAt(removing, kD)->last_recv_ms = now_ms - 60001;
  // Whose connection is dropped when heartbeats are due.
  ServerAt(in_use, kE)->last_recv_ms = now_ms - 30000;
  StartOver();
  Update(now_ms);

  const Texts kSteps = {
      // Availability, recheck.
      "JudgeUpdate",
      std::string("UpdateProxyAvailable: the proxy is set unavailable, app_id:1001, zone_id:5, "
                  "url:") +
          kB,
      "RecheckProxyAvailable: RecheckProxyAvailable. cur_time",
      "RecheckProxyAvailable: RecheckProxyAvailable. cur_time",
      std::string("RecheckProxyAvailable: RecheckProxyAvailable ") + kB,
      "RecheckProxyAvailable: RecheckProxyAvailable. cur_time",
      std::string("RecheckProxyAvailable: RecheckProxyAvailable ") + kC,
      std::string("ResetJudgeProxyStatus ") + kC,
      std::string("Disconnect ") + kC,
      std::string("RecheckProxyAvailable: RecheckProxyAvailable retry connect ") + kC,
      "RecheckProxyAvailable: RecheckProxyAvailable. cur_time",
      "RecheckProxyAvailable: RecheckProxyAvailable. cur_time",
      // The list in use.
      std::string("Connect ") + kC,
      "OnUpdate: call WriteHashCircle m_virtual_node_count=0 auth_succ_count=4",
      "ReportDirHashCircleStat 5-5-4-",
      // The preparing list.
      "SendToQ " + new_one,
      "OnUpdate: set need_switch = true prepare_auth_succ_count 1",
      "OnUpdate: Route Change! Move server from m_using_servers to m_removing_servers. ret:0",
      "OnUpdate: Route Change! Move server from m_using_servers to m_removing_servers. ret:0",
      "OnUpdate: Route Change! Move server from m_using_servers to m_removing_servers. ret:0",
      "OnUpdate: Route Change! Move server from m_using_servers to m_removing_servers. ret:0",
      std::string("OnUpdate: Route Change! Add server To m_using_servers server_url:") + kA,
      "OnUpdate: Route Change! Add server To m_using_servers server_url:" + new_one,
      "OnUpdate: call WriteHashCircle m_virtual_node_count=500 prepare_auth_succ_count=1",
      "ReportDirHashCircleStat 5-2-1-",
      // The removing list.
      std::string("RemoveConnector ") + kD,
      std::string("OnUpdate: remove unused proxy. url:") + kD,
      // Heartbeats.
      std::string("Disconnect ") + kE,
      std::string("SendToQ ") + kA,
      // Latencies.
      std::string("CheckHeartbeatLatency: Proxy[") + kA + "]",
  };
  EXPECT_EQ(kSteps, Steps(kSteps));
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(UpdateOrderTest, PutsTheRecheckOfTheRingBetweenDrainAndHeartbeats) {
  router->SetHeartbeatInterval(1000);
  Ready(in_use, {kA, kB});
  Ready(removing, {kD});
  ServerAt(removing, kD)->last_recv_ms = kNow - 60000;
  ServerAt(in_use, kB)->is_available = false;
  peer->m_virtual_node_count() = 200;
  peer->m_last_auth_succ_count() = 2;
  const int64_t now_ms = kNow + 1001;
  peer->m_last_flush_hash_circle_time() = now_ms - 60001;
  StartOver();
  Update(now_ms);
  const Texts kSteps = {
      "JudgeUpdate",
      std::string("RemoveConnector ") + kD,
      std::string("OnUpdate: remove unused proxy. url:") + kD,
      "OnUpdate: call WriteHashCircle m_virtual_node_count=200 auth_succ_count=2",
      "ReportDirHashCircleStat 5-2-2-",
      std::string("SendToQ ") + kA,
      std::string("SendToQ ") + kB,
  };
  EXPECT_EQ(kSteps, Steps(kSteps));
}

// --- What is handed on ---

using UpdateTest = RouterUpdateTest;

TEST_F(UpdateTest, DoesNothingBeforeInitAndAfterFini) {
  Ready(in_use, {kA});
  router->Fini();
  StartOver();
  Update(kNow + 5000);
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(Texts(), journal.Entries());
  EXPECT_EQ(kNow, peer->m_last_send_heartbeat_time());
  EXPECT_EQ(0, judge.updates);

  MakeRouter();
  Update(kNow + 5000);
  EXPECT_EQ(Texts(), journal.Entries());
  EXPECT_EQ(0, peer->m_last_send_heartbeat_time());
  EXPECT_EQ(0, judge.updates);
}

TEST_F(UpdateTest, RechecksInWholeSeconds) {
  const struct {
    int64_t now_ms;
    int64_t now_s;
  } kCases[] = {{1999, 1}, {2000, 2}, {kNow + 999, kNow / 1000}, {-1, 0}, {-1999, -1}};
  for (const auto& c : kCases) {
    peer->m_last_recheck_availabe_time() = 0;
    router->OnUpdate(c.now_ms, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(c.now_s, peer->m_last_recheck_availabe_time()) << c.now_ms;
  }
}

TEST_F(UpdateTest, SignsUpWithTheSignatureOfTheCall) {
  for (List* list : {in_use, preparing}) {
    const char* url = list == in_use ? kA : kB;
    AddProxy(list, url);
    mgr.At(url).SetStatus(2);
    RecordsIn(list)[0]->pre_status = 0;
  }
  Update(kNow, "today's signature");
  for (const char* url : {kA, kB}) {
    ASSERT_EQ(1U, mgr.At(url).sent().size());
    EXPECT_NE(std::string::npos, mgr.At(url).sent()[0].find("today's signature"));
    EXPECT_EQ(std::string::npos, mgr.At(url).sent()[0].find(kSignature))
        << "not the one of the construction";
  }
}

TEST_F(UpdateTest, NeitherConnectsNorSignsUpTheRemovingList) {
  AddProxy(removing, kA);
  AddProxy(removing, kB);
  mgr.At(kB).SetStatus(2);
  StartOver();
  Update(kNow);
  EXPECT_EQ(Texts({"JudgeUpdate"}), journal.Entries());
}

TEST_F(UpdateTest, TakesEmptyLists) {
  Update(kNow);
  Update(kNow + 100000);
  EXPECT_EQ(0U, RingSize());
  EXPECT_FALSE(peer->m_is_all_connected());
  EXPECT_TRUE(Said().empty());
}

TEST_F(UpdateTest, TakesRecordsWithoutAConnector) {
  router->SetHeartbeatInterval(1000);
  Ready(in_use, {kA, kB});
  Share(kB);
  Ready(preparing, {kC});
  Ready(removing, {kD});
  const std::vector<ProxyServer*> records = {ServerAt(in_use, kB), ServerAt(preparing, kC),
                                             ServerAt(removing, kD)};
  std::vector<OSTRNET::CConnector*> connectors;
  for (ProxyServer* record : records) {
    connectors.push_back(record->connector);
    record->connector = nullptr;
  }
  for (const int64_t now_ms : {kNow + 1001, kNow + 40000}) {
    ServerAt(in_use, kA)->last_recv_ms = now_ms;
    Update(now_ms);
  }
  EXPECT_EQ(2U, journal.EntriesWith("SendToQ").size()) << "to A alone";
  EXPECT_EQ(2U, mgr.At(kA).sent().size());
  EXPECT_EQ(200U, RingSize());
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing)) << "neither of them is signed up";
  for (size_t i = 0; i < records.size(); ++i) {
    records[i]->connector = connectors[i];
  }
}

// Whichever allocation fails, the next update finishes what this one began.
TEST_F(UpdateTest, LosesNothingWhenItRunsOutOfMemory) {
  router->SetHeartbeatInterval(1000);
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    Ready(in_use, {kA, kB});
    Share(kB);
    Ready(preparing, {kC});
    logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE);
    {
      OstrandFakes::AllocationFaults faults;
      faults.FailThrowing(failures + 1);
      Update(kNow + 1001);
      struck = faults.struck();
    }
    EXPECT_EQ(Texts(), Broken());
    EXPECT_FALSE(ListIsLocked());
    EXPECT_FALSE(RingIsLocked());

    Update(kNow + 1002);
    EXPECT_EQ(Texts({kB, kC}), UrlsIn(in_use));
    EXPECT_EQ(Texts({kA}), UrlsIn(removing));
    EXPECT_EQ(200U, RingSize());
    EXPECT_EQ(std::set<ProxyServer*>({ServerAt(in_use, kB), ServerAt(in_use, kC)}), OnRing());
    EXPECT_EQ(Texts(), Broken());

    for (List* list : {in_use, preparing, removing}) {
      peer->ReleaseServerList(list);
    }
    peer->m_virtual_node_count() = 0;
    peer->m_last_auth_succ_count() = 0;
    peer->m_last_send_heartbeat_time() = kNow;
  }
  EXPECT_LT(0, failures);
}

TEST_F(UpdateTest, TakesProxiesOutOfUseThoughItRunsOutOfMemory) {
  judge.should_check = true;
  const Texts urls = ManyUrls(5);
  judge.unavailable = {urls[1], urls[3]};
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    const std::vector<ProxyServer*> records = Ready(in_use, urls);
    peer->WriteHashCircle();
    peer->m_last_auth_succ_count() = 5;
    StartOver();
    statistics.m_isolateProxyCntMap.clear();  // Its first entry needs memory.
    {
      OstrandFakes::AllocationFaults faults;
      faults.FailThrowing(failures + 1);
      Update(kNow);
      struck = faults.struck();
    }
    EXPECT_FALSE(ListIsLocked());
    EXPECT_FALSE(RingIsLocked());
    Update(kNow + 1);
    for (size_t i = 0; i < records.size(); ++i) {
      EXPECT_EQ(i != 1 && i != 3, records[i]->is_available) << i;
    }
    EXPECT_EQ(0, RingWrites()) << "which is no matter of the ring";
    EXPECT_EQ(2, statistics.m_isolateProxyCntMap[kZoneId]);
    EXPECT_EQ(Texts(), Broken());
    peer->ReleaseServerList(in_use);
  }
  EXPECT_LT(0, failures);
}

TEST_F(UpdateTest, DoesTheSameWithoutALogger) {
  router->SetHeartbeatInterval(1000);
  Ready(in_use, {kA});
  AddProxy(in_use, kB);
  Ready(removing, {kC});
  ServerAt(removing, kC)->last_recv_ms = kNow - 60000;
  ASSERT_NE(0, router->Init(&mgr, Service(), nullptr)) << "refused, but it takes the logger away";
  StartOver();
  Update(kNow + 1001);
  EXPECT_EQ(200U, RingSize());
  const Texts kSteps = {std::string("Connect ") + kB, std::string("RemoveConnector ") + kC,
                        std::string("SendToQ ") + kA};
  Texts steps;
  for (const std::string& entry : journal.Entries()) {
    for (const std::string& step : kSteps) {
      if (entry == step) {
        steps.push_back(entry);
      }
    }
  }
  EXPECT_EQ(kSteps, steps);
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(Texts(), Broken());
}

}  // namespace
}  // namespace OstrandService
