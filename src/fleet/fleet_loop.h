// The fleet's own thread: runs the loop of its sockets and timers, and carries out what other
// threads ask for.
//
// Everything of a fleet (listeners, connections, store, route, counters) belongs to this thread and
// needs no lock. Another thread that wants something of it has it done here, by Run, and waits. So
// does a condition that a test waits for: it is looked at after each round of events.
//
// "On the loop" means: on this thread or, while it does not run, inside a Run.
//
// Threads: Run and WaitFor on any thread; Start and Stop on one; all else on the loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "common/mutex.h"
#include "net/background_thread.h"
#include "net/event_loop.h"

namespace OstrandFleet {

using OSTRNET::EventHandler;
using OSTRNET::Timer;

// What may be deleted at the end of a round, when nobody is inside it.
class LoopObject {
 public:
  virtual ~LoopObject() = default;
};

class FleetLoop {
 public:
  FleetLoop() = default;
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

  // Descriptors, timers, streams.
  OSTRNET::EventLoop& net() { return m_net; }

  void DeleteLater(std::unique_ptr<LoopObject> object);

 private:
  class OnLoopScope;

  struct Task {
    const std::function<void()>* work;
    bool done = false;  // guarded by m_mutex
  };
  struct Waiter {
    const std::function<bool()>* condition;
    bool met = false;      // guarded by m_mutex
    bool dropped = false;  // guarded by m_mutex; the thread ended
  };

  void Main();
  void RunTasks();
  void AskWaiters();
  void DropWaiters();
  bool OnLoop() const;

  OSTRNET::EventLoop m_net{OSTRNET::System::Kernel()};
  OSTRNET::BackgroundThread m_thread;
  std::atomic<bool> m_stop{false};

  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Condition m_changed;  // a task is done, a waiter answered
  bool m_running OSTRAND_GUARDED_BY(m_mutex) = false;
  std::vector<Task*> m_tasks OSTRAND_GUARDED_BY(m_mutex);

  // On the loop only.
  std::vector<Waiter*> m_waiters;
  std::vector<std::unique_ptr<LoopObject>> m_deleted_later;
};

// Wall-clock time: on the loop the loop's, unless a test replaced the clock.
int64_t WallMicroseconds();
// The same, read afresh: for stamps that tell how long something took.
int64_t ReadWallMicroseconds();

}  // namespace OstrandFleet
