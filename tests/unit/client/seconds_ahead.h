// The monotonic clock of one thread put ahead, for code that waits longer than a test should.
//
// All other threads, and those who wait in the system, see the clock as it is: nothing that waits
// belongs into the scope. The wall clock is not touched.
#pragma once

#include <time.h>

namespace OstrandTests {

// From construction to the end of its scope, on the calling thread; one at a time.
class SecondsAhead {
 public:
  explicit SecondsAhead(time_t seconds);
  ~SecondsAhead();
  SecondsAhead(const SecondsAhead&) = delete;
  SecondsAhead& operator=(const SecondsAhead&) = delete;
};

}  // namespace OstrandTests
