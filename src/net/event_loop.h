// Waits for descriptors, timers and other threads' tasks, and runs what belongs to them.
//
//   EventLoop loop(System::Kernel());
//   Timer timer(loop, [] { ... });
//   timer.SetIn(100);
//   loop.RunOnce(1000);   // or Run() until Stop()
//
// A round: what waits to be flushed leaves, then the loop waits, then events, timers and posted
// tasks run, then what these queued leaves. A round is finite: timers and tasks that a round adds
// wait for the next one.
//
// Guarantees. After Unwatch(fd) its handler gets no event, also none that was fetched already. A
// cancelled or destroyed timer does not run. Nothing runs outside RunOnce, Run and FlushAll.
//
// Time: NowMs and NowUs answer the time of the last look at the clock; a round looks once, after
// its wait. While the loop runs on a thread, or a LoopScope stands there, the clock functions of
// common/clock.h answer this loop's time on that thread.
//
// Ownership: borrows the system, the handlers, timers and flushables: each leaves the loop before
// it dies. Threads: Post, Wake, Stop: any. All else: one thread at a time, the loop's owner.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "common/clock.h"
#include "common/export.h"
#include "common/mutex.h"
#include "net/system.h"

namespace OSTRNET {

// What a watched descriptor's events go to.
class EventHandler {
 public:
  virtual void OnEvents(uint32_t epoll_events) = 0;

 protected:
  ~EventHandler() = default;
};

// What has something to send at the end of a round, and is told once.
class Flushable {
 public:
  virtual void FlushNow() = 0;

 protected:
  ~Flushable() = default;

 private:
  friend class EventLoop;
  static constexpr size_t kNowhere = static_cast<size_t>(-1);
  size_t m_flush_place = kNowhere;  // in the loop's list
};

class Timer;

class OSTRAND_API EventLoop : private OstrandCommon::ThreadClock {
 public:
  explicit EventLoop(System& system);
  ~EventLoop() override;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // 0, or -errno when the system gave no descriptors; then nothing else works.
  int Error() const { return m_error; }
  System& Sys() { return m_system; }

  // One round, waiting up to timeout_ms (0: not at all, -1: without limit) for something to do.
  // Whether anything was done.
  bool RunOnce(int timeout_ms);
  // Rounds until Stop. A Stop that came before ends it at once; it is then used up.
  void Run();
  void Stop();

  // Runs a task in the next round. Any thread; wakes the loop only when it sleeps. Tasks that
  // never ran are dropped with the loop.
  void Post(std::function<void()> task);
  // Ends a wait of the loop, or its next one. Costs nothing while the loop does not sleep.
  void Wake();
  // As Wake, for work that the question below tells of: a loop that is awake finds it by itself.
  void WakeIfAsleep() { RaiseWake(); }
  // Whether there is work that other threads gave, asked before the loop sleeps; null: none.
  void SetWorkQuestion(std::function<bool()> has_work) { m_has_work = std::move(has_work); }

  // Events (level-triggered) of a descriptor. 0, or -errno.
  int Watch(int fd, uint32_t epoll_events, EventHandler* handler);
  int Rewatch(int fd, uint32_t epoll_events, EventHandler* handler);
  void Unwatch(int fd, EventHandler* handler);

  // FlushNow is called before the loop waits, at the end of the round, or by FlushAll.
  void FlushLater(Flushable* flushable);
  void FlushAll();
  void ForgetFlush(Flushable* flushable);

  // Makes room for one more that flushes, asks for events again and has timers, so that none of
  // that can fail later; takes it back. May throw std::bad_alloc; then nothing is changed.
  void EnterUser();
  void LeaveUser() { --m_users; }

  // The handler is called with EPOLLIN in the next round, which does not wait: for bytes that a
  // transport holds already. Once for each time that it was asked for.
  void EventsAgain(EventHandler* handler);
  void ForgetEventsAgain(EventHandler* handler);

  // Time of the last look: monotonic milliseconds; wall-clock microseconds that neither step nor go
  // back (System::SteadyWallMicroseconds).
  int64_t NowMs() const { return m_now_ms; }
  int64_t NowNs() const { return m_now_ns; }
  int64_t NowUs() const { return m_now_us; }
  // Looks at the clock.
  void LookAtClock();
  // As LookAtClock, outside a round: for who begins to count time there, however long ago the last
  // round was.
  void LookAtClockOutsideRounds();

  // When the loop has something to do by itself, in monotonic ms; INT64_MAX: nothing.
  int64_t NextTimerMs() const;

  // A descriptor that is readable while a round would have something to do: for other loops. The
  // first call opens a timer descriptor, which from then on is kept at the earliest timer.
  int Fd();
  // Makes Fd readable until it is called with false, for work that lies ready above the loop.
  // Meanwhile no round waits.
  void SetReady(bool ready);

  // Room that everybody on the loop reads into, for the length of one call.
  char* ReadBuffer() { return m_read_buffer.get(); }
  static constexpr size_t kReadBufferSize = size_t{256} * 1024;

  // For the child of a fork: from now on neither the loop nor a stream on it does anything that the
  // parent would notice; what is destroyed only closes the child's descriptors.
  void Abandon() { m_is_abandoned = true; }
  bool IsAbandoned() const { return m_is_abandoned; }

