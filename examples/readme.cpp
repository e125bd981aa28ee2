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
  Client client(options);
  int ret = client.Start();
  if (ret == 0) {
    ret = client.WaitReady(5000);
  }

  ClientRequest request;
  ClientResponse response;
  if (ret == 0) {
    request.Init(ostrand_protocol_cs::OSTRAND_API_INSERT_REQ, 1, "user");
    request.SetKey("id", "42");
    request.AddValue("name", "Ada");
    ret = client.Call(request, response);
  }
  if (ret == 0) {
    request.Init(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 1, "user");
    request.SetKey("id", "42");
    ret = client.Call(request, response);  // of the sending
  }
  if (ret == 0) {
    ret = response.GetResult();  // of the get itself
  }
  ostrand_protocol_cs::FieldView name;
  if (ret != 0 || !response.GetValue("name", name)) {
    std::cerr << ErrorText(ret) << "\n";
    return 1;
  }
  std::cout << "42 is " << name.value << "\n";
  return 0;
}
