// When a connector tries to connect, how long, and what failed attempts cost.
#include "client/tcp_connector.h"
#include "unit/client/connector_test.h"

namespace OstrandTests {
namespace {

// An address that refuses connections.
std::string RefusingUrl() { return PeerListener().url(); }

class ConnectorPausesTest : public ConnectorTest {
 protected:
  // Has so many attempts in a row fail; each is made as soon as its pause is over.
  void FailAttempts(TcpConnector* connector, int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(connector->Connect(), 0);
      m_system.AdvanceMs(TcpConnector::kLongestPauseMs);
      ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
    }
  }
  // The pause before the next attempt, in ms. REQUIRES: one failed before.
  int64_t Pause(TcpConnector* connector) {
    const int connects = m_system.Connects();
    EXPECT_EQ(connector->Connect(), 0);
    EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
    const int64_t pause_ms = m_loop.NextTimerMs() - m_loop.NowMs();
    m_system.AdvanceMs(pause_ms - 1);
    Round();
    EXPECT_EQ(m_system.Connects(), connects);
    EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
    m_system.AdvanceMs(1);
    Round();
    EXPECT_EQ(m_system.Connects(), connects + 1);
    EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
    return pause_ms;
  }
};

TEST_F(ConnectorPausesTest, TriesAtOnceTheFirstTimeAndSaysWhyItFailed) {
  TcpConnector* const connector = Create(RefusingUrl());
  ASSERT_EQ(connector->Connect(), 0);
  EXPECT_EQ(m_system.Connects(), 1);
  EXPECT_EQ(connector->Connect(), 0) << "it is under way";
  EXPECT_EQ(m_system.Connects(), 1);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(), "connect: Connection refused");
  EXPECT_EQ(m_events.changes, 1);
}

TEST_F(ConnectorPausesTest, WaitsLongerAndLongerWithHalfOfItLeftToChance) {
  constexpr int64_t kLongest[] = {200, 400, 800, 1600, 3200, 5000, 5000, 5000};
  TcpConnector* const least = Create(RefusingUrl());
  FailAttempts(least, 1);
  for (const int64_t longest_ms : kLongest) {
    m_system.ScriptRandom({0});
    EXPECT_EQ(Pause(least), longest_ms / 2);
  }
  TcpConnector* const most = Create(RefusingUrl());
  FailAttempts(most, 1);
  for (const int64_t longest_ms : kLongest) {
    m_system.ScriptRandom({static_cast<uint64_t>(longest_ms / 2)});
    EXPECT_EQ(Pause(most), longest_ms);
  }
}

TEST_F(ConnectorPausesTest, DisconnectEndsThePause) {
  TcpConnector* const connector = Create(RefusingUrl());
  FailAttempts(connector, 3);
  const int connects = m_system.Connects();
  ASSERT_EQ(connector->Connect(), 0);
  const int changes = m_events.changes;
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(m_events.changes, changes + 1);
  m_system.AdvanceMs(60000);
  Round();
  EXPECT_EQ(m_system.Connects(), connects);
}

TEST_F(ConnectorPausesTest, TriesAtOnceAfterAConnectionThatStood) {
  PeerListener listener;
  TcpConnector* const connector = Create(listener.url());
  m_system.FailSockets(-EMFILE);
  EXPECT_EQ(connector->Connect(), -1);
  EXPECT_STREQ(connector->GetLastErrDesc(), "socket: Too many open files");
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  m_system.FailSockets(0);
  EXPECT_EQ(connector->Connect(), 0);
  EXPECT_EQ(m_system.Connects(), 0) << "a pause first";
  m_system.AdvanceMs(TcpConnector::kFirstPauseMs);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  connector->Disconnect(0);
  EXPECT_EQ(connector->Connect(), 0);
  EXPECT_EQ(m_system.Connects(), 2);
}

TEST_F(ConnectorPausesTest, IsDisconnectedWhenTheAttemptAfterThePauseCannotBegin) {
  TcpConnector* const connector = Create(RefusingUrl());
  FailAttempts(connector, 1);
  ASSERT_EQ(connector->Connect(), 0);
  m_system.FailSockets(-EMFILE);
  m_system.AdvanceMs(TcpConnector::kFirstPauseMs);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(), "socket: Too many open files");
}

TEST_F(ConnectorPausesTest, RemovalEndsThePause) {
  TcpConnector* const connector = Create(RefusingUrl());
  FailAttempts(connector, 1);
  ASSERT_EQ(connector->Connect(), 0);
  m_mgr.RemoveConnector(connector);
  EXPECT_EQ(m_loop.NextTimerMs(), INT64_MAX);
}

// A name whose look-up is held stands for a peer that does not answer: both end with the attempt's
// time.
TEST_F(ConnectorPausesTest, GivesAnAttemptUpAfterThreeSeconds) {
  m_system.HoldNames();
  TcpConnector* const connector = Create("tcp://slow:80");
  ASSERT_EQ(connector->Connect(), 0);
  m_system.AdvanceMs(2999);
  Round();
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
  m_system.AdvanceMs(1);
  Round();
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_STREQ(connector->GetLastErrDesc(), "look up: timed out");
  EXPECT_TRUE(IsLogged("connection to tcp://slow:80 closed: look up: timed out"));
  m_system.ReleaseNames();
  Round();
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(ConnectorPausesTest, EndsAnAttemptAtOnce) {
  m_system.HoldNames();
  TcpConnector* const connector = Create("tcp://slow:80");
  ASSERT_EQ(connector->Connect(), 0);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  m_system.ReleaseNames();
  Round();
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(m_system.Connects(), 0);
}

}  // namespace
}  // namespace OstrandTests
