// Adding a proxy to a list: what is refused, what is made, what every failure leaves behind.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"
#include "unit/service_api/router_lists_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;

constexpr int kNoLogger = -1;
constexpr int kBadArgument = -1811;
constexpr int kAllocationFailed = -9747;

// --- AddServerNode: arguments ---

using AddServerNodeTest = RouterListsTest;

TEST_F(AddServerNodeTest, WithoutALoggerExaminesNothing) {
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  EXPECT_EQ(kNoLogger, Add(in_use, kUrl));
  EXPECT_EQ(kNoLogger, peer->AddServerNode(in_use, nullptr, nullptr, nullptr));
  EXPECT_EQ(kNoLogger, peer->AddServerNode(nullptr, kUrl, "id", nullptr));
  EXPECT_EQ(0U, in_use->GetUsed());
  EXPECT_TRUE(mgr.creations().empty());
}

TEST_F(AddServerNodeTest, RefusesANullUrl) {
  EXPECT_EQ(kBadArgument, peer->AddServerNode(in_use, nullptr, "id", nullptr));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode", "Check string failed. server_url:NULL"}}),
      logger.Lines());
  EXPECT_EQ(0U, in_use->GetUsed());
}

TEST_F(AddServerNodeTest, RefusesUrlsShorterThan11OrLongerThan1023Characters) {
  for (const size_t length :
       {size_t{0}, size_t{1}, size_t{10}, size_t{1024}, size_t{1025}, size_t{70000}}) {
    logger.Clear();
    std::string url = UrlOfLength(length);
    EXPECT_EQ(kBadArgument, Add(in_use, url)) << length;
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                      "Check string length failed. server_url:" + url + " server_url_len:" +
                          std::to_string(length) + " expect_name_len:(10, 1024)"}}),
              logger.Lines())
        << "the bounds are printed as exclusive ones";
    EXPECT_EQ(kBadArgument, Add(nullptr, url)) << "before the list is looked at";
  }
  EXPECT_EQ(0U, in_use->GetUsed());
  EXPECT_TRUE(mgr.creations().empty());
}

TEST_F(AddServerNodeTest, AcceptsUrlsOf11To1023Characters) {
  for (const size_t length : {size_t{11}, size_t{12}, size_t{1022}, size_t{1023}}) {
    const std::string url = UrlOfLength(length);
    EXPECT_EQ(0, Add(in_use, url)) << length;
    EXPECT_EQ(url, ServerOf(peer->FindListNode(in_use, url.c_str()))->server_url) << "whole";
  }
  EXPECT_EQ(4U, in_use->GetUsed());
}

// --- AddServerNode: a new record ---

TEST_F(AddServerNodeTest, MakesAConnectorWhoseCallbackGetsTheRecord) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  ASSERT_EQ(1U, mgr.creations().size());
  const auto creation = mgr.creations()[0];
  EXPECT_EQ(kUrl, creation.url);
  EXPECT_EQ(static_cast<void*>(peer->m_pack_parser()), static_cast<void*>(creation.parser));
  EXPECT_EQ(-1, creation.buffer_size);
  EXPECT_EQ(&RouterCallBack, creation.callback);
  EXPECT_EQ(ServerAt(in_use, kUrl), creation.arg);
  EXPECT_EQ(creation.connector, ServerAt(in_use, kUrl)->connector);
  EXPECT_EQ(0, mgr.At(kUrl).connect_count()) << "connecting comes later";
}

TEST_F(AddServerNodeTest, MakesARecordWithItsInitialValues) {
  clock.SetMs(1234567890123);
  ASSERT_EQ(0, Add(in_use, kUrl));
  const ProxyServer& record = *ServerAt(in_use, kUrl);
  EXPECT_EQ(&mgr.At(kUrl), record.connector);
  EXPECT_EQ(1234567890123, record.last_recv_ms);
  EXPECT_EQ(router.get(), record.m_ptrRouter);
  EXPECT_EQ(-1, record.pre_status);
  EXPECT_EQ(-1, record.last_auth_result);
  EXPECT_FALSE(record.has_sent_auth);
  EXPECT_FALSE(record.auth_succeed);
  EXPECT_TRUE(record.is_available);
  EXPECT_EQ(0, record.last_unavailable_time);
  EXPECT_EQ(0, record.last_connect_time);
  EXPECT_EQ(0, record.m_heartbeat_num);
  EXPECT_EQ(0U, record.m_request_count);
}

