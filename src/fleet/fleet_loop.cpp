#include "fleet/fleet_loop.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "common/clock.h"

namespace OstrandFleet {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandCommon::ScopedLock;

constexpr int kMaxEventsPerRound = 256;
constexpr size_t kReadBufferLen = 256 * 1024;

// The loop that the calling thread is on.
thread_local const FleetLoop* t_loop = nullptr;

class OnLoopScope {
 public:
  explicit OnLoopScope(const FleetLoop* loop) : m_outer(t_loop) { t_loop = loop; }
  ~OnLoopScope() { t_loop = m_outer; }
  OnLoopScope(const OnLoopScope&) = delete;
  OnLoopScope& operator=(const OnLoopScope&) = delete;

 private:
  const FleetLoop* const m_outer;
};

// Signals go to the threads of the program.
int CreateThreadWithoutSignals(pthread_t* thread, void* (*entry)(void*), void* argument) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int ret = pthread_create(thread, nullptr, entry, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return ret;
}

}  // namespace

FleetLoop::FleetLoop() : m_read_buffer(kReadBufferLen) {
  m_epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  m_wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Watch(m_wake_fd, EPOLLIN, nullptr);
}

FleetLoop::~FleetLoop() {
  Stop();
  m_deleted_later.clear();
  for (const int fd : {m_wake_fd, m_epoll_fd}) {
    if (fd >= 0) {
      close(fd);
    }
  }
}

int FleetLoop::Start() {
  ScopedLock lock(m_mutex);
  if (m_running || m_epoll_fd < 0 || m_wake_fd < 0) {
    return -1;
  }
  m_stop = false;
  m_running = CreateThreadWithoutSignals(&m_thread, &FleetLoop::ThreadMain, this) == 0;
  return m_running ? 0 : -1;
}

void FleetLoop::Stop() {
  {
    ScopedLock lock(m_mutex);
    if (!m_running) {
      return;
    }
  }
  m_stop = true;
  Wake();
  pthread_join(m_thread, nullptr);
  const OnLoopScope scope(this);
  DropWaiters();
  ScopedLock lock(m_mutex);
  m_running = false;  // from here on tasks are carried out by who asks for them
  for (Task* task : m_tasks) {
    (*task->work)();
    task->done = true;
  }
  m_tasks.clear();
  m_deleted_later.clear();
  m_changed.Broadcast();
}

void FleetLoop::Run(const std::function<void()>& task) {
  if (OnLoop()) {
    task();
    return;
  }
  ScopedLock lock(m_mutex);
  if (!m_running) {
    const OnLoopScope scope(this);
    task();
    m_deleted_later.clear();
    return;
  }
  Task entry{&task};
  m_tasks.push_back(&entry);
  Wake();
  while (!entry.done) {
    m_changed.Wait(m_mutex);
  }
}

bool FleetLoop::WaitFor(int64_t timeout_ms, const std::function<bool()>& condition) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + timeout_ms;
  const bool on_loop = OnLoop();
  Waiter waiter{&condition};
  Run([&] {
    waiter.met = condition();
    if (!waiter.met && !on_loop) {
      m_waiters.push_back(&waiter);
    }
  });
  if (waiter.met || on_loop) {
    return waiter.met;
  }
  {
    ScopedLock lock(m_mutex);
    while (m_running && !waiter.met && !waiter.dropped &&
           GetMonotonicMilliseconds() < deadline_ms) {
      m_changed.WaitUntil(m_mutex, deadline_ms);
    }
  }
  Run([&] {
    m_waiters.erase(std::remove(m_waiters.begin(), m_waiters.end(), &waiter), m_waiters.end());
  });
  ScopedLock lock(m_mutex);
  return waiter.met;
}

int FleetLoop::Watch(int fd, uint32_t epoll_events, EventHandler* handler) {
  epoll_event event{};
  event.events = epoll_events;
  event.data.ptr = handler;
  return epoll_ctl(m_epoll_fd, EPOLL_CTL_ADD, fd, &event);
}

