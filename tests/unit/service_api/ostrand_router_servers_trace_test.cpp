// The three lists: counting the proxies that can take requests, and tracing a list to the log.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/router_fixture.h"
#include "unit/service_api/router_lists_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::LogLine;

// --- GetConnectedCount ---

using GetConnectedCountTest = RouterListsTest;

TEST_F(GetConnectedCountTest, CountsAProxyOnlyWhenEverythingHolds) {
  const struct {
    const char* what;
    bool counted;
    void (*change)(RealServerNode&, OstrandFakes::ScriptedConnector&);
  } kCases[] = {
      {"ready", true, [](RealServerNode&, OstrandFakes::ScriptedConnector&) {}},
      {"detached", false,
       [](RealServerNode& node, OstrandFakes::ScriptedConnector&) { node.server = nullptr; }},
      {"no connector", false,
       [](RealServerNode& node, OstrandFakes::ScriptedConnector&) {
         node.server->connector = nullptr;
       }},
      {"not signed up", false,
       [](RealServerNode& node, OstrandFakes::ScriptedConnector&) {
         node.server->auth_succeed = false;
       }},
      {"disconnected", false,
       [](RealServerNode&, OstrandFakes::ScriptedConnector& connector) { connector.SetStatus(0); }},
      {"connecting", false,
       [](RealServerNode&, OstrandFakes::ScriptedConnector& connector) { connector.SetStatus(1); }},
      {"status unknown", false,
       [](RealServerNode&, OstrandFakes::ScriptedConnector& connector) { connector.SetStatus(3); }},
      {"unavailable", false,
       [](RealServerNode& node, OstrandFakes::ScriptedConnector&) {
         node.server->is_available = false;
       }},
      {"refused", false,
       [](RealServerNode& node, OstrandFakes::ScriptedConnector&) {
         node.server->last_auth_result = -6413;
       }},
      {"stop announced", false, [](RealServerNode& node, OstrandFakes::ScriptedConnector&) {
         node.server->last_auth_result = 1;
       }}};
  for (const auto& c : kCases) {
    ProxyServer* record = AddReadyProxy(in_use, kUrl);
    OSTRNET::CConnector* connector = record->connector;
    AddReadyProxy(in_use, kOther);
    c.change(*peer->FindServerNode(in_use, kUrl), mgr.At(kUrl));
    EXPECT_EQ(c.counted ? 2U : 1U, peer->GetConnectedCount(in_use)) << c.what;
    peer->FindServerNode(in_use, kUrl)->server = record;
    record->connector = connector;
    peer->ReleaseServerList(in_use);
  }
}

TEST_F(GetConnectedCountTest, OfAnEmptyListOrNoneIsZero) {
  EXPECT_EQ(0U, peer->GetConnectedCount(in_use));
  EXPECT_EQ(0U, peer->GetConnectedCount(nullptr));
}

TEST_F(GetConnectedCountTest, DoesNotCareWhatWasSentOrSeenBefore) {
  ProxyServer* record = AddReadyProxy(in_use, kUrl);
  record->has_sent_auth = false;
  record->pre_status = -1;
  record->last_recv_ms = 0;
  EXPECT_EQ(1U, peer->GetConnectedCount(in_use));
}

// --- TraceLogConnection ---

using TraceLogConnectionTest = RouterListsTest;

TEST_F(TraceLogConnectionTest, LogsOneLineForEachElement) {
  const struct {
    int status;
    bool signed_up;
    std::string printed;
  } kCases[] = {{0, false, "status:DISCONNECTED auth:unauthed"},
                {1, false, "status:CONNECTING auth:unauthed"},
                {2, true, "status:CONNECTED auth:authed"},
                {2, false, "status:CONNECTED auth:unauthed"},
                {3, true, "status:UNKNOWN auth:authed"},
                {-1, false, "status:UNKNOWN auth:unauthed"}};
  std::vector<LogLine> expected;
  for (const auto& c : kCases) {
    const std::string index = std::to_string(expected.size());
    const std::string url = "tcp://10.0.0.1:100" + index;
    ProxyServer* record = AddProxy(in_use, url);
    record->auth_succeed = c.signed_up;
    mgr.At(url).SetStatus(c.status);
    LogLine line =
        Line(OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
             "some words index:" + index + " server_url:" + url + " server:" + Pointer(record) +
                 " connector:" + Pointer(&mgr.At(url)) + " " + c.printed);
    line.module_id = 4;
    expected.push_back(line);
  }
  logger.Clear();
  logger.SetThreshold(OSTRAND_LOG_LEVEL_ERROR);
  TraceLogConnection(&logger, 4, in_use, "some words");
  EXPECT_EQ(expected, logger.Lines());
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_DEBUG)) << "whoever calls it has asked";
}

TEST_F(TraceLogConnectionTest, PrintsNullPointersForWhatIsMissing) {
  AppendNode(in_use, kUrl, nullptr);
  ProxyServer record;
  record.auth_succeed = true;
  AppendNode(in_use, kOther, &record);
  TraceLogConnection(&logger, kModuleId, in_use, "p");
  const std::string null = Pointer(nullptr);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
                    std::string("p index:0 server_url:") + kUrl + " server:" + null +
                        " connector:" + null + " status:NULL auth:unauthed"},
                   {OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
                    std::string("p index:1 server_url:") + kOther + " server:" + Pointer(&record) +
                        " connector:" + null + " status:NULL auth:authed"}}),
            logger.Lines());
  in_use->Clear();
}

TEST_F(TraceLogConnectionTest, IsSilentWithoutElementsListOrLogger) {
  TraceLogConnection(&logger, kModuleId, in_use, "p");
  TraceLogConnection(&logger, kModuleId, nullptr, "p");
  TraceLogConnection(nullptr, kModuleId, nullptr, "p");
  AddProxy(in_use, kUrl);
  AppendNode(in_use, kOther, nullptr);
  logger.Clear();
  TraceLogConnection(nullptr, kModuleId, in_use, "p");
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(TraceLogConnectionTest, PrintsNoPrefixAsTheEmptyText) {
  AppendNode(in_use, kUrl, nullptr);
  TraceLogConnection(&logger, kModuleId, in_use, nullptr);
  ASSERT_EQ(1U, logger.Lines().size());
  EXPECT_EQ(0U, logger.Lines()[0].text.find(std::string(" index:0 server_url:") + kUrl));
}

}  // namespace
}  // namespace OstrandService
