#include "common/mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

#include "common/clock.h"

namespace OstrandCommon {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 5000;

template <typename Body>
void RunOnThreads(Body body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back(body);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(Mutex, AdmitsOneThreadAtATime) {
  Mutex mutex;
  int count = 0;
  RunOnThreads([&] {
    for (int n = 0; n < kRounds; ++n) {
      ScopedLock lock(mutex);
      ++count;
    }
  });
  EXPECT_EQ(kThreads * kRounds, count);
}

TEST(Mutex, IsFreeAgainWhenTheScopeEnds) {
  Mutex mutex;
  { ScopedLock lock(mutex); }
  mutex.Lock();
  mutex.Unlock();
  ScopedLock lock(mutex);
}

TEST(Condition, WakesEveryThreadThatWaits) {
  Mutex mutex;
  Condition changed;
  int waiting = 0;
  bool open = false;
  std::thread opener([&] {
    ScopedLock lock(mutex);
    while (waiting < kThreads) {
      changed.Wait(mutex);
    }
    open = true;
    changed.Broadcast();
  });
  RunOnThreads([&] {
    ScopedLock lock(mutex);
    ++waiting;
    changed.Broadcast();
    while (!open) {
      changed.Wait(mutex);
    }
  });
  opener.join();  // Returns, as the others did, only if nobody was left waiting.
  EXPECT_EQ(kThreads, waiting);
}

TEST(Condition, DoesNotWaitForADeadlineThatHasPassed) {
  Mutex mutex;
  Condition changed;
  ScopedLock lock(mutex);
  for (const int64_t deadline_ms : {int64_t{0}, GetMonotonicMilliseconds()}) {
    changed.WaitUntil(mutex, deadline_ms);  // Returns.
  }
}

TEST(Condition, WaitsUntilItsDeadlineOnTheMonotonicClock) {
  constexpr int kAllowedWakeUps = 20;  // One is the rule; a wrong clock or unit wakes all the time.
  Mutex mutex;
  Condition changed;
  const int64_t deadline_ms = GetMonotonicMilliseconds() + 20;
  int wake_ups = 0;
  ScopedLock lock(mutex);
  while (GetMonotonicMilliseconds() < deadline_ms) {
    changed.WaitUntil(mutex, deadline_ms);
    ++wake_ups;
  }
  EXPECT_GE(kAllowedWakeUps, wake_ups);
}

TEST(RwLock, AdmitsReadersTogether) {
  RwLock lock;
  int read = 0;
  ScopedReadLock outer(lock);
  std::thread reader([&] {
    ScopedReadLock inner(lock);
    read = 1;
  });
  reader.join();  // Returns only if the reader got in beside the outer lock.
  EXPECT_EQ(1, read);
}

TEST(RwLock, AdmitsOneWriterAtATimeAndNoReaderBesideIt) {
  RwLock lock;
  int first = 0;
  int second = 0;
  RunOnThreads([&] {
    for (int n = 0; n < kRounds; ++n) {
      {
        ScopedWriteLock write(lock);
        ++first;
        ++second;
      }
      ScopedReadLock read(lock);
      EXPECT_EQ(first, second);
    }
  });
  EXPECT_EQ(kThreads * kRounds, first);
}

TEST(RwLock, IsFreeAgainWhenTheScopeEnds) {
  RwLock lock;
  { ScopedReadLock read(lock); }
  { ScopedWriteLock write(lock); }
  lock.LockShared();
  lock.UnlockShared();
  lock.LockExclusive();
  lock.UnlockExclusive();
}

TEST(Locks, AreNeverCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<Mutex>);
  EXPECT_FALSE(std::is_copy_assignable_v<Mutex>);
  EXPECT_FALSE(std::is_copy_constructible_v<ScopedLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<Condition>);
  EXPECT_FALSE(std::is_copy_assignable_v<Condition>);
  EXPECT_FALSE(std::is_copy_constructible_v<RwLock>);
  EXPECT_FALSE(std::is_copy_assignable_v<RwLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<ScopedReadLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<ScopedWriteLock>);
}

}  // namespace
}  // namespace OstrandCommon
