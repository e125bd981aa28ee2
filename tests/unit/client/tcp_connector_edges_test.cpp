// Corners of a connector's contract, against real sockets on loopback. Frames are a length of four
// bytes, the most significant first, that counts itself, and their text.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/tcp.h>
#include <sched.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/tcp_connector.h"
#include "client/tcp_connector_mgr.h"
#include "common/clock.h"
#include "fakes/recording_logger.h"
#include "fakes/sanitizers.h"
#include "unit/client/tcp_peer.h"

namespace OstrandService {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandTests::PeerConnection;
using OstrandTests::PeerListener;

class LengthParser : public OSTRNET::IPackParser {
 public:
  int ParsePackLength(const char* data, unsigned int len) override {
    if (len < 4) return 0;
    uint32_t length = 0;
    for (int i = 0; i < 4; ++i) {
      length = length << 8 | static_cast<unsigned char>(data[i]);
    }
    return static_cast<int>(length);
  }
};

std::string Frame(const std::string& text) {
  const auto length = static_cast<uint32_t>(text.size() + 4);
  std::string frame;
  for (int shift = 24; shift >= 0; shift -= 8) {
    frame += static_cast<char>(length >> shift);
  }
  return frame + text;
}

// What a callback saw, and what it does.
struct Receiver {
  std::function<int(const std::string& url, const std::string& text)> on_frame;
};

int OnFrame(const char* url, const char* data, int len, void* arg) {
  const auto* receiver = static_cast<Receiver*>(arg);
  return receiver->on_frame
             ? receiver->on_frame(url, std::string(data + 4, static_cast<size_t>(len) - 4))
             : 0;
}

class TcpConnectorEdgesTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_mgr.Start(), 0); }
  void TearDown() override { m_mgr.Stop(); }

  TcpConnector* Create(const std::string& url, int buffer_size = -1) {
    return static_cast<TcpConnector*>(
        m_mgr.CreateConnector(url.c_str(), &m_parser, buffer_size, OnFrame, &m_receiver));
  }

  // Waits for something that the network thread brings about.
  bool Becomes(const std::function<bool()>& holds) {
    const int64_t deadline_ms = GetMonotonicMilliseconds() + 10000;
    while (!holds()) {
      if (GetMonotonicMilliseconds() > deadline_ms) return false;
      m_mgr.WaitForFrames(m_mgr.FramesSeen(), GetMonotonicMilliseconds() + 1);
    }
    return true;
  }
  bool BecomesStatus(TcpConnector* connector, int status) {
    return Becomes([=] { return connector->GetStatus() == status; });
  }
  TcpConnector* Connected(PeerListener& listener, int buffer_size = -1) {
    TcpConnector* connector = Create(listener.url(), buffer_size);
    EXPECT_EQ(connector->Connect(), 0);
    EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
    return connector;
  }

  static int Send(TcpConnector* connector, const std::string& bytes) {
    return connector->SendToQ(bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr);
  }
  // The next frame's text, waiting for it; "none" when none comes.
  std::string Take(TcpConnector* connector) {
    const char* data = nullptr;
    int size = 0;
    if (!Becomes([&] { return connector->PeekPkg(data, size, nullptr) > 0; })) return "none";
    std::string text(data + 4, static_cast<size_t>(size) - 4);
    connector->ConsumePkg();
    return text;
  }

  OstrandFakes::RecordingLogger m_logger;
  LengthParser m_parser;
  Receiver m_receiver;
  TcpConnectorMgr m_mgr{&m_logger, 42};
};

// --- Connecting ---

// A listener whose queue is full, so that further attempts get no answer.
class FullListener {
 public:
  FullListener() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&m_address), sizeof(m_address)), 0);
    EXPECT_EQ(listen(m_fd, 0), 0);
    socklen_t len = sizeof(m_address);
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_address), &len);
    for (int& waiting : m_waiting) {
      waiting = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      (void)connect(waiting, reinterpret_cast<sockaddr*>(&m_address), sizeof(m_address));
    }
  }
  ~FullListener() {
    for (const int waiting : m_waiting) {
      close(waiting);
    }
    close(m_fd);
  }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  std::string url() const { return "tcp://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)); }

 private:
  int m_fd;
  sockaddr_in m_address{};
  int m_waiting[8];
};

