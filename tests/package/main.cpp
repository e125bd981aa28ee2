// Writes a record and reads it back, over a fleet of its own: whoever links it has a library that
// works. Exit status 0 when the record came back.
#include <cstdio>
#include <string_view>

#include "client/error_text.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"

int main() {
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.proxies = 2;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  if (fleet.Start() != 0) {
    std::fprintf(stderr, "no fleet: %s\n", fleet.Error().c_str());
    return 1;
  }

  OstrandService::ClientOptions options;
  options.app_id = 1;
  options.zones = {1};
  options.directory_urls = {fleet.DirectoryUrl()};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "signature";
  OstrandService::PollingClient client(options);
  int ret = client.Start();
  ret = ret == 0 ? client.WaitReady(5000) : ret;

  OstrandService::ClientResponse response;
  ret = ret == 0
            ? client.Call(OstrandService::Insert("user").Key("id", 42).Set("name", "Ada"), response)
            : ret;
  ret = ret == 0 ? client.Call(OstrandService::Get("user").Key("id", 42), response) : ret;
  std::string_view name;
  if (ret != 0 || response.Get("name", name) != 0 || name != "Ada") {
    std::fprintf(stderr, "no fleet: %s\n", fleet.Error().c_str());
    return 1;
  }

  OstrandService::ClientOptions options;
  options.app_id = 1;
  options.zones = {1};
  options.directory_urls = {fleet.DirectoryUrl()};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "signature";
  OstrandService::PollingClient client(options);
  int ret = client.Start();
  ret = ret == 0 ? client.WaitReady(5000) : ret;

  OstrandService::ClientRequest request;
  OstrandService::ClientResponse response;
  request.Init(ostrand_protocol_cs::OSTRAND_API_INSERT_REQ, 1, "user");
  request.SetKey("id", "42");
  request.AddValue("name", "Ada");
  ret = ret == 0 ? client.Call(request, response) : ret;
  request.Init(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 1, "user");
  request.SetKey("id", "42");
  ret = ret == 0 ? client.Call(request, response) : ret;
  ostrand_protocol_cs::FieldView name;
  if (ret != 0 || !response.GetValue("name", name) || name.value != "Ada") {
    std::fprintf(stderr, "no record: %s\n", OstrandService::ErrorText(ret));
    return 1;
  }
  std::puts("the record came back");
  return 0;
}
