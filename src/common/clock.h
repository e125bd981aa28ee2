// The clocks: the only place of the library that asks the system for the time.
//
// Wall-clock times are counted from the epoch (1970-01-01 UTC). The wall clock may step in both
// directions; whoever measures with it says what a step does.
//
// Threads: every function may be called from any thread.
#pragma once

#include <cstdint>

#include "common/export.h"

namespace OstrandCommon {

// Wall-clock time in milliseconds.
OSTRAND_API int64_t GetCurrentMilliseconds();

// Wall-clock time in microseconds.
OSTRAND_API int64_t GetCurrentMicroseconds();

// Milliseconds of a clock that only goes forward, from an unknown start: for time-outs of the
// library's own threads. Tests do not replace it.
OSTRAND_API int64_t GetMonotonicMilliseconds();
// The same clock in nanoseconds, for measuring.
OSTRAND_API int64_t GetMonotonicNanoseconds();

// Answers a time in microseconds.
using ClockFunction = int64_t (*)();

// Puts `clock` in the place of the system's clock for the whole process; null puts the system's
// clock back. For tests: a program that serves users never calls it.
OSTRAND_API void ReplaceClock(ClockFunction clock);

}  // namespace OstrandCommon
