// Requests that are sent, wait, and end: each with one outcome.
#include "client/client_core.h"

#include <set>

#include "service_api/ostrand_router.h"
#include "unit/client/client_core_test.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: codes
constexpr int32_t kTimeOut = ClientResponse::kResultTimeOut;

TEST_F(ClientCoreTest, SendsAndHandsOutTheAnswer) {
  StartBoth();
  ClientRequest insert;
  insert.Insert("user").Key("id", "ada").Set("name", "Ada").SetSequence(11).SetUserBuff("mine");
  ASSERT_EQ(Send(insert), 0);
  const uint64_t id = m_id;
  EXPECT_EQ(m_core->InFlight(), 1u);
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), id);
  EXPECT_EQ(m_response.GetResult(), 0);
  EXPECT_EQ(m_response.GetSequence(), 11);
  EXPECT_EQ(m_response.GetUserBuff(), "mine");
  ASSERT_EQ(Send(GetRequest("ada")), 0);
  EXPECT_NE(m_id, id);
  ASSERT_TRUE(TakeLater());
  std::string name;
  FieldView field;
  ASSERT_TRUE(m_response.GetValue("name", field));
  ExpectNoOutcome();
  ExpectNothingLeft();
}

// --- Waiting ---

TEST_F(ClientCoreTest, LetsARequestWaitUntilAProxyCanTakeIt) {
  StartFleet(1);
  StartCore();
  ASSERT_EQ(Send(GetRequest()), 0) << "accepted before anybody is there";
  EXPECT_EQ(ZoneOne().waiting_count, 1u);
  EXPECT_EQ(ZoneOne().store.count(), 1u);
  ASSERT_TRUE(TakeLater());
  EXPECT_EQ(m_response.GetAsynID(), m_id);
  EXPECT_NE(m_response.GetResult(), kTimeOut);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, SendsWhatWaitedInTheOrderInWhichItCame) {
  StartFleet(1);
  StartCore();
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(Send(GetRequest().SetSequence(i)), 0);
  }
  EXPECT_EQ(ZoneOne().waiting_count, 50u);
  ASSERT_TRUE(FleetHas(50));
  int32_t expected = 0;
  for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
    if (request.table == "user" && request.cmd == ostrand_protocol_cs::OSTRAND_API_GET_REQ) {
      EXPECT_EQ(request.seq, expected++);
    }
  }
  EXPECT_EQ(expected, 50);
}

TEST_F(ClientCoreTest, EndsWhatWaitedInVainWithTheReason) {
  StartCore();  // no directory answers
  ASSERT_EQ(Send(GetRequest().SetTimeout(500)), 0);
  Pass(500);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(m_id, CLIENT_ERR_DIRECTORY);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, SaysThatNoProxyTookTheSignUp) {
  StartFleet(1);
  SetFaults(0, [](auto& faults) { faults.ignore_sign_up = true; });
  StartCore();
  ASSERT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).sign_ups > 0; }));
  ASSERT_EQ(Send(GetRequest().SetTimeout(500)), 0);
  Pass(501);
  ExpectOutcome(m_id, CLIENT_ERR_NOT_READY);
}

TEST_F(ClientCoreTest, SaysWhyTheSignUpWasRefused) {
  StartFleet(1);
  SetFaults(0, [](auto& faults) { faults.refuse_sign_up = -4711; });
  StartCore();
  ASSERT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).answers > 0; }));
  Pass(300);
  ASSERT_EQ(Send(GetRequest().SetTimeout(500)), 0);
  Pass(501);
  ASSERT_TRUE(Take());
  EXPECT_LT(m_response.GetResult(), -1);
  EXPECT_NE(m_response.GetResult(), int32_t{CLIENT_ERR_NOT_READY});
  EXPECT_NE(m_response.GetResult(), kTimeOut);
}

