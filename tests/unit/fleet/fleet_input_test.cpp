// What a proxy does with what no client should send: it closes that connection, and only that.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <random>

#include "protocol/byte_order.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

class FleetInput : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_fleet.Start(), 0) << m_fleet.Error(); }

  // Whether a signed-up client that sends the bytes is thrown out.
  bool ClosesOn(const std::string& bytes) {
    const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
    client->Send(bytes);
    return client->IsClosedByPeer();
  }
  static std::string GetFrame() { return Request(OSTRAND_API_GET_REQ).Key(Uid(1)).Frame(); }
  static std::string WithNumber(std::string frame, size_t offset, uint32_t number) {
    StoreBigEndian(&frame[offset], number);
    return frame;
  }

  Fleet m_fleet{TestOptions()};
};

TEST_F(FleetInput, MalformedFramesEndTheirConnection) {
  const std::string get = GetFrame();
  const struct {
    const char* what;
    std::string bytes;
  } kCases[] = {
      {"another magic", "XX" + get.substr(2)},
      {"head length 0", WithNumber(get, 4, 0)},
      {"head length 12", WithNumber(get, 4, 12)},
      {"head length 27", WithNumber(get, 4, 27)},
      {"head length 0xFFFFFFF0", WithNumber(get, 4, 0xFFFFFFF0)},
      {"a body of 1 GiB", WithNumber(get, 8, 0x40000000)},
      {"a frame longer than any request", WithNumber(get, 8, 10 * 1024 * 1024)},
      {"a head that ends within a field",
       WithNumber(WithNumber(get, 4, 40), 8, static_cast<uint32_t>(get.size() - 40))},
      {"an unknown command", WithNumber(get, 24, 9999)},
      {"an answer", WithNumber(get, 24, 8)},
      {"a stop notice", Request(OSTRAND_API_NOTIFY_STOP_REQ, "").Frame()},
      {"a table name of 4 GiB", WithNumber(get, 44, 0xFFFFFFFF)},
      {"text", "GET / HTTP/1.1\r\n\r\n"},
  };
  uint64_t malformed = 0;
  const auto witness = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  for (const auto& one : kCases) {
    EXPECT_TRUE(ClosesOn(one.bytes)) << one.what;
    EXPECT_EQ(m_fleet.Counters(0).malformed_frames, ++malformed) << one.what;
  }
  EXPECT_EQ(witness->CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), -7949);
}

TEST_F(FleetInput, FramesMayComeByteByByteOrManyAtOnce) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const std::string get = GetFrame();
  for (const char byte : get) {
    ASSERT_TRUE(client->Send({&byte, 1}));
  }
  EXPECT_EQ(client->ReceivePkg()->stHead.iResult, -7949);
  std::string many;
  for (int i = 0; i < 5000; ++i) {
    many += get;
  }
  EXPECT_TRUE(client->Send(many.substr(0, many.size() - 10)));
  EXPECT_TRUE(client->Send(many.substr(many.size() - 10)));
  for (int i = 0; i < 5000; ++i) {
    ASSERT_FALSE(client->ReceiveFrame().empty());
  }
  EXPECT_TRUE(client->HasReceivedAll());
}

TEST_F(FleetInput, TheLargestRequestsAreAnswered) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  Request request(OSTRAND_API_GET_TTL_REQ);
  OStrandGetTTLReq& body = request.pkg().stBody.stGetTTLReq;
  body.dwRecordNum = OSTRAND_MAX_TTL_RECORD_NUM;
  for (OStrandKeySet& keys : body.astKeyInfo) {
    keys.iVersion = -1;
    keys.dwFieldNum = OSTRAND_MAX_KEY_FIELD_NUM;
    for (size_t i = 0; i < OSTRAND_MAX_KEY_FIELD_NUM; ++i) {
      std::snprintf(keys.astFields[i].szFieldName, sizeof(keys.astFields[i].szFieldName),
                    "key_field_with_a_long_name_%zu", i);
      keys.astFields[i].dwFieldLen = OSTRAND_MAX_KEY_FIELD_LEN;
      std::fill_n(keys.astFields[i].szFieldBuff, OSTRAND_MAX_KEY_FIELD_LEN, 'k');
    }
  }
  const OStrandPkg* const answer = client->Call(request);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stBody.stTTLRes.dwRecordNum, OSTRAND_MAX_TTL_RECORD_NUM);
  EXPECT_EQ(answer->stBody.stTTLRes.astRecordTTL[1023].iResult, -6929);
}

