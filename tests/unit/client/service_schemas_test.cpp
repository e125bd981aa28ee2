// How a service has the schemas of its tables checked.
#include <algorithm>

#include "client/service.h"
#include "protocol/codec.h"
#include "service_api/recheck_probe.h"
#include "service_api/register_table_info.h"
#include "unit/client/client_core_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

constexpr auto kPending = RegisterTableInfo::kCheckPending;

class ServiceSchemasTest : public ClientCoreTest {
 protected:
  ServiceSchemasTest() { m_options.tables.clear(); }
  ~ServiceSchemasTest() override {
    m_scope.reset();
    m_core.reset();  // before the schemas
  }

  static VexMeta Schema(const std::string& table) {
    VexMeta meta;
    meta.name = table;
    meta.key_fields = {{"id", VexFieldType::kString, 32, 0}};
    meta.value_fields = {{"name", VexFieldType::kString, 64, 0}};
    return meta;
  }
  // A table of the service, and what the store says of it.
  void AddTable(const std::string& name, const VexMeta& stored) {
    m_schemas.push_back(std::make_unique<VexMeta>(Schema(name)));
    m_options.tables.push_back({name, 1, m_schemas.back().get()});
    OstrandFleet::TableSetup setup;
    setup.schema = stored;
    m_fleet_options.tables.push_back(setup);
  }
  void AddTable(const std::string& name) { AddTable(name, Schema(name)); }
  void Start() {
    StartFleet(m_fleet_options);
    StartCore();
  }

  int32_t ResultOf(const std::string& table) {
    OstrandCommon::ScopedWriteLock lock(m_core->GetService().m_register_table_lock);
    return m_core->GetService().m_register_table[1][table].check_ret;
  }
  // The service's own questions about a table; the router has some of its own.
  std::vector<uint64_t> Questions(const std::string& table) {
    std::vector<uint64_t> ids;
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.cmd == ostrand_protocol_cs::OSTRAND_API_METADATA_GET_REQ &&
          request.table == table && request.asyn_id != kRecheckProbeAsynId) {
        ids.push_back(request.asyn_id);
      }
    }
    return ids;
  }
  bool AreAsked(const std::string& table, size_t count) {
    return RoundUntil([&] { return Questions(table).size() >= count; });
  }
  // Whether the question after `asked` ones comes when so much time has passed, and not before.
  void ExpectNextQuestionAfter(const std::string& table, size_t asked, int64_t ms) {
    Pass(ms - 1, 97);
    for (int i = 0; i < 5; ++i) Round();
    EXPECT_EQ(Questions(table).size(), asked) << ms;
    Pass(1);
    EXPECT_TRUE(AreAsked(table, asked + 1)) << ms;
  }

  OstrandFleet::FleetOptions m_fleet_options;

 private:
  std::vector<std::unique_ptr<VexMeta>> m_schemas;
};

TEST_F(ServiceSchemasTest, AsksForEachTableWithASchemaOnceAndHandsNothingOfItOut) {
  AddTable("user");
  AddTable("order");
  AddTable("page");
  m_options.tables[2].schema = nullptr;
  Start();
  EXPECT_EQ(ResultOf("user"), kPending);
  EXPECT_EQ(ResultOf("page"), 0);
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(ResultOf("user"), 0);
  EXPECT_EQ(ResultOf("order"), 0);
  EXPECT_EQ(Questions("user").size(), 1u);
  EXPECT_EQ(Questions("order").size(), 1u);
  EXPECT_EQ(Questions("page").size(), 0u);
  EXPECT_GE(Questions("user")[0], kFirstOwnAsynId);
  EXPECT_NE(Questions("user")[0], Questions("order")[0]);
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), 0);
  EXPECT_EQ(m_core->GetService().SchemaRefusal(), 0);
  ExpectNoOutcome();
  ExpectNothingLeft();
}

struct Difference {
  const char* name;
  std::function<void(VexMeta& stored)> edit;
};

class ServiceDifferenceTest : public ServiceSchemasTest,
                              public testing::WithParamInterface<Difference> {};

TEST_P(ServiceDifferenceTest, IsNotReadyWithATableThatTheStoreHasOtherwise) {
  VexMeta stored = Schema("user");
  GetParam().edit(stored);
  AddTable("user", stored);
  AddTable("order");
  Start();
  ASSERT_TRUE(RoundUntil([&] { return ResultOf("user") != kPending && ResultOf("order") == 0; }));
  EXPECT_LT(ResultOf("user"), 0);
  EXPECT_EQ(m_core->GetService().SchemaRefusal(), ResultOf("user"));
  EXPECT_FALSE(m_core->GetService().IsReady());
  EXPECT_NE(m_core->GetService().auth_fail_code(), 0);
  Pass(40000, 900);
  EXPECT_EQ(Questions("user").size(), 1u) << "that is a verdict";
}

