// What a connector tells of the requests that were in flight on a connection that is gone.
#include "client/tcp_connector.h"
#include "unit/client/connector_test.h"

namespace OstrandTests {
namespace {

using Ids = std::vector<uint64_t>;
using OstrandService::RequestChain;

class ConnectorLostTest : public ConnectorTest {
 protected:
  // Has these bytes come over a connection with requests in flight, and the connection lost.
  TcpConnector* LoseAfter(const std::string& bytes, uint64_t frames) {
    TcpConnector* const connector = Connected(m_listener);
    PeerConnection peer = m_listener.Accept();
    connector->in_flight = RequestChain{3, 4};
    EXPECT_TRUE(peer.Send(bytes));
    EXPECT_TRUE(Becomes([&] { return m_mgr.FramesIn() == frames; }));
    peer.Close();
    EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
    return connector;
  }
  // Of the one loss.
  Ids Answered() const { return m_events.answered.size() == 1 ? m_events.answered[0] : Ids{404}; }

  PeerListener m_listener;
};

TEST_F(ConnectorLostTest, NamesTheRequestsWhoseAnswersAreInItsQueueInOrderOfTheirIds) {
  LoseAfter(IdFrame(30, "") + IdFrame(10, "") + IdFrame(uint64_t{1} << 62, "") + IdFrame(20, ""),
            4);
  EXPECT_EQ(Answered(), (Ids{10, 20, 30, uint64_t{1} << 62}));
}

TEST_F(ConnectorLostTest, NamesAnAnswerInSeveralPackagesOnlyWhenTheLastOneIsThere) {
  LoseAfter(PackageFrame(1, 0, true) + PackageFrame(2, 0, true) + PackageFrame(2, 0, false) +
                PackageFrame(3, -7, true),
            4);
  EXPECT_EQ(Answered(), (Ids{2, 3})) << "after an error nothing follows";
}

TEST_F(ConnectorLostTest, DoesNotNameWhatWasTakenAlready) {
  TcpConnector* const connector = Connected(m_listener);
  PeerConnection peer = m_listener.Accept();
  connector->in_flight = RequestChain{3, 4};
  ASSERT_TRUE(peer.Send(IdFrame(1, "") + IdFrame(2, "")));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 2; }));
  TakeNow(connector);
  connector->Disconnect(0);
  EXPECT_EQ(Answered(), Ids{2});
}

TEST_F(ConnectorLostTest, SaysNothingWithoutRequestsInFlight) {
  TcpConnector* const connector = Connected(m_listener);
  const int changes = m_events.changes;
  connector->Disconnect(0);
  EXPECT_TRUE(m_events.answered.empty());
  EXPECT_EQ(m_events.changes, changes + 1);
}

TEST_F(ConnectorLostTest, TellsWhichAnswersGoWithTheConnectorItself) {
  TcpConnector* const connector =
      LoseAfter(IdFrame(8, "") + IdFrame(7, "") + PackageFrame(9, 0, true), 3);
  EXPECT_TRUE(m_events.dropped.empty());
  m_mgr.RemoveConnector(connector);
  EXPECT_EQ(m_events.dropped, (Ids{7, 8}));
}

TEST_F(ConnectorLostTest, TellsOfTheRequestsInFlightWhenItIsRemoved) {
  TcpConnector* const connector = Connected(m_listener);
  connector->in_flight = RequestChain{3, 4};
  m_mgr.RemoveConnector(connector);
  EXPECT_EQ(m_events.answered.size(), 1u);
}

TEST_F(ConnectorLostTest, NumbersConnectionsAcrossConnectors) {
  TcpConnector* const first = Connected(m_listener);
  EXPECT_EQ(first->connection(), 1u);
  TcpConnector* const second = Create(m_listener.url());
  EXPECT_EQ(second->connection(), 0u);
  second->Connect();
  ASSERT_TRUE(BecomesStatus(second, TcpConnector::STATUS_CONNECTED));
  EXPECT_EQ(second->connection(), 2u);
  first->Disconnect(0);
  first->Connect();
  ASSERT_TRUE(BecomesStatus(first, TcpConnector::STATUS_CONNECTED));
  EXPECT_EQ(first->connection(), 3u);
}

}  // namespace
}  // namespace OstrandTests
