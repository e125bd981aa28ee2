// A thread of the library's own. It blocks all signals: those belong to the program's threads.
//
//   BackgroundThread thread;
//   if (thread.Start("ostrand-net", [this] { m_loop.Run(); }) != 0) { ... }
//   m_loop.Stop();
//   thread.Join();
//
// Ownership: owns the thread, which has ended when Join or the destructor returns. Threads: one
// starts and joins; IsCurrent: any, while neither happens.
#pragma once

#include <pthread.h>

#include <functional>

#include "common/export.h"

namespace OSTRNET {

class OSTRAND_API BackgroundThread {
 public:
  BackgroundThread() = default;
  ~BackgroundThread() { Join(); }
  BackgroundThread(const BackgroundThread&) = delete;
  BackgroundThread& operator=(const BackgroundThread&) = delete;

  // name: for those who look at the process; cut to 15 characters. 0, or -errno.
  // REQUIRES: not running.
  int Start(const char* name, std::function<void()> work);
  // Waits for the end of the work; nothing when it was not started.
  void Join();
  // From now on nobody waits for it: it ends by itself. Also on the thread. REQUIRES: running.
  void Detach();
  bool IsRunning() const { return m_running; }
  bool IsCurrent() const { return m_running && pthread_equal(pthread_self(), m_thread) != 0; }

  // A thread that nobody waits for: the work holds all that it needs. 0, or -errno.
  static int StartDetached(const char* name, std::function<void()> work);

 private:
  pthread_t m_thread{};
  bool m_running = false;
};

}  // namespace OSTRNET
