// A service whose directories are away.
#include "client/service.h"
#include "unit/client/client_core_test.h"

namespace OstrandTests {
namespace {

class ServiceDirectoryTest : public ClientCoreTest {};

// The directory client rests between its attempts; a connector's pause on top of that would use up
// the patience for the connection, without any attempt.
TEST_F(ServiceDirectoryTest, TriesToConnectInEveryRoundHoweverManyFailed) {
  StartCore();  // nobody listens
  const auto failures = [&] {
    int count = 0;
    for (const std::string& text : m_logger.Texts()) {
      count += text.find("the route stays as it is") != std::string::npos ? 1 : 0;
    }
    return count;
  };
  for (int i = 0; i < 10000 && failures() < 12; ++i) {
    Pass(50);
  }
  ASSERT_EQ(failures(), 12);
  EXPECT_GE(m_system.Connects(), 12);
  EXPECT_FALSE(IsLogged("it does not accept the connection in time"));
}

}  // namespace
}  // namespace OstrandTests
