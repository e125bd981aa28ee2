// The loop's timers: a binary heap that knows each timer's place, so that one is cancelled or moved
// in logarithmic time and without memory of its own.

#include <utility>

#include "net/event_loop.h"

namespace OSTRNET {

Timer::Timer(EventLoop& loop, std::function<void()> work) : m_loop(loop), m_work(std::move(work)) {
  m_loop.EnterUser();
}

Timer::~Timer() {
  Cancel();
  m_loop.LeaveUser();
}

void Timer::SetAt(int64_t monotonic_ms) {
  Cancel();
  m_at_ms = monotonic_ms;
  m_loop.AddTimer(this);
}

void Timer::Cancel() {
  if (IsSet()) {
    m_loop.RemoveTimer(this);
  }
}

int64_t EventLoop::NextTimerMs() const {
  return m_timers.empty() ? INT64_MAX : m_timers.front()->m_at_ms;
}

// Those that are due leave the heap before the first of them runs: what they set waits for the next
// round.
bool EventLoop::RunTimers() {
  while (!m_timers.empty() && m_timers.front()->m_at_ms <= NowMs()) {
    Timer* const timer = m_timers.front();
    RemoveTimer(timer);
    timer->m_is_due = true;
    timer->m_place = m_due_timers.size();
    m_due_timers.push_back(timer);
  }
  bool did_something = false;
  for (size_t i = 0; i < m_due_timers.size(); ++i) {
    if (Timer* const timer = m_due_timers[i]) {
      RemoveTimer(timer);
      timer->m_work();
      did_something = true;
    }
  }
  m_due_timers.clear();
  if (m_timer_fd >= 0 && m_timer_fd_set_ms <= NowMs()) {
    m_timer_fd_set_ms = INT64_MAX;  // it is spent, and readable until it is set anew
    if (m_timers.empty()) {
      CountSystemCall();
      m_system.SetTimer(m_timer_fd, 0);
    }
    ArmTimerFd();
  }
  return did_something;
}

void EventLoop::AddTimer(Timer* timer) {
  timer->m_number = m_timer_sets++;
  m_timers.push_back(timer);
  timer->m_place = m_timers.size() - 1;
  SiftUp(timer->m_place);
  ArmTimerFd();
}

void EventLoop::RemoveTimer(Timer* timer) {
  const size_t place = std::exchange(timer->m_place, Timer::kNowhere);
  if (timer->m_is_due) {
    timer->m_is_due = false;
    m_due_timers[place] = nullptr;
    return;
  }
  Timer* const last = m_timers.back();
  m_timers.pop_back();
  if (last != timer) {
    PlaceTimer(place, last);
    SiftUp(place);
    SiftDown(last->m_place);
  }
}

void EventLoop::PlaceTimer(size_t place, Timer* timer) {
  m_timers[place] = timer;
  timer->m_place = place;
}

void EventLoop::SiftUp(size_t place) {
  Timer* const timer = m_timers[place];
  while (place > 0) {
    const size_t parent = (place - 1) / 2;
    if (!timer->IsBefore(*m_timers[parent])) {
      break;
    }
    PlaceTimer(place, m_timers[parent]);
    place = parent;
  }
  PlaceTimer(place, timer);
}

void EventLoop::SiftDown(size_t place) {
  Timer* const timer = m_timers[place];
  for (;;) {
    size_t child = 2 * place + 1;
    if (child + 1 < m_timers.size() && m_timers[child + 1]->IsBefore(*m_timers[child])) {
      ++child;
    }
    if (child >= m_timers.size() || !m_timers[child]->IsBefore(*timer)) {
      break;
    }
    PlaceTimer(place, m_timers[child]);
    place = child;
  }
  PlaceTimer(place, timer);
}

// Only when the earliest moment gets earlier: a timer descriptor that is early costs one round.
void EventLoop::ArmTimerFd() {
  if (m_timer_fd < 0 || NextTimerMs() >= m_timer_fd_set_ms) {
    return;
  }
  m_timer_fd_set_ms = NextTimerMs();
  CountSystemCall();
  // 0 would disarm it; a moment that is past is as good as any other.
  m_system.SetTimer(m_timer_fd, m_timer_fd_set_ms > 0 ? m_timer_fd_set_ms * 1000000 : 1);
}

}  // namespace OSTRNET
