// Sixteen threads do with one Client all that it can do, while proxies die and come back, and the
// client is stopped and started again, at random. What must hold: every request that was accepted
// has exactly one last outcome, nobody waits for ever, and the accounts balance. The thread
// sanitizer tells the rest. OSTRAND_SEED repeats a run's random choices.
#include <atomic>
#include <cstdlib>
#include <deque>
#include <future>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

#include "client_threads/threads_kit.h"
#include "common/clock.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test
using OstrandCommon::GetMonotonicMilliseconds;

constexpr int kThreads = 16;
constexpr int64_t kStormMs = 5000;

uint32_t Seed() {
  const char* const given = std::getenv("OSTRAND_SEED");
  return given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10)) : 20240607U;
}

// Runs tasks on two threads, and refuses one in ten.
class Pool {
 public:
  Pool() {
    for (int i = 0; i < 2; ++i) {
      m_threads.emplace_back([this] { Run(); });
    }
  }
  // Runs what it has.
  ~Pool() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_is_over = true;
      m_condition.notify_all();
    }
    for (std::thread& thread : m_threads) {
      thread.join();
    }
  }

  bool Add(std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (++m_offered % 10 == 0) {
      return false;
    }
    m_tasks.push_back(std::move(task));
    m_condition.notify_one();
    return true;
  }

 private:
  void Run() {
    for (;;) {
      std::function<void()> task;
      {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_condition.wait(lock, [this] { return m_is_over || !m_tasks.empty(); });
        if (m_tasks.empty()) {
          return;
        }
        task = std::move(m_tasks.front());
        m_tasks.pop_front();
      }
      task();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::deque<std::function<void()>> m_tasks;
  int m_offered = 0;
  bool m_is_over = false;
  std::vector<std::thread> m_threads;
};

class ClientStorm : public ClientThreads, public testing::WithParamInterface<bool> {
 protected:
  // One thread's part.
  void Work(uint32_t seed) {
    std::mt19937 random(seed);
    std::deque<std::future<ClientResponse>> futures;
    ClientResponse response;
    uint64_t last_id = 0;
    while (!m_is_over.load()) {
      DoOne(random, futures, response, last_id);
      while (futures.size() > 20) {
        Await(futures);
      }
    }
    while (!futures.empty()) {
      Await(futures);
    }
  }

  void DoOne(std::mt19937& random, std::deque<std::future<ClientResponse>>& futures,
             ClientResponse& response, uint64_t& last_id) {
    ClientRequest request = random() % 4 == 0 ? ReadList() : Write(static_cast<int>(random() % 50));
    request.SetTimeout(20 + static_cast<int32_t>(random() % 100));
    if (random() % 3 == 0) {
      request.SetRepeat(2, true);
    }
    int32_t code = 0;
    std::string text;
    switch (random() % 16) {
      case 0: m_client->Cancel(last_id); break;
      case 1: m_client->WaitReady(static_cast<int>(random() % 5)); break;
      case 2: m_client->Counters(); break;
      case 3: m_client->StatusText(); break;
      case 4: m_client->GetLastError(code, text); break;
      case 5: m_client->UsedProxyUrl(kZone); break;
      case 6:
      case 7:
      case 8: m_client->Call(request, response); break;
      case 9:
      case 10:
        futures.push_back(m_client->Send(request));
        last_id = request.GetAsynID();
        break;
      case 11:
      case 12:
        Book(m_client->SendForWhole(request, [this](ClientResponse&) { ++m_outcomes; }));
        break;
      default:
        Book(m_client->Send(request, [this](ClientResponse& answer) {
          m_outcomes += answer.HaveMoreResPkgs() == 0 ? 1 : 0;
        }));
        last_id = request.GetAsynID();
        break;
    }
  }

  void Book(int ret) { m_accepted += ret == 0 ? 1 : 0; }

  static void Await(std::deque<std::future<ClientResponse>>& futures) {
    EXPECT_NE(futures.front().get().GetCmd(), 0u);
    futures.pop_front();
  }

  std::atomic<bool> m_is_over{false};
  std::atomic<int> m_accepted{0};
  std::atomic<int> m_outcomes{0};
};

TEST_P(ClientStorm, EveryRequestHasItsOutcome) {
  const uint32_t seed = Seed();
  std::cout << "OSTRAND_SEED=" << seed << "\n";
  std::mt19937 random(seed);
  StartFleet(3, 3);
  auto pool = std::make_unique<Pool>();
  ClientOptions options = Options();
  options.max_in_flight = 200;
  options.max_waiting = 50;
  if (GetParam()) {
    options.executor = [&pool](std::function<void()> task) { return pool->Add(std::move(task)); };
  }
  StartClient(options);
  WriteList(10, 20);
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([this, seed, i] { Work(seed + i); });
  }
  const int64_t end_ms = GetMonotonicMilliseconds() + kStormMs / 2;
  while (GetMonotonicMilliseconds() < end_ms) {
    const size_t proxy = random() % 3;
    m_fleet->Kill(proxy);
    m_fleet->WaitFor(static_cast<int64_t>(random() % 50), [] { return false; });
    EXPECT_EQ(m_fleet->Restart(proxy), 0);
    m_fleet->WaitFor(static_cast<int64_t>(random() % 50), [] { return false; });
    if (random() % 4 == 0) {
      m_client->Stop(static_cast<int>(random() % 30));
      const ClientCounters counters = m_client->Counters();
      EXPECT_EQ(counters.accepted, counters.outcomes + counters.cancelled);
      EXPECT_EQ(m_client->Start(), 0);
    }
  }
  m_is_over = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GE(m_client->Stop(1000), 0);
  pool.reset();
  EXPECT_EQ(m_accepted.load(), m_outcomes.load());
  EXPECT_GT(m_outcomes.load(), 0);  // how many, the machine decides
}

INSTANTIATE_TEST_SUITE_P(Callbacks, ClientStorm, testing::Bool(), [](const auto& parameter) {
  return parameter.param ? "OnAnExecutor" : "OnTheBackgroundThread";
});

}  // namespace
}  // namespace OstrandTests
