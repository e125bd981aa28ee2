#include "unit/client/seconds_ahead.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace {

thread_local time_t t_seconds_ahead = 0;

}  // namespace

// Stands in front of the system's for the whole program.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const auto ret = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  if (ret == 0 && clock == CLOCK_MONOTONIC) {
    now->tv_sec += t_seconds_ahead;
  }
  return ret;
}

namespace OstrandTests {

SecondsAhead::SecondsAhead(time_t seconds) { t_seconds_ahead = seconds; }
SecondsAhead::~SecondsAhead() { t_seconds_ahead = 0; }

}  // namespace OstrandTests
