#include "cli/connection.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "cli/commands.h"
#include "fleet/fleet.h"

namespace OstrandCli {
namespace {

// Opens a connection that waits only a moment; the sentence that the user gets.
std::string SentenceOf(Connection connection, int expected_status, int32_t wait_ms = 200) {
  connection.wait_ms = wait_ms;
  std::unique_ptr<OstrandService::PollingClient> client;
  testing::internal::CaptureStderr();
  EXPECT_EQ(connection.Open(client), expected_status);
  EXPECT_EQ(client == nullptr, expected_status != kExitSuccess);
  return testing::internal::GetCapturedStderr();
}

TEST(ConnectionTest, TakesItsOptionsFromTheCommandLine) {
  CLI::App app;
  Connection connection;
  connection.AddTo(&app);
  app.parse(
      "--directory a:1,b:2 --directory c:3 --app 7 --zone 2 --table user --user u --password p "
      "--timeout-ms 9");
  const OstrandService::ClientOptions options = connection.ToOptions();
  EXPECT_EQ(options.directory_urls, std::vector<std::string>({"a:1", "b:2", "c:3"}));
  EXPECT_EQ(options.app_id, 7);
  EXPECT_EQ(options.zones, std::vector<int32_t>({2}));
  ASSERT_EQ(options.tables.size(), 1U);
  EXPECT_EQ(options.tables[0].name, "user");
  EXPECT_EQ(options.tables[0].zone_id, 2);
  EXPECT_EQ(options.signature, "") << "there is a user";
  EXPECT_EQ(options.user_name, "u");
  EXPECT_EQ(options.password_encrypted, "p");
  EXPECT_EQ(options.default_timeout_ms, 9);
}

TEST(ConnectionTest, OpensAClientThatCanSend) {
  OstrandFleet::Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0);
  Connection connection;
  connection.directory_urls = {fleet.DirectoryUrl()};
  std::unique_ptr<OstrandService::PollingClient> client;
  EXPECT_EQ(connection.Open(client), kExitSuccess);
  EXPECT_NE(client, nullptr);
}

TEST(ConnectionTest, AsksForADirectory) {
  EXPECT_EQ(SentenceOf({}, kExitUsage),
            "ostrand: no directory is named: give --directory tcp://HOST:PORT, or set "
            "OSTRAND_DIRECTORY\n");
}

TEST(ConnectionTest, SaysThatOptionsAreWrong) {
  Connection connection;
  connection.directory_urls = {"127.0.0.1:1"};
  connection.table = "a table name with over 31 characters";
  EXPECT_EQ(SentenceOf(connection, kExitUsage),
            "ostrand: a table name must have 1 to 31 characters; see --help\n");
}

TEST(ConnectionTest, SaysThatNoDirectoryAnswers) {
  OstrandFleet::Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0);
  const std::string url = fleet.DirectoryUrl();
  fleet.Stop();
  Connection connection;
  connection.directory_urls = {url};
  EXPECT_EQ(SentenceOf(connection, kExitFailure),
            "ostrand: no directory at " + url + " could be used within 200 ms: directory " + url +
                ": connect: Connection refused; check that it runs (`ostrand fleet` starts one), "
                "--app and --zone, or name another with --directory\n");
}

TEST(ConnectionTest, SaysThatTheZoneHasNoProxies) {
  OstrandFleet::Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0);
  fleet.SetDirectoryFault(OstrandFleet::DirectoryFault::kWrongResult, -1);
  Connection connection;
  connection.directory_urls = {fleet.DirectoryUrl()};
  EXPECT_EQ(SentenceOf(connection, kExitFailure),
            "ostrand: no directory at " + fleet.DirectoryUrl() +
                " could be used within 200 ms: directory " + fleet.DirectoryUrl() +
                ": its answer cannot be used; check that it runs (`ostrand fleet` starts one), "
                "--app and --zone, or name another with --directory\n");
}

TEST(ConnectionTest, SaysThatTheSignUpIsRefused) {
  OstrandFleet::FleetOptions options;
  options.credentials.emplace_back();
  options.credentials.back().signature = "secret";
  OstrandFleet::Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  Connection connection;
  connection.directory_urls = {fleet.DirectoryUrl()};
  const std::string sentence = SentenceOf(connection, kExitFailure, 1000);
  EXPECT_NE(sentence.find("-9233"), std::string::npos) << sentence;
  EXPECT_NE(sentence.find("check that the proxies run, and --signature, --user and --password"),
            std::string::npos)
      << sentence;
}

}  // namespace
}  // namespace OstrandCli
