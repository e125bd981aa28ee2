// What the tests of the status operations share.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"

namespace OstrandService {

inline constexpr char kTable[] = "players";

// A router without proxies.
class RouterStatusTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  RouterStatusTest() { EXPECT_EQ(0, Init()); }
  ~RouterStatusTest() override {
    for (const auto& [node, record] : m_detached) {
      node->server = record;
    }
    for (const auto& [record, connector] : m_disconnected) {
      record->connector = connector;
    }
    std::memset(static_cast<void*>(peer->m_virtual_nodes()), 0, sizeof(peer->m_virtual_nodes()));
  }

  static std::string Url(int number) {
    return "tcp://10.0.0." + std::to_string(number) + ":" + std::to_string(8000 + number);
  }
  // A signed-up proxy in use, of this connector status.
  ProxyServer* Add(int number, int status = OSTRNET::CConnector::STATUS_CONNECTED) {
    return Add(Url(number), status);
  }
  ProxyServer* Add(const std::string& url, int status = OSTRNET::CConnector::STATUS_CONNECTED) {
    ProxyServer* record = AddReadyProxy(peer->m_using_servers(), url);
    mgr.At(url).SetStatus(status);
    logger.Clear();
    return record;
  }
  // Both until the end of the test.
  void TakeServerOf(int number) {
    RealServerNode* node = peer->FindServerNode(peer->m_using_servers(), Url(number).c_str());
    m_detached.emplace_back(node, node->server);
    node->server = nullptr;
  }
  void TakeConnectorOf(ProxyServer* record) {
    m_disconnected.emplace_back(record, record->connector);
    record->connector = nullptr;
  }

 private:
  std::vector<std::pair<RealServerNode*, ProxyServer*>> m_detached;
  std::vector<std::pair<ProxyServer*, OSTRNET::CConnector*>> m_disconnected;
};

}  // namespace OstrandService
