#include "common/clock.h"

#include <sys/time.h>
#include <time.h>

#include <atomic>

namespace OstrandCommon {
namespace {

std::atomic<ClockFunction> g_clock{nullptr};  // null: nobody replaced the clock
thread_local ThreadClock* t_clock = nullptr;

int64_t SystemMicroseconds() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + static_cast<int64_t>(now.tv_usec);
}

}  // namespace

int64_t GetCurrentMicroseconds() {
  if (const ClockFunction clock = g_clock.load(std::memory_order_relaxed)) {
    return clock();
  }
  return t_clock != nullptr ? t_clock->NowMicroseconds() : SystemMicroseconds();
}

int64_t GetCurrentMilliseconds() { return GetCurrentMicroseconds() / 1000; }

int64_t ReadCurrentMicroseconds() {
  if (const ClockFunction clock = g_clock.load(std::memory_order_relaxed)) {
    return clock();
  }
  return t_clock != nullptr ? t_clock->ReadMicroseconds() : SystemMicroseconds();
}

int64_t GetMonotonicMilliseconds() {
  return (t_clock != nullptr ? t_clock->NowMonotonicNanoseconds() : GetMonotonicNanoseconds()) /
         1000000;
}

int64_t GetMonotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + static_cast<int64_t>(now.tv_nsec);
}

ThreadClock* SetThreadClock(ThreadClock* clock) {
  ThreadClock* const before = t_clock;
  t_clock = clock;
  return before;
}

void ReplaceClock(ClockFunction clock) { g_clock.store(clock, std::memory_order_relaxed); }

}  // namespace OstrandCommon
