// Streams over a transport that is not plain: a handshake, bytes that it holds back, operations
// that wait for the other direction, a farewell.

#include "net/transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "unit/net/net_test_kit.h"

namespace OSTRNET {
namespace {

using State = TcpStream::State;

// What the test scripts and sees of its transports.
struct Script {
  bool handshakes = true;  // false: says nothing and waits
  const char* handshake_error = nullptr;
  bool writes_wait_for_bytes = false;  // the first write needs something of the peer first
  bool reads_wait_for_room = false;    // the first read needs room to send first
  int farewells = 0;
  std::string host = "none was made";
};

// Both sides say 'h' first; at most two bytes are handed out at a time, however many were received;
// 'b' is sent before the end.
class FussyTransport final : public Transport {
 public:
  FussyTransport(EventLoop& loop, int fd, Script& script)
      : m_script(script), m_loop(loop), m_fd(fd), m_plain(MakePlainTransport(loop, fd, "")) {}

  Result Handshake() override {
    if (m_script.handshake_error != nullptr) {
      return Result::kFailed;
    }
    if (m_script.handshakes && !std::exchange(m_said_hello, true)) {
      m_loop.Sys().Send(m_fd, "h", 1);
    }
    char hello = 0;
    size_t got = 0;
    return m_plain->Read(&hello, 1, got);
  }
  Result Read(char* to, size_t room, size_t& got) override {
    if (std::exchange(m_script.reads_wait_for_room, false)) {
      m_read_wants_write = true;
      return Result::kAgain;
    }
    m_read_wants_write = false;
    m_script.writes_wait_for_bytes = false;
    if (m_held.empty()) {
      char bytes[1000];
      size_t len = 0;
      const Result result = m_plain->Read(bytes, sizeof(bytes), len);
      if (result != Result::kDone) {
        return result;
      }
      m_held.assign(bytes, len);
    }
    got = std::min({room, m_held.size(), size_t{2}});
    m_held.copy(to, got);
    m_held.erase(0, got);
    return Result::kDone;
  }
  Result Write(const char* from, size_t len, size_t& sent) override {
    return m_script.writes_wait_for_bytes ? Result::kAgain : m_plain->Write(from, len, sent);
  }
  void Shutdown() override {
    ++m_script.farewells;
    m_loop.Sys().Send(m_fd, "b", 1);
  }
  bool ReadWantsWrite() const override { return m_read_wants_write; }
  bool WriteWantsRead() const override { return m_script.writes_wait_for_bytes; }
  bool HandshakeWantsWrite() const override { return false; }
  bool HasInput() const override { return !m_held.empty(); }
  const char* ErrorText() const override {
    return m_script.handshake_error != nullptr ? m_script.handshake_error : m_plain->ErrorText();
  }

 private:
  Script& m_script;
  EventLoop& m_loop;
  const int m_fd;
  const std::unique_ptr<Transport> m_plain;
  std::string m_held;
  bool m_said_hello = false;
  bool m_read_wants_write = false;
};

class TransportTest : public testing::Test {
 protected:
  TransportTest() { ready = listener.Listen(Endpoint::Loopback(0)) == 0; }

  TransportFactory Fussy(Script& of_one) {
    return [&of_one](EventLoop& of, int fd, const std::string& host) {
      of_one.host = host;
      return std::make_unique<FussyTransport>(of, fd, of_one);
    };
  }
  void Connect() {
    ASSERT_TRUE(ready);
    system.names["fussy.example"] = {Endpoint::Loopback(0)};
    ASSERT_EQ(0, stream.Connect(Named("fussy.example", listener.Local().port)));
    RunUntil(loop, [&] { return told.connected == 1 && peer_told.connected == 1; });
  }
  void SomeRounds() {
    for (int i = 0; i < 20; ++i) {
      loop.RunOnce(1);
    }
  }

  TestSystem system;
  EventLoop loop{system};
  TcpStream::Limits limits;
  Script script;
  Script peer_script;
  NotingListener told;
  NotingListener peer_told;
  TcpStream stream{loop, told, limits, Fussy(script)};
  TcpStream peer{loop, peer_told, limits, Fussy(peer_script)};
  TcpListener listener{loop, [this](int fd) { peer.Attach(fd); }};
  bool ready = false;
};

TEST_F(TransportTest, IsConnectedWhenTheHandshakeIsDone) {
  peer_script.handshakes = false;
  ASSERT_TRUE(ready);
  stream.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return peer_told.connected == 1; });  // it was told hello
  SomeRounds();
  EXPECT_EQ(State::kConnecting, stream.GetState());
  EXPECT_EQ(-1, stream.Queue("x", 1));
  EXPECT_EQ(State::kConnected, peer.GetState());
  peer.Queue("h", 1);
  RunUntil(loop, [&] { return told.connected == 1; });
  EXPECT_EQ(State::kConnected, stream.GetState());
}

