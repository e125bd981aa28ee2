#include <gtest/gtest.h>
#include <signal.h>

#include "cli_process/process.h"
#include "fleet/fleet.h"

namespace OstrandTest {
namespace {

class LoadCommandTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_fleet.IsUp()); }

  std::vector<std::string> Arguments(std::vector<std::string> more) const {
    more.insert(more.begin(), "load");
    more.insert(more.end(), {"--directory", m_fleet.Directory(), "--table", "t"});
    return more;
  }
  ProcessResult Load(const std::vector<std::string>& more) const {
    return RunProgram(Arguments(more));
  }
  ProcessResult Get(const std::string& id, std::vector<std::string> fields = {}) const {
    fields.insert(fields.begin(),
                  {"get", "--key", "id=" + id, "--directory", m_fleet.Directory(), "--table", "t"});
    return RunProgram(fields);
  }

  const FleetProcess m_fleet;
  const TemporaryFolder m_folder;
};

TEST_F(LoadCommandTest, LoadsTabSeparatedRecords) {
  const std::string file = m_folder.Write("in", "id\tn:uint16\ttext\n1\t513\ta b\n2\t7\t\n");
  const ProcessResult result = Load({file, "--key", "id"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "loaded 2\nfailed 0\nmalformed 0\n");
  EXPECT_NE(result.err.find("100 %  2 of 2 records"), std::string::npos) << result.err;
  EXPECT_EQ(Get("1", {"n:uint16", "text"}).out, "n=513\ntext=a b\n");
  EXPECT_FALSE(Exists(file + ".ostrand-load"));
  EXPECT_FALSE(Exists(file + ".ostrand-errors"));
}

TEST_F(LoadCommandTest, LoadsJsonLines) {
  const std::string file =
      m_folder.Write("in", "{\"id\":1,\"a\":\"x\"}\n\n{\"a\":\"y\",\"id\":\"2\",\"z\":null}\n");
  const ProcessResult result = Load({file, "--key", "id", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out.substr(0, 50), "{\"loaded\":2,\"failed\":0,\"malformed\":0,\"next_line\":0");
  EXPECT_EQ(Get("1").out, "a=x\n");
  EXPECT_EQ(Get("2").out, "a=y\n");
}

TEST_F(LoadCommandTest, LoadsStandardInput) {
  ProcessOptions options;
  options.input = "id\ta\n1\tx\n";
  const ProcessResult result = RunProgram(Arguments({"-", "--key", "id"}), options);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(Get("1").out, "a=x\n");
}

TEST_F(LoadCommandTest, InsertsOrReplaces) {
  const std::string file = m_folder.Write("in", "id\ta\n1\tx\n");
  ASSERT_EQ(Load({file, "--key", "id"}).status, 0);
  m_folder.Write("in", "id\ta\n1\ty\n");
  const ProcessResult refused = Load({file, "--key", "id", "--command", "insert"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "loaded 0\nfailed 1\nmalformed 0\n");
  EXPECT_NE(refused.err.find(file + ":2: -1293 (server: the record exists already)"),
            std::string::npos)
      << refused.err;
  EXPECT_EQ(Get("1").out, "a=x\n");
  EXPECT_EQ(Load({file, "--key", "id", "--command", "replace"}).status, 0);
  EXPECT_EQ(Get("1").out, "a=y\n");
}

TEST_F(LoadCommandTest, ListsMalformedRecordsAndLoadsThemWhenTheyAreCorrected) {
  const std::string file = m_folder.Write("in", "id\ta\n1\tx\n2\n3\tz\n");
  const ProcessResult result = Load({file, "--key", "id"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "loaded 2\nfailed 0\nmalformed 1\n");
  EXPECT_NE(result.err.find(file + ":3: the line has 1 fields, the header 2"), std::string::npos);
  EXPECT_NE(result.err.find("1 record is not in the table: " + file +
                            ".ostrand-errors lists them; --errors-only loads these alone"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(ReadAll(file + ".ostrand-errors"),
            "line\tcode\treason\n3\tmalformed\tthe line has 1 fields, the header 2\n");

  m_folder.Write("in", "id\ta\n1\tx\n2\ty\n3\tz\n");
  const ProcessResult again = Load({file, "--key", "id", "--errors-only"});
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(again.out, "loaded 1\nfailed 0\nmalformed 0\n");
  EXPECT_EQ(Get("2").out, "a=y\n");
  EXPECT_FALSE(Exists(file + ".ostrand-errors"));
}

TEST_F(LoadCommandTest, StopsAtAnErrorAndGoesOnWhenItIsCorrected) {
  const std::string file = m_folder.Write("in", "id\ta\n1\tx\n2\n3\tz\n");
  const ProcessResult result = Load({file, "--key", "id", "--stop-on-error"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("stopped at an error at line 3; the same command with --resume goes"),
            std::string::npos)
      << result.err;

  const ProcessResult refused = Load({file, "--key", "id"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("go on with --resume, or begin again with --restart"),
            std::string::npos)
      << refused.err;

  m_folder.Write("in", "id\ta\n1\tx\n2\ty\n3\tz\n");
  const ProcessResult resumed = Load({file, "--key", "id", "--resume"});
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_NE(resumed.err.find("going on at line 3"), std::string::npos) << resumed.err;
  EXPECT_EQ(resumed.out, "loaded 3\nfailed 0\nmalformed 0\n");
}

// Against a fleet so slow that the load takes far longer than the test until the signal.
TEST_F(LoadCommandTest, ContinuesWhereASignalStoppedIt) {
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  ASSERT_EQ(fleet.Start(), 0);
  OstrandFleet::ProxyFaults slow;
  slow.delay_ms = 100;
  fleet.SetFaults(0, slow);
  std::string text = "id\ta\n";
  for (int i = 0; i < 5000; ++i) {
    text += std::to_string(i) + "\t" + std::to_string(i) + "\n";
  }
  const std::string file = m_folder.Write("in", text);
  std::vector<std::string> arguments = {"load",     file, "--key",       "id",
                                        "--window", "8",  "--command",   "insert",
                                        "--table",  "t",  "--directory", fleet.DirectoryUrl()};
  Process process(arguments);
  ASSERT_TRUE(fleet.WaitFor(60000, [&] { return fleet.CountRecords(1, "t") > 20; }));
  process.Signal(SIGINT);
  const ProcessResult& stopped = process.Wait();
  ASSERT_EQ(stopped.status, 1);
  EXPECT_NE(stopped.err.find("interrupted at line "), std::string::npos) << stopped.err;
  EXPECT_TRUE(Exists(file + ".ostrand-load"));

  // Were a record sent a second time, its insert would be refused.
  fleet.SetFaults(0, {});
  arguments.emplace_back("--resume");
  const ProcessResult resumed = RunProgram(arguments);
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_EQ(resumed.out, "loaded 5000\nfailed 0\nmalformed 0\n");
  EXPECT_EQ(fleet.CountRecords(1, "t"), 5000U);
  EXPECT_FALSE(Exists(file + ".ostrand-load"));
}

// The state is at most a second old; replacing a record once more changes nothing.
TEST_F(LoadCommandTest, ContinuesAfterItWasKilled) {
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  ASSERT_EQ(fleet.Start(), 0);
  OstrandFleet::ProxyFaults slow;
  slow.delay_ms = 100;
  fleet.SetFaults(0, slow);
  std::string text = "id\ta\n";
  for (int i = 0; i < 1000; ++i) {
    text += std::to_string(i) + "\tx\n";
  }
  std::vector<std::string> arguments = {
      "load",        m_folder.Write("in", text), "--key", "id", "--window", "4", "--table", "t",
      "--directory", fleet.DirectoryUrl()};
  Process process(arguments);
  ASSERT_TRUE(fleet.WaitFor(60000, [&] { return fleet.CountRecords(1, "t") > 4; }));
  process.Signal(SIGKILL);
  EXPECT_EQ(process.Wait().signal, SIGKILL);

  fleet.SetFaults(0, {});
  arguments.emplace_back("--resume");
  const ProcessResult resumed = RunProgram(arguments);
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_EQ(resumed.out, "loaded 1000\nfailed 0\nmalformed 0\n");
  EXPECT_EQ(fleet.CountRecords(1, "t"), 1000U);
}

TEST_F(LoadCommandTest, SaysWhatIsWrongWithTheFile) {
  const struct {
    std::vector<std::string> arguments;
    const char* sentence;
  } cases[] = {
      {{m_folder.Path("none"), "--key", "id"}, "No such file or directory (check the path)"},
      {{m_folder.Path(""), "--key", "id"}, "Is a directory (name a file, not a folder)"},
      {{m_folder.Write("empty", ""), "--key", "id"}, "is empty: there is nothing to load"},
      {{m_folder.Write("head", "a\tb\n1\t2\n"), "--key", "id"},
       "head:1: the header has no field \"id\", which --key names"},
      {{m_folder.Write("in", "id\n1\n"), "--key", "id", "--errors-only"},
       "in.ostrand-errors: No such file or directory"},
  };
  for (const auto& c : cases) {
    const ProcessResult result = Load(c.arguments);
    EXPECT_EQ(result.status, 1) << c.sentence;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(c.sentence), std::string::npos) << result.err;
  }
}

TEST_F(LoadCommandTest, RefusesWrongOptions) {
  const std::string file = m_folder.Write("in", "id\n1\n");
  const std::vector<std::string> cases[] = {
      {file},
      {"--key", "id"},
      {file, "--key", "id", "--command", "update"},
      {file, "--key", "id", "--format", "xml"},
      {file, "--key", "id", "--window", "0"},
      {file, "--key", "id", "--resume", "--restart"},
      {file, "--key", "id:word"},
      {file, "--key", "id", "--errors-only", "--errors", "none"},
  };
  for (const std::vector<std::string>& arguments : cases) {
    const ProcessResult result = Load(arguments);
    EXPECT_EQ(result.status, 2) << arguments.back() << result.err;
    EXPECT_NE(result.err, "");
  }
}

TEST_F(LoadCommandTest, NoticesThatTheListOfErrorsIsOnAFullDisk) {
  const std::string file = m_folder.Write("in", "id\ta\n1\n");
  const ProcessResult result = Load({file, "--key", "id", "--errors", "/dev/full"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("cannot write /dev/full: No space left on device"), std::string::npos)
      << result.err;
}

TEST_F(LoadCommandTest, LeavesNothingWhenTheClusterIsNotThere) {
  const std::string file = m_folder.Write("in", "id\ta\n1\tx\n");
  const ProcessResult result =
      RunProgram({"load", file, "--key", "id", "--directory", "127.0.0.1:1", "--wait-ms", "100"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("no directory at tcp://127.0.0.1:1 could be used"), std::string::npos)
      << result.err;
  EXPECT_FALSE(Exists(file + ".ostrand-load"));
}

}  // namespace
}  // namespace OstrandTest
