// `ostrand demo` as a process, with a small data set.
#include <gtest/gtest.h>

#include <csignal>
#include <numeric>
#include <string>
#include <vector>

#include "cli_process/json_value.h"
#include "cli_process/process.h"
#include "svg_check.h"

namespace OstrandTest {
namespace {

using Texts = std::vector<std::string>;

class DemoCommandTest : public testing::Test {
 protected:
  // A file of so many packages.
  std::string Packages(int count, const std::string& behind = "") {
    std::string text;
    for (int i = 0; i < count; ++i) {
      const std::string number = std::to_string(i);
      text += "Package: package-" + number + "\nVersion: 1." + number + "-1\nSection: section-" +
              std::to_string(i % 7) + "\nSize: " + std::to_string(1000 * i) +
              "\nDescription: the package " + number + "\n and more of it\n\n";
    }
    return folder.Write("packages", text + behind);
  }

  ProcessResult Run(const Texts& more) {
    Texts arguments = {"demo", "--svg", svg, "--seconds", "0.5"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunProgram(arguments);
  }

  TemporaryFolder folder;
  const std::string svg = folder.Path("ring.svg");
};

TEST_F(DemoCommandTest, PassesAndItsFiguresAddUp) {
  const ProcessResult result = Run({"--data", Packages(600), "--json"});
  ASSERT_EQ(result.status, 0) << result.err << result.out;
  const std::string& json = result.out;
  EXPECT_NE(json.find("\"passed\":true,\"faults\":[]"), std::string::npos) << json;
  EXPECT_EQ(JsonNumber(json, "records"), 600);
  EXPECT_EQ(JsonNumber(json, "read_back"), 600);
  EXPECT_EQ(JsonNumber(json, "wrong"), 0);
  EXPECT_EQ(JsonTexts(json, "name"), (Texts{"load", "read back", "mixed load", "read back again"}));

  // Of all together and of each stage: every request has its one outcome.
  const size_t proxies_begin = json.find("\"proxies\"");
  const std::string stages = json.substr(0, proxies_begin);
  const std::vector<double> requests = JsonNumbers(stages, "requests");
  const std::vector<double> answers = JsonNumbers(stages, "answers");
  const std::vector<double> timed_out = JsonNumbers(stages, "timed_out");
  const std::vector<double> failed = JsonNumbers(stages, "failed");
  ASSERT_EQ(requests.size(), 5u);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(requests[i], answers[i] + timed_out[i] + failed[i]) << i;
  }
  EXPECT_EQ(requests[0], requests[1] + requests[2] + requests[3] + requests[4]);
  EXPECT_EQ(JsonNumber(json, "repeated"), timed_out[0] + failed[0]);

