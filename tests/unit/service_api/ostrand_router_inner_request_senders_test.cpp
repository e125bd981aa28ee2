// Who sends the router's own packages: the sign-up of one proxy, the heartbeats of a list, the
// metadata probe.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;
using OstrandFakes::ScriptedConnector;

constexpr char kUrl[] = "tcp://10.0.0.1:1001";
constexpr char kOther[] = "tcp://10.0.0.2:1002";
constexpr char kThird[] = "tcp://10.0.0.3:1003";

constexpr uint32_t kProbe = 27;
constexpr uint32_t kSignUp = 51;
constexpr uint32_t kHeartBeat = 53;

// The command of a frame.
uint32_t CmdOf(const std::string& frame) {
  uint32_t cmd = 0;
  for (size_t i = 24; i < 28; ++i) {
    cmd = cmd << 8 | static_cast<unsigned char>(frame.at(i));
  }
  return cmd;
}

class SendersTest : public testing::Test, public RouterFixture {
 protected:
  SendersTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
    logger.Clear();
  }

  std::vector<uint32_t> SentTo(const std::string& url) {
    std::vector<uint32_t> cmds;
    for (const std::string& frame : mgr.At(url).sent()) {
      cmds.push_back(CmdOf(frame));
    }
    return cmds;
  }
  // Takes the logger away: a repeated Init does nothing else.
  void TakeLogger() { EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)); }

  List* in_use;
};

// --- SendAuthRequest ---

class SendAuthRequestTest : public SendersTest {
 protected:
  SendAuthRequestTest() {
    proxy = AddProxy(in_use, kUrl);
    proxy->last_recv_ms = 7;
    proxy->auth_succeed = true;
    proxy->last_auth_result = 5;
    clock.SetMs(123456789);
    logger.Clear();
  }

  ProxyServer* proxy;
};

TEST_F(SendAuthRequestTest, MarksTheProxyAndStartsItsClock) {
  EXPECT_EQ(0, peer->SendAuthRequest(proxy, "sig"));
  EXPECT_EQ(std::vector<uint32_t>({kSignUp}), SentTo(kUrl));
  EXPECT_TRUE(proxy->has_sent_auth);
  EXPECT_EQ(123456789, proxy->last_recv_ms);
  EXPECT_TRUE(proxy->auth_succeed) << "left as it was";
  EXPECT_EQ(5, proxy->last_auth_result) << "left as it was";
  EXPECT_EQ(0U, server.scratch_pkg().stHead.ullAsynID);
  EXPECT_EQ(2U, logger.LinesFrom("InitCsPkgForInnerRequest").size());
  EXPECT_EQ(2U, logger.Lines().size()) << "nothing of its own";
}

TEST_F(SendAuthRequestTest, FailsAsThePackageFailsAndLeavesTheProxyUntouched) {
  struct {
    int result;
    void (*prepare)(SendAuthRequestTest& test);
  } const cases[] = {
      {-6, [](SendAuthRequestTest& test) { test.mgr.At(kUrl).PushSendResult(0); }},
      {-6, [](SendAuthRequestTest& test) { test.mgr.At(kUrl).PushSendResult(-1); }},
      {-2323, [](SendAuthRequestTest& test) { test.server.SetScratchSize(40); }},
      {-1, [](SendAuthRequestTest& test) { test.server.SetScratch(false, false); }},
  };
  for (const auto& given : cases) {
    logger.Clear();
    given.prepare(*this);
    EXPECT_EQ(given.result, peer->SendAuthRequest(proxy, "sig"));
    EXPECT_FALSE(proxy->has_sent_auth);
    EXPECT_EQ(7, proxy->last_recv_ms);
    EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "SendAuthRequest",
                   "InitCsPkgForInnerRequest for OSTRAND_API_APP_SIGNUP_REQ failed, ret=" +
                       std::to_string(given.result)),
              logger.Lines().back())
        << "behind the line of the failure itself";
    EXPECT_EQ(1U, logger.LinesFrom("SendAuthRequest").size());
  }
}

TEST_F(SendAuthRequestTest, DoesNotClearTheMarkOfAnEarlierSignUp) {
  proxy->has_sent_auth = true;
  EXPECT_EQ(-2, peer->SendAuthRequest(proxy, nullptr)) << "neither signature nor user name";
  EXPECT_TRUE(proxy->has_sent_auth);
}

TEST_F(SendAuthRequestTest, NeedsNoLogger) {
  TakeLogger();
  EXPECT_EQ(-2, peer->SendAuthRequest(proxy, nullptr));
  EXPECT_EQ(0, peer->SendAuthRequest(proxy, "sig"));
  EXPECT_TRUE(proxy->has_sent_auth);
  EXPECT_TRUE(logger.Lines().empty());
}

