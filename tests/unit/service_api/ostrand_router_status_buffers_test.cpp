// What the router tells of the connectors' buffers.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "fakes/nonzero_counters.h"
#include "unit/service_api/router_status_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::AllocationFaults;
using OstrandFakes::Counters;
using OstrandFakes::NonZeroCounters;
using OSTRNET::CConnector;

using Infos = std::vector<BuffStaticBetweenApiAndProxy>;

constexpr int kNotInitialised = -4371;
constexpr int kNoRoute = -13843;
constexpr int kFailed = -256;

// --- The buffers of all proxies ---

class BufferInfoTest : public RouterStatusTest {
 protected:
  Infos infos = Infos(3);
};

TEST_F(BufferInfoTest, HasARecordForEachProxyInUse) {
  Add(1);
  Add(2, 0);
  AddReadyProxy(peer->m_preparing_servers(), Url(3));
  mgr.At(Url(1)).SetBufferFigures(11, 12, 13, 14);
  mgr.At(Url(2)).SetBufferFigures(0xFFFFFFFF, 0, -1, 100);
  logger.Clear();
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  ASSERT_EQ(2U, infos.size()) << "and nothing of what was there";
  EXPECT_EQ(11U, infos[0].send_data_size);
  EXPECT_EQ(12U, infos[0].recv_data_size);
  EXPECT_EQ(13, infos[0].send_buff_left_rate);
  EXPECT_EQ(14, infos[0].recv_buff_left_rate);
  EXPECT_EQ(Url(1), infos[0].server_url);
  EXPECT_EQ(0xFFFFFFFFU, infos[1].send_data_size);
  EXPECT_EQ(0U, infos[1].recv_data_size);
  EXPECT_EQ(-1, infos[1].send_buff_left_rate);
  EXPECT_EQ(100, infos[1].recv_buff_left_rate);
  EXPECT_EQ(Url(2), infos[1].server_url);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(BufferInfoTest, TellsTheUrlsOfTheList) {
  Add(1);
  RealServerNode* node = peer->FindServerNode(peer->m_using_servers(), Url(1).c_str());
  std::strcpy(node->server_url, "tcp://elsewhere:1");  // NOLINT: fits
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  EXPECT_STREQ("tcp://elsewhere:1", infos.at(0).server_url);
}

TEST_F(BufferInfoTest, KeepsLongUrlsWhole) {
  for (const size_t len : {300U, 1022U, 1023U}) {
    Add("tcp://" + std::string(len - 6, 'h'));
    EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
    EXPECT_EQ("tcp://" + std::string(len - 6, 'h'), infos.back().server_url);
  }
}

TEST_F(BufferInfoTest, IsEmptyWithoutProxies) {
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  EXPECT_TRUE(infos.empty());
  infos.resize(3);
  router->Fini();
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  EXPECT_TRUE(infos.empty());
}

TEST_F(BufferInfoTest, IsNoneWhenAProxyHasNoConnector) {
  Add(1);
  TakeConnectorOf(Add(2));
  Add(3);
  EXPECT_EQ(kFailed, router->GetConnectorBufferInfo(infos));
  EXPECT_TRUE(infos.empty());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetConnectorBufferInfo",
                    "it should not get null of connector"}}),
            logger.Lines());
  peer->m_logger() = nullptr;
  EXPECT_EQ(kFailed, router->GetConnectorBufferInfo(infos));
}

TEST_F(BufferInfoTest, IsNoneWhenAnElementHasNoProxy) {
  Add(1);
  TakeServerOf(1);
  EXPECT_EQ(kFailed, router->GetConnectorBufferInfo(infos));
  EXPECT_TRUE(infos.empty());
}

TEST_F(BufferInfoTest, IsNoneWithoutMemory) {
  Add(1);
  Add(2);
  Infos none;
  for (const int allocation : {1, 2}) {
    AllocationFaults faults;
    faults.FailThrowing(allocation);
    EXPECT_EQ(kFailed, router->GetConnectorBufferInfo(none));
    EXPECT_TRUE(faults.struck());
    EXPECT_TRUE(none.empty());
    none = Infos();
  }
}

// A connector that tells nothing of its buffers.
class PlainConnector : public CConnector {
 public:
  int Connect() override { return 0; }
  void Disconnect(int) override {}
  int GetStatus() const override { return STATUS_CONNECTED; }
  const char* GetURL() const override { return "tcp://10.0.0.77:77"; }
  int PeekPkg(const char*&, int&, void*) override { return 0; }
  void ConsumePkg() override {}
  void Recover(void*) override {}
  const char* GetLastErrDesc() override { return ""; }
};

