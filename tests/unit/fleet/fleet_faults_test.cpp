// Every way in which a proxy misbehaves, as its client sees it.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include "common/clock.h"
#include "protocol/byte_order.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

using Ids = std::vector<uint64_t>;

class FleetFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(m_fleet.Start(), 0) << m_fleet.Error();
    m_client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
    EXPECT_EQ(m_client->CallForResult(
                  Request(OSTRAND_API_INSERT_REQ).Key(Uid(1)).Record({{"name", "ann"}})),
              0);
  }

  void Set(const ProxyFaults& faults) { m_fleet.SetFaults(0, faults); }
  void SetAnswerFault(AnswerFault fault, int64_t every = 1) {
    ProxyFaults faults;
    faults.answer = fault;
    faults.answer_every = every;
    Set(faults);
  }

  static Request Get(uint64_t asyn_id) {
    return std::move(
        Request(OSTRAND_API_GET_REQ).Key(Uid(1)).AsynId(asyn_id).UserBuffer("context"));
  }
  // Sends gets with the ids 1 to n in one go.
  void SendGets(uint64_t n) {
    std::string frames;
    for (uint64_t id = 1; id <= n; ++id) {
      frames += Get(id).Frame();
    }
    EXPECT_TRUE(m_client->Send(frames));
  }
  // The ids of the next n answers.
  Ids ReceiveIds(size_t n) {
    Ids ids;
    while (ids.size() < n) {
      const OStrandPkg* const answer = m_client->ReceivePkg();
      if (answer == nullptr) {
        break;
      }
      ids.push_back(answer->stHead.ullAsynID);
    }
    return ids;
  }
  // The frame of an answer to a get, without fault.
  std::string GoodAnswer() {
    Set({});
    EXPECT_TRUE(m_client->Send(Get(1).Frame()));
    return m_client->ReceiveFrame();
  }

  Fleet m_fleet{TestOptions()};
  std::unique_ptr<TestClient> m_client;
};

TEST_F(FleetFaults, DelayedAnswersComeInTheirOrder) {
  ProxyFaults faults;
  faults.delay_ms = 30;
  Set(faults);
  const int64_t before_ms = OstrandCommon::GetMonotonicMilliseconds();
  SendGets(3);
  EXPECT_EQ(ReceiveIds(3), (Ids{1, 2, 3}));
  EXPECT_GE(OstrandCommon::GetMonotonicMilliseconds() - before_ms, 30);
}

TEST_F(FleetFaults, WhatIsDelayedDiesWithItsConnection) {
  ProxyFaults faults;
  faults.delay_ms = 3600 * 1000;
  Set(faults);
  SendGets(3);
  EXPECT_TRUE(m_fleet.WaitFor(kPatienceMs, [&] { return m_fleet.Requests().size() == 5; }));
  m_fleet.CloseConnections(0);
  EXPECT_TRUE(m_client->IsClosedByPeer());
}

TEST_F(FleetFaults, EveryNthAnswerIsDropped) {
  ProxyFaults faults;
  faults.drop_every = 3;
  Set(faults);
  SendGets(7);
  EXPECT_EQ(ReceiveIds(5), (Ids{1, 2, 4, 5, 7}));
  EXPECT_EQ(m_fleet.Counters(0).answers_dropped, 2U);
  faults.drop_every = 1;
  Set(faults);
  SendGets(3);
  EXPECT_TRUE(m_client->HasReceivedAll());
}

TEST_F(FleetFaults, ScopeSaysWhichAnswersAreMeant) {
  const struct {
    AnswerScope scope;
    bool sign_up;
    bool heartbeat;
    bool metadata;
    bool table;
  } kCases[] = {
      {AnswerScope::kSignUp, false, true, true, true},
      {AnswerScope::kHeartbeat, true, false, true, true},
      {AnswerScope::kMetadata, true, true, false, true},
      {AnswerScope::kTable, true, true, true, false},
      {AnswerScope::kAll, false, false, false, false},
  };
  for (const auto& one : kCases) {
    ProxyFaults faults;
    faults.scope = one.scope;
    faults.drop_every = 1;
    Set(faults);
    Ids expected;
    const auto send = [&](Request request, uint64_t id, bool is_answered) {
      m_client->Send(request.AsynId(id).Frame());
      if (is_answered) {
        expected.push_back(id);
      }
    };
    send(SignUpRequest(), 1, one.sign_up);
    send(HeartbeatRequest(1), 2, one.heartbeat);
    send(Request(OSTRAND_API_METADATA_GET_REQ), 3, one.metadata);
    send(Get(4), 4, one.table);
    m_fleet.WaitFor(kPatienceMs, [&] { return m_fleet.Requests().back().asyn_id == 4; });
    EXPECT_EQ(ReceiveIds(expected.size()), expected) << NameOf(one.scope);
    Set({});
    EXPECT_TRUE(m_client->HasReceivedAll()) << NameOf(one.scope);
  }
}