TEST_F(TcpConnectorEdgesTest, GivesAnAttemptToConnectUpAfterThreeSeconds) {
  const FullListener listener;
  TcpConnector* connector = Create(listener.url());
  const int64_t before_ms = GetMonotonicMilliseconds();
  ASSERT_EQ(connector->Connect(), 0);
  const int64_t after_ms = GetMonotonicMilliseconds();
  const ScopedPause pause(m_mgr.Loop());  // this is the network thread now
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
  EXPECT_EQ(Send(connector, "too early"), -1);
  const int left_ms = connector->CheckConnectTimeout(after_ms);
  EXPECT_GE(left_ms, 3000 - (after_ms - before_ms));
  EXPECT_LE(left_ms, 3000);
  EXPECT_GT(connector->CheckConnectTimeout(before_ms + 2999), 0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
  EXPECT_EQ(connector->CheckConnectTimeout(after_ms + 3000), -1);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
  EXPECT_STREQ(connector->GetLastErrDesc(), "connect: timed out");
  EXPECT_TRUE(m_logger.Find(OstrandCommon::OSTRAND_LOG_LEVEL_WARN,
                            "connection to " + listener.url() + " closed: connect: timed out"));
  EXPECT_EQ(connector->CheckConnectTimeout(after_ms + 9999), -1) << "no attempt is under way";
}

TEST_F(TcpConnectorEdgesTest, EndsAnAttemptToConnectAtOnce) {
  const FullListener listener;
  TcpConnector* connector = Create(listener.url());
  ASSERT_EQ(connector->Connect(), 0);
  EXPECT_EQ(connector->Connect(), 0) << "it is under way";
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTING);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_DISCONNECTED);
}

TEST_F(TcpConnectorEdgesTest, ActsAtOnceWhileTheThreadStands) {
  PeerListener listener;
  const ScopedPause pause(m_mgr.Loop());
  TcpConnector* connector = Create(listener.url());
  ASSERT_NE(connector, nullptr);
  ASSERT_EQ(connector->Connect(), 0);
  PeerConnection peer = listener.Accept();
  connector->Disconnect(0);
  EXPECT_TRUE(peer.ReadsTheEnd());
  EXPECT_EQ(m_mgr.RemoveConnector(connector), 0);
}

// The descriptor of a connection to this port.
int DescriptorTo(int port) {
  for (int fd = 0; fd < 1024; ++fd) {
    sockaddr_in address{};
    socklen_t len = sizeof(address);
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &len) == 0 &&
        address.sin_family == AF_INET && ntohs(address.sin_port) == port) {
      return fd;
    }
  }
  return -1;
}

TEST_F(TcpConnectorEdgesTest, SendsSmallFramesWithoutDelayAndIsNotInherited) {
  PeerListener listener;
  Connected(listener);
  const int fd = DescriptorTo(listener.port());
  ASSERT_GE(fd, 0);
  int no_delay = 0;
  socklen_t len = sizeof(no_delay);
  ASSERT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &len), 0);
  EXPECT_NE(no_delay, 0);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(TcpConnectorEdgesTest, NeedsParserAndCallback) {
  EXPECT_EQ(m_mgr.CreateConnector("tcp://127.0.0.1:80", nullptr, -1, OnFrame, nullptr), nullptr);
  EXPECT_STREQ(m_mgr.GetLastErrDesc(), "a parser and a callback are needed");
  EXPECT_EQ(m_mgr.CreateConnector("tcp://127.0.0.1:80", &m_parser, -1, nullptr, nullptr), nullptr);
}

TEST_F(TcpConnectorEdgesTest, RemovesOnlyWhatTheManagerMade) {
  TcpConnectorMgr other(nullptr, 0);
  OSTRNET::CConnector* stranger =
      other.CreateConnector("tcp://127.0.0.1:80", &m_parser, -1, OnFrame, &m_receiver);
  EXPECT_EQ(m_mgr.RemoveConnector(stranger), -1);
  EXPECT_EQ(other.RemoveConnector(stranger), 0);
}

// --- Sending ---

TEST_F(TcpConnectorEdgesTest, CopiesWhatItQueues) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  std::string bytes = "as it was";
  ASSERT_EQ(Send(connector, bytes), 9);
  bytes.assign(9, 'x');
  m_mgr.Flush();
  EXPECT_EQ(peer.Read(9), "as it was");
}

