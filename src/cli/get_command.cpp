#include <CLI/CLI.hpp>
#include <algorithm>
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
using OstrandService::FieldReader;
using OstrandService::FieldView;
using OstrandService::RecordView;

struct GetArguments {
  Connection connection;
  std::vector<std::string> keys;
  std::vector<std::string> fields;
  bool is_json = false;
};

struct GetFields {
  std::vector<Field> keys;
  std::vector<Field> wanted;  // without values; none: all
};

bool ParseArguments(const GetArguments& arguments, GetFields& fields, std::string& error) {
  if (!ParseFields(arguments.keys, fields.keys, error)) {
    return false;
  }
  for (const std::string& word : arguments.fields) {
    FieldName name;
    if (!ParseFieldName(word, name, error)) {
      return false;
    }
    fields.wanted.push_back({name.name, name.type, ""});
  }
  return true;
}

VexFieldType TypeOf(const GetFields& fields, std::string_view name) {
  const auto found = std::find_if(fields.wanted.begin(), fields.wanted.end(),
                                  [name](const Field& field) { return field.name == name; });
  return found != fields.wanted.end() ? found->type : VexFieldType::kString;
}

std::string JsonRecord(const GetFields& fields, const RecordView& record) {
  JsonWriter json;
  json.BeginObject().Key("result").Integer(0);
  json.Key("version").Integer(record.mark.version);
  json.Key("key").BeginObject();
  for (const Field& key : fields.keys) {
    json.Key(key.name).Raw(FieldValueJson(key.type, key.value));
  }
  json.EndObject().Key("values").BeginObject();
  FieldReader values = record.values;
  FieldView value;
  while (values.Next(value)) {
    json.Key(value.name).Raw(FieldValueJson(TypeOf(fields, value.name), value.value));
  }
  json.EndObject().EndObject();
  return json.Text() + "\n";
}

std::string PlainRecord(const GetFields& fields, const RecordView& record) {
  std::string text;
  FieldReader values = record.values;
  FieldView value;
  while (values.Next(value)) {
    text.append(value.name).append("=");
    text += FieldValueText(TypeOf(fields, value.name), value.value) + "\n";
  }
  return text;
}

int RunGet(const GetArguments& arguments) {
  GetFields fields;
  std::string error;
  if (!ParseArguments(arguments, fields, error)) {
    PrintError(error);
    return kExitUsage;
  }
  ClientRequest request;
  int code = FillRequest(request, ostrand_protocol_cs::OSTRAND_API_GET_REQ, arguments.connection,
                         fields.keys, fields.wanted);
  if (code != 0) {
    return ReportFailure("get", code, arguments.is_json);
  }
  std::unique_ptr<OstrandService::PollingClient> client;
  const int status = arguments.connection.Open(client);
  if (status != kExitSuccess) {
    return status;
  }
  ClientResponse response;
  code = CallOnce(*client, request, response);
  if (code != 0) {
    return ReportFailure("get", code, arguments.is_json);
  }
  RecordView record;
  response.NextRecord(record);  // none: a record without values
  const std::string text =
      arguments.is_json ? JsonRecord(fields, record) : PlainRecord(fields, record);
  return WriteStdout(text) ? kExitSuccess : kExitFailure;
}

}  // namespace

void AddGetCommand(CLI::App& app, int& status) {
  const auto arguments = std::make_shared<GetArguments>();
  CLI::App* const command = app.add_subcommand(
      "get",
      "Reads a record and writes its fields to standard output, one a line, as name=value.\n"
      "Control characters, and bytes that are no UTF-8, are written as \\n, \\t, \\r and \\x00.");
  command->add_option("fields", arguments->fields, "fields to read, NAME or NAME:TYPE; none: all");
  command->add_option("--key", arguments->keys, "a field of the key; one option for each")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME[:TYPE]=VALUE");
  command->add_flag("--json", arguments->is_json, "write a JSON object");
  arguments->connection.AddTo(command);
  command->callback([arguments, &status] { status = RunGet(*arguments); });
}

}  // namespace OstrandCli