TEST_F(ClientCoreTest, SaysThatThereIsNoRouteWhenAllProxiesAreGone) {
  StartBoth();
  m_fleet->Kill(0);
  ASSERT_TRUE(RoundUntil([&] {
    return ZoneOne().connectors->Connectors()[0]->GetStatus() != TcpConnector::STATUS_CONNECTED;
  }));
  ASSERT_EQ(Send(GetRequest().SetTimeout(500)), 0);
  Pass(501);
  ExpectOutcome(m_id, ROUTER_ERR_NO_ROUTE);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, SendsWhatWaitsWhenTheProxyIsBack) {
  StartBoth();
  m_fleet->Kill(0);
  ASSERT_TRUE(RoundUntil([&] {
    return ZoneOne().connectors->Connectors()[0]->GetStatus() != TcpConnector::STATUS_CONNECTED;
  }));
  ASSERT_EQ(Send(GetRequest().SetTimeout(60000)), 0);
  ASSERT_EQ(m_fleet->Restart(0), 0);
  for (int i = 0; i < 200 && !Take(); ++i) {
    Pass(100);
  }
  EXPECT_EQ(m_response.GetAsynID(), m_id);
  ExpectNothingLeft();
}

// --- Bounds ---

TEST_F(ClientCoreTest, RefusesMoreRequestsThanMayWait) {
  m_options.max_waiting = 2;
  StartCore();
  EXPECT_EQ(Send(GetRequest()), 0);
  EXPECT_EQ(Send(GetRequest()), 0);
  EXPECT_EQ(Send(GetRequest()), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_core->InFlight(), 2u);
  EXPECT_EQ(ZoneOne().store.count(), 2u);
  ASSERT_TRUE(m_core->Cancel(m_id));
  EXPECT_EQ(Send(GetRequest()), 0);
}

TEST_F(ClientCoreTest, RefusesMoreRequestsThanMayBeInFlight) {
  m_options.max_in_flight = 2;
  StartBoth();
  DropAnswers(0);
  EXPECT_EQ(Send(GetRequest()), 0);
  EXPECT_EQ(Send(GetRequest()), 0);
  EXPECT_EQ(Send(GetRequest()), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_core->InFlight(), 2u);
  EXPECT_EQ(m_core->Counters().accepted, 2u);
}

TEST_F(ClientCoreTest, RefusesMoreBytesThanMayBeKept) {
  ClientRequest probe = GetRequest();
  ASSERT_EQ(TableCatalog(m_options).Prepare(probe), 0);
  const size_t each = probe.Head().BytesLen();
  m_options.max_kept_bytes = 3 * each - 1;
  StartBoth();
  DropAnswers(0);
  EXPECT_EQ(Send(GetRequest().SetRepeat(1)), 0);
  EXPECT_EQ(Send(GetRequest().SetRepeat(1)), 0);
  EXPECT_EQ(Send(GetRequest().SetRepeat(1)), CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(ZoneOne().store.bytes(), 2 * each);
  EXPECT_EQ(Send(GetRequest()), 0) << "what is sent at once and not repeated is not kept";
  EXPECT_EQ(ZoneOne().store.count(), 2u);
}

TEST_F(ClientCoreTest, RefusesWhatIsLargerThanAnyConnectionHasRoomFor) {
  m_options.buffer_limit = 64 * 1024;
  StartCore();
  ClientRequest request;
  request.Insert("user").Key("id", "large").Set("text", std::string(48 * 1024, 'x'));
  EXPECT_EQ(Send(request), CLIENT_ERR_TOO_LARGE);
  request.Insert("user").Key("id", "large").Set("text", std::string(46 * 1024, 'x'));
  EXPECT_EQ(Send(request), 0);
}

// --- Time-outs ---

TEST_F(ClientCoreTest, TimesARequestWithoutAnswerOutAfterItsTimeAndNotBefore) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest().SetTimeout(700).SetUserBuff("mine")), 0);
  Pass(700);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(m_id, kTimeOut);
  EXPECT_EQ(m_response.GetCmd(), uint32_t{ostrand_protocol_cs::OSTRAND_API_GET_RES});
  EXPECT_EQ(m_core->Counters().timed_out, 1u);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, HasTheOptionsTimeOutForRequestsThatNameNone) {
  m_options.default_timeout_ms = 400;
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest()), 0);
  Pass(400);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(m_id, kTimeOut);
}

