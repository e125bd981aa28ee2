// The three lists: adding, finding, detaching, releasing, counting and tracing proxies.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr int kNoLogger = -1;
constexpr int kBadArgument = -1811;
constexpr int kAllocationFailed = -9747;

constexpr char kUrl[] = "tcp://10.0.0.1:1001";
constexpr char kOther[] = "tcp://10.0.0.2:1002";

std::string Pointer(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", pointer);
  return text;
}

// A url of any length that begins like one.
std::string UrlOfLength(size_t length) {
  std::string url = "tcp://";
  url.resize(length, 'h');
  return url;
}

class RouterListsTest : public testing::Test, public RouterFixture {
 protected:
  RouterListsTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    in_use = peer->m_using_servers();
    preparing = peer->m_preparing_servers();
    removing = peer->m_removing_servers();
    logger.Clear();
    logger.SetThreshold(OSTRAND_LOG_LEVEL_DEBUG);
  }

  int Add(List* list, const std::string& url, ProxyServer* proxy = nullptr) {
    return peer->AddServerNode(list, url.c_str(), "id", proxy);
  }
  ProxyServer* ServerAt(List* list, const char* url) {
    return peer->FindServerNode(list, url)->server;
  }
  static void AppendNode(List* list, const std::string& url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = proxy;
  }
  // Fills a list up to its capacity with elements that have no record.
  static void FillUp(List* list) {
    for (uint32_t i = list->GetUsed(); i < 1024; ++i) {
      AppendNode(list, "tcp://10.1.0.0:" + std::to_string(i), nullptr);
    }
  }

  List* in_use;
  List* preparing;
  List* removing;
};

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

TEST_F(ReleaseServerListTest, DetachesElementsAlsoForAListThatIsNoneOfTheThree) {
  List own(sizeof(RealServerNode));
  ProxyServer* shared = AddProxy(&own, kUrl);
  ASSERT_EQ(0, Add(removing, kUrl, shared));
  peer->ReleaseServerList(&own);
  EXPECT_EQ(nullptr, ServerAt(removing, kUrl));
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

// --- The operations before Init and after Fini ---

TEST_F(RouterListsTest, TakeTheListsOfARouterThatIsNotInitialisedForEmptyOnes) {
  router->Fini();
  for (List* list : {peer->m_using_servers(), peer->m_preparing_servers()}) {
    EXPECT_EQ(nullptr, peer->FindServerNode(list, kUrl));
    EXPECT_EQ(0U, peer->GetConnectedCount(list));
    peer->ResetServerNode(list, kUrl);
    peer->ReleaseServerList(list);
    EXPECT_EQ(kAllocationFailed, Add(list, kUrl));
  }
  EXPECT_EQ(0U, mgr.live_count());
}

}  // namespace
}  // namespace OstrandService
