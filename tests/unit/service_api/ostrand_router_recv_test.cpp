// Taking the next answer: time-outs first, then the proxies of two lists, one package a call.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/lock_probe.h"
#include "unit/service_api/router_recv_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::FakeResponse;
using OstrandFakes::IsHeld;
using OstrandFakes::NonZeroCounters;
using OstrandFakes::ScriptedConnector;
using OSTRNET::CConnector;

using Texts = std::vector<std::string>;

constexpr int kNotInitialised = -4371;
constexpr int kBadArgument = -1811;
constexpr int kUndeliverable = -12563;

class RecvResponseTest : public RouterRecvTest {
 protected:
  static constexpr char kRemovingUrl[] = "tcp://10.0.0.3:8003";
  static constexpr char kPreparingUrl[] = "tcp://10.0.0.4:8004";

  RecvResponseTest() {
    AddReadyProxy(peer->m_removing_servers(), kRemovingUrl);
    AddReadyProxy(peer->m_preparing_servers(), kPreparingUrl);
    removing = &mgr.At(kRemovingUrl);
    preparing = &mgr.At(kPreparingUrl);
    StartOver();
  }
  static std::string FrameFor(int32_t seq) {
    Answer answer;
    answer.seq = seq;
    return FrameOf(answer);
  }
  // The sequence of the next answer; 0 when there is none.
  int32_t Next() {
    const int32_t result = Recv();
    EXPECT_TRUE(result == 0 || result == 1) << result;
    return result == 1 ? response.GetSequence() : 0;
  }

  ScriptedConnector* removing;
  ScriptedConnector* preparing;
};

// --- What is refused ---

TEST_F(RecvResponseTest, RefusesBeforeInitSucceeded) {
  InFlight(7);
  clock.AdvanceMs(kTimeoutMs + 1);
  router->Fini();
  EXPECT_EQ(kNotInitialised, Recv());
  EXPECT_EQ(kNotInitialised, router->RecvResponse(nullptr, nullptr));
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(1U, latency.live_count());
}

TEST_F(RecvResponseTest, RefusesNoResponse) {
  InFlight(7);
  clock.AdvanceMs(kTimeoutMs + 1);
  connector->QueueFrame(FrameFor(1));
  StartOver();
  EXPECT_EQ(kBadArgument, router->RecvResponse(nullptr, nullptr));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "RecvResponse", "RecvResponse failed. response:0(NULL)"}}),
      logger.Lines());
  EXPECT_EQ(1U, latency.live_count());
  EXPECT_EQ(1U, connector->queued_frames());
}

// --- Time-outs ---

TEST_F(RecvResponseTest, TurnsAnExpiredRequestIntoAnAnswer) {
  latency.PushBack(kZoneId + 1, kNow, kTimeoutMs, kIp, kPort, 25, 2, "lists", 0x1122334455667788,
                   -4, "kept\0bytes", 10);
  latency.GetLatencyData(0)->next_sub_pkg_seq = 3;
  connector->QueueFrame(FrameFor(1));
  clock.AdvanceMs(kTimeoutMs);
  EXPECT_EQ(1, Next()) << "not over yet";
  connector->QueueFrame(FrameFor(2));
  clock.AdvanceMs(1);
  EXPECT_EQ(1, Recv());
  ASSERT_EQ(1U, response.time_outs().size());
  const FakeResponse::TimeOut& told = response.time_outs()[0];
  EXPECT_EQ(kAppId, told.app_id);
  EXPECT_EQ(kZoneId, told.zone_id) << "the router's";
  EXPECT_EQ("lists", told.table_name);
  EXPECT_EQ(26U, told.resp_cmd);
  EXPECT_EQ(std::string("kept\0bytes", 10), told.user_buffer);
  EXPECT_EQ(10U, told.user_buffer_len);
  EXPECT_EQ(0x1122334455667788U, told.async_id);
  EXPECT_EQ(-4, told.seq);
  EXPECT_EQ(Texts({"BuildTimeOutRes", "FreeLatencyData 0"}), journal.Entries());
  EXPECT_EQ(1U, connector->queued_frames()) << "no proxy was asked";
  EXPECT_EQ(&statistics, latency.statistic_mgr());
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(0U, latency.live_count());
  EXPECT_EQ(2, Next());
}

