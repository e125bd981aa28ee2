// What a proxy and its client say to each other beside table operations: sign-up, heartbeats,
// metadata, the stop negotiation; and what every answer carries back.
#include <gtest/gtest.h>

#include <cstring>

#include "fakes/fake_clock.h"
#include "protocol/perf_test.h"
#include "unit/fleet/fleet_test_kit.h"
#include "vex/vex.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

std::string UserBufferOf(const OStrandPkg& pkg) {
  return {pkg.stHead.szUserBuff, pkg.stHead.dwUserBuffLen};
}

class FleetConversation : public ::testing::Test {
 protected:
  explicit FleetConversation(const FleetOptions& options = TestOptions()) : m_fleet(options) {
    EXPECT_EQ(m_fleet.Start(), 0) << m_fleet.Error();
  }

  Fleet m_fleet;
};

TEST_F(FleetConversation, AnswersCarryBackWhatTheRequestBrought) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const std::string context("con\0text\xFF", 9);
  for (const uint32_t cmd : {OSTRAND_API_GET_REQ, OSTRAND_API_BATCH_GET_REQ,
                             OSTRAND_API_METADATA_GET_REQ, OSTRAND_API_QUERY_REQ}) {
    Request request(cmd);
    request.Key(Uid(4)).UserBuffer(context).AsynId(0x1122334455667788);
    request.pkg().stHead.iSeq = -110;
    const OStrandPkg* const answer = client->Call(request);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->stHead.dwCmd, cmd + 1);
    EXPECT_EQ(answer->stHead.ullAsynID, 0x1122334455667788U);
    EXPECT_EQ(answer->stHead.iSeq, -110);
    EXPECT_EQ(answer->stHead.stRouterInfo.iAppID, kAppId);
    EXPECT_EQ(answer->stHead.stRouterInfo.iZoneID, kZone);
    EXPECT_STREQ(answer->stHead.stRouterInfo.szTableName, "user");
    EXPECT_EQ(UserBufferOf(*answer), context);
  }
}

TEST_F(FleetConversation, AnswersAreWrittenInTheVersionOfTheRequest) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const struct {
    uint16_t sent;
    uint16_t answered;
  } kCases[] = {{78, 78}, {79, 79}, {127, 127}};
  for (const auto& one : kCases) {
    Request request(OSTRAND_API_GET_REQ);
    request.Key(Uid(1)).pkg().stHead.wVersion = one.sent;
    const OStrandPkg* const answer = client->Call(request);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->stHead.wVersion, one.answered);
  }
}

TEST_F(FleetConversation, ThePerformanceRecordComesBackStamped) {
  OstrandFakes::FakeClock clock;
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  Request request(OSTRAND_API_GET_REQ);
  OStrandPkgHead& head = request.Key(Uid(1)).pkg().stHead;
  PerfTest sent;
  sent.construct();
  sent.ullApiSendTime = 1234;
  size_t len = 0;
  ASSERT_EQ(sent.pack(head.szPerfTest, sizeof(head.szPerfTest), &len, 119), 0);
  head.szPerfTest[len] = '!';  // from a newer client
  head.dwPerfTestLen = static_cast<uint32_t>(len + 1);

  const OStrandPkg* const answer = client->Call(request);
  ASSERT_NE(answer, nullptr);
  PerfTest perf;
  ASSERT_EQ(answer->stHead.dwPerfTestLen, 89U);
  ASSERT_EQ(perf.unpack(answer->stHead.szPerfTest, 89, nullptr, 119), 0);
  EXPECT_EQ(answer->stHead.szPerfTest[88], '!');
  const auto now = static_cast<uint64_t>(clock.Us());
  EXPECT_EQ(perf.dwVersion, 119U);
  EXPECT_EQ(perf.ullApiSendTime, 1234U);
  for (const uint64_t stamp :
       {perf.ullProxyFrontForwardTime, perf.ullProxyEndForwardTime, perf.ullSvrArriveTime,
        perf.ullSvrMainForwardTime, perf.ullSvrWorkerRecvTime, perf.ullSvrWorkerSendTime,
        perf.ullProxyFrontBackwardTime, perf.ullProxyEndBackwardTime}) {
    EXPECT_EQ(stamp, now);
  }
  EXPECT_EQ(perf.ullApiRecvTime, 0U);
  EXPECT_EQ(perf.dwProxyReqLen, request.Frame().size());
}

