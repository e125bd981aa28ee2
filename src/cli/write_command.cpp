// insert, replace, update and delete: one request on one record, answered without one.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"
#include "cli/connection.h"
#include "cli/output.h"
#include "cli/record_request.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

struct WriteCommand {
  const char* name;
  uint32_t cmd;
  bool has_values;
  const char* help;
};

constexpr WriteCommand kInsert = {"insert", ostrand_protocol_cs::OSTRAND_API_INSERT_REQ, true,
                                  "Writes a new record; refused where there is one."};
constexpr WriteCommand kReplace = {"replace", ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, true,
                                   "Writes a whole record, in place of the one that is there."};
constexpr WriteCommand kUpdate = {"update", ostrand_protocol_cs::OSTRAND_API_UPDATE_REQ, true,
                                  "Changes the given fields of a record."};
constexpr WriteCommand kDelete = {"delete", ostrand_protocol_cs::OSTRAND_API_DELETE_REQ, false,
                                  "Deletes a record."};

struct WriteArguments {
  Connection connection;
  std::vector<std::string> keys;
  std::vector<std::string> values;
  std::vector<std::string> more_values;  // of --set
  int32_t if_version = -1;
  bool is_json = false;
};

int Send(const WriteCommand& kind, const WriteArguments& arguments, ClientRequest& request) {
  std::unique_ptr<OstrandService::PollingClient> client;
  const int status = arguments.connection.Open(client);
  if (status != kExitSuccess) {
    return status;
  }
  ClientResponse response;
  const int code = CallOnce(*client, request, response);
  if (code != 0) {
    return ReportFailure(kind.name, code, arguments.is_json);
  }
  return !arguments.is_json || WriteStdout("{\"result\":0}\n") ? kExitSuccess : kExitFailure;
}

int RunWrite(const WriteCommand& kind, const WriteArguments& arguments) {
  std::vector<std::string> words = arguments.values;
  words.insert(words.end(), arguments.more_values.begin(), arguments.more_values.end());
  std::vector<Field> keys;
  std::vector<Field> values;
  std::string error;
  if (!ParseFields(arguments.keys, keys, error) || !ParseFields(words, values, error)) {
    PrintError(error);
    return kExitUsage;
  }
  if (kind.has_values && values.empty()) {
    PrintError(std::string(kind.name) + " needs a value: give at least one NAME=VALUE");
    return kExitUsage;
  }
  ClientRequest request;
  const int code = FillRequest(request, kind.cmd, arguments.connection, keys, values);
  if (code != 0) {
    return ReportFailure(kind.name, code, arguments.is_json);
  }
  request.Expect(arguments.if_version);
  return Send(kind, arguments, request);
}

void AddWriteCommand(CLI::App& app, const WriteCommand& kind, int& status) {
  const auto arguments = std::make_shared<WriteArguments>();
  CLI::App* const command = app.add_subcommand(kind.name, kind.help);
  command->add_option("--key", arguments->keys, "a field of the key; one option for each")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME[:TYPE]=VALUE");
  if (kind.has_values) {
    command->add_option("values", arguments->values, "fields of the record")
        ->type_name("NAME[:TYPE]=VALUE");
    command->add_option("--set", arguments->more_values, "a field of the record; one option each")
        ->allow_extra_args(false)
        ->type_name("NAME[:TYPE]=VALUE");
  }
  command
      ->add_option("--if-version", arguments->if_version, "only while the record has this version")
      ->check(CLI::Range(1, INT32_MAX));
  command->add_flag("--json", arguments->is_json, "write the result as a JSON object");
  arguments->connection.AddTo(command);
  command->callback([arguments, &kind, &status] { status = RunWrite(kind, *arguments); });
}

}  // namespace

void AddInsertCommand(CLI::App& app, int& status) { AddWriteCommand(app, kInsert, status); }
void AddReplaceCommand(CLI::App& app, int& status) { AddWriteCommand(app, kReplace, status); }
void AddUpdateCommand(CLI::App& app, int& status) { AddWriteCommand(app, kUpdate, status); }
void AddDeleteCommand(CLI::App& app, int& status) { AddWriteCommand(app, kDelete, status); }

}  // namespace OstrandCli
