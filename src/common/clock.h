// The clocks: beside the network's way to the system (net/system.h) the only place of the library
// that asks for the time.
//
// Wall-clock times are counted from the epoch (1970-01-01 UTC). The wall clock may step in both
// directions; whoever measures with it says what a step does. A loop that runs on a thread gives
// its own time to that thread: taken once a batch, without steps, never going back.
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
// library's own threads; where a loop gives its time, the loop's. Tests do not replace it.
OSTRAND_API int64_t GetMonotonicMilliseconds();
// The same clock in nanoseconds, for measuring: always read afresh.
OSTRAND_API int64_t GetMonotonicNanoseconds();

// Wall-clock time in microseconds, read afresh also where a loop gives its time; what was read is
// then the loop's time.
OSTRAND_API int64_t ReadCurrentMicroseconds();

// What gives a thread its time in the system's place.
class OSTRAND_API ThreadClock {
 public:
  virtual int64_t NowMicroseconds() = 0;   // wall-clock time of the last look
  virtual int64_t ReadMicroseconds() = 0;  // looks again
  virtual int64_t NowMonotonicNanoseconds() = 0;

 protected:
  virtual ~ThreadClock() = default;
};

// From now on `clock` gives the calling thread its time; null: the system does. Answers the one
// before, which whoever ends puts back. A clock that a test has put in the system's place wins.
OSTRAND_API ThreadClock* SetThreadClock(ThreadClock* clock);

// Answers a time in microseconds.
using ClockFunction = int64_t (*)();

// Puts `clock` in the place of the system's clock for the whole process; null puts the system's
// clock back. For tests: a program that serves users never calls it.
OSTRAND_API void ReplaceClock(ClockFunction clock);

}  // namespace OstrandCommon
