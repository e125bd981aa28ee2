// The three lists: finding, detaching and releasing proxies.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"
#include "unit/service_api/router_lists_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::AllocationFaults;

// --- FindServerNode, FindListNode ---

using FindNodeTest = RouterListsTest;

TEST_F(FindNodeTest, FindsTheFirstElementOfAUrl) {
  AppendNode(in_use, kOther, nullptr);
  AppendNode(in_use, kUrl, nullptr);
  AppendNode(in_use, kUrl, nullptr);
  ListNode* first = in_use->Begin()->next;
  EXPECT_EQ(first, peer->FindListNode(in_use, kUrl));
  EXPECT_EQ(ServerOf(first), peer->FindServerNode(in_use, kUrl));
}

TEST_F(FindNodeTest, ComparesWholeUrls) {
  AppendNode(in_use, "tcp://10.0.0.1:10", nullptr);
  for (const char* url : {"tcp://10.0.0.1:1", "tcp://10.0.0.1:100", "tcp://10.0.0.1:11",
                          "TCP://10.0.0.1:10", " tcp://10.0.0.1:10", ""}) {
    EXPECT_EQ(nullptr, peer->FindServerNode(in_use, url)) << url;
    EXPECT_EQ(nullptr, peer->FindListNode(in_use, url)) << url;
  }
  EXPECT_NE(nullptr, peer->FindServerNode(in_use, "tcp://10.0.0.1:10"));
}

TEST_F(FindNodeTest, ComparesNoMoreThan1024Characters) {
  const std::string longest = UrlOfLength(1023);
  AppendNode(in_use, longest, nullptr);
  EXPECT_NE(nullptr, peer->FindServerNode(in_use, longest.c_str()));
  EXPECT_EQ(nullptr, peer->FindServerNode(in_use, (longest + "h").c_str()));
}

TEST_F(FindNodeTest, FindsNothingInNoListAndNothingWithoutAUrl) {
  AppendNode(in_use, kUrl, nullptr);
  EXPECT_EQ(nullptr, peer->FindServerNode(nullptr, kUrl));
  EXPECT_EQ(nullptr, peer->FindListNode(nullptr, kUrl));
  EXPECT_EQ(nullptr, peer->FindServerNode(in_use, nullptr));
  EXPECT_EQ(nullptr, peer->FindListNode(in_use, nullptr));
  EXPECT_EQ(nullptr, peer->FindServerNode(preparing, kUrl));
  EXPECT_TRUE(logger.Lines().empty());
}

// --- ResetServerNode ---

TEST_F(RouterListsTest, ResetDetachesTheFirstElementOfAUrlOnly) {
  ProxyServer record;
  AppendNode(in_use, kOther, &record);
  AppendNode(in_use, kUrl, &record);
  AppendNode(in_use, kUrl, &record);
  peer->ResetServerNode(in_use, kUrl);
  ListNode* node = in_use->Begin();
  EXPECT_EQ(&record, ServerOf(node)->server);
  EXPECT_EQ(nullptr, ServerOf(node->next)->server);
  EXPECT_EQ(&record, ServerOf(node->next->next)->server);
  EXPECT_EQ(3U, in_use->GetUsed()) << "the elements stay";
  in_use->Clear();
}

TEST_F(RouterListsTest, ResetIgnoresWhatItDoesNotFind) {
  ProxyServer record;
  AppendNode(in_use, kUrl, &record);
  peer->ResetServerNode(nullptr, kUrl);
  peer->ResetServerNode(in_use, kOther);
  peer->ResetServerNode(in_use, nullptr);
  EXPECT_EQ(&record, ServerOf(in_use->Begin())->server);
  in_use->Clear();
}

// --- ReleaseServerList ---

using ReleaseServerListTest = RouterListsTest;

TEST_F(ReleaseServerListTest, DestroysConnectorsAndRecordsInOrder) {
  AllocationFaults faults;
  AddProxy(in_use, kUrl);
  AddProxy(in_use, kOther);
  journal.Clear();
  logger.Clear();
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(0, faults.outstanding());
  EXPECT_EQ(0U, in_use->GetUsed());
  EXPECT_EQ(std::vector<std::string>(
                {std::string("RemoveConnector ") + kUrl, std::string("RemoveConnector ") + kOther}),
            journal.Entries());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ReleaseServerListTest, DetachesTheSameUrlInAllThreeLists) {
  List* const lists[] = {in_use, preparing, removing};
  for (List* released : lists) {
    ProxyServer* shared = AddProxy(in_use, kUrl);
    ASSERT_EQ(0, Add(preparing, kUrl, shared));
    ASSERT_EQ(0, Add(removing, kUrl, shared));
    AddProxy(preparing, kOther);
    peer->ReleaseServerList(released);
    EXPECT_EQ(0U, released->GetUsed());
    for (List* list : lists) {
      if (list != released) {
        EXPECT_EQ(nullptr, ServerAt(list, kUrl)) << "its element stays";
      }
    }
    if (released != preparing) {
      EXPECT_NE(nullptr, ServerAt(preparing, kOther)) << "other urls keep their records";
    }
    for (List* list : lists) {
      peer->ReleaseServerList(list);
    }
    EXPECT_EQ(0U, mgr.live_count());
  }
}

