// What the router tells of its proxies: the status text, the table, the one used last.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fakes/fake_request.h"
#include "unit/service_api/router_status_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::AllocationFaults;

// --- The status text ---

class StatLogTest : public RouterStatusTest {};

TEST_F(StatLogTest, HasAllItsLinesWithoutProxies) {
  const std::string empty =
      "\tnot_connect_proxy_cnt:0\n"
      "\tauth_fail_proxy_cnt:0\n"
      "\tauth_success_proxy:0\n"
      "\tnot_connect_proxy:\n"
      "\tauth_fail_proxy:\n"
      "\tauth_success_proxy:\n";
  EXPECT_EQ(empty, router->GetStatLog());
  router->Fini();
  EXPECT_EQ(empty, router->GetStatLog()) << "also without lists";
}

TEST_F(StatLogTest, SortsTheProxiesIntoThreeSections) {
  Add(1);
  Add(2, 0);
  ProxyServer* refused = Add(3);
  refused->auth_succeed = false;
  refused->last_auth_result = -6413;
  refused->has_sent_auth = false;
  refused->last_recv_ms = 1700000000123;
  Add(4, 1);
  Add(5);
  TakeServerOf(5);
  TakeConnectorOf(Add(6));
  Add(7, 3);
  ProxyServer* waiting = Add(8);
  waiting->auth_succeed = false;
  waiting->last_auth_result = 0;
  waiting->last_recv_ms = 0;
  ProxyServer* stopping = Add(9);
  stopping->last_auth_result = 1;
  stopping->is_available = false;
  Add(10, -1)->auth_succeed = false;
  EXPECT_EQ(
      "\tnot_connect_proxy_cnt:6\n"
      "\tauth_fail_proxy_cnt:2\n"
      "\tauth_success_proxy:2\n"
      "\tnot_connect_proxy:\n"
      "\t\ttcp://10.0.0.2:8002 status:0\n"
      "\t\ttcp://10.0.0.4:8004 status:1\n"
      "\t\tnull\n"
      "\t\tnull\n"
      "\t\ttcp://10.0.0.7:8007 status:3\n"
      "\t\ttcp://10.0.0.10:8010 status:-1\n"
      "\tauth_fail_proxy:\n"
      "\t\ttcp://10.0.0.3:8003 result:-6413 has_sent_auth:0 last_recv_ms: 1700000000123\n"
      "\t\ttcp://10.0.0.8:8008 result:0 has_sent_auth:1 last_recv_ms: 0\n"
      "\tauth_success_proxy:\n"
      "\t\ttcp://10.0.0.1:8001\n"
      "\t\ttcp://10.0.0.9:8009\n",
      router->GetStatLog());
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(StatLogTest, TellsTheUrlsOfTheConnectors) {
  Add(1);
  RealServerNode* node = peer->FindServerNode(peer->m_using_servers(), Url(1).c_str());
  std::strcpy(node->server_url, "tcp://elsewhere:1");  // NOLINT: fits
  EXPECT_NE(std::string::npos, router->GetStatLog().find("\t\ttcp://10.0.0.1:8001\n"));
}

TEST_F(StatLogTest, TellsOfTheProxiesInUseOnly) {
  AddReadyProxy(peer->m_preparing_servers(), Url(1));
  AddReadyProxy(peer->m_removing_servers(), Url(2));
  EXPECT_EQ(std::string::npos, router->GetStatLog().find("tcp"));
}

TEST_F(StatLogTest, HasRoomForAllProxies) {
  for (int number = 1; number <= 300; ++number) {
    Add("tcp://" + std::string(900, 'h') + std::to_string(number), 0);
  }
  const std::string text = router->GetStatLog();
  EXPECT_EQ(0U, text.find("\tnot_connect_proxy_cnt:300\n"));
  EXPECT_NE(std::string::npos, text.find("h300 status:0\n"));
}

TEST_F(StatLogTest, IsEmptyWithoutMemory) {
  Add(1);
  AllocationFaults faults;
  faults.FailThrowing(1);
  EXPECT_EQ("", router->GetStatLog());
  EXPECT_TRUE(faults.struck());
}

// --- The table of proxies ---

class ProxyStatusTest : public RouterStatusTest {
 protected:
  static ProxyStatus Untouched() {
    ProxyStatus row;
    std::memset(static_cast<void*>(&row), 'x', sizeof(row));
    row.auth_succeed = true;
    return row;
  }
  static bool IsUntouched(const ProxyStatus& row) {
    return row.proxy_url[0] == 'x' && row.connect_status[0] == 'x' && row.proxy_url[255] == 'x';
  }

  std::vector<ProxyStatus> rows = std::vector<ProxyStatus>(8, Untouched());
  int count = 0;
};

TEST_F(ProxyStatusTest, HasARowForEachProxy) {
  const struct {
    int status;
    bool auth_succeed;
    const char* expected;
  } kProxies[] = {{0, false, "DISCONNECTED"}, {1, false, "CONNECTING"}, {2, true, "CONNECTED"},
                  {3, true, "UNKNOWN"},       {-1, false, "UNKNOWN"},   {2, false, "CONNECTED"}};
  int number = 0;
  for (const auto& one : kProxies) {
    Add(++number, one.status)->auth_succeed = one.auth_succeed;
  }
  router->GetProxyStatus(rows.data(), 8, count);
  EXPECT_EQ(6, count);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(Url(i + 1), rows[static_cast<size_t>(i)].proxy_url);
    EXPECT_STREQ(kProxies[i].expected, rows[static_cast<size_t>(i)].connect_status);
    EXPECT_EQ(kProxies[i].auth_succeed, rows[static_cast<size_t>(i)].auth_succeed);
  }
  EXPECT_TRUE(IsUntouched(rows[6]));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ProxyStatusTest, HasARowForAProxyWithoutConnectorToo) {
  TakeConnectorOf(Add(1));
  Add(2);
  TakeServerOf(2);
  router->GetProxyStatus(rows.data(), 8, count);
  ASSERT_EQ(2, count);
  EXPECT_STREQ("NULL", rows[0].connect_status);
  EXPECT_EQ(Url(1), rows[0].proxy_url);
  EXPECT_TRUE(rows[0].auth_succeed);
  EXPECT_STREQ("NULL", rows[1].connect_status);
  EXPECT_EQ(Url(2), rows[1].proxy_url);
  EXPECT_FALSE(rows[1].auth_succeed);
}

