// Sign-up answers: what an accepted and a refused one change, and what a user can ask about it.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "unit/service_api/router_inbound_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

class SignupResTest : public RouterInboundTest {
 protected:
  SignupResTest() {
    for (ProxyServer* record : {proxy, preparing, removing}) {
      record->auth_succeed = false;
      record->last_auth_result = -1;
    }
    server.SetApiVersion("3.14.159");
  }

  static Said Received(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_INFO, "recv OSTRAND_API_APP_SIGNUP_RES from URL(" + url + ")");
  }
  static Said Succeeds(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_DEBUG, "Auth succeed. url:" + url);
  }
  std::vector<std::string> Accesses() {
    std::vector<std::string> urls;
    for (const auto& access : statistics.accesses()) {
      urls.push_back(access.url);
    }
    return urls;
  }
};

// --- Accepted ---

TEST_F(SignupResTest, SignsTheProxyUp) {
  EXPECT_EQ(1, Dispatch(kUsing, SignupRes(0)));
  EXPECT_TRUE(proxy->auth_succeed);
  EXPECT_EQ(0, proxy->last_auth_result);
  EXPECT_TRUE(peer->m_proxy_sign_up_recv());
  EXPECT_EQ(std::vector<std::string>({kUsing}), Accesses()) << "it enters the statistics";
  // Nobody registered the zone with the statistics, so entering fails; that is its own business.
  EXPECT_EQ(Lines({Received(),
                   Succeeds(),
                   {OSTRAND_LOG_LEVEL_ERROR, "InitStatisticAccess",
                    "m_statistic_mgr->AddAccess() failed. ret:-1"}}),
            logger.Lines());
  EXPECT_EQ("", server.last_error_text());
  EXPECT_EQ(0, server.last_error_code());
  EXPECT_FALSE(preparing->auth_succeed);
  EXPECT_FALSE(removing->auth_succeed);
}

TEST_F(SignupResTest, SignsTheProxyUpBetweenItsTwoLines) {
  logger.OnLine([&](const LogLine& line) {
    if (line.function == "ProcRouterMsg") {
      const bool is_second = line.level == OSTRAND_LOG_LEVEL_DEBUG;
      EXPECT_EQ(is_second, peer->m_proxy_sign_up_recv());
      EXPECT_EQ(is_second ? 0 : -1, proxy->last_auth_result);
      EXPECT_EQ(is_second, proxy->auth_succeed);
      EXPECT_TRUE(Accesses().empty());
    }
  });
  EXPECT_EQ(1, Dispatch(kUsing, SignupRes(0)));
  EXPECT_EQ(1U, Accesses().size());
  logger.OnLine(nullptr);
}

TEST_F(SignupResTest, IsConsumed) {
  EXPECT_EQ(1, mgr.Deliver(kUsing, SignupRes(0).Bytes()));
  EXPECT_EQ(1, mgr.Deliver(kUsing, SignupRes(-5).Bytes()));
  EXPECT_EQ(0U, mgr.At(kUsing).queued_frames());
}

TEST_F(SignupResTest, EntersEveryUsableProxyInUseIntoTheStatistics) {
  statistics.Register(kAppId, kZoneId);
  AddReadyProxy(peer->m_using_servers(), "tcp://10.0.1.1:1");
  AddReadyProxy(peer->m_using_servers(), "tcp://10.0.1.2:2")->auth_succeed = false;
  AddReadyProxy(peer->m_using_servers(), "tcp://10.0.1.3:3");
  logger.Clear();
  EXPECT_EQ(1, Dispatch(kUsing, SignupRes(0)));
  EXPECT_EQ(std::vector<std::string>({kUsing, "tcp://10.0.1.1:1", "tcp://10.0.1.3:3"}), Accesses());
  EXPECT_EQ(Lines({Received(), Succeeds()}), logger.Lines());
}

TEST_F(SignupResTest, SignsUpAProxyThatIsPreparedButEntersItLater) {
  EXPECT_EQ(1, Dispatch(kPreparing, SignupRes(0)));
  EXPECT_TRUE(preparing->auth_succeed);
  EXPECT_TRUE(Accesses().empty()) << "only the proxies in use are entered";

  // Once it is in use it has no record until anybody's next sign-up answer.
  ASSERT_EQ(0, peer->AddServerNode(peer->m_using_servers(), kPreparing, "id", preparing));
  EXPECT_TRUE(Accesses().empty());
  EXPECT_EQ(1, Dispatch(kUsing, SignupRes(0)));
  EXPECT_EQ(std::vector<std::string>({kUsing, kPreparing}), Accesses());
}

TEST_F(SignupResTest, SignsUpAProxyOnItsWayOut) {
  EXPECT_EQ(1, Dispatch(kRemoving, SignupRes(0)));
  EXPECT_TRUE(removing->auth_succeed);
  EXPECT_EQ(Lines({TurnsToRemoving(kRemoving), Received(kRemoving), Succeeds(kRemoving)}),
            logger.Lines());
}

TEST_F(SignupResTest, NamesTheConnectorsUrlOnceItSucceeds) {
  Alias(peer->m_using_servers(), "tcp://alias:1", proxy);
  mgr.At(kUsing).SetStatus(0);  // Not connected: it is not entered either.
  EXPECT_EQ(1, Dispatch("tcp://alias:1", SignupRes(0)));
  EXPECT_EQ(Lines({Received("tcp://alias:1"), Succeeds(kUsing)}), logger.Lines());
  EXPECT_TRUE(Accesses().empty());
}

