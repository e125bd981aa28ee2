// Sending a get and receiving its answer, whole, beside the parts that cannot be done without.
//
//   SendRequest/whole     loading a request that was built, routing, routing context, packing,
//                         queueing at the proxy's connector
//   SendRequest/parts     memcpy of the packed bytes, a plain lower bound over the ring, two
//                         uncontended lock pairs; each of them alone behind it
//   RecvResponse/whole    peeking, unpacking, matching with the request, counting
//   RecvResponse/unpack   the unpacking alone
//   RecvResponse/spread   as whole, but the answer is at one proxy of 200, not always the first
//   RecvResponse/nothing  200 proxies and no answer
//   RecvResponse/walk     a walk over 200 list elements that reads one atomic value of each
//
// 200 proxies whose connectors only copy bytes into memory; in-flight table, statistics, requests
// and responses are the runtime's own, the clock is the system's, no log level is enabled. Keys
// have 16 bytes, values 100.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/judge.h"
#include "client/latency_data_table.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/statistic_mgr.h"
#include "common/clock.h"
#include "common/mutex.h"
#include "common/relaxed.h"
#include "protocol/codec.h"
#include "protocol/record_buffer.h"
#include "router_kit.h"

namespace {

using namespace OstrandService;       // NOLINT: the whole program is about it
using namespace ostrand_protocol_cs;  // NOLINT

constexpr char kTable[] = "players";
constexpr int kProxies = OstrandRouter::MAX_SERVER_COUNT;
constexpr int kPort = 8000;
constexpr uint32_t kPoints = OstrandRouter::MAX_VIRTUAL_NODE_COUNT;
constexpr size_t kKeyLen = 16;
constexpr size_t kKeys = 65536;
constexpr size_t kBuilt = 4096;  // requests, each of another key
constexpr int kBatch = 256;      // requests in flight together
constexpr size_t kLargestFrame = 512;

// --- A world in memory ---

// Copies what is sent into memory; hands out frames from memory. Otherwise as the runtime's own
// connector: one shared flag tells whether there is anything.
class MemoryConnector : public OSTRNET::CConnector {
 public:
  MemoryConnector(const char* url, int ip) : m_url(url), m_ip(ip) {}
  int Connect() override { return 0; }
  void Disconnect(int) override {}
  int GetStatus() const override { return m_status; }
  const char* GetURL() const override { return m_url.c_str(); }
  int PeekPkg(const char*& buffer, int& size, void*) override {
    if (!*m_may_have_incoming) {
      return 0;
    }
    buffer = m_frames[m_head].data();
    size = static_cast<int>(m_frames[m_head].size());
    return size;
  }
  void ConsumePkg() override {
    m_head += 1;
    *m_may_have_incoming = m_head < m_frames.size();
  }
  void SetIncomingFlag(OstrandCommon::Relaxed<bool>* flag) override {
    *flag = m_may_have_incoming->Get();
    m_may_have_incoming = flag;
  }
  void Recover(void*) override {}
  const char* GetLastErrDesc() override { return ""; }
  int SendToQ(const char* buf, unsigned int len, void*) override {
    std::memcpy(m_sent, buf, len);
    m_sent_len = len;
    return static_cast<int>(len);
  }
  void GetIPAndPort(int& ip, int& port) override {
    ip = m_ip;
    port = kPort;
  }

  // What was sent last.
  const char* sent() const { return m_sent; }
  size_t sent_len() const { return m_sent_len; }
  char* memory() { return m_sent; }

  void QueueFrame(std::string frame) {
    m_frames.push_back(std::move(frame));
    Rewind();
  }
  void Rewind() {
    m_head = 0;
    *m_may_have_incoming = !m_frames.empty();
  }