TEST_F(FleetConversation, APerformanceRecordThatCannotBeReadComesBackAsItWas) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  Request request(OSTRAND_API_GET_REQ);
  std::memcpy(request.Key(Uid(1)).pkg().stHead.szPerfTest, "odd", 3);
  request.pkg().stHead.dwPerfTestLen = 3;
  const OStrandPkg* const answer = client->Call(request);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(std::string(answer->stHead.szPerfTest, answer->stHead.dwPerfTestLen), "odd");
}

TEST_F(FleetConversation, EverybodyMaySignUpWhereNoCredentialsAreSet) {
  TestClient client(m_fleet.ProxyUrl(0));
  const OStrandPkg* const answer = client.Call(SignUpRequest("whatever").UserBuffer("hostname=a"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.dwCmd, 52U);
  EXPECT_EQ(answer->stHead.iResult, 0);
  EXPECT_EQ(answer->stBody.stAppSignupRes.iResult, 0);
  EXPECT_EQ(m_fleet.Counters(0).signed_up, 1U);
}

TEST_F(FleetConversation, BeforeTheSignUpEverythingElseIsRefused) {
  TestClient client(m_fleet.ProxyUrl(0));
  EXPECT_EQ(client.CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(1))), -9233);
  EXPECT_EQ(client.CallForResult(HeartbeatRequest(1)), -9233);
  EXPECT_EQ(client.CallForResult(Request(OSTRAND_API_METADATA_GET_REQ)), -9233);
  EXPECT_EQ(m_fleet.CountRecords(kZone, "user"), 0U);
}

class FleetCredentials : public FleetConversation {
 protected:
  FleetCredentials() : FleetConversation(Options()) {}

  static FleetOptions Options() {
    FleetOptions options = TestOptions();
    options.credentials = {{"sesame", "", ""}, {"", "ali", "40 thieves"}};
    return options;
  }
  int32_t SignUp(const char* signature, const char* user, const char* password) {
    Request request = SignUpRequest(signature);
    OStrandAppSignupReq& body = request.pkg().stBody.stAppSignupReq;
    std::snprintf(body.szUserName, sizeof(body.szUserName), "%s", user);
    std::snprintf(body.szPasswordMd5, sizeof(body.szPasswordMd5), "%s", password);
    return TestClient(m_fleet.ProxyUrl(0)).CallForResult(request);
  }
};

TEST_F(FleetCredentials, OneOfTheAcceptedCredentialsMustMatch) {
  EXPECT_EQ(SignUp("sesame", "", ""), 0);
  EXPECT_EQ(SignUp("", "ali", "40 thieves"), 0);
  EXPECT_EQ(SignUp("sesam", "", ""), -9233);
  EXPECT_EQ(SignUp("", "", ""), -9233);
  EXPECT_EQ(SignUp("", "ali", ""), -9233);
  EXPECT_EQ(SignUp("", "", "40 thieves"), -9233);
}

TEST_F(FleetConversation, ARefusedSignUpTakesAnEarlierOneBack) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  ProxyFaults faults;
  faults.refuse_sign_up = kClientVersionTooHigh;
  m_fleet.SetFaults(0, faults);
  const OStrandPkg* const answer = client->Call(SignUpRequest());
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.iResult, -6669);
  EXPECT_EQ(answer->stBody.stAppSignupRes.iResult, -6669);
  EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), -9233);
  const ProxyCounters counters = m_fleet.Counters(0);
  EXPECT_EQ(counters.sign_ups, 2U);
  EXPECT_EQ(counters.sign_ups_accepted, 1U);
  EXPECT_EQ(counters.signed_up, 0U);
}

