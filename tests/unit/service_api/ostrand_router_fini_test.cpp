// Fini: what it releases and in which order, what it keeps, and that Init may follow.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"
#include "service_api/table_qos.h"

namespace OstrandService {
namespace {

using OstrandFakes::AllocationFaults;
using OstrandFakes::RouterFixture;

class OstrandRouterFiniTest : public testing::Test, public RouterFixture {
 protected:
  static constexpr char kUsed[] = "tcp://10.0.0.1:1001";
  static constexpr char kPrepared[] = "tcp://10.0.0.2:1002";
  static constexpr char kRemoved[] = "tcp://10.0.0.3:1003";

  void FillLists() {
    ASSERT_EQ(0, Init());
    AddProxy(peer->m_removing_servers(), kRemoved);
    AddProxy(peer->m_preparing_servers(), kPrepared);
    ProxyServer* shared = AddProxy(peer->m_using_servers(), kUsed);
    ASSERT_EQ(0, peer->AddServerNode(peer->m_preparing_servers(), kUsed, "id", shared));
    journal.Clear();
    logger.Clear();
  }

  void ExpectFinished() {
    EXPECT_EQ(nullptr, peer->m_using_servers());
    EXPECT_EQ(nullptr, peer->m_preparing_servers());
    EXPECT_EQ(nullptr, peer->m_removing_servers());
    EXPECT_EQ(nullptr, peer->m_pack_parser());
    EXPECT_EQ(0U, peer->m_virtual_node_count());
    EXPECT_FALSE(peer->m_init_called());
    EXPECT_FALSE(peer->m_init_succeed());
  }
};

TEST_F(OstrandRouterFiniTest, BeforeInitIsHarmless) {
  router->Fini();
  ExpectFinished();
  EXPECT_EQ(0, Init());
}

TEST_F(OstrandRouterFiniTest, TwiceIsHarmless) {
  FillLists();
  router->Fini();
  router->Fini();
  ExpectFinished();
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(OstrandRouterFiniTest, ReleasesTheUsingThePreparingAndTheRemovingListInThisOrder) {
  FillLists();
  router->Fini();
  ExpectFinished();
  EXPECT_EQ(std::vector<std::string>({std::string("RemoveConnector ") + kUsed,
                                      std::string("RemoveConnector ") + kPrepared,
                                      std::string("RemoveConnector ") + kRemoved}),
            journal.Entries());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(OstrandRouterFiniTest, GivesBackAllMemoryOfListsRecordsAndParser) {
  const auto clear_partition = [this] {
    for (Len2Ending& bucket : peer->m_len2ending()) {
      bucket.clear();
    }
    peer->m_totallen2id().clear();
  };
  AllocationFaults faults;
  FillLists();
  EXPECT_LT(0, faults.outstanding());
  router->Fini();
  clear_partition();  // Fini leaves it.
  EXPECT_EQ(0, faults.outstanding());
}

TEST_F(OstrandRouterFiniTest, LeavesNoRingSlotThatPointsAtAFreedRecord) {
  FillLists();
  ProxyServer* used = peer->FindServerNode(peer->m_using_servers(), kUsed)->server;
  ProxyServer* removed = peer->FindServerNode(peer->m_removing_servers(), kRemoved)->server;
  peer->m_virtual_nodes()[0] = {1, used};
  peer->m_virtual_nodes()[1] = {2, removed};
  peer->m_virtual_nodes()[19999] = {3, used};  // Left over from a larger ring.
  peer->m_virtual_node_count() = 2;
  router->Fini();
  for (const VirtualServerNode& slot : peer->m_virtual_nodes()) {
    ASSERT_EQ(nullptr, slot.server);
  }
  EXPECT_EQ(1U, peer->m_virtual_nodes()[0].hash_code) << "the position stays";
  EXPECT_EQ(0U, peer->m_virtual_node_count());
}

TEST_F(OstrandRouterFiniTest, KeepsTimesRouteAndQosRecords) {
  FillLists();
  tagTableQos qos{};
  peer->m_table_qos()[0] = &qos;
  peer->m_table_qos_count() = 1;
  peer->m_last_flush_route_time() = 1;
  peer->m_last_flush_hash_circle_time() = 2;
  peer->m_last_send_heartbeat_time() = 3;
  peer->m_last_recheck_availabe_time() = 4;
  peer->m_lastCheckProxyTime() = 5;
  peer->m_last_check_time() = 6;
  peer->m_proxy_sign_up_recv() = true;
  peer->m_is_all_connected() = true;
  peer->m_force_flush_hash() = true;
  peer->m_last_auth_succ_count() = 7;
  peer->m_all_servers()["a"] = 0;
  peer->m_alarmErrorCode().insert(8);
  peer->m_recvErrorCodeMap()[-9] = 10;
  router->SetSpecialOstrroxyIPAndPort("10.0.0.1", 1);

  router->Fini();

  EXPECT_EQ(&qos, peer->m_table_qos()[0]);
  EXPECT_EQ(1, peer->m_table_qos_count());
  EXPECT_EQ(1, peer->m_last_flush_route_time());
  EXPECT_EQ(2, peer->m_last_flush_hash_circle_time());
  EXPECT_EQ(3, peer->m_last_send_heartbeat_time());
  EXPECT_EQ(4, peer->m_last_recheck_availabe_time());
  EXPECT_EQ(5, peer->m_lastCheckProxyTime());
  EXPECT_EQ(6, peer->m_last_check_time());
  EXPECT_TRUE(peer->m_proxy_sign_up_recv());
  EXPECT_TRUE(peer->m_is_all_connected());
  EXPECT_TRUE(peer->m_force_flush_hash());
  EXPECT_EQ(7U, peer->m_last_auth_succ_count());
  EXPECT_EQ(1U, peer->m_all_servers().size());
  EXPECT_EQ(1U, peer->m_alarmErrorCode().size());
  EXPECT_EQ(1U, peer->m_recvErrorCodeMap().size());
  EXPECT_STREQ("10.0.0.1", peer->m_proxy_ip());
  EXPECT_EQ(&mgr, peer->m_connector_mgr());
  EXPECT_EQ(&server, peer->m_ostrand_server());
  EXPECT_EQ(&logger, peer->m_logger());
  EXPECT_EQ(200U, peer->m_totallen2id().size());
}

TEST_F(OstrandRouterFiniTest, MayBeFollowedByInit) {
  for (int round = 0; round < 3; ++round) {
    FillLists();
    router->Fini();
    ExpectFinished();
  }
  EXPECT_EQ(0, Init());
  EXPECT_TRUE(peer->m_init_succeed());
}

TEST_F(OstrandRouterFiniTest, IsPartOfTheDestructor) {
  FillLists();
  router.reset();
  EXPECT_EQ(3U, mgr.removals().size());
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(OstrandRouterFiniTest, NeedsNoLogger) {
  FillLists();
  EXPECT_EQ(-4371, router->Init(nullptr, nullptr, nullptr));
  router->Fini();
  ExpectFinished();
  EXPECT_EQ(0U, mgr.live_count());
}

}  // namespace
}  // namespace OstrandService
