// What a connector sends and receives, and how a connection ends.
#include "client/tcp_connector.h"

#include "unit/client/connector_test.h"

namespace OstrandTests {
namespace {

using OSTRNET::Endpoint;

struct Address {
  const char* url;
  int ip;
  int port;
};

// CRC-32 (the reflected polynomial 0xEDB88320) bit by bit, as RFC 1952 defines it.
int Crc32(const std::string& text) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320u : crc >> 1;
    }
  }
  return static_cast<int>(~crc);
}

TEST_F(ConnectorTest, KnowsItsAddressBeforeItConnects) {
  ASSERT_EQ(Crc32("123456789"), static_cast<int>(0xCBF43926)) << "the check value";
  const Address kAddresses[] = {
      {"tcp://127.0.0.1:00080", static_cast<int>(htonl(0x7F000001)), 80},
      {"tcp://10.20.30.40:65535", static_cast<int>(htonl(0x0A141E28)), 65535},
      {"tcp://[::1]:9000", Crc32("::1"), 9000},
      {"tcp://[fe80::1%2]:9001", Crc32("fe80::1%2"), 9001},
      {"tcp://proxy-1.example:9002", Crc32("proxy-1.example"), 9002},
  };
  for (const Address& expected : kAddresses) {
    TcpConnector* const connector = Create(expected.url);
    ASSERT_NE(connector, nullptr) << expected.url;
    EXPECT_STREQ(connector->GetURL(), expected.url) << "to the letter";
    int ip = 0;
    int port = 0;
    connector->GetIPAndPort(ip, port);
    EXPECT_EQ(ip, expected.ip) << expected.url;
    EXPECT_EQ(port, expected.port) << expected.url;
    EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  }
}

TEST_F(ConnectorTest, RefusesUrlsThatAreNoAddress) {
  for (const char* url :
       {"", "tcp://", "udp://127.0.0.1:80", "TCP://127.0.0.1:80", "tcp://127.0.0.1",
        "tcp://127.0.0.1:", "tcp://127.0.0.1:0", "tcp://127.0.0.1:65536", "tcp://127.0.0.1:80x",
        "tcp://1.2.3:80", "tcp://127.0.0.256:80", "tcp://127.0.0.1:99999999999", "tcp://::1:80",
        "tcp://[::1]", "tcp://[127.0.0.1]:80", "tcp://user@host:80", "tcp://host:80/",
        "tcp://127.0.0.1:18446744073709551696"}) {
    EXPECT_EQ(Create(url), nullptr) << url;
    EXPECT_STRNE(m_mgr.GetLastErrDesc(), "") << url;
  }
  EXPECT_EQ(m_mgr.CreateConnector(nullptr, &m_parser, -1, OnFrame, nullptr), nullptr);
}

TEST_F(ConnectorTest, NeedsParserAndCallback) {
  EXPECT_EQ(m_mgr.CreateConnector("tcp://127.0.0.1:80", nullptr, -1, OnFrame, nullptr), nullptr);
  EXPECT_STREQ(m_mgr.GetLastErrDesc(), "a parser and a callback are needed");
  EXPECT_EQ(m_mgr.CreateConnector("tcp://127.0.0.1:80", &m_parser, -1, nullptr, nullptr), nullptr);
}

TEST_F(ConnectorTest, ConnectsToANameByAnyOfItsAddresses) {
  PeerListener refusing;
  PeerListener listener;
  Endpoint nobody = Endpoint::Loopback(0);
  nobody.bytes[3] = 77;  // nobody listens there
  m_system.SetName("proxy", {nobody, Endpoint::Loopback(0)});
  TcpConnector* const connector = Connected("tcp://proxy:" + std::to_string(listener.port()));
  PeerConnection peer = listener.Accept();
  EXPECT_EQ(Send(connector, "hello"), 5);
  Round();
  EXPECT_EQ(peer.Read(5), "hello");
}

