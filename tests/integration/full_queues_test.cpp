// Queues that stay full: a proxy that keeps up, slowly, keeps its place; one that answers nothing
// loses it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <string>

#include "fakes/forwarding_system.h"
#include "integration/integration_kit.h"

namespace OstrandTests {
namespace {

using OstrandFleet::ProxyFaults;

// Each socket takes so many bytes a second and no more.
class NarrowSystem : public OstrandFakes::ForwardingSystem {
 public:
  static constexpr int64_t kBytesAMs = 1000;

  void SetNarrow(bool is_narrow) { m_is_narrow = is_narrow; }
  ssize_t Send(int fd, const char* data, size_t len) override {
    if (!m_is_narrow) {
      return ForwardingSystem::Send(fd, data, len);
    }
    const int64_t now_ms = MonotonicNanoseconds() / 1000000;
    Budget& budget = m_budgets[fd];
    if (budget.ms != now_ms) {
      budget = {now_ms, kBytesAMs * std::min<int64_t>(now_ms - budget.ms, 10)};
    }
    if (budget.left <= 0) {
      return -EAGAIN;
    }
    const ssize_t sent =
        ForwardingSystem::Send(fd, data, std::min(len, static_cast<size_t>(budget.left)));
    budget.left -= std::max<ssize_t>(sent, 0);
    return sent;
  }

 private:
  struct Budget {
    int64_t ms = 0;
    int64_t left = 0;
  };
  bool m_is_narrow = false;
  std::map<int, Budget> m_budgets;
};

class FullQueues : public RuntimeTest {
 protected:
  void StartAll(size_t proxies) {
    m_system = &m_narrow;
    StartFleet(proxies);
    auto options = Options();
    options.buffer_limit = 256 * 1024;
    options.max_kept_bytes = 1024 * 1024;
    options.heartbeat_ms = 50;
    options.check_heartbeat_ms = 1500;
    StartClient(options);
    ASSERT_TRUE(m_work->Run(200));
    m_work->SetValueSize(10000);
  }
  bool IsTakenOut(size_t proxy) const {
    return IsLogged("300ms check, the proxy is set unavailable, app_id:7, zone_id:1, url:" +
                    m_fleet->ProxyUrl(proxy));
  }
  void ExpectTheOthersServeAll() {
    ASSERT_TRUE(m_work->Drain());
    const uint64_t without_answer = m_work->tally().timed_out + m_work->tally().failed;
    EXPECT_GT(without_answer, 0u);
    m_work->SetTimeout(0);
    ASSERT_TRUE(m_work->Run(500));
    EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, without_answer);
  }
  void TearDown() override {
    m_narrow.SetNarrow(false);
    RuntimeTest::TearDown();
  }

  NarrowSystem m_narrow;
};

TEST_F(FullQueues, OfProxiesThatGoOnAnsweringLeaveThemInUse) {
  constexpr size_t kProxies = 4;
  StartAll(kProxies);
  m_narrow.SetNarrow(true);
  m_work->RunFor(2000, 1000);
  EXPECT_GT(m_work->tally().Refused(), 100u) << "not full";
  const uint64_t answered = m_work->tally().answered;
  uint64_t requests[kProxies];
  uint64_t beats[kProxies];
  for (size_t i = 0; i < kProxies; ++i) {
    requests[i] = m_fleet->Counters(i).table_requests;
    beats[i] = m_fleet->Counters(i).heartbeats;
  }
  m_work->RunFor(1000, 1000);
  for (size_t i = 0; i < kProxies; ++i) {
    EXPECT_GT(m_fleet->Counters(i).table_requests, requests[i]) << i;
    EXPECT_GT(m_fleet->Counters(i).heartbeats, beats[i]) << i;
    EXPECT_EQ(m_fleet->Counters(i).connections_accepted, 1u) << i;
  }
  EXPECT_GT(m_work->tally().answered, answered);
  EXPECT_FALSE(IsLogged("is set unavailable"));
  m_narrow.SetNarrow(false);
  EXPECT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

// The fast check sees too few answers, or, when the queue was full before it looked, silence ends
// the connection.
TEST_F(FullQueues, OfAProxyThatReadsNothingHaveItLeft) {
  StartAll(4);
  m_work->SetTimeout(500);
  SetFaults(0, [](ProxyFaults& faults) { faults.never_read = true; });
  ASSERT_TRUE(m_work->RunUntil(
      [&] { return IsTakenOut(0) || m_fleet->Counters(0).connections_accepted > 1; }, 1000));
  ExpectTheOthersServeAll();
}

TEST_F(FullQueues, AreNotNeededToTakeOutAProxyThatAnswersHeartbeatsAlone) {
  StartAll(4);
  m_work->SetTimeout(500);
  SetFaults(0, [](ProxyFaults& faults) { faults.drop_every = 1; });
  ASSERT_TRUE(m_work->RunUntil([&] { return IsTakenOut(0); }, 1000));
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
  ExpectTheOthersServeAll();
}

}  // namespace
}  // namespace OstrandTests
