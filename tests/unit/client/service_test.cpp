// What the service does with what the directory sets, with heartbeats, pauses and its minute.
#include "client/service.h"

#include <cstring>

#include "protocol/codec.h"
#include "service_api/ostrand_router.h"
#include "unit/client/client_core_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

class ServiceTest : public ClientCoreTest {
 protected:
  ServiceTest() {
    m_options.zones = {1, 2};
    m_options.tables = {{"user", 1, nullptr}, {"order", 2, nullptr}};
    m_options.directory_refresh_ms = 20;
  }

  Service& TheService() { return m_core->GetService(); }
  // Lets time pass, as much as it takes.
  bool PassUntil(const std::function<bool()>& condition) {
    for (int i = 0; i < 1000; ++i) {
      if (condition()) return true;
      Pass(20);
    }
    return false;
  }
};

// --- Ready ---

TEST_F(ServiceTest, IsReadyWhenEveryZoneIsSignedUp) {
  StartFleet(1);
  StartCore();
  EXPECT_FALSE(TheService().IsReady());
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(m_fleet->Counters(0).signed_up, 2u);
}

TEST_F(ServiceTest, IsNotReadyWhileAZoneHasNoProxyThatAnswers) {
  StartFleet(1);
  m_fleet->SetRoute(2, std::vector<std::string>{"tcp://127.0.0.1:1"});
  StartCore();
  ASSERT_TRUE(PassUntil([&] { return IsLogged("connect: Connection refused"); }));
  ASSERT_TRUE(PassUntil([&] { return TheService().CanRoute(ZoneOne()); }));
  EXPECT_FALSE(TheService().IsReady());
  m_fleet->SetRoute(2, m_fleet->ProxyUrls());
  EXPECT_TRUE(PassUntil([&] { return TheService().IsReady(); }));
}

TEST_F(ServiceTest, SignsUpWithUserAndPassword) {
  OstrandFleet::FleetOptions options;
  options.credentials = {{"", "somebody", "0123456789abcdef"}};
  StartFleet(options);
  m_options.signature.clear();
  m_options.user_name = "somebody";
  m_options.password_encrypted = "0123456789abcdef";
  StartCore();
  EXPECT_TRUE(BecomesReady());
}

TEST_F(ServiceTest, IsNotReadyWhileItsSignatureIsRefused) {
  OstrandFleet::FleetOptions options;
  options.credentials = {{"another signature", "", ""}};
  StartFleet(options);
  StartCore();
  ASSERT_TRUE(RoundUntil([&] { return TheService().auth_fail_code() != 0; }));
  EXPECT_FALSE(TheService().IsReady());
}

// --- Heartbeats ---

TEST_F(ServiceTest, BeginsHeartbeatsAfterAShareOfTheirPeriodAtRandom) {
  m_options.zones = {1};
  m_options.tables.resize(1);
  m_options.heartbeat_ms = 1000;
  m_system.ScriptRandom({299});
  StartFleet(1);
  StartCore();
  EXPECT_EQ(ZoneOne().first_period_ms, 300u);
  ASSERT_TRUE(BecomesReady());
  std::vector<int64_t> at_ms;
  const int64_t began_ms = m_system.NowMs();
  for (int ms = 0; ms < 3500; ms += 10) {
    const uint64_t before = ZoneOne().heartbeats;
    Pass(10);
    if (ZoneOne().heartbeats != before) {
      at_ms.push_back(m_system.NowMs() - began_ms);
    }
  }
  // The router beats when more than the period has passed.
  EXPECT_EQ(at_ms, (std::vector<int64_t>{310, 1320, 2330, 3340}));
}

TEST_F(ServiceTest, ForgivesTheSilenceOfItsOwnersPauseOnce) {
  m_options.check_heartbeat_ms = 3000;
  StartBoth();
  const auto check_ms = [&] { return Peer().m_check_heartbeat_mseconds(); };
  EXPECT_EQ(check_ms(), 3000u);
  TheService().OnOwnerPaused(60000);
  EXPECT_EQ(check_ms(), 63000u);
  Pass(2900);
  EXPECT_EQ(check_ms(), 63000u) << "until every proxy had the whole time again";
  Pass(1100);
  EXPECT_EQ(check_ms(), 3000u);
}

TEST_F(ServiceTest, AddsUpPausesThatFollowEachOther) {
  m_options.check_heartbeat_ms = 3000;
  StartBoth();
  TheService().OnOwnerPaused(10000);
  Pass(1000);
  TheService().OnOwnerPaused(20000);
  EXPECT_EQ(Peer().m_check_heartbeat_mseconds(), 33000u);
}

