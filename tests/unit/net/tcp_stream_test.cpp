// Streams over the kernel's loopback: what is told when, limits, back-pressure, ends.

#include "net/tcp_stream.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "unit/net/net_test_kit.h"

namespace OSTRNET {
namespace {

using State = TcpStream::State;

constexpr size_t kMiB = size_t{1} << 20;

std::string Pattern(size_t len) {
  std::string text(len, '\0');
  for (size_t i = 0; i < len; ++i) {
    text[i] = static_cast<char>('a' + i % 23);
  }
  return text;
}

TEST_F(StreamTest, CarriesBytesBothWays) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(State::kConnected, stream.GetState());
  EXPECT_EQ(listener.Local(), stream.Peer());
  EXPECT_EQ(1, stream.Queue("question", 8));
  Until([&] { return peer_told.input == "question"; });
  EXPECT_EQ(1, peer.Queue("answer", 6));
  Until([&] { return told.input == "answer"; });
  EXPECT_EQ(8U, stream.BytesOut());
  EXPECT_EQ(6U, stream.BytesIn());
  EXPECT_EQ(1, told.connected);
  EXPECT_EQ(1, peer_told.connected);
  EXPECT_EQ(0, told.closed);
}

TEST_F(StreamTest, CarriesBytesOverIpv6) {
  listener.Close();
  const int ret = listener.Listen(Endpoint::Loopback(0, Endpoint::Family::kIpv6));
  if (ret == -EAFNOSUPPORT || ret == -EADDRNOTAVAIL) {
    GTEST_SKIP() << "no IPv6 here";
  }
  ASSERT_EQ(0, ret);
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.Queue("six", 3);
  Until([&] { return peer_told.input == "six"; });
  EXPECT_EQ(Endpoint::Family::kIpv6, peer.Peer().family);
}

TEST_F(StreamTest, TellsNothingInsideItsOperations) {
  ASSERT_EQ(0, stream.Connect(At(listener.Local())));
  EXPECT_EQ(State::kConnecting, stream.GetState());
  EXPECT_EQ(-1, stream.Queue("x", 1));
  EXPECT_EQ(0, told.connected);
  const DeadPort dead;
  TcpStream refused(loop, peer_told, limits);
  EXPECT_EQ(0, refused.Connect(At(dead.endpoint)));
  EXPECT_EQ(0, peer_told.closed);
}

TEST_F(StreamTest, SendsAllThatARoundQueuesInOneCall) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  SomeRounds();
  system.sends = 0;
  system.poll_changes = 0;
  loop.Post([&] {
    for (int i = 0; i < 1000; ++i) {
      EXPECT_EQ(1, stream.Queue("0123456789", 10));
    }
    EXPECT_EQ(10000U, stream.OutputSize());
  });
  Until([&] { return peer_told.input.size() == 10000; });
  EXPECT_EQ(1, system.sends);
  EXPECT_EQ(0, system.poll_changes);
}

TEST_F(StreamTest, ReadsOnceARoundAndAsksForNoMoreThanItNeeds) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  SomeRounds();
  for (int i = 0; i < 100; ++i) {
    system.receives = 0;
    system.sends = 0;
    system.poll_changes = 0;
    system.poll_waits = 0;
    const size_t before = peer_told.input.size();
    stream.Queue("ping", 4);
    stream.Flush();
    loop.RunOnce(1000);
    EXPECT_EQ(before + 4, peer_told.input.size());
    EXPECT_EQ(1, system.receives);
    EXPECT_EQ(1, system.sends);
    EXPECT_EQ(0, system.poll_changes);
    EXPECT_EQ(1, system.poll_waits);
  }
}

TEST_F(StreamTest, FailsWhenNobodyListens) {
  const DeadPort dead;
  EXPECT_EQ(0, stream.Connect(At(dead.endpoint)));
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("connect: Connection refused", told.why);
  EXPECT_STREQ("connect: Connection refused", stream.ErrorText());
  EXPECT_EQ(State::kClosed, stream.GetState());
  EXPECT_EQ(0, told.connected);
}

TEST_F(StreamTest, CanBeConnectedAnewInsideOnClosed) {
  const DeadPort dead;
  told.on_closed = [&] {
    if (told.closed == 1) {
      stream.Connect(At(listener.Local()));
    }
  };
  stream.Connect(At(dead.endpoint));
  Until([&] { return told.connected == 1; });
  EXPECT_EQ(State::kConnected, stream.GetState());
}

