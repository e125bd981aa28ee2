// What the runtime's parts on the way of a request cost: in-flight table, statistics, request and
// response.
//
// BM_Copy is memcpy of the same frame: the least that packing or unpacking could do.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/latency_data_table.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/statistic_mgr.h"
#include "protocol/codec.h"

namespace {

using namespace OstrandService;       // NOLINT: the whole program is about it
using namespace ostrand_protocol_cs;  // NOLINT

constexpr int64_t kApp = 7;
constexpr int32_t kZone = 3;
constexpr int kPort = 9000;
const std::string kKey(16, 'k');
const std::string kValue(100, 'v');

// One request enters and one leaves, `in_flight` stay in between. Answers come in the order of the
// requests or in any; all have one time-out or each one of its own.
void BM_PushBackAndFree(benchmark::State& state, bool any_order, bool any_timeout) {
  const auto in_flight = static_cast<size_t>(state.range(0));
  LatencyDataTable table(kApp);
  std::vector<int32_t> ids;
  int64_t now_ms = 1700000000000;
  uint32_t random = 1;
  const auto next_random = [&random] { return random = random * 1664525 + 1013904223; };
  const auto push = [&] {
    now_ms += next_random() % 100 == 0 ? 1 : 0;
    const int32_t timeout_ms = any_timeout ? static_cast<int32_t>(next_random() >> 20) : 3000;
    return table.PushBack(kZone, now_ms, timeout_ms, 1, kPort, 7, 0, "player", 1, 0, nullptr, 0);
  };
  while (ids.size() < in_flight) {
    ids.push_back(push());
  }
  size_t oldest = 0;
  for (auto _ : state) {
    const size_t i = any_order ? (next_random() >> 8) % in_flight : oldest;
    oldest = oldest + 1 == in_flight ? 0 : oldest + 1;
    table.FreeLatencyData(table.GetLatencyData(ids[i]));
    ids[i] = push();
  }
}
BENCHMARK_CAPTURE(BM_PushBackAndFree, in_order, false, false)->Arg(1)->Arg(256)->Arg(1000000);
BENCHMARK_CAPTURE(BM_PushBackAndFree, any_order, true, false)->Arg(256)->Arg(1000000);
BENCHMARK_CAPTURE(BM_PushBackAndFree, any_order_any_timeout, true, true)->Arg(256)->Arg(1000000);

// Each RecvResponse asks once.
void BM_NothingExpired(benchmark::State& state) {
  LatencyDataTable table(kApp);
  for (int64_t i = 0; i < state.range(0); ++i) {
    table.PushBack(kZone, 4000000000000, 3000, 1, kPort, 7, 0, "player", 1, 0, nullptr, 0);
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.TraverseForDeleteTimeOutNode(nullptr));
  }
}
BENCHMARK(BM_NothingExpired)->Arg(0)->Arg(256)->Arg(100000);

void BM_GetAccessRunStatus(benchmark::State& state) {
  const auto proxies = static_cast<int>(state.range(0));
  StatisticMgr mgr;
  mgr.RegisterApp(kApp, kZone);
  for (int i = 0; i < proxies; ++i) {
    mgr.AddAccess(kApp, kZone, "tcp://10.0.0.1:9000", 0x0100000A + (i << 24), kPort + i / 200,
                  "id");
  }
  int i = 0;
  for (auto _ : state) {
    tagServiceApiStatistic* statistic = mgr.GetServiceApiStatistic(kApp, kZone);
    tagAccessRunStatus* access =
        mgr.GetAccessRunStatus(*statistic, 0x0100000A + (i << 24), kPort + i / 200);
    access->dwRequestCountPerMin += 1;
    i = i + 1 == proxies ? 0 : i + 1;
  }
}
BENCHMARK(BM_GetAccessRunStatus)->Arg(1)->Arg(8)->Arg(200);

constexpr size_t kCmdOffset = 24;  // of a frame

void Build(ClientRequest& request, uint32_t cmd) {
  request.Begin(cmd, "player").Zone(kZone).Key("id", kKey);
  if (cmd == OSTRAND_API_INSERT_REQ) {
    request.Set("value", kValue);
  }
}

std::string Frame(const ClientRequest& request) {
  RouterRequest routed;
  routed.Load(request.Head(), request.Bytes());
  std::string frame(1 << 20, '\0');
  size_t len = frame.size();
  routed.Pack(frame.data(), len);
  frame.resize(len);
  return frame;
}

void BM_Copy(benchmark::State& state, uint32_t cmd) {
  ClientRequest request;
  Build(request, cmd);
  const std::string frame = Frame(request);
  std::vector<char> buffer(4096);
  size_t len = frame.size();
  for (auto _ : state) {
    benchmark::DoNotOptimize(len);  // or the compiler copies a known number of bytes
    std::memcpy(buffer.data(), frame.data(), len);
    benchmark::ClobberMemory();
  }
  state.counters["frame_bytes"] = static_cast<double>(frame.size());
}
BENCHMARK_CAPTURE(BM_Copy, get, uint32_t{OSTRAND_API_GET_REQ});
BENCHMARK_CAPTURE(BM_Copy, insert, uint32_t{OSTRAND_API_INSERT_REQ});

void BM_BuildRequest(benchmark::State& state, uint32_t cmd) {
  ClientRequest request;
  for (auto _ : state) {
    Build(request, cmd);
    benchmark::ClobberMemory();
  }
}
BENCHMARK_CAPTURE(BM_BuildRequest, get, uint32_t{OSTRAND_API_GET_REQ});
BENCHMARK_CAPTURE(BM_BuildRequest, insert, uint32_t{OSTRAND_API_INSERT_REQ});

void BM_BuildAndPackRequest(benchmark::State& state, uint32_t cmd) {
  ClientRequest request;
  RouterRequest routed;
  std::vector<char> buffer(4096);
  for (auto _ : state) {
    Build(request, cmd);
    routed.Load(request.Head(), request.Bytes());
    size_t len = buffer.size();
    if (routed.Pack(buffer.data(), len) != 0) {
      state.SkipWithError("pack failed");
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK_CAPTURE(BM_BuildAndPackRequest, get, uint32_t{OSTRAND_API_GET_REQ});
BENCHMARK_CAPTURE(BM_BuildAndPackRequest, insert, uint32_t{OSTRAND_API_INSERT_REQ});

// The answer to a get of one value, or to a batch get of many.
void BM_UnpackAndWalkResponse(benchmark::State& state) {
  const auto records = static_cast<int>(state.range(0));
  ClientRequest answer;  // a batch of records has one form in both directions
  answer.BatchInsert("player");
  for (int i = 0; i < records; ++i) {
    answer.Record().Key("id", kKey).Set("value", kValue);
  }
  std::string frame = Frame(answer);
  StoreBigEndian(&frame[kCmdOffset],
                 uint32_t{records == 1 ? OSTRAND_API_GET_RES : OSTRAND_API_BATCH_GET_RES});
  RouterResponse received;
  ClientResponse response;
  for (auto _ : state) {
    received.SetTarget(&response);
    if (received.Unpack(frame.data(), frame.size()) != 0) {
      state.SkipWithError("unpack failed");
    }
    received.HandOver();
    RecordView record;
    FieldView value;
    size_t bytes = 0;
    while (response.NextRecord(record)) {
      if (record.FindValue("value", value)) {
        bytes += value.value.size();
      }
    }
    benchmark::DoNotOptimize(bytes);
  }
  state.counters["frame_bytes"] = static_cast<double>(frame.size());
}
BENCHMARK(BM_UnpackAndWalkResponse)->Arg(1)->Arg(100);

}  // namespace
