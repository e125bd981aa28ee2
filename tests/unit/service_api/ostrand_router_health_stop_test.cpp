// Whether a proxy that wants to stop can be spared.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr int kMayStop = 0;
constexpr int kMustStay = -1;

constexpr int kConnected = 2;

class ProxyServerCanStopTest : public testing::Test, public RouterFixture {
 protected:
  ProxyServerCanStopTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
    logger.Clear();
  }

  static std::string Url(int i) { return "tcp://10.0.0.1:" + std::to_string(1000 + i); }
  ProxyServer* ServerAt(int i) { return peer->FindServerNode(in_use, Url(i).c_str())->server; }

  // A using list of `total` proxies, the first `available` of them available.
  void Fill(int available, int total) {
    peer->ReleaseServerList(in_use);
    for (int i = 0; i < total; ++i) {
      AddReadyProxy(in_use, Url(i));
      if (i >= available) {
        mgr.At(Url(i)).SetStatus(OSTRNET::CConnector::STATUS_CONNECTING);
      }
    }
    logger.Clear();
  }
  RealServerNode* AppendNode(const std::string& url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(in_use->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = proxy;
    return node;
  }

  int Ask(const std::string& url) {
    logger.Clear();
    return peer->ProxyServerCanStop(url.c_str());
  }

  static std::vector<LogLine> Refusal(int available, int total, const std::string& url) {
    return Lines({{OSTRAND_LOG_LEVEL_ERROR, "ProxyServerCanStop",
                   "available proxy num " + std::to_string(available) + " total " +
                       std::to_string(total) + ", proxy not enough " + url + " can not stop"}});
  }
  static std::vector<LogLine> Grant(int available, int total, const std::string& url) {
    return Lines({{OSTRAND_LOG_LEVEL_INFO, "ProxyServerCanStop",
                   "available proxy num " + std::to_string(available) + " total " +
                       std::to_string(total) + ",enough proxy so " + url + " can stop"}});
  }
  static std::vector<LogLine> NotAvailable(const std::string& url, const std::string& state) {
    return Lines({{OSTRAND_LOG_LEVEL_INFO, "ProxyServerCanStop",
                   "proxy " + url + " not available, so can stop, " + state}});
  }
  static std::vector<LogLine> Stranger(const std::string& url) {
    return Lines({{OSTRAND_LOG_LEVEL_INFO, "ProxyServerCanStop",
                   "proxy " + url + " not in using, so can stop"}});
  }

  List* in_use;
};

TEST_F(ProxyServerCanStopTest, NeedsTwoAvailableAndMoreThanHalfOfTheList) {
  struct {
    int available;
    int total;
    int answer;
  } const cases[] = {
      {1, 1, kMustStay},    {1, 2, kMustStay},    {2, 2, kMayStop},      {1, 3, kMustStay},
      {2, 3, kMayStop},     {3, 3, kMayStop},     {2, 4, kMustStay},     {3, 4, kMayStop},
      {2, 5, kMustStay},    {3, 5, kMayStop},     {3, 6, kMustStay},     {4, 6, kMayStop},
      {3, 7, kMustStay},    {4, 7, kMayStop},     {100, 200, kMustStay}, {101, 200, kMayStop},
      {99, 199, kMustStay}, {100, 199, kMayStop},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::Message() << given.available << " of " << given.total);
    Fill(given.available, given.total);
    EXPECT_EQ(given.answer, Ask(Url(0)));
    EXPECT_EQ(given.answer == kMayStop ? Grant(given.available, given.total, Url(0))
                                       : Refusal(given.available, given.total, Url(0)),
              logger.Lines());
  }
}

TEST_F(ProxyServerCanStopTest, AnswersTheSameWhereverTheAskerStands) {
  Fill(3, 5);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kMayStop, Ask(Url(i)));
    EXPECT_EQ(Grant(3, 5, Url(i)), logger.Lines());
  }
}

