// The wall clock of the process for tests that need it to jump or to hurry.
#pragma once

#include <cstdint>

namespace OstrandTests {

// Stands in for the system's clock and runs at a multiple of its speed until it is destroyed. One
// at a time in a process. Threads: Jump on any.
class WarpedClock {
 public:
  explicit WarpedClock(int64_t speed = 1);
  ~WarpedClock();
  WarpedClock(const WarpedClock&) = delete;
  WarpedClock& operator=(const WarpedClock&) = delete;

  void Jump(int64_t ms);
};

}  // namespace OstrandTests
