// All proxies away for a while: what can wait is answered when they are back, what cannot ends
// after its time with the reason.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unordered_set>

#include "common/clock.h"
#include "integration/integration_kit.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandService::ClientRequest;
using OstrandService::ROUTER_ERR_NO_ROUTE;

class Outages : public RuntimeTest {
 protected:
  static constexpr size_t kProxies = 3;

  void StartAll() {
    StartFleet(kProxies);
    StartClient();
    ASSERT_TRUE(m_work->Run(200));
    ASSERT_TRUE(m_work->Drain());
  }
  // Returns when the client knows of it.
  void KillAll() {
    for (size_t i = 0; i < kProxies; ++i) {
      m_fleet->Kill(i);
    }
    ASSERT_TRUE(UpdateUntil([&] { return StatusHas("\tnot_connect_proxy_cnt:3\n"); }));
  }
  void RestartAll() {
    for (size_t i = 0; i < kProxies; ++i) {
      ASSERT_EQ(m_fleet->Restart(i), 0);
    }
  }
  bool StatusHas(const std::string& line) {
    return m_client->StatusText().find(line) != std::string::npos;
  }
  uint64_t SendGet(int number, int32_t timeout_ms) {
    ClientRequest& request = m_request.Get(kTable).Key("id", number).SetTimeout(timeout_ms);
    EXPECT_EQ(m_client->Send(request), 0);
    return request.GetAsynID();
  }
};

TEST_F(Outages, EndTheShortCallsWithTheirReasonAndDelayTheLongOnes) {
  constexpr int kEach = 100;
  constexpr int32_t kShortMs = 300;
  StartAll();
  KillAll();
  const int64_t began_ms = GetMonotonicMilliseconds();
  std::unordered_set<uint64_t> short_ones;
  for (int i = 0; i < kEach; ++i) {
    short_ones.insert(SendGet(i, kShortMs));
    SendGet(i, 60000);
  }
  for (int i = 0; i < kEach; ++i) {
    ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
    EXPECT_EQ(short_ones.erase(m_response.GetAsynID()), 1u);
    EXPECT_EQ(m_response.GetResult(), ROUTER_ERR_NO_ROUTE);
    EXPECT_GE(GetMonotonicMilliseconds() - began_ms, kShortMs);
  }
  EXPECT_LT(GetMonotonicMilliseconds() - began_ms, 10 * kShortMs);
  EXPECT_EQ(m_client->InFlight(), size_t{kEach});
  RestartAll();
  for (int i = 0; i < kEach; ++i) {
    ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
    EXPECT_EQ(m_response.GetResult(), -7949);
  }
}

TEST_F(Outages, CostNeitherALineNorAFailureForEachRequestThatWaits) {
  constexpr int kMany = 20000;
  StartAll();
  KillAll();
  const size_t lines = m_logged.size();
  for (int i = 0; i < kMany; ++i) {
    SendGet(i, 60000);
  }
  ASSERT_FALSE(UpdateUntil([] { return false; }, 1000));
  EXPECT_TRUE(StatusHas("\twaiting:" + std::to_string(kMany) + "\n"));
  RestartAll();
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
    ASSERT_EQ(m_response.GetResult(), -7949);
  }
  EXPECT_LT(m_logged.size() - lines, 100u);
  EXPECT_TRUE(StatusHas("\tdwApiFindRouteErrNumPerMin:0 requests\n"));
  EXPECT_TRUE(StatusHas("\tdwReqErrNumPerMin:0 requests\n"));
}

// Attempts to connect and their failures are what is counted and logged, whoever waits.
TEST_F(Outages, EndACallThatWaitsWithTheDirectorysFailure) {
  StartFleet(1);
  ASSERT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kAbsent), 0);
  StartClientUnready(Options());
  m_call_timeout_ms = 100;
  EXPECT_EQ(Do(ostrand_protocol_cs::OSTRAND_API_GET_REQ, "1"),
            OstrandService::CLIENT_ERR_DIRECTORY);
  int32_t code = 0;
  std::string text;
  m_client->GetLastError(code, text);
  EXPECT_EQ(code, OstrandService::CLIENT_ERR_DIRECTORY);
  EXPECT_EQ(text, "directory " + m_fleet->DirectoryUrl() + ": connect: Connection refused");
  ASSERT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kNone), 0);
  ASSERT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  m_client->GetLastError(code, text);
  EXPECT_EQ(code, 0) << text;
}

}  // namespace
}  // namespace OstrandTests
