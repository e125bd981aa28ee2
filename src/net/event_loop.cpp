#include "net/event_loop.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <new>
#include <utility>

namespace OSTRNET {
namespace {

using OstrandCommon::ScopedLock;

constexpr int kMaxEventsPerRound = 256;
constexpr int64_t kNsPerMs = 1000000;

}  // namespace

EventLoop::EventLoop(System& system)
    : m_system(system), m_read_buffer(new (std::nothrow) char[kReadBufferSize]) {
  m_error = Open();
  LookAtClock();
}

int EventLoop::Open() {
  if (m_read_buffer == nullptr) {
    return -ENOMEM;
  }
  m_poll = m_system.OpenPoll();
  if (m_poll < 0) {
    return m_poll;
  }
  m_wake_event = m_system.OpenEvent();
  if (m_wake_event < 0) {
    return m_wake_event;
  }
  return m_system.PollAdd(m_poll, m_wake_event, EPOLLIN, &m_wake_event);
}

EventLoop::~EventLoop() {
  for (const int fd : {m_timer_fd, m_ready_event, m_wake_event, m_poll}) {
    if (fd >= 0) {
      m_system.Close(fd);
    }
  }
}

bool EventLoop::RunOnce(int timeout_ms) {
  assert(!m_in_round && "a round inside a round");
  if (m_error != 0) {
    return false;
  }
  const LoopScope scope(*this);
  bool did_something = !m_to_flush.empty();
  {
    const InRound round(*this);
    did_something = RunRound(timeout_ms) || did_something;
  }
  BeforeLeaving();
  return did_something;
}

bool EventLoop::RunRound(int timeout_ms) {
  FlushAll();
  epoll_event events[kMaxEventsPerRound];
  m_events = events;
  const int wait_ms = WaitMs(timeout_ms);
  CountSystemCall();
  const int count = m_system.PollWait(m_poll, events, kMaxEventsPerRound, wait_ms);
  m_sleeping.store(false);
  m_wake_asked.store(false);
  LookAtClock();
  bool did_something = RunEvents(count);
  did_something = RunAgain() || did_something;
  did_something = RunTimers() || did_something;
  did_something = RunTasks() || did_something;
  FlushAll();
  return did_something;
}

void EventLoop::Run() {
  while (!m_stop.exchange(false) && m_error == 0) {
    RunOnce(-1);
  }
}

void EventLoop::Stop() {
  m_stop.store(true);
  Wake();
}

// How long the round may wait. From here on until its wait is over the loop sleeps.
int EventLoop::WaitMs(int timeout_ms) {
  if (timeout_ms == 0) {
    return 0;
  }
  m_sleeping.store(true);
  if (HasPendingWork() || m_is_ready || (m_has_work && m_has_work())) {
    return 0;
  }
  if (m_timers.empty()) {
    return timeout_ms;
  }
  // Not the loop's time: what the last round did took its time too.
  const int64_t now_ns = m_system.MonotonicNanoseconds();
  const int64_t left_ns = m_timers.front()->m_at_ms * kNsPerMs - now_ns;
  const int64_t left_ms = std::clamp<int64_t>((left_ns + kNsPerMs - 1) / kNsPerMs, 0, INT_MAX);
  return timeout_ms < 0 ? static_cast<int>(left_ms)
                        : static_cast<int>(std::min<int64_t>(left_ms, timeout_ms));
}

bool EventLoop::HasPendingWork() const {
  return m_has_tasks.load() || m_wake_asked.load() || !m_again.empty() || !m_to_flush.empty();
}

bool EventLoop::RunEvents(int count) {
  bool did_something = false;
  m_event_count = count;
  for (m_next_event = 0; m_next_event < m_event_count;) {
    const epoll_event& event = m_events[m_next_event++];
    void* const handler = event.data.ptr;
    if (handler == &m_wake_event) {
      CountSystemCall();
      m_system.ClearEvent(m_wake_event);
      m_wake_raised.store(false);  // after the clearing: who raises it now finds the loop awake
    } else if (handler != nullptr && handler != &m_ready_event && handler != &m_timer_fd) {
      static_cast<EventHandler*>(handler)->OnEvents(event.events);
      did_something = true;
    }
  }
  m_event_count = 0;
  return did_something;
}

bool EventLoop::RunAgain() {
  m_running_again.swap(m_again);
  const bool did_something = !m_running_again.empty();
  for (size_t i = 0; i < m_running_again.size(); ++i) {
    if (EventHandler* const handler = std::exchange(m_running_again[i], nullptr)) {
      handler->OnEvents(EPOLLIN);
    }
  }
  m_running_again.clear();
  return did_something;
}

bool EventLoop::RunTasks() {
  if (!m_has_tasks.load()) {
    return false;
  }
  {
    ScopedLock lock(m_mutex);
    m_running_tasks.swap(m_tasks);
    m_has_tasks.store(false);
  }
  for (std::function<void()>& task : m_running_tasks) {
    task();
    task = nullptr;  // what it held goes at once
  }
  m_running_tasks.clear();
  return true;
}

void EventLoop::Post(std::function<void()> task) {
  {
    ScopedLock lock(m_mutex);
    m_tasks.push_back(std::move(task));
    m_has_tasks.store(true);
  }
  RaiseWake();
}

void EventLoop::Wake() {
  m_wake_asked.store(true);
  RaiseWake();
}

// Called after the work was given.
void EventLoop::RaiseWake() {
  if (m_sleeping.load() && !m_wake_raised.exchange(true)) {
    m_system.RaiseEvent(m_wake_event);
  }
}

// Who waits at Fd() in the loop's place learns of work that its owner gives between the rounds.
void EventLoop::NoteWorkOutsideRounds() {
  if (!m_in_round && m_ready_event >= 0) {
    RaiseWake();
  }
}

void EventLoop::BeforeLeaving() {
  if (m_ready_event < 0) {
    return;
  }
  m_sleeping.store(true);
  if (HasPendingWork() || (m_has_work && m_has_work())) {
    RaiseWake();
  }
}

int EventLoop::Watch(int fd, uint32_t epoll_events, EventHandler* handler) {
  CountSystemCall();
  return m_system.PollAdd(m_poll, fd, epoll_events, handler);
}

int EventLoop::Rewatch(int fd, uint32_t epoll_events, EventHandler* handler) {
  CountSystemCall();
  return m_system.PollChange(m_poll, fd, epoll_events, handler);
}

void EventLoop::Unwatch(int fd, EventHandler* handler) {
  if (!m_is_abandoned) {  // a forked child's set of descriptors is its parent's
    CountSystemCall();
    m_system.PollRemove(m_poll, fd);
  }
  for (int i = m_next_event; i < m_event_count; ++i) {
    if (m_events[i].data.ptr == handler) {
      m_events[i].data.ptr = nullptr;
    }
  }
}

void EventLoop::EnterUser() {
  const size_t room = 2 * (m_users + 1);  // who leaves a list in a round may come back in it
  for (auto* timers : {&m_timers, &m_due_timers}) {
    timers->reserve(std::max(room, timers->capacity()));
  }
  for (auto* flushables : {&m_to_flush, &m_flushing}) {
    flushables->reserve(std::max(room, flushables->capacity()));
  }
  for (auto* handlers : {&m_again, &m_running_again}) {
    handlers->reserve(std::max(room, handlers->capacity()));
  }
  ++m_users;
}

void EventLoop::FlushLater(Flushable* flushable) {
  if (flushable->m_flush_place != Flushable::kNowhere) {
    return;
  }
  m_to_flush.push_back(flushable);
  flushable->m_flush_place = m_to_flush.size() - 1;
  NoteWorkOutsideRounds();
}

// What is queued meanwhile waits for the next time: the loop does not sleep before.
void EventLoop::FlushAll() {
  if (!m_flushing.empty()) {
    return;  // called by one that is being flushed
  }
  m_flushing.swap(m_to_flush);
  for (size_t i = 0; i < m_flushing.size(); ++i) {
    if (Flushable* const flushable = std::exchange(m_flushing[i], nullptr)) {
      flushable->m_flush_place = Flushable::kNowhere;
      flushable->FlushNow();
    }
  }
  m_flushing.clear();
}

void EventLoop::ForgetFlush(Flushable* flushable) {
  const size_t place = std::exchange(flushable->m_flush_place, Flushable::kNowhere);
  if (place < m_flushing.size() && m_flushing[place] == flushable) {
    m_flushing[place] = nullptr;
  } else if (place != Flushable::kNowhere) {
    m_to_flush[place] = nullptr;
  }
}

void EventLoop::EventsAgain(EventHandler* handler) {
  m_again.push_back(handler);
  NoteWorkOutsideRounds();
}

void EventLoop::ForgetEventsAgain(EventHandler* handler) {
  m_again.erase(std::remove(m_again.begin(), m_again.end(), handler), m_again.end());
  std::replace(m_running_again.begin(), m_running_again.end(), handler,
               static_cast<EventHandler*>(nullptr));
}

void EventLoop::LookAtClock() {
  m_now_ns = std::max(m_now_ns, m_system.MonotonicNanoseconds());
  m_now_ms = m_now_ns / 1000000;
  m_now_us = std::max(m_now_us, m_system.SteadyWallMicroseconds(m_now_ns));
}

void EventLoop::LookAtClockOutsideRounds() {
  if (!m_in_round) {
    LookAtClock();
  }
}

int64_t EventLoop::ReadMicroseconds() {
  LookAtClock();
  return m_now_us;
}

int EventLoop::Fd() {
  if (m_error != 0 || m_ready_event >= 0) {
    return m_error != 0 ? m_error : m_poll;
  }
  const int ready_event = m_system.OpenEvent();
  const int timer_fd = ready_event >= 0 ? m_system.OpenTimer() : ready_event;
  int ret =
      timer_fd < 0 ? timer_fd : m_system.PollAdd(m_poll, ready_event, EPOLLIN, &m_ready_event);
  if (ret == 0) {
    ret = m_system.PollAdd(m_poll, timer_fd, EPOLLIN, &m_timer_fd);
  }
  if (ret != 0) {
    for (const int fd : {ready_event, timer_fd}) {
      if (fd >= 0) {
        m_system.Close(fd);
      }
    }
    return ret;
  }
  m_ready_event = ready_event;
  m_timer_fd = timer_fd;
  if (m_is_ready) {
    m_system.RaiseEvent(m_ready_event);
  }
  ArmTimerFd();
  if (!m_in_round) {
    BeforeLeaving();
  }
  return m_poll;
}

void EventLoop::SetReady(bool ready) {
  if (ready == m_is_ready) {
    return;
  }
  m_is_ready = ready;
  if (m_ready_event >= 0) {
    CountSystemCall();
    static_cast<void>(ready ? m_system.RaiseEvent(m_ready_event)
                            : m_system.ClearEvent(m_ready_event));
  }
}

LoopScope::LoopScope(EventLoop& loop) : m_outer(OstrandCommon::SetThreadClock(&loop)) {}

LoopScope::~LoopScope() { OstrandCommon::SetThreadClock(m_outer); }

}  // namespace OSTRNET
