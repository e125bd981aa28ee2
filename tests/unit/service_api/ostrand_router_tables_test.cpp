// The registry of the tables' QoS records, and entering the signed-up proxies into the statistics.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr int kZone = RouterFixture::kZoneId;
constexpr int kOtherZone = kZone + 1;

// --- The record ---

#define EXPECT_AT(offset, name) EXPECT_EQ(size_t{offset}, offsetof(tagTableQos, name)) << #name

TEST(TableQos, HasItsFieldsPackedIn354Bytes) {
  EXPECT_EQ(354U, sizeof(tagTableQos));
  EXPECT_EQ(1U, alignof(tagTableQos));
  EXPECT_AT(0, szTableName);
  EXPECT_AT(32, iZoneID);
  EXPECT_AT(36, nAccessCount);
  EXPECT_AT(38, dwAccessErrCount);
  EXPECT_AT(42, dwQueryErrCount);
  EXPECT_AT(46, dwInsertErrCount);
  EXPECT_AT(50, dwUpdateErrCount);
  EXPECT_AT(54, dwReplaceErrCount);
  EXPECT_AT(58, dwDeleteErrCount);
  EXPECT_AT(62, iPackErrorCount);
  EXPECT_AT(66, iUnpackErrorCount);
  EXPECT_AT(70, iSendErrorCount);
  EXPECT_AT(74, iRecvErrorCount);
  EXPECT_AT(78, iRounteErrorCount);
  EXPECT_AT(82, iOtherErrorCount);
  EXPECT_AT(86, iLastError);
  EXPECT_AT(90, iMostError);
  EXPECT_AT(94, iExceptError);
  EXPECT_AT(98, szMemo);
}

// --- The registry ---

// A record whose name fills the field without a NUL when it has 32 characters or more.
tagTableQos QosOf(int zone_id, const std::string& name) {
  tagTableQos qos{};
  std::memcpy(qos.szTableName, name.data(), std::min(name.size(), sizeof(qos.szTableName)));
  qos.iZoneID = zone_id;
  return qos;
}

class TableQosTest : public testing::Test, public RouterFixture {
 protected:
  TableQosTest() {
    EXPECT_EQ(0, Init());
    logger.Clear();
  }

  // Takes the logger away: a repeated Init does nothing else.
  void TakeLogger() { EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)); }

  void FillUp() {
    for (int i = 0; i < 256; ++i) {
      many.push_back(std::make_unique<tagTableQos>(QosOf(kZone, "table" + std::to_string(i))));
      router->SetQos(many.back().get());
    }
    logger.Clear();
  }

  // The slots in use, and proof that the others are null.
  std::vector<tagTableQos*> Slots() {
    const int count = peer->m_table_qos_count();
    for (int i = count; i < 256; ++i) {
      EXPECT_EQ(nullptr, peer->m_table_qos()[i]) << i;
    }
    return {peer->m_table_qos(), peer->m_table_qos() + count};
  }

  tagTableQos user = QosOf(kZone, "user");
  tagTableQos item = QosOf(kZone, "item");
  tagTableQos guild = QosOf(kZone, "guild");
  std::vector<std::unique_ptr<tagTableQos>> many;
};

using SetQosTest = TableQosTest;

TEST_F(SetQosTest, KeepsThePointersInTheOrderOfRegistration) {
  router->SetQos(&user);
  router->SetQos(&item);
  router->SetQos(&guild);
  EXPECT_EQ(std::vector<tagTableQos*>({&user, &item, &guild}), Slots());
  EXPECT_EQ(
      Lines(
          {{OSTRAND_LOG_LEVEL_DEBUG, "SetQos", "add m_table_qos index:0 zoneid:5 table_name:user"},
           {OSTRAND_LOG_LEVEL_DEBUG, "SetQos", "add m_table_qos index:1 zoneid:5 table_name:item"},
           {OSTRAND_LOG_LEVEL_DEBUG, "SetQos",
            "add m_table_qos index:2 zoneid:5 table_name:guild"}}),
      logger.Lines());
}

