// Clients that come together, and clients that come and go.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "common/clock.h"
#include "fakes/sanitizers.h"
#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandService::PollingClient;

class ManyClients : public RuntimeTest {
 protected:
  // One life of a client, used.
  void LiveOnce(const OstrandService::ClientOptions& options) {
    PollingClient client(options);
    ASSERT_EQ(client.Start(), 0);
    ASSERT_EQ(client.WaitReady(static_cast<int>(kPatienceMs)), 0);
    ASSERT_EQ(client.Call(m_request.Get(kTable).Key("id", 1), m_response), 0);
    ASSERT_EQ(m_response.GetResult(), -7949);
  }
};

TEST_F(ManyClients, OneAfterTheOtherLeaveNothingBehind) {
  StartFleetProcess(2);
  auto options = Options();
  options.logger = nullptr;  // one that keeps nothing
  for (int i = 0; i < 20; ++i) {
    LiveOnce(options);
  }
  const size_t descriptors = CountEntries("/proc/self/fd");
  const size_t threads = CountEntries("/proc/self/task");
  const size_t bytes = mallinfo2().uordblks + mallinfo2().hblkhd;
  const int rounds = OstrandFakes::Rounds(200);
  for (int i = 0; i < rounds; ++i) {
    LiveOnce(options);
  }
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  if (!OstrandFakes::kAddressSanitizer && !OstrandFakes::kThreadSanitizer) {
    // Blocks that malloc keeps for the thread count as used: less than the smallest one a life.
    constexpr size_t kSmallestBlock = 32;
    EXPECT_LT(mallinfo2().uordblks + mallinfo2().hblkhd,
              bytes + static_cast<size_t>(rounds) * kSmallestBlock);
  }
}

// Were they in step, all heartbeats of a period would come at once.
TEST_F(ManyClients, ThatStartTogetherDoNotBeatInStep) {
  constexpr size_t kClients = 12;
  constexpr int64_t kPeriodMs = 400;
  StartFleet(1);
  auto options = Options();
  options.heartbeat_ms = kPeriodMs;
  std::vector<std::unique_ptr<PollingClient>> clients;
  for (size_t i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<PollingClient>(options));
    ASSERT_EQ(clients.back()->Start(), 0);
  }
  uint64_t seen = 0;                                  // of the fleet's requests
  std::map<uint64_t, std::vector<int64_t>> beats_ms;  // by connection
  const auto all_beat_four_times = [&] {
    size_t connections = 0;
    for (const auto& [connection, times] : beats_ms) {
      connections += times.size() >= 4 ? 1 : 0;
    }
    return connections == kClients;
  };
  const int64_t deadline_ms = GetMonotonicMilliseconds() + kPatienceMs;
  while (!all_beat_four_times() && GetMonotonicMilliseconds() < deadline_ms) {
    for (const auto& client : clients) {
      ASSERT_EQ(client->Update(), 0);
    }
    const int64_t now_ms = GetMonotonicMilliseconds();
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.number > seen) {
        seen = request.number;
        if (request.cmd == ostrand_protocol_cs::OSTRAND_API_HEART_BEAT_REQ) {
          beats_ms[request.connection].push_back(now_ms);
        }
      }
    }
  }
  ASSERT_TRUE(all_beat_four_times());
  // Eighths of the period in which somebody's fourth heartbeat came.
  std::map<int64_t, int> eighths;
  for (const auto& [connection, times] : beats_ms) {
    ++eighths[times[3] % kPeriodMs / (kPeriodMs / 8)];
  }
  EXPECT_GE(eighths.size(), 3u);
}

}  // namespace
}  // namespace OstrandTests
