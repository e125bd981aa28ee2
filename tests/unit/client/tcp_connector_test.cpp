// A connector against a real socket on loopback. Frames are a length byte and that many bytes in
// all; the callback keeps those whose second byte is not '!'.
#include "client/tcp_connector.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "client/tcp_connector_mgr.h"
#include "common/clock.h"
#include "fakes/recording_logger.h"
#include "unit/client/tcp_peer.h"

namespace OstrandService {
namespace {

using OstrandTests::PeerConnection;
using OstrandTests::PeerListener;

constexpr char kHuge = '\x01';     // a "length" that announces 1 GiB
constexpr char kNoFrame = '\x02';  // a "length" with which no frame begins

class LengthByteParser : public OSTRNET::IPackParser {
 public:
  int ParsePackLength(const char* data, unsigned int len) override {
    if (len == 0) return 0;
    if (data[0] == kHuge) return 1 << 30;
    if (data[0] == kNoFrame) return -7;
    return static_cast<unsigned char>(data[0]);
  }
};

std::string Frame(const std::string& text) {
  return std::string(1, static_cast<char>(text.size() + 1)) + text;
}

struct Received {
  std::atomic<int> calls{0};
  std::atomic<int> consumed{0};
};

int OnFrame(const char* url, const char* data, int len, void* arg) {
  (void)url;
  auto* received = static_cast<Received*>(arg);
  received->calls += 1;
  if (len > 1 && data[1] == '!') {
    received->consumed += 1;
    return 1;
  }
  return 0;
}

class TcpConnectorTest : public testing::Test {
 protected:
  static constexpr size_t kLimit = 128 * 1024;

  void SetUp() override { ASSERT_EQ(m_mgr.Start(), 0); }

  TcpConnector* Create(const std::string& url) {
    return static_cast<TcpConnector*>(
        m_mgr.CreateConnector(url.c_str(), &m_parser, -1, OnFrame, &m_received));
  }

  // Waits for something that the network thread brings about; gives up after five seconds.
  bool Becomes(const std::function<bool()>& holds) {
    const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + 5000;
    while (!holds()) {
      if (OstrandCommon::GetMonotonicMilliseconds() > deadline_ms) return false;
      m_mgr.WaitForFrames(m_mgr.FramesSeen(), OstrandCommon::GetMonotonicMilliseconds() + 1);
    }
    return true;
  }

  TcpConnector* Connected(PeerListener& listener) {
    TcpConnector* connector = Create(listener.url());
    EXPECT_EQ(connector->Connect(), 0);
    EXPECT_TRUE(Becomes([&] { return connector->GetStatus() == TcpConnector::STATUS_CONNECTED; }));
    return connector;
  }

  // The next frame, waiting for it; empty when none comes.
  std::string Take(TcpConnector* connector) {
    const char* data = nullptr;
    int size = 0;
    if (!Becomes([&] { return connector->PeekPkg(data, size, nullptr) != 0; })) return "";
    std::string frame(data + 1, static_cast<size_t>(size) - 1);
    connector->ConsumePkg();
    return frame;
  }

