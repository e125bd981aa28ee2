#include "client/service.h"

#include <sys/resource.h>

#include <cstring>
#include <thread>

#include "protocol/codec.h"
#include "unit/client/seconds_ahead.h"
#include "unit/client/service_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;       // NOLINT: the library under test
using namespace ostrand_protocol_cs;  // NOLINT: commands

// --- Ready ---

TEST_F(ServiceTest, IsReadyWhenEveryZoneIsSignedUp) {
  StartBoth();
  EXPECT_FALSE(m_service->IsReady());
  EXPECT_TRUE(BecomesReady());
  EXPECT_EQ(m_fleet->Counters(0).signed_up, 2u);
}

TEST_F(ServiceTest, IsNotReadyWhileAZoneHasNoProxyThatAnswers) {
  StartFleet();
  m_fleet->SetRoute(2, std::vector<std::string>{"tcp://127.0.0.1:1"});
  StartService();
  ASSERT_TRUE(UpdateUntil([&] {
    int64_t signed_up = 0;
    int64_t total = 0;
    return m_service->RouterOf(1)->CheckConnectAll(signed_up, total) != 0;
  }));
  ASSERT_TRUE(UpdateUntil([&] { return IsLogged("connect: Connection refused"); }));
  EXPECT_FALSE(m_service->IsReady());
  m_fleet->SetRoute(2, m_fleet->ProxyUrls());
  EXPECT_TRUE(BecomesReady());
}

TEST_F(ServiceTest, SignsUpWithASignature) {
  OstrandFleet::FleetOptions options;
  options.credentials = {{"a signature", "", ""}};
  StartFleet(options);
  StartService();
  EXPECT_TRUE(BecomesReady());
}

TEST_F(ServiceTest, SignsUpWithUserAndPassword) {
  OstrandFleet::FleetOptions options;
  options.credentials = {{"", "somebody", "0123456789abcdef"}};
  StartFleet(options);
  m_options.signature.clear();
  m_options.user_name = "somebody";
  m_options.password_encrypted = "0123456789abcdef";
  StartService();
  EXPECT_TRUE(BecomesReady());
}

TEST_F(ServiceTest, IsNotReadyWhileItsSignatureIsRefused) {
  OstrandFleet::FleetOptions options;
  options.credentials = {{"another signature", "", ""}};
  StartFleet(options);
  StartService();
  ASSERT_TRUE(UpdateUntil([&] { return m_service->auth_fail_code() != 0; }));
  EXPECT_FALSE(m_service->IsReady());
}

// --- What the directory sets ---

TEST_F(ServiceTest, GivesEachRouterTheHeartbeatsThatTheDirectorySetsForItsZone) {
  StartFleet();
  m_fleet->SetDirectoryEdit([](ostrand_protocol_dir::tagResGetTablesAndAccess& answer) {
    if (answer.iZoneID == 2) {
      answer.stConfData.iHeartbeatMs = 300;
      answer.stConfData.iCheckHeartbeatMs = 900;
    }
  });
  m_options.heartbeat_ms = 1111;
  m_options.check_heartbeat_ms = 22222;
  StartService();
  EXPECT_EQ(Peer(2).m_heartbeat_mseconds(), 1111u);
  ASSERT_TRUE(UpdateUntil([&] { return Peer(2).m_heartbeat_mseconds() == 300; }));
  EXPECT_EQ(Peer(2).m_check_heartbeat_mseconds(), 900u);
  EXPECT_EQ(Peer(1).m_heartbeat_mseconds(), 1111u);
  EXPECT_EQ(Peer(1).m_check_heartbeat_mseconds(), 22222u);

  m_fleet->SetDirectoryEdit(nullptr);
  EXPECT_TRUE(UpdateUntil([&] { return Peer(2).m_heartbeat_mseconds() == 1111; }));
  EXPECT_EQ(Peer(2).m_check_heartbeat_mseconds(), 22222u);
}

struct Heartbeats {
  const char* name;
  int32_t heartbeat_ms;  // as the directory says
  int32_t check_heartbeat_ms;
  uint32_t expected_heartbeat_ms;  // with options of 1000 and 30000
  uint32_t expected_check_ms;
  bool is_logged;
};

class ServiceHeartbeatsTest : public ServiceTest, public testing::WithParamInterface<Heartbeats> {};

