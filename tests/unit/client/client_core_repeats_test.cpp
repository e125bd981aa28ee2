// Requests whose connection is lost, and those that may be sent again.
#include <set>

#include "client/client_core.h"
#include "service_api/ostrand_router.h"
#include "unit/client/client_core_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: codes
constexpr int32_t kTimeOut = ClientResponse::kResultTimeOut;

class ClientCoreRepeatsTest : public ClientCoreTest {
 protected:
  // The ids under which the fleet saw the requests of table "user".
  std::vector<uint64_t> WireIds() {
    std::vector<uint64_t> ids;
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.table == "user") {
        ids.push_back(request.asyn_id);
      }
    }
    return ids;
  }
  TcpConnector& Connector() { return *ZoneOne().connectors->Connectors()[0]; }
  bool IsLost() {
    return RoundUntil([&] { return Connector().GetStatus() != TcpConnector::STATUS_CONNECTED; });
  }
  // Requests and time pass until the proxy is signed up with again.
  bool IsBack() {
    for (int i = 0; i < 100 && !m_core->GetService().CanRoute(ZoneOne()); ++i) {
      Pass(100);
    }
    return m_core->GetService().CanRoute(ZoneOne());
  }
};

TEST_F(ClientCoreRepeatsTest, EndsWhatIsInFlightAtOnceWhenItsConnectionIsLost) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest()), 0);
  ASSERT_TRUE(FleetHas(1));
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), m_id);
  EXPECT_EQ(m_response.GetResult(), int32_t{CLIENT_ERR_CONNECTION_LOST});
  EXPECT_EQ(m_core->Counters().lost, 1u);
  ExpectNothingLeft();
}

TEST_F(ClientCoreRepeatsTest, KeepsRequestsWhoseWholeAnswerIsInTheQueueForTheirAnswer) {
  StartBoth();
  ASSERT_EQ(Send(GetRequest()), 0);
  const uint64_t answered = m_id;
  ASSERT_TRUE(RoundUntil([&] { return ZoneOne().connectors->FramesIn() == 1; }));
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest()), 0);
  const uint64_t lost = m_id;
  ASSERT_TRUE(FleetHas(2));
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(IsLost());
  ExpectOutcome(lost, CLIENT_ERR_CONNECTION_LOST);
  ExpectNoOutcome();
  EXPECT_EQ(m_core->InFlight(), 1u);
  ASSERT_TRUE(IsBack());
  ASSERT_TRUE(Take());
  EXPECT_EQ(m_response.GetAsynID(), answered);
  EXPECT_NE(m_response.GetResult(), kTimeOut);
  ExpectNothingLeft();
}

TEST_F(ClientCoreRepeatsTest, TimesARequestOutWhoseAnswerIsInTheQueueOfAProxyThatDoesNotComeBack) {
  StartBoth();
  ASSERT_EQ(Send(GetRequest().SetTimeout(1000).SetUserBuff(std::string(1024, 'u'))), 0);
  ASSERT_TRUE(RoundUntil([&] { return ZoneOne().connectors->FramesIn() == 1; }));
  m_fleet->Kill(0);
  ASSERT_TRUE(IsLost());
  Pass(1000);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(m_id, kTimeOut);
  ExpectNothingLeft();
}

TEST_F(ClientCoreRepeatsTest, SendsAgainWhatMayBeSentAgainWhenTheConnectionIsLost) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest().SetRepeat(2).SetTimeout(60000)), 0);
  const uint64_t id = m_id;
  ASSERT_TRUE(FleetHas(1));
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(IsLost());
  EXPECT_EQ(ZoneOne().waiting_count, 1u);
  SetFaults(0, [](auto& faults) { faults.drop_every = 0; });
  ASSERT_TRUE(IsBack());
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), id) << "the application's id";
  const std::vector<uint64_t> wire_ids = WireIds();
  ASSERT_EQ(wire_ids.size(), 2u);
  EXPECT_EQ(wire_ids[0], id);
  EXPECT_NE(wire_ids[1], id) << "each try has its own";
  EXPECT_EQ(m_core->Counters().repeated, 1u);
  ExpectNothingLeft();
}

TEST_F(ClientCoreRepeatsTest, DoesNotSendAWriteAgainUnlessItIsAskedTo) {
  StartBoth();
  DropAnswers(0);
  ClientRequest insert;
  insert.Insert("user").Key("id", "x").Set("name", "n").SetRepeat(2);
  ASSERT_EQ(Send(insert), 0);
  const uint64_t once = m_id;
  insert.SetRepeat(2, true);
  ASSERT_EQ(Send(insert), 0);
  ASSERT_TRUE(FleetHas(2));
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), once);
  ExpectNoOutcome();
  EXPECT_EQ(ZoneOne().waiting_count, 1u);
}

TEST_F(ClientCoreRepeatsTest, DividesTheTimeAmongItsTries) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest().SetRepeat(2).SetTimeout(900)), 0);
  const int64_t kEnds[] = {300, 600, 900};  // a try ends a millisecond after its last one
  int64_t now_ms = 0;
  for (uint64_t tries = 1; tries <= 3; ++tries) {
    const int64_t end_ms = kEnds[tries - 1];
    ASSERT_TRUE(FleetHas(tries));
    Pass(end_ms - now_ms, 50);
    ExpectNoOutcome();
    Round();
    EXPECT_EQ(m_fleet->Counters(0).table_requests, tries);
    Pass(1);
    EXPECT_EQ(Take(), tries == 3);
    Round();
    now_ms = end_ms + 1;
  }
  EXPECT_EQ(m_outcomes.size(), 1u);
  EXPECT_EQ(m_outcomes.at(0).id, m_id);
  EXPECT_EQ(m_outcomes.at(0).result, kTimeOut);
  EXPECT_EQ(m_core->Counters().repeated, 2u);
  const std::vector<uint64_t> wire_ids = WireIds();
  EXPECT_EQ(std::set<uint64_t>(wire_ids.begin(), wire_ids.end()).size(), 3u);
  ExpectNothingLeft();
}