TEST_F(AddServerNodeTest, LogsTheConnectorAndTheElement) {
  ASSERT_EQ(0, peer->AddServerNode(in_use, kUrl, "proxy-1", nullptr));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_INFO, "AddServerNode",
              std::string("new ProxyServerConnector ") + kUrl},
             {OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
              std::string("AddServerNode succeed. server_url:") + kUrl + ", server_id:proxy-1"}}),
      logger.Lines());
}

TEST_F(AddServerNodeTest, TracesTheListOnlyWhenTraceIsEnabled) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  EXPECT_EQ(1, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_TRUE(logger.LinesFrom("TraceLogConnection").empty());

  logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE);
  logger.Clear();
  ASSERT_EQ(0, Add(in_use, kOther));
  EXPECT_EQ(1, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_DEBUG));
  const std::vector<LogLine> lines = logger.Lines();
  ASSERT_EQ(4U, lines.size());
  const auto traced = [&](int index, const char* url) {
    return Line(OSTRAND_LOG_LEVEL_DEBUG, "TraceLogConnection",
                "After AddServerNode. index:" + std::to_string(index) + " server_url:" + url +
                    " server:" + Pointer(ServerAt(in_use, url)) +
                    " connector:" + Pointer(&mgr.At(url)) + " status:DISCONNECTED auth:unauthed");
  };
  EXPECT_EQ(traced(0, kUrl), lines[2]) << "at DEBUG, although TRACE switched it on";
  EXPECT_EQ(traced(1, kOther), lines[3]);
}

TEST_F(AddServerNodeTest, TracesTheListThatItAddedTo) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE);
  logger.Clear();
  ASSERT_EQ(0, Add(preparing, kOther));
  const std::vector<LogLine> traced = logger.LinesFrom("TraceLogConnection");
  ASSERT_EQ(1U, traced.size());
  EXPECT_NE(std::string::npos,
            traced[0].text.find(std::string("After AddServerNode. index:0 server_url:") + kOther));
}

TEST_F(AddServerNodeTest, AppendsBehindTheOthers) {
  for (const char* url : {"tcp://10.0.0.9:9", "tcp://10.0.0.1:1", "tcp://10.0.0.5:5"}) {
    ASSERT_EQ(0, Add(in_use, url));
  }
  std::string urls;
  for (const RealServerNode& node : ServersOf(in_use)) {
    urls += std::string(node.server_url) + " ";
  }
  EXPECT_EQ("tcp://10.0.0.9:9 tcp://10.0.0.1:1 tcp://10.0.0.5:5 ", urls);
}

// --- AddServerNode: ids ---

// What an id becomes in the element (32 bytes) and in the log.
TEST_F(AddServerNodeTest, CopiesAtMost32BytesOfTheId) {
  const struct {
    const char* id;
    std::string logged;
  } kCases[] = {{"", ""},
                {nullptr, ""},
                {"p1", "p1"},
                {"0123456789012345678901234567890", "0123456789012345678901234567890"},
                {"01234567890123456789012345678901", "01234567890123456789012345678901"},
                {"01234567890123456789012345678901too long", "01234567890123456789012345678901"}};
  int number = 0;
  for (const auto& c : kCases) {
    logger.Clear();
    const std::string url = "tcp://10.2.0.0:" + std::to_string(number++);
    ASSERT_EQ(0, peer->AddServerNode(in_use, url.c_str(), c.id, nullptr));
    const RealServerNode& node = *peer->FindServerNode(in_use, url.c_str());
    std::string bytes = c.logged;
    bytes.resize(32, '\0');
    EXPECT_EQ(bytes, std::string(node.server_id, 32)) << "zero-filled";
    EXPECT_NE(nullptr, node.server) << "what stands behind the id is whole";
    EXPECT_TRUE(logger.Find(OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode succeed. server_url:" + url +
                                                         ", server_id:" + c.logged));
  }
}

TEST_F(AddServerNodeTest, WritesNothingBehind32BytesOfAnId) {
  const std::string id(3000, 'i');  // Would reach the elements that come next.
  ASSERT_EQ(0, peer->AddServerNode(in_use, kUrl, id.c_str(), nullptr));
  ASSERT_EQ(0, Add(in_use, kOther));
  ASSERT_EQ(0, Add(in_use, "tcp://10.0.0.3:1003"));
  EXPECT_EQ(3U, in_use->GetUsed());
  EXPECT_STREQ(kUrl, ServerOf(in_use->Begin())->server_url);
  EXPECT_STREQ(kOther, ServerOf(in_use->Begin()->next)->server_url);
}

