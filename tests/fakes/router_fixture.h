// A router with a fake for everything it touches.
//
//   class OstrandRouterTest : public testing::Test, public OstrandFakes::RouterFixture {};
//
//   TEST_F(OstrandRouterTest, ...) {
//     ASSERT_EQ(0, Init());
//     peer->AddServerNode(...);
//     EXPECT_EQ(logger.Lines(), Lines({{OSTRAND_LOG_LEVEL_INFO, "AddServerNode", "..."}}));
//   }
//
// Time stands still at FakeClock::kStartMs. The router dies first; the connector manager then
// faults if a connector is left.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_clock.h"
#include "fakes/fake_judge_proxy.h"
#include "fakes/fake_latency_data_mgr.h"
#include "fakes/fake_ostrand_server.h"
#include "fakes/fake_statistic_mgr.h"
#include "fakes/journal.h"
#include "fakes/recording_logger.h"
#include "fakes/router_invariants.h"
#include "fakes/router_peer.h"
#include "fakes/scripted_connector_mgr.h"
#include "service_api/ostrand_router.h"

namespace OstrandFakes {

// A line that the router is expected to write.
struct Said {
  OstrandCommon::LogLevel level;
  std::string function;
  std::string text;
};

class RouterFixture {
 public:
  static constexpr int32_t kModuleId = 77;
  static constexpr int64_t kAppId = 1001;
  static constexpr int32_t kZoneId = 5;
  static constexpr char kSignature[] = "signature of the application";
  static constexpr int32_t kSignType = 3;
  static constexpr uint32_t kSyncTimeoutMs = 4321;
  static constexpr size_t kPackBufferSize = 64 * 1024;

  RouterFixture();

  // A router as the constants above and the members below say; replaces the one there was.
  OstrandService::OstrandRouter& MakeRouter();
  // Another one beside it, with null for the collaborators that are null here.
  std::unique_ptr<OstrandService::OstrandRouter> NewRouter(
      OstrandService::LatencyDataMgr* latency_data_mgr,
      OstrandService::OstrandServiceStatisticMgr* statistic_mgr,
      OstrandService::JudgeProxy* judge_proxy);

  // The router's Init with the fakes.
  int32_t Init();
  // The service as Init takes it: a pointer to exactly this type, since it travels untyped.
  OstrandService::OstrandServer* Service() { return &server; }

  // The lines as this fixture's router writes them.
  static LogLine Line(OstrandCommon::LogLevel level, const std::string& function,
                      const std::string& text);
  static std::vector<LogLine> Lines(std::initializer_list<Said> said);

  // Adds a proxy to a list as AddServerNode does and answers its record; faults when it cannot.
  OstrandService::ProxyServer* AddProxy(OstrandService::List* list, const std::string& url,
                                        const std::string& id = "id");
  // The same, connected and signed up.
  OstrandService::ProxyServer* AddReadyProxy(OstrandService::List* list, const std::string& url,
                                             const std::string& id = "id");

  std::vector<std::string> Broken() { return BrokenInvariants(*router, mgr); }

  FakeClock clock;
  Journal journal;
  RecordingLogger logger;
  ScriptedConnectorMgr mgr{&journal};
  FakeOstrandServer server{&logger, &journal};
  FakeStatisticMgr statistics{&journal};
  FakeJudgeProxy judge{&journal};
  FakeLatencyDataMgr latency{&journal};
  std::vector<char> pack_buffer;
  std::unique_ptr<OstrandService::OstrandRouter> router;
  std::unique_ptr<OstrandService::OstrandRouterPeer> peer;
};

}  // namespace OstrandFakes
