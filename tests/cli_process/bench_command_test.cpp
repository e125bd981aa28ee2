// `ostrand bench` as a process, against a fleet of another.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "cli_process/json_value.h"
#include "cli_process/process.h"

namespace OstrandTest {
namespace {

using Texts = std::vector<std::string>;

class BenchCommandTest : public testing::Test {
 protected:
  // Starts a fleet of the test's own, and runs bench against it.
  void StartFleet(const Texts& arguments) {
    fleet = std::make_unique<FleetProcess>(arguments);
    ASSERT_TRUE(fleet->IsUp());
  }

  Texts Arguments(const Texts& more) {
    Texts arguments = {"bench", "--directory", fleet->Directory(), "--keys", "500"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  static void ExpectToAddUp(const std::string& json) {
    EXPECT_EQ(
        JsonNumber(json, "sent"),
        JsonNumber(json, "answered") + JsonNumber(json, "timed_out") + JsonNumber(json, "failed"));
    EXPECT_EQ(JsonNumber(json, "sent"), JsonNumber(json, "reads") + JsonNumber(json, "writes"));
    const std::vector<double> requests = JsonNumbers(json, "requests");
    EXPECT_EQ(std::accumulate(requests.begin(), requests.end(), 0.0),
              JsonNumber(json, "sent") - JsonNumber(json, "failed"));
  }

  std::unique_ptr<FleetProcess> fleet;
};

TEST_F(BenchCommandTest, FiguresAddUp) {
  StartFleet({"--proxies", "3"});
  const ProcessResult result = RunProgram(Arguments({"--requests", "5000", "--json"}));
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string& json = result.out;
  EXPECT_EQ(JsonNumber(json, "sent"), 5000);
  EXPECT_EQ(JsonNumber(json, "answered"), 5000);
  EXPECT_EQ(JsonNumber(json, "refused"), 0) << "every key was written before";
  ExpectToAddUp(json);
  EXPECT_NEAR(JsonNumber(json, "reads") / 5000, 0.9, 0.03);
  double before = 0;
  for (const char* percent : {"min", "p50", "p75", "p90", "p95", "p99", "p99.9", "p99.99", "max"}) {
    EXPECT_GE(JsonNumber(json, percent), before) << percent;
    before = JsonNumber(json, percent);
  }
  EXPECT_NEAR(JsonNumber(json, "answers_per_second") * JsonNumber(json, "seconds"), 5000, 10);
  EXPECT_GT(JsonNumber(json, "user") + JsonNumber(json, "system"), 0);
  EXPECT_GT(JsonNumber(json, "system_calls_per_request"), 0);
  EXPECT_NE(result.err.find("the seed is 1"), std::string::npos) << result.err;
}

TEST_F(BenchCommandTest, ATableForTheEye) {
  StartFleet({"--proxies", "2"});
  const ProcessResult result =
      RunProgram(Arguments({"--requests", "1000", "--mix", "0:1", "--seed", "9"}));
  ASSERT_EQ(result.status, 0) << result.err;
  for (const char* part : {"1,000 (0 reads, 1,000 writes)", "throughput", "p99.99",
                           "client CPU a request", "system calls a request", "share"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << part << "\n" << result.out;
  }
  EXPECT_NE(result.err.find("the seed is 9"), std::string::npos) << result.err;
}

TEST_F(BenchCommandTest, ZipfianKeysMakeOneProxyBusierThanUniformOnes) {
  StartFleet({"--proxies", "4"});
  const auto largest_share = [this](const std::string& distribution) {
    const ProcessResult result = RunProgram(Arguments(
        {"--requests", "4000", "--distribution", distribution, "--zipf-theta", "0.99", "--json"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(JsonTexts(result.out, "distribution"), Texts{distribution});
    const std::vector<double> shares = JsonNumbers(result.out, "share");
    return shares.empty() ? 0 : *std::max_element(shares.begin(), shares.end());
  };
  EXPECT_GT(largest_share("zipfian"), largest_share("uniform"));
}

TEST_F(BenchCommandTest, LastsAsLongAsItIsToldTo) {
  StartFleet({"--proxies", "1"});
  const ProcessResult result = RunProgram(Arguments({"--seconds", "0.2", "--json"}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_GE(JsonNumber(result.out, "seconds"), 0.2);
  EXPECT_GT(JsonNumber(result.out, "sent"), 0);
  ExpectToAddUp(result.out);
}

TEST_F(BenchCommandTest, CountsAnswersThatRefuseWhenNothingWasWritten) {
  StartFleet({"--proxies", "1"});
  const ProcessResult result =
      RunProgram(Arguments({"--requests", "100", "--mix", "1:0", "--no-fill", "--json"}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(JsonNumber(result.out, "refused"), 100);
  EXPECT_EQ(JsonNumber(result.out, "code"), -7949);
  EXPECT_EQ(JsonNumber(result.out, "times"), 100);
}

TEST_F(BenchCommandTest, TimeOutsAreCountedAndAddUp) {
  TemporaryFolder folder;
  const std::string route = folder.Path("route");
  StartFleet({"--proxies", "2", "--route", route});
  const std::string text = ReadAll(route);
  folder.Write("route", text + "fault p0 drop_every 20\n");
  // The fault may take a moment to hold: asked again until it shows.
  double timed_out = 0;
  for (int i = 0; i < 20 && timed_out == 0; ++i) {
    const ProcessResult result =
        RunProgram(Arguments({"--requests", "2000", "--timeout-ms", "200", "--json"}));
    ASSERT_EQ(result.status, 0) << result.err;
    ExpectToAddUp(result.out);
    timed_out = JsonNumber(result.out, "timed_out");
  }
  EXPECT_GT(timed_out, 0);
}

TEST_F(BenchCommandTest, AnInterruptEndsItWithTheFiguresSoFar) {
  StartFleet({"--proxies", "1"});
  Process bench(Arguments({"--seconds", "60", "--json"}));
  ASSERT_TRUE(bench.WaitForError("of 500 records")) << bench.ErrorOutput();
  bench.Signal(SIGINT);
  const ProcessResult& result = bench.Wait();
  EXPECT_TRUE(result.in_time);
  EXPECT_EQ(result.signal, 0);
  if (result.status == 0) {  // else it was interrupted before a single answer
    ExpectToAddUp(result.out);
  }
}

TEST(BenchCommand, HelpNamesItsOptions) {
  const ProcessResult result = RunProgram({"bench", "--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* option : {"--window", "--mix", "--distribution", "--zipf-theta", "--keys",
                             "--value-size", "--seconds", "--requests", "--seed", "--json"}) {
    EXPECT_NE(result.out.find(option), std::string::npos) << option;
  }
}

TEST(BenchCommand, SaysWhatIsWrongAndFails) {
  const struct {
    Texts arguments;
    int status;
    const char* says;
  } kCases[] = {
      {{}, 2, "no directory is named"},
      {{"--unknown"}, 2, "--unknown"},
      {{"--mix", "90"}, 2, "READS:WRITES"},
      {{"--mix", "0:0"}, 2, "READS:WRITES"},
      {{"--mix", "1:2:3"}, 2, "READS:WRITES"},
      {{"--window", "0"}, 2, "--window"},
      {{"--zipf-theta", "1"}, 2, "--zipf-theta"},
      {{"--distribution", "normal"}, 2, "--distribution"},
      {{"--keys", "0"}, 2, "--keys"},
      {{"--value-size", "0"}, 2, "--value-size"},
      {{"--key-field", "a-name-that-is-longer-than-31-characters"}, 2, "31 bytes"},
      {{"--directory", "tcp://127.0.0.1:1", "--wait-ms", "100"}, 1, "tcp://127.0.0.1:1"},
      {{"--directory", "tcp://no.such.host.invalid:1"}, 1, "no.such.host.invalid"},
  };
  for (const auto& c : kCases) {
    Texts arguments = {"bench"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    const ProcessResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, c.status) << c.says << "\n" << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << c.says << "\n" << result.err;
    EXPECT_EQ(result.out, "") << c.says;
  }
}

}  // namespace
}  // namespace OstrandTest