TEST_F(FleetConversation, HeartbeatsEchoTheClientsTimeAndTellTheLoad) {
  OstrandFakes::FakeClock clock;
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const OStrandPkg* const answer =
      client->Call(HeartbeatRequest(987654321).UserBuffer("AlarmCode=5;"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.dwCmd, 54U);
  const OStrandHeartBeatRes& body = answer->stBody.stHeartBeatRes;
  EXPECT_EQ(body.llApiTimeUs, 987654321);
  EXPECT_EQ(body.llProxyTimeUs, clock.Us());
  time_t proxy_time = 0;
  ASSERT_EQ(vex_vexdatetime_to_utctime(&proxy_time, body.tCurTime), kVexOk);
  EXPECT_EQ(proxy_time, clock.Ms() / 1000);
  EXPECT_EQ(UserBufferOf(*answer), std::string("CpuUse=10;CpuTotal=100;", 24));
}

TEST_F(FleetConversation, HeartbeatAnswersMayLie) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const auto echo = [&](const ProxyFaults& faults) {
    m_fleet.SetFaults(0, faults);
    return client->Call(HeartbeatRequest(1000))->stBody.stHeartBeatRes.llApiTimeUs;
  };
  ProxyFaults faults;
  faults.heartbeat_shift_us = 3600000000;
  EXPECT_EQ(echo(faults), 3600001000);
  faults.heartbeat_shift_us = INT64_MAX;
  EXPECT_EQ(echo(faults), INT64_MIN + 999) << "it wraps";
  faults.heartbeat_shift_us = 0;
  faults.heartbeat_echo_us = INT64_MIN;
  EXPECT_EQ(echo(faults), INT64_MIN);
  faults.heartbeat_text = "CpuUse=-5;";
  m_fleet.SetFaults(0, faults);
  EXPECT_EQ(UserBufferOf(*client->Call(HeartbeatRequest(1))), std::string("CpuUse=-5;", 11));
  faults.heartbeat_text = "";
  m_fleet.SetFaults(0, faults);
  EXPECT_EQ(UserBufferOf(*client->Call(HeartbeatRequest(1))), "");
  faults.heartbeat_text = std::string(2000, 'x');
  m_fleet.SetFaults(0, faults);
  EXPECT_EQ(UserBufferOf(*client->Call(HeartbeatRequest(1))), std::string(1024, 'x'));
}

TEST_F(FleetConversation, MetadataIsTheTablesSchemaAsARealImage) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const OStrandPkg* const answer = client->Call(Request(OSTRAND_API_METADATA_GET_REQ));
  ASSERT_NE(answer, nullptr);
  const OStrandMetadataGetRes& body = answer->stBody.stMetadataGetRes;
  EXPECT_EQ(answer->stHead.iResult, 0);
  EXPECT_EQ(body.iVexMetaCurrentVersion, 5);
  EXPECT_EQ(body.iIdlType, 0);
  LPVEXMETALIB lib = nullptr;
  int len = body.iIdlConLen;
  ASSERT_EQ(vex_load_metalib_buf(&lib, body.szIdlContent, &len), kVexOk);
  const LPVEXMETA meta = vex_get_meta_by_name(lib, "user");
  ASSERT_NE(meta, nullptr);
  EXPECT_EQ(*meta, TestTables()[0].schema);
  vex_free_lib(&lib);
}

TEST_F(FleetConversation, MetadataMayBeSetToAnything) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  EXPECT_TRUE(m_fleet.SetMetadata(kZone, "user", {9, 8, 2, "no image at all"}));
  EXPECT_FALSE(m_fleet.SetMetadata(kZone, "nobodys", {}));
  const OStrandPkg* const answer = client->Call(Request(OSTRAND_API_METADATA_GET_REQ));
  ASSERT_NE(answer, nullptr);
  const OStrandMetadataGetRes& body = answer->stBody.stMetadataGetRes;
  EXPECT_EQ(body.dwOstrandType, 9U);
  EXPECT_EQ(body.iVexMetaCurrentVersion, 8);
  EXPECT_EQ(body.iIdlType, 2);
  EXPECT_EQ(std::string(body.szIdlContent, static_cast<size_t>(body.iIdlConLen)),
            "no image at all");
}

