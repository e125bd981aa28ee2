// The whole demo with few records, and its script.
#include "cli/demo.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cli/demo_report.h"
#include "cli/demo_script.h"

namespace OstrandCli {
namespace {

std::vector<PackageRecord> Records(int count) {
  std::vector<PackageRecord> records;
  for (int i = 0; i < count; ++i) {
    records.push_back({"package-" + std::to_string(i), "1.0", "libs", 7, std::string(200, 'd')});
  }
  return records;
}

DemoOptions Quick() {
  DemoOptions options;
  options.mixed_ms = 300;
  options.window = 32;
  return options;
}

TEST(Demo, PassesWhenEveryRecordComesBack) {
  const std::vector<PackageRecord> records = Records(400);
  const DemoResult result = Demo(Quick(), records).Run();
  EXPECT_EQ(result.faults, std::vector<std::string>());
  EXPECT_EQ(result.records, 400u);
  EXPECT_EQ(result.read_back, 400u);
  EXPECT_TRUE(result.all_acknowledged);
  EXPECT_EQ(result.counts.wrong, 0u);
  ASSERT_EQ(result.stages.size(), 4u);
  for (const DemoStage& stage : result.stages) {
    EXPECT_TRUE(stage.figures.AddUp()) << stage.name;
  }
  EXPECT_EQ(result.stages[0].figures.sent, 400u);

  ASSERT_EQ(result.proxies.size(), 10u) << "two have joined";
  double first = 0;
  double last = 0;
  for (const DemoProxy& proxy : result.proxies) {
    first += proxy.first_ring_share;
    last += proxy.last_ring_share;
  }
  EXPECT_NEAR(first, 1, 1e-9);
  EXPECT_NEAR(last, 1, 1e-9);
  EXPECT_EQ(result.proxies[DemoScript::kStoppedProxy].state, "stopped");
  EXPECT_EQ(result.proxies[DemoScript::kKilledProxy].state, "killed");
  EXPECT_EQ(result.proxies[DemoScript::kKilledProxy].last_ring_share, 0);
  EXPECT_EQ(result.proxies[9].state, "runs");
  EXPECT_EQ(result.proxies[9].first_ring_share, 0);
  EXPECT_NE(DemoText(result).find("Every record was read back as it was written"),
            std::string::npos);
  EXPECT_NE(DemoJson(result).find("\"passed\":true,\"faults\":[]"), std::string::npos);
}

TEST(Demo, FailsWhenAnAnswerIsWrong) {
  const std::vector<PackageRecord> records = Records(400);
  DemoOptions options = Quick();
  options.inject_wrong_answers = true;
  const DemoResult result = Demo(options, records).Run();
  EXPECT_GT(result.counts.wrong, 0u);
  ASSERT_FALSE(result.faults.empty());
  EXPECT_NE(result.faults[0].find("answers were wrong"), std::string::npos);
  EXPECT_NE(DemoText(result).find("FAILED: "), std::string::npos);
  EXPECT_NE(DemoJson(result).find("\"passed\":false"), std::string::npos);
}

TEST(Demo, FailsWhenItTakesTooLong) {
  const std::vector<PackageRecord> records = Records(10);
  DemoOptions options = Quick();
  options.patience_ms = 1;
  const DemoResult result = Demo(options, records).Run();
  EXPECT_FALSE(result.faults.empty());
  EXPECT_NE(result.read_back, result.records);
}

// --- The script, with a clock of the test's own ---

class DemoScriptTest : public testing::Test {
 protected:
  DemoScriptTest() {
    OstrandFleet::FleetOptions options;
    options.proxies = 4;
    fleet = std::make_unique<OstrandFleet::Fleet>(options);
    EXPECT_EQ(fleet->Start(), 0) << fleet->Error();
  }

  using Texts = std::vector<std::string>;
  std::unique_ptr<OstrandFleet::Fleet> fleet;
};

TEST_F(DemoScriptTest, WaitsBeforeTheFirstStep) {
  DemoScript script(*fleet, 5000);
  EXPECT_FALSE(script.Update(100));
  EXPECT_FALSE(script.Update(1099));
  EXPECT_EQ(fleet->ProxyCount(), 4u);
  EXPECT_FALSE(script.Update(1100));
  EXPECT_EQ(fleet->ProxyCount(), 5u);
  EXPECT_EQ(script.TakeRemarks(), Texts{"p4 joins"});
  EXPECT_TRUE(script.TakeRemarks().empty());
}

TEST_F(DemoScriptTest, GivesUpAProxyThatNobodyUses) {
  DemoScript script(*fleet, 5000);
  script.Update(0);
  EXPECT_FALSE(script.Update(1000));
  EXPECT_FALSE(script.Update(20999));
  EXPECT_TRUE(script.Update(21000));
  EXPECT_EQ(script.Fault(), "the client did not connect to the first proxy that joined");
  EXPECT_FALSE(script.IsComplete());
  EXPECT_TRUE(script.Update(30000)) << "for good";
  EXPECT_EQ(fleet->ProxyCount(), 5u);
}

}  // namespace
}  // namespace OstrandCli