// The same under an address that no list would have taken.
class FarConnector : public PlainConnector {
 public:
  const char* GetURL() const override { return m_url.c_str(); }

 private:
  const std::string m_url = "tcp://" + std::string(1017, 'h') + std::string(477, 'i');
};

TEST_F(BufferInfoTest, Tells0ForWhatAConnectorDoesNotTell) {
  PlainConnector plain;
  ProxyServer* record = Add(1);
  TakeConnectorOf(record);
  record->connector = &plain;
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  ASSERT_EQ(1U, infos.size());
  EXPECT_EQ(0U, infos[0].send_data_size);
  EXPECT_EQ(0U, infos[0].recv_data_size);
  EXPECT_EQ(0, infos[0].send_buff_left_rate);
  EXPECT_EQ(0, infos[0].recv_buff_left_rate);
}

// --- The buffers of a routed proxy ---

class TraverseBuffInfoTest : public RouterStatusTest {
 protected:
  TraverseBuffInfoTest() {
    std::memset(static_cast<void*>(&info), 'x', sizeof(info));
    std::strcpy(qos.szTableName, kTable);  // NOLINT: fits
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
    statistic = &statistics.Register(kAppId, kZoneId);
    logger.Clear();
  }
  void SetRing(const std::vector<ProxyServer*>& servers) {
    for (size_t i = 0; i < servers.size(); ++i) {
      peer->m_virtual_nodes()[i] = VirtualServerNode{100 * (i + 1), servers[i]};
    }
    peer->m_virtual_node_count() = static_cast<uint32_t>(servers.size());
  }
  int Traverse(int hash_code = kZoneId) {
    logger.Clear();
    return router->GetTraverseConnBuffInfo(info, hash_code, kTable);
  }
  bool IsUntouched() const { return info.server_url[0] == 'x' && info.server_url[1023] == 'x'; }
  bool IsZeroed() const {
    const BuffStaticBetweenApiAndProxy zero = {};
    return std::memcmp(&info, &zero, sizeof(info)) == 0;
  }

  BuffStaticBetweenApiAndProxy info;
  tagTableQos qos = {};
  tagServiceApiStatistic* statistic;
};

TEST_F(TraverseBuffInfoTest, TellsTheBuffersOfTheRoutedProxy) {
  SetRing({Add(1)});
  mgr.At(Url(1)).SetBufferFigures(11, 12, 13, -14);
  EXPECT_EQ(0, Traverse());
  EXPECT_EQ(11U, info.send_data_size);
  EXPECT_EQ(12U, info.recv_data_size);
  EXPECT_EQ(13, info.send_buff_left_rate);
  EXPECT_EQ(-14, info.recv_buff_left_rate);
  EXPECT_EQ(Url(1), info.server_url);
  EXPECT_EQ(std::string(1024 - Url(1).size(), '\0'),
            std::string(info.server_url + Url(1).size(), 1024 - Url(1).size()));
  EXPECT_EQ(0, logger.Count(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_EQ(Counters(), NonZeroCounters(qos));
  EXPECT_EQ(Counters(), NonZeroCounters(*statistic));
}

TEST_F(TraverseBuffInfoTest, TellsTheUrlOfTheConnector) {
  const std::string longest = "tcp://" + std::string(1017, 'h');
  SetRing({Add(longest)});
  RealServerNode* node = peer->FindServerNode(peer->m_using_servers(), longest.c_str());
  std::strcpy(node->server_url, "tcp://elsewhere:1");  // NOLINT: fits
  EXPECT_EQ(0, Traverse());
  EXPECT_EQ(longest, info.server_url);
}

TEST_F(TraverseBuffInfoTest, TellsAsMuchOfAUrlAsThereIsRoomFor) {
  FarConnector far;
  ProxyServer* record = Add(1);
  TakeConnectorOf(record);
  record->connector = &far;
  SetRing({record});
  EXPECT_EQ(0, Traverse());
  EXPECT_EQ('\0', info.server_url[1023]);
  EXPECT_EQ("tcp://" + std::string(1017, 'h'), info.server_url);
}

TEST_F(TraverseBuffInfoTest, TakesARandomProxy) {
  const std::vector<ProxyServer*> servers = {Add(1), Add(2), Add(3)};
  SetRing(servers);
  unsigned int seed = 2024;
  peer->m_randSed() = 2024;
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    const int expected = 1 + static_cast<int>(static_cast<uint32_t>(rand_r(&seed)) % 3);
    EXPECT_EQ(0, Traverse());
    EXPECT_EQ(Url(expected), info.server_url);
    seen.insert(info.server_url);
  }
  EXPECT_EQ(3U, seen.size());
}

TEST_F(TraverseBuffInfoTest, TakesTheHashCodeForTheZone) {
  SetRing({Add(1)});
  for (const int hash_code : {0, kZoneId + 1, -1, INT32_MAX}) {
    std::memset(static_cast<void*>(&info), 'x', sizeof(info));
    EXPECT_EQ(kNotInitialised, Traverse(hash_code));
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer",
                      "The table(\"players\") is not existed in the array m_table_qos"}}),
              logger.Lines());
    EXPECT_TRUE(IsZeroed());
  }
  tagTableQos foreign = qos;
  foreign.iZoneID = 77;
  router->SetQos(&foreign);
  EXPECT_EQ(0, Traverse(77));
}

