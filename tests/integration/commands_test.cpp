// Every command of the application, end to end, with the fleet in a process of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/error_text.h"
#include "client/runtime_errors.h"
#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandService::ErrorText;

using Fields = std::vector<std::pair<std::string, std::string>>;

class Commands : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    StartFleetProcess(3);
    auto options = Options();
    options.tables = {{kTable, kZone, nullptr}, {"mail", kZone, nullptr}};
    StartClient(options);
  }

  void Begin(uint32_t cmd, const Fields& key = {}, const char* table = kTable) {
    m_request.Begin(cmd, table).Zone(kZone);
    for (const auto& [name, value] : key) {
      m_request.Key(name, value);
    }
  }
  void AddRecord(const Fields& key, const Fields& values) {
    m_request.Record();
    for (const auto& [name, value] : key) {
      m_request.Key(name, value);
    }
    for (const auto& [name, value] : values) {
      m_request.Set(name, value);
    }
  }
  void AddElement(int32_t index, const std::string& text) {
    m_request.Element(index);
    if (!text.empty()) {
      m_request.Set("text", text);
    }
  }
  // The result of the request that was begun.
  int32_t Finish() {
    const int ret = m_client->Call(m_request, m_response);
    return ret != 0 ? ret : m_response.GetResult();
  }
  // "<result>/<index>:<values>" of each record of the answer, in all packages.
  std::vector<std::string> AllRecords() {
    std::vector<std::string> all;
    for (bool more = true; more;) {
      RecordView record;
      while (m_response.NextRecord(record)) {
        std::string text =
            std::to_string(record.mark.result) + "/" + std::to_string(record.mark.index) + ":";
        FieldView field;
        for (const char* name : {"name", "city", "text"}) {
          text += record.FindValue(name, field) ? std::string(field.value) + ";" : "";
        }
        all.push_back(text);
      }
      more = m_response.GetResult() == 0 && m_response.HaveMoreResPkgs() == 1 &&
             m_client->Receive(m_response, static_cast<int>(kPatienceMs)) == 1;
    }
    return all;
  }
};

using Texts = std::vector<std::string>;

TEST_F(Commands, OnOneRecord) {
  Begin(OSTRAND_API_INSERT_REQ, {{"id", "1"}});
  m_request.Set("name", "Ada");
  m_request.Set("city", "London");
  EXPECT_EQ(Finish(), 0) << ErrorText(Finish());
  Begin(OSTRAND_API_INSERT_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), -1293);
  Begin(OSTRAND_API_UPDATE_REQ, {{"id", "1"}});
  m_request.Set("city", "Paris");
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_GET_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), Texts{"0/-1:Ada;Paris;"});
  Begin(OSTRAND_API_GET_REQ, {{"id", "1"}});
  m_request.Field("city");
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), Texts{"0/-1:Paris;"});
  Begin(OSTRAND_API_REPLACE_REQ, {{"id", "1"}});
  m_request.Expect(1);
  EXPECT_EQ(Finish(), -9485) << "it has version 2 by now";
  Begin(OSTRAND_API_REPLACE_REQ, {{"id", "1"}});
  m_request.Set("name", "Grace");
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_DELETE_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_GET_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), -7949);
}

TEST_F(Commands, OnManyRecords) {
  for (const uint32_t cmd : {OSTRAND_API_BATCH_INSERT_REQ, OSTRAND_API_BATCH_REPLACE_REQ,
                             OSTRAND_API_BATCH_UPDATE_REQ}) {
    Begin(cmd);
    for (int i = 0; i < 3; ++i) {
      AddRecord({{"id", std::to_string(i)}}, {{"name", std::to_string(cmd)}});
    }
    EXPECT_EQ(Finish(), 0);
    EXPECT_EQ(AllRecords(), (Texts{"0/0:", "0/1:", "0/2:"}));
  }
  Begin(OSTRAND_API_BATCH_DELETE_REQ);
  AddRecord({{"id", "1"}}, {});
  AddRecord({{"id", "7"}}, {});
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), (Texts{"0/0:", "-7949/1:"}));
  Begin(OSTRAND_API_BATCH_GET_REQ);
  for (int i = 0; i < 3; ++i) {
    AddRecord({{"id", std::to_string(i)}}, {});
  }
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), (Texts{"0/0:149;", "-7949/1:", "0/2:149;"}));
}

