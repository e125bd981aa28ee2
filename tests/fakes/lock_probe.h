// Whether somebody holds a lock, for tests of what runs under which.
#pragma once

#include <pthread.h>

#include <type_traits>

#include "common/mutex.h"

namespace OstrandFakes {

// True also when the calling thread itself holds it.
inline bool IsHeld(OstrandCommon::Mutex& mutex) {
  // Its one member, which begins where the Mutex does.
  static_assert(std::is_standard_layout<OstrandCommon::Mutex>::value, "");
  static_assert(sizeof(OstrandCommon::Mutex) == sizeof(pthread_mutex_t), "");
  auto* native = reinterpret_cast<pthread_mutex_t*>(&mutex);
  if (pthread_mutex_trylock(native) != 0) {
    return true;
  }
  pthread_mutex_unlock(native);
  return false;
}

inline pthread_rwlock_t* NativeOf(OstrandCommon::RwLock& lock) {
  static_assert(std::is_standard_layout<OstrandCommon::RwLock>::value, "");
  static_assert(sizeof(OstrandCommon::RwLock) == sizeof(pthread_rwlock_t), "");
  return reinterpret_cast<pthread_rwlock_t*>(&lock);
}

// True also when the calling thread itself holds it.
inline bool IsHeldForWriting(OstrandCommon::RwLock& lock) {
  if (pthread_rwlock_tryrdlock(NativeOf(lock)) != 0) {
    return true;
  }
  pthread_rwlock_unlock(NativeOf(lock));
  return false;
}
inline bool IsHeldForReading(OstrandCommon::RwLock& lock) {
  if (IsHeldForWriting(lock)) {
    return false;
  }
  if (pthread_rwlock_trywrlock(NativeOf(lock)) != 0) {
    return true;
  }
  pthread_rwlock_unlock(NativeOf(lock));
  return false;
}

}  // namespace OstrandFakes