TEST_F(AddServerNodeTest, ReadsNothingBehind32BytesOfAnId) {
  const std::vector<char> id(32, 'i');  // Exactly the id on the heap: no byte behind it is there.
  ASSERT_EQ(0, peer->AddServerNode(in_use, kUrl, id.data(), nullptr));
  RealServerNode* node = peer->FindServerNode(in_use, kUrl);
  EXPECT_EQ(std::string(32, 'i'), std::string(node->server_id, 32));
  ASSERT_EQ(0, peer->AddServerNode(preparing, kUrl, node->server_id, node->server));
  EXPECT_EQ(std::string(32, 'i'),
            std::string(peer->FindServerNode(preparing, kUrl)->server_id, 32));
  EXPECT_TRUE(
      logger.Find(OSTRAND_LOG_LEVEL_DEBUG, std::string("AddServerNode succeed. server_url:") +
                                               kUrl + ", server_id:" + std::string(32, 'i')));
}

// --- AddServerNode: a given record, a known url ---

TEST_F(AddServerNodeTest, SharesAGivenRecordAndMakesNoConnector) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  ProxyServer* record = ServerAt(in_use, kUrl);
  record->last_auth_result = 5;
  record->is_available = false;
  record->last_unavailable_time = 9;
  logger.Clear();
  EXPECT_EQ(0, Add(preparing, kUrl, record));
  EXPECT_EQ(record, ServerAt(preparing, kUrl));
  EXPECT_EQ(record, ServerAt(in_use, kUrl));
  EXPECT_EQ(1U, mgr.creations().size());
  EXPECT_EQ(5, record->last_auth_result) << "the record is untouched";
  EXPECT_FALSE(record->is_available);
  EXPECT_EQ(9, record->last_unavailable_time);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
                    std::string("AddServerNode succeed. server_url:") + kUrl + ", server_id:id"}}),
            logger.Lines());
}

TEST_F(AddServerNodeTest, LeavesTheElementOfAKnownUrlAsItIs) {
  ASSERT_EQ(0, peer->AddServerNode(in_use, kUrl, "old", nullptr));
  ProxyServer* record = ServerAt(in_use, kUrl);
  ProxyServer other;
  logger.Clear();
  EXPECT_EQ(0, peer->AddServerNode(in_use, kUrl, "new", &other));
  EXPECT_EQ(0, peer->AddServerNode(in_use, kUrl, "new", nullptr));
  EXPECT_EQ(1U, in_use->GetUsed());
  EXPECT_EQ(record, ServerAt(in_use, kUrl));
  EXPECT_STREQ("old", peer->FindServerNode(in_use, kUrl)->server_id);
  EXPECT_EQ(1U, mgr.creations().size());
  const OstrandFakes::Said exists = {OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
                                     std::string("Server exist in list. server_url:") + kUrl};
  EXPECT_EQ(Lines({exists, exists}), logger.Lines());
}

TEST_F(AddServerNodeTest, FindsAKnownUrlBeforeItNoticesAFullList) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  FillUp(in_use);
  EXPECT_EQ(0, Add(in_use, kUrl));
}

// --- AddServerNode: failures ---

TEST_F(AddServerNodeTest, FailsWhenTheRecordCannotBeAllocated) {
  AllocationFaults faults;
  faults.FailNothrow(1);
  EXPECT_EQ(kAllocationFailed, peer->AddServerNode(in_use, kUrl, "id", nullptr));
  EXPECT_TRUE(faults.struck());
  EXPECT_EQ(0, faults.outstanding());
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                    std::string("new ProxyServerConnector failed. server_url:") + kUrl}}),
            logger.Lines());
  EXPECT_EQ(0U, in_use->GetUsed());
  EXPECT_TRUE(mgr.creations().empty());
}

TEST_F(AddServerNodeTest, AllocatesNothingButTheRecord) {
  AllocationFaults faults;
  ASSERT_EQ(0, peer->AddServerNode(in_use, kUrl, "id", nullptr));
  EXPECT_EQ(1, faults.nothrow_count());
  EXPECT_EQ(0, faults.throwing_count());
}

