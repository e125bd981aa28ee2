// A service whose directories are away, and one whose proxy misbehaves before it is signed up.
#include "client/service.h"
#include "protocol/codec.h"
#include "unit/client_runtime/client_core_test.h"

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

// Such a connection is not read any more, and nobody takes its frames: only its end helps.
TEST_F(ServiceDirectoryTest, LeavesAProxyThatFloodsBeforeItIsSignedUp) {
  m_options.buffer_limit = 64 * 1024;
  m_options.check_heartbeat_ms = 3000;
  StartFleet(1);
  SetFaults(0, [](auto& faults) { faults.ignore_sign_up = true; });
  StartCore();
  ASSERT_TRUE(RoundUntil([&] { return m_fleet->Counters(0).sign_ups > 0; }));
  const auto pkg = ostrand_protocol_cs::NewOStrandPkg();
  pkg->stHead.dwCmd = ostrand_protocol_cs::OSTRAND_API_GET_RES;
  pkg->stHead.iResult = -1;
  std::string frame(1024, '\0');
  size_t len = frame.size();
  ASSERT_EQ(ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(&frame[0], len, nullptr, 0, *pkg,
                                                            pkg->stHead.wVersion, nullptr),
            0);
  frame.resize(len);
  std::string flood;
  while (flood.size() < 2 * m_options.buffer_limit) {
    flood += frame;
  }
  m_fleet->SendBytes(0, flood);
  const auto& connector = *ZoneOne().connectors->Connectors().at(0);
  ASSERT_TRUE(RoundUntil(
      [&] { return connector.GetStatus() == OstrandService::TcpConnector::STATUS_CONNECTED &&
                   ZoneOne().connectors->FramesIn() * len >= 60 * 1024; }));
  SetFaults(0, [](auto& faults) { faults.ignore_sign_up = false; });
  for (int i = 0; i < 300 && !m_core->GetService().IsReady(); ++i) {
    Pass(100);
  }
  EXPECT_TRUE(m_core->GetService().IsReady());
}

}  // namespace
}  // namespace OstrandTests
