// Writes a record and reads it back, over a fleet of its own: whoever links it has a library that
// works. Exit status 0 when the record came back.
#include <cstdio>
#include <string_view>

#include "client/client.h"
#include "client/error_text.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"

namespace {

// The same with either client.
template <typename AnyClient>
int WriteAndReadBack(const OstrandService::ClientOptions& options) {
  AnyClient client(options);
  int ret = client.Start();
  ret = ret == 0 ? client.WaitReady(5000) : ret;
  OstrandService::ClientResponse response;
  ret = ret == 0 ? client.Call(OstrandService::Replace("user").Key("id", 42).Set("name", "Ada"),
                               response)
                 : ret;
  ret = ret == 0 ? client.Call(OstrandService::Get("user").Key("id", 42), response) : ret;
  std::string_view name;
  if (ret != 0 || response.Get("name", name) != 0 || name != "Ada") {
    std::fprintf(stderr, "the record did not come back: %s, %s\n", OstrandService::ErrorText(ret),
                 OstrandService::ErrorText(response.GetResult()));
    return 1;
  }
  return 0;
}

}  // namespace

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
  return WriteAndReadBack<OstrandService::Client>(options) +
         WriteAndReadBack<OstrandService::PollingClient>(options);
}