TEST_F(SetQosTest, KeepsTheFirstOfTwoRecordsOfATableSilently) {
  router->SetQos(&user);
  logger.Clear();
  tagTableQos second = QosOf(kZone, "user");
  router->SetQos(&second);
  router->SetQos(&user);
  EXPECT_EQ(std::vector<tagTableQos*>({&user}), Slots());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(SetQosTest, TakesOneNameInTwoZonesForTwoTables) {
  tagTableQos elsewhere = QosOf(kOtherZone, "user");
  router->SetQos(&user);
  router->SetQos(&elsewhere);
  EXPECT_EQ(std::vector<tagTableQos*>({&user, &elsewhere}), Slots());
  EXPECT_EQ(0, peer->FindTableQos(kZone, "user"));
  EXPECT_EQ(1, peer->FindTableQos(kOtherZone, "user"));
}

TEST_F(SetQosTest, RefusesThe257thTableWithoutACode) {
  FillUp();
  EXPECT_EQ(256, peer->m_table_qos_count());
  router->SetQos(&user);
  EXPECT_EQ(256, peer->m_table_qos_count());
  EXPECT_EQ(many[255].get(), peer->m_table_qos()[255]);
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "user"));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SetQos", "m_table_qos_count:256 full"}}),
            logger.Lines());
}

TEST_F(SetQosTest, SaysFullEvenOfATableThatIsThere) {
  FillUp();
  router->SetQos(many[7].get());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "SetQos", "m_table_qos_count:256 full"}}),
            logger.Lines());
}

TEST_F(SetQosTest, TakesANewTableInThePlaceOfARemovedOne) {
  FillUp();
  ASSERT_EQ(0, router->RemoveTableQos(kZone, "table0"));
  logger.Clear();
  router->SetQos(&user);
  EXPECT_EQ(many[255].get(), peer->m_table_qos()[0]) << "the last one moved into the gap";
  EXPECT_EQ(&user, peer->m_table_qos()[255]);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "SetQos",
                    "add m_table_qos index:255 zoneid:5 table_name:user"}}),
            logger.Lines());
}

TEST_F(SetQosTest, TakesANameOf32CharactersWithoutANul) {
  const std::string name(32, 'n');
  tagTableQos longest = QosOf(kZone, name);
  router->SetQos(&longest);
  EXPECT_EQ(0, peer->FindTableQos(kZone, name.c_str()));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "SetQos",
                    "add m_table_qos index:0 zoneid:5 table_name:" + name}}),
            logger.Lines())
      << "nothing behind the name";
}

TEST_F(SetQosTest, TakesAnEmptyName) {
  tagTableQos nameless = QosOf(kZone, "");
  router->SetQos(&nameless);
  EXPECT_EQ(0, peer->FindTableQos(kZone, ""));
  EXPECT_EQ(1, peer->m_table_qos_count());
}

TEST_F(SetQosTest, IgnoresNull) {
  router->SetQos(nullptr);
  EXPECT_EQ(0, peer->m_table_qos_count());
}

TEST_F(SetQosTest, WorksWithoutALogger) {
  TakeLogger();
  router->SetQos(&user);
  EXPECT_EQ(0, peer->FindTableQos(kZone, "user"));
  FillUp();
  EXPECT_EQ(256, peer->m_table_qos_count());
  EXPECT_EQ(-1, peer->FindTableQos(kZone, nullptr));
  EXPECT_EQ(-1, router->RemoveTableQos(kZone, nullptr));
  EXPECT_EQ(0, router->RemoveTableQos(kZone, "user"));
  EXPECT_EQ(255, peer->m_table_qos_count());
}

using FindTableQosTest = TableQosTest;

TEST_F(FindTableQosTest, RefusesANullName) {
  router->SetQos(&user);
  logger.Clear();
  EXPECT_EQ(-1, peer->FindTableQos(kZone, nullptr));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "FindTableQos", "NULL == table_name."}}),
            logger.Lines());
}