TEST_F(StreamTest, GivesAnAttemptUpAfterItsTime) {
  const SilentPort silent;
  limits.connect_timeout_ms = 50;
  TcpStream hurried(loop, told, limits);
  hurried.Connect(At(silent.endpoint));
  system.ahead_ns += 49 * 1000000;
  loop.RunOnce(0);
  EXPECT_EQ(0, told.closed);
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("connect: timed out", told.why);
}

TEST_F(StreamTest, CountsItsTimeFromTheCallHoweverLongAgoTheLastRoundWas) {
  const SilentPort silent;
  limits.connect_timeout_ms = 5000;
  TcpStream hurried(loop, told, limits);
  system.ahead_ns += int64_t{60} * 1000000000;
  hurried.Connect(At(silent.endpoint));
  SomeRounds();
  EXPECT_EQ(0, told.closed);
}

TEST_F(StreamTest, SaysAtOnceWhenThereAreNoDescriptors) {
  system.socket_error = -EMFILE;
  EXPECT_EQ(-EMFILE, stream.Connect(At(listener.Local())));
  EXPECT_EQ(State::kClosed, stream.GetState());
  EXPECT_STREQ("socket: Too many open files", stream.ErrorText());
  SomeRounds();
  EXPECT_EQ(0, told.closed);
}

TEST_F(StreamTest, FailsInARoundWhereTheFamilyIsUnknown) {
  system.socket_error = -EAFNOSUPPORT;
  EXPECT_EQ(0, stream.Connect(At(listener.Local())));
  EXPECT_EQ(0, told.closed);
  loop.RunOnce(-1);
  EXPECT_EQ(1, told.closed);
}

TEST_F(StreamTest, ClosesAConnectionToItself) {
  class SelfConnecting : public TestSystem {
   public:
    int Connect(int fd, const Endpoint& peer) override {
      SetReuseAddress(fd);
      Bind(fd, peer);
      return TestSystem::Connect(fd, peer);
    }
  };
  Endpoint own;
  {
    const DeadPort dead;
    own = dead.endpoint;
  }
  SelfConnecting selfish;
  EventLoop other(selfish);
  TcpStream lonely(other, told, limits);
  lonely.Connect(At(own));
  RunUntil(other, [&] { return told.closed == 1; });
  EXPECT_EQ("connect: connected to itself", told.why);
  EXPECT_EQ(0, told.connected);
}

TEST_F(StreamTest, TriesEveryAddressOfAName) {
  const DeadPort dead;
  system.names["both"] = {dead.endpoint, Endpoint::Loopback(0)};
  // Both have the port of the url: the dead one is on another loopback address.
  system.names["both"][0].bytes[3] = 2;
  ASSERT_EQ(0, stream.Connect(Named("both", listener.Local().port)));
  Until([&] { return told.connected == 1; });
  EXPECT_EQ(listener.Local(), stream.Peer());
  EXPECT_EQ(1, system.lookups);
}

TEST_F(StreamTest, GivesASilentAddressOnlyItsShareOfTheTime) {
  Endpoint second_loopback = listener.Local();
  second_loopback.bytes[3] = 2;
  const SilentPort silent(second_loopback);
  system.names["both"] = {second_loopback, listener.Local()};
  limits.connect_timeout_ms = 10000;
  TcpStream patient(loop, told, limits);
  patient.Connect(Named("both", listener.Local().port));
  loop.RunOnce(0);
  loop.RunOnce(0);
  EXPECT_EQ(second_loopback, patient.Peer());
  system.ahead_ns += int64_t{5001} * 1000000;
  Until([&] { return told.connected == 1; });
  EXPECT_EQ(listener.Local(), patient.Peer());
}

TEST_F(StreamTest, LooksANameUpAnewWithEachConnect) {
  Endpoint dead_loopback = Endpoint::Loopback(0);
  dead_loopback.bytes[3] = 2;
  system.names["moved"] = {dead_loopback};
  stream.Connect(Named("moved", listener.Local().port));
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("connect: Connection refused", told.why);
  system.names["moved"] = {Endpoint::Loopback(0)};
  stream.Connect(Named("moved", listener.Local().port));
  Until([&] { return told.connected == 1; });
  EXPECT_EQ(2, system.lookups);
}

TEST_F(StreamTest, StartsNoLookUpForNumericAddresses) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(0, system.lookups);
}