// --- SendHeartBeatToList ---

class SendHeartBeatTest : public SendersTest {
 protected:
  LogLine PassLine(const std::string& url) {
    return Line(OSTRAND_LOG_LEVEL_DEBUG, "SendHeartBeatToList",
                "InitCsPkgForInnerRequest OSTRAND_API_HEART_BEAT_REQ for proxy_url: " + url);
  }
  // An element that AddServerNode would not make.
  RealServerNode* AppendNode(const char* url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(in_use->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url);
    node->server = proxy;
    return node;
  }
  std::string UserBuffSentTo(const std::string& url) {
    const std::string frame = mgr.At(url).sent().back();
    return frame.substr(52, frame.size() - 82 - 16);
  }
};

TEST_F(SendHeartBeatTest, GoesToEverySignedUpAndConnectedProxy) {
  struct {
    bool auth_succeed;
    int status;
    bool sent;
  } const cases[] = {
      {true, 2, true},   {true, 0, false},  {true, 1, false},  {true, 3, false},
      {true, -1, false}, {false, 2, false}, {false, 0, false}, {false, 1, false},
  };
  ProxyServer* proxy = AddReadyProxy(in_use, kUrl);
  for (const auto& given : cases) {
    mgr.At(kUrl).ClearSent();
    logger.Clear();
    proxy->auth_succeed = given.auth_succeed;
    mgr.At(kUrl).SetStatus(given.status);
    peer->SendHeartBeatToList(in_use);
    EXPECT_EQ(given.sent ? std::vector<uint32_t>({kHeartBeat}) : std::vector<uint32_t>(),
              SentTo(kUrl))
        << given.auth_succeed << " " << given.status;
    EXPECT_EQ(given.sent ? 3U : 0U, logger.Lines().size()) << "others are passed over silently";
  }
}

TEST_F(SendHeartBeatTest, AsksForNeitherAvailabilityNorTheLastVerdict) {
  ProxyServer* proxy = AddReadyProxy(in_use, kUrl);
  proxy->is_available = false;
  proxy->last_auth_result = 1;
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(std::vector<uint32_t>({kHeartBeat}), SentTo(kUrl));
}

TEST_F(SendHeartBeatTest, CarriesNoAsynchronousIdAndNamesNoTable) {
  AddReadyProxy(in_use, kUrl);
  server.scratch_pkg().stHead.ullAsynID = 42;
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(0U, server.scratch_pkg().stHead.ullAsynID);
  ASSERT_EQ(1U, server.meta_version_requests().size());
  EXPECT_EQ("(null)", server.meta_version_requests()[0].second);
}

TEST_F(SendHeartBeatTest, GoesInTheListsOrderAndChangesNoProxy) {
  ProxyServer* first = AddReadyProxy(in_use, kUrl);
  AddProxy(in_use, kOther);
  AddReadyProxy(in_use, kThird);
  first->last_recv_ms = 7;
  logger.Clear();
  journal.Clear();
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(
      std::vector<std::string>({std::string("SendToQ ") + kUrl, std::string("SendToQ ") + kThird}),
      journal.Entries());
  EXPECT_EQ(std::vector<LogLine>({PassLine(kUrl), PassLine(kThird)}),
            logger.LinesFrom("SendHeartBeatToList"));
  EXPECT_EQ(PassLine(kUrl), logger.Lines()[2]) << "behind the lines of the package";
  EXPECT_EQ(7, first->last_recv_ms);
}

TEST_F(SendHeartBeatTest, TellsAHeartbeatThatWasNotSentLikeOneThatWas) {
  AddReadyProxy(in_use, kUrl);
  AddReadyProxy(in_use, kOther);
  mgr.At(kUrl).PushSendResult(-1);
  logger.Clear();
  peer->SendHeartBeatToList(in_use);
  const std::vector<LogLine> lines = logger.Lines();
  ASSERT_EQ(6U, lines.size());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InitCsPkgForInnerRequest",
                    "SendToQ Failed. buflen=98, ret=-1"}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_EQ(PassLine(kUrl), lines[2]);
  EXPECT_EQ(PassLine(kOther), lines[5]) << "the next proxy is served all the same";
}

TEST_F(SendHeartBeatTest, NamesTheElementsUrl) {
  RealServerNode* node = AppendNode("tcp://alias", AddReadyProxy(in_use, kUrl));
  logger.Clear();
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(std::vector<LogLine>({PassLine(kUrl), PassLine("tcp://alias")}),
            logger.LinesFrom("SendHeartBeatToList"));
  node->server = nullptr;  // a record dies under one url
}