TEST_F(ConnectorTest, SaysThatANameHasNoAddress) {
  TcpConnector* const connector = Create("tcp://nowhere:80");
  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(), "look up: no such name");
}

// --- Sending ---

TEST_F(ConnectorTest, SendsWhatIsQueuedInOneGoWhenTheLoopFlushes) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  std::string bytes = "as it was";
  const uint64_t calls = m_loop.SystemCalls();
  EXPECT_EQ(Send(connector, bytes), 9);
  bytes.assign(9, 'x');
  EXPECT_EQ(Send(connector, "two"), 3);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 12u);
  EXPECT_EQ(m_loop.SystemCalls(), calls);
  EXPECT_EQ(m_mgr.LastQueuedOn(), connector);
  m_loop.FlushAll();
  EXPECT_EQ(m_loop.SystemCalls(), calls + 1);
  EXPECT_EQ(peer.Read(12), "as it wastwo");
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
}

TEST_F(ConnectorTest, SendsOnceForEachPeerHoweverManyFramesWait) {
  constexpr size_t kPeers = 8;
  std::vector<std::unique_ptr<PeerListener>> listeners;
  std::vector<TcpConnector*> connectors;
  std::vector<PeerConnection> peers;
  for (size_t i = 0; i < kPeers; ++i) {
    listeners.push_back(std::make_unique<PeerListener>());
    connectors.push_back(Connected(*listeners[i]));
    peers.push_back(listeners[i]->Accept());
  }
  const uint64_t calls = m_loop.SystemCalls();
  std::string expected;
  for (int frame = 0; frame < 50; ++frame) {
    for (TcpConnector* connector : connectors) {
      Send(connector, "frame " + std::to_string(frame));
    }
    expected += "frame " + std::to_string(frame);
  }
  m_loop.FlushAll();
  EXPECT_EQ(m_loop.SystemCalls(), calls + kPeers);
  for (PeerConnection& peer : peers) {
    EXPECT_EQ(peer.Read(expected.size()), expected);
  }
}

TEST_F(ConnectorTest, RefusesToSendWhileNotConnected) {
  PeerListener listener;
  TcpConnector* const connector = Create(listener.url());
  EXPECT_EQ(Send(connector, "x"), -1);
  EXPECT_STREQ(connector->GetLastErrDesc(), "not connected");
  ASSERT_EQ(connector->Connect(), 0);
  EXPECT_EQ(Send(connector, "too early"), -1);
}

TEST_F(ConnectorTest, QueuesAWholeFrameOrNothing) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  EXPECT_EQ(Send(connector, std::string(1001, 'x')), 0);
  EXPECT_EQ(connector->SendToQ("unread", UINT32_MAX, nullptr), 0);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  EXPECT_EQ(Send(connector, std::string(500, 'a')), 500);
  EXPECT_EQ(connector->GetSendBuffLeftRate(), 50);
  EXPECT_EQ(Send(connector, std::string(501, 'b')), 0) << "no room: nothing changes";
  EXPECT_EQ(connector->GetSendBuffDataSize(), 500u);
  EXPECT_EQ(Send(connector, std::string(500, 'c')), 500);
  EXPECT_EQ(Send(connector, "d"), 0);
  EXPECT_STREQ(connector->GetLastErrDesc(), "the send buffer is full");
  EXPECT_EQ(connector->GetSendBuffDataSize(), 1000u);
  EXPECT_EQ(connector->GetSendBuffLeftRate(), 0);
}