TEST_F(TraverseBuffInfoTest, AnswersTheCodesOfTheRoutingAndLeavesItsCounters) {
  EXPECT_EQ(kNoRoute, Traverse()) << "an empty ring";
  EXPECT_TRUE(IsZeroed());
  SetRing({Add(1, 0)});
  EXPECT_EQ(kNoRoute, Traverse());
  SetRing({Add(2, 0), Add(3, 1)});
  EXPECT_EQ(kNoRoute, Traverse());
  EXPECT_TRUE(IsZeroed());
  EXPECT_EQ(Counters({{"iRounteErrorCount", 3}}), NonZeroCounters(qos));
  EXPECT_EQ(Counters({{"dwApiFindRouteErrNumPerMin", 3}}), NonZeroCounters(*statistic));
}

TEST_F(TraverseBuffInfoTest, PassesOverAProxyWithoutConnector) {
  ProxyServer* record = Add(1);
  TakeConnectorOf(record);
  SetRing({record});
  EXPECT_EQ(kNoRoute, Traverse());
  EXPECT_TRUE(IsZeroed());
}

TEST_F(TraverseBuffInfoTest, ZeroesTheRecordBeforeItRefusesANullTableName) {
  EXPECT_EQ(kNotInitialised, router->GetTraverseConnBuffInfo(info, kZoneId, nullptr));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetTraverseConnBuffInfo",
                    "NULL == request->GetTableName()"}}),
            logger.Lines());
  EXPECT_TRUE(IsZeroed());
  peer->m_logger() = nullptr;
  EXPECT_EQ(kNotInitialised, router->GetTraverseConnBuffInfo(info, kZoneId, nullptr));
}

TEST_F(TraverseBuffInfoTest, LeavesAnEmptyTableNameToTheRouting) {
  EXPECT_EQ(kNotInitialised, router->GetTraverseConnBuffInfo(info, kZoneId, ""));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetRouterProxyServer", "NULL == table_name"}}),
            logger.Lines());
  EXPECT_TRUE(IsZeroed());
}

TEST_F(TraverseBuffInfoTest, LeavesTheRecordAloneBeforeInitSucceeded) {
  router->Fini();
  logger.Clear();
  EXPECT_EQ(kNotInitialised, Traverse());
  EXPECT_EQ(kNotInitialised, router->GetTraverseConnBuffInfo(info, kZoneId, nullptr));
  EXPECT_TRUE(IsUntouched());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(TraverseBuffInfoTest, LeavesTheRecordAloneWithoutInitAndAfterAFailedOne) {
  const auto raw = NewRouter(&latency, &statistics, &judge);
  EXPECT_EQ(kNotInitialised, raw->GetTraverseConnBuffInfo(info, kZoneId, kTable));
  EXPECT_EQ(kFailed, raw->Init(&mgr, nullptr, &logger));
  logger.Clear();
  EXPECT_EQ(kNotInitialised, raw->GetTraverseConnBuffInfo(info, kZoneId, kTable));
  EXPECT_EQ(kNotInitialised, raw->GetTraverseConnBuffInfo(info, kZoneId, nullptr));
  EXPECT_TRUE(IsUntouched());
  EXPECT_TRUE(logger.Lines().empty());
}

// --- All of them ---

// Whoever took the lists' lock would never come back.
TEST_F(TraverseBuffInfoTest, NoneOfThemWaitsForTheLists) {
  SetRing({Add(1)});
  ProxyStatus row;
  int count = 0;
  Infos infos;
  const OstrandCommon::ScopedLock lock(peer->m_mutex_list());
  EXPECT_NE("", router->GetStatLog());
  router->GetProxyStatus(&row, 1, count);
  EXPECT_EQ(1, count);
  EXPECT_EQ(0, router->GetConnectorBufferInfo(infos));
  EXPECT_EQ(0, Traverse());
  EXPECT_EQ(nullptr, router->GetUsedProxyUrl());
}

}  // namespace
}  // namespace OstrandService