TEST_F(StreamTest, FailsWhenANameHasNoAddress) {
  stream.Connect(Named("nowhere", 1));
  EXPECT_EQ(0, told.closed);
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("look up: no such name", told.why);
}

TEST_F(StreamTest, FailsInTimeWhenNobodyAnswersForAName) {
  std::shared_ptr<NameListener> waiting;
  system.on_lookup = [&](const std::string&, std::shared_ptr<NameListener> asked) {
    waiting = std::move(asked);
  };
  stream.Connect(Named("slow", 1));
  loop.RunOnce(0);
  EXPECT_EQ(0, told.closed);
  system.ahead_ns += int64_t{3001} * 1000000;
  loop.RunOnce(0);
  EXPECT_EQ(1, told.closed);
  EXPECT_EQ("look up: timed out", told.why);
  waiting->OnAddresses({Endpoint::Loopback(1)}, nullptr);  // of interest to nobody
  SomeRounds();
  EXPECT_EQ(1, told.closed);
}

TEST_F(StreamTest, IsGoneBeforeItsNameIsAnswered) {
  std::shared_ptr<NameListener> waiting;
  system.on_lookup = [&](const std::string&, std::shared_ptr<NameListener> asked) {
    waiting = std::move(asked);
  };
  {
    EventLoop other(system);
    TcpStream short_lived(other, told, limits);
    short_lived.Connect(Named("slow", 1));
  }
  waiting->OnAddresses({Endpoint::Loopback(1)}, nullptr);
  EXPECT_EQ(0, told.closed);
}

TEST_F(StreamTest, KeepsWhatTheListenerDoesNotUse) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  peer_told.on_input = [](const char*, size_t len) { return len < 6 ? 0 : 6; };
  stream.Queue("abcd", 4);
  Until([&] { return peer.InputSize() == 4; });
  stream.Queue("efgh", 4);
  Until([&] { return peer_told.input == "abcdef"; });
  EXPECT_EQ(2U, peer.InputSize());
}

TEST_F(StreamTest, HandsKeptInputOnAgainWhenAsked) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  bool ready = false;
  peer_told.on_input = [&](const char*, size_t len) {
    return ready ? static_cast<int64_t>(len) : int64_t{0};
  };
  stream.Queue("abcd", 4);
  Until([&] { return peer.InputSize() == 4; });
  ready = true;
  peer.HandOnAgain();
  EXPECT_EQ("", peer_told.input);
  EXPECT_TRUE(loop.RunOnce(-1));
  EXPECT_EQ("abcd", peer_told.input);
  EXPECT_EQ(0U, peer.InputSize());
}

TEST_F(StreamTest, GathersFramesThatAreLargerThanTheReadBuffer) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::string frame = Pattern(5 * kMiB + 17);
  peer_told.on_input = [&](const char*, size_t len) {
    return len < frame.size() ? int64_t{0} : static_cast<int64_t>(frame.size());
  };
  EXPECT_EQ(1, stream.Queue(frame.data(), frame.size()));
  EXPECT_EQ(1, stream.Queue("tail", 4));
  Until([&] { return !peer_told.input.empty() && peer.InputSize() == 4; });
  EXPECT_EQ(frame, peer_told.input);
}

TEST_F(StreamTest, ReadsNothingWithAsMuchInputAsItsLimit) {
  limits.max_input = 100000;
  NotingListener full_told;
  TcpStream full(loop, full_told, limits);
  TcpListener other(loop, [&](int fd) { full.Attach(fd); });
  ASSERT_EQ(0, other.Listen(Endpoint::Loopback(0)));
  bool uses = false;
  full_told.on_input = [&](const char*, size_t len) {
    EXPECT_LE(len, 100000U);
    return uses ? static_cast<int64_t>(len) : int64_t{0};
  };
  stream.Connect(At(other.Local()));
  Until([&] { return told.connected == 1; });
  const std::string text = Pattern(300000);
  EXPECT_EQ(1, stream.Queue(text.data(), text.size()));
  Until([&] { return full.InputSize() == 100000; });
  system.receives = 0;
  SomeRounds();
  EXPECT_EQ(0, system.receives);
  uses = true;
  full.HandOnAgain();
  Until([&] { return full_told.input.size() == text.size(); });
  EXPECT_EQ(text, full_told.input);
}