TEST_F(ServiceTest, KeepsItsConnectionsThroughAPauseOfItsOwner) {
  m_options.check_heartbeat_ms = 3000;
  StartBoth();
  const uint64_t accepted = m_fleet->Counters(0).connections_accepted;
  m_system.AdvanceMs(3600000);
  m_core->LookAfterOwner();
  Pass(2500);
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, accepted);
  EXPECT_TRUE(TheService().CanRoute(ZoneOne()));
}

TEST_F(ServiceTest, LeavesAProxyThatIsSilentWhileItIsDriven) {
  m_options.check_heartbeat_ms = 3000;
  StartBoth();
  SetFaults(0, [](auto& faults) { faults.ignore_heartbeats = true; });
  Pass(6000);
  EXPECT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).connections_accepted > 2; }));
}

// --- What the directory sets ---

TEST_F(ServiceTest, GivesEachRouterTheHeartbeatsThatTheDirectorySetsForItsZone) {
  StartFleet(1);
  m_fleet->SetDirectoryEdit([](ostrand_protocol_dir::tagResGetTablesAndAccess& answer) {
    if (answer.iZoneID == 2) {
      answer.stConfData.iHeartbeatMs = 300;
      answer.stConfData.iCheckHeartbeatMs = 900;
    }
  });
  m_options.heartbeat_ms = 1111;
  m_options.check_heartbeat_ms = 22222;
  StartCore();
  EXPECT_EQ(TheService().ZoneAt(1).heartbeat_ms, 1111u);
  ASSERT_TRUE(PassUntil([&] { return TheService().ZoneAt(1).heartbeat_ms == 300; }));
  EXPECT_EQ(Peer(1).m_check_heartbeat_mseconds(), 900u);
  EXPECT_EQ(ZoneOne().heartbeat_ms, 1111u);
  EXPECT_EQ(Peer(0).m_check_heartbeat_mseconds(), 22222u);
  EXPECT_TRUE(PassUntil([&] { return Peer(1).m_heartbeat_mseconds() == 300; }))
      << "after the first one, whose period is another";

  m_fleet->SetDirectoryEdit(nullptr);
  EXPECT_TRUE(PassUntil([&] { return Peer(1).m_heartbeat_mseconds() == 1111; }));
  EXPECT_EQ(Peer(1).m_check_heartbeat_mseconds(), 22222u);
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
  StartFleet(1);
  ostrand_protocol_dir::tagConfData conf;
  std::memset(&conf, 0, sizeof(conf));
  conf.iHeartbeatMs = GetParam().heartbeat_ms;
  conf.iCheckHeartbeatMs = GetParam().check_heartbeat_ms;
  conf.iRecheckInterval = 4711;  // tells that they came: to zone 2, and before to zone 1
  m_fleet->SetConf(conf);
  StartCore();
  ASSERT_TRUE(PassUntil(
      [&] { return Peer(1).m_judge_proxy()->GetRecheckAvailableInterval(kAppId, 2) == 4711; }));
  EXPECT_EQ(ZoneOne().heartbeat_ms, GetParam().expected_heartbeat_ms);
  EXPECT_EQ(Peer().m_check_heartbeat_mseconds(), GetParam().expected_check_ms);
  EXPECT_EQ(IsLogged("the directory's heartbeat settings cannot be used"), GetParam().is_logged);

  m_logger.Clear();
  const uint64_t rounds = m_fleet->CountersOfDirectory().requests;
  ASSERT_TRUE(PassUntil([&] { return m_fleet->CountersOfDirectory().requests >= rounds + 6; }));
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
  StartFleet(1);
  ostrand_protocol_dir::tagConfData conf;
  std::memset(&conf, 0, sizeof(conf));
  conf.iJudgeThreshold = 11;
  conf.iJudgeCheckPeriod = 12;
  conf.iJudgeCheckTimes = 13;
  conf.iRecheckInterval = 14;
  conf.iMaxRemoveRate = 15;
  m_fleet->SetConf(conf);
  StartCore();
  const auto option = [&](int32_t zone) {
    return Peer().m_judge_proxy()->GetProxyOption(kAppId, zone);
  };
  ASSERT_TRUE(PassUntil([&] { return option(1).threshold == 11 && option(2).threshold == 11; }));
  EXPECT_EQ(option(2).check_period, 12);
  EXPECT_EQ(option(2).check_times, 13);
  EXPECT_EQ(option(2).recheck_available_interval, 14);
  EXPECT_EQ(option(2).max_remove_rate, 15);

  std::memset(&conf, 0, sizeof(conf));
  conf.iJudgeThreshold = -1;
  m_fleet->SetConf(conf);
  ASSERT_TRUE(PassUntil([&] { return option(1).threshold == 100; }));
  EXPECT_EQ(option(1).check_period, 10);
  EXPECT_EQ(option(1).check_times, 3);
  EXPECT_EQ(option(1).recheck_available_interval, 60);
  EXPECT_EQ(option(1).max_remove_rate, 10);
}

