// The network thread of a service: waits for sockets and runs what has to be done with them.
//
// It runs in rounds: wait for events, handle all of them, let everybody finish the round. Between
// two rounds it can be paused; then nothing of it runs and no event that was fetched earlier is
// left.
//
// Ownership: borrows the handlers that are watched; each is unwatched before it dies.
// Threads: Start and Stop on the application's thread. Watch, Unwatch, Pause, Resume and Wake on
// any thread. Pause is not called while holding a lock that a handler takes.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "common/mutex.h"
#include "common/relaxed.h"
#include "service_api/ostrand_server.h"

namespace OstrandService {

// What a watched descriptor's events go to. Runs on the network thread.
class NetHandler {
 public:
  virtual void OnNetEvents(uint32_t epoll_events) = 0;

 protected:
  ~NetHandler() = default;
};

// Called at the end of each round, on the network thread.
class NetRoundListener {
 public:
  // Returns the time in ms until it wants the next round at the latest, -1 for no limit.
  virtual int OnRoundEnd() = 0;

  // Whether there is something to do now. Asked before the thread sleeps.
  virtual bool HasWork() = 0;

 protected:
  ~NetRoundListener() = default;
};

class NetLoop : public NetThread {
 public:
  NetLoop();
  ~NetLoop() override;  // stops the thread
  NetLoop(const NetLoop&) = delete;
  NetLoop& operator=(const NetLoop&) = delete;

  // Starts the thread. listener may be null. 0, or -1 when the system gives no thread or
  // descriptor.
  int Start(NetRoundListener* listener);
  // Ends the thread after the round it is in. Harmless when it does not run.
  void Stop();

  // Asks for events (EPOLLIN, EPOLLOUT; level-triggered) of a descriptor. 0, or -1.
  int Watch(int fd, uint32_t epoll_events, NetHandler* handler);
  // Changes what is asked for. 0, or -1.
  int Rewatch(int fd, uint32_t epoll_events, NetHandler* handler);
  // The handler gets no events of rounds that begin later. Call it before the descriptor is closed.
  void Unwatch(int fd);

  // Returns when the thread stands between two rounds. Counted; nothing on the network thread
  // itself and while the thread does not run. Costs about a lock when the thread sleeps. A thread
  // that a pause kept waiting gets a whole round before the next pause is granted.
  void Pause() override;
  void Resume() override;

  // Ends a wait for events; cheap when the thread does not sleep.
  void Wake();

  bool OnNetThread() const;

  // System calls that the loop made; for benchmarks.
  uint64_t SystemCalls() const { return m_system_calls; }

 private:
  static void* ThreadMain(void* self);
  void Run();
  uint64_t WaitForResume(int& timeout_ms);
  bool BeginRound(uint64_t pauses_seen);
  void EndRound();
  void DrainWake();

  int m_epoll_fd = -1;
  int m_wake_fd = -1;
  NetRoundListener* m_listener = nullptr;  // constant while the thread runs
  pthread_t m_thread{};                    // as above
  OstrandCommon::Relaxed<bool> m_running = false;

  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Condition m_changed;                     // a field guarded by m_mutex did
  int m_paused OSTRAND_GUARDED_BY(m_mutex) = 0;           // pauses not yet resumed
  uint64_t m_pauses OSTRAND_GUARDED_BY(m_mutex) = 0;      // pauses ever
  bool m_in_round OSTRAND_GUARDED_BY(m_mutex) = false;    // events are being handled
  bool m_round_owed OSTRAND_GUARDED_BY(m_mutex) = false;  // a pause kept the thread waiting

  // The thread says that it sleeps before it looks for work a last time; whoever gives it work
  // looks behind that whether it sleeps. Sequentially consistent, so that one of them sees the
  // other.
  std::atomic<bool> m_sleeping{false};
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_wake_pending{false};  // the wake descriptor was written and not read since
  OstrandCommon::Relaxed<uint64_t> m_system_calls = 0;
};

}  // namespace OstrandService
