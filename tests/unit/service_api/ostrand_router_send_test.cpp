// Sending a request: what is refused, where it goes, and what becomes of it at the connector.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_send_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the commands
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OSTRNET::CConnector;

using Texts = std::vector<std::string>;

constexpr int kNotInitialised = -4371;
constexpr int kNoRoute = -13843;
constexpr int kSendBufferFull = -12307;

class SendRequestTest : public RouterSendTest {
 protected:
  // Nothing was sent, registered, sampled or counted.
  void ExpectNothingDone() {
    EXPECT_TRUE(connector->sent().empty());
    EXPECT_TRUE(other_connector->sent().empty());
    EXPECT_EQ(0U, latency.live_count());
    EXPECT_EQ(1U, peer->m_perfId());
    EXPECT_EQ(kUntouched, request.net_size);
    EXPECT_EQ(nullptr, router->GetUsedProxyUrl());
    EXPECT_EQ(Texts(), journal.Entries());
  }
};

// --- What is refused ---

TEST_F(SendRequestTest, RefusesBeforeInitSucceeded) {
  SetRing(nullptr);
  router->Fini();
  EXPECT_EQ(kNotInitialised, Send());
  EXPECT_EQ(kNotInitialised, router->SendRequest(nullptr));
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(Texts(), journal.Entries());
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(SendRequestTest, RefusesWithoutInitAndAfterAFailedOne) {
  const auto raw = NewRouter(&latency, &statistics, &judge);
  EXPECT_EQ(kNotInitialised, raw->SendRequest(&request));
  EXPECT_EQ(-256, raw->Init(&mgr, nullptr, &logger));
  StartOver();
  EXPECT_EQ(kNotInitialised, raw->SendRequest(&request));
  EXPECT_EQ(kNotInitialised, raw->SendRequest(nullptr));
  EXPECT_TRUE(logger.Lines().empty());
  ExpectNothingDone();
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(SendRequestTest, RefusesNoRequest) {
  EXPECT_EQ(kNotInitialised, router->SendRequest(nullptr));
  ExpectNothingDone();
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(SendRequestTest, RefusesARequestWithoutTableName) {
  request.SetTableName(nullptr);
  for (const bool signed_up : {true, false}) {
    peer->m_proxy_sign_up_recv() = signed_up;
    EXPECT_EQ(kNotInitialised, Send()) << "also while nobody has signed up";
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SendRequest", "NULL == request->GetTableName()"}}),
              logger.Lines());
    ExpectNothingDone();
  }
  EXPECT_EQ(Counters(), Counted());
}

TEST_F(SendRequestTest, LeavesAnEmptyTableNameToTheRouting) {
  request.SetTableName("");
  EXPECT_EQ(kNotInitialised, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer", "NULL == table_name"}}),
            logger.Lines());
  ExpectNothingDone();
  peer->m_proxy_sign_up_recv() = false;
  EXPECT_EQ(0, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SendRequest",
                    "ZoneID(5), TableName() Not Received SignUp Res, Skip the Request."}}),
            logger.Lines());
}

TEST_F(SendRequestTest, DropsRequestsWithSuccessBeforeTheFirstSignUpAnswer) {
  peer->m_proxy_sign_up_recv() = false;
  router->SetPerfSampPercent(100);
  request.SetZoneId(6);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SendRequest",
                    "ZoneID(6), TableName(players) Not Received SignUp Res, Skip the Request."}}),
            logger.Lines())
      << "the zone of the request";
  ExpectNothingDone();
  EXPECT_EQ(Counters(), Counted());
  EXPECT_EQ(Counters(), OstrandFakes::NonZeroCounters(qos));
}

TEST_F(SendRequestTest, AnswersTheCodeOfTheRoutingAndSendsNothing) {
  router->SetPerfSampPercent(100);
  request.SetTableName("unknown");
  EXPECT_EQ(kNotInitialised, Send());
  ExpectNothingDone();
  EXPECT_EQ(Counters(), Counted());

  request.SetTableName(kTable);
  proxy->is_available = false;
  EXPECT_EQ(kNoRoute, Send());
  ExpectNothingDone();
  EXPECT_EQ(Shared("ApiFindRouteErrNumPerMin"), Counted());
  EXPECT_EQ(Counters({{"iRounteErrorCount", 1}}), OstrandFakes::NonZeroCounters(qos))
      << "in the table's own record";
  EXPECT_EQ(Counters(), OstrandFakes::NonZeroCounters(first_qos));
}