  // System calls that the loop, and who counts here, made; for benchmarks.
  void CountSystemCall() { ++m_system_calls; }
  uint64_t SystemCalls() const { return m_system_calls; }

 private:
  friend class Timer;
  friend class LoopScope;

  // OstrandCommon::ThreadClock
  int64_t NowMicroseconds() override { return m_now_us; }
  int64_t ReadMicroseconds() override;
  int64_t NowMonotonicNanoseconds() override { return m_now_ns; }

  int Open();
  int WaitMs(int timeout_ms);
  bool HasPendingWork() const;
  // Leaves the round, whatever ends it.
  class InRound {
   public:
    explicit InRound(EventLoop& loop) : m_loop(loop) { m_loop.m_in_round = true; }
    ~InRound() {
      m_loop.m_in_round = false;
      m_loop.m_events = nullptr;
      m_loop.m_event_count = 0;
      m_loop.m_flushing.clear();
    }
    InRound(const InRound&) = delete;
    InRound& operator=(const InRound&) = delete;

   private:
    EventLoop& m_loop;
  };

  bool RunRound(int timeout_ms);
  bool RunEvents(int count);
  bool RunAgain();
  bool RunTimers();
  bool RunTasks();
  void BeforeLeaving();
  void RaiseWake();
  void NoteWorkOutsideRounds();

  void AddTimer(Timer* timer);
  void RemoveTimer(Timer* timer);
  void PlaceTimer(size_t place, Timer* timer);
  void SiftUp(size_t place);
  void SiftDown(size_t place);
  void ArmTimerFd();

  System& m_system;
  int m_error = 0;
  int m_poll = -1;
  int m_wake_event = -1;
  int m_ready_event = -1;                 // from the first Fd() on
  int m_timer_fd = -1;                    // as above
  int64_t m_timer_fd_set_ms = INT64_MAX;  // INT64_MAX: not set
  bool m_is_ready = false;
  bool m_is_abandoned = false;
  bool m_in_round = false;
  int64_t m_now_ns = 0;
  int64_t m_now_ms = 0;  // the same
  int64_t m_now_us = 0;
  uint64_t m_system_calls = 0;
  std::unique_ptr<char[]> m_read_buffer;
  std::function<bool()> m_has_work;

  size_t m_users = 0;
  std::vector<Timer*> m_timers;        // a binary heap, the earliest first
  std::vector<Timer*> m_due_timers;    // of this round; null: cancelled meanwhile
  uint64_t m_timer_sets = 0;           // so far: timers of the same moment run in this order
  std::vector<Flushable*> m_to_flush;  // null: forgotten meanwhile
  std::vector<Flushable*> m_flushing;  // as above, being flushed
  std::vector<EventHandler*> m_again;
  std::vector<EventHandler*> m_running_again;  // of this round; null: forgotten meanwhile
  // The round's events from m_next_event on: what is unwatched meanwhile is set to null in them.
  epoll_event* m_events = nullptr;
  int m_next_event = 0;
  int m_event_count = 0;

  // The loop says that it sleeps before it looks for work a last time; whoever gives it work looks
  // after that whether it sleeps. Sequentially consistent, so that one of them sees the other.
  // With Fd() in use a loop sleeps between its rounds too: another one waits in its place.
  std::atomic<bool> m_sleeping{false};
  std::atomic<bool> m_wake_asked{false};
  std::atomic<bool> m_wake_raised{false};
  std::atomic<bool> m_stop{false};

  OstrandCommon::Mutex m_mutex;
  std::vector<std::function<void()>> m_tasks OSTRAND_GUARDED_BY(m_mutex);
  std::vector<std::function<void()>> m_running_tasks;  // of this round
  std::atomic<bool> m_has_tasks{false};
};

// While it stands, common/clock.h answers the loop's time on this thread.
class OSTRAND_API LoopScope {
 public:
  explicit LoopScope(EventLoop& loop);
  ~LoopScope();
  LoopScope(const LoopScope&) = delete;
  LoopScope& operator=(const LoopScope&) = delete;

 private:
  OstrandCommon::ThreadClock* const m_outer;
};

// Calls a function once, at a time; set anew, it can be used again. Owner's thread.
class OSTRAND_API Timer {
 public:
  Timer(EventLoop& loop, std::function<void()> work);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // In so many milliseconds from the loop's time; replaces an earlier time.
  void SetIn(int64_t delay_ms) { SetAt(m_loop.NowMs() + delay_ms); }
  void SetAt(int64_t monotonic_ms);
  void Cancel();
  bool IsSet() const { return m_place != kNowhere; }
  int64_t At() const { return m_at_ms; }

 private:
  friend class EventLoop;
  static constexpr size_t kNowhere = static_cast<size_t>(-1);

  bool IsBefore(const Timer& other) const {
    return m_at_ms != other.m_at_ms ? m_at_ms < other.m_at_ms : m_number < other.m_number;
  }

  EventLoop& m_loop;
  const std::function<void()> m_work;
  int64_t m_at_ms = 0;
  uint64_t m_number = 0;      // of its setting
  size_t m_place = kNowhere;  // in the loop's heap or in its list of due ones
  bool m_is_due = false;      // in the list
};

}  // namespace OSTRNET