TEST_F(FindTableQosTest, AnswersTheIndexOrMinusOneSilently) {
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "user")) << "nothing is registered";
  router->SetQos(&user);
  router->SetQos(&item);
  logger.Clear();
  EXPECT_EQ(0, peer->FindTableQos(kZone, "user"));
  EXPECT_EQ(1, peer->FindTableQos(kZone, "item"));
  EXPECT_EQ(-1, peer->FindTableQos(kOtherZone, "user"));
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "use"));
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "users"));
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "User"));
  EXPECT_EQ(-1, peer->FindTableQos(kZone, ""));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(FindTableQosTest, ComparesThe32BytesOfANameAndNoMore) {
  const std::string name(32, 'n');
  tagTableQos longest = QosOf(kZone, name);
  tagTableQos shorter = QosOf(kZone, name.substr(0, 31));
  tagTableQos differs_in_the_last = QosOf(kZone, name.substr(0, 31) + "x");
  router->SetQos(&longest);
  router->SetQos(&shorter);
  router->SetQos(&differs_in_the_last);
  EXPECT_EQ(0, peer->FindTableQos(kZone, name.c_str()));
  EXPECT_EQ(0, peer->FindTableQos(kZone, (name + "nnn").c_str()));
  EXPECT_EQ(0, peer->FindTableQos(kZone, (name + "other").c_str()));
  EXPECT_EQ(1, peer->FindTableQos(kZone, name.substr(0, 31).c_str()));
  EXPECT_EQ(2, peer->FindTableQos(kZone, (name.substr(0, 31) + "x").c_str()));

  tagTableQos same_in_32_bytes = QosOf(kZone, name + "anything");
  router->SetQos(&same_in_32_bytes);
  EXPECT_EQ(3, peer->m_table_qos_count()) << "it is the same table";
}

TEST_F(FindTableQosTest, LooksOnlyAtTheSlotsInUseAndPassesOverNullOnes) {
  router->SetQos(&user);
  router->SetQos(&item);
  router->SetQos(&guild);
  peer->m_table_qos()[1] = nullptr;
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "item"));
  EXPECT_EQ(2, peer->FindTableQos(kZone, "guild"));
  peer->m_table_qos_count() = 2;
  EXPECT_EQ(-1, peer->FindTableQos(kZone, "guild"));
}

TEST_F(FindTableQosTest, AnswersTheFirstOfEqualTables) {
  tagTableQos twin = QosOf(kZone, "other");
  router->SetQos(&user);
  router->SetQos(&twin);
  std::memcpy(twin.szTableName, user.szTableName, sizeof(twin.szTableName));
  EXPECT_EQ(0, peer->FindTableQos(kZone, "user"));
}

using RemoveTableQosTest = TableQosTest;

TEST_F(RemoveTableQosTest, RefusesANullName) {
  router->SetQos(&user);
  logger.Clear();
  EXPECT_EQ(-1, router->RemoveTableQos(kZone, nullptr));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "RemoveTableQos", "zoneid:5, NULL == table_name."}}),
            logger.Lines());
  EXPECT_EQ(1, peer->m_table_qos_count());
}

TEST_F(RemoveTableQosTest, AnswersZeroForATableThatIsNotRegistered) {
  router->SetQos(&user);
  logger.Clear();
  EXPECT_EQ(0, router->RemoveTableQos(kZone, "item"));
  EXPECT_EQ(0, router->RemoveTableQos(kOtherZone, "user"));
  EXPECT_EQ(std::vector<tagTableQos*>({&user}), Slots());
  EXPECT_EQ(
      Lines(
          {{OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos", "zone_id:5 table_name:item table count:1"},
           {OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos", "zone_id:6 table_name:user table count:1"}}),
      logger.Lines());
}

TEST_F(RemoveTableQosTest, MovesTheLastRecordIntoTheGap) {
  struct Case {
    const char* removed;
    int index;
    std::vector<tagTableQos*> left;
  };
  for (const Case& one : {Case{"user", 0, {&guild, &item}}, Case{"item", 1, {&user, &guild}},
                          Case{"guild", 2, {&user, &item}}}) {
    for (const char* name : {"user", "item", "guild"}) {
      ASSERT_EQ(0, router->RemoveTableQos(kZone, name));
    }
    router->SetQos(&user);
    router->SetQos(&item);
    router->SetQos(&guild);
    logger.Clear();
    EXPECT_EQ(0, router->RemoveTableQos(kZone, one.removed));
    EXPECT_EQ(one.left, Slots()) << one.removed;
    const std::string name = one.removed;
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos",
                      "zone_id:5 table_name:" + name + " table count:3"},
                     {OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos",
                      "delete index:" + std::to_string(one.index) +
                          " zone_id:5 table_name:" + name + " table count:2"}}),
              logger.Lines());
  }
}