TEST_F(RecvResponseTest, TellsOneTimeOutACallTheEarliestFirst) {
  latency.PushBack(kZoneId, kNow, 300, 0, 0, 7, 2, kTable, 30, 0, nullptr, 0);
  latency.PushBack(kZoneId, kNow, 100, 0, 0, 1, 2, kTable, 10, 0, nullptr, 0);
  latency.PushBack(kZoneId, kNow, 200, 0, 0, 9, 2, kTable, 20, 0, nullptr, 0);
  latency.PushBack(kZoneId, kNow, 900, 0, 0, 9, 2, kTable, 90, 0, nullptr, 0);
  clock.AdvanceMs(301);
  for (const uint64_t expected : {10U, 20U, 30U}) {
    EXPECT_EQ(1, Recv());
    EXPECT_EQ(expected, response.GetAsynID());
  }
  EXPECT_EQ(0, Recv());
  EXPECT_EQ(1U, latency.live_count());
}

TEST_F(RecvResponseTest, GivesATimeOutNoUserBufferWhenNoneWasKept) {
  latency.PushBack(kZoneId, kNow, 100, 0, 0, 7, 2, kTable, 10, 0, nullptr, 500);
  clock.AdvanceMs(101);
  EXPECT_EQ(1, Recv());
  EXPECT_FALSE(response.time_outs().at(0).user_buffer.has_value());
  EXPECT_EQ("", response.UserBytes());
}

TEST_F(RecvResponseTest, CountsNoTimeOut) {
  statistics.SetDynamicErrorCode(-20499);
  InFlight(7);
  clock.AdvanceMs(kTimeoutMs + 1);
  EXPECT_EQ(1, Recv());
  EXPECT_EQ(-20499, response.GetResult());
  EXPECT_EQ(Counters(), Counted());
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
}

TEST_F(RecvResponseTest, FreesTheRequestAlsoWhenItsTimeOutCannotBeBuilt) {
  response.SetTimeOutResult(-9747);
  InFlight(7);
  clock.AdvanceMs(kTimeoutMs + 1);
  EXPECT_EQ(1, Recv());
  EXPECT_EQ(0U, latency.live_count());
}

// --- Which proxies are asked ---

TEST_F(RecvResponseTest, AsksTheRemovingListFirstThenTheUsingAndNeverThePreparing) {
  for (const int32_t round : {10, 20}) {
    preparing->QueueFrame(FrameFor(round + 1));
    connector->QueueFrame(FrameFor(round + 2));
    other_connector->QueueFrame(FrameFor(round + 3));
    removing->QueueFrame(FrameFor(round + 4));
  }
  for (const int32_t expected : {14, 24, 12, 22, 13, 23, 0}) {
    EXPECT_EQ(expected, Next());
  }
  EXPECT_EQ(2U, preparing->queued_frames());
  EXPECT_TRUE(preparing->peek_log_handles().empty());
}

TEST_F(RecvResponseTest, TakesOnePackageACall) {
  connector->QueueFrame(FrameFor(1));
  connector->QueueFrame(FrameFor(2));
  EXPECT_EQ(1, Next());
  EXPECT_EQ(1U, connector->queued_frames());
  EXPECT_TRUE(other_connector->peek_log_handles().empty()) << "nobody else is asked then";
  EXPECT_EQ(2, Next());
}

TEST_F(RecvResponseTest, AsksOnlyProxiesThatAreSignedUpAndConnected) {
  connector->QueueFrame(FrameFor(1));
  const struct {
    bool auth_succeed;
    int status;
    bool asked;
  } kCases[] = {{false, 2, false}, {true, 0, false},  {true, 1, false},
                {true, 3, false},  {true, -1, false}, {true, 2, true}};
  for (const auto& c : kCases) {
    proxy->auth_succeed = c.auth_succeed;
    connector->SetStatus(c.status);
    EXPECT_EQ(c.asked ? 1 : 0, Next()) << c.auth_succeed << ", status " << c.status;
  }
}

// Connectors that keep up the flag are not troubled while they have nothing.
TEST_F(RecvResponseTest, AsksOnlyProxiesThatMayHaveSomething) {
  ProxyServer* const other = peer->FindServerNode(peer->m_removing_servers(), kRemovingUrl)->server;
  EXPECT_TRUE(other->may_have_incoming) << "unless a connector says otherwise";
  removing->QueueFrame(FrameFor(1));
  other->may_have_incoming = false;
  EXPECT_EQ(0, Next());
  EXPECT_TRUE(removing->peek_log_handles().empty());
  other->may_have_incoming = true;
  EXPECT_EQ(1, Next());
}

TEST_F(RecvResponseTest, AsksProxiesThatGetNoMoreRequests) {
  proxy->is_available = false;
  proxy->last_auth_result = 1;
  connector->QueueFrame(FrameFor(1));
  EXPECT_EQ(1, Next());
}

TEST_F(RecvResponseTest, PassesOverElementsWithoutAProxy) {
  AddReadyProxy(peer->m_removing_servers(), "tcp://10.0.0.5:8005");
  RealServerNode* node = peer->FindServerNode(peer->m_removing_servers(), "tcp://10.0.0.5:8005");
  ProxyServer* record = node->server;
  node->server = nullptr;
  connector->QueueFrame(FrameFor(1));
  EXPECT_EQ(1, Next());
  node->server = record;
}