TEST_F(SendHeartBeatTest, OnlyTheFirstOfAPassCarriesTheAlarmCodes) {
  AddProxy(in_use, kUrl);  // not signed up: takes nothing
  AddReadyProxy(in_use, kOther);
  AddReadyProxy(in_use, kThird);
  router->SetAlarmErrorCode(5);
  router->SetAlarmErrorCode(12);
  logger.Clear();
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(std::string("AlarmCode=5,12;\0", 16), UserBuffSentTo(kOther));
  EXPECT_EQ("", UserBuffSentTo(kThird));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InitCsPkgForInnerRequest",
                    std::string("SetHeartbeatAlarm AlarmCode=5,12; to proxy ") + kOther}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ("", UserBuffSentTo(kOther)) << "told once";
}

TEST_F(SendHeartBeatTest, CodesWaitWhileNoProxyIsSignedUp) {
  ProxyServer* proxy = AddProxy(in_use, kUrl);
  router->SetAlarmErrorCode(5);
  peer->SendHeartBeatToList(in_use);
  proxy->auth_succeed = true;
  mgr.At(kUrl).SetStatus(2);
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(std::string("AlarmCode=5;\0", 13), UserBuffSentTo(kUrl));
}

TEST_F(SendHeartBeatTest, AProxyInTwoListsGetsTwo) {
  ProxyServer* proxy = AddReadyProxy(in_use, kUrl);
  ASSERT_EQ(0, peer->AddServerNode(peer->m_preparing_servers(), kUrl, "id", proxy));
  peer->SendHeartBeatToList(in_use);
  peer->SendHeartBeatToList(peer->m_preparing_servers());
  EXPECT_EQ(std::vector<uint32_t>({kHeartBeat, kHeartBeat}), SentTo(kUrl));
}

TEST_F(SendHeartBeatTest, PassesOverElementsWithoutProxyOrConnectorSilently) {
  AppendNode(kUrl, nullptr);
  ProxyServer* proxy = AddReadyProxy(in_use, kOther);
  OSTRNET::CConnector* const connector = proxy->connector;
  proxy->connector = nullptr;
  logger.Clear();
  peer->SendHeartBeatToList(in_use);
  EXPECT_TRUE(logger.Lines().empty());
  proxy->connector = connector;
}

TEST_F(SendHeartBeatTest, NeedsNoLogger) {
  AddReadyProxy(in_use, kUrl);
  logger.Clear();
  TakeLogger();
  peer->SendHeartBeatToList(in_use);
  EXPECT_EQ(std::vector<uint32_t>({kHeartBeat}), SentTo(kUrl));
  EXPECT_TRUE(logger.Lines().empty());
}

// --- SendGetMetaReqForRecheckProxyAvailable ---

class MetadataProbeTest : public SendersTest {
 protected:
  MetadataProbeTest() {
    proxy = AddReadyProxy(in_use, kUrl);
    logger.Clear();
  }

  // Registers a table; a name of 32 characters fills its field without a NUL.
  void Register(int zone_id, const std::string& name) {
    auto qos = std::make_unique<tagTableQos>();
    std::memset(qos.get(), 0, sizeof(*qos));
    std::memcpy(qos->szTableName, name.data(), name.size());
    qos->iZoneID = zone_id;
    router->SetQos(qos.get());
    tables.push_back(std::move(qos));
    logger.Clear();
  }

  int Probe() { return router->SendGetMetaReqForRecheckProxyAvailable(proxy); }

  // The table that the last probe asked for.
  std::string TableSent() {
    const std::string frame = mgr.At(kUrl).sent().back();
    const auto length = static_cast<unsigned char>(frame.at(47));
    return frame.substr(48, length);
  }

  void ExpectNoTable() {
    EXPECT_EQ(-1, Probe());
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SendGetMetaReqForRecheckProxyAvailable",
                      "Find none table of app_id:1001 zone_id:5 in m_table_qos"}}),
              logger.Lines());
    EXPECT_TRUE(SentTo(kUrl).empty());
  }

  ProxyServer* proxy;
  std::vector<std::unique_ptr<tagTableQos>> tables;
};

TEST_F(MetadataProbeTest, NamesTheFirstTableOfTheRoutersZone) {
  Register(kZoneId + 1, "foreign");
  Register(kZoneId, "players");
  Register(kZoneId, "guilds");
  EXPECT_EQ(0, Probe());
  EXPECT_EQ(std::vector<uint32_t>({kProbe}), SentTo(kUrl));
  EXPECT_EQ(std::string("players\0", 8), TableSent());
  EXPECT_EQ(2U, logger.LinesFrom("InitCsPkgForInnerRequest").size());
  EXPECT_EQ(2U, logger.Lines().size()) << "nothing of its own";
}