  OstrandFakes::RecordingLogger m_logger;
  LengthByteParser m_parser;
  Received m_received;
  TcpConnectorMgr m_mgr{&m_logger, 42, kLimit};
};

TEST_F(TcpConnectorTest, KeepsTheUrlToTheLetterAndKnowsItsAddressBeforeItConnects) {
  TcpConnector* connector = Create("tcp://127.0.0.1:00080");
  EXPECT_STREQ(connector->GetURL(), "tcp://127.0.0.1:00080");
  int ip = 0;
  int port = 0;
  connector->GetIPAndPort(ip, port);
  EXPECT_EQ(ip, static_cast<int>(htonl(INADDR_LOOPBACK)));
  EXPECT_EQ(port, 80);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(TcpConnectorTest, RefusesUrlsThatAreNoAddress) {
  for (const char* url :
       {"", "tcp://", "udp://127.0.0.1:80", "tcp://localhost:80", "tcp://127.0.0.1",
        "tcp://127.0.0.1:", "tcp://127.0.0.1:0", "tcp://127.0.0.1:65536", "tcp://127.0.0.1:80x",
        "tcp://1.2.3:80", "tcp://1.2.3.4.5.6.7.8.9.10:80", "tcp://127.0.0.1:99999999999"}) {
    EXPECT_EQ(Create(url), nullptr) << url;
    EXPECT_STRNE(m_mgr.GetLastErrDesc(), "") << url;
  }
}

TEST_F(TcpConnectorTest, SendsWhatIsQueuedInOneGo) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  const uint64_t calls = m_mgr.SystemCalls();
  EXPECT_EQ(connector->SendToQ("one", 3, nullptr), 3);
  EXPECT_EQ(connector->SendToQ("two", 3, nullptr), 3);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 6u);
  EXPECT_EQ(m_mgr.SystemCalls(), calls);
  m_mgr.Flush();
  EXPECT_EQ(m_mgr.SystemCalls(), calls + 1);
  EXPECT_EQ(peer.Read(6), "onetwo");
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
}

TEST_F(TcpConnectorTest, RefusesToSendWhileNotConnected) {
  TcpConnector* connector = Create("tcp://127.0.0.1:80");
  EXPECT_EQ(connector->SendToQ("x", 1, nullptr), -1);
  EXPECT_STREQ(connector->GetLastErrDesc(), "not connected");
}

TEST_F(TcpConnectorTest, QueuesAWholeFrameOrNothing) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  const std::string half(kLimit / 2, 'a');
  const auto half_len = static_cast<unsigned int>(half.size());
  EXPECT_EQ(connector->SendToQ(half.data(), half_len, nullptr), static_cast<int>(half_len));
  EXPECT_EQ(connector->GetSendBuffLeftRate(), 50);
  EXPECT_EQ(connector->SendToQ(half.data(), half_len, nullptr), static_cast<int>(half_len));
  EXPECT_EQ(connector->SendToQ("b", 1, nullptr), 0);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 2 * half_len);
  EXPECT_EQ(connector->GetSendBuffLeftRate(), 0);
}

TEST_F(TcpConnectorTest, GoesOnSendingWhenAFullSocketHasRoomAgain) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  std::string expected;
  for (int i = 0; i < 400; ++i) {  // far more than a socket holds
    const std::string chunk(64 * 1024, static_cast<char>('a' + i % 26));
    ASSERT_TRUE(Becomes([&] {
      const int ret =
          connector->SendToQ(chunk.data(), static_cast<unsigned int>(chunk.size()), nullptr);
      m_mgr.Flush();
      if (ret == 0) {  // full: let the peer read some
        const std::string some = peer.Read(64 * 1024);
        EXPECT_EQ(some, expected.substr(0, some.size()));
        expected.erase(0, some.size());
      }
      return ret > 0;
    }));
    expected += chunk;
  }
  EXPECT_EQ(peer.Read(expected.size()), expected);
}

TEST_F(TcpConnectorTest, HandsEachWholeFrameToTheCallbackAndKeepsWhatItLeaves) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("first") + Frame("!dropped") + Frame("second")));
  EXPECT_EQ(Take(connector), "first");
  EXPECT_EQ(Take(connector), "second");
  EXPECT_EQ(m_received.calls, 3);
  EXPECT_EQ(m_received.consumed, 1);
  EXPECT_EQ(connector->GetRecvBuffDataSize(), 0u);
}

TEST_F(TcpConnectorTest, PutsTogetherAFrameThatComesByteByByte) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  for (const char byte : Frame("slowly")) {
    ASSERT_TRUE(peer.Send(std::string(1, byte)));
  }
  EXPECT_EQ(Take(connector), "slowly");
}

