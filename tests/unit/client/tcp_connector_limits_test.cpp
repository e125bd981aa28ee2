// What a connector does at its limits: the room of what is to be sent, frames that nobody takes,
// and the silence that is then its own.
#include "client/tcp_connector.h"
#include "unit/client/connector_test.h"

namespace OstrandTests {
namespace {

// --- Room ---

TEST_F(ConnectorTest, LeavesAReserveForTheRoutersOwnPackages) {
  EXPECT_EQ(TcpConnector::MostRoom(1000), 750u) << "a quarter of a small limit";
  EXPECT_EQ(TcpConnector::MostRoom(64 * 1024), 48u * 1024);
  EXPECT_EQ(TcpConnector::MostRoom(16 << 20), (16u << 20) - 16 * 1024) << "16 KiB of a large one";
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  EXPECT_EQ(connector->Room(), 750u);
  Send(connector, std::string(700, 'x'));
  EXPECT_EQ(connector->Room(), 50u);
  EXPECT_EQ(Send(connector, std::string(300, 'x')), 300) << "the reserve may be queued on";
  EXPECT_EQ(connector->Room(), 0u);
}

TEST_F(ConnectorTest, TellsRoomOnceWhenHalfOfWhatWasQueuedIsGone) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  PeerConnection peer = listener.Accept();
  Send(connector, std::string(400, 'x'));
  connector->TellRoom();
  connector->TellRoom();
  EXPECT_TRUE(connector->TellsRoom());
  m_mgr.CheckRoom();
  EXPECT_EQ(m_events.rooms, 0) << "nothing left yet";
  Round();
  EXPECT_EQ(m_events.rooms, 1);
  EXPECT_FALSE(connector->TellsRoom());
  Round();
  EXPECT_EQ(m_events.rooms, 1);
}

TEST_F(ConnectorTest, TellsRoomWhenTheConnectionIsLost) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  Send(connector, std::string(1000, 'x'));
  connector->TellRoom();
  connector->Disconnect(0);
  EXPECT_EQ(m_events.rooms, 0) << "an operation tells nothing";
  m_mgr.CheckRoom();
  EXPECT_EQ(m_events.rooms, 1);
}

TEST_F(ConnectorTest, CountsThoseWhoseOutputIsOverHalfOfTheirLimit) {
  PeerListener listener;
  TcpConnector* const first = Connected(listener, 1000);
  TcpConnector* const second = Connected(listener, 1000);
  Send(first, std::string(500, 'x'));
  EXPECT_EQ(m_mgr.OverHalf(), 0u) << "half is not over half";
  Send(first, "x");
  Send(first, "x");
  EXPECT_EQ(m_mgr.OverHalf(), 1u);
  Send(second, std::string(501, 'x'));
  EXPECT_EQ(m_mgr.OverHalf(), 2u);
  m_loop.FlushAll();
  EXPECT_EQ(m_mgr.OverHalf(), 2u) << "until somebody looks";
  m_mgr.CheckRoom();
  EXPECT_EQ(m_mgr.OverHalf(), 0u);
}

// --- Frames that nobody takes ---

class ConnectorFullTest : public ConnectorTest {
 protected:
  static constexpr size_t kSmall = 10000;
  static constexpr size_t kFrameLen = 100;

  // Sends numbered frames until the connector reads no more. Their number.
  int Fill(TcpConnector* connector, PeerConnection& peer) {
    int sent = 0;
    while (connector->GetRecvBuffDataSize() < kSmall) {
      EXPECT_TRUE(peer.Send(Numbered(sent++)));
      if (!Becomes([&] { return m_receiver.calls == sent; })) break;
    }
    return sent;
  }
  static std::string Numbered(int number) {
    std::string text = std::to_string(number);
    text.resize(kFrameLen - kHeadLen, '.');
    return IdFrame(static_cast<uint64_t>(number) + 1, text);
  }
  static int NumberOf(const std::string& text) { return std::stoi(text); }
};