 private:
  const std::string m_url;
  const int m_ip;
  OstrandCommon::Relaxed<int> m_status = STATUS_CONNECTED;
  OstrandCommon::Relaxed<bool>* m_may_have_incoming = &m_own_flag;
  OstrandCommon::Relaxed<bool> m_own_flag = false;
  std::vector<std::string> m_frames;
  size_t m_head = 0;
  size_t m_sent_len = 0;
  char m_sent[kLargestFrame];
};

class MemoryConnectorMgr : public OSTRNET::CConnectorMgr {
 public:
  OSTRNET::CConnector* CreateConnector(const char* url, OSTRNET::IPackParser*, int,
                                       OSTRNET::ReceiveCallback, void*) override {
    m_connectors.push_back(
        std::make_unique<MemoryConnector>(url, static_cast<int>(m_connectors.size()) + 1));
    return m_connectors.back().get();
  }
  int RemoveConnector(OSTRNET::CConnector*) override { return 0; }
  const char* GetLastErrDesc() override { return ""; }

  // All frames once more.
  void Rewind() {
    for (const auto& connector : m_connectors) {
      connector->Rewind();
    }
  }

  MemoryConnector& At(size_t number) { return *m_connectors[number]; }
  // The one of this url, which exists.
  MemoryConnector& Find(const char* url) {
    size_t number = 0;
    while (number + 1 < m_connectors.size() && std::strcmp(At(number).GetURL(), url) != 0) {
      ++number;
    }
    return At(number);
  }

 private:
  std::vector<std::unique_ptr<MemoryConnector>> m_connectors;
};

// A router with 200 proxies that are ready, and the runtime's own parts around it.
class World : public OstrandFakes::RouterFixture {
 public:
  World() {
    OstrandCommon::ReplaceClock(nullptr);  // the system's, as in an application
    real_statistics.RegisterApp(kAppId, kZoneId);
    real_statistics.RegisterTable(kAppId, kZoneId, kTable);
    router = NewRouter(&table, &real_statistics, &real_judge);
    peer = std::make_unique<OstrandRouterPeer>(*router);
    router->Init(&connectors, Service(), &quiet);
    for (int number = 1; number <= kProxies; ++number) {
      const std::string url = OstrandBench::Url(number);
      peer->AddServerNode(peer->m_using_servers(), url.c_str(), "id", nullptr);
      real_statistics.AddAccess(kAppId, kZoneId, url.c_str(), number, kPort, "id");
    }
    for (RealServerNode& node : ServersOf(peer->m_using_servers())) {
      node.server->auth_succeed = true;
      node.server->last_auth_result = 0;
    }
    peer->WriteHashCircle();
    peer->m_proxy_sign_up_recv() = true;
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
    std::mt19937_64 random(1);
    std::string key(kKeyLen, 'k');
    for (ClientRequest& each : built) {
      for (char& byte : key) {
        byte = static_cast<char>(random());
      }
      each.Get(kTable).Zone(kZoneId).SetUserBuff("userdata").Key("id", key);
    }
  }
  ~World() { router.reset(); }  // before its connectors

  // A get of another key, which the application has built: shown to the router, sent.
  bool Send() {
    const ClientRequest& next = built[next_key++ % kBuilt];
    request.Load(next.Head(), next.Bytes());
    request.SetTimeout(1000000000);
    request.SetTableSubscript(0);
    return router->SendRequest(&request) == 0;
  }

  // Forgets all requests in flight.
  void FreeAll() {
    for (int32_t id = freed_id; table.InFlight() > 0; ++id) {
      table.FreeLatencyData(table.GetLatencyData(id));
      freed_id = id + 1;
    }
  }

  // Enters as many requests as a batch has, under the ids of the first ones.
  void RegisterAgain() {
    table.SetNextId(0);
    const int64_t now_ms = OstrandCommon::GetCurrentMilliseconds();
    for (int i = 0; i < kBatch; ++i) {
      table.PushBack(kZoneId, now_ms, request.timeout_ms, 1, kPort, OSTRAND_API_GET_REQ, 0, kTable,
                     0, 0, nullptr, 8);
    }
  }

