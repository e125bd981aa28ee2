#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "cli/commands.h"
#include "cli/loader.h"
#include "cli/record_request.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

constexpr char kNone[] = "none";
constexpr char kStateSuffix[] = ".ostrand-load";
constexpr char kErrorsSuffix[] = ".ostrand-errors";

const std::map<std::string, LoadFormat> kFormats = {{"auto", LoadFormat::kByContent},
                                                    {"tsv", LoadFormat::kTabSeparated},
                                                    {"jsonl", LoadFormat::kJsonLines}};
const std::map<std::string, uint32_t> kLoadCommands = {
    {"insert", ostrand_protocol_cs::OSTRAND_API_INSERT_REQ},
    {"replace", ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ}};

struct LoadArguments {
  Connection connection;
  LoadOptions options;
  std::string format = "auto";
  std::string command = "replace";
  std::vector<std::string> keys;
  std::string state;
  std::string errors;
  bool is_resumed = false;
  bool is_errors_only = false;
  bool is_json = false;
};

// The file that the user named, or the one beside the input; "" for none.
std::string FileBeside(const std::string& given, const std::string& input, bool is_ordinary,
                       const char* suffix) {
  if (given.empty()) {
    return is_ordinary ? input + suffix : "";
  }
  return given == kNone ? "" : given;
}

bool IsOrdinaryFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool MakeOptions(const LoadArguments& arguments, LoadOptions& options, std::string& error) {
  options = arguments.options;
  options.format = kFormats.at(arguments.format);
  options.window.cmd = kLoadCommands.at(arguments.command);
  for (const std::string& key : arguments.keys) {
    FieldName field;
    if (!ParseFieldName(key, field, error)) {
      return false;
    }
    options.key_fields.push_back(field);
  }
  const bool is_ordinary = IsOrdinaryFile(options.path);
  options.errors_path = FileBeside(arguments.errors, options.path, is_ordinary, kErrorsSuffix);
  if (arguments.is_errors_only) {
    options.mode = LoadOptions::Mode::kErrorsOnly;
    return true;
  }
  options.mode =
      arguments.is_resumed ? LoadOptions::Mode::kResume : LoadOptions::Mode::kFromBeginning;
  options.state_path = FileBeside(arguments.state, options.path, is_ordinary, kStateSuffix);
  if (!is_ordinary) {
    options.state_path.clear();
  }
  return true;
}

std::string Figures(const Loader& loader, bool is_json) {
  const LoadCounts& counts = loader.Counts();
  if (!is_json) {
    return "loaded " + std::to_string(counts.loaded) + "\nfailed " + std::to_string(counts.failed) +
           "\nmalformed " + std::to_string(counts.malformed) + "\n";
  }
  JsonWriter json;
  json.BeginObject().Key("loaded").Unsigned(counts.loaded);
  json.Key("failed").Unsigned(counts.failed).Key("malformed").Unsigned(counts.malformed);
  json.Key("next_line").Unsigned(loader.NextLine());
  json.Key("seconds").Real(loader.Seconds(), 3).EndObject();
  return json.Text() + "\n";
}

// How to go on after a load that did not come to its end.
std::string WhatNext(const Loader& loader, const LoadOptions& options, const std::string& why) {
  const std::string line = std::to_string(loader.NextLine());
  if (options.mode == LoadOptions::Mode::kErrorsOnly) {
    return why + "; what is left is listed in " + options.errors_path;
  }
  if (options.state_path.empty()) {
    return why + " at line " + line + "; without a state file it can only begin again";
  }
  return why + " at line " + line + "; the same command with --resume goes on there";
}