TEST_F(ClientCoreRepeatsTest, DropsTheAnswersOfOlderTries) {
  StartBoth();
  SetFaults(0, [](auto& faults) { faults.delay_ms = 30; });
  ASSERT_EQ(Send(GetRequest().SetRepeat(1).SetTimeout(2000)), 0);
  ASSERT_TRUE(FleetHas(1));
  Pass(1001);  // the first try's time is over before its answer comes
  ExpectNoOutcome();
  Round();
  ASSERT_TRUE(FleetHas(2));
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), m_id);
  EXPECT_NE(m_response.GetResult(), kTimeOut);
  EXPECT_EQ(m_core->Counters().dropped, 1u);
  ExpectNothingLeft();
}

// What was sent and is not known to have come to nothing must not look as if it was never sent.
TEST_F(ClientCoreRepeatsTest, CountsATryEachTimeAndKeepsTheRequestOnce) {
  StartBoth();
  DropAnswers(0);
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(Send(GetRequest().SetRepeat(3).SetTimeout(400)), 0);
  }
  EXPECT_EQ(ZoneOne().store.count(), 10u);
  for (int i = 0; i < 50 && m_core->InFlight() > 0; ++i) {
    Pass(20, 10);
    while (Take()) {
    }
    EXPECT_LE(ZoneOne().store.count(), 10u);
  }
  EXPECT_EQ(m_outcomes.size(), 10u);
  EXPECT_EQ(m_core->Counters().repeated, 30u);
  ExpectNothingLeft();
}

// --- Room ---

class ClientCoreRoomTest : public ClientCoreRepeatsTest {
 protected:
  ClientCoreRoomTest() { m_options.buffer_limit = 64 * 1024; }

  static ClientRequest Large(const std::string& key) {
    ClientRequest request;
    request.Insert("user").Key("id", key).Set("text", std::string(20 * 1024, 'x'));
    return request.SetTimeout(60000);
  }
};

TEST_F(ClientCoreRoomTest, LetsRequestsWaitForRoomAndSendsThemWhenThereIsSome) {
  StartBoth();
  m_fleet->ClearRequests();
  constexpr int kMany = 40;
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(Send(Large(std::to_string(i)).SetSequence(i)), 0);
  }
  EXPECT_GT(ZoneOne().waiting_count, 30u);
  EXPECT_LE(Connector().GetSendBuffDataSize(), 48u * 1024);
  for (int i = 0; i < kMany; ++i) {
    ASSERT_TRUE(TakeLater()) << i;
    EXPECT_EQ(m_response.GetResult(), 0);
  }
  ExpectNothingLeft();
}

TEST_F(ClientCoreRoomTest, EndsWhatFindsNoRoomWithTheReason) {
  StartBoth();
  SetFaults(0, [](auto& faults) { faults.never_read = true; });
  int sent = 0;
  while (ZoneOne().waiting_count < 3) {
    ASSERT_EQ(Send(Large("x").SetTimeout(5000)), 0);
    ASSERT_LT(++sent, 10000);
    Round();
  }
  Pass(5001);
  int full = 0;
  while (Take()) {
    full += m_response.GetResult() == ROUTER_ERR_SEND_BUFFER_FULL ? 1 : 0;
  }
  EXPECT_EQ(full, 3);
  EXPECT_EQ(static_cast<int>(m_outcomes.size()), sent);
  ExpectNothingLeft();
}

// What one proxy has no room for does not keep back what goes to others when the route changes.
TEST_F(ClientCoreRoomTest, SendsWhatWaitedForOneProxysRoomWhenAnotherTakesItsPlace) {
  StartBoth();
  SetFaults(0, [](auto& faults) { faults.never_read = true; });
  for (int sent = 0; ZoneOne().waiting_count < 3; ++sent) {
    ASSERT_EQ(Send(Large("x").SetTimeout(50000)), 0);
    ASSERT_LT(sent, 10000);
    Round();
  }
  ASSERT_EQ(m_fleet->AddProxy(), 1);
  m_fleet->SetRoute(1, std::vector<std::string>{m_fleet->ProxyUrl(1)});
  for (int i = 0; i < 200 && ZoneOne().waiting_count > 0; ++i) {
    Pass(100);
  }
  EXPECT_EQ(ZoneOne().waiting_count, 0u);
  EXPECT_TRUE(FleetHas(3, 1));
}

// The sockets took all of it: the loop must not sleep first.
TEST_F(ClientCoreRoomTest, SendsWhatWaitsForRoomBeforeItSleeps) {
  StartBoth();
  DropAnswers(0);
  while (ZoneOne().waiting_count == 0) {
    ASSERT_EQ(Send(Large("x")), 0);
  }
  const size_t waiting = ZoneOne().waiting_count;
  m_core->Flush();
  ASSERT_EQ(Connector().GetSendBuffDataSize(), 0u);
  m_core->Round(m_core->Loop().NowMs() + 60000);
  EXPECT_EQ(m_system.LastWaitMs(), 0);
  EXPECT_LT(ZoneOne().waiting_count, waiting);
}

}  // namespace
}  // namespace OstrandTests