TEST_F(RemoveTableQosTest, LeavesAnEmptyRegistryWhenTheOnlyTableGoes) {
  router->SetQos(&user);
  logger.Clear();
  EXPECT_EQ(0, router->RemoveTableQos(kZone, "user"));
  EXPECT_EQ(0, peer->m_table_qos_count());
  EXPECT_EQ(nullptr, peer->m_table_qos()[0]);
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos", "zone_id:5 table_name:user table count:1"},
             {OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos",
              "delete index:0 zone_id:5 table_name:user table count:0"}}),
      logger.Lines());
}

TEST_F(RemoveTableQosTest, LeavesTheRecordItselfAlone) {
  std::memset(user.szMemo, 'm', sizeof(user.szMemo));
  user.iLastError = -4371;
  const tagTableQos before = user;
  router->SetQos(&user);
  router->RemoveTableQos(kZone, "user");
  EXPECT_EQ(0, std::memcmp(&before, &user, sizeof(user)));
}

TEST_F(RemoveTableQosTest, TakesTheNameFieldOfARecord) {
  const std::string name(32, 'n');
  tagTableQos longest = QosOf(0x41414141, name);  // The zone behind the name would read as text.
  router->SetQos(&longest);
  logger.Clear();
  EXPECT_EQ(0, router->RemoveTableQos(longest.iZoneID, longest.szTableName));
  EXPECT_EQ(0, peer->m_table_qos_count());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos",
                    "zone_id:1094795585 table_name:" + name + " table count:1"},
                   {OSTRAND_LOG_LEVEL_DEBUG, "RemoveTableQos",
                    "delete index:0 zone_id:1094795585 table_name:" + name + " table count:0"}}),
            logger.Lines())
      << "nothing behind the name";
}

// --- InitStatisticAccess ---

class InitStatisticAccessTest : public testing::Test, public RouterFixture {
 protected:
  InitStatisticAccessTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
  }

  ProxyServer* AddAt(const std::string& url, int ip, int port, const std::string& id = "id") {
    ProxyServer* proxy = AddReadyProxy(in_use, url, id);
    mgr.At(url).SetAddress(ip, port);
    return proxy;
  }
  std::vector<std::string> Enter() {
    logger.Clear();
    const size_t before = statistics.accesses().size();
    peer->InitStatisticAccess();
    const auto accesses = statistics.accesses();
    std::vector<std::string> urls;
    for (size_t i = before; i < accesses.size(); ++i) {
      urls.push_back(accesses[i].url);
    }
    return urls;
  }

  List* in_use;
};

TEST_F(InitStatisticAccessTest, EntersTheProxiesInUseWithTheirAddressesAndIds) {
  peer->m_app_id() = 5000000000;
  AddAt("tcp://10.0.0.1:1001", 0x0100000A, 1001, "first");
  AddAt("tcp://10.0.0.2:1002", -7, 1002, std::string(32, 'i'));
  AddReadyProxy(in_use, "tcp://10.0.0.3:1003", "");  // Its connector does not know its address.

  EXPECT_EQ(std::vector<std::string>(
                {"tcp://10.0.0.1:1001", "tcp://10.0.0.2:1002", "tcp://10.0.0.3:1003"}),
            Enter());
  const auto accesses = statistics.accesses();
  ASSERT_EQ(3U, accesses.size());
  for (const auto& access : accesses) {
    EXPECT_EQ(5000000000, access.app_id) << "not cut to 32 bits";
    EXPECT_EQ(kZone, access.zone_id);
  }
  EXPECT_EQ(0x0100000A, accesses[0].ip);
  EXPECT_EQ(1001, accesses[0].port);
  EXPECT_EQ("first", accesses[0].server_id);
  EXPECT_EQ(-7, accesses[1].ip);
  EXPECT_EQ(1002, accesses[1].port);
  EXPECT_EQ(std::string(32, 'i'), accesses[1].server_id) << "the id has no NUL of its own";
  EXPECT_EQ(0, accesses[2].ip);
  EXPECT_EQ(0, accesses[2].port);
  EXPECT_EQ("", accesses[2].server_id);
}

