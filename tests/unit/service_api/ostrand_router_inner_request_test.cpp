// The router's own packages: each byte of the four kinds, and what a heartbeat tells.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/clock.h"
#include "unit/service_api/router_inner_request_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;

// --- The frames ---

struct Frame {
  const char* name;
  uint32_t cmd;
  uint64_t asyn_id;
  const char* signature;
  const char* table_name;
  std::function<void(InnerRequestTest&, OstrandRouter&)> prepare;
  const char* bytes;
};

void Nothing(InnerRequestTest&, OstrandRouter&) {}

const Frame kFrames[] = {
    {"sign-up by signature", kSignUp, 0, "sig", nullptr, Nothing,
     "4F54 007F"                     // magic, version 127
     "00000060 00000012"             // head of 96 bytes, body of 18
     "0000000000000000"              // asynchronous id
     "00000000 00000033"             // sequence, command 51
     "00000000"                      // flags
     "000003E9 00000005 00000000"    // app 1001, zone 5, shard
     "00000000"                      // no table name
     "0000000E"                      // user buffer of 14 bytes
     "686F73746E616D653D626F783700"  // "hostname=box7" with its NUL
     "FFFFFFFF 00000000"             // key: version -1, no fields
     "00000009"                      // schema version of no table
     "00 00"                         // compression of request and answer
     "00000000"                      // no split table key
     "00000000 00000000"             // result, sub-command
     "00000000"                      // no performance record
     "00000004 73696700"             // signature "sig"
     "0003"                          // its type
     "00000000"                      // no user name
     "00000000"},                    // no password

    {"sign-up by user name and password", kSignUp, 0, nullptr, nullptr,
     [](InnerRequestTest&, OstrandRouter& router) { router.SetUserNameAndPassword("al", "5ebe"); },
     "4F54 007F"
     "00000060 00000016"  // body of 22
     "0000000000000000"
     "00000000 00000033"
     "00000000"
     "000003E9 00000005 00000000"
     "00000000"
     "0000000E"
     "686F73746E616D653D626F783700"
     "FFFFFFFF 00000000"
     "00000009"
     "00 00"
     "00000000"
     "00000000 00000000"
     "00000000"
     "00000000"               // no signature
     "0003"                   // its type
     "00000003 616C00"        // user name "al"
     "00000005 3565626500"},  // password "5ebe", as it was given

    {"heartbeat", kHeartBeat, 0, nullptr, nullptr, Nothing,
     "4F54 007F"
     "00000052 00000010"  // head of 82 bytes, the least; body of 16
     "0000000000000000"
     "00000000 00000035"  // command 53
     "00000000"
     "000003E9 00000005 00000000"
     "00000000"
     "00000000"  // empty user buffer
     "FFFFFFFF 00000000"
     "00000009"
     "00 00"
     "00000000"
     "00000000 00000000"
     "00000000"
     "0000001F9EDD6354"    // 2023-11-14 22:13:20
     "00060A2418202240"},  // 1700000000123456 us

    {"heartbeat with alarm codes", kHeartBeat, 0, nullptr, nullptr,
     [](InnerRequestTest&, OstrandRouter& router) {
       router.SetAlarmErrorCode(12);
       router.SetAlarmErrorCode(5);
     },
     "4F54 007F"
     "00000062 00000010"  // head of 98 bytes
     "0000000000000000"
     "00000000 00000035"
     "00000000"
     "000003E9 00000005 00000000"
     "00000000"
     "00000010"
     "416C61726D436F64653D352C31323B00"  // "AlarmCode=5,12;" with its NUL
     "FFFFFFFF 00000000"
     "00000009"
     "00 00"
     "00000000"
     "00000000 00000000"
     "00000000"
     "0000001F9EDD6354"
     "00060A2418202240"},

    {"metadata probe", kProbe, 42, nullptr, "players", Nothing,
     "4F54 007F"
     "00000072 00000004"  // head of 114 bytes, body of 4
     "000000000000006E"   // 110, whatever the caller passed
     "FFFFFF92 0000001B"  // sequence -110, command 27
     "00000000"
     "000003E9 00000005 00000000"
     "00000008 706C617965727300"  // table "players"
     "00000018"
     "7265636865636B2070726F787920617661696C61626C6500"  // "recheck proxy available", NUL
     "FFFFFFFF 00000000"
     "00000011"  // schema version of the table
     "00 00"
     "00000000"
     "00000000 00000000"
     "00000000"
     "00000000"},  // metadata version 0

    {"stop reply", kStopReply, 0xFEDCBA9876543210, nullptr, nullptr, Nothing,
     "4F54 007F"
     "00000052 00000000"  // no body
     "FEDCBA9876543210"   // that of the notice
     "00000000 00000044"  // sequence 0, command 68
     "00000000"
     "000003E9 00000005 00000000"
     "00000000"
     "00000000"
     "FFFFFFFF 00000000"
     "00000009"
     "00 00"
     "00000000"
     "00000000 00000000"
     "00000000"},
};

using InnerFrameTest = InnerRequestTest;

TEST_F(InnerFrameTest, HasEveryByteInItsPlace) {
  clock.SetUs(1700000000123456);
  for (const Frame& frame : kFrames) {
    frame.prepare(*this, *router);
    EXPECT_EQ(0, Request(frame.cmd, frame.asyn_id, frame.signature, frame.table_name))
        << frame.name;
    EXPECT_EQ(WithoutBlanks(frame.bytes), SentHex()) << frame.name;
  }
  EXPECT_EQ(std::size(kFrames), SentCount());
}

