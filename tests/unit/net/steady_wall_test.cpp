// The steady wall clock: what it takes from a wall clock that steps, and what it never does.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "unit/net/net_test_kit.h"

namespace OSTRNET {
namespace {

constexpr int64_t kNsPerUs = 1000;
constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kHourUs = int64_t{3600} * 1000 * kUsPerMs;

class SteadyWall : public testing::Test {
 protected:
  SteadyWall() { system.frozen = true; }

  // Both clocks go on; what the steady one then tells.
  int64_t After(int64_t us) {
    system.frozen_ns += us * kNsPerUs;
    system.wall_us += us;
    return system.SteadyWallMicroseconds(system.frozen_ns);
  }

  TestSystem system;
};

TEST_F(SteadyWall, StartsAsTheWallClock) {
  for (const int64_t passed_us : {int64_t{0}, int64_t{123}, kHourUs}) {
    const int64_t now_us = After(passed_us);
    EXPECT_EQ(system.wall_us, now_us);
  }
}

TEST_F(SteadyWall, FollowsAStepForwardByOneInAHundred) {
  After(0);
  system.wall_us += kHourUs;
  int64_t before_us = After(10 * kUsPerMs);  // here the step is seen
  for (int i = 0; i < 1000; ++i) {
    const int64_t now_us = After(kUsPerMs);
    ASSERT_EQ(before_us + kUsPerMs + 10, now_us);
    before_us = now_us;
  }
}

TEST_F(SteadyWall, FollowsAStepBackByOneInAHundredAndNeverGoesBack) {
  After(0);
  system.wall_us -= kHourUs;
  int64_t before_us = After(10 * kUsPerMs);
  for (int i = 0; i < 1000; ++i) {
    const int64_t now_us = After(kUsPerMs);
    ASSERT_EQ(before_us + kUsPerMs - 10, now_us);
    before_us = now_us;
  }
}

TEST_F(SteadyWall, IsTheWallClockAgainWhenItHasFollowed) {
  After(0);
  system.wall_us += 5 * kUsPerMs;
  After(10 * kUsPerMs);
  int64_t now_us = After(0);
  EXPECT_EQ(system.wall_us - 5 * kUsPerMs, now_us);
  now_us = After(100 * kUsPerMs);
  EXPECT_EQ(system.wall_us - 4 * kUsPerMs, now_us);
  now_us = After(400 * kUsPerMs);
  EXPECT_EQ(system.wall_us, now_us);
  now_us = After(kHourUs);
  EXPECT_EQ(system.wall_us, now_us);
}

TEST_F(SteadyWall, ThatNobodyLookedAtForLongDoesNotCatchUpAtOnce) {
  After(0);
  system.wall_us += kHourUs;
  // The step may have come just now: the time before gives no room.
  const int64_t now_us = After(kHourUs);
  EXPECT_EQ(system.wall_us - kHourUs, now_us);
}

TEST_F(SteadyWall, ReadsTheWallClockAtMostEveryTenMilliseconds) {
  After(0);
  system.wall_reads = 0;
  for (int i = 0; i < 100000; ++i) {
    After(1);
  }
  EXPECT_EQ(10, system.wall_reads);
}

// Random paces of looking and random steps of the wall: never back, never faster or slower than one
// in a hundred.
TEST_F(SteadyWall, KeepsItsBoundsWhateverTheWallDoes) {
  std::minstd_rand random(1);
  int64_t before_us = After(0);
  for (int i = 0; i < 20000; ++i) {
    if (random() % 50 == 0) {
      system.wall_us += static_cast<int64_t>(random() % 2000000) - 1000000;
    }
    const auto passed_us = static_cast<int64_t>(random() % 30000);
    const int64_t now_us = After(passed_us);
    // 1: what did not make a whole microsecond is left from the look before.
    ASSERT_GE(now_us, before_us + passed_us - passed_us / 100 - 1);
    ASSERT_LE(now_us, before_us + passed_us + passed_us / 100 + 1);
    ASSERT_GE(now_us, before_us);
    before_us = now_us;
  }
}

// The wall steps to and fro while several threads look.
TEST(SteadyWallOfManyThreads, NeverGoesBackOnAnyOfThem) {
  class SteppingWall : public OstrandFakes::ForwardingSystem {
   public:
    int64_t WallMicroseconds() override {
      return ForwardingSystem::WallMicroseconds() + (m_reads++ % 2 == 0 ? kHourUs : -kHourUs);
    }

   private:
    std::atomic<int> m_reads{0};
  };
  SteppingWall system;
  std::atomic<int> steps_back{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      int64_t before_us = 0;
      for (int look = 0; look < 100000; ++look) {
        const int64_t now_us = system.SteadyWallMicroseconds(system.MonotonicNanoseconds());
        steps_back += now_us < before_us ? 1 : 0;
        before_us = now_us;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(0, steps_back.load());
}

}  // namespace
}  // namespace OSTRNET
