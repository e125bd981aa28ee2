// The program `ostrand`: its sub-commands, and what becomes of their mistakes.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "cli/commands.h"
#include "cli/output.h"

namespace {

constexpr char kDescription[] =
    "Reads, writes, loads and looks into a distributed table store.\n"
    "Start with `ostrand fleet`, a store in memory to try things out.";

using AddCommand = void (*)(CLI::App& app, int& status);

constexpr AddCommand kCommands[] = {
    OstrandCli::AddFleetCommand,   OstrandCli::AddGetCommand,    OstrandCli::AddInsertCommand,
    OstrandCli::AddReplaceCommand, OstrandCli::AddUpdateCommand, OstrandCli::AddDeleteCommand,
    OstrandCli::AddLoadCommand,    OstrandCli::AddBenchCommand,  OstrandCli::AddRingCommand,
    OstrandCli::AddStatusCommand,  OstrandCli::AddDemoCommand,
};

// Words that are no command; options are the parser's business.
bool IsUnknownCommand(const CLI::App& app, const std::string& word) {
  const auto is_it = [&word](const CLI::App* command) { return command->get_name() == word; };
  return word.substr(0, 1) != "-" && app.get_subcommands(is_it).empty();
}

// Help goes to standard output and is a success; a wrong command line is told on standard error.
int ReportParse(const CLI::App& app, const CLI::ParseError& error) {
  return app.exit(error) == 0 ? OstrandCli::kExitSuccess : OstrandCli::kExitUsage;
}

int RunProgram(int argc, char** argv) {
  int status = OstrandCli::kExitSuccess;
  CLI::App app(kDescription, "ostrand");
  app.require_subcommand(1);
  app.set_version_flag("--version", "ostrand " OSTRAND_VERSION);
  for (const AddCommand add_command : kCommands) {
    add_command(app, status);
  }
  if (argc > 1 && IsUnknownCommand(app, argv[1])) {
    OstrandCli::PrintError("there is no command \"" + std::string(argv[1]) +
                           "\"; `ostrand --help` lists them");
    return OstrandCli::kExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return ReportParse(app, error);
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunProgram(argc, argv);
  } catch (const std::exception& error) {
    OstrandCli::PrintError(std::string("it cannot go on: ") + error.what());
    return OstrandCli::kExitFailure;
  }
}