TEST_F(SendRequestTest, LooksTheTableUpInTheZoneOfTheRequest) {
  request.SetZoneId(kZoneId + 1);
  EXPECT_EQ(kNotInitialised, Send());
  tagTableQos foreign = Qos(kZoneId + 1, kTable);
  router->SetQos(&foreign);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
}

// --- Where it goes ---

TEST_F(SendRequestTest, SendsToTheProxyThatTheRingTells) {
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  SetRing(other_proxy);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  EXPECT_EQ(1U, other_connector->sent().size());
  EXPECT_EQ(Counters(), OstrandFakes::NonZeroCounters(qos));
}

TEST_F(SendRequestTest, SendsToThePinnedProxyInstead) {
  peer->m_virtual_nodes()[19999].server = other_proxy;
  router->SetSpecialOstrroxyIPAndPort("10.0.0.2", 8002);
  EXPECT_EQ(0, Send());
  EXPECT_TRUE(connector->sent().empty());
  EXPECT_EQ(1U, other_connector->sent().size());
  EXPECT_STREQ(kOtherUrl, router->GetUsedProxyUrl());

  mgr.At(kOtherUrl).SetStatus(CConnector::STATUS_DISCONNECTED);
  other_proxy->auth_succeed = false;
  EXPECT_EQ(0, Send()) << "whatever its state";
  EXPECT_EQ(2U, other_connector->sent().size());

  router->ReSetSpecialOstrroxyIPAndPort();
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  peer->m_virtual_nodes()[19999].server = nullptr;
}

TEST_F(SendRequestTest, SendsWhereTheRingTellsWhenThePinFindsNobody) {
  peer->m_virtual_nodes()[19999].server = other_proxy;
  const struct {
    const char* ip;
    int32_t port;
  } kPins[] = {{"10.0.0.9", 8002}, {"10.0.0.2", 0}, {"10.0.0.2", -8002}, {"", 8002}};
  size_t expected = 0;
  for (const auto& pin : kPins) {
    router->SetSpecialOstrroxyIPAndPort(pin.ip, pin.port);
    EXPECT_EQ(0, Send());
    EXPECT_EQ(++expected, connector->sent().size()) << pin.ip << ":" << pin.port;
  }
  EXPECT_TRUE(other_connector->sent().empty());
  peer->m_virtual_nodes()[19999].server = nullptr;
}

TEST_F(SendRequestTest, TakesAPortOf0AsNoPinAlsoWhereAUrlHasIt) {
  ProxyServer* zero = AddReadyProxy(peer->m_using_servers(), "tcp://10.0.0.3:0");
  peer->m_virtual_nodes()[19999].server = zero;
  router->SetSpecialOstrroxyIPAndPort("10.0.0.3", 0);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  peer->m_virtual_nodes()[19999].server = nullptr;
}

TEST_F(SendRequestTest, MustFindARouteAlsoWhenAProxyIsPinned) {
  peer->m_virtual_nodes()[19999].server = other_proxy;
  router->SetSpecialOstrroxyIPAndPort("10.0.0.2", 8002);
  proxy->is_available = false;
  EXPECT_EQ(kNoRoute, Send());
  ExpectNothingDone();
  peer->m_virtual_nodes()[19999].server = nullptr;
}

// --- The way out ---

TEST_F(SendRequestTest, DoesOneThingAfterTheOther) {
  router->SetPerfSampPercent(100);
  request.SetPrintText("cmd: 7\n");
  EXPECT_EQ(0, Send());
  EXPECT_EQ(Texts({"SetPerfTest", "PushBack 0", "SetPkgUserBuff", "Print", "Pack",
                   std::string("SendToQ ") + kUrl}),
            journal.Entries());
  const std::vector<std::string> sent = connector->sent();
  ASSERT_EQ(1U, sent.size());
  EXPECT_EQ(Context(0, kSubscript), UserBuffOf(sent[0]));
  EXPECT_EQ(88U, PerfTestOf(sent[0]).size());
  EXPECT_EQ(sent[0].size(), request.net_size);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "InnerSendRequest",
                    "---------- request dump ----------\ncmd: 7\n"},
                   {OSTRAND_LOG_LEVEL_DEBUG, "InnerSendRequest",
                    "connector->Send succeed. net_size:" + std::to_string(sent[0].size()) +
                        " server_url:" + kUrl}}),
            logger.LinesFrom("InnerSendRequest"));
  EXPECT_EQ(std::vector<LogLine>(), logger.LinesFrom("SendRequest"));
  EXPECT_EQ(std::vector<void*>({&logger}), connector->send_log_handles());
}