TEST_F(AddServerNodeTest, FailsWhenTheConnectorCannotBeMade) {
  const struct {
    const char* error_text;
    std::string printed;
  } kCases[] = {{"no more sockets", "no more sockets"}, {"", ""}, {nullptr, ""}};
  for (const auto& c : kCases) {
    logger.Clear();
    mgr.FailCreation(1, c.error_text);
    {
      AllocationFaults faults;
      EXPECT_EQ(kAllocationFailed, peer->AddServerNode(in_use, kUrl, "id", nullptr));
      EXPECT_EQ(0, faults.outstanding()) << "the record is deleted again";
    }
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                      "m_connector_mgr->CreateConnector failed. errmsg:" + c.printed +
                          " server_url:" + kUrl}}),
              logger.Lines());
    EXPECT_EQ(0U, in_use->GetUsed());
    EXPECT_EQ(0U, mgr.live_count());
  }
  EXPECT_EQ(0, Add(in_use, kUrl)) << "the next attempt is a new one";
}

TEST_F(AddServerNodeTest, WithoutAConnectorManagerFailsAsIfItHadFailed) {
  router->Fini();
  ASSERT_EQ(0, router->Init(nullptr, Service(), &logger));
  logger.Clear();
  {
    AllocationFaults faults;
    EXPECT_EQ(kAllocationFailed, peer->AddServerNode(peer->m_using_servers(), kUrl, "id", nullptr));
    EXPECT_EQ(0, faults.outstanding());
  }
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
              std::string("m_connector_mgr->CreateConnector failed. errmsg: server_url:") + kUrl}}),
      logger.Lines());
  EXPECT_EQ(0U, peer->m_using_servers()->GetUsed());
}

TEST_F(AddServerNodeTest, RemovesTheNewConnectorAgainWhenTheListIsFull) {
  FillUp(in_use);
  journal.Clear();
  {
    AllocationFaults faults;
    EXPECT_EQ(kAllocationFailed, peer->AddServerNode(in_use, kUrl, "id", nullptr));
    EXPECT_EQ(0, faults.outstanding());
  }
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_INFO, "AddServerNode",
                    std::string("new ProxyServerConnector ") + kUrl},
                   {OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                    std::string("list->PushBack failed. server_url:") + kUrl}}),
            logger.Lines());
  EXPECT_EQ(std::vector<std::string>(
                {std::string("CreateConnector ") + kUrl, std::string("RemoveConnector ") + kUrl}),
            journal.Entries());
  EXPECT_EQ(1024U, in_use->GetUsed());
}

TEST_F(AddServerNodeTest, LeavesAGivenRecordAloneWhenTheListIsFull) {
  ASSERT_EQ(0, Add(in_use, kUrl));
  ProxyServer* record = ServerAt(in_use, kUrl);
  FillUp(preparing);
  logger.Clear();
  EXPECT_EQ(kAllocationFailed, Add(preparing, kUrl, record));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                    std::string("list->PushBack failed. server_url:") + kUrl}}),
            logger.Lines());
  EXPECT_EQ(record, ServerAt(in_use, kUrl));
  EXPECT_TRUE(mgr.IsAlive(record->connector));
  EXPECT_TRUE(mgr.removals().empty());
}

TEST_F(AddServerNodeTest, TakesNoListForAFullOne) {
  EXPECT_EQ(kAllocationFailed, Add(nullptr, kUrl));
  EXPECT_EQ(0U, mgr.live_count());
  EXPECT_TRUE(logger.Find(OSTRAND_LOG_LEVEL_ERROR,
                          std::string("list->PushBack failed. server_url:") + kUrl));
  ProxyServer record;
  EXPECT_EQ(kAllocationFailed, Add(nullptr, kUrl, &record));
}

TEST_F(AddServerNodeTest, TakesAListWithoutPoolForAFullOne) {
  std::unique_ptr<List> poor;
  {
    AllocationFaults faults;
    faults.FailNothrow(1);
    poor = std::make_unique<List>(static_cast<uint32_t>(sizeof(RealServerNode)));
    ASSERT_TRUE(faults.struck());
  }
  EXPECT_EQ(kAllocationFailed, Add(poor.get(), kUrl));
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(AddServerNodeTest, TakesNoLock) {
  const OstrandCommon::ScopedLock list_lock(peer->m_mutex_list());
  EXPECT_EQ(0, Add(in_use, kUrl));
  peer->ReleaseServerList(in_use);
}
}  // namespace
}  // namespace OstrandService