  const std::string proxies = json.substr(proxies_begin);
  EXPECT_EQ(JsonTexts(proxies, "state"), (Texts{"runs", "stopped", "runs", "killed", "runs", "runs",
                                                "runs", "runs", "runs", "runs"}));
  for (const char* share : {"first_share", "first_ring_share", "last_share", "last_ring_share"}) {
    const std::vector<double> shares = JsonNumbers(proxies, share);
    EXPECT_NEAR(std::accumulate(shares.begin(), shares.end(), 0.0), 1, 1e-4) << share;
  }
  const std::vector<double> of_proxies = JsonNumbers(proxies, "requests");
  EXPECT_EQ(std::accumulate(of_proxies.begin(), of_proxies.end(), 0.0), requests[0] - failed[0]);
}

TEST_F(DemoCommandTest, DrawsTheRingBeforeAndAfter) {
  ASSERT_EQ(Run({"--data", Packages(50)}).status, 0);
  EXPECT_EQ(XmlFault(ReadAll(svg)), "");
  const auto bands = SvgBands(ReadAll(svg), {"proxy"});
  ASSERT_EQ(bands.size(), 2u);
  for (const auto& [radius, band] : bands) {
    EXPECT_EQ(band.fault, "") << radius;
    EXPECT_NEAR(band.turns, 1, 1e-3) << radius;
  }
}

TEST_F(DemoCommandTest, FailsWhenAnAnswerIsWrong) {
  const ProcessResult result = Run({"--data", Packages(600), "--inject-wrong-answers"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("the answer is wrong: its field revision is another"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("FAILED: "), std::string::npos) << result.out;
  EXPECT_NE(result.err.find("answers were wrong"), std::string::npos) << result.err;
}

TEST_F(DemoCommandTest, TellsWhatHappensOnStandardErrorAndTheTableOnStandardOutput) {
  const ProcessResult result = Run({"--data", Packages(100), "--seed", "7"});
  ASSERT_EQ(result.status, 0) << result.err << result.out;
  for (const char* part : {"100 records", "the seed is 7", "p8 joins", "p9 joins",
                           "p1 asks to be allowed to stop", "p1 has stopped", "p3 is killed"}) {
    EXPECT_NE(result.err.find(part), std::string::npos) << part << "\n" << result.err;
  }
  for (const char* part : {"mixed load", "p99.99", "wrong answers", "last ring", "killed",
                           "Every record was read back as it was written"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << part << "\n" << result.out;
  }
}

TEST_F(DemoCommandTest, StopsAtAMalformedStanzaOrLeavesItOut) {
  const std::string file = Packages(30, "Package: broken\nSize: much\n\n");
  const ProcessResult stopped = Run({"--data", file});
  EXPECT_EQ(stopped.status, 1);
  EXPECT_NE(stopped.err.find("line 212: the size is not a number of bytes"), std::string::npos)
      << stopped.err;
  EXPECT_NE(stopped.err.find("--skip-malformed"), std::string::npos) << stopped.err;
  EXPECT_EQ(stopped.out, "");
  const ProcessResult skipped = Run({"--data", file, "--skip-malformed"});
  EXPECT_EQ(skipped.status, 0) << skipped.err;
  EXPECT_NE(skipped.err.find("left out, line 212"), std::string::npos) << skipped.err;
}

TEST_F(DemoCommandTest, TakesNoMoreRecordsThanItIsTold) {
  const ProcessResult result = Run({"--data", Packages(30), "--records", "12", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(JsonNumber(result.out, "records"), 12);
}

TEST_F(DemoCommandTest, AnInterruptEndsItAsAFailure) {
  Process demo({"demo", "--svg", svg, "--seconds", "60", "--data", Packages(30)});
  ASSERT_TRUE(demo.WaitForError("the seed is")) << demo.ErrorOutput();
  ASSERT_TRUE(demo.WaitForError("read back")) << demo.ErrorOutput();
  demo.Signal(SIGINT);
  const ProcessResult& result = demo.Wait();
  EXPECT_TRUE(result.in_time);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("interrupted"), std::string::npos) << result.err;
}

TEST_F(DemoCommandTest, SaysWhatIsWrongAndFails) {
  const struct {
    Texts arguments;
    int status;
    const char* says;
  } kCases[] = {
      {{"--unknown"}, 2, "--unknown"},
      {{"--seconds", "0"}, 2, "--seconds"},
      {{"--data", "/nowhere/packages"}, 1, "/nowhere/packages"},
      {{"--data", "/dev/null"}, 1, "/dev/null has no stanza that can be used"},
  };
  for (const auto& c : kCases) {
    const ProcessResult result = Run(c.arguments);
    EXPECT_EQ(result.status, c.status) << c.says << "\n" << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << c.says << "\n" << result.err;
    EXPECT_EQ(result.out, "") << c.says;
  }
}

TEST_F(DemoCommandTest, WithoutAPackageIndexItSaysWhatToDo) {
  ProcessOptions options;
  options.environment = {"PATH=/nowhere"};
  const ProcessResult result = RunProgram({"demo", "--svg", svg}, options);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("give a file with --data FILE"), std::string::npos) << result.err;
}

TEST_F(DemoCommandTest, APictureThatCannotBeWrittenIsAFailure) {
  const ProcessResult result =
      RunProgram({"demo", "--svg", "/nowhere/ring.svg", "--seconds", "0.2", "--data", Packages(5)});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("/nowhere/ring.svg"), std::string::npos) << result.err;
}

TEST(DemoCommand, HelpNamesItsOptions) {
  const ProcessResult result = RunProgram({"demo", "--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* option : {"--data", "--svg", "--seconds", "--seed", "--records", "--json"}) {
    EXPECT_NE(result.out.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(result.out.find("inject"), std::string::npos) << "for tests alone";
}

}  // namespace
}  // namespace OstrandTest