TEST_F(SendRequestTest, PacksWhatTheRequestIsIntoThePackBuffer) {
  request.SetUserBytes("my bytes");
  ASSERT_EQ(0, Send());
  ASSERT_EQ(1U, request.packs().size());
  EXPECT_EQ(pack_buffer.data(), request.packs()[0].buffer);
  EXPECT_EQ(pack_buffer.size(), request.packs()[0].size) << "its whole room";
  const std::string sent = connector->sent().at(0);
  EXPECT_EQ(std::string(pack_buffer.data(), sent.size()), sent);
  EXPECT_EQ("my bytes" + Context(0, kSubscript), UserBuffOf(sent));
}

TEST_F(SendRequestTest, PrintsIntoThePackBufferBeforeItPacks) {
  ASSERT_EQ(0, Send());
  ASSERT_EQ(1U, request.prints().size());
  EXPECT_EQ(pack_buffer.data(), request.prints()[0].buffer);
  EXPECT_EQ(pack_buffer.size(), request.prints()[0].size);
}

TEST_F(SendRequestTest, PrintsNothingWithoutDebug) {
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  EXPECT_EQ(0, Send());
  EXPECT_TRUE(request.prints().empty());
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(1U, connector->sent().size());
}

TEST_F(SendRequestTest, SendsARequestThatCannotBePrinted) {
  std::memset(pack_buffer.data(), 'x', pack_buffer.size() - 1);
  pack_buffer.back() = '\0';
  request.SetPrintResult(-3);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  EXPECT_EQ("---------- request dump ----------\n",
            logger.LinesFrom("InnerSendRequest").front().text.substr(0, 100))
      << "and nothing of what the buffer held before";
}