TEST_F(FleetFaults, SignUpsAreRefusedWithAnyCode) {
  for (const int32_t code : {-6413, -6669, -1, 5}) {
    ProxyFaults faults;
    faults.refuse_sign_up = code;
    Set(faults);
    TestClient client(m_fleet.ProxyUrl(0));
    EXPECT_EQ(client.CallForResult(SignUpRequest()), code);
  }
}

TEST_F(FleetFaults, SignUpsGetNoAnswer) {
  ProxyFaults faults;
  faults.ignore_sign_up = true;
  Set(faults);
  TestClient client(m_fleet.ProxyUrl(0));
  EXPECT_TRUE(client.Send(SignUpRequest().Frame()));
  EXPECT_TRUE(client.HasReceivedAll());
  EXPECT_EQ(m_fleet.Counters(0).signed_up, 1U) << "that is the first client";
}

TEST_F(FleetFaults, HeartbeatsGetNoAnswerWhileRequestsDo) {
  ProxyFaults faults;
  faults.ignore_heartbeats = true;
  Set(faults);
  EXPECT_TRUE(m_client->Send(HeartbeatRequest(1).Frame()));
  SendGets(1);
  EXPECT_EQ(ReceiveIds(1), (Ids{1}));
  EXPECT_EQ(m_fleet.Counters(0).heartbeats, 1U);
}