TEST_F(TransportTest, KnowsTheHostOfTheUrl) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ("fussy.example", script.host);
  EXPECT_EQ("", peer_script.host);
}

TEST_F(TransportTest, HandshakeCountsAgainstTheTimeToConnect) {
  peer_script.handshakes = false;
  ASSERT_TRUE(ready);
  stream.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return peer_told.connected == 1; });
  system.ahead_ns += int64_t{limits.connect_timeout_ms} * 1000000;
  RunUntil(loop, [&] { return told.closed == 1; });
  EXPECT_EQ("handshake: timed out", told.why);
  EXPECT_EQ(0, script.farewells) << "there was nobody to take leave of";
}

TEST_F(TransportTest, AcceptedConnectionHasAsMuchTimeForItsHandshake) {
  script.handshakes = false;
  ASSERT_TRUE(ready);
  stream.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return told.connected == 1; });
  EXPECT_EQ(State::kConnecting, peer.GetState());
  system.ahead_ns += int64_t{limits.connect_timeout_ms} * 1000000;
  RunUntil(loop, [&] { return peer_told.closed == 1; });
  EXPECT_EQ("handshake: timed out", peer_told.why);
}

TEST_F(TransportTest, FailedHandshakeFailsTheConnection) {
  script.handshake_error = "handshake: no";
  ASSERT_TRUE(ready);
  stream.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return told.closed == 1; });
  EXPECT_EQ("handshake: no", told.why);
  EXPECT_EQ(0, told.connected);
}

TEST_F(TransportTest, FailedHandshakeOfAnAcceptedConnectionIsToldInARound) {
  peer_script.handshake_error = "handshake: no";
  ASSERT_TRUE(ready);
  stream.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return peer_told.closed == 1; });
  EXPECT_EQ("handshake: no", peer_told.why);
}

TEST_F(TransportTest, BytesThatItHoldsComeWithoutTheDescriptorsBeingReadable) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.Queue("0123456789", 10);
  RunUntil(loop, [&] { return peer_told.input.size() == 10; });
  EXPECT_EQ("0123456789", peer_told.input);
  EXPECT_EQ(5, peer_told.inputs);
}

TEST_F(TransportTest, BytesThatItHoldsWaitWhileNothingIsRead) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  peer_told.on_input = [&](const char*, size_t len) {
    peer.SetReading(false);
    return static_cast<int64_t>(len);
  };
  stream.Queue("0123", 4);
  RunUntil(loop, [&] { return peer_told.inputs == 1; });
  SomeRounds();
  EXPECT_EQ("01", peer_told.input);
  peer.SetReading(true);
  RunUntil(loop, [&] { return peer_told.input == "0123"; });
}

TEST_F(TransportTest, WriteThatWaitsForBytesGoesOnWhenTheyCome) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  script.writes_wait_for_bytes = true;
  stream.Queue("question", 8);
  SomeRounds();
  EXPECT_EQ(8U, stream.OutputSize());
  peer.Queue("x", 1);
  RunUntil(loop, [&] { return peer_told.input == "question"; });
  EXPECT_EQ("x", told.input);
}

TEST_F(TransportTest, ReadThatWaitsForRoomGoesOnWhenThereIsSome) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  script.reads_wait_for_room = true;
  peer.Queue("answer", 6);
  RunUntil(loop, [&] { return told.input == "answer"; });
}

TEST_F(TransportTest, TakesLeaveOnceBeforeAnOrderlyEnd) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.Close();
  EXPECT_EQ(1, script.farewells);
  RunUntil(loop, [&] { return peer_told.closed == 1; });
  EXPECT_EQ("b", peer_told.input);
}

TEST_F(TransportTest, TakesNoLeaveBeforeAReset) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.Reset();
  EXPECT_EQ(0, script.farewells);
}

TEST_F(TransportTest, ThatCannotBeMadeFailsTheConnection) {
  TcpStream bare(loop, told, limits,
                 [](EventLoop&, int, const std::string&) { return std::unique_ptr<Transport>(); });
  ASSERT_TRUE(ready);
  bare.Connect(At(listener.Local()));
  RunUntil(loop, [&] { return told.closed == 1; });
  EXPECT_EQ("connect: Cannot allocate memory", told.why);
}

}  // namespace
}  // namespace OSTRNET
