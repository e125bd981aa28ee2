// What the tests of the passes over a list share: a router with one proxy in use, and its passes.
//
// Each pass is given the caller's clock (now_ms); the sign-up stamps the library's own (clock).
// Both run together in most tests and apart where it matters which one counts.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {

class ConnectionsTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  static constexpr char kUrl[] = "tcp://10.0.0.1:1001";
  static constexpr char kOther[] = "tcp://10.0.0.2:1002";
  static constexpr char kThird[] = "tcp://10.0.0.3:1003";

  static constexpr int kConnectError = -18195;
  static constexpr int64_t kNow = OstrandFakes::FakeClock::kStartMs;

  static constexpr int kDisconnected = 0;
  static constexpr int kConnecting = 1;
  static constexpr int kConnected = 2;

  ConnectionsTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
    proxy = AddProxy(in_use, kUrl);
    connector = &mgr.At(kUrl);
    logger.Clear();
    journal.Clear();
  }

  // A pass over the list in use; answers the number of signed-up proxies.
  uint32_t Pass(int64_t now_ms, const char* signature = "sig") {
    uint32_t count = 99;
    peer->UpdateServerListStatus(in_use, static_cast<uint64_t>(now_ms), signature, count);
    return count;
  }
  void DropSilent(int64_t now_ms) { peer->DisconnectProxyThatNeedToDisconnect(in_use, now_ms); }

  // The proxy as passes before this one left it.
  void Given(int status, int pre_status, bool has_sent_auth, bool auth_succeed,
             int last_auth_result) {
    connector->SetStatus(status);
    proxy->pre_status = pre_status;
    proxy->has_sent_auth = has_sent_auth;
    proxy->auth_succeed = auth_succeed;
    proxy->last_auth_result = last_auth_result;
  }

  // The lines of the passes themselves, without those of the sign-up's package.
  std::vector<OstrandFakes::LogLine> PassLines() {
    return logger.LinesFrom("UpdateServerListStatus");
  }
  static OstrandFakes::Said PassLine(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "UpdateServerListStatus", text + kUrl};
  }
  size_t SignUps() { return connector->sent().size(); }

  // An element that AddServerNode would not make.
  RealServerNode* AppendNode(const char* url, ProxyServer* server_of_it) {
    auto* node = static_cast<RealServerNode*>(in_use->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url);
    node->server = server_of_it;
    return node;
  }
  void TakeLogger() { EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)); }

  List* in_use;
  ProxyServer* proxy;
  OstrandFakes::ScriptedConnector* connector;
};

}  // namespace OstrandService
