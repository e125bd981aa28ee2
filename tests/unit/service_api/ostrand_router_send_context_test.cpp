// The routing context of a request: who gets one, where it stands, what is registered with it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/service_api/router_send_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the commands
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::FakeRequest;

using Texts = std::vector<std::string>;
using Bytes = std::vector<FakeRequest::Bytes>;

class RequestContextTest : public RouterSendTest {
 protected:
  void KeepUserBuffersLocally() { server.m_local_buffer = this; }
};

// --- The bytes ---

TEST_F(RequestContextTest, IsMagicIdSubscriptAndCrc) {
  const struct {
    int32_t id;
    int32_t subscript;
    std::string bytes;
  } kCases[] = {
      {0, 0, {"\x78\x56\x34\x12\x00\x00\x00\x00\x00\x00\x86\x45\x9A\xF6", 14}},
      {0x01020304, 3, {"\x78\x56\x34\x12\x04\x03\x02\x01\x03\x00\x3F\x8C\x4D\xAA", 14}},
      {0x7FFFFFFE, -1, {"\x78\x56\x34\x12\xFE\xFF\xFF\x7F\xFF\xFF\x00\xC1\xE8\x2C", 14}},
      {1, 65538, {"\x78\x56\x34\x12\x01\x00\x00\x00\x02\x00\xA1\xF4\xF0\x0F", 14}},
  };
  for (const auto& c : kCases) {
    latency.SetNextId(c.id);
    request.SetTableSubscript(c.subscript);
    EXPECT_EQ(0, SetCtx());
    EXPECT_EQ(Bytes({c.bytes}), Bytes({request.pkg_user_buffs().back()})) << c.id;
    latency.FreeLatencyData(latency.GetLatencyData(c.id));
  }
}

// --- Who gets one, and how ---

enum Mode { kNone, kNormal, kLocal };

TEST_F(RequestContextTest, FollowsFromSwitchLengthAndCommand) {
  const struct {
    uint32_t cmd;
    size_t len;
    bool local_switch;
    Mode expected;
  } kCases[] = {
      {7, 0, false, kNormal},    {7, 1, false, kNormal},     {7, 13, false, kNormal},
      {7, 1009, false, kNormal}, {7, 1010, false, kNone},    {7, 1011, false, kNone},
      {7, 1024, false, kNone},   {7, 1025, false, kNone},    {7, 5000, false, kNone},
      {1, 1009, false, kNormal}, {1, 1010, false, kNone},    {23, 1009, false, kNormal},
      {23, 1010, false, kNone},  {26, 1010, false, kNone},   {12, 1010, false, kNone},
      {25, 0, false, kNormal},   {25, 1009, false, kNormal}, {25, 1010, false, kLocal},
      {25, 1024, false, kLocal}, {25, 5000, false, kLocal},  {11, 1009, false, kNormal},
      {11, 1010, false, kLocal}, {11, 1025, false, kLocal},  {7, 0, true, kLocal},
      {7, 3, true, kLocal},      {7, 14, true, kLocal},      {7, 1009, true, kLocal},
      {7, 1010, true, kLocal},   {7, 5000, true, kLocal},    {1, 1010, true, kLocal},
      {25, 1, true, kLocal},     {11, 1010, true, kLocal},   {27, 0, false, kNone},
      {27, 1010, false, kNone},  {27, 0, true, kNone},       {27, 1010, true, kNone},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message()
                 << c.cmd << " with " << c.len << " bytes, switch " << c.local_switch);
    const std::string user = UserBytes(c.len);
    FakeRequest one(c.cmd, kZoneId, kTable, &journal);
    one.SetTableSubscript(kSubscript);
    one.SetUserBytes(user);
    server.m_local_buffer = c.local_switch ? this : nullptr;
    const size_t live = latency.live_count();
    StartOver();
    EXPECT_EQ(0, peer->SetRequestCtx(proxy, &one));
    EXPECT_TRUE(logger.Lines().empty());
    const std::string room(14, '\0');
    if (c.expected == kNone) {
      EXPECT_EQ(Texts(), journal.Entries());
      EXPECT_EQ(live, latency.live_count());
      EXPECT_EQ(user + room, one.user_storage());
      continue;
    }
    const int32_t id = latency.last_id();
    const std::string context = Context(id, kSubscript);
    ASSERT_EQ(live + 1, latency.live_count());
    EXPECT_EQ(Texts({"PushBack " + std::to_string(id), "SetPkgUserBuff"}), journal.Entries());
    const LatencyData& record = *latency.GetLatencyData(id);
    EXPECT_EQ(c.len, record.user_buffer_len) << "in every mode";
    if (c.expected == kNormal) {
      EXPECT_EQ(Bytes({user + context}), one.pkg_user_buffs());
      EXPECT_EQ(user + context, one.user_storage());
      EXPECT_EQ(nullptr, record.user_buffer);
    } else {
      EXPECT_EQ(Bytes({context}), one.pkg_user_buffs()) << "alone";
      EXPECT_EQ(context + (user + room).substr(14), one.user_storage())
          << "over the user's first bytes";
      ASSERT_TRUE(c.len == 0 || record.user_buffer != nullptr);
      EXPECT_EQ(user, std::string(record.user_buffer, c.len)) << "kept before they went";
    }
    size_t len = 0;
    one.GetUserBuff(&len);
    EXPECT_EQ(c.len, len) << "the request's own length stays";
  }
}

