#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/connection.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/status_json.h"
#include "common/clock.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr char kClearScreen[] = "\033[H\033[2J";
constexpr int64_t kSliceMs = 50;  // between looks at the signals

struct StatusArguments {
  Connection connection;
  double watch_s = 2;
  uint64_t rounds = 0;  // 0: until a signal
  bool is_json = false;
};

bool Show(const StatusArguments& arguments, const std::string& status, bool is_screen) {
  if (arguments.is_json) {
    return WriteStdout(StatusAsJson(status) + "\n");
  }
  return WriteStdout(is_screen ? kClearScreen + status : status);
}

// Lets the client live until then.
void WaitUntil(OstrandService::PollingClient& client, int64_t deadline_ms) {
  OstrandService::ClientResponse response;
  for (int64_t now_ms = GetMonotonicMilliseconds(); now_ms < deadline_ms && !Interrupted();
       now_ms = GetMonotonicMilliseconds()) {
    client.Receive(response, static_cast<int>(std::min(kSliceMs, deadline_ms - now_ms)));
  }
}

int Watch(const StatusArguments& arguments, OstrandService::PollingClient& client) {
  InterruptGuard interrupt_guard;
  const bool is_screen = isatty(STDOUT_FILENO) == 1 && !arguments.is_json;
  const auto interval_ms = static_cast<int64_t>(arguments.watch_s * 1000);
  int64_t due_ms = GetMonotonicMilliseconds();
  for (uint64_t round = 1; !Interrupted(); ++round) {
    if (!Show(arguments, client.StatusText(), is_screen)) {
      return kExitFailure;
    }
    if (round == arguments.rounds) {
      break;
    }
    due_ms = std::max(due_ms + interval_ms, GetMonotonicMilliseconds());
    WaitUntil(client, due_ms);
  }
  return kExitSuccess;
}

int RunStatus(const StatusArguments& arguments, bool is_watched) {
  std::unique_ptr<OstrandService::PollingClient> client;
  const int status = arguments.connection.Open(client);
  if (status != kExitSuccess) {
    return status;
  }
  if (is_watched) {
    return Watch(arguments, *client);
  }
  return Show(arguments, client->StatusText(), false) ? kExitSuccess : kExitFailure;
}

}  // namespace

void AddStatusCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<StatusArguments>();
  CLI::App* const command = app.add_subcommand(
      "status",
      "Signs up at the proxies and writes what this client sees of them: connections, ring,\n"
      "statistics.");
  CLI::Option* const watch =
      command
          ->add_option("--watch", arguments->watch_s,
                       "again and again, every so many seconds (2), until SIGINT or SIGTERM")
          ->expected(0, 1)
          ->check(CLI::Range(0.05, 86400.0))
          ->type_name("[SECONDS]");
  command->add_option("--rounds", arguments->rounds, "with --watch: end after so many")
      ->needs(watch)
      ->check(CLI::Range(1, INT32_MAX));
  command->add_flag("--json", arguments->is_json, "write a JSON object a line");
  arguments->connection.AddTo(command);
  command->callback(
      [arguments, watch, &status] { status = RunStatus(*arguments, watch->count() > 0); });
}

}  // namespace OstrandCli
