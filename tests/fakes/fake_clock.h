// The wall clock under a test's control.
//
// Stands in for the system's clock (common/clock.h) from construction to the end of its scope; one
// at a time in a process. It stands still unless it is set or advanced.
// Threads: any.
#pragma once

#include <cstdint>

namespace OstrandFakes {

class FakeClock {
 public:
  static constexpr int64_t kStartMs = 1700000000000;

  explicit FakeClock(int64_t now_ms = kStartMs);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  void SetMs(int64_t now_ms) { SetUs(now_ms * 1000); }
  void SetUs(int64_t now_us);
  void AdvanceMs(int64_t ms) { AdvanceUs(ms * 1000); }
  void AdvanceUs(int64_t us);
  int64_t Ms() const { return Us() / 1000; }
  int64_t Us() const;
};

}  // namespace OstrandFakes