// The owner did something else for long, and then sends: the time of that request begins now.
TEST_F(ClientCoreTest, BeginsARequestsTimeWhenItIsSentHoweverLongNobodyLookedAtTheClock) {
  StartBoth();
  DropAnswers(0);
  m_system.AdvanceMs(10000);
  ASSERT_EQ(Send(GetRequest().SetTimeout(3000)), 0);
  ExpectNoOutcome();
  m_core->LookAfterOwner();
  Round();
  ExpectNoOutcome();
  Pass(3000);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(m_id, kTimeOut);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, BeginsTheTimeOfManyRequestsWhenTheyLeave) {
  StartBoth();
  DropAnswers(0);
  m_system.AdvanceMs(10000);
  constexpr int kMany = 300;
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(Send(GetRequest().SetTimeout(3000)), 0);
  }
  m_core->LookAfterOwner();
  Round();
  ExpectNoOutcome();
  Pass(3000);
  ExpectNoOutcome();
  Pass(1);
  for (int i = 0; i < kMany; ++i) {
    ASSERT_TRUE(Take());
  }
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, BeginsTheTimeAnewAfterAFlushToo) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest().SetTimeout(3000)), 0);
  m_system.AdvanceMs(900);
  ASSERT_EQ(Send(GetRequest().SetTimeout(3000)), 0);
  const uint64_t second = m_id;
  m_core->Flush();
  Pass(2101);  // 3001 ms since the first, 2101 since the second
  ASSERT_TRUE(Take());
  EXPECT_NE(m_response.GetAsynID(), second);
  Pass(899);
  ExpectNoOutcome();
  Pass(1);
  ExpectOutcome(second, kTimeOut);
}

// The router has no record of these; nobody but the core times them.
TEST_F(ClientCoreTest, TimesRequestsWithoutARecordInTheRouterOutInTime) {
  StartBoth();
  SetFaults(0, [](auto& faults) {
    faults.scope = OstrandFleet::AnswerScope::kTable;
    faults.drop_every = 2;  // the others are answered
  });
  std::set<uint64_t> ids;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(Send(GetRequest().SetTimeout(1000).SetUserBuff(std::string(1024, 'u'))), 0);
    ids.insert(m_id);
  }
  EXPECT_EQ(ZoneOne().latency->InFlight(), 0u) << "no room for a context";
  ASSERT_TRUE(RoundUntil([&] {
    while (Take()) {
      EXPECT_NE(m_response.GetResult(), kTimeOut);
      ids.erase(m_response.GetAsynID());
    }
    return ids.size() == 10;
  }));
  // While others are answered all the time.
  for (int i = 0; i < 10; ++i) {
    SetFaults(0, [](auto& faults) { faults.drop_every = 0; });
    ASSERT_EQ(Send(GetRequest()), 0);
    ASSERT_TRUE(TakeLater());
    EXPECT_EQ(m_response.GetAsynID(), m_id);
    Pass(100);
  }
  ExpectNoOutcome();
  Pass(1);
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(Take());
    EXPECT_EQ(m_response.GetResult(), kTimeOut);
    EXPECT_EQ(ids.erase(m_response.GetAsynID()), 1u);
  }
  ExpectNothingLeft();
}

// --- Several packages ---

// A table of lists, in which one has five elements; answers have two a package.
class ClientCoreListsTest : public ClientCoreTest {
 protected:
  void StartLists() {
    OstrandFleet::FleetOptions fleet;
    fleet.records_per_package = 2;
    OstrandFleet::TableSetup setup;
    setup.schema.name = "user";
    setup.schema.key_fields = {{"id", VexFieldType::kString, 32, 0}};
    setup.schema.value_fields = {{"name", VexFieldType::kString, 64, 0}};
    setup.kind = OstrandFleet::TableKind::kLists;
    fleet.tables = {setup};
    StartFleet(fleet);
    StartCore();
    ASSERT_TRUE(BecomesReady());
    for (int i = 0; i < 5; ++i) {
      ClientRequest insert;
      insert.ListInsert("user").Key("id", "l").Element(-1).Set("name", "n");
      ASSERT_EQ(Send(insert), 0);
      ASSERT_TRUE(TakeLater());
      ASSERT_EQ(m_response.GetResult(), 0);
    }
  }
  static ClientRequest All() {
    ClientRequest request;
    request.ListGetAll("user").Key("id", "l").SetTimeout(1000);
    return request;
  }
};

TEST_F(ClientCoreListsTest, HandsAnAnswerOutPackageByPackage) {
  StartLists();
  ASSERT_EQ(Send(All()), 0);
  for (int package = 0; package < 3; ++package) {
    ASSERT_TRUE(TakeLater());
    EXPECT_EQ(m_response.GetAsynID(), m_id);
    EXPECT_EQ(m_response.HaveMoreResPkgs(), package < 2 ? 1 : 0);
  }
  ExpectNothingLeft();
}