TEST_F(FleetConversation, MetadataOfAnUnknownTableIsRefused) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_METADATA_GET_REQ, "nobodys")), -7185);
}

TEST_F(FleetConversation, RequestsAreRecordedInTheirOrder) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const Request get = std::move(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).UserBuffer("ctx"));
  client->Call(get);
  const std::vector<RecordedRequest> requests = m_fleet.Requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].cmd, 51U);
  const RecordedRequest& last = requests[1];
  EXPECT_EQ(last.number, 2U);
  EXPECT_EQ(last.proxy, 0U);
  EXPECT_EQ(last.connection, 1U);
  EXPECT_EQ(last.cmd, 7U);
  EXPECT_EQ(last.asyn_id, 1000U);
  EXPECT_EQ(last.seq, 77);
  EXPECT_EQ(last.app_id, kAppId);
  EXPECT_EQ(last.zone, kZone);
  EXPECT_EQ(last.table, "user");
  EXPECT_EQ(last.user_buffer, "ctx");
  EXPECT_EQ(last.key, Uid(1));
  EXPECT_EQ(last.frame, get.Frame());
  m_fleet.ClearRequests();
  EXPECT_TRUE(m_fleet.Requests().empty());
  m_fleet.RecordRequests(false);
  client->Call(get);
  EXPECT_TRUE(m_fleet.Requests().empty());
}

TEST(FleetRequestLog, KeepsWhatCameLastWithinItsLimits) {
  FleetOptions options = TestOptions();
  options.requests.max_requests = 3;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  for (uint64_t id = 1; id <= 5; ++id) {
    client->Call(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).AsynId(id));
  }
  const std::vector<RecordedRequest> requests = fleet.Requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[0].asyn_id, 3U);
  EXPECT_EQ(requests[2].asyn_id, 5U);
}

TEST(FleetRequestLog, KeepsNoMoreBytesThanItMay) {
  FleetOptions options = TestOptions();
  options.requests.max_bytes = 300;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  for (uint64_t id = 1; id <= 5; ++id) {
    client->Call(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).AsynId(id));  // over 100 bytes
  }
  const std::vector<RecordedRequest> requests = fleet.Requests();
  EXPECT_GE(requests.size(), 1U);
  EXPECT_LE(requests.size(), 2U);
  EXPECT_EQ(requests.back().asyn_id, 5U);
}

// --- The stop negotiation ---

class FleetStop : public FleetConversation {
 protected:
  FleetStop() : FleetConversation(Options()) {}

  static FleetOptions Options() {
    FleetOptions options = TestOptions(2);
    options.proxy.stop_ask_interval_ms = 20;
    options.proxy.stop_linger_ms = 0;
    return options;
  }
  // Receives a stop notice; its asynchronous id.
  static uint64_t ReceiveNotice(TestClient& client) {
    const OStrandPkg* const notice = client.ReceivePkg();
    EXPECT_NE(notice, nullptr);
    EXPECT_EQ(notice->stHead.dwCmd, 67U);
    EXPECT_EQ(notice->stHead.stRouterInfo.iAppID, kAppId);
    EXPECT_EQ(notice->stHead.stRouterInfo.iZoneID, kZone);
    return notice->stHead.ullAsynID;
  }
  static bool Allow(TestClient& client, uint64_t notice) {
    return client.Send(Request(OSTRAND_API_NOTIFY_STOP_RES, "").AsynId(notice).Frame());
  }
  // The result of the answer, which notices that were repeated may stand before.
  static int32_t ResultBehindNotices(TestClient& client, const Request& request) {
    const OStrandPkg* answer = client.Call(request);
    while (answer != nullptr && answer->stHead.dwCmd == OSTRAND_API_NOTIFY_STOP_REQ) {
      answer = client.ReceivePkg();
    }
    return answer == nullptr ? INT32_MIN : answer->stHead.iResult;
  }
  bool WaitForState(size_t proxy, ProxyState state) {
    return m_fleet.WaitFor(kPatienceMs, [&] { return m_fleet.State(proxy) == state; });
  }
};

