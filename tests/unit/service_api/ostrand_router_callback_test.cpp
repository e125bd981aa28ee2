// What the receive callback refuses, and that it leaves the application's frames alone.
#include <gtest/gtest.h>

#include <string>

#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandFakes::RouterFixture;

constexpr char kUrl[] = "tcp://10.0.0.1:1001";

class RouterCallBackTest : public testing::Test, public RouterFixture {
 protected:
  RouterCallBackTest() {
    EXPECT_EQ(0, Init());
    proxy = AddProxy(peer->m_using_servers(), kUrl);
    logger.Clear();
    frame.assign(28, '\0');
    frame[27] = 8;  // The command: an answer to a read of one record.
  }

  int Call(const char* data, void* arg) {
    return RouterCallBack(kUrl, data, static_cast<int>(frame.size()), arg);
  }

  ProxyServer* proxy = nullptr;
  std::string frame;
};

TEST_F(RouterCallBackTest, RefusesMissingArguments) {
  EXPECT_EQ(-1, Call(frame.data(), nullptr));
  EXPECT_EQ(-1, Call(nullptr, proxy));
  EXPECT_EQ(-1, Call(nullptr, nullptr));
  proxy->m_ptrRouter = nullptr;
  EXPECT_EQ(-1, Call(frame.data(), proxy));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterCallBackTest, RefusesFramesWithoutTheServicesLogger) {
  server.SetLogger(nullptr);
  EXPECT_EQ(-2, Call(frame.data(), proxy)) << "the router's own logger does not help";
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterCallBackTest, RefusesFramesOfARouterWithoutService) {
  const auto homeless = NewRouter(&latency, &statistics, &judge);
  ProxyServer record;
  record.m_ptrRouter = homeless.get();
  EXPECT_EQ(-2, Call(frame.data(), &record));
}

TEST_F(RouterCallBackTest, LeavesTheApplicationsFramesQueued) {
  EXPECT_EQ(0, Call(frame.data(), proxy));
  EXPECT_EQ(0, mgr.Deliver(kUrl, frame));
  EXPECT_EQ(1U, mgr.At(kUrl).queued_frames());
}

}  // namespace
}  // namespace OstrandService
