#include "common/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace OstrandCommon {
namespace {

int64_t g_now_us = 0;

int64_t TestClock() { return g_now_us; }

class ClockTest : public testing::Test {
 protected:
  ~ClockTest() override { ReplaceClock(nullptr); }
};

int64_t StandardLibraryNowUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

TEST_F(ClockTest, TellsTheWallClocksTime) {
  constexpr int64_t kToleranceUs = 1000;  // Two readings of the clock may be of different grain.
  const int64_t before_us = StandardLibraryNowUs();
  const int64_t now_us = GetCurrentMicroseconds();
  const int64_t now_ms = GetCurrentMilliseconds();
  const int64_t after_us = StandardLibraryNowUs();
  EXPECT_LE(before_us - kToleranceUs, now_us);
  EXPECT_LE(now_us, after_us + kToleranceUs);
  EXPECT_LE(before_us / 1000 - 1, now_ms);
  EXPECT_LE(now_ms, after_us / 1000 + 1);
}

TEST_F(ClockTest, BothUnitsComeFromTheClockInPlace) {
  ReplaceClock(&TestClock);
  g_now_us = 1700000000123456;
  EXPECT_EQ(1700000000123456, GetCurrentMicroseconds());
  EXPECT_EQ(1700000000123, GetCurrentMilliseconds());
  g_now_us = 999;
  EXPECT_EQ(0, GetCurrentMilliseconds());
}

TEST_F(ClockTest, NullPutsTheSystemsClockBack) {
  ReplaceClock(&TestClock);
  g_now_us = 1;
  ReplaceClock(nullptr);
  EXPECT_GT(GetCurrentMicroseconds(), 1600000000000000);
}

TEST_F(ClockTest, MonotonicTimeGoesForwardAtItsOwnPace) {
  const auto steady_ns = [] {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
  };
  const int64_t before_ns = steady_ns();
  const int64_t now_ns = GetMonotonicNanoseconds();
  const int64_t now_ms = GetMonotonicMilliseconds();
  const int64_t after_ns = steady_ns();
  EXPECT_LE(before_ns, now_ns);
  EXPECT_LE(now_ns / 1000000, now_ms);
  EXPECT_LE(now_ms, after_ns / 1000000);
}

TEST_F(ClockTest, MonotonicTimeIsNotReplaced) {
  const int64_t before_ms = GetMonotonicMilliseconds();
  ReplaceClock(&TestClock);
  g_now_us = -1;
  EXPECT_LE(before_ms, GetMonotonicMilliseconds());
}

// A loop's time on a thread.
class ScriptedThreadClock : public ThreadClock {
 public:
  int64_t NowMicroseconds() override { return now_us; }
  int64_t ReadMicroseconds() override { return ++now_us; }
  int64_t NowMonotonicNanoseconds() override { return 77999999; }

  int64_t now_us = 1700000000000999;
};

TEST_F(ClockTest, AThreadsOwnClockIsAskedInTheSystemsPlace) {
  ScriptedThreadClock clock;
  EXPECT_EQ(nullptr, SetThreadClock(&clock));
  EXPECT_EQ(1700000000000999, GetCurrentMicroseconds());
  EXPECT_EQ(1700000000000, GetCurrentMilliseconds());
  EXPECT_EQ(77, GetMonotonicMilliseconds());
  EXPECT_NE(77999999, GetMonotonicNanoseconds());
  EXPECT_EQ(1700000000001000, ReadCurrentMicroseconds());
  EXPECT_EQ(1700000000001000, GetCurrentMicroseconds());
  std::thread([] { EXPECT_NE(1700000000001000, GetCurrentMicroseconds()); }).join();
  EXPECT_EQ(&clock, SetThreadClock(nullptr));
  EXPECT_NE(1700000000001000, GetCurrentMicroseconds());
}

TEST_F(ClockTest, AReplacedClockWinsOverAThreadsOwn) {
  ScriptedThreadClock clock;
  SetThreadClock(&clock);
  ReplaceClock(&TestClock);
  g_now_us = 5000;
  EXPECT_EQ(5000, GetCurrentMicroseconds());
  EXPECT_EQ(5, GetCurrentMilliseconds());
  EXPECT_EQ(5000, ReadCurrentMicroseconds());
  EXPECT_EQ(77, GetMonotonicMilliseconds());
  ReplaceClock(nullptr);
  EXPECT_EQ(1700000000000999, GetCurrentMicroseconds());
  SetThreadClock(nullptr);
}

TEST_F(ClockTest, WithoutAClockOfTheThreadReadingAfreshIsReadingTheSystems) {
  const int64_t before_us = GetCurrentMicroseconds();
  EXPECT_LE(before_us, ReadCurrentMicroseconds() + 1000);
}

}  // namespace
}  // namespace OstrandCommon
