// What the tests of taking proxies out of use share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr int64_t kStartSeconds = OstrandFakes::FakeClock::kStartMs / 1000;

inline std::string UrlOf(int i) { return "tcp://10.0.0." + std::to_string(i) + ":1000"; }

// The proxy's own line: it does not know the router's module.
inline OstrandFakes::LogLine IsUnavailableLine(const std::string& url, const std::string& requests,
                                               const std::string& responses) {
  return OstrandFakes::LogLine{OstrandCommon::OSTRAND_LOG_LEVEL_WARN, 0,
                               "src/service_api/ostrand_router", "IsUnavailable",
                               "m_request_count " + requests + ", m_response_count " + responses +
                                   " proxy " + url + " IsUnavailable"};
}

// The counted points of a ring, and when it was written.
struct RingCopy {
  std::vector<std::pair<uint64_t, const ProxyServer*>> points;
  int64_t written_ms;

  bool operator==(const RingCopy& other) const {
    return points == other.points && written_ms == other.written_ms;
  }
};
inline RingCopy CopyRing(const OstrandRouterPeer& peer) {
  RingCopy ring;
  for (uint32_t i = 0; i < peer.m_virtual_node_count(); ++i) {
    ring.points.emplace_back(peer.m_virtual_nodes()[i].hash_code, peer.m_virtual_nodes()[i].server);
  }
  ring.written_ms = peer.m_last_flush_hash_circle_time();
  return ring;
}

// Proxies 1, 2, 3, ... in use, all of them usable; the judge would remove all that it may.
class AvailabilityTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  AvailabilityTest() {
    EXPECT_EQ(0, Init());
    judge.option.max_remove_rate = 100;
  }

  void AddReady(int count) {
    for (int i = 1; i <= count; ++i) {
      proxies.push_back(AddReadyProxy(peer->m_using_servers(), UrlOf(i)));
    }
    logger.Clear();
  }
  ProxyServer& Proxy(int i) { return *proxies[static_cast<size_t>(i - 1)]; }

  // 11 requests and no answer.
  void Starve(std::initializer_list<int> which) {
    for (const int i : which) {
      Proxy(i).m_request_count = 11;
      Proxy(i).m_response_count = 0;
    }
  }
  void StarveAll() {
    for (ProxyServer* proxy : proxies) {
      proxy->m_request_count = 11;
      proxy->m_response_count = 0;
    }
  }

  std::vector<int> Unavailable() {
    std::vector<int> which;
    for (size_t i = 0; i < proxies.size(); ++i) {
      if (!proxies[i]->is_available) {
        which.push_back(static_cast<int>(i + 1));
      }
    }
    return which;
  }
  int IsolatedCount() {
    const auto& counts = statistics.m_isolateProxyCntMap;
    const auto found = counts.find(kZoneId);
    return found != counts.end() ? found->second : -1;
  }

  // The ring as it is now.
  RingCopy Ring() { return CopyRing(*peer); }

  OstrandFakes::LogLine SelfMade(int i) { return IsUnavailableLine(UrlOf(i), "11", "0"); }

  std::vector<ProxyServer*> proxies;
};

}  // namespace OstrandService
