#include "client/pending_requests.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <vector>

#include "client/request_store.h"
#include "fakes/allocation_faults.h"

namespace OstrandService {
namespace {

constexpr size_t kMany = 1000000;
constexpr int64_t kGraceMs = 5000;  // for the router, which times those it has a record of itself

std::vector<uint64_t> IdsOf(PendingRequests& pending, const RequestChain& chain) {
  std::vector<uint64_t> ids;
  for (uint32_t slot = chain.first; slot != kNoRequest; slot = pending.At(slot).next) {
    ids.push_back(pending.At(slot).id);
  }
  return ids;
}

// --- Ids ---

TEST(PendingRequests, GivesAClearEntryAndAnIdThatFindsIt) {
  PendingRequests pending(10);
  PendingRequest* const first = pending.Add();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(pending.Find(first->id), first);
  EXPECT_EQ(pending.FindTry(first->id), first) << "the first try has the request's id";
  EXPECT_EQ(first->state, PendingRequest::State::kSending);
  first->cmd = 7;
  first->has_package = true;
  const uint64_t id = first->id;
  pending.Remove(*first);
  EXPECT_EQ(pending.Find(id), nullptr);
  EXPECT_EQ(pending.FindTry(id), nullptr);
  PendingRequest* const second = pending.Add();
  EXPECT_EQ(second, first) << "the slot is used again";
  EXPECT_NE(second->id, id);
  EXPECT_EQ(second->cmd, 0u);
  EXPECT_FALSE(second->has_package);
  EXPECT_EQ(pending.Find(id), nullptr);
}

TEST(PendingRequests, FindsNothingUnderOtherIds) {
  PendingRequests pending(10);
  EXPECT_EQ(pending.Find(0), nullptr);
  EXPECT_EQ(pending.FindTry(0), nullptr);
  PendingRequest* const request = pending.Add();
  pending.Remove(*pending.Add());
  for (const uint64_t id : {uint64_t{0}, request->id + 1, request->id + (uint64_t{1} << 31),
                            UINT64_MAX, uint64_t{0x7FFFFFFF}}) {
    EXPECT_EQ(pending.Find(id), nullptr) << id;
    EXPECT_EQ(pending.FindTry(id), nullptr) << id;
  }
}

TEST(PendingRequests, KnowsATryByItsOwnIdAndNotByAnOlderOnes) {
  PendingRequests pending(10);
  PendingRequest* const request = pending.Add();
  const uint64_t id = request->id;
  std::set<uint64_t> wire_ids = {id};
  for (int i = 0; i < 100; ++i) {
    const uint64_t older = request->wire_id;
    request->wire_id = pending.NewId(*request);
    EXPECT_TRUE(wire_ids.insert(request->wire_id).second);
    EXPECT_EQ(pending.FindTry(request->wire_id), request);
    EXPECT_EQ(pending.FindTry(older), nullptr);
    EXPECT_EQ(pending.Find(id), request);
  }
}

TEST(PendingRequests, GivesNoIdTwiceAndLeavesTheUpperHalfToTheService) {
  PendingRequests pending(100);
  std::set<uint64_t> ids;
  for (int i = 0; i < 5000; ++i) {
    PendingRequest* const request = pending.Add();
    EXPECT_TRUE(ids.insert(request->id).second);
    EXPECT_LT(request->id, uint64_t{1} << 63);
    pending.Remove(*request);
  }
}

// --- How many ---

TEST(PendingRequests, TakesAsManyAsItMayAndOneMoreWhenOneIsOver) {
  PendingRequests pending(3);
  PendingRequest* last = nullptr;
  for (int i = 0; i < 3; ++i) {
    last = pending.Add();
    ASSERT_NE(last, nullptr);
  }
  EXPECT_EQ(pending.size(), 3u);
  EXPECT_EQ(pending.Add(), nullptr);
  pending.Remove(*last);
  EXPECT_EQ(pending.size(), 2u);
  EXPECT_NE(pending.Add(), nullptr);
  EXPECT_EQ(pending.Add(), nullptr);
}

TEST(PendingRequests, HoldsAMillionWhichNeverMove) {
  PendingRequests pending(kMany);
  PendingRequest* const first = pending.Add();
  first->sequence = 4711;
  const OstrandFakes::AllocationFaults faults;
  for (size_t i = 1; i < kMany; ++i) {
    PendingRequest* const request = pending.Add();
    ASSERT_NE(request, nullptr) << i;
    pending.SetDue(*request, static_cast<int64_t>(i));
  }
  EXPECT_EQ(pending.size(), kMany);
  EXPECT_EQ(pending.Add(), nullptr);
  EXPECT_EQ(pending.Find(first->id), first);
  EXPECT_EQ(first->sequence, 4711);
  // One block for each 1024, and what is beside them grows by doubling.
  EXPECT_LT(faults.count(), static_cast<int>(kMany) / 1024 + 100);
}

TEST(PendingRequests, AllocatesNothingOnceItHasGrown) {
  PendingRequests pending(kMany);
  std::vector<PendingRequest*> requests(3000);
  for (PendingRequest*& request : requests) {
    request = pending.Add();
  }
  const OstrandFakes::AllocationFaults faults;
  for (int round = 0; round < 3; ++round) {
    for (PendingRequest* request : requests) {
      pending.Remove(*request);
    }
    for (PendingRequest*& request : requests) {
      request = pending.Add();
      pending.SetDue(*request, 100);
    }
  }
  EXPECT_EQ(faults.count(), 0);
}

TEST(PendingRequests, EntersNothingWithoutMemory) {
  for (int failing = 1; failing < 20; ++failing) {
    PendingRequests pending(kMany);
    for (int i = 0; i < 1024; ++i) {
      pending.Add();
    }
    bool struck = false;
    {
      OstrandFakes::AllocationFaults faults;
      if (failing % 2 == 0) {
        faults.FailThrowing((failing + 1) / 2);
      } else {
        faults.FailNothrow((failing + 1) / 2);
      }
      try {
        pending.Add();
      } catch (const std::bad_alloc&) {
        struck = true;
      }
    }
    EXPECT_EQ(pending.size(), struck ? 1024u : 1025u);
    PendingRequest* const next = pending.Add();
    ASSERT_NE(next, nullptr) << "it works when there is memory again";
    pending.SetDue(*next, 7);
    EXPECT_EQ(pending.FirstDueMs(), 7);
  }
}

// --- Chains ---

TEST(PendingRequests, ChainsInOrderAndUnchainsAnywhere) {
  PendingRequests pending(10);
  RequestChain chain;
  std::vector<PendingRequest*> requests;
  for (int i = 0; i < 5; ++i) {
    requests.push_back(pending.Add());
    pending.Append(chain, *requests.back());
  }
  const auto id = [&](size_t i) { return requests[i]->id; };
  EXPECT_EQ(IdsOf(pending, chain), (std::vector<uint64_t>{id(0), id(1), id(2), id(3), id(4)}));
  pending.Unchain(*requests[2]);
  pending.Unchain(*requests[0]);
  pending.Unchain(*requests[4]);
  pending.Unchain(*requests[4]);  // in no chain: nothing
  EXPECT_EQ(IdsOf(pending, chain), (std::vector<uint64_t>{id(1), id(3)}));
  RequestChain other;
  pending.Append(other, *requests[4]);
  pending.Append(chain, *requests[0]);
  EXPECT_EQ(IdsOf(pending, chain), (std::vector<uint64_t>{id(1), id(3), id(0)}));
  EXPECT_EQ(IdsOf(pending, other), (std::vector<uint64_t>{id(4)}));
  for (const size_t i : {0u, 1u, 3u}) {
    pending.Unchain(*requests[i]);
  }
  EXPECT_TRUE(chain.empty());
  EXPECT_EQ(chain.last, kNoRequest);
}

TEST(PendingRequests, VisitsEveryRequest) {
  PendingRequests pending(kMany);
  std::set<uint64_t> expected;
  for (int i = 0; i < 3000; ++i) {
    PendingRequest* const request = pending.Add();
    if (i % 3 == 0) {
      pending.Remove(*request);
    } else {
      expected.insert(request->id);
    }
  }
  std::set<uint64_t> visited;
  pending.ForEach([&](PendingRequest& request) { visited.insert(request.id); });
  EXPECT_EQ(visited, expected);
}

// --- Due times ---

TEST(PendingRequests, FindsWhatIsOverdueTheEarliestFirst) {
  PendingRequests pending(10);
  EXPECT_EQ(pending.FirstDueMs(), INT64_MAX);
  EXPECT_EQ(pending.FirstOverdue(INT64_MAX), nullptr);
  std::map<int64_t, PendingRequest*> by_due;
  for (const int64_t due_ms : {300, 100, 200}) {
    by_due[due_ms] = pending.Add();
    pending.SetDue(*by_due[due_ms], due_ms);
  }
  EXPECT_EQ(pending.FirstDueMs(), 100);
  EXPECT_EQ(pending.FirstOverdue(100), nullptr) << "its last moment is still in time";
  EXPECT_EQ(pending.FirstOverdue(101), by_due[100]);
  pending.SetDue(*by_due[100], 250);
  EXPECT_EQ(pending.DueOf(*by_due[100]), 250);
  EXPECT_EQ(pending.FirstOverdue(251), by_due[200]);
  pending.NeverDue(*by_due[200]);
  EXPECT_EQ(pending.FirstOverdue(251), by_due[100]);
  pending.Remove(*by_due[100]);
  EXPECT_EQ(pending.FirstDueMs(), 300);
}

TEST(PendingRequests, LeavesTheRouterSomeTimeForThoseThatItTimesItself) {
  PendingRequests pending(10);
  PendingRequest* const request = pending.Add();
  request->try_deadline_ms = 1000;
  EXPECT_EQ(PendingRequests::WithGrace(*request), 1000);
  request->latency_id = 0;
  EXPECT_EQ(PendingRequests::WithGrace(*request), 1000 + kGraceMs);
}

// --- Requests that are kept ---

RequestHead HeadOf(uint32_t body_len) {
  RequestHead head;
  head.body_len = body_len;
  return head;
}

TEST(RequestStore, KeepsHeadAndBytesAndCountsThem) {
  RequestStore store;
  RequestHead head;
  head.user_len = 1;
  head.key_len = 2;
  head.body_len = 3;
  head.sequence = 4711;
  StoredRequest* const stored = store.Keep(head, "abcdefgh");
  EXPECT_EQ(stored->head.sequence, 4711);
  EXPECT_EQ(std::string(stored->bytes.begin(), stored->bytes.end()), "abcdef");
  EXPECT_EQ(store.count(), 1u);
  EXPECT_EQ(store.bytes(), 6u);
  StoredRequest* const other = store.Keep(HeadOf(4), "abcdefgh");
  EXPECT_EQ(store.bytes(), 10u);
  store.Return(stored);
  EXPECT_EQ(store.count(), 1u);
  EXPECT_EQ(store.bytes(), 4u);
  store.Return(other);
  EXPECT_EQ(store.count(), 0u);
  EXPECT_EQ(store.bytes(), 0u);
}

TEST(RequestStore, AllocatesNothingForAsManyAsThereWere) {
  RequestStore store;
  const std::vector<char> bytes(1000);
  std::vector<StoredRequest*> kept(200);
  const auto keep_all = [&] {
    for (StoredRequest*& stored : kept) {
      stored = store.Keep(HeadOf(1000), bytes.data());
    }
  };
  const auto return_all = [&] {
    for (StoredRequest* stored : kept) {
      store.Return(stored);
    }
  };
  keep_all();
  return_all();
  const OstrandFakes::AllocationFaults faults;
  keep_all();
  return_all();
  EXPECT_EQ(faults.count(), 0);
}

TEST(RequestStore, GivesLargeRoomBack) {
  RequestStore store;
  const std::vector<char> bytes(100000);
  StoredRequest* const stored = store.Keep(HeadOf(100000), bytes.data());
  store.Return(stored);
  EXPECT_EQ(stored->bytes.capacity(), 0u);
}

TEST(RequestStore, KeepsNothingWithoutMemory) {
  const std::vector<char> bytes(1000);
  for (int failing = 1; failing <= 4; ++failing) {
    RequestStore store;
    StoredRequest* kept = nullptr;
    {
      OstrandFakes::AllocationFaults faults;
      faults.FailThrowing(failing);
      try {
        kept = store.Keep(HeadOf(1000), bytes.data());
      } catch (const std::bad_alloc&) {
      }
      EXPECT_TRUE(faults.struck()) << failing;
    }
    EXPECT_EQ(kept, nullptr);
    EXPECT_EQ(store.count(), 0u);
    EXPECT_EQ(store.bytes(), 0u);
    EXPECT_NE(store.Keep(HeadOf(1000), bytes.data()), nullptr);
    EXPECT_EQ(store.count(), 1u);
  }
}

}  // namespace
}  // namespace OstrandService
