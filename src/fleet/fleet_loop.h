// The fleet's own thread: waits for sockets and timers, and carries out what other threads ask for.
//
// Everything of a fleet (listeners, connections, store, route, counters) belongs to this thread and
// needs no lock. Another thread that wants something of it has it done here, by Run, and waits. So
// does a condition that a test waits for: it is looked at after each round of events.
//
// "On the loop" means: on this thread or, while it does not run, inside a Run.
//
// Threads: Run and WaitFor on any thread; Start and Stop on one; all else on the loop.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "common/mutex.h"

namespace OstrandFleet {

// What a watched descriptor's events go to.
class EventHandler {
 public:
  virtual void OnEvents(uint32_t epoll_events) = 0;

 protected:
  ~EventHandler() = default;
};

// What may be deleted at the end of a round, when nobody is inside it.
class LoopObject {
 public:
  virtual ~LoopObject() = default;
};

class Timer;

class FleetLoop {
 public:
  FleetLoop();
  ~FleetLoop();  // stops the thread
  FleetLoop(const FleetLoop&) = delete;
  FleetLoop& operator=(const FleetLoop&) = delete;

  // 0, or -1 when the system gives no thread or descriptor.
  int Start();
  // Ends the thread after the round it is in. Harmless when it does not run.
  void Stop();

  // Has the task carried out on the loop and returns when it is done; at once where the caller is
  // on the loop. Tasks run in the order in which they were asked for.
  void Run(const std::function<void()>& task);

  // Returns true as soon as the condition, which is evaluated on the loop, holds; false when it
  // does not within the time, or when the thread stops or does not run.
  bool WaitFor(int64_t timeout_ms, const std::function<bool()>& condition);

  // Events (level-triggered) of a descriptor. 0, or -1.
  int Watch(int fd, uint32_t epoll_events, EventHandler* handler);
  int Rewatch(int fd, uint32_t epoll_events, EventHandler* handler);
  // The handler may still get an event of the round that goes on: it is deleted by DeleteLater.
  void Unwatch(int fd);

  void DeleteLater(std::unique_ptr<LoopObject> object);

  // Room that everybody on the loop reads into, for the length of one call.
  std::vector<char>& ReadBuffer() { return m_read_buffer; }

 private:
  friend class Timer;

  struct Task {
    const std::function<void()>* work;
    bool done = false;  // guarded by m_mutex
  };
  struct Waiter {
    const std::function<bool()>* condition;
    bool met = false;      // guarded by m_mutex
    bool dropped = false;  // guarded by m_mutex; the thread ended
  };
  using Timers = std::multimap<int64_t, Timer*>;

  static void* ThreadMain(void* self);
  void Main();
  void HandleEvents(int timeout_ms);
  int TimeoutMs() const;
  void RunTimers();
  void RunTasks();
  void AskWaiters();
  void DropWaiters();
  void Wake();
  void DrainWake();
  bool OnLoop() const;

  int m_epoll_fd = -1;
  int m_wake_fd = -1;
  pthread_t m_thread{};
  std::atomic<bool> m_stop{false};

  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Condition m_changed;  // a task is done, a waiter answered
  bool m_running OSTRAND_GUARDED_BY(m_mutex) = false;
  std::vector<Task*> m_tasks OSTRAND_GUARDED_BY(m_mutex);

  // On the loop only.
  Timers m_timers;
  std::vector<Waiter*> m_waiters;
  std::vector<std::unique_ptr<LoopObject>> m_deleted_later;
  std::vector<char> m_read_buffer;
};

// Calls a function once, at a time; set anew, it can be used again. On the loop only; gone with the
// object.
class Timer {
 public:
  Timer(FleetLoop& loop, std::function<void()> work);
  ~Timer() { Cancel(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // In so many milliseconds from now; replaces an earlier time.
  void SetIn(int64_t delay_ms);
  void Cancel();
  bool IsSet() const { return m_is_set; }

 private:
  friend class FleetLoop;

  FleetLoop& m_loop;
  const std::function<void()> m_work;
  bool m_is_set = false;
  FleetLoop::Timers::iterator m_place;  // while set
};

}  // namespace OstrandFleet
