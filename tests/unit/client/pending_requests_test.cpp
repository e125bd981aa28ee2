#include "client/pending_requests.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "fakes/allocation_faults.h"

namespace OstrandService {
namespace {

constexpr size_t kMany = 1000000;
constexpr size_t kFirstSlots = 1024;  // it grows when half of them are taken
constexpr int64_t kGraceMs = 5000;    // that the router is left for those that are not watched

TEST(PendingRequests, GivesIdsThatRunFromOneAndAClearEntry) {
  PendingRequests pending(10);
  PendingRequest* first = pending.Add();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->asyn_id, 1u);
  first->cmd = 7;
  first->is_watched = true;
  pending.Remove(1);
  for (uint64_t id = 2; id <= 2 * kFirstSlots; ++id) {  // comes by the first one's place again
    PendingRequest* request = pending.Add();
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->asyn_id, id);
    EXPECT_EQ(request->cmd, 0u);
    EXPECT_FALSE(request->is_watched);
    pending.Remove(id);
  }
}

TEST(PendingRequests, TakesAsManyAsItMayAndOneMoreWhenOneIsOver) {
  PendingRequests pending(3);
  for (int i = 0; i < 3; ++i) {
    ASSERT_NE(pending.Add(), nullptr);
  }
  EXPECT_EQ(pending.size(), 3u);
  EXPECT_EQ(pending.Add(), nullptr);
  pending.Remove(2);
  EXPECT_EQ(pending.size(), 2u);
  ASSERT_NE(pending.Add(), nullptr);
  EXPECT_EQ(pending.Add(), nullptr);
}

TEST(PendingRequests, FindsOnlyWhatIsPending) {
  PendingRequests pending(10);
  const uint64_t id = pending.Add()->asyn_id;
  EXPECT_EQ(pending.Find(id)->asyn_id, id);
  EXPECT_EQ(pending.Find(0), nullptr);
  EXPECT_EQ(pending.Find(id + 1), nullptr);
  EXPECT_EQ(pending.Find(id + kFirstSlots), nullptr) << "another id that has the same place";
  EXPECT_EQ(pending.Find(UINT64_MAX), nullptr);
  pending.Remove(id + kFirstSlots);
  EXPECT_EQ(pending.size(), 1u);
  pending.Remove(id);
  EXPECT_EQ(pending.Find(id), nullptr);
  pending.Remove(id);
  EXPECT_EQ(pending.size(), 0u);
}

TEST(PendingRequests, LeavesOneThatStaysPendingAloneWhileOthersComeAndGo) {
  PendingRequests pending(10);
  pending.Add()->seq = 4711;
  uint64_t last = 1;
  for (size_t i = 0; i < 3 * kFirstSlots; ++i) {
    PendingRequest* request = pending.Add();
    ASSERT_NE(request, nullptr);
    ASSERT_GT(request->asyn_id, last);
    last = request->asyn_id;
    request->seq = 1;
    pending.Remove(last);
  }
  ASSERT_NE(pending.Find(1), nullptr);
  EXPECT_EQ(pending.Find(1)->seq, 4711);
}

TEST(PendingRequests, KeepsWhatIsInItWhenItGrows) {
  PendingRequests pending(kMany);
  for (int i = 1; i <= 5000; ++i) {
    PendingRequest* request = pending.Add();
    ASSERT_NE(request, nullptr);
    request->seq = i;
    request->deadline_ms = 10 * i;
  }
  EXPECT_EQ(pending.size(), 5000u);
  for (int i = 1; i <= 5000; ++i) {
    const PendingRequest* request = pending.Find(static_cast<uint64_t>(i));
    ASSERT_NE(request, nullptr) << i;
    EXPECT_EQ(request->seq, i);
    EXPECT_EQ(request->deadline_ms, 10 * i);
  }
}

TEST(PendingRequests, AllocatesNothingOnceItHasGrown) {
  PendingRequests pending(kMany);
  for (int i = 0; i < 2000; ++i) {
    pending.Add();
  }
  while (PendingRequest* request = pending.Any()) {
    pending.Remove(request->asyn_id);
  }
  const OstrandFakes::AllocationFaults faults;
  std::array<uint64_t, 2000> ids{};
  for (int round = 0; round < 3; ++round) {
    for (uint64_t& id : ids) {
      id = pending.Add()->asyn_id;
    }
    for (const uint64_t id : ids) {
      pending.Remove(id);
    }
  }
  EXPECT_EQ(faults.count(), 0);
}

TEST(PendingRequests, FillsThePlacesThatItHasWhenThereIsNoMemoryForMore) {
  PendingRequests pending(kMany);
  size_t taken = 0;
  {
    OstrandFakes::AllocationFaults faults;
    for (;;) {
      faults.FailThrowing(1);
      if (pending.Add() == nullptr) {
        break;
      }
      ++taken;
    }
    EXPECT_TRUE(faults.struck());
  }
  EXPECT_EQ(taken, kFirstSlots);
  EXPECT_EQ(pending.size(), kFirstSlots);
  EXPECT_NE(pending.Add(), nullptr);
  for (uint64_t id = 1; id <= kFirstSlots + 1; ++id) {
    EXPECT_NE(pending.Find(id), nullptr) << id;
  }
}

