// Requests that may be sent again, over proxies that go in the middle.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "integration/integration_kit.h"

namespace OstrandTests {
namespace {

using OstrandFleet::ProxyFaults;
using OstrandService::CLIENT_ERR_CONNECTION_LOST;

class Repeats : public RuntimeTest {
 protected:
  static constexpr size_t kProxies = 3;
  static constexpr int kRequests = 150;

  // Answers take long enough for a proxy to go before it gave any.
  void StartSlow() {
    StartFleet(kProxies);
    StartClient();
    SetFaultsOfAll([](ProxyFaults& faults) { faults.delay_ms = 200; });
  }
  // Kills a proxy that has requests which it has not answered.
  void KillBusy() {
    ASSERT_EQ(m_client->Flush(), 0);
    ASSERT_TRUE(m_fleet->WaitFor(kPatienceMs, [&] {
      uint64_t came = 0;
      for (size_t i = 0; i < kProxies; ++i) {
        came += m_fleet->Counters(i).table_requests;
      }
      return came >= uint64_t{kRequests};
    }));
    ASSERT_GT(m_fleet->Counters(0).table_requests, 0u);
    m_fleet->Kill(0);
  }
  // Results of all that is in flight, and how often each came.
  std::map<int32_t, int> Results() {
    std::map<int32_t, int> results;
    while (m_client->InFlight() != 0) {
      EXPECT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
      ++results[m_response.GetResult()];
    }
    return results;
  }
};

TEST_F(Repeats, OfReadsHideAProxyThatIsKilled) {
  StartSlow();
  for (int i = 0; i < kRequests; ++i) {
    ASSERT_EQ(m_client->Send(m_request.Get(kTable).Key("id", i).SetRepeat(3)), 0);
  }
  KillBusy();
  EXPECT_EQ(Results(), (std::map<int32_t, int>{{-7949, kRequests}}));
  EXPECT_GT(m_client->Counters().repeated, 0u);
  EXPECT_EQ(m_client->Counters().lost, 0u);
}

TEST_F(Repeats, OfWritesNeedToBeAllowed) {
  StartSlow();
  for (int i = 0; i < kRequests; ++i) {
    m_request.Replace(kTable).Key("id", i).Set("name", "value").SetRepeat(3, i % 2 == 0);
    ASSERT_EQ(m_client->Send(m_request), 0);
  }
  KillBusy();
  const std::map<int32_t, int> results = Results();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_GE(results.at(0), kRequests / 2);
  EXPECT_GT(results.at(CLIENT_ERR_CONNECTION_LOST), 0);
  EXPECT_GT(m_client->Counters().repeated, 0u);
}

TEST_F(Repeats, ThatNobodyAskedForAreNotMade) {
  StartSlow();
  for (int i = 0; i < kRequests; ++i) {
    ASSERT_EQ(m_client->Send(m_request.Get(kTable).Key("id", i)), 0);
  }
  KillBusy();
  const std::map<int32_t, int> results = Results();
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results.at(-7949) + results.at(CLIENT_ERR_CONNECTION_LOST), kRequests);
  EXPECT_EQ(m_client->Counters().repeated, 0u);
}

// An answer that never comes costs a share of the time.
TEST_F(Repeats, FollowAfterAShareOfTheTime) {
  StartFleet(kProxies);
  StartClient();
  SetFaultsOfAll([](ProxyFaults& faults) { faults.drop_every = 2; });
  for (int i = 0; i < 20; ++i) {
    m_request.Get(kTable).Key("id", i).SetTimeout(5000).SetRepeat(49);
    ASSERT_EQ(m_client->Send(m_request), 0);
  }
  EXPECT_EQ(Results(), (std::map<int32_t, int>{{-7949, 20}}));
  EXPECT_GT(m_client->Counters().repeated, 0u);
}

}  // namespace
}  // namespace OstrandTests
