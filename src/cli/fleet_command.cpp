#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "fleet/fleet_program.h"

namespace OstrandCli {
namespace {

struct FleetArguments {
  int64_t proxies = 1;
  int64_t port = 0;
  std::string route;
  bool is_stand_in = false;
};

int RunFleet(const FleetArguments& arguments) {
  std::vector<std::string> words = {"ostrand fleet", "--proxies", std::to_string(arguments.proxies),
                                    "--port", std::to_string(arguments.port)};
  if (!arguments.route.empty()) {
    words.insert(words.end(), {"--route", arguments.route});
  }
  if (arguments.is_stand_in) {
    words.emplace_back("--stand-in");
  }
  std::vector<char*> pointers;
  pointers.reserve(words.size());
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  return OstrandFleet::RunFleetProgram(static_cast<int>(pointers.size()), pointers.data());
}

}  // namespace

void AddFleetCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<FleetArguments>();
  CLI::App* const command = app.add_subcommand(
      "fleet",
      "Runs a directory and proxies over one store in memory, on loopback, until SIGINT or\n"
      "SIGTERM. Standard output gets \"directory URL\" and, for every proxy, \"proxy URL ID\".");
  command->add_option("--proxies", arguments->proxies, "number of proxies")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  command
      ->add_option("--port", arguments->port,
                   "port of the directory, the proxies have the ports behind it; 0: free ports")
      ->capture_default_str()
      ->check(CLI::Range(0, UINT16_MAX));
  command
      ->add_option("--route", arguments->route,
                   "fleet file to follow: routes and faults; written where there is none")
      ->type_name("FILE");
  command->add_flag("--stand-in", arguments->is_stand_in,
                    "answer at the least possible cost, without a store");
  command->callback([arguments, &status] { status = RunFleet(*arguments); });
}

}  // namespace OstrandCli
