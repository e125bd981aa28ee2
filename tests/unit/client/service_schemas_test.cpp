// How a service has the schemas of its tables checked.
#include <algorithm>

#include "client/service.h"
#include "service_api/recheck_probe.h"
#include "unit/client/seconds_ahead.h"
#include "unit/client/service_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

constexpr auto kPending = RegisterTableInfo::kCheckPending;

class ServiceSchemasTest : public ServiceTest {
 protected:
  // A table of the service, and what the store says of it.
  void AddTable(const std::string& name, int32_t zone, const VexMeta& local,
                const VexMeta& stored) {
    m_schemas.push_back(std::make_unique<VexMeta>(local));
    m_options.tables.push_back({name, zone, m_schemas.back().get()});
    OstrandFleet::TableSetup setup;
    setup.zone = zone;
    setup.schema = stored;
    m_fleet_options.tables.push_back(setup);
  }
  void AddTable(const std::string& name, int32_t zone) {
    AddTable(name, zone, Schema(name), Schema(name));
  }

  void StartChecking() {
    m_options.tables.erase(m_options.tables.begin(), m_options.tables.begin() + 2);
    StartFleet(m_fleet_options);
    StartService();
  }

  OstrandFleet::FleetOptions m_fleet_options;

 private:
  std::vector<std::unique_ptr<VexMeta>> m_schemas;
};

// The router itself asks for the first of a zone, and is asked for the others like anybody.
TEST_F(ServiceSchemasTest, ChecksTheFirstOfAZoneByProbeAndTheOthersByOrdinaryRequests) {
  AddTable("user", 1);
  AddTable("order", 1);
  AddTable("item", 1);
  AddTable("page", 2);
  StartChecking();
  for (const TableOptions& table : m_options.tables) {
    EXPECT_EQ(m_service->TableCheckResult(table.zone_id, table.name.c_str()), kPending);
  }
  ASSERT_TRUE(BecomesReady());
  for (const TableOptions& table : m_options.tables) {
    EXPECT_EQ(m_service->TableCheckResult(table.zone_id, table.name.c_str()), 0) << table.name;
    EXPECT_EQ(SchemaQuestions(table.name).size(), 1u) << table.name;
  }
  EXPECT_EQ(SchemaQuestions("user").at(0).asyn_id, kRecheckProbeAsynId);
  EXPECT_EQ(SchemaQuestions("page").at(0).asyn_id, kRecheckProbeAsynId);
  EXPECT_GE(SchemaQuestions("order").at(0).asyn_id, Service::kFirstOwnAsynId);
  EXPECT_GT(SchemaQuestions("item").at(0).asyn_id, SchemaQuestions("order").at(0).asyn_id);
  EXPECT_TRUE(m_answers.empty()) << "none of this is the application's";
}

// Each zone is probed once, with the first of its tables; nothing else is asked without a schema.
TEST_F(ServiceSchemasTest, AsksForATableWithoutSchemaOnlyWhenItProbesTheZone) {
  AddTable("user", 1);
  AddTable("order", 1);
  AddTable("page", 2);
  for (TableOptions& table : m_options.tables) {
    table.schema = nullptr;
  }
  StartChecking();
  EXPECT_EQ(m_service->TableCheckResult(1, "user"), 0);
  ASSERT_TRUE(BecomesReady());
  ASSERT_TRUE(UpdateUntil(
      [&] { return !SchemaQuestions("user").empty() && !SchemaQuestions("page").empty(); }));
  ASSERT_EQ(SchemaQuestions("user").size(), 1u);
  ASSERT_EQ(SchemaQuestions("page").size(), 1u);
  EXPECT_EQ(SchemaQuestions("user").at(0).asyn_id, kRecheckProbeAsynId);
  EXPECT_EQ(SchemaQuestions("page").at(0).asyn_id, kRecheckProbeAsynId);
  EXPECT_TRUE(SchemaQuestions("order").empty());
}

TEST_F(ServiceSchemasTest, ChecksATableBehindOneWithoutSchema) {
  AddTable("user", 1);
  AddTable("order", 1);
  AddTable("page", 2);
  m_options.tables[2].schema = nullptr;
  StartChecking();
  ASSERT_TRUE(BecomesReady());
  EXPECT_EQ(SchemaQuestions("order").size(), 1u);
  EXPECT_GE(SchemaQuestions("order").at(0).asyn_id, Service::kFirstOwnAsynId);
}