TEST_F(ClientCoreListsTest, GivesEachFurtherPackageTheRequestsWholeTime) {
  StartLists();
  SetFaults(0, [](auto& faults) {
    faults.drop_every = 2;  // the second package
  });
  ASSERT_EQ(Send(All()), 0);
  const auto is_first_there = [&] { return ZoneOne().connectors->FramesIn() > 5; };
  ASSERT_TRUE(RoundUntil(is_first_there));
  Pass(900);
  ASSERT_TRUE(Take());
  ASSERT_EQ(m_response.HaveMoreResPkgs(), 1);
  while (Take() && m_response.GetResult() == 0) {  // a third one may have come
  }
  if (m_core->InFlight() == 1) {
    Pass(1000);
    ExpectNoOutcome();
    Pass(1);
    ExpectOutcome(m_id, kTimeOut);
  }
  ExpectNothingLeft();
}

TEST_F(ClientCoreListsTest, EndsAnAnswerThatNeverEndsWithItsConnection) {
  StartLists();
  SetFaults(0, [](auto& faults) { faults.answer = OstrandFleet::AnswerFault::kEndlessMore; });
  ASSERT_EQ(Send(All()), 0);
  ASSERT_TRUE(TakeLater());
  ASSERT_EQ(m_response.HaveMoreResPkgs(), 1);
  m_fleet->Kill(0);
  ASSERT_TRUE(RoundUntil([&] {
    while (Take() && m_response.HaveMoreResPkgs() == 1) {
    }
    return m_core->InFlight() == 0;
  }));
  EXPECT_EQ(m_response.GetResult(), int32_t{CLIENT_ERR_CONNECTION_LOST});
  ExpectNothingLeft();
}

// --- Giving up ---

TEST_F(ClientCoreTest, CancelsWhatIsInFlightWaitsOrHasEnded) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest()), 0);
  const uint64_t in_flight = m_id;
  EXPECT_TRUE(m_core->Cancel(in_flight));
  EXPECT_FALSE(m_core->Cancel(in_flight));
  ASSERT_EQ(Send(GetRequest()), 0);
  m_core->EndAll(-1234);
  EXPECT_TRUE(m_core->Cancel(m_id));
  m_fleet->Kill(0);
  ASSERT_TRUE(RoundUntil([&] {
    return ZoneOne().connectors->Connectors()[0]->GetStatus() != TcpConnector::STATUS_CONNECTED;
  }));
  ASSERT_EQ(Send(GetRequest().SetRepeat(3)), 0);
  EXPECT_EQ(ZoneOne().waiting_count, 1u);
  EXPECT_TRUE(m_core->Cancel(m_id));
  EXPECT_FALSE(m_core->Cancel(0));
  EXPECT_FALSE(m_core->Cancel(UINT64_MAX));
  ExpectNoOutcome();
  EXPECT_EQ(m_core->Counters().cancelled, 3u);
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, DropsTheAnswerOfACancelledRequest) {
  StartBoth();
  SetFaults(0, [](auto& faults) { faults.delay_ms = 20; });
  ASSERT_EQ(Send(GetRequest()), 0);
  ASSERT_TRUE(m_core->Cancel(m_id));
  ASSERT_TRUE(RoundUntil([&] {
    EXPECT_FALSE(Take());
    return m_core->Counters().dropped == 1;
  }));
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, EndsAllWithOneResult) {
  StartFleet(1);
  StartCore();
  ASSERT_EQ(Send(GetRequest()), 0);  // waits
  m_core->EndAll(-1234);
  m_core->EndAll(-5678);
  ExpectOutcome(m_id, -1234);
  ExpectNoOutcome();
  ExpectNothingLeft();
}

TEST_F(ClientCoreTest, LeavesNothingWhenItDiesWithRequestsInEveryState) {
  StartBoth();
  DropAnswers(0);
  ASSERT_EQ(Send(GetRequest()), 0);
  ASSERT_EQ(Send(GetRequest().SetRepeat(2)), 0);
  m_core->EndAll(-1);
  ASSERT_EQ(Send(GetRequest()), 0);
  m_fleet->Kill(0);
  ASSERT_TRUE(RoundUntil([&] { return m_core->Counters().accepted == 3; }));
  m_scope.reset();
  m_core.reset();  // the address sanitizer looks at what is left
}

}  // namespace
}  // namespace OstrandTests