TEST_F(ConnectorFullTest, StopsReadingAtItsLimitGoesOnAtHalfAndLosesNothing) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, kSmall);
  PeerConnection peer = listener.Accept();
  const int filled = Fill(connector, peer);
  EXPECT_EQ(connector->GetRecvBuffLeftRate(), 0);
  ASSERT_TRUE(peer.Send(Numbered(filled)));
  for (int i = 0; i < 10; ++i) {
    Round();
  }
  EXPECT_EQ(m_receiver.calls, filled) << "it is not read";
  int taken = 0;
  while (connector->GetRecvBuffDataSize() > kSmall / 2 + 104) {
    EXPECT_EQ(NumberOf(TakeNow(connector)), taken++);
    m_loop.RunOnce(0);
  }
  EXPECT_EQ(m_receiver.calls, filled);
  EXPECT_EQ(NumberOf(TakeNow(connector)), taken++);
  ASSERT_TRUE(Becomes([&] { return m_receiver.calls == filled + 1; }));
  for (; taken <= filled; ++taken) {
    EXPECT_EQ(NumberOf(TakeNow(connector)), taken);
  }
  EXPECT_EQ(TakeNow(connector), "none");
  EXPECT_EQ(m_mgr.FramesDropped(), 0u);
}

// Or the application that takes nothing would never be connected again: its sign-up answer would
// wait after what it does not take.
TEST_F(ConnectorFullTest, GivesEachConnectionALimitOfItsOwn) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, kSmall);
  {
    PeerConnection peer = listener.Accept();
    Fill(connector, peer);
  }
  connector->Drop();
  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  PeerConnection peer = listener.Accept();
  m_receiver.on_frame = [](const std::string&, const std::string& text) {
    return text == "sign-up answer" ? 1 : 0;
  };
  const int calls = m_receiver.calls;
  ASSERT_TRUE(peer.Send(Frame("sign-up answer")));
  EXPECT_TRUE(Becomes([&] { return m_receiver.calls == calls + 1; }));
}

TEST_F(ConnectorFullTest, KeepsTheFramesOfOldConnectionsUpToOneLimitAndDropsTheOldest) {
  PeerListener listener;
  TcpConnector* const connector = Create(listener.url(), kSmall);
  constexpr int kEach = 60;  // of 104 bytes: two connections' are more than the limit
  for (int connection = 0; connection < 3; ++connection) {
    ASSERT_EQ(connector->Connect(), 0);
    ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
    PeerConnection peer = listener.Accept();
    for (int i = 0; i < kEach; ++i) {
      ASSERT_TRUE(peer.Send(Numbered(connection * kEach + i)));
    }
    ASSERT_TRUE(Becomes([&] { return m_receiver.calls == (connection + 1) * kEach; }));
    connector->Drop();
  }
  constexpr size_t kKept = kSmall / (kFrameLen + 4);
  constexpr size_t kDropped = 3 * kEach - kKept;
  EXPECT_EQ(m_mgr.FramesDropped(), kDropped);
  ASSERT_EQ(m_events.dropped.size(), kDropped) << "whoever waits for them is told";
  for (size_t i = 0; i < kDropped; ++i) {
    EXPECT_EQ(m_events.dropped[i] - 1, i);
  }
  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Numbered(9999)));
  ASSERT_TRUE(Becomes([&] { return m_receiver.calls == 3 * kEach + 1; }));
  for (int number = kDropped; number < 3 * kEach; ++number) {
    EXPECT_EQ(NumberOf(TakeNow(connector)), number) << "the old ones first";
  }
  EXPECT_EQ(NumberOf(TakeNow(connector)), 9999);
}

// --- Its own silence ---

TEST_F(ConnectorFullTest, DoesNotDisconnectForASilenceThatIsItsOwn) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, kSmall);
  PeerConnection peer = listener.Accept();
  m_events.is_for_silence = true;
  Fill(connector, peer);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTED) << "it does not read";
  while (connector->GetRecvBuffDataSize() > kSmall / 2) {
    TakeNow(connector);
  }
  m_system.AdvanceMs(TcpConnector::kReadAgainMs - 1);
  Round();
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTED) << "it read again just now";
  m_system.AdvanceMs(1);
  Round();
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(ConnectorFullTest, DisconnectsForOtherReasonsWhileItDoesNotRead) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, kSmall);
  PeerConnection peer = listener.Accept();
  Fill(connector, peer);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(ConnectorFullTest, DropEndsAConnectionThatDoesNotRead) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, kSmall);
  PeerConnection peer = listener.Accept();
  m_events.is_for_silence = true;
  Fill(connector, peer);
  connector->Drop();
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(ConnectorTest, DisconnectsForSilenceWhenItReads) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  m_events.is_for_silence = true;
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

}  // namespace
}  // namespace OstrandTests