TEST_F(SendRequestTest, SendsWithoutALogger) {
  peer->m_logger() = nullptr;
  EXPECT_EQ(0, Send());
  EXPECT_EQ(1U, connector->sent().size());
  EXPECT_EQ(std::vector<void*>({nullptr}), connector->send_log_handles());
  EXPECT_TRUE(request.prints().empty());
  connector->SetSendResult(0);
  EXPECT_EQ(kSendBufferFull, Send());
  connector->SetSendResult(-9);
  EXPECT_EQ(-9, Send());
  request.SetPackResult(-8);
  EXPECT_EQ(-8, Send());
  request.SetPkgUserBuffResult(-7);
  EXPECT_EQ(-7, Send());
  request.SetPerfTestResult(-6);
  router->SetPerfSampPercent(100);
  EXPECT_EQ(-7, Send());
  latency.SetPushBackResult(-5);
  request.SetCmd(OSTRAND_API_LIST_GETALL_REQ);
  EXPECT_EQ(-5, Send());
  peer->m_proxy_sign_up_recv() = false;
  EXPECT_EQ(0, Send());
  request.SetTableName(nullptr);
  EXPECT_EQ(kNotInitialised, Send());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(SendRequestTest, HandsOnTheLoggersNativeHandle) {
  int handle = 0;
  logger.ResetLogHandler(&handle);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(std::vector<void*>({&handle}), connector->send_log_handles());
}

TEST_F(SendRequestTest, TakesThePackedSizeAsNetSizeWhateverTheConnectorAnswers) {
  connector->SetSendResult(1);
  EXPECT_EQ(0, Send());
  EXPECT_EQ(connector->sent().at(0).size(), request.net_size);
  EXPECT_EQ("connector->Send succeed. net_size:" + std::to_string(request.net_size) +
                " server_url:" + kUrl,
            logger.LinesFrom("InnerSendRequest").back().text);
}

TEST_F(SendRequestTest, RemembersTheProxyOnlyAfterItTookTheRequest) {
  connector->SetSendResult(0);
  EXPECT_EQ(kSendBufferFull, Send());
  EXPECT_EQ(nullptr, router->GetUsedProxyUrl());
  connector->SetSendResult(10);
  EXPECT_EQ(0, Send());
  EXPECT_STREQ(kUrl, router->GetUsedProxyUrl());
  connector->SetSendResult(-1);
  EXPECT_EQ(-1, Send());
  other_connector->SetSendResult(-1);
  SetRing(other_proxy);
  EXPECT_EQ(-1, Send());
  EXPECT_STREQ(kUrl, router->GetUsedProxyUrl()) << "the last that took one";
  other_connector->SetSendResult(1);
  EXPECT_EQ(0, Send());
  EXPECT_STREQ(kOtherUrl, router->GetUsedProxyUrl());
}

TEST_F(SendRequestTest, RemembersTheLongestUrl) {
  const std::string longest = "tcp://" + std::string(1017, 'h');
  ASSERT_EQ(1023U, longest.size());
  SetRing(AddReadyProxy(peer->m_using_servers(), longest));
  EXPECT_EQ(0, Send());
  EXPECT_EQ(longest, router->GetUsedProxyUrl());
  EXPECT_EQ('\0', peer->m_used_proxy_url()[1023]);
  SetRing(proxy);
  EXPECT_EQ(0, Send());
  EXPECT_STREQ(kUrl, router->GetUsedProxyUrl());
}

TEST_F(SendRequestTest, WritesTheLineOfSuccessBeforeItCounts) {
  bool seen = false;
  logger.OnLine([&](const LogLine& line) {
    if (line.text.rfind("connector->Send succeed.", 0) == 0) {
      seen = true;
      EXPECT_NE(kUntouched, request.net_size);
      EXPECT_EQ(Counters(), Counted());
      EXPECT_EQ(nullptr, router->GetUsedProxyUrl());
    }
  });
  EXPECT_EQ(0, Send());
  EXPECT_TRUE(seen);
}

// --- What can fail ---

TEST_F(SendRequestTest, AnswersTheCodeOfPacking) {
  request.SetPackResult(-1555);
  bool counted = false;
  logger.OnLine([&](const LogLine& line) {
    counted = counted || (line.level == OSTRAND_LOG_LEVEL_ERROR && first_qos.iPackErrorCount == 1 &&
                          statistic->stOverallRunStatus.dwPackErrNumPerMin == 1);
  });
  EXPECT_EQ(-1555, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerSendRequest",
                    "request->Pack failed. ret:-1555 size:65536"}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_TRUE(counted) << "before the line";
  EXPECT_TRUE(connector->sent().empty());
  EXPECT_EQ(1U, latency.live_count()) << "it ends by time-out";
  EXPECT_EQ(kUntouched, request.net_size);
}

TEST_F(SendRequestTest, AnswersTheCodeOfARequestThatDoesNotFitThePackBuffer) {
  peer->m_pack_buffer_size() = 40;
  logger.SetThreshold(OSTRAND_LOG_LEVEL_ERROR);
  const int32_t result = Send();
  EXPECT_EQ(OSTRAND_CODEC_ERR_BUFFER_FULL, result);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerSendRequest",
                    "request->Pack failed. ret:" + std::to_string(result) + " size:40"}}),
            logger.Lines());
}

TEST_F(SendRequestTest, AnswersTheCodeOfTheConnector) {
  connector->SetLastErrDesc("broken pipe");
  connector->SetSendResult(-32);
  bool counted = false;
  logger.OnLine([&](const LogLine& line) {
    counted = counted || (line.level == OSTRAND_LOG_LEVEL_ERROR && first_qos.iSendErrorCount == 1 &&
                          statistic->stOverallRunStatus.dwReqErrNumPerMin == 1);
  });
  EXPECT_EQ(-32, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerSendRequest",
                    "connector->Send failed. ret:-32 msg:broken pipe net_size:" +
                        std::to_string(connector->sent().at(0).size()) + " server_url:" + kUrl}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_TRUE(counted) << "before the line";
  EXPECT_EQ(kUntouched, request.net_size);
  EXPECT_EQ(1U, latency.live_count()) << "it ends by time-out";
}

