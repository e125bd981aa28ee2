#include "client/deadline_heap.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "fakes/allocation_faults.h"

namespace OstrandService {
namespace {

TEST(Deadline, IsOrderedByTimeThenByOrder) {
  EXPECT_TRUE((Deadline{1, 9} < Deadline{2, 0}));
  EXPECT_FALSE((Deadline{2, 0} < Deadline{1, 9}));
  EXPECT_TRUE((Deadline{5, 1} < Deadline{5, 2}));
  EXPECT_FALSE((Deadline{5, 1} < Deadline{5, 1}));
  EXPECT_TRUE((Deadline{5, UINT32_MAX} < Deadline{5, 0})) << "the order wraps";
  EXPECT_TRUE((Deadline{INT64_MIN, 0} < Deadline{INT64_MAX, 0}));
}

TEST(DeadlineHeap, HasTheEarliestOnTop) {
  DeadlineHeap heap;
  EXPECT_TRUE(heap.empty());
  ASSERT_TRUE(heap.Reserve(4));
  heap.Insert(2, {30, 0});
  heap.Insert(0, {10, 1});
  heap.Insert(3, {20, 2});
  EXPECT_EQ(0U, heap.top());
  EXPECT_EQ(10, heap.top_deadline().ms);
  heap.Erase(0);
  EXPECT_EQ(3U, heap.top());
  heap.Erase(2);
  EXPECT_EQ(3U, heap.top());
  heap.Erase(3);
  EXPECT_TRUE(heap.empty());
}

TEST(DeadlineHeap, KeepsItsItemsWhenItGrows) {
  DeadlineHeap heap;
  ASSERT_TRUE(heap.Reserve(2));
  heap.Insert(0, {10, 0});
  heap.Insert(1, {20, 1});
  {
    OstrandFakes::AllocationFaults faults;
    faults.FailNothrow(2);
    EXPECT_FALSE(heap.Reserve(100));
  }
  EXPECT_EQ(0U, heap.top());
  ASSERT_TRUE(heap.Reserve(100));
  heap.Insert(99, {5, 2});
  EXPECT_EQ(99U, heap.top());
  heap.Erase(99);
  heap.Erase(0);
  EXPECT_EQ(1U, heap.top());
}

// Random insertions and removals at any place, against a sorted set.
TEST(DeadlineHeap, AgreesWithASortedSet) {
  constexpr uint32_t kSeed = 20240901;
  constexpr uint32_t kItems = 300;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  DeadlineHeap heap;
  ASSERT_TRUE(heap.Reserve(kItems));
  std::set<std::tuple<int64_t, uint32_t, uint32_t>> model;  // deadline, order, item
  std::vector<std::tuple<int64_t, uint32_t, uint32_t>> of_item(kItems);
  std::vector<bool> is_in(kItems, false);
  for (uint32_t order = 0; order < 200000; ++order) {
    const auto item = static_cast<uint32_t>(random() % kItems);
    if (is_in[item]) {
      heap.Erase(item);
      model.erase(of_item[item]);
    } else {
      of_item[item] = {static_cast<int64_t>(random() % 50), order, item};
      heap.Insert(item, {std::get<0>(of_item[item]), order});
      model.insert(of_item[item]);
    }
    is_in[item] = !is_in[item];
    ASSERT_EQ(model.empty(), heap.empty());
    if (!model.empty()) {
      ASSERT_EQ(std::get<2>(*model.begin()), heap.top());
      ASSERT_EQ(std::get<0>(*model.begin()), heap.top_deadline().ms);
    }
  }
}

}  // namespace
}  // namespace OstrandService