TEST_F(StreamTest, RefusesOutputOverItsLimitAndTellsOfRoom) {
  limits.max_output = 8 * kMiB;
  TcpStream limited(loop, told, limits);
  limited.Connect(At(listener.Local()));
  Until([&] { return told.connected == 1 && peer.GetState() == State::kConnected; });
  peer.SetReading(false);
  const std::string piece = Pattern(kMiB);
  for (int refused = 0; refused < 3;) {
    refused += limited.Queue(piece.data(), piece.size()) == 0 ? 1 : 0;
    loop.RunOnce(0);
  }
  EXPECT_LE(limited.OutputSize(), limits.max_output);
  EXPECT_LT(limited.OutputRoom(), piece.size());
  SomeRounds();
  EXPECT_EQ(0, told.rooms);
  told.on_room = [&] { EXPECT_GE(limited.OutputRoom(), limits.max_output / 2); };
  peer.SetReading(true);
  Until([&] { return told.rooms == 1; });
  Until([&] { return limited.OutputSize() == 0; });
  EXPECT_EQ(1, told.rooms);
  EXPECT_EQ(0, limited.Queue(piece.data(), limits.max_output + 1));
}

TEST_F(StreamTest, AsksForRoomOnlyWhileTheSocketIsFull) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  SomeRounds();
  peer.SetReading(false);
  const std::string text = Pattern(15 * kMiB);
  system.poll_changes = 0;
  stream.Queue(text.data(), text.size());
  SomeRounds();
  EXPECT_GT(stream.OutputSize(), 0U);
  EXPECT_EQ(1, system.poll_changes);
  system.sends = 0;
  SomeRounds();
  EXPECT_EQ(0, system.sends);
  peer.SetReading(true);
  Until([&] { return peer_told.input.size() == text.size(); });
  EXPECT_EQ(text, peer_told.input);
  SomeRounds();
  EXPECT_EQ(3, system.poll_changes);  // the peer reads again; room no more asked for
}

TEST_F(StreamTest, TellsOfTheRoomThatWasAskedFor) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.AskForRoom(limits.max_output);
  EXPECT_EQ(0, told.rooms);
  loop.RunOnce(-1);
  EXPECT_EQ(1, told.rooms);
  stream.Queue("abc", 3);
  stream.AskForRoom(limits.max_output);
  Until([&] { return told.rooms == 2; });
  EXPECT_EQ(0U, stream.OutputSize());
}

TEST_F(StreamTest, ThatDoesNotSendKeepsWhatIsQueuedAndAsksForNothing) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.SetSending(false);
  stream.Queue("abc", 3);
  SomeRounds();
  system.poll_waits = 0;
  loop.RunOnce(20);  // sleeps: nothing of the socket is waited for
  EXPECT_EQ(1, system.poll_waits);
  EXPECT_EQ(3U, stream.OutputSize());
  EXPECT_EQ("", peer_told.input);
  stream.SetSending(true);
  Until([&] { return peer_told.input == "abc"; });
}

TEST_F(StreamTest, TellsWhenThePeerCloses) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  peer.Queue("last words", 10);
  peer.Flush();
  peer.Close();
  EXPECT_EQ(State::kClosed, peer.GetState());
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("last words", told.input);
  EXPECT_EQ("closed by the peer", told.why);
  EXPECT_EQ(0, peer_told.closed) << "no callback follows a Close";
}

TEST_F(StreamTest, TellsWhenThePeerClosesInsideAFrame) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  told.on_input = [](const char*, size_t) { return 0; };
  peer.Queue("half", 4);
  peer.Flush();
  peer.Close();
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("closed by the peer inside a frame", told.why);
}

TEST_F(StreamTest, TellsOfABrokenConnection) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  peer.Reset();
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("receive: Connection reset by peer", told.why);
}

TEST_F(StreamTest, TellsOfABrokenConnectionThatItDoesNotRead) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.SetReading(false);
  SomeRounds();
  peer.Reset();
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("receive: Connection reset by peer", told.why);
}

TEST_F(StreamTest, TellsAFailureToSendInTheNextRound) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.SetReading(false);
  loop.RunOnce(0);
  peer.Reset();
  stream.Queue("x", 1);
  stream.Flush();
  EXPECT_EQ(0, told.closed);
  EXPECT_EQ(-1, stream.Queue("x", 1));
  Until([&] { return told.closed == 1; });
}

