// A client's core driven by hand: a clock of the test's, and a fleet on loopback to talk to.
//
// The core's clock stands still unless the test moves it; the fleet lives in real time, so the core
// makes rounds until what the fleet brings about is there.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/client_core.h"
#include "client/client_errors.h"
#include "client/client_request.h"
#include "fakes/fake_system.h"
#include "fakes/recording_logger.h"
#include "fakes/router_peer.h"
#include "fleet/fleet.h"

namespace OstrandTests {

using OstrandService::ClientCore;
using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

class ClientCoreTest : public testing::Test {
 protected:
  static constexpr int32_t kAppId = 7;
  static constexpr int kPatienceRounds = 20000;  // of a millisecond; used up by failing tests only

  ClientCoreTest() {
    m_options.app_id = kAppId;
    m_options.zones = {1};
    m_options.directory_urls = {"tcp://127.0.0.1:1"};
    m_options.tables = {{"user", 1, nullptr}};
    m_options.signature = "a signature";
    m_options.logger = &m_logger;
    m_options.module_id = 42;
    m_logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_WARN);
  }
  ~ClientCoreTest() override { m_core.reset(); }

  // A fleet with so many proxies, and tables without schema where none are given.
  void StartFleet(OstrandFleet::FleetOptions options = {}) {
    options.create_unknown_tables = options.tables.empty();
    m_fleet = std::make_unique<OstrandFleet::Fleet>(options);
    ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
    m_options.directory_urls = {m_fleet->DirectoryUrl()};
  }
  void StartFleet(size_t proxies) {
    OstrandFleet::FleetOptions options;
    options.proxies = proxies;
    StartFleet(options);
  }
  void StartCore() {
    m_core = std::make_unique<ClientCore>(m_options, m_system);
    m_scope = std::make_unique<OSTRNET::LoopScope>(m_core->Loop());
    ASSERT_EQ(m_core->Start(), 0);
  }
  // Both, and the core is signed up with all proxies.
  void StartBoth(size_t proxies = 1) {
    StartFleet(proxies);
    StartCore();
    ASSERT_TRUE(BecomesReady());
  }

  void TearDown() override {
    m_scope.reset();
    m_core.reset();
  }

  OstrandService::Zone& ZoneOne() { return m_core->GetService().ZoneAt(0); }
  OstrandService::OstrandRouterPeer Peer(size_t zone = 0) {
    return OstrandService::OstrandRouterPeer(*m_core->GetService().ZoneAt(zone).router);
  }

  void Round() { m_core->Round(m_core->Loop().NowMs() + 1); }
  bool RoundUntil(const std::function<bool()>& condition) {
    for (int i = 0; i < kPatienceRounds; ++i) {
      if (condition()) return true;
      Round();
    }
    return false;
  }
  bool BecomesReady() {
    return RoundUntil([this] { return m_core->GetService().IsReady(); });
  }
  // Lets time pass in small steps, as it does for an owner that drives the core all the time.
  void Pass(int64_t ms, int64_t step_ms = 100) {
    for (; ms > 0; ms -= step_ms) {
      m_system.AdvanceMs(std::min(ms, step_ms));
      Round();
    }
  }

  // Prepares and sends; the code. The id in m_id.
  int Send(ClientRequest request) {
    const int ret = m_core->Catalog().Prepare(request);
    return ret != 0 ? ret : m_core->Send(request.Head(), request.Bytes(), m_id);
  }
  int Send(ClientRequest& request, uint64_t& id) {
    const int ret = Send(request);
    id = m_id;
    return ret;
  }
  static ClientRequest GetRequest(const std::string& key = "nobody") {
    ClientRequest request;
    request.Get("user").Key("id", key);
    return request;
  }

  // Hands out what is there now.
  bool Take() {
    for (int i = 0; i < 100; ++i) {
      const ClientCore::Taken taken = m_core->TakeOutcome(m_response);
      if (taken == ClientCore::Taken::kOutcome) {
        m_outcomes.push_back({m_response.GetAsynID(), m_response.GetResult()});
        return true;
      }
      if (taken == ClientCore::Taken::kNothing) return false;
    }
    return false;
  }
  // Makes rounds until there is an outcome.
  bool TakeLater() {
    return RoundUntil([this] { return Take(); });
  }
  void ExpectOutcome(uint64_t id, int32_t result) {
    ASSERT_TRUE(Take());
    EXPECT_EQ(m_response.GetAsynID(), id);
    EXPECT_EQ(m_response.GetResult(), result);
  }
  void ExpectNoOutcome() { EXPECT_FALSE(Take()) << m_response.GetResult(); }

  void SetFaults(size_t proxy, const std::function<void(OstrandFleet::ProxyFaults&)>& edit) {
    OstrandFleet::ProxyFaults faults = m_fleet->Faults(proxy);
    edit(faults);
    m_fleet->SetFaults(proxy, faults);
  }
  void DropAnswers(size_t proxy) {
    SetFaults(proxy, [](auto& faults) { faults.drop_every = 1; });
  }
  bool FleetHas(uint64_t table_requests, size_t proxy = 0) {
    return RoundUntil([=] { return m_fleet->Counters(proxy).table_requests >= table_requests; });
  }

  // A session ends: nothing is left of any request.
  void ExpectNothingLeft() {
    EXPECT_EQ(m_core->InFlight(), 0u);
    for (size_t i = 0; i < m_core->GetService().ZoneCount(); ++i) {
      const OstrandService::Zone& zone = m_core->GetService().ZoneAt(i);
      EXPECT_EQ(zone.waiting_count, 0u);
      EXPECT_TRUE(zone.waiting.empty());
      EXPECT_EQ(zone.store.count(), 0u);
      EXPECT_EQ(zone.store.bytes(), 0u);
      EXPECT_EQ(zone.latency->InFlight(), 0u);
      for (const auto& connector : zone.connectors->Connectors()) {
        EXPECT_TRUE(connector->in_flight.empty());
      }
    }
    const OstrandService::ClientCounters& counters = m_core->Counters();
    EXPECT_EQ(counters.accepted, counters.outcomes + counters.cancelled);
  }

  bool IsLogged(const std::string& part) const {
    for (const std::string& text : m_logger.Texts()) {
      if (text.find(part) != std::string::npos) return true;
    }
    return false;
  }

  struct Outcome {
    uint64_t id;
    int32_t result;
  };

  OstrandFakes::FakeSystem m_system;
  OstrandFakes::RecordingLogger m_logger;
  std::unique_ptr<OstrandFleet::Fleet> m_fleet;
  OstrandService::ClientOptions m_options;
  std::unique_ptr<ClientCore> m_core;
  std::unique_ptr<OSTRNET::LoopScope> m_scope;
  ClientResponse m_response;
  std::vector<Outcome> m_outcomes;
  uint64_t m_id = 0;
};

}  // namespace OstrandTests
