// The whole client over loopback allocates nothing for a request once it is warm.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "client/error_text.h"
#include "client/polling_client.h"
#include "fakes/allocation_faults.h"
#include "fleet/fleet.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";
constexpr int kRequests = 5000;
constexpr size_t kInFlight = 64;

// Sends so many requests, of which some are in flight at any time, and receives their outcomes.
void DoRequests(PollingClient& client, ClientRequest& request, ClientResponse& response) {
  char key[16];
  int sent = 0;
  for (int received = 0; received < kRequests; ++received) {
    for (; sent < kRequests && client.InFlight() < kInFlight; ++sent) {
      request.Begin(sent % 2 == 0 ? OSTRAND_API_REPLACE_REQ : OSTRAND_API_GET_REQ, kTable)
          .Zone(kZone);
      std::snprintf(key, sizeof(key), "%d", sent / 2);
      request.Key("id", key);
      request.SetUserBuff("bytes");
      if (sent % 2 == 0) {
        request.Set("name", "a value of some length, so that no small string holds it");
      }
      ASSERT_EQ(0, client.Send(request));
    }
    ASSERT_EQ(1, client.Receive(response, 20000));
    ASSERT_EQ(0, response.GetResult());
    FieldView value;
    response.GetValue("name", value);
  }
  ASSERT_EQ(0U, client.InFlight());
}

TEST(ClientAllocations, NonePerRequestOnceWarm) {
  OstrandFleet::FleetOptions fleet_options;
  fleet_options.proxies = 4;
  fleet_options.create_unknown_tables = true;
  OstrandFleet::Fleet fleet(fleet_options);
  ASSERT_EQ(0, fleet.Start()) << fleet.Error();
  ClientOptions options;
  options.app_id = 7;
  options.zones = {kZone};
  options.directory_urls = {fleet.DirectoryUrl()};
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "a signature";
  PollingClient client(options);
  ASSERT_EQ(0, client.Start());
  ASSERT_EQ(0, client.WaitReady(20000)) << client.StatusText();

  ClientRequest request;
  ClientResponse response;
  ASSERT_NO_FATAL_FAILURE(DoRequests(client, request, response));
  OstrandFakes::AllocationFaults allocations;
  ASSERT_NO_FATAL_FAILURE(DoRequests(client, request, response));
  // Updates, which a slow machine makes more of, may allocate when something is due.
  EXPECT_LT(allocations.count(), kRequests / 100);
  EXPECT_EQ(2U * kRequests, client.Counters().outcomes);
}

}  // namespace
}  // namespace OstrandService