  // The answer to the frame that this proxy received last, with a value of 100 bytes.
  std::string AnswerTo(const MemoryConnector& proxy) {
    UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, proxy.sent(), proxy.sent_len(), nullptr,
                                    nullptr, 0);
    OStrandPkgHead& head = pkg->stHead;
    head.dwCmd = OSTRAND_API_GET_RES;
    pkg->stBody.construct(OSTRAND_API_GET_RES);
    RecordWriter writer(pkg->stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("value", std::string(100, 'v'));
    std::string frame(kLargestFrame, '\0');
    size_t len = frame.size();
    PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, *pkg, head.wVersion, nullptr);
    frame.resize(len);
    return frame;
  }

  // Sends a request; the proxy that got it, and the frame of its answer.
  std::pair<MemoryConnector*, std::string> SendAndAnswer() {
    Send();
    MemoryConnector& proxy = connectors.Find(router->GetUsedProxyUrl());
    return {&proxy, AnswerTo(proxy)};
  }

  OstrandBench::QuietLogger quiet;
  MemoryConnectorMgr connectors;
  LatencyDataTable table{kAppId};
  StatisticMgr real_statistics;
  Judge real_judge;
  tagTableQos qos{};
  RouterRequest request;
  ClientResponse outcome;
  RouterResponse response;
  std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();
  std::vector<ClientRequest> built = std::vector<ClientRequest>(kBuilt);
  size_t next_key = 0;
  int32_t freed_id = 0;
};

// Processor time of this thread, in seconds.
double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Sets the time of one of the operations that a batch consists of.
template <typename Batch>
void TimeBatch(benchmark::State& state, Batch batch) {
  const double start = ThreadSeconds();
  batch();
  state.SetIterationTime((ThreadSeconds() - start) / kBatch);
}

// --- Sending ---

void BM_SendRequest(benchmark::State& state) {
  World world;
  for (auto _ : state) {
    TimeBatch(state, [&] {
      for (int i = 0; i < kBatch; ++i) {
        if (!world.Send()) {
          state.SkipWithError("not sent");
        }
      }
    });
    world.FreeAll();
  }
  state.counters["frame_bytes"] = static_cast<double>(world.request.net_size);
}
BENCHMARK(BM_SendRequest)->Name("SendRequest/whole")->UseManualTime()->Iterations(2000);

// What is copied, looked for and locked while a request is sent.
class SendParts {
 public:
  SendParts() {
    world.Send();
    m_len = world.request.net_size;
    std::mt19937_64 random(2);
    for (uint64_t& hash : m_hashes) {
      hash = random();
    }
  }

  void Copy() {
    benchmark::DoNotOptimize(m_len);  // or the compiler copies a known number of bytes
    char* const to = world.connectors.At(m_next % kProxies).memory();
    std::memcpy(to, world.pack_buffer.data(), m_len);
    benchmark::ClobberMemory();
  }
  void Search() {
    const VirtualServerNode* const nodes = world.peer->m_virtual_nodes();
    const auto before = [](const VirtualServerNode& node, uint64_t hash) {
      return node.hash_code < hash;
    };
    benchmark::DoNotOptimize(
        std::lower_bound(nodes, nodes + kPoints, m_hashes[m_next % kKeys], before));
  }
  void LockTwice() {
    { OstrandCommon::ScopedLock lock(m_mutex); }
    { OstrandCommon::ScopedLock lock(m_other_mutex); }
  }
  void Next() { m_next += 7; }

  World world;

 private:
  size_t m_len = 0;
  size_t m_next = 0;
  std::vector<uint64_t> m_hashes = std::vector<uint64_t>(kKeys);
  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Mutex m_other_mutex;
};

void BM_SendParts(benchmark::State& state, bool copy, bool search, bool lock) {
  SendParts parts;
  for (auto _ : state) {
    if (copy) parts.Copy();
    if (search) parts.Search();
    if (lock) parts.LockTwice();
    parts.Next();
  }
}
BENCHMARK_CAPTURE(BM_SendParts, all, true, true, true)->Name("SendRequest/parts");
BENCHMARK_CAPTURE(BM_SendParts, copy, true, false, false)->Name("SendRequest/parts/memcpy");
BENCHMARK_CAPTURE(BM_SendParts, search, false, true, false)->Name("SendRequest/parts/lower_bound");
BENCHMARK_CAPTURE(BM_SendParts, lock, false, false, true)->Name("SendRequest/parts/two_locks");

