// Mutual exclusion over POSIX threads, annotated for clang's thread-safety analysis.
//
// Not recursive: a thread that locks a Mutex twice stops for good.
#pragma once

#include <pthread.h>
#include <time.h>

#include <cstdint>

#include "common/thread_annotations.h"

namespace OstrandCommon {

// A plain mutex with default attributes. Never copied; outlives its locks.
class OSTRAND_CAPABILITY("mutex") Mutex {
 public:
  Mutex() { pthread_mutex_init(&m_mutex, nullptr); }
  ~Mutex() { pthread_mutex_destroy(&m_mutex); }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() OSTRAND_ACQUIRE() { pthread_mutex_lock(&m_mutex); }
  void Unlock() OSTRAND_RELEASE() { pthread_mutex_unlock(&m_mutex); }

 private:
  friend class Condition;

  pthread_mutex_t m_mutex;
};

// Holds a Mutex from construction to the end of its scope.
class OSTRAND_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Mutex& mutex) OSTRAND_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~ScopedLock() OSTRAND_RELEASE() { m_mutex.Unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Mutex& m_mutex;
};

// Lets threads wait, under a Mutex, until another thread changed something. A wait may end without
// a signal: whoever waits looks again.
class Condition {
 public:
  Condition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&m_condition, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~Condition() { pthread_cond_destroy(&m_condition); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void Wait(Mutex& mutex) OSTRAND_REQUIRES(mutex) {
    pthread_cond_wait(&m_condition, &mutex.m_mutex);
  }

  // Waits until GetMonotonicMilliseconds() reaches the deadline at the latest.
  void WaitUntil(Mutex& mutex, int64_t monotonic_deadline_ms) OSTRAND_REQUIRES(mutex) {
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(monotonic_deadline_ms / 1000);
    deadline.tv_nsec = static_cast<long>(monotonic_deadline_ms % 1000 * 1000000);
    pthread_cond_timedwait(&m_condition, &mutex.m_mutex, &deadline);
  }

  void Broadcast() { pthread_cond_broadcast(&m_condition); }

 private:
  pthread_cond_t m_condition;
};

// A reader-writer lock with default attributes.
class OSTRAND_CAPABILITY("rwlock") RwLock {
 public:
  RwLock() { pthread_rwlock_init(&m_lock, nullptr); }
  ~RwLock() { pthread_rwlock_destroy(&m_lock); }
  RwLock(const RwLock&) = delete;
  RwLock& operator=(const RwLock&) = delete;

  void LockShared() OSTRAND_THREAD_ATTRIBUTE(acquire_shared_capability()) {
    pthread_rwlock_rdlock(&m_lock);
  }
  void UnlockShared() OSTRAND_THREAD_ATTRIBUTE(release_shared_capability()) {
    pthread_rwlock_unlock(&m_lock);
  }
  void LockExclusive() OSTRAND_ACQUIRE() { pthread_rwlock_wrlock(&m_lock); }
  void UnlockExclusive() OSTRAND_RELEASE() { pthread_rwlock_unlock(&m_lock); }

 private:
  pthread_rwlock_t m_lock;
};

// Holds an RwLock for reading.
class OSTRAND_SCOPED_CAPABILITY ScopedReadLock {
 public:
  explicit ScopedReadLock(RwLock& lock) OSTRAND_THREAD_ATTRIBUTE(acquire_shared_capability(lock))
      : m_lock(lock) {
    m_lock.LockShared();
  }
  ~ScopedReadLock() OSTRAND_RELEASE() { m_lock.UnlockShared(); }
  ScopedReadLock(const ScopedReadLock&) = delete;
  ScopedReadLock& operator=(const ScopedReadLock&) = delete;

 private:
  RwLock& m_lock;
};

// Holds an RwLock for writing.
class OSTRAND_SCOPED_CAPABILITY ScopedWriteLock {
 public:
  explicit ScopedWriteLock(RwLock& lock) OSTRAND_ACQUIRE(lock) : m_lock(lock) {
    m_lock.LockExclusive();
  }
  ~ScopedWriteLock() OSTRAND_RELEASE() { m_lock.UnlockExclusive(); }
  ScopedWriteLock(const ScopedWriteLock&) = delete;
  ScopedWriteLock& operator=(const ScopedWriteLock&) = delete;

 private:
  RwLock& m_lock;
};

}  // namespace OstrandCommon
