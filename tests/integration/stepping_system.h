// The kernel with clocks that a test moves on: as a wall clock that is set, or a process that
// stands.
//
// Threads: Step and Stand on the test's; all else any.
#pragma once

#include <atomic>
#include <cstdint>

#include "fakes/forwarding_system.h"

namespace OstrandTests {

class SteppingSystem : public OstrandFakes::ForwardingSystem {
 public:
  // Sets the wall clock, forward or back.
  void Step(int64_t ms) { m_wall_ms += ms; }
  // So much time passes at once, by both clocks, as if nothing of the process had run.
  void Stand(int64_t ms) {
    m_monotonic_ms += ms;
    m_wall_ms += ms;
  }

  int64_t WallMicroseconds() override {
    return ForwardingSystem::WallMicroseconds() + m_wall_ms * 1000;
  }
  int64_t MonotonicNanoseconds() override {
    return ForwardingSystem::MonotonicNanoseconds() + m_monotonic_ms * 1000000;
  }

 private:
  std::atomic<int64_t> m_wall_ms{0};
  std::atomic<int64_t> m_monotonic_ms{0};
};

}  // namespace OstrandTests