void BM_Pack(benchmark::State& state) {
  World world;
  world.Send();
  for (auto _ : state) {
    size_t len = world.pack_buffer.size();
    if (world.request.Pack(world.pack_buffer.data(), len) != 0) {
      state.SkipWithError("not packed");
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Pack)->Name("SendRequest/pack");

void BM_LoadAndPack(benchmark::State& state) {
  World world;
  size_t next = 0;
  for (auto _ : state) {
    const ClientRequest& built = world.built[next++ % kBuilt];
    world.request.Load(built.Head(), built.Bytes());
    size_t len = world.pack_buffer.size();
    if (world.request.Pack(world.pack_buffer.data(), len) != 0) {
      state.SkipWithError("not packed");
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_LoadAndPack)->Name("SendRequest/load_and_pack");

// --- Receiving ---

// spread: each answer is at the proxy of its request, else all are at the first proxy.
void BM_RecvResponse(benchmark::State& state, bool spread) {
  World world;
  for (int i = 0; i < kBatch; ++i) {
    auto [proxy, answer] = world.SendAndAnswer();
    (spread ? *proxy : world.connectors.At(0)).QueueFrame(std::move(answer));
  }
  world.FreeAll();
  for (auto _ : state) {
    world.RegisterAgain();
    TimeBatch(state, [&] {
      for (int i = 0; i < kBatch; ++i) {
        world.response.SetTarget(&world.outcome);
        if (world.router->RecvResponse(&world.response, nullptr) != 1) {
          state.SkipWithError("no answer");
        }
        world.response.HandOver();
      }
    });
    if (world.table.InFlight() != 0) {
      state.SkipWithError("not matched");
    }
    world.connectors.Rewind();
  }
}
BENCHMARK_CAPTURE(BM_RecvResponse, first, false)
    ->Name("RecvResponse/whole")
    ->UseManualTime()
    ->Iterations(2000);
BENCHMARK_CAPTURE(BM_RecvResponse, spread, true)
    ->Name("RecvResponse/spread")
    ->UseManualTime()
    ->Iterations(2000);

void BM_Unpack(benchmark::State& state) {
  World world;
  std::vector<std::string> frames;
  frames.reserve(kBatch);
  for (int i = 0; i < kBatch; ++i) {
    frames.push_back(world.SendAndAnswer().second);
  }
  size_t next = 0;
  for (auto _ : state) {
    const std::string& frame = frames[next++ % kBatch];
    if (world.response.Unpack(frame.data(), frame.size()) != 0) {
      state.SkipWithError("not unpacked");
    }
    benchmark::ClobberMemory();
  }
  state.counters["frame_bytes"] = static_cast<double>(frames[0].size());
}
BENCHMARK(BM_Unpack)->Name("RecvResponse/unpack");

// in_flight: requests that wait for an answer, so that the clock is read.
void BM_RecvNothing(benchmark::State& state) {
  World world;
  for (int64_t i = 0; i < state.range(0); ++i) {
    world.Send();
  }
  for (auto _ : state) {
    if (world.router->RecvResponse(&world.response, nullptr) != 0) {
      state.SkipWithError("an answer");
    }
  }
}
BENCHMARK(BM_RecvNothing)->Name("RecvResponse/nothing")->ArgName("in_flight")->Arg(0)->Arg(256);

void BM_Walk(benchmark::State& state) {
  World world;
  List* const list = world.peer->m_using_servers();
  for (auto _ : state) {
    benchmark::DoNotOptimize(list);
    int ready = 0;
    for (const RealServerNode& node : ServersOf(list)) {
      ready += node.server->auth_succeed ? 1 : 0;
    }
    benchmark::DoNotOptimize(ready);
  }
}
BENCHMARK(BM_Walk)->Name("RecvResponse/walk");

}  // namespace
