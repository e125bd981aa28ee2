// A blocking get: the simplest way to use the client. Any number of threads may call at once.
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

using namespace OstrandService;  // NOLINT: the whole program is about it

namespace {

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";
constexpr int kNoSuchRecord = -7949;

// One call. What Call returns tells whether the request was accepted; what became of it is in the
// outcome's result. One that got no answer in time has ClientResponse::kResultTimeOut: then nobody
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

  // One request and one response object serve the whole program: each command begins anew. What is
  // wrong with a name or a value the request keeps to itself until it is sent.
  ClientRequest request;
  ClientResponse response;
  request.Replace(kTable).Key("id", 42).Set("name", "Ada").Set("city", "London").Set("level", 7);
  ret = Do(client, request, response);
  if (ret != 0) {
    return Fail(request.Fault() != 0 ? request.FaultText().c_str() : "replace", ret);
  }

  // A get names the fields that it wants; without any it gets all. The time-out is in milliseconds.
  request.Get(kTable).Key("id", 42).Field("name").Field("level").SetTimeout(500);
  ret = Do(client, request, response);
  if (ret != 0) {
    return Fail("get", ret);
  }
  // A text points into the response and holds until its next answer. A number has the width that it
  // was written with: 64 bits where nothing else was said.
  std::string_view name;
  int64_t level = 0;
  if (response.Get("name", name) != 0 || response.Get("level", level) != 0 || name != "Ada" ||
      level != 7) {
    std::cerr << "the record is not as it was written\n";
    return 1;
  }
  std::cout << "42 is " << name << "\n";

  // A key without record is a result like any other.
  request.Get(kTable).Key("id", 43);
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