TEST_F(RequestContextTest, LeavesARequestWithoutOneAsItIs) {
  request.SetUserBytes(UserBytes(1010));
  EXPECT_EQ(0, Send());
  ASSERT_EQ(1U, connector->sent().size());
  EXPECT_TRUE(request.pkg_user_buffs().empty());
  EXPECT_EQ("", UserBuffOf(connector->sent()[0]))
      << "what travels is what the request's package has";
}

TEST_F(RequestContextTest, TravelsBehind1009BytesAsA1023rd) {
  request.SetUserBytes(UserBytes(1009));
  EXPECT_EQ(0, Send());
  EXPECT_EQ(UserBytes(1009) + Context(0, kSubscript), UserBuffOf(connector->sent().at(0)));
  EXPECT_EQ(1023U, UserBuffOf(connector->sent().at(0)).size());
}

TEST_F(RequestContextTest, TravelsAloneInLocalBufferMode) {
  KeepUserBuffersLocally();
  request.SetUserBytes(UserBytes(500));
  EXPECT_EQ(0, Send());
  EXPECT_EQ(Context(0, kSubscript), UserBuffOf(connector->sent().at(0)));
}

TEST_F(RequestContextTest, IsNotGivenToAMetadataRequest) {
  request.SetCmd(OSTRAND_API_METADATA_GET_REQ);
  request.SetUserBytes("mine");
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  EXPECT_EQ(0U, latency.live_count());
  EXPECT_TRUE(request.pkg_user_buffs().empty());
  EXPECT_EQ(Texts({"Print", "Pack", std::string("SendToQ ") + kUrl}), journal.Entries());
}

TEST_F(RequestContextTest, IsItsOwnOfEachSending) {
  request.SetUserBytes("the user's");
  EXPECT_EQ(0, Send());
  EXPECT_EQ(0, Send());
  EXPECT_EQ("the user's" + Context(0, kSubscript), UserBuffOf(connector->sent().at(0)));
  EXPECT_EQ("the user's" + Context(1, kSubscript), UserBuffOf(connector->sent().at(1)));
  EXPECT_EQ(2U, latency.live_count());
}

// --- What is registered ---

TEST_F(RequestContextTest, RegistersWhatTheAnswerWillNeed) {
  request.SetZoneId(kZoneId + 1);
  clock.SetMs(kNow + 250);
  EXPECT_EQ(0, SetCtx());
  ASSERT_EQ(1U, latency.live_count());
  const LatencyData& record = *latency.GetLatencyData(0);
  EXPECT_EQ(kZoneId, record.zone_id) << "the router's, not the request's";
  EXPECT_EQ(kNow + 250, record.send_ms);
  EXPECT_EQ(kTimeoutMs, record.timeout_ms);
  EXPECT_EQ(kIp, record.ip);
  EXPECT_EQ(kPort, record.port);
  EXPECT_EQ(7U, record.req_cmd);
  EXPECT_EQ(kSubscript, record.table_subscript);
  EXPECT_STREQ(kTable, record.table_name);
  EXPECT_EQ(kAsyncId, record.async_id);
  EXPECT_EQ(kSequence, record.seq);
  EXPECT_EQ(nullptr, record.user_buffer);
  EXPECT_EQ(0U, record.user_buffer_len);
  EXPECT_EQ(0, record.next_sub_pkg_seq);
}