TEST_F(ConnectorTest, GoesOnSendingWhenAFullSocketHasRoomAgain) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  std::string expected;
  for (int i = 0; i < 200; ++i) {  // far more than a socket holds
    const std::string chunk(64 * 1024, static_cast<char>('a' + i % 26));
    ASSERT_TRUE(Becomes([&] {
      const int ret = Send(connector, chunk);
      m_loop.FlushAll();
      if (ret == 0) {  // full: let the peer read some
        const std::string some = peer.Read(64 * 1024);
        EXPECT_TRUE(some == expected.substr(0, some.size()));
        expected.erase(0, some.size());
      }
      return ret > 0;
    }));
    expected += chunk;
  }
  std::string rest;
  ASSERT_TRUE(Becomes([&] {
    rest += peer.Read(std::min<size_t>(expected.size() - rest.size(), 64 * 1024));
    return rest.size() == expected.size();
  }));
  EXPECT_TRUE(rest == expected);
}

TEST_F(ConnectorTest, RunsNoCallbackInsideAnOperation) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("waits")));
  peer.Reset();
  Send(connector, "a");
  m_loop.FlushAll();  // fails, or meets what the peer left
  Send(connector, "b");
  EXPECT_EQ(m_receiver.calls, 0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTED) << "told in a round";
  EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
}

TEST_F(ConnectorTest, LosesUnsentBytesWithTheConnection) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  listener.Accept().Reset();
  Send(connector, "lost");
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  PeerConnection again = listener.Accept();
  Send(connector, "new");
  Round();
  EXPECT_EQ(again.Read(3), "new");
}

// --- Receiving ---

TEST_F(ConnectorTest, HandsEachWholeFrameToTheCallbackAndKeepsWhatItLeaves) {
  PeerListener listener;
  std::string seen_url;
  m_receiver.on_frame = [&](const std::string& url, const std::string& text) {
    seen_url = url;
    return text[0] == '!' ? 1 : 0;
  };
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("first") + IdFrame(0, "!handled", 4711) + Frame("second")));
  EXPECT_EQ(Take(connector), "first");
  EXPECT_EQ(Take(connector), "second");
  EXPECT_EQ(m_receiver.calls, 3);
  EXPECT_EQ(seen_url, listener.url());
  EXPECT_EQ(m_events.handled, std::vector<uint32_t>{4711});
  EXPECT_EQ(m_mgr.FramesIn(), 2u);
  EXPECT_EQ(m_mgr.FramesTaken(), 2u);
  EXPECT_EQ(connector->GetRecvBuffDataSize(), 0u);
}

TEST_F(ConnectorTest, OffersEachFrameToTheListenerBeforeTheCallback) {
  PeerListener listener;
  m_events.takes = [](const std::string& text) { return text == "mine"; };
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("mine") + Frame("yours")));
  EXPECT_EQ(Take(connector), "yours");
  EXPECT_EQ(m_receiver.calls, 1);
}

TEST_F(ConnectorTest, PutsTogetherAFrameThatComesByteByByte) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  for (const char byte : Frame("slowly")) {
    ASSERT_TRUE(peer.Send(std::string(1, byte)));
    Round();
  }
  EXPECT_EQ(Take(connector), "slowly");
}

TEST_F(ConnectorTest, SendsWhatACallbackQueuedAtTheEndOfTheRound) {
  PeerListener listener;
  TcpConnector* connector = nullptr;
  m_receiver.on_frame = [&](const std::string&, const std::string& text) {
    EXPECT_GT(Send(connector, "answer to " + text), 0);
    return 1;
  };
  connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("one") + Frame("two")));
  ASSERT_TRUE(Becomes([&] { return m_receiver.calls == 2; }));
  EXPECT_EQ(peer.Read(26), "answer to oneanswer to two");
}

TEST_F(ConnectorTest, KeepsTheFlagItWasGivenSetWhileAFrameWaits) {
  PeerListener listener;
  OstrandCommon::Relaxed<bool> flag = true;
  TcpConnector* const connector = Create(listener.url());
  connector->SetIncomingFlag(&flag);
  EXPECT_FALSE(flag);
  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("one") + Frame("two")));
  EXPECT_TRUE(Becomes([&] { return flag.Get(); }));
  EXPECT_EQ(TakeNow(connector), "one");
  EXPECT_TRUE(flag);
  EXPECT_EQ(TakeNow(connector), "two");
  EXPECT_EQ(TakeNow(connector), "none");
  EXPECT_FALSE(flag) << "nothing is left";
  ASSERT_TRUE(peer.Send(Frame("three")));
  EXPECT_TRUE(Becomes([&] { return flag.Get(); }));
  connector->Disconnect(0);
  EXPECT_TRUE(flag) << "whole frames stay";
  EXPECT_EQ(TakeNow(connector), "three");
  m_mgr.RemoveConnector(connector);  // before the flag goes
}

