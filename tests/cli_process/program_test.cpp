// The program as a whole: help, version, and command lines that are wrong.
#include <gtest/gtest.h>

#include "cli_process/process.h"

namespace OstrandTest {
namespace {

constexpr const char* kCommands[] = {"fleet", "get",   "insert", "replace", "update", "delete",
                                     "load",  "bench", "ring",   "status",  "demo"};

TEST(ProgramTest, ListsItsCommands) {
  const ProcessResult result = RunProgram({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  for (const char* command : kCommands) {
    EXPECT_NE(result.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
}

TEST(ProgramTest, HasHelpForEachCommand) {
  for (const char* command : kCommands) {
    const ProcessResult result = RunProgram({command, "--help"});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_NE(result.out.find(std::string("Usage: ostrand ") + command), std::string::npos)
        << command << ": " << result.out;
    EXPECT_EQ(result.err, "") << command;
  }
}

TEST(ProgramTest, TellsItsVersion) {
  const ProcessResult result = RunProgram({"--version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out.substr(0, 8), "ostrand ");
}

TEST(ProgramTest, RefusesAWrongCommandLine) {
  const struct {
    std::vector<std::string> arguments;
    const char* sentence;
  } cases[] = {
      {{}, "A subcommand is required\nRun with --help for more information.\n"},
      {{"nonsense"}, "ostrand: there is no command \"nonsense\"; `ostrand --help` lists them\n"},
      {{"status", "--nonsense"}, "--nonsense\nRun with --help for more information.\n"},
      {{"get"}, "--key is required\nRun with --help for more information.\n"},
      {{"status", "--app", "0"}, "--app: Value 0 not in range 1 to 2147483647\n"},
      {{"status", "--user", "u"}, "--user requires --password\n"},
  };
  for (const auto& c : cases) {
    const ProcessResult result = RunProgram(c.arguments);
    EXPECT_EQ(result.status, 2) << c.sentence;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(c.sentence), std::string::npos) << result.err;
  }
}

}  // namespace
}  // namespace OstrandTest