TEST_F(TcpConnectorTest, DisconnectKeepsWholeFramesAndDropsAPartialOne) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("whole") + Frame("partial").substr(0, 4)));
  ASSERT_TRUE(Becomes([&] { return connector->GetRecvBuffDataSize() != 0; }));
  connector->SendToQ("unsent", 6, nullptr);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  EXPECT_TRUE(peer.ReadsTheEnd());

  ASSERT_EQ(connector->Connect(), 0);
  PeerConnection again = listener.Accept();
  ASSERT_TRUE(again.Send(Frame("new")));
  EXPECT_EQ(Take(connector), "whole");
  EXPECT_EQ(Take(connector), "new");
}

TEST_F(TcpConnectorTest, NeverReconnectsByItself) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  listener.Accept().Close();
  EXPECT_TRUE(Becomes([&] { return connector->GetStatus() == TcpConnector::STATUS_DISCONNECTED; }));
  EXPECT_STREQ(connector->GetLastErrDesc(), "closed by the peer");
}

struct EndOfConnection {
  const char* name;
  std::string sent;
  bool reset;
  const char* reason;
};

class TcpConnectorEndTest : public TcpConnectorTest,
                            public testing::WithParamInterface<EndOfConnection> {};

TEST_P(TcpConnectorEndTest, ClosesThisOneConnectionAndLogsTheReason) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  PeerListener other_listener;
  TcpConnector* other = Connected(other_listener);
  ASSERT_TRUE(peer.Send(Frame("before") + GetParam().sent));
  EXPECT_EQ(Take(connector), "before");
  if (GetParam().reset) {
    peer.Reset();
  } else if (GetParam().sent.size() != 1) {
    peer.Close();
  }
  EXPECT_TRUE(Becomes([&] { return connector->GetStatus() == TcpConnector::STATUS_DISCONNECTED; }));
  EXPECT_NE(std::string(connector->GetLastErrDesc()).find(GetParam().reason), std::string::npos)
      << connector->GetLastErrDesc();
  bool logged = false;
  for (const std::string& text : m_logger.Texts()) {
    logged = logged || text.find(GetParam().reason) != std::string::npos;
  }
  EXPECT_TRUE(logged);
  EXPECT_EQ(other->GetStatus(), TcpConnector::STATUS_CONNECTED);
}

INSTANTIATE_TEST_SUITE_P(
    Ends, TcpConnectorEndTest,
    testing::Values(EndOfConnection{"InsideAFrame", Frame("cut").substr(0, 2), false,
                                    "closed by the peer inside a frame"},
                    EndOfConnection{"Reset", "", true, "Connection reset by peer"},
                    EndOfConnection{"OverLongFrame", std::string(1, kHuge), false,
                                    "longer than the buffer may grow"},
                    EndOfConnection{"NoFrame", std::string(1, kNoFrame), false,
                                    "no frame begins like this"}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(TcpConnectorTest, TellsThatAConnectionWasRefused) {
  PeerListener listener;
  const std::string url = listener.url();
  listener.Close();
  TcpConnector* connector = Create(url);
  connector->Connect();
  EXPECT_TRUE(Becomes([&] { return connector->GetStatus() == TcpConnector::STATUS_DISCONNECTED; }));
  EXPECT_STREQ(connector->GetLastErrDesc(), "connect: Connection refused");
}

TEST_F(TcpConnectorTest, StopsReadingAtItsLimitAndLosesNothing) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  constexpr int kFrames = 40000;  // 4 MB, far above the limit
  pthread_t sender{};
  ASSERT_EQ(pthread_create(
                &sender, nullptr,
                [](void* arg) -> void* {
                  auto* to = static_cast<PeerConnection*>(arg);
                  for (int i = 0; i < kFrames; ++i) {
                    to->Send(Frame(std::to_string(100000 + i) + std::string(94, '.')));
                  }
                  return nullptr;
                },
                &peer),
            0);
  // With nobody polling it fills up to its limit and not beyond.
  EXPECT_TRUE(Becomes([&] { return connector->GetRecvBuffDataSize() > kLimit - 4096; }));
  EXPECT_LE(connector->GetRecvBuffDataSize(), 2 * kLimit);
  for (int i = 0; i < kFrames; ++i) {
    ASSERT_EQ(Take(connector).substr(0, 6), std::to_string(100000 + i));
  }
  pthread_join(sender, nullptr);
}

TEST_F(TcpConnectorTest, AnswersMinusOneWhenDescriptorsAreUsedUp) {
  PeerListener listener;
  TcpConnector* connector = Create(listener.url());
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit none = before;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int ret = connector->Connect();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(ret, -1);
  EXPECT_STREQ(connector->GetLastErrDesc(), "socket: Too many open files");
  EXPECT_EQ(connector->Connect(), 0);
}

TEST_F(TcpConnectorTest, RemovingAConnectorEndsItsCallbacksWhileFramesPourIn) {
  PeerListener listener;
  for (int round = 0; round < 20; ++round) {
    auto received = std::make_unique<Received>();
    auto* connector = static_cast<TcpConnector*>(
        m_mgr.CreateConnector(listener.url().c_str(), &m_parser, -1, OnFrame, received.get()));
    ASSERT_EQ(connector->Connect(), 0);
    PeerConnection peer = listener.Accept();
    std::string flood;
    for (int i = 0; i < 1000; ++i) {
      flood += Frame("!flood");
    }
    ASSERT_TRUE(peer.Send(flood));
    ASSERT_EQ(m_mgr.RemoveConnector(connector), 0);
    received.reset();  // a callback now would touch freed memory
    peer.ReadsTheEnd();
  }
  EXPECT_EQ(m_mgr.RemoveConnector(nullptr), 0);
}

TEST_F(TcpConnectorTest, RunsNoCallbackWhilePaused) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  m_mgr.Loop().Pause();
  m_mgr.Loop().Pause();
  ASSERT_TRUE(peer.Send(Frame("waits")));
  m_mgr.Loop().Resume();
  EXPECT_EQ(m_received.calls, 0);
  m_mgr.Loop().Resume();
  EXPECT_EQ(Take(connector), "waits");
}