TEST_F(ConnectorTest, DropsTheFrameAtTheHeadWhenItRecovers) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  connector->Recover(nullptr);
  connector->ConsumePkg();
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("bad") + Frame("good")));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 2; }));
  connector->Recover(nullptr);
  EXPECT_EQ(Take(connector), "good");
}

// Whoever took it still looks at it: the router consumes a frame before it reads its context.
TEST_F(ConnectorTest, LendsATakenFrameUntilTheNextOperation) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("lent") + Frame("next")));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 2; }));
  const char* data = nullptr;
  int size = 0;
  ASSERT_EQ(connector->PeekPkg(data, size, nullptr), static_cast<int>(kHeadLen) + 4);
  connector->ConsumePkg();
  EXPECT_EQ(std::string(data + kHeadLen, 4), "lent");
  EXPECT_EQ(TakeNow(connector), "next");
}

// --- The end of a connection ---

struct EndOfConnection {
  const char* name;
  std::string sent;
  enum { kByUs, kClose, kReset } by;
  const char* reason;
};

class ConnectorEndTest : public ConnectorTest,
                         public testing::WithParamInterface<EndOfConnection> {};

TEST_P(ConnectorEndTest, ClosesThisOneConnectionAndLogsTheReason) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  PeerConnection peer = listener.Accept();
  PeerListener other_listener;
  TcpConnector* const other = Connected(other_listener);
  ASSERT_TRUE(peer.Send(Frame("before") + GetParam().sent));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 1; }));
  if (GetParam().by == EndOfConnection::kReset) {
    peer.Reset();
  } else if (GetParam().by == EndOfConnection::kClose) {
    peer.Close();
  }
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(), GetParam().reason);
  EXPECT_TRUE(m_logger.Find(OstrandCommon::OSTRAND_LOG_LEVEL_WARN,
                            "connection to " + listener.url() + " closed: " + GetParam().reason));
  EXPECT_EQ(other->GetStatus(), TcpConnector::STATUS_CONNECTED);
  EXPECT_EQ(TakeNow(connector), "before") << "whole frames stay";
  EXPECT_EQ(TakeNow(connector), "none");
  EXPECT_EQ(m_system.Connects(), 2) << "it never reconnects by itself";
}

INSTANTIATE_TEST_SUITE_P(
    Ends, ConnectorEndTest,
    testing::Values(EndOfConnection{"InOrder", "", EndOfConnection::kClose, "closed by the peer"},
                    EndOfConnection{"InsideAFrame", Frame("cut").substr(0, 9),
                                    EndOfConnection::kClose, "closed by the peer inside a frame"},
                    EndOfConnection{"Reset", "", EndOfConnection::kReset,
                                    "receive: Connection reset by peer"},
                    EndOfConnection{"OverLongFrame", BigEndian(1001, 4), EndOfConnection::kByUs,
                                    "receive: the frame is longer than the buffer may grow"},
                    EndOfConnection{"NoFrame", BigEndian(LengthParser::kNoFrame, 4),
                                    EndOfConnection::kByUs, "receive: no frame begins like this"}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(ConnectorTest, TakesAFrameAsLargeAsItsLimitAfterOneThatWaits) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  PeerConnection peer = listener.Accept();
  const std::string largest(1000 - kHeadLen, 'x');
  ASSERT_TRUE(peer.Send(Frame("first") + Frame(largest) + Frame("last")));
  EXPECT_EQ(Take(connector), "first");
  EXPECT_EQ(Take(connector), largest);
  EXPECT_EQ(Take(connector), "last");
}

TEST_F(ConnectorTest, PutsFramesOfManyMegabytesTogether) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 16 << 20);
  PeerConnection peer = listener.Accept();
  for (const size_t size : {3u, 1000000u, 0u, 262100u, 262140u, 3000000u, 7u}) {
    const std::string frame = Frame(std::string(size, 'x'));
    for (size_t sent = 0; sent < frame.size(); sent += 65536) {
      ASSERT_TRUE(peer.Send(frame.substr(sent, 65536)));
      Round();
    }
    EXPECT_EQ(Take(connector).size(), size);
  }
}

