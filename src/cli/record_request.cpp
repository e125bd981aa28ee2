#include "cli/record_request.h"

#include <algorithm>

#include "cli/commands.h"
#include "cli/output.h"
#include "client/error_text.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {

int FillRequest(OstrandService::ClientRequest& request, uint32_t cmd, const Connection& connection,
                const std::vector<Field>& keys, const std::vector<Field>& values) {
  request.Begin(cmd, connection.table).Zone(connection.zone);
  for (const Field& key : keys) {
    request.Key(key.name, key.value);
  }
  for (const Field& value : values) {
    if (cmd == ostrand_protocol_cs::OSTRAND_API_GET_REQ) {
      request.Field(value.name);
    } else {
      request.Set(value.name, value.value);
    }
  }
  return request.Fault();
}

std::string CodeWithText(int code) {
  return std::to_string(code) + " (" + OstrandService::ErrorText(code) + ")";
}

int CallOnce(OstrandService::PollingClient& client, OstrandService::ClientRequest& request,
             OstrandService::ClientResponse& response) {
  const int code = client.Call(request, response);
  return code != 0 ? code : response.GetResult();
}

int ReportFailure(const std::string& command, int code, bool is_json) {
  PrintError(command + " failed: " + CodeWithText(code));
  if (is_json) {
    JsonWriter json;
    json.BeginObject().Key("result").Integer(code);
    json.Key("text").String(OstrandService::ErrorText(code)).EndObject();
    WriteStdout(json.Text() + "\n");
  }
  return kExitFailure;
}

bool ParseFields(const std::vector<std::string>& words, std::vector<Field>& fields,
                 std::string& error) {
  fields.clear();
  for (const std::string& word : words) {
    Field field;
    if (!ParseField(word, field, error)) {
      return false;
    }
    const auto is_same = [&field](const Field& other) { return other.name == field.name; };
    if (std::any_of(fields.begin(), fields.end(), is_same)) {
      error = "the field \"" + field.name + "\" is given twice";
      return false;
    }
    fields.push_back(std::move(field));
  }
  return true;
}

}  // namespace OstrandCli
