#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>

#include "cli/bench_report.h"
#include "cli/commands.h"
#include "cli/connection.h"
#include "cli/interrupt.h"
#include "cli/load_generator.h"
#include "cli/mixed_load.h"
#include "cli/output.h"
#include "cli/record_request.h"
#include "protocol/ostrand_protocol_cs.h"
#include "vex/vex_schema.h"

namespace OstrandCli {
namespace {

constexpr uint64_t kMaxKeys = 100000000;  // choosing zipfian keys takes a while to prepare
constexpr size_t kMaxWindow = 1000000;
constexpr double kDefaultSeconds = 10;

struct BenchArguments {
  Connection connection;
  MixedLoadOptions load;
  LoadLimits limits;
  double seconds = 0;
  std::string mix = "90:10";
  bool no_fill = false;
  bool is_json = false;
};

// "90:10": reads and writes, in any proportion.
bool ParseMix(const std::string& text, double& read_share) {
  unsigned reads = 0;
  unsigned writes = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%9u:%9u%n", &reads, &writes, &used) != 2 ||
      static_cast<size_t>(used) != text.size() || reads + writes == 0) {
    return false;
  }
  read_share = static_cast<double>(reads) / (static_cast<double>(reads) + writes);
  return true;
}

int Fail(const std::string& sentence) {
  PrintError(sentence);
  return kExitFailure;
}

// Writes every key once. kExitSuccess, or the user was told.
int Fill(OstrandService::PollingClient& client, const BenchArguments& arguments) {
  FillLoad fill(arguments.load);
  LoadGenerator generator(client);
  ProgressLine progress("writing the keys", arguments.load.keys);
  const uint64_t patience = arguments.load.keys + 1000;
  LoadLimits limits;
  limits.window = arguments.limits.window;
  limits.count_proxies = false;
  limits.go_on = [&] {
    progress.Update(fill.Written());
    const LoadFigures& figures = generator.Figures();
    return !Interrupted() && figures.timed_out + figures.failed < patience;
  };
  const int code = generator.Run(fill, limits);
  progress.Finish(fill.Written());
  if (code != 0 || fill.Refusal() != 0) {
    return Fail(
        "the keys could not be written: " + CodeWithText(code != 0 ? code : fill.Refusal()) +
        "; check --table, --key-field and --value-field, or do without with --no-fill");
  }
  if (fill.Written() != arguments.load.keys && !Interrupted()) {
    return Fail("only " + std::to_string(fill.Written()) + " of " +
                std::to_string(arguments.load.keys) +
                " keys could be written, the others got no answer; check the proxies with "
                "`ostrand status`");
  }
  return kExitSuccess;
}

// The load itself, with a line that shows how far it is.
int Measure(const BenchArguments& arguments, LoadGenerator& generator, MixedLoad& load) {
  LoadLimits limits = arguments.limits;
  limits.duration_ms = static_cast<int64_t>(arguments.seconds * 1000);
  ProgressLine progress("bench", limits.requests, "requests", stderr, isatty(STDERR_FILENO) == 1);
  limits.go_on = [&] {
    const LoadFigures& figures = generator.Figures();
    progress.Update(figures.answered + figures.timed_out + figures.failed);
    return !Interrupted();
  };
  const int code = generator.Run(load, limits);
  progress.Finish(generator.Figures().sent);
  return code == 0 ? kExitSuccess : Fail("the load ended before its time: " + CodeWithText(code));
}

int RunBench(BenchArguments& arguments) {
  if (!ParseMix(arguments.mix, arguments.load.read_share)) {
    PrintError("--mix is READS:WRITES, like 90:10, not '" + arguments.mix + "'");
    return kExitUsage;
  }
  if (arguments.seconds == 0 && arguments.limits.requests == 0) {
    arguments.seconds = kDefaultSeconds;
  }
  arguments.load.zone = arguments.connection.zone;
  arguments.load.table = arguments.connection.table;
  std::unique_ptr<OstrandService::PollingClient> client;
  int status = arguments.connection.Open(client);
  if (status != kExitSuccess) {
    return status;
  }
  PrintRemark("the seed is " + std::to_string(arguments.load.seed) + " (--seed)");
  InterruptGuard guard;
  status = arguments.no_fill ? kExitSuccess : Fill(*client, arguments);
  if (status != kExitSuccess) {
    return status;
  }
  LoadGenerator generator(*client);
  MixedLoad load(arguments.load);
  status = Measure(arguments, generator, load);
  if (status != kExitSuccess) {
    return status;
  }
  const BenchReport report{generator.Figures(), load.Reads(), load.Writes(), arguments.load,
                           arguments.limits.window};
  if (!WriteStdout(arguments.is_json ? BenchJson(report) : BenchText(report))) {
    return kExitFailure;
  }
  if (!report.figures.AddUp()) {
    return Fail("the figures do not add up; this is a fault of the client library");
  }
  if (report.figures.answered == 0) {
    return Fail("no request was answered; check the proxies with `ostrand status`");
  }
  return kExitSuccess;
}

void AddLoadOptions(CLI::App* command, BenchArguments& arguments) {
  const std::string group = "Load";
  const auto add = [command, &group](const char* name, auto& value, const char* help) {
    return command->add_option(name, value, help)->capture_default_str()->group(group);
  };
  add("--window", arguments.limits.window, "requests in flight")
      ->check(CLI::Range(size_t{1}, kMaxWindow));
  add("--mix", arguments.mix, "proportion of reads to writes")->type_name("READS:WRITES");
  const std::map<std::string, KeyDistribution> names = {{"uniform", KeyDistribution::kUniform},
                                                        {"zipfian", KeyDistribution::kZipfian}};
  command
      ->add_option("--distribution", arguments.load.distribution,
                   "how keys are chosen: all alike (uniform), or some oftener (zipfian)")
      ->transform(CLI::CheckedTransformer(names).description(""))
      ->type_name("NAME")
      ->default_str("uniform")
      ->group(group);
  add("--zipf-theta", arguments.load.zipf_theta, "how unlike zipfian keys are: above 0, below 1")
      ->check(CLI::Range(0.001, 0.999));
  add("--keys", arguments.load.keys, "number of keys")->check(CLI::Range(uint64_t{1}, kMaxKeys));
  add("--value-size", arguments.load.value_size, "bytes of a value")
      ->check(CLI::Range(size_t{1}, ostrand_protocol_cs::OSTRAND_MAX_RECORD_VALUE_LEN));
  const auto check_name = [](const std::string& name) {
    return !name.empty() && name.size() <= kVexNameBytesMax ? ""
                                                            : "a field's name has 1 to 31 bytes";
  };
  add("--key-field", arguments.load.key_field, "field of the key")->check(check_name);
  add("--value-field", arguments.load.value_field, "field of the value")->check(check_name);
  add("--seed", arguments.load.seed, "of everything that is chosen at random");
}

}  // namespace

void AddBenchCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<BenchArguments>();
  CLI::App* const command = app.add_subcommand(
      "bench",
      "Keeps a window of reads and writes in flight and measures throughput, latency and cost.\n"
      "It writes keys key-0000000000 and on into the table.");
  AddLoadOptions(command, *arguments);
  command->add_option("--seconds", arguments->seconds, "how long; 10 unless --requests is given")
      ->check(CLI::Range(0.001, 86400.0))
      ->group("Load");
  command->add_option("--requests", arguments->limits.requests, "how many requests at most")
      ->check(CLI::Range(uint64_t{1}, UINT64_MAX / 2))
      ->group("Load");
  command->add_flag("--no-fill", arguments->no_fill, "do not write every key once before")
      ->group("Load");
  command->add_flag("--json", arguments->is_json, "write a JSON object");
  arguments->connection.AddTo(command);
  command->callback([arguments, &status] { status = RunBench(*arguments); });
}

}  // namespace OstrandCli
