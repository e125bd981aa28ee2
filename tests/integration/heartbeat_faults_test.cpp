// Heartbeats that are not answered, lie, or never end.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandFleet::AnswerFault;
using OstrandFleet::AnswerScope;
using OstrandFleet::ProxyFaults;

constexpr int64_t kSpeed = 10;

class HeartbeatFaults : public RuntimeTest {
 protected:
  // Heartbeats come quickly, and silence is noticed.
  void StartBeating(size_t proxies, int64_t silence_ms) {
    StartFleet(proxies);
    auto options = Options();
    options.heartbeat_ms = 10 * kSpeed;
    options.check_heartbeat_ms = static_cast<uint32_t>(silence_ms * kSpeed);
    StartClient(options);
  }
  void WaitForHeartbeats(size_t proxy, uint64_t more) {
    const uint64_t wanted = m_fleet->Counters(proxy).heartbeats + more;
    ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(proxy).heartbeats >= wanted; }, 8));
  }

  WarpedClock m_clock{kSpeed};
};

TEST_F(HeartbeatFaults, SilenceHasTheConnectionMadeAnew) {
  StartBeating(2, 400);
  m_work->SetTimeout(500 * kSpeed);
  SetFaults(0, [](ProxyFaults& faults) { faults.ignore_heartbeats = true; });
  ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).connections_accepted >= 2; }, 8));
  RemoveFaults();
  WaitForHeartbeats(0, 3);
}

struct Lie {
  const char* name;
  int64_t echo_us;
  int64_t shift_us;
  const char* text;
};

class LyingHeartbeats : public HeartbeatFaults, public testing::WithParamInterface<Lie> {};

TEST_P(LyingHeartbeats, DoNoHarm) {
  StartBeating(2, 30000);
  SetFaultsOfAll([](ProxyFaults& faults) {
    faults.heartbeat_echo_us = GetParam().echo_us;
    faults.heartbeat_shift_us = GetParam().shift_us;
    faults.heartbeat_text = GetParam().text;
  });
  WaitForHeartbeats(0, 10);
  // A minute on, what the heartbeats told is reported.
  m_clock.Jump(61000);
  WaitForHeartbeats(0, 3);
  EXPECT_FALSE(m_client->StatusText().empty());
  EXPECT_EQ(m_work->tally().failed, 0u);
}

constexpr char kNormal[] = "CpuUse=10;CpuTotal=100;";

INSTANTIATE_TEST_SUITE_P(
    Each, LyingHeartbeats,
    testing::Values(
        Lie{"FromTheFuture", 0, int64_t{86400} * 1000000, kNormal},
        Lie{"FromThePast", 0, -int64_t{86400} * 1000000, kNormal},
        Lie{"SmallestTime", INT64_MIN, 0, kNormal}, Lie{"LargestTime", INT64_MAX, 0, kNormal},
        Lie{"NegativeShare", 0, 0, "CpuUse=-5;CpuTotal=100;"},
        Lie{"ThirtyDigits", 0, 0,
            "CpuUse=999999999999999999999999999999;CpuTotal=-999999999999999999999999999999;"},
        Lie{"NoEnd", 0, 0, "CpuUse=1"}, Lie{"NoNumber", 0, 0, "CpuUse=;CpuTotal=x;;;=;"},
        Lie{"NothingElse", 0, 0, ""}),
    [](const testing::TestParamInfo<Lie>& test) { return test.param.name; });

TEST_F(HeartbeatFaults, ATextThatFillsItsFieldWithoutAnEnd) {
  StartBeating(1, 30000);
  SetFaults(
      0, [](ProxyFaults& faults) { faults.heartbeat_text = std::string(1016, 'x') + "CpuUse=1"; });
  WaitForHeartbeats(0, 5);
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
}

TEST_F(HeartbeatFaults, DoubledAndWithoutEnd) {
  StartBeating(2, 30000);
  SetFaultsOfAll([](ProxyFaults& faults) {
    faults.scope = AnswerScope::kHeartbeat;
    faults.answer = AnswerFault::kDuplicate;
  });
  const std::string beats =
      Repeat(Frame(OSTRAND_API_HEART_BEAT_RES,
                   [](OStrandPkg& pkg) { pkg.stBody.stHeartBeatRes.llApiTimeUs = 1; }),
             20000);
  m_fleet->SendBytes(0, beats);
  ASSERT_TRUE(m_work->Run(500));
  WaitForHeartbeats(0, 5);
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
}

// An answer that does not decode is told to the proxies with the next heartbeat.
TEST_F(HeartbeatFaults, CarryTheCodesOfWhatDidNotDecode) {
  StartBeating(1, 30000);
  std::string frame = Frame(OSTRAND_API_GET_RES);
  frame.back() = static_cast<char>(0x7F);  // of the length of what is then missing
  m_fleet->SendBytes(0, frame);
  const auto is_told = [&] {
    for (const OstrandFleet::RecordedRequest& request : m_fleet->Requests()) {
      if (request.cmd == OSTRAND_API_HEART_BEAT_REQ &&
          request.user_buffer.rfind("AlarmCode=-", 0) == 0) {
        return true;
      }
    }
    return false;
  };
  EXPECT_TRUE(UpdateUntil(is_told));
}

}  // namespace
}  // namespace OstrandTests