TEST_F(RecvResponseTest, PassesOverProxiesWithoutAConnector) {
  CConnector* const own = proxy->connector;
  proxy->connector = nullptr;
  other_connector->QueueFrame(FrameFor(1));
  EXPECT_EQ(1, Next());
  proxy->connector = own;
}

TEST_F(RecvResponseTest, AnswersWhetherAListHadOne) {
  other_connector->QueueFrame(FrameFor(1));
  EXPECT_EQ(0, peer->RecvResponseFromList(peer->m_removing_servers(), &response, nullptr));
  EXPECT_EQ(1, peer->RecvResponseFromList(peer->m_using_servers(), &response, nullptr));
  EXPECT_EQ(0, peer->RecvResponseFromList(peer->m_using_servers(), &response, nullptr));
}

TEST_F(RecvResponseTest, GoesOnWhenAProxyFails) {
  removing->PushPeekError(-5);
  connector->QueueFrame("no frame");
  other_connector->QueueFrame(FrameFor(3));
  EXPECT_EQ(3, Next());
  EXPECT_EQ(0U, connector->queued_frames());
}

TEST_F(RecvResponseTest, TellsNobodyOfAFailureButTheLog) {
  connector->PushPeekError(-5);
  EXPECT_EQ(0, Recv());
  connector->QueueFrame("no frame");
  EXPECT_EQ(0, Recv());
  Queue(AnswerOf(kListGetAllRes, 0, Context(kUnknownId, kSubscript), 1));
  EXPECT_EQ(0, Recv());
  EXPECT_EQ(kListGetAllRes, response.GetCmd()) << "which the response may hold";
}

TEST_F(RecvResponseTest, HoldsTheListsWhileItAsks) {
  std::vector<bool> held;
  response.OnUnpack([&](int) { held.push_back(IsHeld(peer->m_mutex_list())); });
  response.OnTimeOut([&] { held.push_back(IsHeld(peer->m_mutex_list())); });
  removing->QueueFrame(FrameFor(1));
  connector->QueueFrame(FrameFor(2));
  EXPECT_EQ(1, Next());
  EXPECT_FALSE(IsHeld(peer->m_mutex_list()));
  EXPECT_EQ(2, Next());
  EXPECT_FALSE(IsHeld(peer->m_mutex_list()));
  EXPECT_EQ(0, Next());
  EXPECT_FALSE(IsHeld(peer->m_mutex_list()));
  InFlight(7);
  clock.AdvanceMs(kTimeoutMs + 1);
  EXPECT_EQ(1, Recv());
  EXPECT_EQ(std::vector<bool>({true, true, false}), held) << "a time-out needs no list";
}

// --- A frame that cannot be delivered ---

TEST_F(RecvResponseTest, LetsAConnectorRecover) {
  connector->PushPeekError(kUndeliverable);
  connector->QueueFrame("stuck");
  connector->QueueFrame(FrameFor(1));
  other_connector->QueueFrame(FrameFor(2));
  EXPECT_EQ(2, Next()) << "the walk goes on";
  EXPECT_EQ(Texts({std::string("Recover ") + kUrl, "Unpack"}), journal.Entries());
  EXPECT_EQ(std::vector<void*>({&logger}), connector->recover_log_handles());
  EXPECT_EQ(1, Next());
  EXPECT_EQ(1U, connector->recover_log_handles().size());
}

TEST_F(RecvResponseTest, LetsAConnectorRecoverWhateverStepGaveTheCode) {
  response.SetUnpackResult(kUndeliverable);
  connector->QueueFrame(FrameFor(1));
  EXPECT_EQ(0, Recv());
  EXPECT_EQ(1U, connector->recover_log_handles().size());
}

TEST_F(RecvResponseTest, LetsNoConnectorRecoverFromAnythingElse) {
  for (const int code : {-1, -12562, -12564, -12307, INT32_MIN}) {
    connector->PushPeekError(code);
    EXPECT_EQ(0, Recv());
  }
  EXPECT_TRUE(connector->recover_log_handles().empty());
}

TEST_F(RecvResponseTest, RecoversWithoutALogger) {
  peer->m_logger() = nullptr;
  connector->PushPeekError(kUndeliverable);
  EXPECT_EQ(0, Recv());
  EXPECT_EQ(std::vector<void*>({nullptr}), connector->recover_log_handles());
  EXPECT_EQ(std::vector<void*>({nullptr}), connector->peek_log_handles());
}

}  // namespace
}  // namespace OstrandService
