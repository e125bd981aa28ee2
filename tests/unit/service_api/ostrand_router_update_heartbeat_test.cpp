// The heartbeat pass of the periodic update: its period, its steps, and whom it reaches.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "service_api/service_api_statistic.h"
#include "service_api/table_qos.h"
#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::LogLine;

class HeartbeatPassTest : public RouterUpdateTest {
 protected:
  HeartbeatPassTest() { router->SetHeartbeatInterval(1000); }

  // Urls of the proxies that were sent something, in order.
  Texts SentTo() {
    Texts urls;
    for (const std::string& entry : journal.EntriesWith("SendToQ ")) {
      urls.push_back(entry.substr(8));
    }
    return urls;
  }
  Texts Disconnected() {
    Texts urls;
    for (const std::string& entry : journal.EntriesWith("Disconnect ")) {
      urls.push_back(entry.substr(11));
    }
    return urls;
  }
};

// --- Its period ---

TEST_F(HeartbeatPassTest, RunsWhenMoreThanThePeriodHasPassed) {
  const struct {
    uint32_t period;
    int64_t passed;
    bool runs;
  } kCases[] = {{1000, 0, false},
                {1000, 1000, false},
                {1000, 1001, true},
                {1000, 5000, true},
                {1000, -5000, false},
                {0, 0, false},
                {0, 1, true},
                {10, 11, true},
                {10, 10, false},
                {0xFFFFFFFF, 0xFFFFFFFF, false},
                {0xFFFFFFFF, 0x100000000, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.passed << " of " << c.period);
    router->SetHeartbeatInterval(c.period);
    router->SetCheckHeartbeatInterval(kNever);
    peer->m_last_send_heartbeat_time() = kNow;
    Ready(in_use, {kA});
    ServerAt(in_use, kA)->last_recv_ms = kNow + c.passed;
    Update(kNow + c.passed);
    EXPECT_EQ(c.runs ? Texts({kA}) : Texts(), SentTo());
    EXPECT_EQ(c.runs ? kNow + c.passed : kNow, peer->m_last_send_heartbeat_time());
    peer->ReleaseServerList(in_use);
  }
}

TEST_F(HeartbeatPassTest, RunsOnceAPeriod) {
  Ready(in_use, {kA});
  for (int64_t now_ms = kNow; now_ms <= kNow + 4004; now_ms += 91) {
    Update(now_ms);
  }
  EXPECT_EQ(4U, SentTo().size()) << "every 1001 ms";
}

// --- The first one ---

TEST_F(HeartbeatPassTest, MeasuresEverybodysSilenceFromTheFirstPass) {
  peer->m_last_send_heartbeat_time() = 0;
  Ready(in_use, {kA});
  Ready(removing, {kC});
  Waiting(preparing, {kB}, kNow);
  for (List* list : {in_use, preparing, removing}) {
    RecordsIn(list)[0]->last_recv_ms = kNow - 50000;
  }
  ServerAt(preparing, kB)->last_auth_result = 1;
  ServerAt(preparing, kB)->auth_succeed = true;
  Update(kNow);
  EXPECT_EQ(Texts(), Disconnected());
  for (List* list : {in_use, preparing, removing}) {
    EXPECT_EQ(kNow, RecordsIn(list)[0]->last_recv_ms);
  }
  EXPECT_EQ(kNow, peer->m_last_send_heartbeat_time());
  EXPECT_EQ(Texts({kA, kB}), SentTo()) << "and heartbeats go out";
}

TEST_F(HeartbeatPassTest, TakesElementsWithoutARecord) {
  for (List* list : {in_use, preparing, removing}) {
    AppendNode(list, kA, nullptr);
  }
  for (const int64_t last : {int64_t{0}, kNow - 5000}) {
    peer->m_last_send_heartbeat_time() = last;
    Update(kNow);
    EXPECT_EQ(kNow, peer->m_last_send_heartbeat_time());
  }
}

