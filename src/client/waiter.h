// What one thread waits at until another has done what it waits for.
//
// Each waiting thread has one of its own, so that nobody is woken for another's sake. It is used
// again and again. Threads: one waits; another one wakes it, once a wait.
#pragma once

#include <cstdint>

#include "common/mutex.h"

namespace OstrandService {

class Waiter {
 public:
  void Wake(int code) {
    const OstrandCommon::ScopedLock lock(m_mutex);
    m_code = code;
    m_is_done = true;
    m_condition.Broadcast();
  }

  // The code that it was woken with.
  int Wait() {
    const OstrandCommon::ScopedLock lock(m_mutex);
    while (!m_is_done) {
      m_condition.Wait(m_mutex);
    }
    m_is_done = false;
    return m_code;
  }

  // False when nobody woke it before this monotonic time; the code goes to `code`.
  bool WaitUntil(int64_t deadline_ms, int64_t (*now_ms)(), int& code) {
    const OstrandCommon::ScopedLock lock(m_mutex);
    while (!m_is_done && now_ms() < deadline_ms) {
      m_condition.WaitUntil(m_mutex, deadline_ms);
    }
    code = m_code;
    return m_is_done;
  }

 private:
  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Condition m_condition;
  bool m_is_done OSTRAND_GUARDED_BY(m_mutex) = false;
  int m_code OSTRAND_GUARDED_BY(m_mutex) = 0;
};

}  // namespace OstrandService
