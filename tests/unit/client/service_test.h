// A service driven by hand, with a fleet on loopback to talk to.
//
// Threads: the test's thread drives the service as a Client would; RouterOf(...).peer members are
// looked at on that thread.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/service.h"
#include "common/clock.h"
#include "fakes/recording_logger.h"
#include "fakes/router_peer.h"
#include "fleet/fleet.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {

class ServiceTest : public testing::Test {
 protected:
  static constexpr int32_t kAppId = 7;
  static constexpr int64_t kPatienceMs = 20000;  // waited for in full only by a test that fails

  static VexMeta Schema(const std::string& table, int32_t version = 0) {
    VexMeta meta;
    meta.name = table;
    meta.version = version;
    meta.key_fields = {{"id", VexFieldType::kString, 32, 0}};
    meta.value_fields = {{"name", VexFieldType::kString, 64, 0}};
    return meta;
  }

  // For zones 1 and 2 with one table each, of which nothing is checked.
  void StartFleet(OstrandFleet::FleetOptions options = {}) {
    options.create_unknown_tables = options.tables.empty();
    m_fleet = std::make_unique<OstrandFleet::Fleet>(options);
    ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
    m_options.directory_urls = {m_fleet->DirectoryUrl()};
  }

  ServiceTest() {
    m_options.app_id = kAppId;
    m_options.zones = {1, 2};
    m_options.directory_urls = {"tcp://127.0.0.1:1"};
    m_options.tables = {{"user", 1, nullptr}, {"order", 2, nullptr}};
    m_options.signature = "a signature";
    m_options.logger = &m_logger;
    m_options.module_id = 42;
    m_options.directory_refresh_ms = 20;
    m_options.random_seed = 1;
  }

  void StartService() {
    m_service = std::make_unique<OstrandService::Service>(m_options);
    ASSERT_EQ(m_service->Start(), 0);
  }
  void StartBoth() {
    StartFleet();
    StartService();
  }

  // Drives the service until the condition holds. Answers of the application's own requests end
  // up in m_answers.
  bool UpdateUntil(const std::function<bool()>& condition) {
    const int64_t deadline_ms = OstrandCommon::GetMonotonicMilliseconds() + kPatienceMs;
    while (!condition()) {
      const int64_t now_ms = OstrandCommon::GetMonotonicMilliseconds();
      if (now_ms > deadline_ms) return false;
      const uint64_t seen = m_service->Connectors().FramesSeen();
      m_service->Update();
      Poll();
      m_service->Connectors().WaitForFrames(seen, now_ms + 5);
    }
    return true;
  }
  bool BecomesReady() {
    return UpdateUntil([this] { return m_service->IsReady(); });
  }

  OstrandService::OstrandRouterPeer Peer(int32_t zone) {
    return OstrandService::OstrandRouterPeer(*m_service->RouterOf(zone));
  }

  // Has a read of zone 1's table "user" sent and answered.
  void ReadARecord() {
    constexpr uint64_t kAsynId = 5;
    OstrandService::ClientRequest request;
    request.Get("user").Zone(1).Key("id", "nobody");
    OstrandService::RouterRequest routed;
    routed.Load(request.Head(), request.Bytes());
    routed.SetAppId(kAppId);
    routed.SetAsynID(kAsynId);
    routed.SetTimeout(static_cast<int32_t>(kPatienceMs));
    routed.SetTableSubscript(m_service->FindTable(1, "user"));
    m_answers.clear();
    ASSERT_EQ(m_service->RouterOf(1)->SendRequest(&routed), 0);
    EXPECT_EQ(m_service->InFlight(1), 1u);
    ASSERT_TRUE(UpdateUntil([&] { return !m_answers.empty(); }));
    EXPECT_EQ(m_answers, std::vector<uint64_t>{kAsynId});
    EXPECT_EQ(m_service->InFlight(1), 0u);
  }

  // The metadata requests that the fleet received, for this table.
  std::vector<OstrandFleet::RecordedRequest> SchemaQuestions(const std::string& table) {
    std::vector<OstrandFleet::RecordedRequest> questions;
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.cmd == ostrand_protocol_cs::OSTRAND_API_METADATA_GET_REQ &&
          request.table == table) {
        questions.push_back(request);
      }
    }
    return questions;
  }

  bool IsLogged(const std::string& part) const {
    for (const std::string& text : m_logger.Texts()) {
      if (text.find(part) != std::string::npos) return true;
    }
    return false;
  }

  OstrandFakes::RecordingLogger m_logger;
  std::unique_ptr<OstrandFleet::Fleet> m_fleet;
  OstrandService::ClientOptions m_options;
  std::unique_ptr<OstrandService::Service> m_service;
  std::vector<uint64_t> m_answers;  // asynchronous ids

 private:
  void Poll() {
    for (size_t i = 0; i < m_service->ZoneCount(); ++i) {
      while (m_service->RouterAt(i).RecvResponse(&m_response, nullptr) == 1) {
        if (!m_service->TakeOwnAnswer(m_response)) {
          m_answers.push_back(m_response.GetAsynID());
        }
      }
    }
  }

  OstrandService::RouterResponse m_response;
};

}  // namespace OstrandTests
