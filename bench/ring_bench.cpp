// The ring: its hash function, its partition, writing it, and the lookup alone.
//
// A lookup is the hash of a 16-byte key and the search for it on a ring of 20000 points, by the
// ring's index (RingIndex) or by std::lower_bound, in three ways:
//   dependent     each lookup waits for the last one's answer: what one request feels;
//   independent   lookups overlap as far as the processor can: what throughput feels;
//   evicted       dependent, each on a ring that the cache does not hold: what a request feels when
//                 the application has used the cache for itself.
// Compare index with lower_bound of the same way.
#include <benchmark/benchmark.h>
#include <time.h>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "router_kit.h"

namespace {

using OstrandBench::BenchRouter;
using OstrandService::con_hash_func;
using OstrandService::OstrandRouter;
using OstrandService::RingIndex;
using OstrandService::VirtualServerNode;

constexpr uint32_t kPoints = OstrandRouter::MAX_VIRTUAL_NODE_COUNT;
#if defined(__x86_64__)
constexpr size_t kCacheLine = 64;
#else
constexpr size_t kMoreThanTheCache = size_t{128} << 20;
#endif
constexpr int kCopies = 64;  // of ring and index, 384 KiB each
constexpr int kEvictedLookups = 128 * kCopies;

void BM_ConHashFunc(benchmark::State& state) {
  const std::vector<char> input(static_cast<size_t>(state.range(0)), 'k');
  for (auto _ : state) {
    benchmark::DoNotOptimize(con_hash_func(input.data(), input.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ConHashFunc)->Arg(8)->Arg(16)->Arg(64)->Arg(1024);

void BM_ConHashCalcHashNode(benchmark::State& state) {
  BenchRouter bench;
  for (auto _ : state) {
    benchmark::DoNotOptimize(bench.peer->ConHashCalcHashNode(static_cast<int>(state.range(0))));
  }
}
BENCHMARK(BM_ConHashCalcHashNode)->Arg(200)->Unit(benchmark::kMillisecond);

void BM_WriteHashCircle(benchmark::State& state) {
  BenchRouter bench;
  bench.Use(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    bench.peer->WriteHashCircle();
  }
}
BENCHMARK(BM_WriteHashCircle)->Arg(10)->Arg(50)->Arg(200)->Unit(benchmark::kMicrosecond);

// --- The lookup alone ---

struct Ring {
  VirtualServerNode nodes[kPoints];
  RingIndex index;
};

struct ByIndex {
  static uint32_t Find(const Ring& ring, uint64_t hash) {
    return ring.index.LowerBound(ring.nodes, kPoints, hash);
  }
};

struct ByLowerBound {
  static uint32_t Find(const Ring& ring, uint64_t hash) {
    const VirtualServerNode* found = std::lower_bound(
        ring.nodes, ring.nodes + kPoints, hash,
        [](const VirtualServerNode& node, uint64_t value) { return node.hash_code < value; });
    return static_cast<uint32_t>(found - ring.nodes);
  }
};

using Rings = std::vector<std::unique_ptr<Ring>>;

Rings MakeRings(size_t copies) {
  BenchRouter bench;
  bench.Use(OstrandRouter::MAX_SERVER_COUNT);
  Rings rings;
  for (size_t i = 0; i < copies; ++i) {
    rings.push_back(std::make_unique<Ring>());
    std::memcpy(rings.back()->nodes, bench.peer->m_virtual_nodes(), sizeof(Ring::nodes));
    rings.back()->index.Build(rings.back()->nodes, kPoints);
  }
  return rings;
}

// The position of the n-th of a row of keys that never repeats. `waited_for`: 0, however it came
// about.
uint64_t PositionOfKey(uint64_t n, uint64_t waited_for) {
  const uint64_t key[2] = {n, waited_for};
  char bytes[sizeof(key)];
  std::memcpy(bytes, key, sizeof(key));
  return con_hash_func(bytes, sizeof(bytes));
}

// 0, but the processor has to wait for the answer to know it.
uint64_t WaitFor(uint32_t answer) { return answer >> 31; }

template <typename Way>
void BM_LookupDependent(benchmark::State& state) {
  const Rings rings = MakeRings(1);
  uint64_t n = 0;
  uint32_t answer = 0;
  for (auto _ : state) {
    answer = Way::Find(*rings[0], PositionOfKey(n++, WaitFor(answer)));
    benchmark::DoNotOptimize(answer);
  }
}
BENCHMARK_TEMPLATE(BM_LookupDependent, ByLowerBound)->Name("Lookup/dependent/lower_bound");
BENCHMARK_TEMPLATE(BM_LookupDependent, ByIndex)->Name("Lookup/dependent/index");

template <typename Way>
void BM_LookupIndependent(benchmark::State& state) {
  const Rings rings = MakeRings(1);
  uint64_t n = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Way::Find(*rings[0], PositionOfKey(n++, 0)));
  }
}
BENCHMARK_TEMPLATE(BM_LookupIndependent, ByLowerBound)->Name("Lookup/independent/lower_bound");
BENCHMARK_TEMPLATE(BM_LookupIndependent, ByIndex)->Name("Lookup/independent/index");

void EvictFromCache(const Rings& rings) {
#if defined(__x86_64__)
  for (const auto& ring : rings) {
    const char* begin = reinterpret_cast<const char*>(ring.get());
    for (size_t offset = 0; offset < sizeof(Ring); offset += kCacheLine) {
      _mm_clflush(begin + offset);
    }
  }
  _mm_mfence();
#else
  static std::vector<char> other(kMoreThanTheCache);
  std::fill(other.begin(), other.end(), static_cast<char>(rings.size()));
  benchmark::DoNotOptimize(other.data());
#endif
}

// Time of the processor that this thread has taken.
double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// One lookup on each of kCopies rings, none of which is in the cache.
template <typename Way>
void BM_LookupEvicted(benchmark::State& state) {
  const Rings rings = MakeRings(kCopies);
  uint64_t n = 0;
  uint32_t answer = 0;
  while (state.KeepRunningBatch(kCopies)) {
    EvictFromCache(rings);
    const double start = ThreadSeconds();
    for (const auto& ring : rings) {
      answer = Way::Find(*ring, PositionOfKey(n++, WaitFor(answer)));
      benchmark::DoNotOptimize(answer);
    }
    state.SetIterationTime(ThreadSeconds() - start);
  }
}
BENCHMARK_TEMPLATE(BM_LookupEvicted, ByLowerBound)
    ->Name("Lookup/evicted/lower_bound")
    ->Iterations(kEvictedLookups)
    ->UseManualTime();
BENCHMARK_TEMPLATE(BM_LookupEvicted, ByIndex)
    ->Name("Lookup/evicted/index")
    ->Iterations(kEvictedLookups)
    ->UseManualTime();

}  // namespace
