#include "client/deadline_queue.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/sanitizers.h"

namespace OstrandService {
namespace {

constexpr uint32_t kNobody = UINT32_MAX;

uint32_t FirstOf(const DeadlineQueue& queue) {
  uint32_t item = kNobody;
  int64_t deadline_ms = 0;
  return queue.First(item, deadline_ms) ? item : kNobody;
}

// The items in the order in which they are due.
std::vector<uint32_t> Drain(DeadlineQueue& queue) {
  std::vector<uint32_t> items;
  while (FirstOf(queue) != kNobody) {
    items.push_back(FirstOf(queue));
    queue.Erase(items.back());
  }
  return items;
}

using Items = std::vector<uint32_t>;

TEST(DeadlineQueue, IsEmptyAtFirst) {
  DeadlineQueue queue;
  EXPECT_EQ(kNobody, FirstOf(queue));
  ASSERT_TRUE(queue.Reserve(3));
  EXPECT_FALSE(queue.Contains(0));
  queue.Erase(2);  // nothing
  EXPECT_EQ(kNobody, FirstOf(queue));
}

TEST(DeadlineQueue, HandsOutTheEarliestFirst) {
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(5));
  queue.Set(0, 50);
  queue.Set(1, 10);
  queue.Set(2, 40);
  queue.Set(3, 20);
  queue.Set(4, 30);
  EXPECT_EQ((Items{1, 3, 4, 2, 0}), Drain(queue));
}

TEST(DeadlineQueue, TellsWhetherADeadlineLiesBeforeATime) {
  DeadlineQueue queue;
  uint32_t item = kNobody;
  EXPECT_FALSE(queue.FirstBefore(INT64_MAX, item)) << "nothing is there";
  ASSERT_TRUE(queue.Reserve(3));
  queue.Set(0, 50);
  queue.Set(1, 30);
  EXPECT_FALSE(queue.FirstBefore(30, item));
  ASSERT_TRUE(queue.FirstBefore(31, item));
  EXPECT_EQ(1u, item);
  queue.Erase(1);
  EXPECT_FALSE(queue.FirstBefore(50, item));
  queue.Set(2, 20);  // earlier than what was looked at
  ASSERT_TRUE(queue.FirstBefore(21, item));
  EXPECT_EQ(2u, item);
  queue.Set(2, 70);
  EXPECT_FALSE(queue.FirstBefore(50, item));
  ASSERT_TRUE(queue.FirstBefore(51, item));
  EXPECT_EQ(0u, item);
}

TEST(DeadlineQueue, KeepsTheOrderWhenManyAreDueInTheSameMillisecond) {
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(6));
  queue.Set(0, 10);
  queue.Set(1, 10);
  queue.Set(2, 20);
  queue.Set(3, 20);
  queue.Set(0, 20);  // again: behind the others
  queue.Set(4, 10);
  queue.Set(5, 20);
  EXPECT_EQ((Items{1, 4, 2, 3, 0, 5}), Drain(queue));
}

TEST(DeadlineQueue, HandsOutEqualDeadlinesInTheOrderOfTheirEntry) {
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(20));
  // Falling deadlines fill the lanes; from the fifth on the heap takes the rest.
  for (uint32_t item = 0; item < 10; ++item) {
    queue.Set(item, 100 - item);
  }
  for (uint32_t item = 10; item < 20; ++item) {
    queue.Set(item, 100 - (item - 10));
  }
  EXPECT_EQ((Items{9, 19, 8, 18, 7, 17, 6, 16, 5, 15, 4, 14, 3, 13, 2, 12, 1, 11, 0, 10}),
            Drain(queue));
}

TEST(DeadlineQueue, AChangedItemCountsAsEnteredAnew) {
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(3));
  for (uint32_t item = 0; item < 3; ++item) {
    queue.Set(item, 100);
  }
  queue.Set(0, 100);
  EXPECT_EQ((Items{1, 2, 0}), Drain(queue));
  for (uint32_t item = 0; item < 3; ++item) {
    queue.Set(item, 100);
  }
  queue.Set(2, 50);
  EXPECT_EQ((Items{2, 0, 1}), Drain(queue));
}

TEST(DeadlineQueue, KeepsItsItemsWhenItGrowsAndWhenItCannot) {
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(8));
  for (uint32_t item = 0; item < 8; ++item) {
    queue.Set(item, 100 - item);
  }
  for (int failing = 1; failing <= 3; ++failing) {  // nodes; entries and places of the heap
    OstrandFakes::AllocationFaults faults;
    faults.FailNothrow(failing);
    EXPECT_FALSE(queue.Reserve(1000)) << failing;
  }
  ASSERT_TRUE(queue.Reserve(1000));
  EXPECT_FALSE(queue.Contains(999));
  queue.Set(999, 95);
  // 93, 94, 95 and, entered later, 95, then 96 to 100.
  EXPECT_EQ((Items{7, 6, 5, 999, 4, 3, 2, 1, 0}), Drain(queue));
}

// Deadlines as they come: a few time-outs from a clock that mostly runs forward; and as they do not
// come: at random. Entered, changed, taken out from anywhere; against a sorted set.
class DeadlineQueueModel : public testing::TestWithParam<int> {};

TEST_P(DeadlineQueueModel, AgreesWithASortedSet) {
  constexpr uint32_t kSeed = 4711;
  constexpr uint32_t kItems = 500;
  SCOPED_TRACE(kSeed);
  const int time_outs = GetParam();
  std::mt19937 random(kSeed);
  DeadlineQueue queue;
  ASSERT_TRUE(queue.Reserve(kItems));
  std::set<std::tuple<int64_t, uint32_t, uint32_t>> model;  // deadline, order, item
  std::vector<std::tuple<int64_t, uint32_t, uint32_t>> of_item(kItems);
  int64_t now_ms = 0;
  uint32_t order = 0;
  for (int step = 0; step < OstrandFakes::Rounds(300000); ++step) {
    now_ms += static_cast<int64_t>(random() % 3);
    if (random() % 10000 == 0) {
      now_ms -= 3600000;
    }
    const auto item = static_cast<uint32_t>(random() % kItems);
    if (random() % 3 == 0) {
      queue.Erase(item);
      model.erase(of_item[item]);
    } else {
      model.erase(of_item[item]);
      const int64_t time_out = time_outs > 0
                                   ? 1000 * (1 + static_cast<int64_t>(random()) % time_outs)
                                   : static_cast<int64_t>(random() % 5000);
      of_item[item] = {now_ms + time_out, order++, item};
      model.insert(of_item[item]);
      queue.Set(item, now_ms + time_out);
    }
    ASSERT_EQ(model.count(of_item[item]) != 0, queue.Contains(item));
    uint32_t first = kNobody;
    int64_t deadline_ms = 0;
    ASSERT_EQ(!model.empty(), queue.First(first, deadline_ms));
    if (!model.empty()) {
      ASSERT_EQ(std::get<2>(*model.begin()), first);
      ASSERT_EQ(std::get<0>(*model.begin()), deadline_ms);
    }
    const bool is_due = !model.empty() && std::get<0>(*model.begin()) < now_ms;
    ASSERT_EQ(is_due, queue.FirstBefore(now_ms, first));
    if (is_due) {
      ASSERT_EQ(std::get<2>(*model.begin()), first);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(TimeOuts, DeadlineQueueModel, testing::Values(0, 1, 2, 3, 7));

}  // namespace
}  // namespace OstrandService