TEST_F(ReleaseServerListTest, DetachesOnlyTheFirstElementOfAUrlInEachList) {
  ProxyServer* shared = AddProxy(in_use, kUrl);
  AppendNode(preparing, kUrl, shared);
  AppendNode(preparing, kUrl, shared);
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(nullptr, ServerOf(preparing->Begin())->server);
  EXPECT_NE(nullptr, ServerOf(preparing->Begin()->next)->server);
  ServerOf(preparing->Begin()->next)->server = nullptr;  // It dangles.
}

TEST_F(ReleaseServerListTest, DropsDetachedElements) {
  AppendNode(in_use, kUrl, nullptr);
  AddProxy(in_use, kOther);
  AppendNode(in_use, "tcp://10.0.0.3:1003", nullptr);
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(0U, in_use->GetUsed());
  EXPECT_EQ(1U, mgr.removals().size());
}

TEST_F(ReleaseServerListTest, DestroysARecordWithoutConnector) {
  AllocationFaults faults;
  AppendNode(in_use, kUrl, new ProxyServer);
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(0, faults.outstanding());
  EXPECT_TRUE(mgr.removals().empty());
}

TEST_F(ReleaseServerListTest, DestroysARecordWithoutAConnectorManager) {
  List own(sizeof(RealServerNode));
  ProxyServer* record = AddProxy(in_use, kUrl);
  OSTRNET::CConnector* connector = record->connector;
  const auto homeless = NewRouter(&latency, &statistics, &judge);  // Never initialised.
  AllocationFaults faults;
  auto* shared = new ProxyServer;
  shared->connector = connector;
  AppendNode(&own, kUrl, shared);
  OstrandRouterPeer(*homeless).ReleaseServerList(&own);
  EXPECT_EQ(0, faults.outstanding());
  EXPECT_EQ(0U, own.GetUsed());
  EXPECT_TRUE(mgr.IsAlive(connector)) << "nobody there to remove it";
}

TEST_F(ReleaseServerListTest, DetachesElementsAlsoForAListThatIsNoneOfTheThree) {
  List own(sizeof(RealServerNode));
  ProxyServer* shared = AddProxy(&own, kUrl);
  ASSERT_EQ(0, Add(removing, kUrl, shared));
  const auto* payload = static_cast<const RealServerNode*>(own.Front());
  peer->ReleaseServerList(&own);
  EXPECT_EQ(nullptr, ServerAt(removing, kUrl));
  EXPECT_EQ(nullptr, payload->server);
}

TEST_F(ReleaseServerListTest, NullsEveryRingSlotOfARecordBeforeItsConnectorGoes) {
  ProxyServer* released = AddProxy(in_use, kUrl);
  ProxyServer* kept = AddProxy(preparing, kOther);
  for (uint32_t i = 0; i < OstrandRouter::MAX_VIRTUAL_NODE_COUNT; ++i) {
    peer->m_virtual_nodes()[i] = {i, i % 2 == 0 ? released : kept};
  }
  peer->m_virtual_node_count() = 10;  // The others are left over from a larger ring.
  int slots_at_removal = 0;
  mgr.OnRemove([&](OstrandFakes::ScriptedConnector&) {
    for (const VirtualServerNode& slot : peer->m_virtual_nodes()) {
      slots_at_removal += slot.server != nullptr && slot.server != kept ? 1 : 0;
    }
  });
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(0, slots_at_removal);
  EXPECT_EQ(1U, mgr.removals().size());
  for (uint32_t i = 0; i < OstrandRouter::MAX_VIRTUAL_NODE_COUNT; ++i) {
    const VirtualServerNode& slot = peer->m_virtual_nodes()[i];
    ASSERT_EQ(i % 2 == 0 ? nullptr : kept, slot.server) << i;
    ASSERT_EQ(i, slot.hash_code);
  }
  EXPECT_EQ(10U, peer->m_virtual_node_count());
  mgr.OnRemove(nullptr);
}

TEST_F(ReleaseServerListTest, GivesElementsBackWithoutARecord) {
  AddProxy(in_use, kUrl);
  const auto* payload = static_cast<const RealServerNode*>(in_use->Front());
  peer->ReleaseServerList(in_use);
  EXPECT_EQ(nullptr, payload->server) << "the pool's memory is still there";
}

TEST_F(ReleaseServerListTest, IgnoresNoList) {
  peer->ReleaseServerList(nullptr);
  peer->ReleaseServerList(in_use);
  EXPECT_TRUE(journal.Entries().empty());
}

// --- The operations before Init and after Fini ---

TEST_F(RouterListsTest, TakeTheListsOfARouterThatIsNotInitialisedForEmptyOnes) {
  router->Fini();
  for (List* list : {peer->m_using_servers(), peer->m_preparing_servers()}) {
    EXPECT_EQ(nullptr, peer->FindServerNode(list, kUrl));
    EXPECT_EQ(0U, peer->GetConnectedCount(list));
    peer->ResetServerNode(list, kUrl);
    peer->ReleaseServerList(list);
    EXPECT_EQ(ROUTER_ERR_ALLOCATION, Add(list, kUrl));
  }
  EXPECT_EQ(0U, mgr.live_count());
}

}  // namespace
}  // namespace OstrandService