TEST_F(ProxyStatusTest, StopsAtItsCapacity) {
  for (int number = 1; number <= 5; ++number) {
    Add(number);
  }
  for (const int capacity : {0, -1, INT32_MIN}) {
    router->GetProxyStatus(rows.data(), capacity, count);
    EXPECT_EQ(0, count);
    EXPECT_TRUE(IsUntouched(rows[0])) << capacity;
  }
  router->GetProxyStatus(nullptr, 0, count);
  EXPECT_EQ(0, count);
  router->GetProxyStatus(rows.data(), 2, count);
  EXPECT_EQ(2, count);
  EXPECT_EQ(Url(1), rows[0].proxy_url);
  EXPECT_EQ(Url(2), rows[1].proxy_url);
  EXPECT_TRUE(IsUntouched(rows[2]));
}

TEST_F(ProxyStatusTest, HasNoRowsWithoutRoomForThem) {
  Add(1);
  Add(2);
  count = 40;
  router->GetProxyStatus(nullptr, 8, count);
  EXPECT_EQ(40, count);
}

TEST_F(ProxyStatusTest, AddsToTheCount) {
  Add(1);
  Add(2);
  count = 40;
  router->GetProxyStatus(rows.data(), 8, count);
  EXPECT_EQ(42, count);
  EXPECT_EQ(Url(1), rows[0].proxy_url) << "the rows begin at the first all the same";
}

TEST_F(ProxyStatusTest, IsEmptyWithoutProxies) {
  count = 3;
  router->GetProxyStatus(rows.data(), 8, count);
  router->Fini();
  router->GetProxyStatus(rows.data(), 8, count);
  EXPECT_EQ(3, count);
  EXPECT_TRUE(IsUntouched(rows[0]));
}

TEST_F(ProxyStatusTest, CutsUrlsTo255Characters) {
  for (const size_t len : {254U, 255U, 256U, 300U, 1023U}) {
    const std::string url = "tcp://" + std::string(len - 6, 'h');
    Add(url);
    count = 0;
    rows.assign(8, Untouched());
    router->GetProxyStatus(rows.data(), 8, count);
    const ProxyStatus& row = rows[static_cast<size_t>(count - 1)];
    EXPECT_EQ(url.substr(0, 255), std::string(row.proxy_url)) << len;
  }
}

// --- The proxy that was used last ---

TEST_F(RouterStatusTest, TellsNoUsedProxyBeforeTheFirstRequestAndThenTheLast) {
  EXPECT_EQ(nullptr, router->GetUsedProxyUrl());
  OstrandFakes::FakeRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ, kZoneId, kTable);
  for (const int number : {1, 2}) {
    EXPECT_EQ(0, peer->InnerSendRequest(Add(number), &request));
    EXPECT_EQ(Url(number), router->GetUsedProxyUrl());
  }
}

}  // namespace
}  // namespace OstrandService