TEST_F(StreamTest, AnswersAPeerThatEndedItsHalf) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  System& kernel = System::Kernel();
  const int fd = kernel.OpenSocket(Endpoint::Family::kIpv4);
  peer.Close();
  peer_told.on_input = [&](const char*, size_t len) {
    peer.Queue("answer", 6);
    return static_cast<int64_t>(len);
  };
  kernel.Connect(fd, listener.Local());
  Until([&] { return peer.GetState() == State::kConnected; });
  kernel.Send(fd, "question", 8);
  shutdown(fd, SHUT_WR);
  Until([&] { return peer_told.closed == 1; });
  char answer[16] = {};
  EXPECT_EQ(6, kernel.Receive(fd, answer, sizeof(answer)));
  EXPECT_STREQ("answer", answer);
  kernel.Close(fd);
}

TEST_F(StreamTest, CloseWhenSentDeliversEverything) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  const std::string text = Pattern(12 * kMiB);
  stream.Queue(text.data(), text.size());
  stream.CloseWhenSent();
  EXPECT_EQ(-1, stream.Queue("x", 1));
  peer.Queue("ignored", 7);
  Until([&] { return told.closed == 1; });
  EXPECT_EQ("closed when all was sent", told.why);
  EXPECT_EQ("", told.input);
  Until([&] { return peer_told.closed == 1; });
  EXPECT_EQ(text, peer_told.input);
  EXPECT_EQ("closed by the peer", peer_told.why);
}

TEST_F(StreamTest, CloseWhenSentWithNothingToSendEndsInTheNextRound) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  stream.CloseWhenSent();
  EXPECT_EQ(0, told.closed);
  loop.RunOnce(-1);
  EXPECT_EQ(1, told.closed);
}

TEST_F(StreamTest, CloseWhenSentGivesUpAfterAFewSeconds) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  peer.SetReading(false);
  const std::string text = Pattern(15 * kMiB);
  stream.Queue(text.data(), text.size());
  stream.CloseWhenSent();
  SomeRounds();
  EXPECT_EQ(0, told.closed);
  system.ahead_ns += int64_t{5} * 1000000000;
  loop.RunOnce(0);
  EXPECT_EQ(1, told.closed);
  EXPECT_EQ("closed before all was sent", told.why);
}

TEST_F(StreamTest, CloseWhenSentEndsAnAttempt) {
  const SilentPort silent;
  stream.Connect(At(silent.endpoint));
  stream.CloseWhenSent();
  Until([&] { return told.closed == 1; });
  EXPECT_EQ(State::kClosed, stream.GetState());
}

// Closing and destroying inside each of the callbacks.
TEST_F(StreamTest, MayBeClosedInsideEachCallback) {
  told.on_connected = [&] { stream.Close(); };
  stream.Connect(At(listener.Local()));
  Until([&] { return told.connected == 1; });
  Until([&] { return peer_told.closed == 1; });
  told.on_connected = nullptr;
  told.connected = 0;
  ASSERT_NO_FATAL_FAILURE(Connect());
  told.on_input = [&](const char*, size_t len) {
    stream.Close();
    return static_cast<int64_t>(len);
  };
  peer.Queue("x", 1);
  Until([&] { return told.inputs == 1; });
  told.on_input = [](const char*, size_t) { return TcpStream::Listener::kClose; };
  Until([&] { return peer_told.closed == 2; });
  ASSERT_NO_FATAL_FAILURE(Connect());
  Until([&] { return peer.GetState() == State::kConnected; });
  peer.Queue("x", 1);
  Until([&] { return told.inputs == 2; });
  EXPECT_EQ(State::kClosed, stream.GetState());
  EXPECT_EQ(0, told.closed);
}

