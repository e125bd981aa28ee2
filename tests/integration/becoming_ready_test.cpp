// What keeps a client from being ready, and that it becomes so when that is repaired.
#include <gtest/gtest.h>

#include <string>

#include "integration/integration_kit.h"
#include "integration/stepping_system.h"
#include "vex/vex_schema.h"

namespace OstrandTests {
namespace {

class BecomingReady : public RuntimeTest {
 protected:
  BecomingReady() {
    m_schema.name = kTable;
    m_schema.version = 1;
    m_schema.key_fields = {{"id", VexFieldType::kString, 32, 0}};
    m_schema.value_fields = {{"name", VexFieldType::kString, 64, 0}};
  }

  VexMeta m_schema;
  SteppingSystem m_stepping;
};

TEST_F(BecomingReady, EndsWithTheCodeOfATableThatCannotBeAskedForUntilItCan) {
  constexpr int32_t kUnknownTable = -7185;
  m_system = &m_stepping;
  m_fleet = std::make_unique<OstrandFleet::Fleet>();  // knows no table
  ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
  auto options = Options();
  options.tables = {{kTable, kZone, &m_schema}};
  StartClientUnready(options);
  EXPECT_EQ(m_client->WaitReady(300), kUnknownTable);
  EXPECT_EQ(m_client->WaitReady(0), kUnknownTable);

  OstrandFleet::TableSetup table;
  table.zone = kZone;
  table.schema = m_schema;
  ASSERT_TRUE(m_fleet->AddTable(table));
  m_stepping.Stand(4000);  // until it is asked for again
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
}

TEST_F(BecomingReady, EndsWithoutADirectoryAndTellsWhy) {
  StartFleet(1);
  auto options = Options();
  options.directory_urls = {"tcp://127.0.0.1:9"};  // where nobody listens
  StartClientUnready(options);
  EXPECT_EQ(m_client->WaitReady(100), OstrandService::CLIENT_ERR_NOT_READY_IN_TIME);
  int32_t code = 0;
  std::string text;
  m_client->GetLastError(code, text);
  EXPECT_EQ(code, OstrandService::CLIENT_ERR_DIRECTORY);
  EXPECT_EQ(text, "directory tcp://127.0.0.1:9: connect: Connection refused");
  m_serves_at_end = false;
}

}  // namespace
}  // namespace OstrandTests
