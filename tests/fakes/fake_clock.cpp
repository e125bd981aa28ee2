#include "fakes/fake_clock.h"

#include <atomic>

#include "common/clock.h"
#include "fakes/fault.h"

namespace OstrandFakes {
namespace {

std::atomic<int64_t> g_now_us{0};
std::atomic<bool> g_installed{false};

int64_t NowUs() { return g_now_us.load(); }

}  // namespace

FakeClock::FakeClock(int64_t now_ms) {
  if (g_installed.exchange(true)) {
    Fault("a second FakeClock");
  }
  SetMs(now_ms);
  OstrandCommon::ReplaceClock(&NowUs);
}

FakeClock::~FakeClock() {
  OstrandCommon::ReplaceClock(nullptr);
  g_installed.store(false);
}

void FakeClock::SetUs(int64_t now_us) { g_now_us.store(now_us); }
void FakeClock::AdvanceUs(int64_t us) { g_now_us.fetch_add(us); }
int64_t FakeClock::Us() const { return g_now_us.load(); }

}  // namespace OstrandFakes