TEST_F(MetadataProbeTest, IsNotSentWithoutATable) { ExpectNoTable(); }

TEST_F(MetadataProbeTest, IsNotSentWithoutATableOfTheZone) {
  Register(kZoneId + 1, "foreign");
  Register(-kZoneId, "foreign");
  ExpectNoTable();
}

TEST_F(MetadataProbeTest, IsNotSentWhenTheZonesFirstTableHasNoName) {
  Register(kZoneId, "");
  Register(kZoneId, "players");
  ExpectNoTable();
}

TEST_F(MetadataProbeTest, PassesOverEmptySlotsAndLooksAtNoneBehindTheCount) {
  Register(kZoneId, "players");
  peer->m_table_qos()[1] = peer->m_table_qos()[0];
  peer->m_table_qos()[0] = nullptr;
  ExpectNoTable();
  peer->m_table_qos_count() = 2;
  EXPECT_EQ(0, Probe());
  EXPECT_EQ(std::string("players\0", 8), TableSent());
  peer->m_table_qos()[0] = peer->m_table_qos()[1];
  peer->m_table_qos()[1] = nullptr;
  peer->m_table_qos_count() = 1;
}

TEST_F(MetadataProbeTest, TakesANameOf31Characters) {
  Register(kZoneId, std::string(31, 't'));
  EXPECT_EQ(0, Probe());
  EXPECT_EQ(std::string(31, 't') + '\0', TableSent());
}

TEST_F(MetadataProbeTest, RefusesANameThatFillsItsFieldAndReadsNoFurther) {
  Register(kZoneId, std::string(32, 't'));
  EXPECT_EQ(-3, Probe());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InitCsPkgForInnerRequest",
                    "invalid table_name:[" + std::string(32, 't') + "] table_name_size:32"},
                   {OSTRAND_LOG_LEVEL_ERROR, "SendGetMetaReqForRecheckProxyAvailable",
                    "InitCsPkgForInnerRequest for OSTRAND_API_METADATA_GET_REQ failed, ret=-3"}}),
            logger.Lines());
}

TEST_F(MetadataProbeTest, FailsAsThePackageFails) {
  Register(kZoneId, "players");
  struct {
    int result;
    void (*prepare)(MetadataProbeTest& test);
  } const cases[] = {
      {-6, [](MetadataProbeTest& test) { test.mgr.At(kUrl).PushSendResult(0); }},
      {-2323, [](MetadataProbeTest& test) { test.server.SetScratchSize(40); }},
      {-1, [](MetadataProbeTest& test) { test.server.SetScratch(true, false); }},
  };
  for (const auto& given : cases) {
    logger.Clear();
    given.prepare(*this);
    EXPECT_EQ(given.result, Probe());
    EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "SendGetMetaReqForRecheckProxyAvailable",
                   "InitCsPkgForInnerRequest for OSTRAND_API_METADATA_GET_REQ failed, ret=" +
                       std::to_string(given.result)),
              logger.Lines().back());
  }
}

TEST_F(MetadataProbeTest, AsksNeitherWhetherTheProxyIsSignedUpNorConnected) {
  Register(kZoneId, "players");
  proxy->auth_succeed = false;
  proxy->is_available = false;
  mgr.At(kUrl).SetStatus(0);
  EXPECT_EQ(0, Probe());
  EXPECT_EQ(std::vector<uint32_t>({kProbe}), SentTo(kUrl));
}

TEST_F(MetadataProbeTest, ThrowsNothingWithoutMemory) {
  Register(kZoneId, std::string(31, 't'));
  AllocationFaults faults;
  faults.FailThrowing(1);
  int result = 1;
  EXPECT_NO_THROW(result = Probe());
  EXPECT_GE(0, result) << "sent or refused by code";
}

TEST_F(MetadataProbeTest, NeedsNoLogger) {
  TakeLogger();
  EXPECT_EQ(-1, Probe());
  Register(kZoneId, "players");
  EXPECT_EQ(0, Probe());
  mgr.At(kUrl).PushSendResult(0);
  EXPECT_EQ(-6, Probe());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(MetadataProbeTest, WithoutAProxyOrAServiceIsAFailure) {
  Register(kZoneId, "players");
  EXPECT_GT(0, router->SendGetMetaReqForRecheckProxyAvailable(nullptr));
  const auto fresh = NewRouter(&latency, &statistics, &judge);
  fresh->SetQos(tables[0].get());
  EXPECT_GT(0, fresh->SendGetMetaReqForRecheckProxyAvailable(proxy)) << "before Init";
  EXPECT_TRUE(SentTo(kUrl).empty());
}

}  // namespace
}  // namespace OstrandService
