#include "fleet/fleet_loop.h"

#include <algorithm>
#include <utility>

#include "common/clock.h"

namespace OstrandFleet {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandCommon::ScopedLock;

// The loop that the calling thread is on.
thread_local const FleetLoop* t_loop = nullptr;

}  // namespace

class FleetLoop::OnLoopScope {
 public:
  explicit OnLoopScope(FleetLoop& loop) : m_outer(t_loop), m_time(loop.m_net) { t_loop = &loop; }
  ~OnLoopScope() { t_loop = m_outer; }
  OnLoopScope(const OnLoopScope&) = delete;
  OnLoopScope& operator=(const OnLoopScope&) = delete;

 private:
  const FleetLoop* const m_outer;
  const OSTRNET::LoopScope m_time;
};

FleetLoop::~FleetLoop() {
  Stop();
  m_deleted_later.clear();
}

int FleetLoop::Start() {
  ScopedLock lock(m_mutex);
  if (m_running || m_net.Error() != 0) {
    return -1;
  }
  m_stop = false;
  m_running = m_thread.Start("ostrand-fleet", [this] { Main(); }) == 0;
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
  m_net.Wake();
  m_thread.Join();
  const OnLoopScope scope(*this);
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
    const OnLoopScope scope(*this);
    m_net.LookAtClock();
    task();
    m_deleted_later.clear();
    return;
  }
  Task entry{&task};
  m_tasks.push_back(&entry);
  m_net.Post([this] { RunTasks(); });
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

void FleetLoop::DeleteLater(std::unique_ptr<LoopObject> object) {
  m_deleted_later.push_back(std::move(object));
}

void FleetLoop::Main() {
  const OnLoopScope scope(*this);
  while (!m_stop) {
    m_net.RunOnce(-1);
    if (!m_waiters.empty()) {
      AskWaiters();
    }
    m_deleted_later.clear();
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

bool FleetLoop::OnLoop() const { return t_loop == this; }

int64_t WallMicroseconds() { return OstrandCommon::GetCurrentMicroseconds(); }

int64_t ReadWallMicroseconds() { return OstrandCommon::ReadCurrentMicroseconds(); }

}  // namespace OstrandFleet