TEST_F(ConnectorTest, DisconnectEndsTheConnectionAtOnceAndKeepsWholeFrames) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("whole") + Frame("partial").substr(0, 6)));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 1; }));
  Send(connector, "unsent");
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  EXPECT_TRUE(peer.ReadsTheEnd());

  ASSERT_EQ(connector->Connect(), 0);
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  PeerConnection again = listener.Accept();
  ASSERT_TRUE(again.Send(Frame("new")));
  ASSERT_TRUE(Becomes([&] { return m_mgr.FramesIn() == 2; }));
  EXPECT_EQ(TakeNow(connector), "whole");
  EXPECT_EQ(TakeNow(connector), "new");
}

// --- Removal ---

TEST_F(ConnectorTest, RemovesOnlyWhatTheManagerMade) {
  NotedEvents events;
  OstrandService::TcpConnectorMgr other(m_loop, nullptr, 0, events);
  OSTRNET::CConnector* const stranger =
      other.CreateConnector("tcp://127.0.0.1:80", &m_parser, -1, OnFrame, &m_receiver);
  EXPECT_EQ(m_mgr.RemoveConnector(stranger), -1);
  EXPECT_EQ(m_mgr.Find(stranger), nullptr);
  EXPECT_EQ(other.Find(stranger), stranger);
  EXPECT_EQ(other.RemoveConnector(stranger), 0);
  EXPECT_EQ(m_mgr.RemoveConnector(nullptr), 0);
}

TEST_F(ConnectorTest, DeliversNothingAfterRemovalInTheSameRound) {
  PeerListener first_listener;
  PeerListener second_listener;
  TcpConnector* const first = Connected(first_listener);
  TcpConnector* const second = Connected(second_listener);
  PeerConnection first_peer = first_listener.Accept();
  PeerConnection second_peer = second_listener.Accept();
  // Whichever is dispatched first removes the other one, whose event is fetched already.
  m_receiver.on_frame = [&](const std::string& url, const std::string&) {
    m_mgr.RemoveConnector(url == first_listener.url() ? second : first);
    return 1;
  };
  ASSERT_TRUE(first_peer.Send(Frame("one")));
  ASSERT_TRUE(second_peer.Send(Frame("two")));
  for (int i = 0; i < 5; ++i) {
    Round();
  }
  EXPECT_EQ(m_receiver.calls, 1);
  EXPECT_EQ(m_mgr.Connectors().size(), 1u);
}

TEST_F(ConnectorTest, ForgetsARemovedConnectorThatWasQueuedOn) {
  PeerListener listener;
  TcpConnector* const connector = Connected(listener, 1000);
  PeerConnection peer = listener.Accept();
  Send(connector, std::string(900, 'x'));
  connector->TellRoom();
  EXPECT_EQ(m_mgr.OverHalf(), 1u);
  EXPECT_EQ(m_mgr.RemoveConnector(connector), 0);
  EXPECT_EQ(m_mgr.LastQueuedOn(), nullptr);
  EXPECT_EQ(m_mgr.OverHalf(), 0u);
  Round();
  EXPECT_TRUE(peer.ReadsTheEnd());
}

}  // namespace
}  // namespace OstrandTests
