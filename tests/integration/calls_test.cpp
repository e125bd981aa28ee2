// Calls amid other requests, requests that are given up, answers that nobody takes to their end.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "common/clock.h"
#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandCommon::GetMonotonicMilliseconds;
using OstrandFleet::ProxyFaults;

constexpr int32_t kNoRecord = -7949;

class Calls : public RuntimeTest {
 protected:
  // Nothing comes to pass by the clock that would wake the client by chance.
  void StartQuiet(size_t proxies) {
    StartFleet(proxies);
    StartClient(QuietOptions());
  }
  OstrandService::ClientOptions QuietOptions() {
    auto options = Options();
    options.directory_refresh_ms = 3600 * 1000;
    options.heartbeat_ms = 3600 * 1000;
    options.check_heartbeat_ms = 2 * 3600 * 1000;
    return options;
  }
  uint64_t SendGet(int number) {
    EXPECT_EQ(m_client->Send(m_request.Get(kTable).Key("id", number)), 0);
    return m_request.GetAsynID();
  }
};

TEST_F(Calls, KeepTheOutcomesOfOthersAndDoNotWaitBetweenThem) {
  StartQuiet(3);
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  const int64_t began_ms = GetMonotonicMilliseconds();
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "nothing"), kNoRecord);
  EXPECT_LT(GetMonotonicMilliseconds() - began_ms, 1500);
  for (int i = 0; i < 500; ++i) {  // those that were kept are not in flight any more
    ASSERT_TRUE(m_work->ReceiveOne(static_cast<int>(kPatienceMs)));
  }
  EXPECT_EQ(m_work->tally().answered, 500u);
}

TEST_F(Calls, AStopThatDrainsDoesNotWaitBetweenOutcomes) {
  StartQuiet(3);
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  const int64_t began_ms = GetMonotonicMilliseconds();
  EXPECT_EQ(m_client->Stop(static_cast<int>(kPatienceMs),
                           [&](auto& response) { m_work->Book(response); }),
            0u);
  EXPECT_LT(GetMonotonicMilliseconds() - began_ms, 1500);
  EXPECT_EQ(m_work->tally().answered, 500u);
  m_serves_at_end = false;
}

TEST_F(Calls, ARequestThatIsCancelledHasNoOutcome) {
  StartQuiet(1);
  SetFaults(0, [](ProxyFaults& faults) { faults.delay_ms = 100; });
  const uint64_t given_up = SendGet(1);
  const uint64_t kept = SendGet(2);
  ASSERT_EQ(m_client->Flush(), 0);
  ASSERT_TRUE(
      m_fleet->WaitFor(kPatienceMs, [&] { return m_fleet->Counters(0).table_requests >= 2; }));
  EXPECT_TRUE(m_client->Cancel(given_up));
  EXPECT_FALSE(m_client->Cancel(given_up));
  EXPECT_EQ(m_client->InFlight(), 1u);
  ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
  EXPECT_EQ(m_response.GetAsynID(), kept);
  EXPECT_FALSE(m_client->Cancel(kept)) << "it had its outcome";
  EXPECT_TRUE(UpdateUntil([&] { return m_client->Counters().dropped == 1; }));
  EXPECT_EQ(m_client->Counters().cancelled, 1u);
}

TEST_F(Calls, ARequestThatIsCancelledWhileItWaitsIsNeverSent) {
  StartFleet(1);
  SetFaults(0, [](ProxyFaults& faults) { faults.ignore_sign_up = true; });
  StartClientUnready(Options());
  const uint64_t given_up = SendGet(1);
  const uint64_t kept = SendGet(2);
  EXPECT_TRUE(m_client->Cancel(given_up));
  RemoveFaults();
  m_fleet->CloseConnections(0);
  ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
  EXPECT_EQ(m_response.GetAsynID(), kept);
  EXPECT_EQ(m_response.GetResult(), kNoRecord);
  EXPECT_EQ(m_fleet->Counters(0).table_requests, 1u);
}

TEST_F(Calls, WaitReadyEndsWhileRequestsArePending) {
  StartFleet(1);
  SetFaults(0, [](ProxyFaults& faults) { faults.ignore_sign_up = true; });
  StartClientUnready(Options());
  const uint64_t id = SendGet(1);
  EXPECT_EQ(m_client->WaitReady(100), OstrandService::CLIENT_ERR_NOT_READY_IN_TIME);
  RemoveFaults();
  m_fleet->CloseConnections(0);
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  EXPECT_EQ(m_client->WaitReady(0), 0) << "with an answer on its way";
  ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
  EXPECT_EQ(m_response.GetAsynID(), id);
  EXPECT_EQ(m_response.GetResult(), kNoRecord);
}

class PartKeyAnswers : public Calls {
 protected:
  static constexpr int kRecords = 100;

  // Packages of two records, in every one of several tries.
  void StartWithRecords() {
    OstrandFleet::FleetOptions fleet;
    fleet.records_per_package = 2;
    StartFleet(fleet);
    StartClient();
    for (int i = 0; i < kRecords; ++i) {
      m_request.Insert(kTable).Key("owner", "ada").Key("id", i).Set("name", "a value");
      ASSERT_EQ(m_client->Call(m_request, m_response), 0);
      ASSERT_EQ(m_response.GetResult(), 0);
    }
  }
  void CallByPartKey() {
    ASSERT_EQ(m_client->Call(m_request.GetByPartKey(kTable).Key("owner", "ada"), m_response), 0);
    ASSERT_EQ(m_response.GetResult(), 0);
    ASSERT_EQ(m_response.HaveMoreResPkgs(), 1);
  }
};

TEST_F(PartKeyAnswers, OfACallComeToTheirEndWithReceive) {
  StartWithRecords();
  CallByPartKey();
  int packages = 1;
  for (; m_response.HaveMoreResPkgs() == 1; ++packages) {
    ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
    ASSERT_EQ(m_response.GetResult(), 0);
  }
  EXPECT_EQ(packages, kRecords / 2);
  EXPECT_EQ(m_client->InFlight(), 0u);
}

TEST_F(PartKeyAnswers, WhoseFurtherPackagesNobodyTakesDoNotHarmTheNextCall) {
  StartWithRecords();
  for (int i = 0; i < 10; ++i) {
    CallByPartKey();
    ASSERT_EQ(Do(OSTRAND_API_GET_REQ, "nothing"), kNoRecord);
    EXPECT_EQ(m_client->InFlight(), 0u);
  }
  EXPECT_EQ(m_client->Receive(m_response, 20), 0) << "a package of an answer that was left";
}

}  // namespace
}  // namespace OstrandTests
