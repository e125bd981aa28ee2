#include "common/clock.h"

#include <sys/time.h>
#include <time.h>

#include <atomic>

namespace OstrandCommon {
namespace {

int64_t SystemMicroseconds() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + static_cast<int64_t>(now.tv_usec);
}

std::atomic<ClockFunction> g_clock{&SystemMicroseconds};

}  // namespace

int64_t GetCurrentMicroseconds() { return g_clock.load(std::memory_order_relaxed)(); }

int64_t GetCurrentMilliseconds() { return GetCurrentMicroseconds() / 1000; }

int64_t GetMonotonicMilliseconds() { return GetMonotonicNanoseconds() / 1000000; }

int64_t GetMonotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + static_cast<int64_t>(now.tv_nsec);
}

void ReplaceClock(ClockFunction clock) {
  g_clock.store(clock != nullptr ? clock : &SystemMicroseconds, std::memory_order_relaxed);
}

}  // namespace OstrandCommon
