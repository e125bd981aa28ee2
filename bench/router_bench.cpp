// The router's operations that a running application feels: choosing a proxy, an update with
// nothing to do, a directory answer.
//
// Collaborators cost as little as they can (router_kit.h): what is measured is the router.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fakes/keyed_request.h"
#include "protocol/ostrand_dir.h"
#include "router_kit.h"

namespace {

using ostrand_protocol_dir::tagOStrdirCSPkg;
using OstrandBench::BenchRouter;
using OstrandFakes::KeyedRequest;
using OstrandService::OstrandRouter;
using OstrandService::ProxyServer;
using OstrandService::RealServerNode;
using OstrandService::ServersOf;
using OstrandService::tagTableQos;

constexpr char kTable[] = "players";
constexpr int kMaxProxies = OstrandRouter::MAX_SERVER_COUNT;
constexpr size_t kKeyLen = 16;
constexpr size_t kKeys = 65536;

// --- Choosing a proxy ---

std::vector<char> RandomBytes(size_t length) {
  std::mt19937_64 random(1);
  std::vector<char> bytes(length);
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  return bytes;
}

// proxies: in use; isolate_every: every so-manyth of them is out of use, 0: none.
void BM_GetRouterProxyServer(benchmark::State& state) {
  const auto proxies = static_cast<int>(state.range(0));
  const auto isolate_every = static_cast<int>(state.range(1));
  BenchRouter bench;
  bench.Use(proxies);
  int number = 0;
  for (RealServerNode& node : ServersOf(bench.peer->m_using_servers())) {
    ++number;
    node.server->is_available = isolate_every == 0 || number % isolate_every != 0;
  }
  tagTableQos qos = {};
  std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
  qos.iZoneID = BenchRouter::kZoneId;
  bench.router->SetQos(&qos);

  const std::vector<char> keys = RandomBytes(kKeys * kKeyLen);
  KeyedRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ,
                       {{"id", std::string(kKeyLen, 'k')}});
  char* key = request.key().astFields[0].szFieldBuff;
  size_t next = 0;
  for (auto _ : state) {
    std::memcpy(key, &keys[next++ % kKeys * kKeyLen], kKeyLen);
    ProxyServer* out = nullptr;
    if (bench.peer->GetRouterProxyServer(out, &request, BenchRouter::kZoneId, kTable) != 0) {
      state.SkipWithError("no route");
    }
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_GetRouterProxyServer)
    ->ArgNames({"proxies", "isolate_every"})
    ->ArgsProduct({{1, 10, 50, 200}, {0}})
    ->ArgsProduct({{10, 50, 200}, {10}});

// --- Updates and routes ---

// A directory answer of `count` proxies, numbered from `first`.
std::unique_ptr<tagOStrdirCSPkg> Route(int first, int count) {
  auto route = std::make_unique<tagOStrdirCSPkg>();
  std::memset(static_cast<void*>(route.get()), 0, sizeof(*route));
  route->stHead.wCmd = ostrand_protocol_dir::OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES;
  auto& answer = route->stBody.stResGetTablesAndAccess;
  answer.iZoneID = BenchRouter::kZoneId;
  answer.iAccessCount = count;
  for (int row = 0; row < count; ++row) {
    std::snprintf(answer.aszAccessUrlList[row], sizeof(answer.aszAccessUrlList[row]), "%s",
                  OstrandBench::Url(first + row).c_str());
    std::snprintf(answer.aszAccessIdList[row], sizeof(answer.aszAccessIdList[row]), "id");
  }
  return route;
}

// A router that has taken a route of 200 proxies, all signed up, and written its ring.
void Settle(BenchRouter& bench) {
  bench.router->FlushRoute(Route(1, kMaxProxies).get());
  bench.SignUpAll(bench.peer->m_using_servers());
  bench.router->OnUpdate(bench.clock.Ms(), 0, nullptr, nullptr, nullptr);
}

void BM_OnUpdateNothingToDo(benchmark::State& state) {
  BenchRouter bench;
  Settle(bench);
  const int64_t written = bench.peer->m_last_flush_hash_circle_time();
  if (!bench.peer->m_is_all_connected() || written == 0) {
    state.SkipWithError("there would be something to do");
  }
  for (auto _ : state) {
    bench.router->OnUpdate(bench.clock.Ms(), 0, nullptr, nullptr, nullptr);
  }
}
BENCHMARK(BM_OnUpdateNothingToDo)->Unit(benchmark::kMicrosecond);

void BM_FlushRouteUnchanged(benchmark::State& state) {
  BenchRouter bench;
  Settle(bench);
  const std::unique_ptr<tagOStrdirCSPkg> route = Route(1, kMaxProxies);
  for (auto _ : state) {
    if (bench.router->FlushRoute(route.get()) != 0) {
      state.SkipWithError("refused");
    }
  }
  if (bench.peer->m_preparing_servers()->GetUsed() != 0) {
    state.SkipWithError("it did change something");
  }
}
BENCHMARK(BM_FlushRouteUnchanged)->Unit(benchmark::kMicrosecond);

// Half of the proxies are new: they and the known ones become the preparing list.
void BM_FlushRouteHalfChanged(benchmark::State& state) {
  BenchRouter bench;
  const std::unique_ptr<tagOStrdirCSPkg> route = Route(1 + kMaxProxies / 2, kMaxProxies);
  for (auto _ : state) {
    state.PauseTiming();
    bench.router->Fini();
    bench.Start();
    Settle(bench);
    state.ResumeTiming();
    if (bench.router->FlushRoute(route.get()) != 0) {
      state.SkipWithError("refused");
    }
  }
  if (bench.peer->m_preparing_servers()->GetUsed() != static_cast<uint32_t>(kMaxProxies)) {
    state.SkipWithError("it prepared something else");
  }
}
BENCHMARK(BM_FlushRouteHalfChanged)->Unit(benchmark::kMicrosecond)->Iterations(100);

}  // namespace
