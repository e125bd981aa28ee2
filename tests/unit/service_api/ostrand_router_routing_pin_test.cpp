// Finding the one proxy that the user pinned.
#include <gtest/gtest.h>

#include <string>

#include "fakes/lock_probe.h"
#include "unit/service_api/router_routing_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::IsHeld;
using OSTRNET::CConnector;

class RouterPinTest : public RouterRoutingTest {
 protected:
  // The proxy that is found for this pin.
  ProxyServer* Pinned(const char* ip, int32_t port) {
    router->SetSpecialOstrroxyIPAndPort(ip, port);
    ProxyServer* found = peer->FindUserRouteProxy();
    EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
    return found;
  }
  ProxyServer* Add(const std::string& url) { return AddProxy(peer->m_using_servers(), url); }
};

TEST_F(RouterPinTest, IsFoundByItsAddress) {
  SetRing({{10, proxies[1]}, {20, proxies[2]}, {30, proxies[3]}});
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
  EXPECT_EQ(proxies[3], Pinned("10.0.0.3", 8000));
  EXPECT_EQ(nullptr, Pinned("10.0.0.4", 8000));
  EXPECT_EQ(nullptr, Pinned("10.0.0.1", 8001));
  EXPECT_EQ(nullptr, Pinned("10.0.0.1", 80000)) << "longer than the url";
  EXPECT_EQ(nullptr, Pinned("", 0));
  EXPECT_EQ(nullptr, Pinned("10.0.0.1", -8000));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterPinTest, IsAlsoFoundByTheBeginningOfItsUrl) {
  SetRing({{10, proxies[1]}, {20, proxies[2]}});
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 80));
  EXPECT_EQ(proxies[2], Pinned("10.0.0.2", 8));
  ProxyServer* exact = Add("tcp://10.0.0.2:80");
  SetRing({{10, proxies[2]}, {20, exact}});
  EXPECT_EQ(proxies[2], Pinned("10.0.0.2", 80)) << "the first slot wins, not the better match";
}

TEST_F(RouterPinTest, IsTakenWhateverItsState) {
  mgr.At(Url(1)).SetStatus(CConnector::STATUS_DISCONNECTED);
  proxies[1]->auth_succeed = false;
  TakeOut(1);
  SetRing({{10, proxies[1]}});
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
}

TEST_F(RouterPinTest, IsSearchedInAllSlotsWhateverTheRingsSize) {
  SetRing({});
  EXPECT_EQ(nullptr, Pinned("10.0.0.1", 8000));
  peer->m_virtual_nodes()[19999].server = proxies[1];
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
  peer->m_virtual_nodes()[0].server = proxies[2];
  peer->m_virtual_node_count() = 1;
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
}

TEST_F(RouterPinTest, IsSearchedPastSlotsWithoutServerOrConnector) {
  ProxyServer without_connector;
  SetRing({{10, nullptr}, {20, &without_connector}, {30, proxies[1]}});
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
  EXPECT_EQ(nullptr, Pinned("10.0.0.2", 8000));
}

TEST_F(RouterPinTest, ComparesAtMost127Characters) {
  const std::string ip(126, '9');
  const std::string cut = "tcp://" + ip.substr(0, 121);
  ASSERT_EQ(127U, cut.size());
  ProxyServer* proxy = Add(cut + "whatever follows");
  SetRing({{10, proxy}});
  EXPECT_EQ(proxy, Pinned(ip.c_str(), 8000));
  EXPECT_EQ(nullptr, Pinned((ip.substr(0, 120) + "8").c_str(), 8000)) << "the 127th counts";
}

TEST_F(RouterPinTest, IsGoneWhenThePinIsTakenBack) {
  SetRing({{10, proxies[1]}});
  EXPECT_EQ(proxies[1], Pinned("10.0.0.1", 8000));
  router->ReSetSpecialOstrroxyIPAndPort();
  EXPECT_EQ(nullptr, peer->FindUserRouteProxy());
}

}  // namespace
}  // namespace OstrandService