TEST_P(ServiceHeartbeatsTest, KeepsItsOwnWhereTheDirectorysMakeNoSense) {
  StartFleet();
  ostrand_protocol_dir::tagConfData conf;
  std::memset(&conf, 0, sizeof(conf));
  conf.iHeartbeatMs = GetParam().heartbeat_ms;
  conf.iCheckHeartbeatMs = GetParam().check_heartbeat_ms;
  conf.iRecheckInterval = 4711;  // tells that they came: to zone 2, and before to zone 1
  m_fleet->SetConf(conf);
  StartService();
  ASSERT_TRUE(UpdateUntil(
      [&] { return Peer(2).m_judge_proxy()->GetRecheckAvailableInterval(kAppId, 2) == 4711; }));
  EXPECT_EQ(Peer(1).m_heartbeat_mseconds(), GetParam().expected_heartbeat_ms);
  EXPECT_EQ(Peer(1).m_check_heartbeat_mseconds(), GetParam().expected_check_ms);
  EXPECT_EQ(IsLogged("the directory's heartbeat settings cannot be used"), GetParam().is_logged);

  m_logger.Clear();
  const uint64_t rounds = m_fleet->CountersOfDirectory().requests;
  ASSERT_TRUE(UpdateUntil([&] { return m_fleet->CountersOfDirectory().requests >= rounds + 6; }));
  EXPECT_FALSE(IsLogged("settings cannot be used")) << "they are the same";
}

INSTANTIATE_TEST_SUITE_P(Settings, ServiceHeartbeatsTest,
                         testing::Values(Heartbeats{"None", 0, 0, 1000, 30000, false},
                                         Heartbeats{"Negative", -5, INT32_MIN, 1000, 30000, false},
                                         Heartbeats{"Both", 50, 70, 50, 70, false},
                                         Heartbeats{"OnlyOften", 50, 0, 50, 30000, false},
                                         Heartbeats{"OnlyCheck", 0, 2000, 1000, 2000, false},
                                         Heartbeats{"AsRareAsChecked", 50, 50, 1000, 30000, true},
                                         Heartbeats{"RarerThanChecked", 0, 999, 1000, 30000, true}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(ServiceTest, GivesTheJudgeWhatTheDirectorySets) {
  StartFleet();
  ostrand_protocol_dir::tagConfData conf;
  std::memset(&conf, 0, sizeof(conf));
  conf.iJudgeThreshold = 11;
  conf.iJudgeCheckPeriod = 12;
  conf.iJudgeCheckTimes = 13;
  conf.iRecheckInterval = 14;
  conf.iMaxRemoveRate = 15;
  m_fleet->SetConf(conf);
  StartService();
  const auto option = [&](int32_t zone) {
    return Peer(zone).m_judge_proxy()->GetProxyOption(kAppId, zone);
  };
  ASSERT_TRUE(UpdateUntil([&] { return option(1).threshold == 11 && option(2).threshold == 11; }));
  EXPECT_EQ(option(2).check_period, 12);
  EXPECT_EQ(option(2).check_times, 13);
  EXPECT_EQ(option(2).recheck_available_interval, 14);
  EXPECT_EQ(option(2).max_remove_rate, 15);

  std::memset(&conf, 0, sizeof(conf));
  conf.iJudgeThreshold = -1;
  m_fleet->SetConf(conf);
  ASSERT_TRUE(UpdateUntil([&] { return option(1).threshold == 100; }));
  EXPECT_EQ(option(1).check_period, 10);
  EXPECT_EQ(option(1).check_times, 3);
  EXPECT_EQ(option(1).recheck_available_interval, 60);
  EXPECT_EQ(option(1).max_remove_rate, 10);
}

// --- Each minute ---

class ServiceMinuteTest : public ServiceTest {
 protected:
  void UpdateAhead(time_t seconds) {
    const SecondsAhead ahead(seconds);
    m_service->Update();
  }

  bool HasZone(int zone) {
    const OstrandCommon::ScopedWriteLock lock(m_service->m_register_table_lock);
    return m_service->m_register_table.count(zone) != 0;
  }
};

TEST_F(ServiceMinuteTest, TellsTheErrorCodesAndForgetsThem) {
  OstrandFleet::FleetOptions options;
  options.tables.resize(1);  // so that the store has no table "user"
  options.tables[0].schema = Schema("item");
  StartFleet(options);
  StartService();
  ASSERT_TRUE(BecomesReady());
  ReadARecord();
  UpdateAhead(50);
  EXPECT_FALSE(IsLogged("ErrCode Statistics"));
  EXPECT_EQ(Peer(1).m_recvErrorCodeMap().size(), 1u);
  UpdateAhead(60);
  EXPECT_EQ(m_logger.Count(OstrandCommon::OSTRAND_LOG_LEVEL_CRIT,
                           "App 7 Zone 1 ErrCode Statistics(ErrCode-Num):\n\t-7185:1\n"),
            1);
  EXPECT_TRUE(Peer(1).m_recvErrorCodeMap().empty());
}

TEST_F(ServiceMinuteTest, RollsTheStatistics) {
  StartBoth();
  ASSERT_TRUE(BecomesReady());
  ReadARecord();
  auto* statistics = static_cast<StatisticMgr*>(Peer(1).m_statistic_mgr());
  const tagServiceApiStatistic* last = statistics->GetLastMinute(kAppId, 1);
  const auto* current = statistics->GetServiceApiStatistic(kAppId, 1);
  UpdateAhead(50);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 0u);
  EXPECT_EQ(current->stOverallRunStatus.dwReqSucNumPerMin, 1u);
  UpdateAhead(60);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 1u);
  EXPECT_EQ(current->stOverallRunStatus.dwReqSucNumPerMin, 0u);
  UpdateAhead(110);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 1u) << "the next minute is not over";
  UpdateAhead(120);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 0u);
}