TEST_F(TcpConnectorEdgesTest, SendsOnceForEachPeerHoweverManyFramesWait) {
  constexpr size_t kPeers = 8;
  std::vector<std::unique_ptr<PeerListener>> listeners;
  std::vector<TcpConnector*> connectors;
  std::vector<PeerConnection> peers;
  for (size_t i = 0; i < kPeers; ++i) {
    listeners.push_back(std::make_unique<PeerListener>());
    connectors.push_back(Connected(*listeners[i]));
    peers.push_back(listeners[i]->Accept());
  }
  const ScopedPause pause(m_mgr.Loop());
  const uint64_t calls = m_mgr.SystemCalls();
  std::string expected;
  for (int frame = 0; frame < 50; ++frame) {
    for (TcpConnector* connector : connectors) {
      Send(connector, "frame " + std::to_string(frame));
    }
    expected += "frame " + std::to_string(frame);
  }
  m_mgr.Flush();
  EXPECT_EQ(m_mgr.SystemCalls(), calls + kPeers);
  for (PeerConnection& peer : peers) {
    EXPECT_EQ(peer.Read(expected.size()), expected);
  }
}

TEST_F(TcpConnectorEdgesTest, SendsWhatACallbackQueuedAtTheEndOfTheRound) {
  PeerListener listener;
  TcpConnector* connector = nullptr;
  m_receiver.on_frame = [&](const std::string&, const std::string& text) {
    EXPECT_EQ(Send(connector, "answer to " + text), static_cast<int>(10 + text.size()));
    return 1;
  };
  connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("one") + Frame("two")));
  EXPECT_EQ(peer.Read(26), "answer to oneanswer to two");
}

TEST_F(TcpConnectorEdgesTest, FillsUpWhileThePeerDoesNotReadAndSaysSo) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener, 100000);
  PeerConnection peer = listener.Accept();
  const std::string chunk(10000, 'x');
  size_t taken = 0;
  while (Send(connector, chunk) > 0) {
    m_mgr.Flush();
    taken += chunk.size();
    ASSERT_LT(taken, size_t{100} << 20);
  }
  EXPECT_EQ(Send(connector, chunk), 0);
  EXPECT_GT(connector->GetSendBuffDataSize(), 90000u);
  EXPECT_LE(connector->GetSendBuffDataSize(), 100000u);
  EXPECT_LT(connector->GetSendBuffLeftRate(), 10);
  EXPECT_EQ(connector->GetStatus(), TcpConnector::STATUS_CONNECTED);
  connector->Disconnect(0);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  EXPECT_EQ(connector->GetSendBuffLeftRate(), 100);
}

TEST_F(TcpConnectorEdgesTest, NeverQueuesWhatIsLargerThanItsLimit) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener, 1000);
  EXPECT_EQ(Send(connector, std::string(1001, 'x')), 0);
  EXPECT_EQ(connector->SendToQ("unread", UINT32_MAX, nullptr), 0);
  EXPECT_EQ(Send(connector, std::string(1000, 'x')), 1000);
  EXPECT_EQ(connector->GetSendBuffDataSize(), 1000u);
}

TEST_F(TcpConnectorEdgesTest, LosesUnsentBytesWithTheConnectionAndRaisesNoSignal) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  listener.Accept().Reset();
  EXPECT_TRUE(Becomes([&] {
    Send(connector, "lost");
    m_mgr.Flush();
    return connector->GetStatus() == TcpConnector::STATUS_DISCONNECTED;
  }));
  EXPECT_EQ(connector->GetSendBuffDataSize(), 0u);
  ASSERT_EQ(connector->Connect(), 0);
  PeerConnection again = listener.Accept();
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_CONNECTED));
  Send(connector, "new");
  m_mgr.Flush();
  EXPECT_EQ(again.Read(3), "new");
}

// --- Receiving ---

TEST_F(TcpConnectorEdgesTest, CallsBackOnTheNetworkThreadWithTheUrlToTheLetter) {
  PeerListener listener;
  const std::string url = "tcp://127.0.0.1:000" + std::to_string(listener.port());
  std::string seen_url;
  bool on_net_thread = false;
  m_receiver.on_frame = [&](const std::string& told_url, const std::string&) {
    seen_url = told_url;
    on_net_thread = m_mgr.Loop().OnNetThread();
    return 0;
  };
  TcpConnector* connector = Create(url);
  ASSERT_EQ(connector->Connect(), 0);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("text")));
  EXPECT_EQ(Take(connector), "text");
  EXPECT_EQ(seen_url, url);
  EXPECT_TRUE(on_net_thread);
}