TEST_F(Commands, ByPartOfAKey) {
  constexpr int kDays = 250;
  for (int done = 0; done < kDays;) {
    Begin(OSTRAND_API_BATCH_INSERT_REQ);
    for (int i = 0; i < 50; ++i, ++done) {
      AddRecord({{"id", "1"}, {"day", std::to_string(1000 + done)}},
                {{"text", std::to_string(done)}});
    }
    ASSERT_EQ(Finish(), 0);
  }
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(m_response.HaveMoreResPkgs(), 1);
  const Texts all = AllRecords();
  ASSERT_EQ(all.size(), static_cast<size_t>(kDays));
  EXPECT_NE(all[0].find(":0;"), std::string::npos) << all[0];
  EXPECT_NE(all[249].find(":249;"), std::string::npos) << all[249];
  Begin(OSTRAND_API_DELETE_BY_PARTKEY_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(m_response.GetRecordCount(), static_cast<uint32_t>(kDays));
  Begin(OSTRAND_API_GET_BY_PARTKEY_REQ, {{"id", "1"}});
  EXPECT_EQ(Finish(), -7949);
}

TEST_F(Commands, OnLists) {
  const Fields key = {{"id", "1"}};
  Begin(OSTRAND_API_LIST_INSERT_REQ, key, "mail");
  for (const char* text : {"a", "b", "c", "d"}) {
    AddElement(-1, text);
  }
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), (Texts{"0/0:", "0/1:", "0/2:", "0/3:"}));
  Begin(OSTRAND_API_LIST_UPDATE_REQ, key, "mail");
  AddElement(1, "B");
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_LIST_GET_REQ, key, "mail");
  AddElement(1, "");
  AddElement(9, "");
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), (Texts{"0/1:B;", "-4109/9:"}));
  Begin(OSTRAND_API_LIST_DELETE_REQ, key, "mail");
  AddElement(0, "");
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_LIST_GETALL_REQ, key, "mail");
  EXPECT_EQ(Finish(), 0);
  EXPECT_EQ(AllRecords(), (Texts{"0/0:B;", "0/1:c;", "0/2:d;"}));
  Begin(OSTRAND_API_LIST_DELETE_ALL_REQ, key, "mail");
  EXPECT_EQ(Finish(), 0);
  Begin(OSTRAND_API_LIST_GETALL_REQ, key, "mail");
  EXPECT_EQ(Finish(), -7949);
  Begin(OSTRAND_API_GET_REQ, key, "mail");
  EXPECT_EQ(Finish(), -11277) << "a list is no record";
}

TEST_F(Commands, TimesToLive) {
  for (const char* id : {"1", "2"}) {
    Begin(OSTRAND_API_INSERT_REQ, {{"id", id}});
    ASSERT_EQ(Finish(), 0);
  }
  Begin(OSTRAND_API_SET_TTL_REQ);
  for (const char* id : {"1", "2", "3"}) {
    m_request.Record(id[0] == '1' ? 3600000 : -1);
    m_request.Key("id", id);
  }
  EXPECT_EQ(Finish(), 0);
  ASSERT_EQ(m_response.GetTTLCount(), 3u);
  OstrandService::RecordTTL ttl;
  ASSERT_TRUE(m_response.GetTTL(2, ttl));
  EXPECT_EQ(ttl.result, -7949);
  Begin(OSTRAND_API_GET_TTL_REQ);
  for (const char* id : {"1", "2"}) {
    m_request.Record();
    m_request.Key("id", id);
  }
  EXPECT_EQ(Finish(), 0);
  ASSERT_EQ(m_response.GetTTLCount(), 2u);
  ASSERT_TRUE(m_response.GetTTL(0, ttl));
  EXPECT_GT(ttl.ttl_ms, 3500000);
  EXPECT_LE(ttl.ttl_ms, 3600000);
  ASSERT_TRUE(m_response.GetTTL(1, ttl));
  EXPECT_LT(ttl.ttl_ms, 0);
}

TEST_F(Commands, MetadataOfATableWithoutFields) {
  Begin(OSTRAND_API_INSERT_REQ, {{"id", "1"}});
  ASSERT_EQ(Finish(), 0);
  Begin(OSTRAND_API_METADATA_GET_REQ);
  EXPECT_EQ(Finish(), 0);
  OstrandService::TableMetadata metadata;
  ASSERT_TRUE(m_response.GetMetadata(metadata));
  EXPECT_EQ(metadata.image, "");
}