TEST_F(ServiceMinuteTest, RemovesZonesWithoutTablesFromTheTableMap) {
  StartBoth();
  m_service->Update();
  {
    const OstrandCommon::ScopedWriteLock lock(m_service->m_register_table_lock);
    m_service->m_register_table[-1];
    m_service->m_register_table[99];
  }
  UpdateAhead(50);
  EXPECT_TRUE(HasZone(99));
  UpdateAhead(60);
  EXPECT_FALSE(HasZone(-1));
  EXPECT_FALSE(HasZone(99));
  EXPECT_TRUE(HasZone(1));
  EXPECT_TRUE(HasZone(2));
}

// --- Reports ---

TEST_F(ServiceTest, GivesAnAlarmCodeToEveryRouter) {
  StartBoth();
  std::thread other([&] { m_service->SetDirAlarmErrorCode(-77); });
  m_service->SetDirAlarmErrorCode(-78);
  other.join();
  for (const int32_t zone : {1, 2}) {
    EXPECT_EQ(Peer(zone).m_alarmErrorCode(), (std::set<int32_t>{-78, -77})) << zone;
  }
}

TEST_F(ServiceTest, TellsTheProxiesOfEveryZoneAnAlarmCode) {
  StartBoth();
  m_service->SetDirAlarmErrorCode(-77);
  const auto told = [&](int32_t zone) {
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.cmd == OSTRAND_API_HEART_BEAT_REQ && request.zone == zone &&
          request.user_buffer.find("AlarmCode=-77;") == 0) {
        return true;
      }
    }
    return false;
  };
  EXPECT_TRUE(UpdateUntil([&] { return told(1) && told(2); }));
}

TEST_F(ServiceTest, KeepsTheLineThatTellsOfTheRing) {
  StartBoth();
  EXPECT_NE(m_service->StatusText().find("zone 1\n\tin_flight:0\n\tring:\n"), std::string::npos);
  ASSERT_TRUE(BecomesReady());
  ASSERT_TRUE(
      UpdateUntil([&] { return m_service->StatusText().find("\tring:\n") == std::string::npos; }));

  std::string line = "a line of zone 2";
  EXPECT_EQ(m_service->ReportDirHashCircleStat(2, line), 0);
  std::string other = "another, of zone 9";
  EXPECT_EQ(m_service->ReportDirHashCircleStat(9, other), 0);
  const std::string text = m_service->StatusText();
  EXPECT_NE(text.find("zone 2\n\tin_flight:0\n\tring:a line of zone 2\n"), std::string::npos);
  EXPECT_EQ(text.find("another"), std::string::npos);
}

// --- What it owns ---

TEST_F(ServiceTest, KnowsItsTablesByZoneAndName) {
  const VexMeta schema = Schema("item", 17);
  m_options.tables.push_back({"user", 2, nullptr});
  m_options.tables.push_back({"item", 2, &schema});
  StartService();
  const int32_t user = m_service->FindTable(1, "user");
  EXPECT_GE(user, 0);
  EXPECT_GE(m_service->FindTable(2, "user"), 0);
  EXPECT_EQ(m_service->FindTable(1, "order"), -1);
  EXPECT_EQ(m_service->FindTable(3, "user"), -1);
  EXPECT_STREQ(m_service->TableName(1, user), "user");
  EXPECT_STREQ(m_service->TableName(2, m_service->FindTable(2, "item")), "item");
  EXPECT_STREQ(m_service->TableName(1, 4711), "");

  EXPECT_EQ(m_service->GetTableMetaVersion(2, "item"), 17);
  EXPECT_EQ(m_service->GetTableMetaVersion(1, "item"), -1);
  EXPECT_EQ(m_service->GetTableMetaVersion(1, "user"), -1) << "it has no schema";
  EXPECT_EQ(m_service->GetTableMetaVersion(1, nullptr), -1);

  EXPECT_EQ(m_service->RouterOf(3), nullptr);
  EXPECT_EQ(m_service->ZoneCount(), 2u);
  EXPECT_EQ(&m_service->RouterAt(1), m_service->RouterOf(2));
}