TEST_F(FleetStop, AProxyStopsWhenAllItsClientsAllowIt) {
  const auto first = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  const auto second = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  m_fleet.AskToStop(0);
  const uint64_t first_notice = ReceiveNotice(*first);
  const uint64_t second_notice = ReceiveNotice(*second);
  EXPECT_NE(first_notice, second_notice);
  EXPECT_TRUE(Allow(*first, first_notice));
  EXPECT_EQ(ReceiveNotice(*second), second_notice) << "who did not answer is asked again";
  EXPECT_EQ(ResultBehindNotices(*first, Request(OSTRAND_API_INSERT_REQ).Key(Uid(1))), 0)
      << "until all allow it, it serves on";
  EXPECT_EQ(m_fleet.State(0), ProxyState::kStopping);
  EXPECT_TRUE(Allow(*second, second_notice));
  EXPECT_TRUE(WaitForState(0, ProxyState::kStopped));
  EXPECT_TRUE(first->IsClosedByPeer());
  EXPECT_TRUE(second->IsClosedByPeer());
  EXPECT_FALSE(TestClient(m_fleet.ProxyUrl(0)).is_connected());
  EXPECT_GE(m_fleet.Counters(0).stop_notices, 3U);
  EXPECT_EQ(m_fleet.Counters(0).stop_replies, 2U);
}

TEST_F(FleetStop, AReplyToAnotherNoticeAllowsNothing) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  EXPECT_TRUE(Allow(*client, 0));
  m_fleet.AskToStop(0);
  const uint64_t notice = ReceiveNotice(*client);
  EXPECT_TRUE(Allow(*client, notice + 1));
  EXPECT_EQ(ReceiveNotice(*client), notice);
  EXPECT_EQ(m_fleet.State(0), ProxyState::kStopping);
}

TEST_F(FleetStop, AProxyWithoutSignedUpClientStopsAtOnce) {
  TestClient stranger(m_fleet.ProxyUrl(0));
  m_fleet.AskToStop(0);
  EXPECT_TRUE(WaitForState(0, ProxyState::kStopped));
  EXPECT_TRUE(stranger.IsClosedByPeer());
}

TEST_F(FleetStop, AClientThatLeavesNeedNotAllowIt) {
  const auto client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  m_fleet.AskToStop(0);
  ReceiveNotice(*client);
  client->Close();
  EXPECT_TRUE(WaitForState(0, ProxyState::kStopped));
}

TEST_F(FleetStop, AStoppedProxyLeavesTheRouteAndComesBackWithARestart) {
  TestClient directory(m_fleet.DirectoryUrl());
  const auto answer = std::make_unique<ostrand_protocol_dir::tagOStrdirCSPkg>();
  m_fleet.AskToStop(0);
  ASSERT_TRUE(WaitForState(0, ProxyState::kStopped));
  ASSERT_TRUE(AskDirectory(directory, kZone, *answer));
  EXPECT_EQ(RouteOf(*answer), (Route{{m_fleet.ProxyUrl(1), "p1"}}));
  EXPECT_EQ(m_fleet.Restart(0), 0);
  ASSERT_TRUE(AskDirectory(directory, kZone, *answer));
  EXPECT_EQ(RouteOf(*answer), (Route{{m_fleet.ProxyUrl(0), "p0"}, {m_fleet.ProxyUrl(1), "p1"}}));
  TestClient::SignedUp(m_fleet.ProxyUrl(0));
}

TEST(FleetLinger, ClientsThatDoNotKnowYetAreServedBeforeTheProxyCloses) {
  FleetOptions options = TestOptions();
  options.proxy.stop_linger_ms = 3600 * 1000;
  options.proxy.stop_ask_interval_ms = 3600 * 1000;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  fleet.AskToStop(0);
  const uint64_t notice = client->ReceivePkg()->stHead.ullAsynID;
  client->Send(Request(OSTRAND_API_NOTIFY_STOP_RES, "").AsynId(notice).Frame());
  EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(1))), 0);
  EXPECT_EQ(fleet.State(0), ProxyState::kStopping);
}

}  // namespace
}  // namespace OstrandFleet