struct Difference {
  const char* name;
  std::function<void(VexMeta& stored)> edit;
};

class ServiceDifferenceTest : public ServiceSchemasTest,
                              public testing::WithParamInterface<Difference> {};

TEST_P(ServiceDifferenceTest, IsNotReadyWithATableThatTheStoreHasOtherwise) {
  for (const char* name : {"user", "order"}) {  // checked by probe, and by request
    VexMeta stored = Schema(name);
    GetParam().edit(stored);
    AddTable(name, 1, Schema(name), stored);
  }
  AddTable("page", 2);
  StartChecking();
  const auto result = [&](const char* name) { return m_service->TableCheckResult(1, name); };
  ASSERT_TRUE(
      UpdateUntil([&] { return result("user") != kPending && result("order") != kPending; }));
  EXPECT_LT(result("user"), 0);
  EXPECT_EQ(result("order"), result("user"));
  ASSERT_TRUE(UpdateUntil([&] { return m_service->TableCheckResult(2, "page") == 0; }));
  EXPECT_FALSE(m_service->IsReady());
  EXPECT_NE(m_service->auth_fail_code(), 0);
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

TEST_F(ServiceSchemasTest, AsksAgainAfterThreeSecondsWithoutAVerdict) {
  AddTable("user", 1);
  AddTable("order", 1);
  AddTable("page", 2);
  m_fleet_options.tables[1].schema.name = "other";  // the store has no table "order"
  const int64_t began_ms = OstrandCommon::GetMonotonicMilliseconds();
  StartChecking();
  ASSERT_TRUE(UpdateUntil([&] { return m_service->TableCheckResult(1, "user") == 0; }));
  ASSERT_TRUE(UpdateUntil([&] { return !SchemaQuestions("order").empty(); }));
  EXPECT_EQ(m_service->TableCheckResult(1, "order"), kPending);
  EXPECT_FALSE(m_service->IsReady());
  const auto update_ahead = [&](time_t seconds) {
    {
      const SecondsAhead ahead(seconds);
      m_service->Update();
    }
    ReadARecord();  // comes behind whatever was asked
  };
  update_ahead(1);
  const size_t asked = SchemaQuestions("order").size();
  if (OstrandCommon::GetMonotonicMilliseconds() < began_ms + 1900) {  // not a very slow machine
    EXPECT_EQ(asked, 1u);
  }

  OstrandFleet::TableSetup setup;
  setup.schema = Schema("order");
  ASSERT_TRUE(m_fleet->AddTable(setup));
  update_ahead(4);
  ASSERT_TRUE(BecomesReady());
  EXPECT_GT(SchemaQuestions("order").size(), asked);
  EXPECT_EQ(SchemaQuestions("user").size(), 1u);
}

TEST_F(ServiceSchemasTest, KnowsNothingOfTablesThatAreNotRegistered) {
  AddTable("user", 1);
  AddTable("page", 2);
  StartChecking();
  EXPECT_EQ(m_service->TableCheckResult(1, "page"), kPending);
  EXPECT_EQ(m_service->TableCheckResult(3, "user"), kPending);
}

TEST_F(ServiceSchemasTest, TakesAnswersToItsOwnQuestionsOnly) {
  AddTable("user", 1);
  AddTable("page", 2);
  StartChecking();
  OstrandService::RouterResponse response;
  response.BuildTimeOutRes(kAppId, 1, "user", ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES,
                           nullptr, 0, Service::kFirstOwnAsynId - 1, 0);
  EXPECT_FALSE(m_service->TakeOwnAnswer(response));
  for (const int32_t zone : {1, 99}) {
    response.BuildTimeOutRes(kAppId, zone, "user",
                             ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES, nullptr, 0,
                             Service::kFirstOwnAsynId, 0);
    EXPECT_TRUE(m_service->TakeOwnAnswer(response)) << zone;
  }
  EXPECT_EQ(m_service->TableCheckResult(1, "user"), kPending);
}

}  // namespace
}  // namespace OstrandTests