INSTANTIATE_TEST_SUITE_P(Differences, ServiceDifferenceTest,
                         testing::Values(Difference{"Type",
                                                    [](VexMeta& stored) {
                                                      stored.value_fields[0].type =
                                                          VexFieldType::kInt64;
                                                      stored.value_fields[0].size = 8;
                                                    }},
                                         Difference{"Name",
                                                    [](VexMeta& stored) {
                                                      stored.value_fields[0].name = "nom";
                                                    }}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(ServiceSchemasTest, AsksAgainAfterErrorsLaterAndLater) {
  AddTable("user", Schema("other"));  // the store has no table "user"
  Start();
  ASSERT_TRUE(AreAsked("user", 1));
  size_t asked = 1;
  for (const int64_t pause_ms : {3000, 6000, 12000, 24000, 30000, 30000}) {
    ASSERT_TRUE(RoundUntil([&] {
      return m_core->GetService().NextUpdateMs() != INT64_MIN &&
             m_core->GetService().SchemaTrouble() != 0;
    }));
    ASSERT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).metadata_requests >= asked; }));
    for (int i = 0; i < 20; ++i) Round();  // the error is here
    EXPECT_EQ(ResultOf("user"), kPending);
    ExpectNextQuestionAfter("user", asked, pause_ms);
    ++asked;
  }
  EXPECT_FALSE(m_core->GetService().IsReady());
  OstrandFleet::TableSetup setup;
  setup.schema = Schema("user");
  ASSERT_TRUE(m_fleet->AddTable(setup));
  for (int i = 0; i < 20; ++i) Round();
  Pass(30100);
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), 0);
}

TEST_F(ServiceSchemasTest, WaitsThreeSecondsForAnAnswerAndDropsOneThatIsLate) {
  AddTable("user");
  Start();
  SetFaults(0, [](auto& faults) {
    faults.scope = OstrandFleet::AnswerScope::kMetadata;
    faults.drop_every = 1;
  });
  ASSERT_TRUE(AreAsked("user", 1));
  Pass(2999);
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), 0);
  Pass(1);
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), ClientResponse::kResultTimeOut);
  ExpectNextQuestionAfter("user", 1, 3000);
  SetFaults(0, [](auto& faults) { faults.drop_every = 0; });
  Pass(3000);
  ExpectNextQuestionAfter("user", 2, 6000);
  EXPECT_TRUE(BecomesReady());
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), 0);
  ExpectNoOutcome();
}

TEST_F(ServiceSchemasTest, AsksNothingWhileNoProxyCanBeUsed) {
  AddTable("user");
  StartFleet(m_fleet_options);
  SetFaults(0, [](auto& faults) { faults.ignore_sign_up = true; });
  StartCore();
  ASSERT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).sign_ups > 0; }));
  Pass(10000);
  EXPECT_TRUE(Questions("user").empty());
  EXPECT_EQ(m_core->GetService().SchemaTrouble(), 0);
  SetFaults(0, [](auto& faults) { faults.ignore_sign_up = false; });
  for (int i = 0; i < 100 && Questions("user").empty(); ++i) {
    Pass(100);
  }
  EXPECT_TRUE(BecomesReady());
}

TEST_F(ServiceSchemasTest, DoesNotBelieveAnAnswerThatTellsOfAnotherTable) {
  AddTable("user");
  Start();
  SchemaChecks checks(kAppId, [this](int32_t, const char* table) { return ResultOf(table); });
  ASSERT_TRUE(BecomesReady());
  checks.Add(ZoneOne(), "page", -1);
  char* buffer = nullptr;
  size_t size = 0;
  ostrand_protocol_cs::OStrandPkg* pkg = nullptr;
  m_core->GetService().NetThreadGetBufPkg(buffer, size, pkg);
  {
    OstrandCommon::ScopedWriteLock lock(m_core->GetService().m_register_table_lock);
    m_core->GetService().m_register_table[1]["page"].check_ret = kPending;
  }
  checks.Update(1000, *pkg, buffer, size);
  EXPECT_EQ(checks.NextDueMs(), 1000 + SchemaChecks::kAnswerMs);

  pkg->stHead.construct();
  pkg->stBody.construct(ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES);
  pkg->stHead.dwCmd = ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES;
  pkg->stHead.ullAsynID = kFirstOwnAsynId;
  size_t len = size;
  ASSERT_EQ(ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(buffer, len, nullptr, 0, *pkg,
                                                             pkg->stHead.wVersion, nullptr),
            0);
  EXPECT_TRUE(checks.TakeFrame(buffer, len, 1500, *pkg));
  EXPECT_NE(checks.LastError(), 0);
  EXPECT_EQ(checks.NextDueMs(), 1500 + SchemaChecks::kFirstPauseMs);
  EXPECT_TRUE(checks.TakeFrame(buffer, len, 1600, *pkg)) << "once more: ours, and too late";
  EXPECT_EQ(checks.NextDueMs(), 1500 + SchemaChecks::kFirstPauseMs);

  std::string application(buffer, len);
  application[12] = 0;  // the high byte of the asynchronous id
  EXPECT_FALSE(checks.TakeFrame(application.data(), len, 1700, *pkg)) << "the application's";
}

}  // namespace
}  // namespace OstrandTests
