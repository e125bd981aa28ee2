#include "integration/warped_clock.h"

#include <atomic>
#include <chrono>

#include "common/clock.h"

namespace OstrandTests {
namespace {

std::atomic<int64_t> g_offset_us{0};
std::atomic<int64_t> g_speed{1};
std::atomic<int64_t> g_start_us{0};  // of the steady clock

int64_t SteadyUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

int64_t WarpedUs() { return g_offset_us + (SteadyUs() - g_start_us) * g_speed; }

}  // namespace

WarpedClock::WarpedClock(int64_t speed) {
  g_offset_us = OstrandCommon::GetCurrentMicroseconds();
  g_start_us = SteadyUs();
  g_speed = speed;
  OstrandCommon::ReplaceClock(&WarpedUs);
}

WarpedClock::~WarpedClock() { OstrandCommon::ReplaceClock(nullptr); }

void WarpedClock::Jump(int64_t ms) { g_offset_us += ms * 1000; }

}  // namespace OstrandTests