TEST(PendingRequests, FindsWatchedOnesBehindTheirDeadlineTheEarliestFirst) {
  PendingRequests pending(10);
  for (const int64_t deadline_ms : {300, 100, 200}) {
    PendingRequest* request = pending.Add();
    request->deadline_ms = deadline_ms;
    pending.Watch(*request);
    EXPECT_TRUE(request->is_watched);
  }
  EXPECT_EQ(pending.FindOverdue(100, 8), nullptr);
  std::vector<int64_t> found;
  while (PendingRequest* request = pending.FindOverdue(201, 8)) {
    found.push_back(request->deadline_ms);
    pending.Remove(request->asyn_id);
  }
  EXPECT_EQ(found, (std::vector<int64_t>{100, 200}));
  EXPECT_EQ(pending.FindOverdue(300, 8), nullptr);
  ASSERT_NE(pending.FindOverdue(301, 8), nullptr);
}

TEST(PendingRequests, FindsAWatchedOneThatWasPutOffAtItsNewDeadline) {
  PendingRequests pending(10);
  PendingRequest* request = pending.Add();
  request->deadline_ms = 100;
  pending.Watch(*request);
  request->deadline_ms = 500;
  EXPECT_EQ(pending.FindOverdue(101, 8), nullptr);
  EXPECT_EQ(pending.FindOverdue(500, 8), nullptr);
  EXPECT_EQ(pending.FindOverdue(501, 8), request);
}

TEST(PendingRequests, DoesNotFindAWatchedOneThatIsOver) {
  PendingRequests pending(10);
  PendingRequest* request = pending.Add();
  request->deadline_ms = 100;
  pending.Watch(*request);
  pending.Remove(request->asyn_id);
  EXPECT_EQ(pending.FindOverdue(kMany, 1), nullptr);
}

TEST(PendingRequests, FindsOneThatIsWatchedTwiceOnce) {
  PendingRequests pending(10);
  PendingRequest* request = pending.Add();
  request->deadline_ms = 100;
  pending.Watch(*request);
  pending.Watch(*request);
  EXPECT_EQ(pending.FindOverdue(101, 1), request);
  EXPECT_EQ(pending.FindOverdue(101, 1), nullptr);
}

TEST(PendingRequests, FindsTheOthersBehindTheirGraceWithinSoManyCalls) {
  for (const size_t rounds : {1u, 8u, 100u, 5000u}) {
    PendingRequests pending(10);
    PendingRequest* request = pending.Add();
    request->deadline_ms = 100;
    for (size_t i = 0; i < 2 * rounds; ++i) {
      ASSERT_EQ(pending.FindOverdue(100 + kGraceMs, rounds), nullptr);
    }
    size_t calls = 1;
    while (calls < rounds && pending.FindOverdue(101 + kGraceMs, rounds) == nullptr) {
      ++calls;
    }
    EXPECT_LE(calls, rounds);
    pending.Remove(request->asyn_id);
    for (size_t i = 0; i < rounds; ++i) {
      ASSERT_EQ(pending.FindOverdue(kMany, rounds), nullptr);
    }
  }
}

TEST(PendingRequests, LooksAtAllOfThemWhenThereAreNoFurtherCalls) {
  PendingRequests pending(10);
  PendingRequest* request = pending.Add();
  request->deadline_ms = 100;
  EXPECT_EQ(pending.FindOverdue(101 + kGraceMs, 0), request);
}

TEST(PendingRequests, NamesAnyUntilNoneIsPending) {
  PendingRequests pending(kMany);
  EXPECT_EQ(pending.Any(), nullptr);
  std::set<uint64_t> ids;
  for (int i = 0; i < 700; ++i) {
    ids.insert(pending.Add()->asyn_id);
  }
  while (PendingRequest* request = pending.Any()) {
    ASSERT_EQ(ids.erase(request->asyn_id), 1u);
    pending.Remove(request->asyn_id);
  }
  EXPECT_TRUE(ids.empty());
  EXPECT_EQ(pending.size(), 0u);
}

// Random additions and removals, against a map.
TEST(PendingRequests, AgreesWithAMap) {
  constexpr size_t kMaxPending = 3000;
  PendingRequests pending(kMaxPending);
  std::map<uint64_t, int32_t> expected;
  std::mt19937 random(20240501);
  for (int step = 0; step < 30000; ++step) {
    const bool growing = step / 6000 % 2 == 0;
    if (random() % 100 < (growing ? 70u : 30u)) {
      PendingRequest* request = pending.Add();
      ASSERT_EQ(request == nullptr, expected.size() == kMaxPending);
      if (request != nullptr) {
        request->seq = step;
        ASSERT_TRUE(expected.emplace(request->asyn_id, step).second);
      }
    } else if (!expected.empty()) {
      auto victim = expected.lower_bound(random() % (expected.rbegin()->first + 1));
      ASSERT_EQ(pending.Find(victim->first)->seq, victim->second);
      pending.Remove(victim->first);
      expected.erase(victim);
    }
    ASSERT_EQ(pending.size(), expected.size());
  }
  for (const auto& [id, seq] : expected) {
    ASSERT_NE(pending.Find(id), nullptr);
    EXPECT_EQ(pending.Find(id)->seq, seq);
  }
}

}  // namespace
}  // namespace OstrandService