int FleetLoop::Rewatch(int fd, uint32_t epoll_events, EventHandler* handler) {
  epoll_event event{};
  event.events = epoll_events;
  event.data.ptr = handler;
  return epoll_ctl(m_epoll_fd, EPOLL_CTL_MOD, fd, &event);
}

void FleetLoop::Unwatch(int fd) {
  epoll_event unused{};
  epoll_ctl(m_epoll_fd, EPOLL_CTL_DEL, fd, &unused);
}

void FleetLoop::DeleteLater(std::unique_ptr<LoopObject> object) {
  m_deleted_later.push_back(std::move(object));
}

void* FleetLoop::ThreadMain(void* self) {
  static_cast<FleetLoop*>(self)->Main();
  return nullptr;
}

void FleetLoop::Main() {
  const OnLoopScope scope(this);
  while (!m_stop) {
    HandleEvents(TimeoutMs());
    RunTimers();
    if (!m_waiters.empty()) {
      AskWaiters();
    }
    m_deleted_later.clear();
  }
}

void FleetLoop::HandleEvents(int timeout_ms) {
  epoll_event events[kMaxEventsPerRound];
  const int count = epoll_wait(m_epoll_fd, events, kMaxEventsPerRound, timeout_ms);
  for (int i = 0; i < count; ++i) {
    if (events[i].data.ptr == nullptr) {
      DrainWake();
      RunTasks();
    } else {
      static_cast<EventHandler*>(events[i].data.ptr)->OnEvents(events[i].events);
    }
  }
}

int FleetLoop::TimeoutMs() const {
  if (m_timers.empty()) {
    return -1;
  }
  const int64_t left_ms = m_timers.begin()->first - GetMonotonicMilliseconds();
  return static_cast<int>(std::clamp<int64_t>(left_ms, 0, INT_MAX));
}

// Timers that are set by these for the same moment wait for the next round.
void FleetLoop::RunTimers() {
  if (m_timers.empty()) {
    return;
  }
  const int64_t now_ms = GetMonotonicMilliseconds();
  for (size_t left = m_timers.size(); left > 0 && !m_timers.empty(); --left) {
    const auto first = m_timers.begin();
    if (first->first > now_ms) {
      return;
    }
    Timer* const timer = first->second;
    timer->Cancel();
    timer->m_work();
  }
}

void FleetLoop::RunTasks() {
  std::vector<Task*> tasks;
  {
    ScopedLock lock(m_mutex);
    tasks.swap(m_tasks);
  }
  for (Task* task : tasks) {
    (*task->work)();
    ScopedLock lock(m_mutex);
    task->done = true;
    m_changed.Broadcast();
  }
}

void FleetLoop::AskWaiters() {
  const auto answered = [this](Waiter* waiter) {
    if (!(*waiter->condition)()) {
      return false;
    }
    ScopedLock lock(m_mutex);
    waiter->met = true;
    m_changed.Broadcast();
    return true;
  };
  m_waiters.erase(std::remove_if(m_waiters.begin(), m_waiters.end(), answered), m_waiters.end());
}

void FleetLoop::DropWaiters() {
  ScopedLock lock(m_mutex);
  for (Waiter* waiter : m_waiters) {
    waiter->dropped = true;
  }
  m_waiters.clear();
  m_changed.Broadcast();
}

void FleetLoop::Wake() {
  const uint64_t one = 1;
  while (write(m_wake_fd, &one, sizeof(one)) < 0 && errno == EINTR) {
  }
}

void FleetLoop::DrainWake() {
  uint64_t count = 0;
  while (read(m_wake_fd, &count, sizeof(count)) < 0 && errno == EINTR) {
  }
}

bool FleetLoop::OnLoop() const { return t_loop == this; }

Timer::Timer(FleetLoop& loop, std::function<void()> work) : m_loop(loop), m_work(std::move(work)) {}

void Timer::SetIn(int64_t delay_ms) {
  Cancel();
  m_place = m_loop.m_timers.emplace(GetMonotonicMilliseconds() + delay_ms, this);
  m_is_set = true;
}

void Timer::Cancel() {
  if (m_is_set) {
    m_loop.m_timers.erase(m_place);
    m_is_set = false;
  }
}

}  // namespace OstrandFleet