std::string EndSentence(LoadEnd end, const Loader& loader, const LoadOptions& options) {
  switch (end) {
    case LoadEnd::kInterrupted: return WhatNext(loader, options, "interrupted");
    case LoadEnd::kStopped: return WhatNext(loader, options, "stopped at an error");
    case LoadEnd::kFileError: return WhatNext(loader, options, loader.Error() + "; stopped");
    case LoadEnd::kSilent:
      return WhatNext(loader, options,
                      "the cluster does not answer any more, " + CodeWithText(loader.SilentCode()) +
                          ": stopped");
    case LoadEnd::kComplete: break;
  }
  if (loader.Missing() == 0) {
    return "";
  }
  const bool is_one = loader.Missing() == 1;
  const std::string what =
      WithCommas(loader.Missing()) + (is_one ? " record is" : " records are") + " not in the table";
  return options.errors_path.empty()
             ? what
             : what + ": " + options.errors_path + " lists them; --errors-only loads these alone";
}

int RunLoad(const LoadArguments& arguments) {
  LoadOptions options;
  std::string error;
  if (!MakeOptions(arguments, options, error)) {
    PrintError(error);
    return kExitUsage;
  }
  if (arguments.is_errors_only && options.errors_path.empty()) {
    PrintError("--errors-only needs the list of errors: name it with --errors");
    return kExitUsage;
  }
  Loader loader(arguments.connection, options);
  if (!loader.Prepare()) {
    PrintError(loader.Error());
    return kExitFailure;
  }
  std::unique_ptr<OstrandService::PollingClient> client;
  const int status = arguments.connection.Open(client);
  if (status != kExitSuccess) {
    return status;
  }
  if (!loader.Begin()) {
    PrintError(loader.Error());
    return kExitFailure;
  }
  const LoadEnd end = loader.Run(*client);
  const std::string sentence = EndSentence(end, loader, options);
  if (!sentence.empty()) {
    PrintError(sentence);
  }
  const bool is_written = WriteStdout(Figures(loader, arguments.is_json));
  return sentence.empty() && is_written ? kExitSuccess : kExitFailure;
}

}  // namespace

void AddLoadCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<LoadArguments>();
  LoadOptions& options = arguments->options;
  CLI::App* const command = app.add_subcommand("load",
                                               "Loads the records of a file into a table: "
                                               "tab-separated with the fields' names in the first\n"
                                               "line, or JSON lines. Standard output gets the "
                                               "numbers of records loaded, failed, malformed.");
  command->add_option("file", options.path, "file to load; - is standard input")
      ->required()
      ->type_name("FILE");
  command->add_option("--key", arguments->keys, "fields that make up the key")
      ->required()
      ->allow_extra_args(false)
      ->delimiter(',')
      ->type_name("NAME[:TYPE],...");
  command->add_option("--command", arguments->command, "insert refuses a key that has a record")
      ->capture_default_str()
      ->check(CLI::IsMember({"insert", "replace"}));
  command->add_option("--format", arguments->format, "of the file; auto: by its first character")
      ->capture_default_str()
      ->check(CLI::IsMember({"auto", "tsv", "jsonl"}));
  command->add_option("--window", options.window.size, "records on their way at a time")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  command
      ->add_option("--give-up-ms", options.window.give_up_ms,
                   "how long a record without answer is sent again")
      ->capture_default_str()
      ->check(CLI::Range(1, INT32_MAX));
  command->add_flag("--stop-on-error", options.stops_on_error,
                    "stop at the first record that is malformed or refused");
  CLI::Option* const resume =
      command->add_flag("--resume", arguments->is_resumed, "go on where an earlier load stopped");
  CLI::Option* const restart = command->add_flag("--restart", options.is_restart,
                                                 "begin again, whatever an earlier load left");
  command
      ->add_flag("--errors-only", arguments->is_errors_only,
                 "load only the records that an earlier load listed as errors")
      ->excludes(resume)
      ->excludes(restart);
  resume->excludes(restart);
  command->add_option("--state", arguments->state, "default: FILE.ostrand-load; none: no such file")
      ->type_name("PATH");
  command
      ->add_option("--errors", arguments->errors,
                   "where errors are listed; default: FILE.ostrand-errors; none: no such file")
      ->type_name("PATH");
  command->add_flag("--json", arguments->is_json, "write the numbers as a JSON object");
  arguments->connection.AddTo(command);
  command->callback([arguments, &status] { status = RunLoad(*arguments); });
}

}  // namespace OstrandCli
