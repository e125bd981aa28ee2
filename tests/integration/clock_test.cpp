// A wall clock that steps, and a process that was stopped for a while.
#include <gtest/gtest.h>

#include <cstdint>

#include "integration/integration_kit.h"
#include "integration/stepping_system.h"

namespace OstrandTests {
namespace {

constexpr int64_t kHourMs = 3600 * 1000;
constexpr int64_t kDayMs = 24 * kHourMs;

class Clock : public RuntimeTest {
 protected:
  void StartAll(size_t proxies) {
    StartFleet(proxies);
    StartClient();
    ASSERT_TRUE(m_work->Run(500));
  }
  uint64_t TimedOut() const { return m_work->tally().timed_out; }

  WarpedClock m_clock;
};

TEST_F(Clock, StepsBackAnHour) {
  StartAll(3);
  for (int i = 0; i < 3; ++i) {
    m_clock.Jump(-kHourMs);
    ASSERT_TRUE(m_work->Run(1000));
  }
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(TimedOut() + m_work->tally().failed, 0u);
  EXPECT_EQ(m_work->tally().Refused(), 0u);
}

// Attempts to connect are timed with the clock that stepped; they go on all the same.
TEST_F(Clock, ConnectsAnewBehindAStepBack) {
  StartAll(2);
  ASSERT_TRUE(m_work->Drain());
  m_clock.Jump(-kHourMs);
  m_fleet->CloseConnections(0);
  m_fleet->CloseConnections(1);
  ASSERT_TRUE(UpdateUntil([&] {
    return m_fleet->Counters(0).sign_ups_accepted == 2 &&
           m_fleet->Counters(1).sign_ups_accepted == 2;
  }));
  ASSERT_TRUE(m_work->Run(500));
}

// What is in flight then times out early, each once; the connections are taken for silent and made
// anew.
TEST_F(Clock, StepsForwardADay) {
  StartAll(3);
  ASSERT_TRUE(m_work->Drain());
  SetFaultsOfAll([](OstrandFleet::ProxyFaults& faults) { faults.delay_ms = 100; });
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  m_clock.Jump(kDayMs);
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(TimedOut(), 200u);
  RemoveFaults();
  m_work->SetTimeout(500);  // for what is sent before the connections are left
  ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).connections_accepted == 2; }));
  ASSERT_TRUE(m_work->Run(500));
}

TEST_F(Clock, StepsBackAndForwardWithRequestsInFlight) {
  StartAll(2);
  ASSERT_TRUE(m_work->Drain());
  SetFaultsOfAll([](OstrandFleet::ProxyFaults& faults) { faults.drop_every = 1; });
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  m_clock.Jump(-kHourMs);
  EXPECT_FALSE(m_work->ReceiveOne(20));
  m_clock.Jump(2 * kHourMs);
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(TimedOut(), 100u);
}

TEST_F(Clock, StepsAtRandomUnderLoad) {
  StartAll(3);
  uint32_t random = 7;
  for (int i = 0; i < 60; ++i) {
    random = random * 1664525 + 1013904223;
    m_clock.Jump((static_cast<int64_t>(random >> 8) % (2 * kHourMs)) - kHourMs);
    m_work->RunFor(5);
  }
  m_clock.Jump(100 * kHourMs);  // ends the wait for what was lost with its connection
  ASSERT_TRUE(m_work->Drain());
  m_work->SetTimeout(500);
  ASSERT_TRUE(m_work->Run(500));
}

// Two minutes in which nothing of the process ran: the answers that came meanwhile lie in the
// sockets, the proxies heard no heartbeat.
TEST_F(Clock, TheProcessStandsForTwoMinutes) {
  StartAll(3);
  ASSERT_TRUE(m_work->Drain());
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  ASSERT_EQ(m_client->Flush(), 0);
  const auto answered = [&] {
    uint64_t answers = 0;
    for (size_t i = 0; i < m_fleet->ProxyCount(); ++i) {
      answers += m_fleet->Counters(i).table_requests;
    }
    return answers >= m_work->tally().accepted;
  };
  ASSERT_TRUE(m_fleet->WaitFor(kPatienceMs, answered));
  m_clock.Jump(120 * 1000);
  ASSERT_TRUE(m_work->Drain());
  m_work->SetTimeout(500);
  ASSERT_TRUE(m_work->Run(1000));
}

// --- The system's wall clock alone, as the client sees it: its own time neither steps nor stops.
// ---

class WallClock : public RuntimeTest {
 protected:
  void StartAll() {
    m_system = &m_stepping;
    StartFleet(2);
    auto options = Options();
    options.heartbeat_ms = 20;
    StartClient(options);
    ASSERT_TRUE(m_work->Run(200));
  }

  SteppingSystem m_stepping;
};

TEST_F(WallClock, ThatStepsByAnHourStopsNothingAndExpiresNothing) {
  StartAll();
  SetFaultsOfAll([](OstrandFleet::ProxyFaults& faults) { faults.delay_ms = 10; });
  for (const int64_t step_ms : {kHourMs, -kHourMs, -kHourMs, 3 * kHourMs, -kDayMs, kDayMs}) {
    const uint64_t beats = m_fleet->Counters(0).heartbeats;
    ASSERT_TRUE(m_work->Run(50));
    m_stepping.Step(step_ms);
    ASSERT_TRUE(m_work->Run(200));
    ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(0).heartbeats >= beats + 3; }));
  }
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
  EXPECT_EQ(m_fleet->Counters(1).connections_accepted, 1u);
}

TEST_F(WallClock, ThatStepsDoesNotKeepALostProxyFromComingBack) {
  StartAll();
  ASSERT_TRUE(m_work->Drain());
  m_stepping.Step(-kHourMs);
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(0).sign_ups_accepted == 2; }));
  m_stepping.Step(kHourMs);
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(0).sign_ups_accepted == 3; }));
}

}  // namespace
}  // namespace OstrandTests