TEST_F(Commands, WhoseBodiesAreNotDefinedAreRefused) {
  Begin(OSTRAND_API_SQL_REQ);
  EXPECT_EQ(Finish(), -3597);
}

// --- Schemas: the fleet in the process declares a table that the client has another opinion of.
// ---

class Schemas : public RuntimeTest {
 protected:
  static VexMeta Schema(uint32_t name_size) {
    VexMeta schema;
    schema.name = kTable;
    schema.version = 3;
    schema.key_fields = {{"uid", VexFieldType::kUint32, 4, 0}};
    schema.value_fields = {{"name", VexFieldType::kString, name_size, 0}};
    return schema;
  }
  void StartWithSchema(const VexMeta& of_server, LPVEXMETA of_client) {
    OstrandFleet::TableSetup table;
    table.zone = kZone;
    table.schema = of_server;
    OstrandFleet::FleetOptions fleet;
    fleet.proxies = 2;
    fleet.tables = {table};
    StartFleet(fleet);
    auto options = Options();
    options.tables = {{"other", kZone, nullptr}, {kTable, kZone, of_client}};
    StartClientUnready(options);
  }
  void TearDown() override {
    m_serves_at_end = false;  // its table has other fields
    RuntimeTest::TearDown();
  }
};

TEST_F(Schemas, ThatAgreePass) {
  const VexMeta schema = Schema(32);
  StartWithSchema(schema, &schema);
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  m_request.Begin(OSTRAND_API_METADATA_GET_REQ, kTable).Zone(kZone);
  ASSERT_EQ(m_client->Call(m_request, m_response), 0);
  EXPECT_EQ(m_response.GetResult(), 0);
  OstrandService::TableMetadata metadata;
  ASSERT_TRUE(m_response.GetMetadata(metadata));
  EXPECT_EQ(metadata.version, 3);
  EXPECT_FALSE(metadata.image.empty());
}

TEST_F(Schemas, DecideTheWidthOfIntegers) {
  const VexMeta schema = Schema(32);
  StartWithSchema(schema, &schema);
  ASSERT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  ASSERT_EQ(m_client->Call(m_request.Insert(kTable).Key("uid", 42).Set("name", "Ada"), m_response),
            0);
  EXPECT_EQ(m_response.GetResult(), 0) << "the store takes 4 bytes alone";
  ASSERT_EQ(m_client->Call(m_request.Get(kTable).Key<uint32_t>("uid", 42), m_response), 0);
  EXPECT_EQ(m_response.GetResult(), 0);
  EXPECT_EQ(m_client->Send(m_request.Get(kTable).Key("uid", -1)),
            OstrandService::RUNTIME_ERR_VALUE_RANGE);
  EXPECT_EQ(m_request.FaultText().find("\"uid\""), 0u) << m_request.FaultText();
  EXPECT_EQ(m_client->Send(m_request.Get(kTable).Key<int64_t>("uid", 42)),
            OstrandService::RUNTIME_ERR_FIELD_TYPE);
}

TEST_F(Schemas, ThatDifferAreToldWithACode) {
  const VexMeta ours = Schema(64);
  StartWithSchema(Schema(32), &ours);
  const int ret = m_client->WaitReady(static_cast<int>(kPatienceMs));
  EXPECT_LT(ret, 0);
  EXPECT_NE(ret, OstrandService::CLIENT_ERR_NOT_READY_IN_TIME);
  EXPECT_STRNE(ErrorText(ret), "unknown error");
}

TEST_F(Schemas, WhoseImageIsGarbageAreToldWithACode) {
  const VexMeta schema = Schema(32);
  StartFleet(1);
  OstrandFleet::TableSetup table;
  table.zone = kZone;
  table.schema = schema;
  ASSERT_TRUE(m_fleet->AddTable(table));
  OstrandFleet::MetadataAnswer answer;
  answer.version = 3;
  answer.image = std::string(1000, '\xEE');
  ASSERT_TRUE(m_fleet->SetMetadata(kZone, kTable, answer));
  auto options = Options();
  options.tables = {{kTable, kZone, &schema}};
  StartClientUnready(options);
  const int ret = m_client->WaitReady(1000);
  EXPECT_LT(ret, 0);
  EXPECT_STRNE(ErrorText(ret), "unknown error");
}

}  // namespace
}  // namespace OstrandTests