TEST_F(FleetInput, AFloodOfRequestsFromAPeerThatNeverReadsIsHeldBack) {
  TableSetup blobs;
  blobs.zone = kZone;
  blobs.schema.name = "blobs";
  m_fleet.AddTable(blobs);
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_INSERT_REQ, "blobs")
                                      .Key(Uid(1))
                                      .Record({{"b", std::string(1048576, 'm')}})),
            0);
  const std::string get = Request(OSTRAND_API_GET_REQ, "blobs").Key(Uid(1)).Frame();
  std::string flood;
  for (int i = 0; i < 60; ++i) {
    flood += get;
  }
  EXPECT_TRUE(client->Send(flood));  // asks for 60 MiB
  EXPECT_TRUE(m_fleet.WaitFor(kPatienceMs, [&] { return m_fleet.Counters(0).answers > 16; }));
  const auto other = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  EXPECT_EQ(other->CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), -7949)
      << "others are served";
  EXPECT_LT(m_fleet.Counters(0).answers, 50U) << "the rest waits until the peer reads";
  for (int i = 0; i < 60; ++i) {
    ASSERT_GT(client->ReceiveFrame().size(), 1048576U) << i;
  }
}

TEST_F(FleetInput, ConnectionsBeyondTheLimitAreClosedAtOnce) {
  FleetOptions options = TestOptions();
  options.proxy.max_connections = 2;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto first = TestClient::SignedUp(fleet.ProxyUrl(0));
  const auto second = TestClient::SignedUp(fleet.ProxyUrl(0));
  EXPECT_TRUE(TestClient(fleet.ProxyUrl(0)).IsClosedByPeer());
  first->Close();
  EXPECT_TRUE(fleet.WaitFor(kPatienceMs, [&] { return fleet.Counters(0).connections_open == 1; }));
  TestClient::SignedUp(fleet.ProxyUrl(0));
}

// Frames with a few random bytes changed: whatever comes of it, the proxy goes on.
TEST_F(FleetInput, RandomChangesOfFramesHurtNobodyElse) {
  constexpr uint32_t kSeed = 20240607;
  constexpr int kRounds = 2000;
  std::mt19937 random(kSeed);
  Request batch(OSTRAND_API_BATCH_INSERT_REQ);
  batch.Record({}, Uid(1), {{"name", "ann"}}).Record({}, Uid(2), {{"level", Uint32(2)}});
  Request list(OSTRAND_API_LIST_INSERT_REQ, "mail");
  list.Key(Uid(1)).Record({{"text", "hello"}});
  const std::string frames[] = {GetFrame(), batch.Frame(), list.Frame(), SignUpRequest().Frame(),
                                HeartbeatRequest(1).Frame()};
  std::unique_ptr<TestClient> client;
  for (int round = 0; round < kRounds; ++round) {
    if (client == nullptr || client->fd() < 0) {
      client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
    }
    std::string frame = frames[random() % std::size(frames)];
    for (auto changes = 1 + random() % 3; changes > 0; --changes) {
      frame[random() % frame.size()] = static_cast<char>(random());
    }
    if (!client->Send(frame)) {
      client->Close();
    }
    char answers[65536];
    if (client->fd() >= 0 && recv(client->fd(), answers, sizeof(answers), MSG_DONTWAIT) == 0) {
      client->Close();
    }
  }
  EXPECT_EQ(TestClient::SignedUp(m_fleet.ProxyUrl(0))->HasReceivedAll(), true) << kSeed;
}

}  // namespace
}  // namespace OstrandFleet