TEST_F(TcpConnectorEdgesTest, KeepsWholeFramesWhenTheConnectionIsLost) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("first") + Frame("second") + Frame("third").substr(0, 7)));
  peer.Close();
  ASSERT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(), "closed by the peer inside a frame");
  EXPECT_EQ(Take(connector), "first");
  EXPECT_EQ(Take(connector), "second");
  const char* data = nullptr;
  int size = 0;
  EXPECT_EQ(connector->PeekPkg(data, size, nullptr), 0);
}

TEST_F(TcpConnectorEdgesTest, BringsNothingOfAnOldConnectionAfterAReconnect) {
  PeerListener listener;
  std::vector<std::string> seen;
  m_receiver.on_frame = [&](const std::string&, const std::string& text) {
    seen.push_back(text);
    return 0;
  };
  TcpConnector* connector = Connected(listener);
  PeerConnection old = listener.Accept();
  {
    const ScopedPause pause(m_mgr.Loop());
    ASSERT_TRUE(old.Send(Frame("old") + Frame("older").substr(0, 6)));
    connector->Disconnect(0);
    ASSERT_EQ(connector->Connect(), 0);
  }
  PeerConnection fresh = listener.Accept();
  ASSERT_TRUE(fresh.Send(Frame("new")));
  EXPECT_EQ(Take(connector), "new");
  const ScopedPause pause(m_mgr.Loop());
  EXPECT_EQ(seen, std::vector<std::string>{"new"});
}

TEST_F(TcpConnectorEdgesTest, DropsTheFrameAtTheHeadWhenItRecovers) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  connector->Recover(nullptr);
  connector->ConsumePkg();
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("bad") + Frame("good")));
  const char* data = nullptr;
  int size = 0;
  ASSERT_TRUE(Becomes([&] { return connector->PeekPkg(data, size, nullptr) > 0; }));
  connector->Recover(nullptr);
  EXPECT_EQ(Take(connector), "good");
  EXPECT_EQ(connector->GetRecvBuffDataSize(), 0u);
}

TEST_F(TcpConnectorEdgesTest, LendsAFrameThatStaysWhereItIsWhileOthersCome) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame("lent")));
  const char* data = nullptr;
  int size = 0;
  ASSERT_TRUE(Becomes([&] { return connector->PeekPkg(data, size, nullptr) > 0; }));
  const unsigned int held = connector->GetRecvBuffDataSize();
  ASSERT_TRUE(peer.Send(Frame(std::string(200000, 'x'))));
  ASSERT_TRUE(Becomes([&] { return connector->GetRecvBuffDataSize() > held + 200000; }));
  const char* again = nullptr;
  EXPECT_EQ(connector->PeekPkg(again, size, nullptr), 8);
  EXPECT_EQ(again, data);
  EXPECT_EQ(std::string(data + 4, 4), "lent");
  EXPECT_LT(connector->GetRecvBuffLeftRate(), 100);
  connector->ConsumePkg();
  EXPECT_EQ(Take(connector).size(), 200000u);
  EXPECT_EQ(connector->GetRecvBuffLeftRate(), 100);
}

TEST_F(TcpConnectorEdgesTest, PutsFramesOfManyMegabytesTogether) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener);
  PeerConnection peer = listener.Accept();
  std::vector<std::string> texts;
  for (const size_t size : {3u, 5000000u, 0u, 262140u, 262141u, 9000000u, 7u}) {
    texts.emplace_back(size, static_cast<char>('a' + texts.size()));
  }
  std::thread sending([&] {
    for (const std::string& text : texts) {
      EXPECT_TRUE(peer.Send(Frame(text)));
    }
  });
  for (const std::string& text : texts) {
    EXPECT_TRUE(Take(connector) == text) << text.size();
  }
  sending.join();
  EXPECT_EQ(connector->GetRecvBuffDataSize(), 0u);
}

// A frame may need all of the room: it then waits until those before it are consumed.
TEST_F(TcpConnectorEdgesTest, TakesAFrameAsLargeAsItsLimitBehindOneThatWaits) {
  constexpr int kLimit = 300000;
  PeerListener listener;
  TcpConnector* connector = Connected(listener, kLimit);
  PeerConnection peer = listener.Accept();
  const std::string largest(kLimit - 4, 'x');
  std::thread sending(
      [&] { EXPECT_TRUE(peer.Send(Frame("first") + Frame(largest) + Frame("last"))); });
  ASSERT_TRUE(Becomes([&] { return connector->GetRecvBuffDataSize() > 0; }));
  EXPECT_EQ(Take(connector), "first");
  EXPECT_TRUE(Take(connector) == largest);
  EXPECT_EQ(Take(connector), "last");
  sending.join();
}

