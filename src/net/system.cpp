#include "net/system.h"

#include <algorithm>

namespace OSTRNET {
namespace {

constexpr int64_t kNsPerUs = 1000;
constexpr int64_t kReadWallEveryNs = 10 * 1000 * kNsPerUs;
// So much of the passing time may the steady time gain or lose: 1 ms in 100 ms.
constexpr int64_t kSlewShare = 100;

}  // namespace

// Each step towards the wall belongs to a span of monotonic time of its own, which whoever moves
// m_followed_at_ns over it has won: however many threads look, none of it is used twice. A look
// that meets another thread's step halfway may come out some microseconds early, which the last
// line levels: nobody is given less than anybody was given before.
int64_t System::SteadyWallMicroseconds(int64_t monotonic_ns) {
  int64_t base_us = m_base_us.load(std::memory_order_acquire);
  if (base_us == kUnknown) {
    m_base_us.compare_exchange_strong(base_us, WallMicroseconds() - monotonic_ns / kNsPerUs);
  }
  FollowWall(monotonic_ns);
  const int64_t steady_us = monotonic_ns / kNsPerUs + m_base_us.load(std::memory_order_relaxed);
  int64_t latest_us = m_latest_us.load(std::memory_order_relaxed);
  while (latest_us < steady_us && !m_latest_us.compare_exchange_weak(latest_us, steady_us)) {
  }
  return std::max(latest_us, steady_us);
}

void System::FollowWall(int64_t monotonic_ns) {
  const int64_t off_us = m_off_us.load(std::memory_order_acquire);
  int64_t followed_at_ns = m_followed_at_ns.load(std::memory_order_acquire);
  const int64_t room_us = (monotonic_ns - followed_at_ns) / kSlewShare / kNsPerUs;
  if (off_us != 0 && room_us > 0 &&
      m_followed_at_ns.compare_exchange_strong(followed_at_ns, monotonic_ns)) {
    const int64_t step_us = std::clamp(off_us, -room_us, room_us);
    m_base_us.fetch_add(step_us);
    m_off_us.fetch_sub(step_us);
  }
  int64_t wall_read_at_ns = m_wall_read_at_ns.load(std::memory_order_relaxed);
  if ((wall_read_at_ns != kUnknown && monotonic_ns - wall_read_at_ns < kReadWallEveryNs) ||
      !m_wall_read_at_ns.compare_exchange_strong(wall_read_at_ns, monotonic_ns)) {
    return;
  }
  // What passed before it was known how far off it is gives no room; so this comes first.
  followed_at_ns = m_followed_at_ns.load();
  while (followed_at_ns < monotonic_ns &&
         !m_followed_at_ns.compare_exchange_weak(followed_at_ns, monotonic_ns)) {
  }
  m_off_us.store(WallMicroseconds() - monotonic_ns / kNsPerUs - m_base_us.load());
}

}  // namespace OSTRNET
