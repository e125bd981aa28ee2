// Routing over random rings, states and keys, against the plain version: sort all points, look from
// the first one to the last, walk on.
//
// ROUTING_SEED repeats a run.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "fakes/keyed_request.h"
#include "fakes/router_fixture.h"
#include "fakes/sanitizers.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OSTRAND_API_GET_REQ;
using OstrandFakes::KeyedRequest;
using OstrandFakes::RouterFixture;

using Random = std::mt19937_64;

constexpr char kTable[] = "players";
constexpr int kNoRoute = -13843;

uint64_t Seed() {
  const char* given = std::getenv("ROUTING_SEED");
  return given != nullptr ? std::strtoull(given, nullptr, 10) : 17;
}

class RoutingPropertyTest : public testing::Test, public RouterFixture {
 protected:
  RoutingPropertyTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_ERROR);
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
  }

  void GrowTo(int number) {
    while (static_cast<int>(proxies.size()) < number) {
      proxies.push_back(AddReadyProxy(
          peer->m_using_servers(), "tcp://10.0.0." + std::to_string(proxies.size() + 1) + ":8000"));
    }
  }

  // About one proxy in `rate` is out, each for one reason.
  void Disturb(uint64_t rate) {
    for (ProxyServer* proxy : proxies) {
      const uint64_t reason = random() % rate == 0 ? random() % 4 : 4;
      proxy->auth_succeed = reason != 0;
      proxy->last_auth_result = reason != 1 ? 0 : 1;
      proxy->is_available = reason != 2;
      mgr.At(proxy->connector->GetURL()).SetStatus(reason != 3 ? 2 : 1);
    }
  }

  static bool IsUsable(const ProxyServer& proxy) {
    return proxy.auth_succeed && proxy.last_auth_result == 0 && proxy.is_available &&
           proxy.connector->GetStatus() == 2;
  }

  // Null: no route.
  ProxyServer* PlainRoute(uint64_t hash) {
    const VirtualServerNode* points = peer->m_virtual_nodes();
    const uint32_t count = peer->m_virtual_node_count();
    uint32_t start = 0;
    while (start < count && points[start].hash_code < hash) {
      ++start;
    }
    for (uint32_t step = 0; step < count; ++step) {
      ProxyServer* proxy = points[(start + step) % count].server;
      if (IsUsable(*proxy)) {
        return proxy;
      }
    }
    return nullptr;
  }

  void ExpectPlainRoute() {
    char bytes[16];
    for (char& byte : bytes) {
      byte = static_cast<char>(random());
    }
    request.SetKey({{"id", std::string(bytes, sizeof(bytes))}});
    ProxyServer* expected = PlainRoute(con_hash_func(bytes, sizeof(bytes)));
    ProxyServer* out = nullptr;
    const int32_t errors = RouteErrors();
    ASSERT_EQ(expected != nullptr ? 0 : kNoRoute,
              peer->GetRouterProxyServer(out, &request, kZoneId, kTable));
    ASSERT_EQ(expected, out);
    ASSERT_EQ(errors + (expected != nullptr ? 0 : 1), RouteErrors());
  }

  int32_t RouteErrors() const { return qos.iRounteErrorCount; }  // a copy: the record is packed

  Random random{Seed()};
  tagTableQos qos = {};
  std::vector<ProxyServer*> proxies;
  KeyedRequest request{OSTRAND_API_GET_REQ};
};

TEST_F(RoutingPropertyTest, RoutesAsThePlainVersion) {
  for (const int number : {1, 2, 3, 10, 50, 199, 200, 201}) {
    SCOPED_TRACE(std::to_string(number) + " proxies, seed " + std::to_string(Seed()));
    GrowTo(number);
    peer->WriteHashCircle();
    logger.Clear();
    for (const uint64_t rate : {1000U, 10U, 2U, 1U}) {
      for (int round = 0; round < 5; ++round) {
        Disturb(rate);
        for (int i = 0; i < OstrandFakes::Rounds(50); ++i) {
          ASSERT_NO_FATAL_FAILURE(ExpectPlainRoute());
        }
      }
    }
  }
}

// A proxy's share of the keys is its share of the ring, however many there are.
TEST_F(RoutingPropertyTest, SpreadsKeysEvenly) {
  constexpr int kProxies = 20;
  constexpr int kKeys = 20000;
  GrowTo(kProxies);
  peer->WriteHashCircle();
  std::vector<int> keys_of(kProxies);
  for (int i = 0; i < kKeys; ++i) {
    request.SetKey({{"id", "player-" + std::to_string(i)}});
    ProxyServer* out = nullptr;
    ASSERT_EQ(0, peer->GetRouterProxyServer(out, &request, kZoneId, kTable));
    for (size_t p = 0; p < proxies.size(); ++p) {
      keys_of[p] += proxies[p] == out ? 1 : 0;
    }
  }
  for (const int keys : keys_of) {
    EXPECT_NEAR(kKeys / kProxies, keys, 5 * 31) << "five standard deviations";
  }
}

// Only keys of the proxy that is out move, and none when it comes back.
TEST_F(RoutingPropertyTest, MovesOnlyTheKeysOfAProxyThatIsOut) {
  GrowTo(10);
  peer->WriteHashCircle();
  std::vector<ProxyServer*> before(2000);
  for (size_t i = 0; i < before.size(); ++i) {
    request.SetKey({{"id", std::to_string(i)}});
    ASSERT_EQ(0, peer->GetRouterProxyServer(before[i], &request, kZoneId, kTable));
  }
  for (const bool is_out : {true, false}) {
    proxies[4]->is_available = !is_out;
    for (size_t i = 0; i < before.size(); ++i) {
      request.SetKey({{"id", std::to_string(i)}});
      ProxyServer* now = nullptr;
      ASSERT_EQ(0, peer->GetRouterProxyServer(now, &request, kZoneId, kTable));
      if (is_out && before[i] == proxies[4]) {
        ASSERT_NE(proxies[4], now) << i;
      } else {
        ASSERT_EQ(before[i], now) << i;
      }
    }
  }
}

}  // namespace
}  // namespace OstrandService