TEST_F(SendRequestTest, TellsThatTheSendBufferIsFullWithItsTwoBlanks) {
  connector->SetSendResult(0);
  bool counted = false;
  logger.OnLine([&](const LogLine& line) {
    counted = counted || (line.level == OSTRAND_LOG_LEVEL_ERROR &&
                          statistic->stOverallRunStatus.dwReqErrNumPerMin == 1);
  });
  EXPECT_EQ(kSendBufferFull, Send());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerSendRequest",
                    "connector->Send failed. the sending net buff is full,cannot send msg,  "
                    "net_size:" +
                        std::to_string(connector->sent().at(0).size()) + " server_url:" + kUrl}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_TRUE(counted) << "before the line";
  EXPECT_EQ(kUntouched, request.net_size);
  EXPECT_EQ(1U, latency.live_count()) << "it ends by time-out";
}

// A connector that can only be connected.
class MuteConnector : public CConnector {
 public:
  int Connect() override { return 0; }
  void Disconnect(int) override {}
  int GetStatus() const override { return STATUS_CONNECTED; }
  const char* GetURL() const override { return "tcp://10.0.0.7:7"; }
  int PeekPkg(const char*&, int&, void*) override { return 0; }
  void ConsumePkg() override {}
  void Recover(void*) override {}
  const char* GetLastErrDesc() override { return "cannot send"; }
};

TEST_F(SendRequestTest, TakesAConnectorThatCannotSendAsAFailure) {
  ASSERT_EQ(0, Send());
  const size_t size = connector->sent().at(0).size();
  MuteConnector mute;
  ProxyServer record;
  record.connector = &mute;
  EXPECT_EQ(-1, peer->InnerSendRequest(&record, &request));
  EXPECT_EQ(0, latency.GetLatencyData(1)->ip) << "nor does it know its address";
  EXPECT_EQ(0, latency.GetLatencyData(1)->port);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "InnerSendRequest",
                    "connector->Send failed. ret:-1 msg:cannot send net_size:" +
                        std::to_string(size) + " server_url:tcp://10.0.0.7:7"}}),
            logger.LinesOf(OSTRAND_LOG_LEVEL_ERROR));
}

// Takes whatever it is sent, under an address that no list would have taken.
class FarConnector : public MuteConnector {
 public:
  const char* GetURL() const override { return m_url.c_str(); }
  int SendToQ(const char*, unsigned int, void*) override { return 1; }

 private:
  const std::string m_url = "tcp://" + UserBytes(1494);
};

TEST_F(SendRequestTest, RemembersAsMuchOfAUrlAsThereIsRoomFor) {
  FarConnector far;
  ProxyServer record;
  record.connector = &far;
  std::memset(peer->m_used_proxy_url(), 'x', sizeof(peer->m_used_proxy_url()));
  EXPECT_EQ(0, peer->InnerSendRequest(&record, &request));
  EXPECT_EQ("tcp://" + UserBytes(1017), router->GetUsedProxyUrl());
  EXPECT_EQ('\0', peer->m_used_proxy_url()[1023]);
}

TEST_F(SendRequestTest, SendsNothingWithoutTheContextThatMustBe) {
  latency.SetPushBackResult(-77);
  request.SetCmd(OSTRAND_API_GET_BY_PARTKEY_REQ);
  EXPECT_EQ(-77, Send());
  EXPECT_TRUE(connector->sent().empty());
  EXPECT_EQ(Texts(), journal.Entries()) << "neither printed nor packed";
  EXPECT_EQ(Counters(), Counted());
  EXPECT_EQ(Counters(), OstrandFakes::NonZeroCounters(first_qos));
}

// --- Cost ---

TEST_F(SendRequestTest, AllocatesNothingOnceWarm) {
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  router->SetPerfSampPercent(50);
  request.SetUserBytes(UserBytes(100));
  EXPECT_EQ(0, router->SendRequest(&request));
  const AllocationFaults faults;
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, router->SendRequest(&request));
  }
  EXPECT_EQ(0, faults.count());
}

}  // namespace
}  // namespace OstrandService