// --- The last error ---

TEST_F(ServiceTest, TellsThatNoDirectoryAnswersUntilOneDoes) {
  StartFleet(1);
  ASSERT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kAbsent), 0);
  StartCore();
  int32_t code = 0;
  std::string text;
  const auto last = [&] {
    TheService().GetLastError(code, text);
    return code;
  };
  ASSERT_TRUE(PassUntil([&] { return last() == CLIENT_ERR_DIRECTORY; }));
  EXPECT_NE(text.find("directory " + m_fleet->DirectoryUrl() + ": "), std::string::npos) << text;
  ASSERT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kNone), 0);
  EXPECT_TRUE(PassUntil([&] { return last() == 0; }));
  EXPECT_EQ(text, "");
}

TEST_F(ServiceTest, KeepsAnotherErrorWhenADirectoryAnswers) {
  StartBoth();
  TheService().SetLastError(-4711, "something else");
  const uint64_t answers = m_fleet->CountersOfDirectory().answers;
  ASSERT_TRUE(PassUntil([&] { return m_fleet->CountersOfDirectory().answers >= answers + 4; }));
  int32_t code = 0;
  std::string text;
  TheService().GetLastError(code, text);
  EXPECT_EQ(code, -4711);
}

// --- Each minute ---

TEST_F(ServiceTest, RollsTheStatisticsAndTellsTheErrorCodesEachMinute) {
  OstrandFleet::FleetOptions options;
  options.tables.resize(1);  // so that the store has no table "user"
  options.tables[0].schema.name = "item";
  options.tables[0].schema.key_fields = {{"id", VexFieldType::kString, 32, 0}};
  options.tables[0].schema.value_fields = {{"name", VexFieldType::kString, 64, 0}};
  StartFleet(options);
  StartCore();
  ASSERT_TRUE(BecomesReady());
  ASSERT_EQ(Send(GetRequest()), 0);
  ASSERT_TRUE(TakeLater());
  auto* const statistics = static_cast<StatisticMgr*>(Peer().m_statistic_mgr());
  const auto* const last = statistics->GetLastMinute(kAppId, 1);
  EXPECT_EQ(Peer().m_recvErrorCodeMap().size(), 1u);
  Pass(50000, 900);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 0u);
  EXPECT_FALSE(IsLogged("ErrCode Statistics"));
  Pass(12000, 900);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 1u);
  EXPECT_TRUE(IsLogged("App 7 Zone 1 ErrCode Statistics(ErrCode-Num):\n\t-7185:1\n"));
  EXPECT_TRUE(Peer().m_recvErrorCodeMap().empty());
  Pass(63000, 900);
  EXPECT_EQ(last->stOverallRunStatus.dwReqSucNumPerMin, 0u);
}

TEST_F(ServiceTest, RemovesZonesWithoutTablesFromTheTableMapEachMinute) {
  StartBoth();
  const auto has_zone = [&](int zone) {
    const OstrandCommon::ScopedWriteLock lock(TheService().m_register_table_lock);
    return TheService().m_register_table.count(zone) != 0;
  };
  {
    const OstrandCommon::ScopedWriteLock lock(TheService().m_register_table_lock);
    TheService().m_register_table[-1];
    TheService().m_register_table[99];
  }
  Pass(50000, 900);
  EXPECT_TRUE(has_zone(99));
  Pass(12000, 900);
  EXPECT_FALSE(has_zone(-1));
  EXPECT_FALSE(has_zone(99));
  EXPECT_TRUE(has_zone(1));
  EXPECT_TRUE(has_zone(2));
}

// --- Reports ---

TEST_F(ServiceTest, TellsTheProxiesOfEveryZoneAnAlarmCode) {
  StartBoth();
  TheService().SetDirAlarmErrorCode(-77);
  const auto told = [&](int32_t zone) {
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.cmd == ostrand_protocol_cs::OSTRAND_API_HEART_BEAT_REQ && request.zone == zone &&
          request.user_buffer.find("AlarmCode=-77;") == 0) {
        return true;
      }
    }
    return false;
  };
  EXPECT_TRUE(PassUntil([&] { return told(1) && told(2); }));
}

TEST_F(ServiceTest, KeepsTheLineThatTellsOfTheRing) {
  StartFleet(1);
  StartCore();
  const auto text = [&] { return TheService().StatusText(); };
  EXPECT_NE(text().find("zone 1\n\tin_flight:0\n\twaiting:0\n\tring:\n"), std::string::npos);
  ASSERT_TRUE(BecomesReady());
  ASSERT_TRUE(RoundUntil([&] { return text().find("\tring:\n") == std::string::npos; }));
  std::string line = "a line of zone 2";
  EXPECT_EQ(TheService().ReportDirHashCircleStat(2, line), 0);
  std::string other = "another, of zone 9";
  EXPECT_EQ(TheService().ReportDirHashCircleStat(9, other), 0);
  EXPECT_NE(text().find("\tring:a line of zone 2\n"), std::string::npos);
  EXPECT_EQ(text().find("another"), std::string::npos);
}

