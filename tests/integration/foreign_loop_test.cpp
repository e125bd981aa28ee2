// A client on somebody else's loop: it waits for one descriptor, and handles one outcome a turn.
#include <gtest/gtest.h>
#include <poll.h>

#include <cstdint>

#include "common/clock.h"
#include "integration/integration_kit.h"

namespace OstrandTests {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandFleet::ProxyFaults;
using OstrandService::ClientResponse;

class ForeignLoop : public RuntimeTest {
 protected:
  void StartAll() {
    StartFleet(2);
    auto options = Options();
    options.heartbeat_ms = 50;
    options.directory_refresh_ms = 1000;
    StartClient(options);
    m_poll.fd = m_client->Fd();
    m_poll.events = POLLIN;
    ASSERT_GE(m_poll.fd, 0);
  }
  // One turn: waits for the descriptor alone, and takes at most one outcome. Whether there was one.
  bool Turn() {
    m_poll.revents = 0;
    EXPECT_EQ(poll(&m_poll, 1, static_cast<int>(kPatienceMs)), 1) << "nothing is ever due";
    ++m_turns;
    const int ret = m_client->Receive(m_response, 0);
    EXPECT_GE(ret, 0);
    if (ret == 1) {
      m_work->Book(m_response);
    }
    return ret == 1;
  }
  // Turns until so many outcomes came. False when they do not within the patience.
  bool TurnUntil(uint64_t outcomes) {
    const int64_t deadline_ms = GetMonotonicMilliseconds() + kPatienceMs;
    while (m_work->tally().Outcomes() < outcomes && GetMonotonicMilliseconds() < deadline_ms) {
      Turn();
    }
    return m_work->tally().Outcomes() >= outcomes;
  }

  pollfd m_poll{};
  uint64_t m_turns = 0;
};

TEST_F(ForeignLoop, GetsEveryOutcomeOneATurn) {
  StartAll();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  ASSERT_EQ(m_client->Flush(), 0);
  EXPECT_TRUE(TurnUntil(1000));
  EXPECT_EQ(m_work->tally().answered, 1000u);
  EXPECT_EQ(m_client->InFlight(), 0u);
}

TEST_F(ForeignLoop, IsWokenForHeartbeatsAndSleepsBetweenThem) {
  StartAll();
  const uint64_t beats = m_fleet->Counters(0).heartbeats;
  while (m_fleet->Counters(0).heartbeats < beats + 10) {
    ASSERT_FALSE(Turn());
  }
  EXPECT_LT(m_turns, 200u) << "it turns without anything to do";
}

TEST_F(ForeignLoop, IsWokenForTimeOuts) {
  StartAll();
  SetFaultsOfAll([](ProxyFaults& faults) { faults.drop_every = 1; });
  m_work->SetTimeout(150);
  const int64_t began_ms = GetMonotonicMilliseconds();
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  EXPECT_TRUE(TurnUntil(10));
  EXPECT_EQ(m_work->tally().timed_out, 10u);
  EXPECT_GE(GetMonotonicMilliseconds() - began_ms, 150);
  EXPECT_LT(GetMonotonicMilliseconds() - began_ms, 3000);
}

TEST_F(ForeignLoop, IsWokenForWhatACallKept) {
  StartAll();
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  SetFaultsOfAll([](ProxyFaults& faults) { faults.delay_ms = 50; });
  ASSERT_EQ(Do(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, "other", "value"), 0);
  uint64_t turns = 0;
  for (; m_work->tally().Outcomes() < 10 && turns < 50; ++turns) {
    Turn();
  }
  EXPECT_EQ(m_work->tally().Outcomes(), 10u);
}

}  // namespace
}  // namespace OstrandTests
