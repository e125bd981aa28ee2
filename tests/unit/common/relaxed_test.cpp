#include "common/relaxed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <type_traits>
#include <vector>

namespace OstrandCommon {
namespace {

TEST(Relaxed, StartsAtZero) {
  EXPECT_EQ(0, Relaxed<int64_t>().Get());
  EXPECT_FALSE(Relaxed<bool>().Get());
}

TEST(Relaxed, ReadsAndAssignsLikeThePlainType) {
  Relaxed<int64_t> time = 5;
  EXPECT_EQ(5, time);
  const int64_t assigned = (time = 7);
  EXPECT_EQ(7, assigned);
  const int64_t plain = time;
  EXPECT_EQ(7, plain);

  Relaxed<bool> flag = true;
  EXPECT_TRUE(flag);
  flag = false;
  EXPECT_FALSE(flag);
}

TEST(Relaxed, CopiesTheValueAndStaysApart) {
  Relaxed<int> first = 1;
  Relaxed<int> second(first);
  first = 2;
  EXPECT_EQ(1, second);
  second = first;
  first = 3;
  EXPECT_EQ(2, second);
}

TEST(Relaxed, AnswersTheSumOfAnAddition) {
  Relaxed<int> count = 40;
  EXPECT_EQ(42, count += 2);
  EXPECT_EQ(43, ++count);
  EXPECT_EQ(40, count += -3);
  EXPECT_EQ(40, count);
}

TEST(Relaxed, NarrowSumsWrapAsTheirTypeDoes) {
  Relaxed<uint8_t> count = uint8_t{255};
  EXPECT_EQ(0, ++count);
  Relaxed<uint32_t> wide = 0xFFFFFFFFU;
  EXPECT_EQ(1U, wide += 2U);
}

TEST(Relaxed, LosesNoCountOfAnyThread) {
  constexpr int kThreads = 4;
  constexpr int kAdditions = 10000;
  Relaxed<uint32_t> count;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&count] {
      for (int n = 0; n < kAdditions; ++n) {
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(static_cast<uint32_t>(kThreads * kAdditions), count.Get());
}

TEST(Relaxed, NeedsNoLockAndNoRoomBeyondItsValue) {
  static_assert(std::atomic<int64_t>::is_always_lock_free, "");
  EXPECT_EQ(sizeof(int64_t), sizeof(Relaxed<int64_t>));
  EXPECT_EQ(sizeof(bool), sizeof(Relaxed<bool>));
}

}  // namespace
}  // namespace OstrandCommon