TEST_F(InitStatisticAccessTest, SaysNothingOfASuccess) {
  AddAt("tcp://10.0.0.1:1001", 1, 1001);
  statistics.Register(kAppId, kZoneId);
  Enter();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(InitStatisticAccessTest, AsksForSignUpAndConnectionAndNothingElse) {
  const std::string not_signed_up = "tcp://10.0.0.1:1001";
  AddAt(not_signed_up, 1, 1001)->auth_succeed = false;
  for (const int status : {0, 1, 3, -1}) {
    const std::string url = "tcp://10.0.0.2:200" + std::to_string(status);
    AddAt(url, 2, status);
    mgr.At(url).SetStatus(status);
  }
  const std::string refused = "tcp://10.0.0.3:3003";
  AddAt(refused, 3, 3003)->last_auth_result = -6413;
  const std::string isolated = "tcp://10.0.0.4:4004";
  AddAt(isolated, 4, 4004)->is_available = false;

  EXPECT_EQ(std::vector<std::string>({refused, isolated}), Enter());
}

TEST_F(InitStatisticAccessTest, LooksAtTheProxiesInUseAlone) {
  AddReadyProxy(peer->m_preparing_servers(), "tcp://10.0.0.1:1001");
  AddReadyProxy(peer->m_removing_servers(), "tcp://10.0.0.2:1002");
  EXPECT_TRUE(Enter().empty());
}

TEST_F(InitStatisticAccessTest, StepsOverElementsWithoutRecordOrConnector) {
  AddAt("tcp://10.0.0.1:1001", 1, 1001);
  AddAt("tcp://10.0.0.2:1002", 2, 1002);
  AddAt("tcp://10.0.0.3:1003", 3, 1003);
  RealServerNode* detached = peer->FindServerNode(in_use, "tcp://10.0.0.1:1001");
  ProxyServer* const record = detached->server;
  ProxyServer* const unconnected = peer->FindServerNode(in_use, "tcp://10.0.0.2:1002")->server;
  OSTRNET::CConnector* const connector = unconnected->connector;
  detached->server = nullptr;
  unconnected->connector = nullptr;

  EXPECT_EQ(std::vector<std::string>({"tcp://10.0.0.3:1003"}), Enter());

  detached->server = record;
  unconnected->connector = connector;
}

TEST_F(InitStatisticAccessTest, LogsEachFailureAndGoesOn) {
  AddAt("tcp://10.0.0.1:1001", 1, 1001);
  AddAt("tcp://10.0.0.2:1002", 2, 1002);
  statistics.SetAddAccessResult(-7);
  EXPECT_EQ(2U, Enter().size());
  const LogLine failure = Line(OSTRAND_LOG_LEVEL_ERROR, "InitStatisticAccess",
                               "m_statistic_mgr->AddAccess() failed. ret:-7");
  EXPECT_EQ(std::vector<LogLine>({failure, failure}), logger.Lines());

  statistics.SetAddAccessResult(3);
  Enter();
  EXPECT_EQ(2, logger.Count(OSTRAND_LOG_LEVEL_ERROR, "m_statistic_mgr->AddAccess() failed. ret:3"))
      << "every result but 0 is a failure";
}

TEST_F(InitStatisticAccessTest, DoesNothingWithoutLists) {
  router->Fini();
  EXPECT_TRUE(Enter().empty());
}

}  // namespace
}  // namespace OstrandService
