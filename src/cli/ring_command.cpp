#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "cli/commands.h"
#include "cli/connection.h"
#include "cli/fields.h"
#include "cli/output.h"
#include "cli/record_request.h"
#include "cli/ring_picture.h"
#include "cli/ring_report.h"
#include "cli/route_source.h"
#include "client/router_request.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

constexpr char kRouteHelp[] =
    "a route: a fleet file, addresses of proxies separated by commas, a number of proxies without "
    "addresses, or 'directory' for what the directory says now";

struct RingArguments {
  Connection connection;
  std::string route = kLiveRoute;
  std::string old_route;
  std::vector<std::string> key;
  size_t owners = 3;
  std::string svg;
  bool is_json = false;
};

int Fail(int status, const std::string& sentence) {
  PrintError(sentence);
  return status;
}

// kExitSuccess, or the user was told.
int Read(const RingArguments& arguments, const std::string& name, Route& route) {
  if (name == kLiveRoute && arguments.connection.directory_urls.empty()) {
    return Fail(kExitUsage,
                "no directory is named: give --directory tcp://HOST:PORT, set OSTRAND_DIRECTORY, "
                "or name a route in another way (see --help)");
  }
  std::vector<std::string> remarks;
  std::string error;
  if (!ReadRoute(name, arguments.connection, route, remarks, error)) {
    return Fail(kExitFailure, error);
  }
  for (const std::string& remark : remarks) {
    PrintRemark(remark);
  }
  return kExitSuccess;
}

// The report to standard output, the picture, if one is wanted, to its file.
int Answer(const RingArguments& arguments, const std::string& report, const std::string& picture) {
  std::string error;
  if (!arguments.svg.empty() && !WriteFile(arguments.svg, picture, error)) {
    return Fail(kExitFailure, error);
  }
  return WriteStdout(report) ? kExitSuccess : kExitFailure;
}

int RunShow(const RingArguments& arguments) {
  Route route;
  const int status = Read(arguments, arguments.route, route);
  if (status != kExitSuccess) {
    return status;
  }
  const NamedRing ring(UrlsOf(route));
  return Answer(arguments, arguments.is_json ? ShowJson(ring, route) : ShowText(ring, route),
                arguments.svg.empty() ? "" : DrawRing(ring));
}

int RunDiff(const RingArguments& arguments) {
  Route old_route;
  Route new_route;
  int status = Read(arguments, arguments.old_route, old_route);
  if (status == kExitSuccess) {
    status = Read(arguments, arguments.route, new_route);
  }
  if (status != kExitSuccess) {
    return status;
  }
  const RouteChange change(old_route, new_route);
  return Answer(arguments, arguments.is_json ? DiffJson(change) : DiffText(change),
                arguments.svg.empty() ? "" : DrawDiff(change.diff));
}

int RunWhere(const RingArguments& arguments) {
  std::vector<Field> key;
  std::string error;
  if (!ParseFields(arguments.key, key, error)) {
    return Fail(kExitUsage, error);
  }
  OstrandService::ClientRequest request;
  const int code =
      FillRequest(request, ostrand_protocol_cs::OSTRAND_API_GET_REQ, arguments.connection, key, {});
  if (code != 0) {
    return Fail(kExitUsage, "no key can be made of this: " + CodeWithText(code));
  }
  Route route;
  const int status = Read(arguments, arguments.route, route);
  if (status != kExitSuccess) {
    return status;
  }
  const NamedRing ring(UrlsOf(route));
  OstrandService::RouterRequest routed;
  routed.Load(request.Head(), request.Bytes());
  const KeyPlace place{key, ring.View().PositionOf(routed), arguments.owners};
  return WriteStdout(arguments.is_json ? WhereJson(ring, route, place)
                                       : WhereText(ring, route, place))
             ? kExitSuccess
             : kExitFailure;
}

CLI::App* AddOne(CLI::App* ring, const char* name, const char* help,
                 const std::shared_ptr<RingArguments>& arguments) {
  CLI::App* const command = ring->add_subcommand(name, help);
  command->add_flag("--json", arguments->is_json, "write a JSON object");
  arguments->connection.AddTo(command);
  return command;
}

void AddSvg(CLI::App* command, const std::shared_ptr<RingArguments>& arguments) {
  command->add_option("--svg", arguments->svg, "draw a picture into this file")->type_name("FILE");
}

void AddWhere(CLI::App* ring, int& status) {
  const auto arguments = std::make_shared<RingArguments>();
  CLI::App* const command =
      AddOne(ring, "where", "Tells which proxy owns a key, why, and who comes next.", arguments);
  command->add_option("key", arguments->key, "the fields of the key")
      ->required()
      ->type_name("NAME[:TYPE]=VALUE");
  command->add_option("--route", arguments->route, kRouteHelp)->capture_default_str();
  command->add_option("--owners", arguments->owners, "how many owners to name")
      ->capture_default_str()
      ->check(CLI::Range(1, 200));
  command->callback([arguments, &status] { status = RunWhere(*arguments); });
}

void AddShow(CLI::App* ring, int& status) {
  const auto arguments = std::make_shared<RingArguments>();
  CLI::App* const command =
      AddOne(ring, "show", "Tells each proxy's share of the key space.", arguments);
  command->add_option("route", arguments->route, kRouteHelp)->capture_default_str();
  AddSvg(command, arguments);
  command->callback([arguments, &status] { status = RunShow(*arguments); });
}

void AddDiff(CLI::App* ring, int& status) {
  const auto arguments = std::make_shared<RingArguments>();
  CLI::App* const command = AddOne(
      ring, "diff", "Tells how much of the key space moves from one route to another.", arguments);
  command->add_option("old", arguments->old_route, kRouteHelp)->required();
  command->add_option("new", arguments->route, "the same for the route that follows")->required();
  AddSvg(command, arguments);
  command->callback([arguments, &status] { status = RunDiff(*arguments); });
}

}  // namespace

void AddRingCommand(CLI::App& app, int& status) {
  CLI::App* const ring = app.add_subcommand(
      "ring", "Looks at the consistent-hash ring that spreads keys over proxies.");
  ring->require_subcommand(1);
  AddWhere(ring, status);
  AddShow(ring, status);
  AddDiff(ring, status);
}

}  // namespace OstrandCli
