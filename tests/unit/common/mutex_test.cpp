#include "common/mutex.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

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
  EXPECT_FALSE(std::is_copy_constructible_v<RwLock>);
  EXPECT_FALSE(std::is_copy_assignable_v<RwLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<ScopedReadLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<ScopedWriteLock>);
}

}  // namespace
}  // namespace OstrandCommon
