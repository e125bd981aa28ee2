#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <sstream>

#include "cli_process/process.h"

namespace OstrandTest {
namespace {

TEST(FleetCommandTest, WritesItsAddressesAndEndsAtASignal) {
  for (const int signal_number : {SIGINT, SIGTERM}) {
    Process process({"fleet", "--proxies", "3"});
    ASSERT_TRUE(process.WaitForOutput(" p2\n"));
    process.Signal(signal_number);
    const ProcessResult& result = process.Wait();
    EXPECT_EQ(result.status, 0);
    std::istringstream lines(result.out);
    std::string word;
    std::string url;
    std::string id;
    lines >> word >> url;
    EXPECT_EQ(word, "directory");
    EXPECT_EQ(url.substr(0, 16), "tcp://127.0.0.1:");
    for (const char* expected : {"p0", "p1", "p2"}) {
      lines >> word >> url >> id;
      EXPECT_EQ(word, "proxy");
      EXPECT_EQ(url.substr(0, 16), "tcp://127.0.0.1:");
      EXPECT_EQ(id, expected);
    }
    EXPECT_FALSE(lines >> word);
  }
}

TEST(FleetCommandTest, WritesTheFleetFileWhereThereIsNone) {
  const TemporaryFolder folder;
  const FleetProcess fleet({"--proxies", "1", "--route", folder.Path("route")});
  ASSERT_TRUE(fleet.IsUp());
  const std::string text = ReadAll(folder.Path("route"));
  EXPECT_NE(text.find("zone 1\n"), std::string::npos) << text;
  EXPECT_NE(text.find(" p0"), std::string::npos) << text;
}

TEST(FleetCommandTest, RunsAStandIn) {
  const FleetProcess fleet({"--stand-in"});
  ASSERT_TRUE(fleet.IsUp());
  const ProcessResult result =
      RunProgram({"get", "--key", "a=1", "--directory", fleet.Directory()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out.substr(0, 6), "value=");
}

TEST(FleetCommandTest, RefusesWrongOptions) {
  const std::vector<std::string> cases[] = {
      {"fleet", "--proxies", "0"},
      {"fleet", "--proxies", "1001"},
      {"fleet", "--proxies", "x"},
      {"fleet", "--port", "65536"},
      {"fleet", "--port", "-1"},
      {"fleet", "--nonsense"},
      {"fleet", "--proxies", "1000", "--port", "65000"},
  };
  for (const std::vector<std::string>& arguments : cases) {
    const ProcessResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, 2) << arguments.back();
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

TEST(FleetCommandTest, SaysThatAPortIsTaken) {
  const FleetProcess first;
  ASSERT_TRUE(first.IsUp());
  const std::string port = first.Directory().substr(first.Directory().rfind(':') + 1);
  const ProcessResult result = RunProgram({"fleet", "--port", port});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("the fleet does not start"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace OstrandTest
