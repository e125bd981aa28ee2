// Each invariant is seen to break: a checker that cannot fail would prove nothing.
#include "fakes/router_invariants.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandFakes {
namespace {

using OstrandService::List;
using OstrandService::ProxyServer;
using OstrandService::RealServerNode;
using OstrandService::ServerOf;

constexpr char kUrl[] = "tcp://10.0.0.1:1001";
constexpr char kOther[] = "tcp://10.0.0.2:1002";

using Sentences = std::vector<std::string>;

class RouterInvariantsTest : public testing::Test, public RouterFixture {
 protected:
  RouterInvariantsTest() {
    EXPECT_EQ(0, Init());
    proxy = AddProxy(peer->m_using_servers(), kUrl);
    EXPECT_EQ(0, peer->AddServerNode(peer->m_preparing_servers(), kUrl, "id", proxy));
    other = AddProxy(peer->m_removing_servers(), kOther);
    peer->m_virtual_nodes()[0] = {1, proxy};
    peer->m_virtual_nodes()[1] = {2, nullptr};
    peer->m_virtual_nodes()[2] = {3, other};
    peer->m_virtual_nodes()[3] = {3, proxy};
    peer->m_virtual_node_count() = 3;
  }

  // Appends an element that is taken away again at the end.
  void Append(List* list, const char* url, ProxyServer* record) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url);
    node->server = record;
  }

  ProxyServer* proxy;
  ProxyServer* other;
};

TEST_F(RouterInvariantsTest, HoldOfASoundRouter) { EXPECT_EQ(Sentences(), Broken()); }

TEST_F(RouterInvariantsTest, HoldOfARouterWithoutLists) {
  router->Fini();
  EXPECT_EQ(Sentences(), Broken());
}

TEST_F(RouterInvariantsTest, SeeAUrlTwiceInAList) {
  Append(peer->m_using_servers(), kUrl, proxy);
  EXPECT_EQ(Sentences({std::string(kUrl) + " stands twice in the using list"}), Broken());
  peer->m_using_servers()->PopBack();
}

TEST_F(RouterInvariantsTest, SeeAUrlInTheRemovingAndInAnotherList) {
  Append(peer->m_using_servers(), kOther, other);
  Append(peer->m_preparing_servers(), kOther, other);
  EXPECT_EQ(Sentences({std::string(kOther) + " is in the removing and in the using list",
                       std::string(kOther) + " is in the removing and in the preparing list"}),
            Broken());
  peer->m_using_servers()->PopBack();
  peer->m_preparing_servers()->PopBack();
}

TEST_F(RouterInvariantsTest, SeeDifferentRecordsOfAUrl) {
  peer->FindServerNode(peer->m_preparing_servers(), kUrl)->server = nullptr;
  EXPECT_EQ(Sentences({std::string(kUrl) +
                       " has different records in the using and in the preparing list"}),
            Broken());
}

TEST_F(RouterInvariantsTest, SeeASlotThatPointsAtNoRecord) {
  ProxyServer stranger;
  peer->m_virtual_nodes()[19999].server = &stranger;
  EXPECT_EQ(Sentences({"ring slot 19999 points at a record that no list holds"}), Broken());
  peer->m_virtual_nodes()[19999].server = nullptr;
}

TEST_F(RouterInvariantsTest, SeeARingThatIsNotAscending) {
  peer->m_virtual_node_count() = 4;
  EXPECT_EQ(Sentences({"ring slot 3 is not behind the one before it"}), Broken());
}

TEST_F(RouterInvariantsTest, SeeARecordOfAnotherRouterOrWithoutConnector) {
  OSTRNET::CConnector* const connector = proxy->connector;
  proxy->m_ptrRouter = nullptr;
  proxy->connector = nullptr;
  EXPECT_EQ(Sentences({"the record of " + std::string(kUrl) + " belongs to another router",
                       "the record of " + std::string(kUrl) + " has no live connector",
                       "the connector of " + std::string(kUrl) + " belongs to no record"}),
            Broken());
  proxy->connector = connector;
}

TEST_F(RouterInvariantsTest, SeeARecordOfTwoUrls) {
  Append(peer->m_using_servers(), "tcp://10.0.0.9:9", proxy);
  EXPECT_EQ(Sentences({"one record belongs to " + std::string(kUrl) + " and to tcp://10.0.0.9:9"}),
            Broken());
  peer->m_using_servers()->PopBack();
}

}  // namespace
}  // namespace OstrandFakes