TEST_F(HeartbeatPassTest, WaitsUntilTheCallersClockIsPastOnePeriod) {
  peer->m_last_send_heartbeat_time() = 0;
  Ready(in_use, {kA});
  ServerAt(in_use, kA)->last_recv_ms = 500;
  router->OnUpdate(1000, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(Texts(), SentTo());
  EXPECT_EQ(0, peer->m_last_send_heartbeat_time());
  EXPECT_EQ(500, ServerAt(in_use, kA)->last_recv_ms);
  router->OnUpdate(1001, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(Texts({kA}), SentTo());
  EXPECT_EQ(1001, ServerAt(in_use, kA)->last_recv_ms);
}

// --- The later ones ---

TEST_F(HeartbeatPassTest, DropsTheSilentOfAllListsInTheirOrder) {
  Ready(in_use, {kA, kB});
  Ready(removing, {kE, kF});
  const int64_t now_ms = kNow + 30000;
  Waiting(preparing, {kC, kD}, now_ms);
  for (const char* url : {kC, kD}) {
    ServerAt(preparing, url)->auth_succeed = true;
    ServerAt(preparing, url)->last_auth_result = 1;
  }
  ServerAt(preparing, kD)->last_recv_ms = kNow;
  ServerAt(in_use, kA)->last_recv_ms = now_ms - 29999;
  ServerAt(removing, kF)->last_recv_ms = now_ms - 29999;
  Update(now_ms);
  EXPECT_EQ(Texts({kB, kD, kE}), Disconnected());
  EXPECT_EQ(Texts({kA, kC}), SentTo()) << "of those that are still connected";
  EXPECT_EQ(now_ms, ServerAt(removing, kE)->last_recv_ms);
}

TEST_F(HeartbeatPassTest, SendsTheRemovingListNone) {
  Ready(in_use, {kA});
  Ready(removing, {kB});
  Update(kNow + 1001);
  EXPECT_EQ(Texts({kA}), SentTo());
  EXPECT_EQ(1U, mgr.At(kA).sent().size());
  EXPECT_EQ(0U, mgr.At(kB).sent().size());
}

TEST_F(HeartbeatPassTest, SendsAProxyThatIsInUseAndPreparedTwo) {
  Ready(in_use, {kA});
  Share(kA);
  Waiting(preparing, {kB}, kNow + 1001);
  ServerAt(in_use, kA)->last_auth_result = 1;  // No switch.
  Update(kNow + 1001);
  EXPECT_EQ(Texts({kA, kA}), SentTo());

  StartOver();
  Update(kNow + 40000);
  EXPECT_EQ(Texts({kA}), Disconnected()) << "but drops it once";
}

// --- What it counts ---

class HeartbeatCountsTest : public HeartbeatPassTest {
 protected:
  HeartbeatCountsTest() : qos{MakeQos("first"), MakeQos("second")} {}

  static tagTableQos MakeQos(const char* name) {
    tagTableQos made = {};
    std::snprintf(made.szTableName, sizeof(made.szTableName), "%s", name);
    made.iZoneID = kZoneId;
    made.nAccessCount = -7;
    return made;
  }
  int16_t AccessCount(int slot) const { return qos[slot].nAccessCount; }

  tagTableQos qos[2];
};

TEST_F(HeartbeatCountsTest, TellsTheFirstTableHowManyProxiesCanTakeRequests) {
  router->SetQos(&qos[0]);
  router->SetQos(&qos[1]);
  Ready(in_use, {kA, kB, kC});
  ServerAt(in_use, kC)->is_available = false;
  Ready(removing, {kD});
  Update(kNow + 1000);
  EXPECT_EQ(-7, AccessCount(0)) << "not yet";
  Update(kNow + 1001);
  EXPECT_EQ(2, AccessCount(0));
  EXPECT_EQ(-7, AccessCount(1)) << "the first alone";
}

TEST_F(HeartbeatCountsTest, TellsWhicheverTableHasTheFirstSlotByThen) {
  router->SetQos(&qos[0]);
  router->SetQos(&qos[1]);
  Ready(in_use, {kA, kB});
  ASSERT_EQ(0, router->RemoveTableQos(kZoneId, "first"));
  Update(kNow + 1001);
  EXPECT_EQ(-7, AccessCount(0)) << "it is gone";
  EXPECT_EQ(2, AccessCount(1)) << "which moved into its place";

  qos[1].nAccessCount = -7;
  ASSERT_EQ(0, router->RemoveTableQos(kZoneId, "second"));
  ASSERT_EQ(nullptr, peer->m_table_qos()[0]);
  StartOver();
  Update(kNow + 2002);
  EXPECT_EQ(-7, AccessCount(1));
  EXPECT_EQ(Texts({kA, kB}), SentTo()) << "with nobody to tell";

  router->SetQos(&qos[0]);
  Update(kNow + 3003);
  EXPECT_EQ(2, AccessCount(0));
}

TEST_F(HeartbeatCountsTest, TellsTheStatistics) {
  tagServiceApiStatistic& record = statistics.Register(kAppId, kZoneId);
  record.stOverallRunStatus.dwApiConnectOstrroxyCount = 99;
  Ready(in_use, {kA, kB, kC});
  ServerAt(in_use, kC)->is_available = false;
  Update(kNow + 1000);
  EXPECT_EQ(99U, record.stOverallRunStatus.dwApiConnectOstrroxyCount);
  Update(kNow + 1001);
  EXPECT_EQ(2U, record.stOverallRunStatus.dwApiConnectOstrroxyCount);
}

TEST_F(HeartbeatCountsTest, DoesWithoutTablesAndStatistics) {
  Ready(in_use, {kA});
  Update(kNow + 1001);
  EXPECT_EQ(Texts({kA}), SentTo());
}

TEST_F(HeartbeatCountsTest, CountsForTheTableBeforeItDropsTheSilentAndForTheStatisticsAfter) {
  tagServiceApiStatistic& record = statistics.Register(kAppId, kZoneId);
  router->SetQos(&qos[0]);
  Ready(in_use, {kA, kB});
  ServerAt(in_use, kB)->last_recv_ms = kNow - 40000;
  struct Seen {
    std::string text;
    int access_count;
    uint32_t connected;
    int64_t last_send;
    bool operator==(const Seen& other) const {
      return text == other.text && access_count == other.access_count &&
             connected == other.connected && last_send == other.last_send;
    }
  };
  std::vector<Seen> seen;
  const auto note = [&](const std::string& what) {
    seen.push_back({what, AccessCount(0), record.stOverallRunStatus.dwApiConnectOstrroxyCount,
                    peer->m_last_send_heartbeat_time()});
  };
  logger.OnLine([&](const LogLine& line) {
    if (line.text.compare(0, 20, "disconnect the proxy") == 0) {
      note("drop");
    }
    if (line.function == "SendHeartBeatToList") {
      note("heartbeat");
    }
  });
  Update(kNow + 1001);
  const std::vector<Seen> kExpected = {{"drop", 2, 0, kNow}, {"heartbeat", 2, 1, kNow + 1001}};
  EXPECT_TRUE(kExpected == seen);
  EXPECT_EQ(2, AccessCount(0));
  EXPECT_EQ(1U, record.stOverallRunStatus.dwApiConnectOstrroxyCount);
}

// --- Every update ---

TEST_F(HeartbeatPassTest, IsFollowedByTheLatencyReportWhichRunsWithoutItToo) {
  ProxyServer* const record = Ready(in_use, {kA})[0];
  for (const int64_t passed : {1001, 1}) {
    record->m_heartbeat_num = 1;
    record->m_total_heartbeat_latency = 200000;
    record->m_max_heartbeat_latency = 200000;
    record->m_heartbeat_latency_large_num = 1;
    peer->m_last_check_time() = static_cast<time_t>(kNow / 1000 - 60);
    peer->m_last_send_heartbeat_time() = kNow;
    StartOver();
    Update(kNow + passed);
    EXPECT_EQ(passed == 1001 ? 1U : 0U, SentTo().size());
    ASSERT_FALSE(logger.Lines().empty());
    EXPECT_EQ("CheckHeartbeatLatency", logger.Lines().back().function) << "the last step";
    EXPECT_EQ(0, record->m_heartbeat_num);
  }
}

}  // namespace
}  // namespace OstrandService