TEST_F(InnerFrameTest, CarriesNothingOfThePackageBeforeIt) {
  clock.SetUs(1700000000123456);
  for (const Frame& frame : kFrames) {
    frame.prepare(*this, *router);
    DirtyPkg();
    std::memset(server.scratch_buffer(), 0x2E, OstrandFakes::FakeOstrandServer::kScratchSize);
    EXPECT_EQ(0, Request(frame.cmd, frame.asyn_id, frame.signature, frame.table_name))
        << frame.name;
    EXPECT_EQ(WithoutBlanks(frame.bytes), SentHex()) << frame.name;
  }
}

TEST_F(InnerFrameTest, CarriesTheCallersAsynchronousIdInAllButTheProbe) {
  for (const uint32_t cmd : {kSignUp, kHeartBeat, kStopReply}) {
    ASSERT_EQ(0, Request(cmd, 0x0102030405060708, "sig"));
    EXPECT_EQ("0102030405060708", SentHex().substr(24, 16)) << cmd;
  }
  ASSERT_EQ(0, Request(kProbe, 0x0102030405060708, "sig", "players"));
  EXPECT_EQ("000000000000006E", SentHex().substr(24, 16));
}

TEST_F(InnerFrameTest, CutsTheApplicationTo32Bits) {
  peer->m_app_id() = 0x0000000512345678;
  ASSERT_EQ(0, Request(kStopReply));
  EXPECT_EQ("12345678", SentHex().substr(64, 8));
  peer->m_app_id() = -2;
  ASSERT_EQ(0, Request(kStopReply));
  EXPECT_EQ("FFFFFFFE", SentHex().substr(64, 8));
}

TEST_F(InnerFrameTest, AsksForTheSchemaVersionOfItsTableInTheRoutersZone) {
  using Requests = std::vector<std::pair<int, std::string>>;
  ASSERT_EQ(0, Request(kProbe, 0, nullptr, "players"));
  ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
  ASSERT_EQ(0, Request(kHeartBeat));
  ASSERT_EQ(0, Request(kStopReply));
  EXPECT_EQ(Requests({{5, "players"}, {5, "(null)"}, {5, "(null)"}, {5, "(null)"}}),
            server.meta_version_requests());
}

TEST_F(InnerFrameTest, IsBuiltInTheServicesScratchPairAndSentWithoutALogHandle) {
  const int before = server.scratch_requests();
  ASSERT_EQ(0, Request(kStopReply));
  EXPECT_EQ(before + 1, server.scratch_requests());
  EXPECT_EQ(127, pkg().stHead.wVersion);
  EXPECT_EQ(std::vector<void*>({nullptr}), connector->send_log_handles());
}

// --- The heartbeat ---

int64_t g_clock_us = 0;

int64_t RestlessClock() {
  g_clock_us += 1700000;
  return g_clock_us;
}

TEST_F(InnerRequestTest, HeartbeatTellsBothTimesOfOneReadingOfTheClock) {
  g_clock_us = 951827694300000 - 1;
  OstrandCommon::ReplaceClock(&RestlessClock);  // the next reading: 951827695 s, 999999 us
  ASSERT_EQ(0, Request(kHeartBeat));
  const std::string body = SentHex().substr(2 * 82);
  EXPECT_EQ(
      "0000001F40BAC8B7"
      "000361AEA7B51BFF",
      body)
      << "2000-02-29 12:34:55";
}

TEST_F(InnerRequestTest, HeartbeatNamesTheAlarmAndTheProxyItRidesTo) {
  router->SetAlarmErrorCode(-7);
  ASSERT_EQ(0, Request(kHeartBeat));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation,
                    std::string("SetHeartbeatAlarm AlarmCode=-7; to proxy ") + kUrl},
                   SendLine(kHeartBeat, 82 + 14 + 16),
                   DumpLine(PkgText())}),
            logger.Lines());
  logger.Clear();
  ASSERT_EQ(0, Request(kHeartBeat));
  EXPECT_EQ(Lines({SendLine(kHeartBeat, 82 + 16), DumpLine(PkgText())}), logger.Lines())
      << "told once";
}

TEST_F(InnerRequestTest, AlarmCodesRideInTheFirstHeartbeatBuiltThoughItIsNotSent) {
  router->SetAlarmErrorCode(5);
  connector->PushSendResult(0);
  EXPECT_EQ(-6, Request(kHeartBeat));
  EXPECT_TRUE(peer->m_alarmErrorCode().empty());
  ASSERT_EQ(0, Request(kHeartBeat));
  EXPECT_EQ("00000000", SentHex().substr(96, 8)) << "empty user buffer";
}

TEST_F(InnerRequestTest, OnlyAHeartbeatTakesTheAlarmCodes) {
  router->SetAlarmErrorCode(5);
  ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
  ASSERT_EQ(0, Request(kProbe, 0, nullptr, "players"));
  ASSERT_EQ(0, Request(kStopReply));
  EXPECT_EQ(std::set<int32_t>({5}), peer->m_alarmErrorCode());
}

}  // namespace
}  // namespace OstrandService