TEST_F(ServiceTest, LendsTheSameScratchEachTime) {
  StartService();
  char* buffer = nullptr;
  size_t size = 0;
  OStrandPkg* pkg = nullptr;
  m_service->NetThreadGetBufPkg(buffer, size, pkg);
  ASSERT_NE(buffer, nullptr);
  ASSERT_NE(pkg, nullptr);
  EXPECT_EQ(size, 65536u);
  std::memset(buffer, 0, size);
  char* again = nullptr;
  OStrandPkg* pkg_again = nullptr;
  m_service->NetThreadGetBufPkg(again, size, pkg_again);
  EXPECT_EQ(again, buffer);
  EXPECT_EQ(pkg_again, pkg);
}

TEST_F(ServiceTest, PacksTheLargestRequest) {
  StartService();
  char* buffer = nullptr;
  int32_t size = 0;
  m_service->RouterOf(1)->GetCombineBuf(buffer, size);
  ASSERT_NE(buffer, nullptr);
  EXPECT_GE(static_cast<size_t>(size), OSTRAND_MAX_REQ_FRAME_LEN);
}

TEST_F(ServiceTest, LeavesUserBuffersOnTheirWayUnlessToldToKeepThem) {
  StartService();
  EXPECT_EQ(m_service->m_local_buffer, nullptr);
  m_options.keep_user_buffers = true;
  StartService();
  EXPECT_NE(m_service->m_local_buffer, nullptr);
}

TEST_F(ServiceTest, GivesItsOptionsToEachRouter) {
  m_options.perf_sample_percent = 33;
  m_options.default_timeout_ms = 4321;
  StartService();
  for (const int32_t zone : {1, 2}) {
    EXPECT_EQ(Peer(zone).m_perfPercent(), 33) << zone;
    EXPECT_EQ(Peer(zone).m_sync_timeout(), 4321u) << zone;
    EXPECT_EQ(m_service->RouterOf(zone)->GetAppId(), kAppId);
    EXPECT_EQ(m_service->RouterOf(zone)->GetZoneId(), zone);
    EXPECT_EQ(m_service->RouterOf(zone)->GetLogger(), &m_logger);
  }
}

// --- The end ---

// The routers would count in them otherwise, and they die first.
TEST_F(ServiceTest, TakesItsQosRecordsBackBeforeTheyDie) {
  m_options.tables.push_back({"item", 2, nullptr});
  StartBoth();
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(Peer(1).m_table_qos_count(), 1);
  EXPECT_EQ(Peer(2).m_table_qos_count(), 2);
  EXPECT_GE(Peer(2).FindTableQos(2, "item"), 0);
  std::vector<std::string> taken;
  m_logger.OnLine([&](const OstrandFakes::LogLine& line) {
    if (line.function == "RemoveTableQos" && line.text.find("delete index") == 0) {
      taken.push_back(line.text.substr(line.text.find("zone_id")));
    }
  });
  m_service->Stop();
  m_logger.OnLine({});
  EXPECT_EQ(taken, (std::vector<std::string>{"zone_id:1 table_name:user table count:0",
                                             "zone_id:2 table_name:order table count:1",
                                             "zone_id:2 table_name:item table count:0"}));
}

TEST_F(ServiceTest, StopsWithoutAStartAndMoreThanOnce) {
  m_service = std::make_unique<Service>(m_options);
  m_service->Stop();
  StartService();
  m_service->Stop();
  m_service->Stop();
  EXPECT_EQ(m_service->ZoneCount(), 0u);
  EXPECT_EQ(m_service->RouterOf(1), nullptr);
}

TEST_F(ServiceTest, ClosesItsConnectionsWhenItStops) {
  StartBoth();
  ASSERT_TRUE(BecomesReady());
  m_service->Stop();
  EXPECT_TRUE(
      m_fleet->WaitFor(kPatienceMs, [&] { return m_fleet->Counters(0).connections_open == 0; }));
}

TEST_F(ServiceTest, DoesNotStartWithoutDescriptors) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 3;
  Service service(m_options);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int ret = service.Start();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(ret, ROUTER_ERR_FAILED);
  EXPECT_TRUE(IsLogged("no network thread: out of threads or descriptors"));
  service.Stop();
}

}  // namespace
}  // namespace OstrandTests
