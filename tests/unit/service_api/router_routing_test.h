// What the tests of the choice of a proxy share.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fakes/keyed_request.h"
#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr int kNotInitialised = -4371;
constexpr int kNoRoute = -13843;

constexpr char kTable[] = "players";
constexpr uint64_t kKeyPosition = 0x9685DDF5126076AF;  // of the key "k"; computed elsewhere
// What a skipped point's line says of a proxy whose one fault is that it was taken out.
constexpr char kTakenOut[] = "state:2, auth_succeed:1, last_auth_result:0, is_available:0";
constexpr uint64_t kMax = 0xFFFFFFFFFFFFFFFF;

// Three usable proxies, one registered table, a ring by hand.
class RouterRoutingTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  static std::string Url(int number) { return "tcp://10.0.0." + std::to_string(number) + ":8000"; }
  // As "%p" prints it.
  static std::string Pointer(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
  }

  RouterRoutingTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    for (int number = 1; number <= 3; ++number) {
      proxies[number] = AddReadyProxy(peer->m_using_servers(), Url(number));
    }
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    qos.iRounteErrorCount = 7;
    router->SetQos(&qos);
    counters = &statistics.Register(kAppId, kZoneId);
    counters->iTableCount = 4;
    request.SetTableSubscript(2);
    logger.Clear();
  }
  ~RouterRoutingTest() override { SetRing({}); }  // It may hold records of the tests' own.

  // Writes the ring by hand; the rest of the slots is empty.
  void SetRing(const std::vector<VirtualServerNode>& points) {
    std::memset(static_cast<void*>(peer->m_virtual_nodes()), 0, sizeof(peer->m_virtual_nodes()));
    for (size_t i = 0; i < points.size(); ++i) {
      peer->m_virtual_nodes()[i] = points[i];
    }
    peer->m_virtual_node_count() = static_cast<uint32_t>(points.size());
  }

  // Routes the request of the key "k", unless another one is given.
  int Route() { return Route(&request); }
  int Route(OstrandServiceRequest* of) {
    logger.Clear();
    out = proxies[1];
    return peer->GetRouterProxyServer(out, of, kZoneId, kTable);
  }
  // Copies: the record is packed.
  static int32_t RouteErrorsOf(const tagTableQos& table) { return table.iRounteErrorCount; }
  int32_t RouteErrors() const { return RouteErrorsOf(qos); }
  uint32_t FailuresOfAll() const { return counters->stOverallRunStatus.dwApiFindRouteErrNumPerMin; }
  uint32_t FailuresOfTable(int subscript) const {
    return counters->astTableStatistic[subscript].stTableRunStatus.dwTableApiFindRouteErrNumPerMin;
  }
  void TakeOut(int number) { proxies[number]->is_available = false; }

  static std::string RouteLine(uint64_t entry) {
    return "Route Request. hash_code:" + std::to_string(kKeyPosition) + "->" +
           std::to_string(entry);
  }
  static std::string DefaultLine(uint64_t entry) {
    return "Skip default route. hash_code:" + std::to_string(kKeyPosition) + "->" +
           std::to_string(entry);
  }
  std::string SkipLine(int index, int number, const std::string& figures) {
    return "Skip virtual server node. index:" + std::to_string(index) +
           " connector:" + Pointer(proxies[number]->connector) + " " + figures;
  }

  ProxyServer* proxies[4] = {};  // from 1 on
  tagTableQos qos = {};
  tagServiceApiStatistic* counters;
  OstrandFakes::KeyedRequest request{ostrand_protocol_cs::OSTRAND_API_GET_REQ, {{"id", "k"}}};
  ProxyServer* out = nullptr;
};

}  // namespace OstrandService
