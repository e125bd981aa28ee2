#include "net/net_connector.h"

#include <gtest/gtest.h>

namespace OSTRNET {
namespace {

// A connector with nothing but what every connector must have.
class BareConnector : public CConnector {
 public:
  int Connect() override { return 0; }
  void Disconnect(int) override {}
  int GetStatus() const override { return STATUS_DISCONNECTED; }
  const char* GetURL() const override { return "tcp://10.0.0.1:80"; }
  int PeekPkg(const char*&, int&, void*) override { return 0; }
  void ConsumePkg() override {}
  void Recover(void*) override {}
  const char* GetLastErrDesc() override { return ""; }
};

TEST(CConnector, ThatCannotSendAnswersMinusOne) {
  BareConnector connector;
  EXPECT_EQ(-1, connector.SendToQ("abc", 3, nullptr));
}

TEST(CConnector, ThatDoesNotKnowItsAddressLeavesBothNumbersAlone) {
  BareConnector connector;
  int ip = 17;
  int port = 18;
  connector.GetIPAndPort(ip, port);
  EXPECT_EQ(17, ip);
  EXPECT_EQ(18, port);
}

TEST(CConnector, WithoutBuffersHasFiguresOfZero) {
  BareConnector connector;
  EXPECT_EQ(0U, connector.GetSendBuffDataSize());
  EXPECT_EQ(0U, connector.GetRecvBuffDataSize());
  EXPECT_EQ(0, connector.GetSendBuffLeftRate());
  EXPECT_EQ(0, connector.GetRecvBuffLeftRate());
}

TEST(CConnector, StatusNumbersAreThoseOfTheSystem) {
  EXPECT_EQ(0, CConnector::STATUS_DISCONNECTED);
  EXPECT_EQ(1, CConnector::STATUS_CONNECTING);
  EXPECT_EQ(2, CConnector::STATUS_CONNECTED);
}

}  // namespace
}  // namespace OSTRNET