// --- What it owns ---

TEST_F(ServiceTest, KnowsItsTables) {
  VexMeta schema;
  schema.name = "item";
  schema.version = 17;
  schema.key_fields = {{"id", VexFieldType::kString, 32, 0}};
  schema.value_fields = {{"name", VexFieldType::kString, 64, 0}};
  m_options.tables.push_back({"user", 2, nullptr});
  m_options.tables.push_back({"item", 2, &schema});
  StartCore();
  EXPECT_EQ(TheService().TableAt(0).name, "user");
  EXPECT_EQ(TheService().TableAt(0).zone, 0);
  EXPECT_EQ(TheService().TableAt(2).name, "user");
  EXPECT_EQ(TheService().TableAt(2).zone, 1);
  EXPECT_GE(TheService().TableAt(3).subscript, 0);
  EXPECT_EQ(TheService().GetTableMetaVersion(2, "item"), 17);
  EXPECT_EQ(TheService().GetTableMetaVersion(1, "item"), -1);
  EXPECT_EQ(TheService().GetTableMetaVersion(1, "user"), -1) << "it has no schema";
  EXPECT_EQ(TheService().GetTableMetaVersion(1, nullptr), -1);
  EXPECT_EQ(TheService().FindZone(3), nullptr);
  EXPECT_EQ(TheService().ZoneCount(), 2u);
  m_scope.reset();
  m_core.reset();  // before the schema
}

TEST_F(ServiceTest, LendsTheSameScratchEachTimeAndPacksTheLargestRequest) {
  StartCore();
  char* buffer = nullptr;
  size_t size = 0;
  ostrand_protocol_cs::OStrandPkg* pkg = nullptr;
  TheService().NetThreadGetBufPkg(buffer, size, pkg);
  ASSERT_NE(buffer, nullptr);
  ASSERT_NE(pkg, nullptr);
  EXPECT_EQ(size, 65536u);
  char* again = nullptr;
  ostrand_protocol_cs::OStrandPkg* pkg_again = nullptr;
  TheService().NetThreadGetBufPkg(again, size, pkg_again);
  EXPECT_EQ(again, buffer);
  EXPECT_EQ(pkg_again, pkg);
  int32_t combine_size = 0;
  ZoneOne().router->GetCombineBuf(buffer, combine_size);
  EXPECT_GE(static_cast<size_t>(combine_size), ostrand_protocol_cs::OSTRAND_MAX_REQ_FRAME_LEN);
}

TEST_F(ServiceTest, GivesItsOptionsToEachRouter) {
  m_options.perf_sample_percent = 33;
  m_options.default_timeout_ms = 4321;
  m_options.keep_user_buffers = true;
  StartCore();
  EXPECT_NE(TheService().m_local_buffer, nullptr);
  for (size_t zone = 0; zone < 2; ++zone) {
    EXPECT_EQ(Peer(zone).m_perfPercent(), 33u);
    EXPECT_EQ(Peer(zone).m_sync_timeout(), 4321u);
    EXPECT_EQ(Peer(zone).m_app_id(), kAppId);
    EXPECT_EQ(Peer(zone).m_zone_id(), static_cast<int32_t>(zone) + 1);
  }
}

// The routers would count in them otherwise, and they die first.
TEST_F(ServiceTest, TakesItsQosRecordsBackBeforeTheyDieAndStopsMoreThanOnce) {
  m_options.tables.push_back({"item", 2, nullptr});
  StartBoth();
  EXPECT_EQ(Peer(0).m_table_qos_count(), 1);
  EXPECT_EQ(Peer(1).m_table_qos_count(), 2);
  std::vector<std::string> taken;
  m_logger.OnLine([&](const OstrandFakes::LogLine& line) {
    if (line.function == "RemoveTableQos" && line.text.find("delete index") == 0) {
      taken.push_back(line.text.substr(line.text.find("zone_id")));
    }
  });
  m_logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE);
  TheService().Stop();
  m_logger.OnLine({});
  EXPECT_EQ(taken, (std::vector<std::string>{"zone_id:1 table_name:user table count:0",
                                             "zone_id:2 table_name:order table count:1",
                                             "zone_id:2 table_name:item table count:0"}));
  TheService().Stop();
  EXPECT_EQ(TheService().ZoneCount(), 0u);
  EXPECT_TRUE(m_fleet->WaitFor(20000, [&] { return m_fleet->Counters(0).connections_open == 0; }));
}

}  // namespace
}  // namespace OstrandTests