TEST_F(FleetFaults, ConnectionsAreClosedOrReset) {
  m_fleet.CloseConnections(0);
  EXPECT_TRUE(m_client->IsClosedByPeer());
  const auto second = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  m_fleet.CloseConnections(0, CloseKind::kReset);
  char byte = 0;
  EXPECT_EQ(recv(second->fd(), &byte, 1, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(m_fleet.Counters(0).connections_open, 0U);
  EXPECT_TRUE(TestClient(m_fleet.ProxyUrl(0)).is_connected()) << "the proxy still runs";
}

TEST_F(FleetFaults, ConnectionsAreClosedInsideAFrame) {
  m_fleet.CloseInsideFrame(0);
  const std::string bytes = m_client->Receive(100);
  ASSERT_EQ(bytes.size(), 16U);
  EXPECT_EQ(bytes.substr(0, 2), "OT");
  EXPECT_TRUE(m_client->IsClosedByPeer());
}

TEST_F(FleetFaults, AnAnswerIsCutInTheMiddle) {
  const std::string good = GoodAnswer();
  SetAnswerFault(AnswerFault::kCutFrame);
  SendGets(2);
  EXPECT_EQ(m_client->Receive(1000), good.substr(0, good.size() / 2));
  EXPECT_TRUE(m_client->IsClosedByPeer());
}

TEST_F(FleetFaults, GarbageIsTheSameForTheSameSeed) {
  const auto garbage = [](uint32_t seed) {
    FleetOptions options = TestOptions();
    options.random_seed = seed;
    Fleet fleet(options);
    EXPECT_EQ(fleet.Start(), 0);
    const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
    ProxyFaults faults;
    faults.answer = AnswerFault::kGarbage;
    fleet.SetFaults(0, faults);
    client->Send(Get(1).Frame());
    return client->Receive(64);
  };
  EXPECT_EQ(garbage(1).size(), 64U);
  EXPECT_EQ(garbage(1), garbage(1));
  EXPECT_NE(garbage(1), garbage(2));
}

TEST_F(FleetFaults, LengthsInTheHeadLie) {
  const std::string good = GoodAnswer();
  const struct {
    AnswerFault fault;
    size_t offset;
    std::string bytes;
  } kCases[] = {
      {AnswerFault::kHeadLen0, 4, std::string(4, '\0')},
      {AnswerFault::kHeadLen12, 4, std::string("\0\0\0\x0C", 4)},
      {AnswerFault::kHeadLen27, 4, std::string("\0\0\0\x1B", 4)},
      {AnswerFault::kHeadLenHuge, 4, "\xFF\xFF\xFF\xF0"},
      {AnswerFault::kAnnounceGiB, 8, std::string("\x40\0\0\0", 4)},
  };
  for (const auto& one : kCases) {
    SetAnswerFault(one.fault);
    SendGets(1);
    std::string expected = good;
    expected.replace(one.offset, 4, one.bytes);
    EXPECT_EQ(m_client->Receive(good.size()), expected) << NameOf(one.fault);
  }
}

TEST_F(FleetFaults, TheCommandIsUnknownOrThatOfTheRequest) {
  for (const auto& [fault, cmd] :
       {std::pair{AnswerFault::kUnknownCommand, 9999U}, std::pair{AnswerFault::kRequestCode, 7U}}) {
    SetAnswerFault(fault);
    SendGets(1);
    const std::string frame = m_client->ReceiveFrame();
    ASSERT_GT(frame.size(), 28U);
    EXPECT_EQ(LoadBigEndian<uint32_t>(frame.data() + 24), cmd);
  }
}

TEST_F(FleetFaults, AForgedAnswerCarriesBackOtherBytes) {
  SetAnswerFault(AnswerFault::kForged);
  const OStrandPkg* answer = m_client->Call(Get(0x1234));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(std::string(answer->stHead.szUserBuff, answer->stHead.dwUserBuffLen), "contex\x8B");
  EXPECT_EQ(answer->stHead.ullAsynID, 0x1234U);
  answer = m_client->Call(Get(0x1234).UserBuffer(""));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.ullAsynID, 0x12CBU);
}

TEST_F(FleetFaults, TheLastValueIsWrongAndAllElseIsRight) {
  SetAnswerFault(AnswerFault::kWrongValue);
  const OStrandPkg* answer = m_client->Call(Get(1));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.iResult, 0);
  EXPECT_EQ(RecordsOf(answer->stBody.stRecords).at(0).values, (FieldList{{"name", "an\x91"}}));
  EXPECT_EQ(m_client->CallForResult(Request(OSTRAND_API_UPDATE_REQ).Key(Uid(1))), 0)
      << "an answer without value is left as it is";
}

TEST_F(FleetFaults, AnswersAreDoubled) {
  SetAnswerFault(AnswerFault::kDuplicate, 2);
  SendGets(3);
  EXPECT_EQ(ReceiveIds(4), (Ids{1, 2, 2, 3}));
  EXPECT_EQ(m_fleet.Counters(0).answers_spoilt, 1U);
}

TEST_F(FleetFaults, AnswersAreReplayed) {
  SetAnswerFault(AnswerFault::kReplay);
  SendGets(3);
  EXPECT_EQ(ReceiveIds(5), (Ids{1, 2, 1, 3, 2}));
}

TEST_F(FleetFaults, AnswersAreReordered) {
  SetAnswerFault(AnswerFault::kReorder);
  SendGets(4);
  EXPECT_EQ(ReceiveIds(4), (Ids{2, 1, 4, 3}));
  SendGets(1);
  EXPECT_EQ(ReceiveIds(1), (Ids{1})) << "a last one is not held for ever";
}

TEST_F(FleetFaults, AnswersAreLate) {
  ProxyFaults faults;
  faults.answer = AnswerFault::kLate;
  faults.answer_every = 2;
  faults.late_ms = 30;
  Set(faults);
  SendGets(3);
  EXPECT_EQ(ReceiveIds(3), (Ids{1, 3, 2}));
}

TEST_F(FleetFaults, AnAnswerInPackagesNeverEnds) {
  SetAnswerFault(AnswerFault::kEndlessMore);
  EXPECT_TRUE(m_client->Send(
      Request(OSTRAND_API_GET_BY_PARTKEY_REQ).Key(Uid(1)).UserBuffer("context").Frame()));
  for (uint32_t number = 0; number < 20; ++number) {
    const OStrandPkg* const part = m_client->ReceivePkg();
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->stHead.dwSubCmd, number);
    EXPECT_EQ(part->stBody.stGetByPartKeyRes.bHasMorePkgs, 1);
    EXPECT_EQ(RecordsOf(part->stBody.stGetByPartKeyRes.stRecords).size(), 1U);
  }
}