TEST_F(SignupResTest, TakesTheVerdictFromTheHead) {
  EXPECT_EQ(1, Dispatch(kUsing, SignupRes(0, -6413)));
  EXPECT_TRUE(proxy->auth_succeed);
  EXPECT_EQ(0, proxy->last_auth_result);

  EXPECT_EQ(-256, Dispatch(kPreparing, SignupRes(-6413, 0)));
  EXPECT_FALSE(preparing->auth_succeed);
  EXPECT_EQ(-6413, preparing->last_auth_result);
}

TEST_F(SignupResTest, DoesNotCountAsASignOfLife) {
  clock.AdvanceMs(5000);
  const int64_t last_recv_ms = proxy->last_recv_ms;
  Dispatch(kUsing, SignupRes(0));
  Dispatch(kUsing, SignupRes(-5));
  EXPECT_EQ(last_recv_ms, proxy->last_recv_ms);
}

TEST_F(SignupResTest, IsDroppedForAProxyWithoutAConnector) {
  OSTRNET::CConnector* const connector = proxy->connector;
  proxy->connector = nullptr;
  EXPECT_EQ(0, Dispatch(kUsing, SignupRes(0)));
  EXPECT_FALSE(proxy->auth_succeed);
  EXPECT_TRUE(Accesses().empty());
  proxy->connector = connector;
}

// --- Refused ---

struct Refusal {
  int32_t result;
  std::string logged;
  std::string stored;
};

std::vector<Refusal> Refusals() {
  const std::string url = kUsing;
  const std::string low = "Client version 3.14.159 is too low. Proxy url " + url +
                          ", PLEASE update your service api library!";
  const std::string high = "Client version 3.14.159 is too high. Proxy url " + url +
                           ", PLEASE change to an old service api library!";
  const std::string failed = "Auth failed. url:" + url;
  return {{-6413, low, low},
          {-6669, high, high},
          {-5, failed + " result:-5", failed + ",  result:-5"},
          {7, failed + " result:7", failed + ",  result:7"},
          {1, failed + " result:1", failed + ",  result:1"},
          {INT32_MIN, failed + " result:-2147483648", failed + ",  result:-2147483648"}};
}

TEST_F(SignupResTest, StoresWhyItIsRefused) {
  for (const Refusal& one : Refusals()) {
    logger.Clear();
    peer->m_proxy_sign_up_recv() = false;
    EXPECT_EQ(-256, Dispatch(kUsing, SignupRes(one.result)));
    EXPECT_EQ(Lines({Received(), Says(OSTRAND_LOG_LEVEL_ERROR, one.logged)}), logger.Lines());
    EXPECT_EQ(one.stored, server.last_error_text());
    EXPECT_EQ(one.result, server.last_error_code());
    EXPECT_EQ(one.stored, server.auth_fail_text());
    EXPECT_EQ(one.result, server.auth_fail_code());
    EXPECT_EQ(one.result, proxy->last_auth_result);
    EXPECT_TRUE(peer->m_proxy_sign_up_recv()) << "an answer it is all the same";
    EXPECT_TRUE(Accesses().empty());
  }
}

TEST_F(SignupResTest, StoresWhyItIsRefusedBehindTheLogLine) {
  for (const int32_t result : {-6413, -6669, -5}) {
    server.SetLastError(-1, "earlier");
    logger.OnLine([&](const LogLine&) {
      EXPECT_EQ(-1, server.last_error_code());
      EXPECT_EQ("earlier", server.last_error_text());
    });
    EXPECT_EQ(-256, Dispatch(kUsing, SignupRes(result)));
    EXPECT_EQ(result, server.last_error_code());
  }
  logger.OnLine(nullptr);
}

TEST_F(SignupResTest, KeepsAnEarlierSignUpWhenItIsRefused) {
  for (const bool earlier : {true, false}) {
    proxy->auth_succeed = earlier;
    proxy->has_sent_auth = true;
    EXPECT_EQ(-256, Dispatch(kUsing, SignupRes(-5)));
    EXPECT_EQ(earlier, proxy->auth_succeed);
    EXPECT_TRUE(proxy->has_sent_auth);
  }
}

TEST_F(SignupResTest, IsRefusedInEveryList) {
  EXPECT_EQ(-256, Dispatch(kPreparing, SignupRes(-5)));
  EXPECT_EQ(-256, Dispatch(kRemoving, SignupRes(-6)));
  EXPECT_EQ(-5, preparing->last_auth_result);
  EXPECT_EQ(-6, removing->last_auth_result);
  EXPECT_EQ("Auth failed. url:" + std::string(kRemoving) + ",  result:-6",
            server.last_error_text());
}

TEST_F(SignupResTest, CutsTheStoredTextTo255Characters) {
  const std::string url = "tcp://" + std::string(1000, 'h') + ":1";
  AddReadyProxy(peer->m_using_servers(), url);
  for (const int32_t result : {-6413, -6669, -5}) {
    logger.Clear();
    EXPECT_EQ(-256, Dispatch(url, SignupRes(result)));
    const std::string stored = server.last_error_text();
    EXPECT_EQ(255U, stored.size());
    const std::string logged = logger.Lines().back().text;
    EXPECT_NE(std::string::npos, logged.find(url)) << "the log has all of it";
    EXPECT_EQ(logged.substr(0, 255), stored);
  }
}

TEST_F(SignupResTest, KeepsTheLastErrorWhenALaterOneSucceeds) {
  Dispatch(kUsing, SignupRes(-5));
  Dispatch(kUsing, SignupRes(0));
  EXPECT_EQ(-5, server.last_error_code());
  EXPECT_EQ("Auth failed. url:" + std::string(kUsing) + ",  result:-5", server.last_error_text());
}

}  // namespace
}  // namespace OstrandService
