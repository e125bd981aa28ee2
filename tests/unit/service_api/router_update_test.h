// What the tests of the periodic update share.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "unit/service_api/router_route_test.h"

namespace OstrandService {

// An initialised router that has just sent heartbeats and sends the next ones in 49 days; nobody is
// judged or rechecked. Its logger has TRACE off.
class RouterUpdateTest : public RouterRouteTest {
 protected:
  static constexpr int64_t kNow = OstrandFakes::FakeClock::kStartMs;
  static constexpr uint32_t kNever = 0xFFFFFFFF;

  RouterUpdateTest() {
    judge.option.max_remove_rate = 0;
    judge.recheck_interval = INT32_MAX;
    peer->m_last_send_heartbeat_time() = kNow;
    router->SetHeartbeatInterval(kNever);
  }

  void StartOver() {
    logger.Clear();
    journal.Clear();
  }
  // One update of a caller whose clock agrees with the library's.
  void Update(int64_t now_ms, const char* signature = "the signature") {
    clock.SetMs(now_ms);
    router->OnUpdate(now_ms, 0, signature, nullptr, nullptr);
  }

  // Proxies that are connected and signed up, with the ids "id0", "id1", ...
  std::vector<ProxyServer*> Ready(List* list, const Texts& urls) {
    std::vector<ProxyServer*> records;
    for (const std::string& url : urls) {
      records.push_back(AddReadyProxy(list, url, "id" + std::to_string(list->GetUsed())));
    }
    StartOver();
    return records;
  }
  // Proxies that are connected and wait for the answer to their sign-up.
  void Waiting(List* list, const Texts& urls, int64_t since_ms) {
    for (const std::string& url : urls) {
      ProxyServer* record = AddReadyProxy(list, url);
      record->auth_succeed = false;
      record->last_recv_ms = since_ms;
    }
    StartOver();
  }
  // Puts a proxy of the using list into preparation as well.
  void Share(const std::string& url) {
    RealServerNode* node = peer->FindServerNode(in_use, url.c_str());
    ASSERT_EQ(0, peer->AddServerNode(preparing, url.c_str(), node->server_id, node->server));
    StartOver();
  }

  // What the update itself said.
  std::vector<OstrandFakes::LogLine> Said() { return logger.LinesFrom("OnUpdate"); }
  static OstrandFakes::Said Info(const std::string& text) {
    return {OstrandCommon::OSTRAND_LOG_LEVEL_INFO, "OnUpdate", text};
  }

  // How often the ring was written.
  int RingWrites() {
    int writes = 0;
    for (const OstrandFakes::LogLine& line : logger.LinesFrom("WriteHashCircle")) {
      writes += line.level == OstrandCommon::OSTRAND_LOG_LEVEL_INFO ? 1 : 0;
    }
    return writes;
  }
  // The records on the ring.
  std::set<ProxyServer*> OnRing() {
    std::set<ProxyServer*> records;
    for (uint32_t i = 0; i < peer->m_virtual_node_count(); ++i) {
      records.insert(peer->m_virtual_nodes()[i].server);
    }
    return records;
  }
  uint32_t RingSize() { return peer->m_virtual_node_count(); }
  // Slots, counted or not, that hold a record.
  int SlotsOf(const ProxyServer* record) {
    int slots = 0;
    for (const VirtualServerNode& node : peer->m_virtual_nodes()) {
      slots += node.server == record ? 1 : 0;
    }
    return slots;
  }
  bool RingIsLocked() { return OstrandFakes::IsHeld(peer->m_mutex_vistual_nodes()); }
};

}  // namespace OstrandService