TEST_F(StreamTest, MayBeDestroyedInsideEachCallback) {
  enum class In { kConnected, kInput, kLargeInput, kRoom, kClosed };
  for (const In in : {In::kConnected, In::kInput, In::kLargeInput, In::kRoom, In::kClosed}) {
    NotingListener doomed_told;
    auto doomed = std::make_unique<TcpStream>(loop, doomed_told, limits);
    bool gone = false;
    const auto destroy = [&] {
      doomed.reset();
      gone = true;
    };
    std::string used;
    if (in == In::kConnected) {
      doomed_told.on_connected = destroy;
    } else if (in == In::kClosed) {
      doomed_told.on_closed = destroy;
    } else if (in == In::kRoom) {
      doomed_told.on_room = destroy;
    } else {
      doomed_told.on_input = [&](const char* data, size_t len) {
        if (in == In::kLargeInput && len < kMiB) {
          return int64_t{0};
        }
        destroy();
        used.assign(data, len);  // which lives until this returns
        return static_cast<int64_t>(len);
      };
    }
    peer.Close();
    peer_told.closed = 0;
    doomed->Connect(At(listener.Local()));
    if (in == In::kConnected) {
      Until([&] { return gone; });
      continue;
    }
    Until([&] { return peer.GetState() == State::kConnected && doomed_told.connected == 1; });
    const std::string text = Pattern(in == In::kLargeInput ? 2 * kMiB : 10);
    if (in == In::kClosed) {
      peer.Close();
    } else if (in == In::kRoom) {
      const std::string large(limits.max_output, 'x');
      doomed->Queue(large.data(), large.size());
      EXPECT_EQ(0, doomed->Queue("x", 1));
    } else {
      peer.Queue(text.data(), text.size());
    }
    Until([&] { return gone; });
  }
}

TEST_F(StreamTest, DestroyedOnesGetNoEventsOfTheSameRound) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  auto other_told = std::make_unique<NotingListener>();
  auto other = std::make_unique<TcpStream>(loop, *other_told, limits);
  NotingListener third_told;
  TcpStream third(loop, third_told, limits);
  TcpListener other_listener(loop, [&](int fd) { third.Attach(fd); });
  ASSERT_EQ(0, other_listener.Listen(Endpoint::Loopback(0)));
  other->Connect(At(other_listener.Local()));
  Until([&] { return other_told->connected == 1 && third_told.connected == 1; });
  told.on_input = [&](const char*, size_t len) {
    other.reset();
    return static_cast<int64_t>(len);
  };
  other_told->on_input = [&](const char*, size_t len) {
    stream.Close();
    return static_cast<int64_t>(len);
  };
  peer.Queue("x", 1);
  peer.Flush();
  third.Queue("x", 1);
  third.Flush();
  Until([&] { return other == nullptr || stream.GetState() == State::kClosed; });
}

TEST_F(StreamTest, TellsAnAcceptedConnectionBeforeItsInput) {
  peer_told.on_input = [&](const char*, size_t len) {
    EXPECT_EQ(1, peer_told.connected);
    return static_cast<int64_t>(len);
  };
  System& kernel = System::Kernel();
  const int fd = kernel.OpenSocket(Endpoint::Family::kIpv4);
  kernel.Connect(fd, listener.Local());
  kernel.Send(fd, "early", 5);
  Until([&] { return peer_told.input == "early"; });
  kernel.Close(fd);
}

TEST_F(StreamTest, RestsWhenDescriptorsAreUsedUpAndAcceptsThen) {
  system.accept_error = -EMFILE;
  stream.Connect(At(listener.Local()));
  Until([&] { return system.accepts > 0; });
  SomeRounds();
  EXPECT_EQ(1, system.accepts);
  system.accept_error = 0;
  system.ahead_ns += int64_t{200} * 1000000;
  Until([&] { return peer_told.connected == 1; });
}

TEST_F(StreamTest, ListenerThatDoesNotAcceptLeavesConnectionsWaiting) {
  listener.SetAccepting(false);
  stream.Connect(At(listener.Local()));
  Until([&] { return told.connected == 1; });
  SomeRounds();
  EXPECT_EQ(0, system.accepts);
  listener.SetAccepting(true);
  Until([&] { return peer_told.connected == 1; });
}

TEST_F(StreamTest, ListenerMayBeDestroyedInsideItsCallback) {
  std::unique_ptr<TcpListener> doomed;
  doomed = std::make_unique<TcpListener>(loop, [&](int fd) {
    doomed.reset();
    peer.Attach(fd);
  });
  ASSERT_EQ(0, doomed->Listen(Endpoint::Loopback(0)));
  stream.Connect(At(doomed->Local()));
  Until([&] { return told.connected == 1 && peer_told.connected == 1; });
  EXPECT_EQ(nullptr, doomed);
}

TEST_F(StreamTest, ListenerSaysWhyItCannotListen) {
  TcpListener other(loop, [](int) {});
  EXPECT_EQ(-EADDRINUSE, other.Listen(listener.Local()));
  EXPECT_FALSE(other.IsOpen());
  EXPECT_EQ(0, other.Local().port);
}

}  // namespace
}  // namespace OSTRNET