TEST_F(TcpConnectorTest, GivesTheThreadARoundBetweenPausesThatFollowEachOther) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("soon")));
  const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + 5000;
  while (m_received.calls == 0 && OstrandCommon::GetMonotonicMilliseconds() < deadline_ms) {
    ScopedPause pause(m_mgr.Loop());
  }
  EXPECT_EQ(m_received.calls, 1);
  EXPECT_EQ(Take(connector), "soon");
}

TEST_F(TcpConnectorTest, KeepsTheFlagItWasGivenSetWhileAFrameWaits) {
  PeerListener listener;
  OstrandCommon::Relaxed<bool> flag = true;
  TcpConnector* connector = Create(listener.url());
  connector->SetIncomingFlag(&flag);
  EXPECT_FALSE(flag);
  ASSERT_EQ(connector->Connect(), 0);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("one") + Frame("two")));
  EXPECT_TRUE(Becomes([&] { return flag.Get(); }));
  EXPECT_EQ(Take(connector), "one");
  EXPECT_TRUE(flag);
  EXPECT_EQ(Take(connector), "two");
  const char* data = nullptr;
  int size = 0;
  EXPECT_EQ(connector->PeekPkg(data, size, nullptr), 0);
  EXPECT_FALSE(flag) << "nothing is left";
  ASSERT_TRUE(peer.Send(Frame("three")));
  EXPECT_TRUE(Becomes([&] { return flag.Get(); }));
  connector->Disconnect(0);
  EXPECT_TRUE(flag) << "whole frames stay";
  EXPECT_EQ(Take(connector), "three");
  m_mgr.RemoveConnector(connector);  // before the flag goes
}

TEST(TcpConnectorMgrTest, PauseDoesNothingWhileTheThreadDoesNotRun) {
  TcpConnectorMgr mgr(nullptr, 0);
  mgr.Loop().Pause();
  ASSERT_EQ(mgr.Start(), 0);
  mgr.Loop().Resume();
  mgr.Stop();
  mgr.Loop().Pause();
  ASSERT_EQ(mgr.Start(), 0);
}

}  // namespace
}  // namespace OstrandService
