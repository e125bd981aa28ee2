#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>

#include "cli_process/process.h"

namespace OstrandTest {
namespace {

class StatusCommandTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_fleet.IsUp()); }

  std::vector<std::string> Arguments(std::vector<std::string> more) {
    more.insert(more.begin(), {"status", "--directory", m_fleet.Directory()});
    return more;
  }

  FleetProcess m_fleet;
};

TEST_F(StatusCommandTest, WritesTheStatusText) {
  const ProcessResult result = RunProgram(Arguments({}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out.substr(0, 7), "zone 1\n");
  EXPECT_NE(result.out.find("\tauth_success_proxy:"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("app 1 zone 1, this minute\n"), std::string::npos);
  EXPECT_EQ(result.err, "");
}

TEST_F(StatusCommandTest, WritesJson) {
  const ProcessResult result = RunProgram(Arguments({"--json"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out.rfind("{\"sections\":[{\"title\":\"zone 1\",\"figures\":{", 0), 0U)
      << result.out;
  EXPECT_NE(result.out.find("\"dwReqSucNumPerMin\":0"), std::string::npos);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1);
}

TEST_F(StatusCommandTest, WatchesForSomeRounds) {
  const ProcessResult result =
      RunProgram(Arguments({"--watch", "0.05", "--rounds", "3", "--json"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 3);
}

TEST_F(StatusCommandTest, WatchesUntilASignal) {
  Process process(Arguments({"--watch", "--json"}));
  ASSERT_TRUE(process.WaitForOutput("\n"));
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().status, 0);
}

TEST_F(StatusCommandTest, SeesAProxyGo) {
  Process process(Arguments({"--watch", "0.05", "--json"}));
  ASSERT_TRUE(process.WaitForOutput("\"auth_success_proxy\":2"));
  m_fleet.Child().Signal(SIGTERM);
  EXPECT_TRUE(process.WaitForOutput("\"auth_success_proxy\":0"));
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait().status, 0);
}

TEST_F(StatusCommandTest, RefusesWrongOptions) {
  EXPECT_EQ(RunProgram(Arguments({"--watch", "0"})).status, 2);
  EXPECT_EQ(RunProgram(Arguments({"--rounds", "2"})).status, 2);
}

TEST_F(StatusCommandTest, NoticesThatStandardOutputIsFull) {
  ProcessOptions options;
  options.stdout_path = "/dev/full";
  EXPECT_EQ(RunProgram(Arguments({"--watch"}), options).status, 1);
}

}  // namespace
}  // namespace OstrandTest