TEST_F(ProxyServerCanStopTest, CountsOthersThatAreAvailableAndConnected) {
  Fill(2, 2);
  ProxyServer* other = ServerAt(1);
  struct {
    bool auth_succeed;
    bool is_available;
    int last_auth_result;
    int status;
    int answer;
  } const cases[] = {
      {true, true, 0, kConnected, kMayStop},   {false, true, 0, kConnected, kMustStay},
      {true, false, 0, kConnected, kMustStay}, {true, true, 1, kConnected, kMustStay},
      {true, true, -1, kConnected, kMustStay}, {true, true, 0, 0, kMustStay},
      {true, true, 0, 1, kMustStay},           {true, true, 0, 3, kMustStay},
  };
  for (const auto& given : cases) {
    other->auth_succeed = given.auth_succeed;
    other->is_available = given.is_available;
    other->last_auth_result = given.last_auth_result;
    mgr.At(Url(1)).SetStatus(given.status);
    EXPECT_EQ(given.answer, Ask(Url(0)))
        << given.auth_succeed << given.is_available << given.last_auth_result << given.status;
    EXPECT_EQ(given.answer == kMayStop ? Grant(2, 2, Url(0)) : Refusal(1, 2, Url(0)),
              logger.Lines());
  }
}

TEST_F(ProxyServerCanStopTest, AnAskerThatServesNothingMayAlwaysStop) {
  struct {
    bool auth_succeed;
    bool is_available;
    int last_auth_result;
    const char* state;
  } const cases[] = {
      {false, true, 0, "auth_succeed 0 is_available 1 last_auth_result 0"},
      {true, false, 0, "auth_succeed 1 is_available 0 last_auth_result 0"},
      {true, true, 1, "auth_succeed 1 is_available 1 last_auth_result 1"},
      {true, true, -6413, "auth_succeed 1 is_available 1 last_auth_result -6413"},
      {false, false, -1, "auth_succeed 0 is_available 0 last_auth_result -1"},
  };
  for (const int total : {1, 2, 5}) {
    Fill(1, total);
    for (const auto& given : cases) {
      for (const int status : {0, 1, kConnected}) {
        ServerAt(0)->auth_succeed = given.auth_succeed;
        ServerAt(0)->is_available = given.is_available;
        ServerAt(0)->last_auth_result = given.last_auth_result;
        mgr.At(Url(0)).SetStatus(status);
        EXPECT_EQ(kMayStop, Ask(Url(0))) << given.state;
        EXPECT_EQ(NotAvailable(Url(0), given.state), logger.Lines());
      }
    }
  }
}

