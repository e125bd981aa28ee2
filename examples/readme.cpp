#include <iostream>

#include "client/client.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

using namespace OstrandService;

int main() {
  // A directory and three proxies inside this program, in place of a store.
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.proxies = 3;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  fleet.Start();

  ClientOptions options;
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {fleet.DirectoryUrl()};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "a signature";
  Client client(options);
  client.Start();

  ClientResponse response;
  client.Call(Replace("user").Key("id", 42).Set("name", "Ada"), response);
  int ret = client.Call(Get("user").Key("id", 42), response);  // 0: the response is its outcome
  if (ret != 0 || (ret = response.GetResult()) != 0) {
    std::cerr << ErrorText(ret) << "\n";
    return 1;
  }
  std::string_view name;
  response.Get("name", name);  // points into the response
  std::cout << "42 is " << name << "\n";
}
