#include <iostream>

#include "client/polling_client.h"
#include "client/error_text.h"
#include "fleet/fleet.h"

using namespace OstrandService;

int main() {
  // A directory and three proxies inside this program, in place of a store.
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.proxies = 3;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  if (fleet.Start() != 0) {
    std::cerr << fleet.Error() << "\n";
    return 1;
  }

  ClientOptions options;
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {fleet.DirectoryUrl()};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "a signature";
  PollingClient client(options);
  int ret = client.Start();
  if (ret == 0) {
    ret = client.WaitReady(5000);
  }

  ClientResponse response;
  if (ret == 0) {
    ret = client.Call(Insert("user").Key("id", 42).Set("name", "Ada"), response);
  }
  if (ret == 0) {
    ret = client.Call(Get("user").Key("id", 42), response);  // of the sending
  }
  if (ret == 0) {
    ret = response.GetResult();  // of the get itself
  }
  std::string_view name;
  if (ret == 0) {
    ret = response.Get("name", name);  // points into the response
  }
  if (ret != 0) {
    std::cerr << ErrorText(ret) << "\n";
    return 1;
  }
  std::cout << "42 is " << name << "\n";
  return 0;
}