TEST_F(TcpConnectorEdgesTest, ClosesWhenAFrameIsOneByteLargerThanItsLimit) {
  PeerListener listener;
  TcpConnector* connector = Connected(listener, 1000);
  PeerConnection peer = listener.Accept();
  ASSERT_TRUE(peer.Send(Frame(std::string(996, 'x'))));
  EXPECT_EQ(Take(connector).size(), 996u);
  ASSERT_TRUE(peer.Send(Frame(std::string(997, 'x')).substr(0, 4)));
  EXPECT_TRUE(BecomesStatus(connector, TcpConnector::STATUS_DISCONNECTED));
  EXPECT_STREQ(connector->GetLastErrDesc(),
               "receive: the frame is longer than the buffer may grow");
}

// --- Idle ---

TEST_F(TcpConnectorEdgesTest, CostsNoSystemCallWhileNothingHappens) {
  PeerListener listener;
  std::vector<PeerConnection> peers;
  for (int i = 0; i < 20; ++i) {
    TcpConnector* connector = Connected(listener);
    peers.push_back(listener.Accept());
    Send(connector, "x");
    m_mgr.Flush();
    ASSERT_EQ(peers.back().Read(1), "x");
    ASSERT_TRUE(peers.back().Send(Frame("y")));
    ASSERT_EQ(Take(connector), "y");
  }
  const auto calls_in_a_while = [&] {
    const uint64_t before = m_mgr.SystemCalls();
    for (int i = 0; i < 2000; ++i) {
      sched_yield();
    }
    return m_mgr.SystemCalls() - before;
  };
  EXPECT_TRUE(Becomes([&] { return calls_in_a_while() == 0; })) << "the last timeout is over";
  EXPECT_EQ(calls_in_a_while(), 0u);
}

size_t HeapInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

TEST_F(TcpConnectorEdgesTest, NeedsLittleMemoryBeforeItIsUsedAndGivesLargeMemoryBack) {
  if (OstrandFakes::kAddressSanitizer || OstrandFakes::kThreadSanitizer) {
    GTEST_SKIP() << "its allocator keeps books of its own";
  }
  constexpr size_t kIdle = 200;
  constexpr size_t kLarge = size_t{4} << 20;
  PeerListener listener;
  TcpConnector* used = Connected(listener);
  PeerConnection peer = listener.Accept();
  const size_t before = HeapInUse();
  for (size_t i = 0; i < kIdle; ++i) {
    Connected(listener);
    listener.Accept();
  }
  EXPECT_LT(HeapInUse() - before, kIdle * 4096);

  const std::string frame = Frame(std::string(kLarge, 'x'));
  const size_t at_rest = HeapInUse();
  ASSERT_EQ(Send(used, frame), static_cast<int>(frame.size()));
  std::thread sending([&] { EXPECT_TRUE(peer.Send(frame)); });
  ASSERT_TRUE(Becomes([&] { return used->GetRecvBuffDataSize() > kLarge; }));
  sending.join();
  EXPECT_GT(HeapInUse(), at_rest + 2 * kLarge);
  m_mgr.Flush();
  EXPECT_EQ(peer.Read(frame.size()).size(), frame.size());
  EXPECT_EQ(Take(used).size(), kLarge);
  ASSERT_TRUE(Becomes([&] { return used->GetSendBuffDataSize() == 0; }));
  EXPECT_LT(HeapInUse(), at_rest + 512 * 1024);
}

TEST_F(TcpConnectorEdgesTest, WaitsNoLongerThanItIsTold) {
  const int64_t before_ms = GetMonotonicMilliseconds();
  m_mgr.WaitForFrames(m_mgr.FramesSeen(), before_ms + 20);
  EXPECT_GE(GetMonotonicMilliseconds(), before_ms + 20);
  m_mgr.WaitForFrames(m_mgr.FramesSeen() - 1, INT64_MAX);  // frames came meanwhile
  m_mgr.WaitForFrames(m_mgr.FramesSeen(), before_ms);      // the time is over
}

}  // namespace
}  // namespace OstrandService