// What comes back with the answer is all there is to find the table by.
TEST_F(RequestContextTest, RegistersTheSubscriptThatItCarries) {
  const struct {
    int32_t subscript;
    int32_t registered;
  } kCases[] = {{65538, 2}, {40000, -25536}, {-32769, 32767}, {32767, 32767}, {-1, -1}};
  for (const auto& c : kCases) {
    request.SetTableSubscript(c.subscript);
    EXPECT_EQ(0, SetCtx());
    const int32_t id = latency.last_id();
    EXPECT_EQ(c.registered, latency.GetLatencyData(id)->table_subscript) << c.subscript;
    EXPECT_EQ(Bytes({Context(id, static_cast<int16_t>(c.registered))}),
              Bytes({request.pkg_user_buffs().back()}));
  }
}

TEST_F(RequestContextTest, RegistersAddress0OfAConnectorThatDoesNotKnowIt) {
  ProxyServer* stranger = AddReadyProxy(peer->m_using_servers(), "tcp://10.0.0.3:8003");
  EXPECT_EQ(0, peer->SetRequestCtx(stranger, &request));
  EXPECT_EQ(0, latency.GetLatencyData(0)->ip);
  EXPECT_EQ(0, latency.GetLatencyData(0)->port);
}

// --- What can fail ---

TEST_F(RequestContextTest, IsDoneWithoutSilentlyWhenTheTableIsFull) {
  latency.SetPushBackResult(-7);
  for (const uint32_t cmd : {7U, 1U, 23U, 145U}) {
    request.SetCmd(cmd);
    request.SetUserBytes("mine");
    EXPECT_EQ(0, SetCtx());
    EXPECT_TRUE(logger.Lines().empty());
    EXPECT_TRUE(request.pkg_user_buffs().empty());
    EXPECT_EQ(std::string("mine") + std::string(14, '\0'), request.user_storage());
  }
  EXPECT_EQ(0, Send());
  EXPECT_EQ("", UserBuffOf(connector->sent().at(0)));
}

TEST_F(RequestContextTest, IsMissedByThoseThatCannotDoWithoutIt) {
  latency.SetPushBackResult(-4128);
  request.SetZoneId(kZoneId + 1);
  const struct {
    uint32_t cmd;
    size_t len;
    bool local_switch;
  } kCases[] = {{25, 0, false},  {11, 1009, false}, {25, 1010, false}, {7, 0, true},
                {7, 1010, true}, {1, 5, true},      {11, 700, true},   {23, 0, true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.cmd << " with " << c.len);
    server.m_local_buffer = c.local_switch ? this : nullptr;
    request.SetCmd(c.cmd);
    request.SetUserBytes(UserBytes(c.len));
    EXPECT_EQ(-4128, SetCtx());
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SetRequestCtx",
                      "Zone 5 Table players, Get Context for cmd " + std::to_string(c.cmd) +
                          " error -4128"}}),
              logger.Lines())
        << "with the router's zone";
    EXPECT_EQ(UserBytes(c.len) + std::string(14, '\0'), request.user_storage());
  }
  EXPECT_TRUE(request.pkg_user_buffs().empty());
}

TEST_F(RequestContextTest, IsRegisteredForGoodWhenThePackageRefusesIt) {
  for (const bool local_switch : {false, true}) {
    server.m_local_buffer = local_switch ? this : nullptr;
    request.SetPkgUserBuffResult(-1811);
    EXPECT_EQ(-1811, SetCtx());
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SetRequestCtx",
                      "request->SetUserBuff()failed. ret:-1811"}}),
              logger.Lines());
  }
  EXPECT_EQ(2U, latency.live_count()) << "they end by time-out";
  EXPECT_EQ(-1811, Send());
  EXPECT_TRUE(connector->sent().empty());
}

}  // namespace
}  // namespace OstrandService
