// A client for which there is no memory: every operation says so, none of them throws.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "client/polling_client.h"
#include "fakes/allocation_faults.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

void ExpectUseless(PollingClient& client) {
  ClientRequest request;
  ClientResponse response;
  EXPECT_EQ(client.Start(), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.WaitReady(0), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.Send(request), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.Flush(), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.Receive(response, 0), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.Call(request, response), ROUTER_ERR_ALLOCATION);
  EXPECT_EQ(client.Update(), ROUTER_ERR_ALLOCATION);
  EXPECT_STREQ(client.OptionsError(), "out of memory");
  EXPECT_EQ(client.UsedProxyUrl(1), nullptr);
  EXPECT_EQ(client.StatusText(), "");
  EXPECT_EQ(client.InFlight(), 0u);
  EXPECT_EQ(client.Counters().accepted, 0u);
  EXPECT_EQ(client.SystemCalls(), 0u);
  EXPECT_EQ(client.Stop(0), 0u);
  int32_t code = 1;
  std::string text = "old";
  client.GetLastError(code, text);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(text, "");
}

TEST(ClientMemory, AnswersWithACodeWhicheverAllocationOfItsConstructionFails) {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {1};
  options.directory_urls = {"tcp://127.0.0.1:9000, and so much more that it needs memory"};
  options.tables = {{"user", 1, nullptr}};
  options.signature = "a signature that is too long for a short string";
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    std::optional<PollingClient> client;
    {
      OstrandFakes::AllocationFaults faults;
      faults.FailThrowing(failures + 1);
      client.emplace(options);
      struck = faults.struck();
    }
    if (struck) {
      ExpectUseless(*client);
    }
  }
  EXPECT_LT(3, failures) << "the client itself, and what it copies of the options";
}

}  // namespace
}  // namespace OstrandService
