// A blocking get: one request at a time, the simplest way to use the client.
//
//   example_blocking_get [directory url]     as tcp://127.0.0.1:9000
//
// Without a url the program starts a development fleet of its own. It writes a record, reads it
// back, and shows the two places where something can go wrong: the call, and its answer.
#include <iostream>
#include <string>

#include "client/client.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

using namespace OstrandService;       // NOLINT: the whole program is about it
using namespace ostrand_protocol_cs;  // NOLINT: commands

namespace {

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";
constexpr int kNoSuchRecord = -7949;

// One call. What Call returns tells whether an answer came; what the answer says is in its result.
// A request that got no answer in time has the result ClientResponse::kResultTimeOut: then nobody
// knows whether it was carried out.
int Do(Client& client, ClientRequest& request, ClientResponse& response) {
  const int ret = client.Call(request, response);
  return ret != 0 ? ret : response.GetResult();
}

int Fail(const char* what, int code) {
  std::cerr << what << ": " << ErrorText(code) << " (" << code << ")\n";
  return 1;
}

int Run(const std::string& directory_url) {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {kZone};
  options.directory_urls = {directory_url};  // several are tried in turn
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "a signature";
  Client client(options);

  // Start returns at once. WaitReady returns when enough proxies have accepted the sign-up.
  int ret = client.Start();
  if (ret != 0) {
    const char* const wrong = client.OptionsError();
    return Fail(wrong != nullptr ? wrong : "start", ret);
  }
  ret = client.WaitReady(5000);
  if (ret != 0) {
    return Fail("not ready", ret);
  }

  // One request and one response object serve the whole program: Init begins anew. What fills the
  // request answers a code, too; it is 0 for names and values within the table's bounds.
  ClientRequest request;
  ClientResponse response;
  request.Init(OSTRAND_API_REPLACE_REQ, kZone, kTable);
  request.SetKey("id", "42");
  request.AddValue("name", "Ada");
  ret = request.AddValue("city", "London");
  if (ret != 0) {
    return Fail("the request", ret);
  }
  ret = Do(client, request, response);
  if (ret != 0) {
    return Fail("replace", ret);
  }

  // A get names the fields that it wants by empty values; without any it gets all.
  request.Init(OSTRAND_API_GET_REQ, kZone, kTable);
  request.SetKey("id", "42");
  request.AddValue("name", "");
  request.SetTimeout(500);  // ms; the options' default otherwise
  ret = Do(client, request, response);
  if (ret != 0) {
    return Fail("get", ret);
  }
  // What is found points into the response and holds until its next answer.
  FieldView name;
  if (!response.GetValue("name", name) || name.value != "Ada") {
    std::cerr << "the record does not have the name it was written with\n";
    return 1;
  }
  std::cout << "42 is " << name.value << "\n";

  // A key without record is a result like any other.
  request.SetKey("id", "43");
  ret = Do(client, request, response);
  if (ret != kNoSuchRecord) {
    return Fail("get of nobody", ret);
  }
  std::cout << "43 is nobody: " << ErrorText(ret) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    return Run(argv[1]);
  }
  OstrandFleet::FleetOptions options;
  options.proxies = 3;
  options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(options);
  if (fleet.Start() != 0) {
    std::cerr << fleet.Error() << "\n";
    return 1;
  }
  return Run(fleet.DirectoryUrl());
}