TEST_F(FleetFaults, BytesAreSentOneAtATime) {
  const std::string good = GoodAnswer();
  ProxyFaults faults;
  faults.bytes_per_second = 500;
  Set(faults);
  const int64_t before_ms = OstrandCommon::GetMonotonicMilliseconds();
  SendGets(1);
  EXPECT_EQ(m_client->Receive(good.size()), good);
  EXPECT_GE(OstrandCommon::GetMonotonicMilliseconds() - before_ms,
            static_cast<int64_t>(good.size()));
}

TEST_F(FleetFaults, AProxyThatNeverReadsFillsItsClientsSocket) {
  ProxyFaults faults;
  faults.never_read = true;
  Set(faults);
  const std::string frames(1024 * 1024, 'x');
  pollfd writable{m_client->fd(), POLLOUT, 0};
  size_t sent = 0;
  while (poll(&writable, 1, static_cast<int>(kNothingMs)) > 0 && sent < 256 * frames.size()) {
    const ssize_t len = send(m_client->fd(), frames.data(), frames.size(), MSG_DONTWAIT);
    ASSERT_GT(len, 0);
    sent += static_cast<size_t>(len);
  }
  EXPECT_LT(sent, 256 * frames.size()) << "the socket is full";
  EXPECT_TRUE(m_fleet.State(0) == ProxyState::kRunning);
}

TEST_F(FleetFaults, AHalfOpenProxyAcceptsAndIsSilent) {
  ProxyFaults faults;
  faults.silent = true;
  Set(faults);
  TestClient second(m_fleet.ProxyUrl(0));
  EXPECT_TRUE(second.is_connected());
  SendGets(3);
  m_fleet.SendBytes(0, "nobody gets this yet");
  EXPECT_TRUE(m_client->GetsNothing());
  Set({});
  EXPECT_EQ(m_client->Receive(20), "nobody gets this yet");
  EXPECT_EQ(ReceiveIds(3), (Ids{1, 2, 3})) << "what waited is answered then";
}

TEST_F(FleetFaults, ConnectionAttemptsGetNoAnswer) {
  ProxyFaults faults;
  faults.ignore_connects = true;
  Set(faults);
  const auto connects = [this](int fd) {
    sockaddr address{};
    socklen_t len = sizeof(address);
    getpeername(m_client->fd(), &address, &len);
    connect(fd, &address, len);
    pollfd writable{fd, POLLOUT, 0};
    return poll(&writable, 1, static_cast<int>(kNothingMs)) > 0;
  };
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  EXPECT_FALSE(connects(fd));
  close(fd);
  SendGets(1);
  EXPECT_EQ(ReceiveIds(1), (Ids{1})) << "connections that stand go on";
  Set({});
  TestClient::SignedUp(m_fleet.ProxyUrl(0));
}

TEST_F(FleetFaults, AnyBytesAreSentToEveryClient) {
  const auto second = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  Request nobodys(OSTRAND_API_GET_RES);
  const std::string frame = nobodys.AsynId(4242).Frame();
  m_fleet.SendBytes(0, frame + frame);
  for (TestClient* client : {m_client.get(), second.get()}) {
    EXPECT_EQ(client->ReceivePkg()->stHead.ullAsynID, 4242U);
    EXPECT_EQ(client->ReceivePkg()->stHead.ullAsynID, 4242U);
  }
}

TEST_F(FleetFaults, FaultsAreAProxysOwn) {
  Fleet fleet(TestOptions(2));
  ASSERT_EQ(fleet.Start(), 0);
  ProxyFaults faults;
  faults.refuse_sign_up = -1;
  fleet.SetFaults(1, faults);
  EXPECT_EQ(fleet.Faults(0), ProxyFaults());
  EXPECT_EQ(fleet.Faults(1), faults);
  TestClient::SignedUp(fleet.ProxyUrl(0));
  EXPECT_EQ(TestClient(fleet.ProxyUrl(1)).CallForResult(SignUpRequest()), -1);
}

}  // namespace
}  // namespace OstrandFleet
