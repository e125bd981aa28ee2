#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"
#include "cli/demo.h"
#include "cli/demo_report.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/package_records.h"
#include "cli/ring_picture.h"

namespace OstrandCli {
namespace {

struct DemoArguments {
  DemoOptions demo;
  double seconds = 20;
  std::string data;
  PackageReadOptions reading;
  std::string svg = "ostrand-ring.svg";
  bool is_json = false;
};

bool ReadRecords(const DemoArguments& arguments, PackageReading& reading) {
  std::string error;
  const bool good = arguments.data.empty()
                        ? ReadPackageIndex(arguments.reading, reading, error)
                        : ReadPackageFile(arguments.data, arguments.reading, reading, error);
  if (!good) {
    PrintError(error);
    return false;
  }
  for (const std::string& fault : reading.malformed) {
    PrintRemark("left out, " + fault);
  }
  PrintRemark(WithCommas(reading.records.size()) + " records" +
              (reading.repeated != 0
                   ? ", " + WithCommas(reading.repeated) + " more have a key that was there already"
                   : ""));
  return true;
}

int RunDemo(DemoArguments& arguments) {
  PackageReading reading;
  if (!ReadRecords(arguments, reading)) {
    return kExitFailure;
  }
  arguments.demo.mixed_ms = static_cast<int64_t>(arguments.seconds * 1000);
  PrintRemark("the seed is " + std::to_string(arguments.demo.seed) + " (--seed)");
  DemoResult result;
  {
    const InterruptGuard guard;
    result = Demo(arguments.demo, reading.records).Run();
  }
  std::string error;
  if (!result.rings.pieces.empty() && !WriteFile(arguments.svg, DrawDiff(result.rings), error)) {
    result.faults.push_back(error);
  }
  const bool told = WriteStdout(arguments.is_json ? DemoJson(result) : DemoText(result));
  for (const std::string& fault : result.faults) {
    PrintError(fault);
  }
  if (!told || !result.faults.empty()) {
    return kExitFailure;
  }
  PrintRemark("the ring before and after is drawn in " + arguments.svg);
  return kExitSuccess;
}

}  // namespace

void AddDemoCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<DemoArguments>();
  CLI::App* const command = app.add_subcommand(
      "demo",
      "Loads this machine's package index into a fleet of 8 proxies inside the process, reads all\n"
      "of it back while proxies join, stop and are killed, and tells whether all was right.");
  command
      ->add_option("--data", arguments->data,
                   "records to use in place of the package index: stanzas as `apt-cache dumpavail` "
                   "prints them")
      ->type_name("FILE");
  command->add_option("--records", arguments->reading.max_records, "how many records at most")
      ->check(CLI::Range(size_t{1}, SIZE_MAX / 2));
  command->add_flag("--skip-malformed", arguments->reading.skip_malformed,
                    "leave out records that are malformed");
  command->add_option("--seconds", arguments->seconds, "of the mixed load")
      ->capture_default_str()
      ->check(CLI::Range(0.1, 90.0));
  command->add_option("--window", arguments->demo.window, "requests in flight")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  command->add_option("--seed", arguments->demo.seed, "of everything that is chosen at random")
      ->capture_default_str();
  command->add_option("--svg", arguments->svg, "draw the ring, before and after, into this file")
      ->capture_default_str()
      ->type_name("FILE");
  command->add_flag("--json", arguments->is_json, "write a JSON object");
  command->add_flag("--verbose", arguments->demo.verbose,
                    "errors and warnings of the library on standard error");
  command->add_flag("--inject-wrong-answers", arguments->demo.inject_wrong_answers)->group("");
  command->callback([arguments, &status] { status = RunDemo(*arguments); });
}

}  // namespace OstrandCli
