// An owner that calls nothing for a while, longer than a proxy may be silent.
#include <gtest/gtest.h>

#include <cstdint>

#include "integration/integration_kit.h"
#include "integration/stepping_system.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using ostrand_protocol_cs::OSTRAND_API_GET_REQ;

class OwnerPauses : public RuntimeTest {
 protected:
  void ExpectConnectionsStand() {
    for (size_t i = 0; i < m_fleet->ProxyCount(); ++i) {
      EXPECT_EQ(m_fleet->Counters(i).connections_accepted, 1u) << i;
    }
    EXPECT_FALSE(IsLogged("closed"));
  }

  SteppingSystem m_stepping;
};

TEST_F(OwnerPauses, LongerThanTheSilenceOfAProxyMayBeCostNothing) {
  StartFleet(3);
  auto options = Options();
  options.heartbeat_ms = 50;
  options.check_heartbeat_ms = 400;
  StartClient(options);
  ASSERT_TRUE(m_work->Run(100));
  ASSERT_TRUE(m_work->Drain());
  m_call_timeout_ms = 2000;
  Pause(1200);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "nothing"), -7949);
  Pause(1200);
  ASSERT_TRUE(m_work->Run(100));
  EXPECT_FALSE(UpdateUntil([] { return false; }, 500));
  ExpectConnectionsStand();
}

// The same with the options as they come, and without waiting for it: the process stood still.
TEST_F(OwnerPauses, OfTwoMinutesCostNothing) {
  m_system = &m_stepping;
  StartFleet(3);
  StartClient();
  ASSERT_TRUE(m_work->Run(100));
  ASSERT_TRUE(m_work->Drain());
  m_call_timeout_ms = 2000;
  for (int i = 0; i < 10; ++i) {
    m_stepping.Stand(120 * 1000);
    EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "nothing"), -7949);
  }
  ExpectConnectionsStand();
}

// What was sent before the pause is answered after it, although its time is over: the answers lie
// there.
TEST_F(OwnerPauses, FindTheAnswersThatCameMeanwhile) {
  m_system = &m_stepping;
  StartFleet(2);
  StartClient();
  m_work->SetTimeout(3000);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  ASSERT_EQ(m_client->Flush(), 0);
  ASSERT_TRUE(m_fleet->WaitFor(kPatienceMs, [&] {
    return m_fleet->Counters(0).table_requests + m_fleet->Counters(1).table_requests >= 100;
  }));
  m_stepping.Stand(120 * 1000);
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().answered, 100u);
  ExpectConnectionsStand();
  ASSERT_TRUE(m_work->Run(100));
}

}  // namespace
}  // namespace OstrandTests