TEST_F(ProxyServerCanStopTest, AnAskerThatIsNotConnectedDoesNotCountItself) {
  Fill(3, 4);
  mgr.At(Url(0)).SetStatus(OSTRNET::CConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(kMustStay, Ask(Url(0)));
  EXPECT_EQ(Refusal(2, 4, Url(0)), logger.Lines());
  Fill(3, 3);
  mgr.At(Url(0)).SetStatus(OSTRNET::CConnector::STATUS_CONNECTING);
  EXPECT_EQ(kMayStop, Ask(Url(0)));
  EXPECT_EQ(Grant(2, 3, Url(0)), logger.Lines());
}

TEST_F(ProxyServerCanStopTest, AStrangerMayAlwaysStop) {
  const std::string stranger = "tcp://10.9.9.9:1";
  EXPECT_EQ(kMayStop, Ask(stranger)) << "nobody is in use";
  EXPECT_EQ(Stranger(stranger), logger.Lines());
  Fill(1, 1);
  for (const std::string& url :
       {stranger, std::string(), Url(0) + "0", Url(0).substr(0, Url(0).size() - 1)}) {
    EXPECT_EQ(kMayStop, Ask(url));
    EXPECT_EQ(Stranger(url), logger.Lines());
  }
  AddReadyProxy(peer->m_preparing_servers(), "tcp://10.0.0.2:1");
  AddReadyProxy(peer->m_removing_servers(), "tcp://10.0.0.3:1");
  for (const char* url : {"tcp://10.0.0.2:1", "tcp://10.0.0.3:1"}) {
    EXPECT_EQ(kMayStop, Ask(url)) << "in another list";
    EXPECT_EQ(Stranger(url), logger.Lines());
  }
}

TEST_F(ProxyServerCanStopTest, ComparesUrlsWhole) {
  const std::string longest = "tcp://" + std::string(1017, 'h');
  AddReadyProxy(in_use, longest);
  EXPECT_EQ(kMustStay, Ask(longest));
  EXPECT_EQ(Refusal(1, 1, longest), logger.Lines());
  EXPECT_EQ(kMayStop, Ask(longest + "h"));
  EXPECT_EQ(Stranger(longest + "h"), logger.Lines());
  EXPECT_EQ(kMayStop, Ask(longest + std::string(5000, 'h')));
}

TEST_F(ProxyServerCanStopTest, TwoOfTwoCannotBothLeave) {
  Fill(2, 2);
  EXPECT_EQ(kMayStop, Ask(Url(0)));
  ServerAt(0)->last_auth_result = 1;  // the mark of the granted stop
  EXPECT_EQ(kMustStay, Ask(Url(1)));
  EXPECT_EQ(Refusal(1, 2, Url(1)), logger.Lines());
  EXPECT_EQ(kMayStop, Ask(Url(0))) << "who has leave keeps it";
  EXPECT_EQ(NotAvailable(Url(0), "auth_succeed 1 is_available 1 last_auth_result 1"),
            logger.Lines());
}

TEST_F(ProxyServerCanStopTest, LosesProxiesUntilHalfOfTheListIsLeft) {
  Fill(5, 5);
  std::vector<int> granted;
  for (int i = 0; i < 5; ++i) {
    if (Ask(Url(i)) == kMayStop) {
      granted.push_back(i);
      ServerAt(i)->last_auth_result = 1;
    }
  }
  EXPECT_EQ(std::vector<int>({0, 1, 2}), granted) << "5, 4 and 3 of 5 are enough, 2 are not";
}

TEST_F(ProxyServerCanStopTest, TheTotalCountsWhoeverIsInTheList) {
  Fill(2, 2);
  AppendNode("tcp://nobody", nullptr);
  EXPECT_EQ(kMayStop, Ask(Url(0)));
  EXPECT_EQ(Grant(2, 3, Url(0)), logger.Lines());
  ProxyServer unconnected;
  unconnected.auth_succeed = true;
  unconnected.last_auth_result = 0;
  RealServerNode* node = AppendNode("tcp://unconnected", &unconnected);
  EXPECT_EQ(kMustStay, Ask(Url(0)));
  EXPECT_EQ(Refusal(2, 4, Url(0)), logger.Lines());
  node->server = nullptr;
}

TEST_F(ProxyServerCanStopTest, AnAskerWithoutProxyOrConnectorIsNotReadThrough) {
  Fill(2, 2);
  ProxyServer unconnected;
  unconnected.auth_succeed = true;
  unconnected.last_auth_result = 0;
  RealServerNode* node = AppendNode("tcp://asker", &unconnected);
  EXPECT_EQ(kMayStop, Ask("tcp://asker"));
  EXPECT_EQ(Grant(2, 3, "tcp://asker"), logger.Lines()) << "itself not counted";
  node->server = nullptr;
  EXPECT_EQ(kMayStop, Ask("tcp://asker")) << "serves nothing";
}

// A mutex that the decision took would stop this test for good.
TEST_F(ProxyServerCanStopTest, OnlyReadsAndTakesNoMutex) {
  Fill(2, 3);
  OstrandCommon::Mutex& list_mutex = peer->m_mutex_list();
  OstrandCommon::Mutex& ring_mutex = peer->m_mutex_vistual_nodes();
  OstrandCommon::Mutex& alarm_mutex = peer->m_alarmMutex();
  {
    const OstrandCommon::ScopedLock list_lock(list_mutex);
    const OstrandCommon::ScopedLock ring_lock(ring_mutex);
    const OstrandCommon::ScopedLock alarm_lock(alarm_mutex);
    EXPECT_EQ(kMayStop, Ask(Url(0)));
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0, ServerAt(i)->last_auth_result);
    EXPECT_TRUE(ServerAt(i)->auth_succeed);
    EXPECT_TRUE(ServerAt(i)->is_available);
    EXPECT_TRUE(mgr.At(Url(i)).sent().empty());
  }
  EXPECT_EQ(3U, in_use->GetUsed());
  EXPECT_TRUE(Broken().empty());
}

TEST_F(ProxyServerCanStopTest, NeedsNoLogger) {
  Fill(3, 4);
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)) << "takes the logger away";
  EXPECT_EQ(kMayStop, Ask(Url(0)));
  EXPECT_EQ(kMayStop, Ask("tcp://stranger"));
  ServerAt(0)->last_auth_result = 1;
  EXPECT_EQ(kMayStop, Ask(Url(0)));
  EXPECT_EQ(kMustStay, Ask(Url(1)));
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
