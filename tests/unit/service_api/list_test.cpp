// The list against a std::list that is told the same things, beside single behaviours by name.
#include "service_api/list.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <list>
#include <random>
#include <vector>

#include "fakes/allocation_faults.h"

namespace OstrandService {
namespace {

constexpr uint32_t kUnit = sizeof(uint64_t);

uint64_t ValueOf(ListNode* node) {
  uint64_t value;
  std::memcpy(&value, node->data(), sizeof(value));
  return value;
}

void Write(void* payload, uint64_t value) {
  ASSERT_NE(nullptr, payload);
  std::memcpy(payload, &value, sizeof(value));
}

std::vector<uint64_t> ValuesOf(List& list) {
  std::vector<uint64_t> values;
  for (ListNode* node = list.Begin(); node != nullptr; node = node->next) {
    values.push_back(ValueOf(node));
  }
  return values;
}

ListNode* NodeAt(List& list, size_t index) {
  ListNode* node = list.Begin();
  for (; index > 0; --index) {
    node = node->next;
  }
  return node;
}

void Fill(List& list, std::initializer_list<uint64_t> values) {
  for (const uint64_t value : values) {
    Write(list.PushBack(), value);
  }
}

using Values = std::vector<uint64_t>;

TEST(List, IsEmptyAtFirst) {
  List list(1064);
  EXPECT_EQ(0U, list.GetUsed());
  EXPECT_EQ(1024U, list.GetCapacity());
  EXPECT_EQ(1064U, list.GetUnitMaxSize());
  EXPECT_EQ(nullptr, list.Front());
  EXPECT_EQ(nullptr, list.Begin());
}

TEST(List, FrontIsThePayloadOfTheFirstNode) {
  List list(kUnit);
  void* payload = list.PushBack();
  list.PushBack();
  EXPECT_EQ(payload, list.Front());
  EXPECT_EQ(payload, list.Begin()->data());
}

TEST(List, AddsAtBothEndsAndBehindANode) {
  List list(kUnit);
  Fill(list, {1, 2});
  Write(list.PushFront(), 3);
  EXPECT_EQ(Values({3, 1, 2}), ValuesOf(list));
  Write(list.InsertAfter(NodeAt(list, 1)), 4);
  EXPECT_EQ(Values({3, 1, 4, 2}), ValuesOf(list));
  Write(list.InsertAfter(NodeAt(list, 3)), 5);
  Write(list.PushBack(), 6);
  EXPECT_EQ(Values({3, 1, 4, 2, 5, 6}), ValuesOf(list));
  EXPECT_EQ(6U, list.GetUsed());
}

TEST(List, TakesAwayAtBothEnds) {
  List list(kUnit);
  Fill(list, {1, 2, 3, 4});
  list.PopFront();
  EXPECT_EQ(Values({2, 3, 4}), ValuesOf(list));
  list.PopBack();
  EXPECT_EQ(Values({2, 3}), ValuesOf(list));
  Write(list.PushBack(), 5);
  EXPECT_EQ(Values({2, 3, 5}), ValuesOf(list));
}

TEST(List, TakesAwayBehindANode) {
  List list(kUnit);
  Fill(list, {1, 2, 3});
  list.RemoveAfter(NodeAt(list, 0));
  EXPECT_EQ(Values({1, 3}), ValuesOf(list));
  list.RemoveAfter(NodeAt(list, 0));
  Write(list.PushBack(), 4);
  EXPECT_EQ(Values({1, 4}), ValuesOf(list));
}

TEST(List, TakesAwayAnyNode) {
  for (size_t index = 0; index < 3; ++index) {
    List list(kUnit);
    Fill(list, {0, 1, 2});
    Values expected = {0, 1, 2};
    expected.erase(expected.begin() + static_cast<ptrdiff_t>(index));
    list.Remove(NodeAt(list, index));
    EXPECT_EQ(expected, ValuesOf(list));
    expected.push_back(9);
    Write(list.PushBack(), 9);
    EXPECT_EQ(expected, ValuesOf(list));
  }
}

TEST(List, IgnoresWhatIsNotThere) {
  List list(kUnit);
  list.PopFront();
  list.PopBack();
  list.Remove(nullptr);
  list.RemoveAfter(nullptr);
  list.Clear();
  EXPECT_EQ(nullptr, list.InsertAfter(nullptr));
  EXPECT_EQ(0U, list.GetUsed());

  List other(kUnit);
  Fill(list, {1});
  Fill(other, {2});
  list.Remove(other.Begin());
  list.RemoveAfter(list.Begin());
  EXPECT_EQ(Values({1}), ValuesOf(list));
  EXPECT_EQ(Values({2}), ValuesOf(other));
  EXPECT_EQ(1U, list.GetUsed());
}

TEST(List, BecomesEmptyByTakingAwayTheLastNode) {
  const struct {
    const char* how;
    void (*take)(List&);
  } kCases[] = {{"PopFront", [](List& list) { list.PopFront(); }},
                {"PopBack", [](List& list) { list.PopBack(); }},
                {"Remove", [](List& list) { list.Remove(list.Begin()); }},
                {"Clear", [](List& list) { list.Clear(); }}};
  for (const auto& c : kCases) {
    List list(kUnit);
    Fill(list, {1});
    c.take(list);
    EXPECT_EQ(0U, list.GetUsed()) << c.how;
    EXPECT_EQ(nullptr, list.Front()) << c.how;
    EXPECT_EQ(nullptr, list.Begin()) << c.how;
    Fill(list, {2, 3});
    EXPECT_EQ(Values({2, 3}), ValuesOf(list)) << c.how;
  }
}

TEST(List, IsFullAt1024AndThenEveryAddingAnswersNull) {
  List list(kUnit);
  for (uint64_t i = 0; i < 1024; ++i) {
    Write(list.PushBack(), i);
  }
  EXPECT_EQ(1024U, list.GetUsed());
  EXPECT_EQ(nullptr, list.PushBack());
  EXPECT_EQ(nullptr, list.PushFront());
  EXPECT_EQ(nullptr, list.InsertAfter(list.Begin()));
  EXPECT_EQ(1024U, list.GetUsed());
  const Values values = ValuesOf(list);
  ASSERT_EQ(1024U, values.size());
  for (uint64_t i = 0; i < 1024; ++i) {
    ASSERT_EQ(i, values[i]);
  }

  list.PopFront();
  EXPECT_NE(nullptr, list.PushBack());
  EXPECT_EQ(nullptr, list.PushBack());
}

TEST(List, ClearGivesEveryNodeBack) {
  List list(kUnit);
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 1024; ++i) {
      ASSERT_NE(nullptr, list.PushBack());
    }
    list.Clear();
    EXPECT_EQ(0U, list.GetUsed());
    EXPECT_EQ(nullptr, list.Begin());
  }
}

TEST(List, HandsOutZeroedPayloadsAlsoFromUsedNodes) {
  List list(100);
  const std::vector<char> zeros(100, 0);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 1024; ++i) {
      char* payload = static_cast<char*>(i % 2 == 0 ? list.PushBack() : list.PushFront());
      ASSERT_NE(nullptr, payload);
      ASSERT_EQ(0, std::memcmp(zeros.data(), payload, zeros.size()));
      std::memset(payload, 0xA5, zeros.size());
    }
    list.Clear();
  }
}

TEST(List, LeavesThePayloadOfATakenNodeAlone) {
  List list(kUnit);
  Fill(list, {0x1122334455667788});
  void* payload = list.Front();
  list.PopFront();
  uint64_t value;
  std::memcpy(&value, payload, sizeof(value));
  EXPECT_EQ(0x1122334455667788U, value);
}

TEST(List, PayloadsAreAlignedLikePointersAndDoNotOverlap) {
  List list(13);
  std::vector<char*> payloads;
  for (int i = 0; i < 1024; ++i) {
    char* payload = static_cast<char*>(list.PushBack());
    ASSERT_EQ(0U, reinterpret_cast<uintptr_t>(payload) % alignof(void*));
    std::memset(payload, i % 256, 13);
    payloads.push_back(payload);
  }
  for (int i = 0; i < 1024; ++i) {
    for (int byte = 0; byte < 13; ++byte) {
      ASSERT_EQ(static_cast<char>(i % 256), payloads[static_cast<size_t>(i)][byte]);
    }
  }
}

TEST(List, AllocatesOnceForItsLife) {
  OstrandFakes::AllocationFaults faults;
  {
    List list(1064);
    EXPECT_EQ(1, faults.count());
    for (int i = 0; i < 1024; ++i) {
      list.PushBack();
    }
    list.Clear();
    list.PushBack();
    EXPECT_EQ(1, faults.count());
  }
  EXPECT_EQ(0, faults.outstanding());
}

TEST(List, WithoutMemoryHasCapacityZeroAndIsAlwaysFull) {
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  List list(1064);
  ASSERT_TRUE(faults.struck());
  EXPECT_EQ(0U, list.GetCapacity());
  EXPECT_EQ(0U, list.GetUsed());
  EXPECT_EQ(1064U, list.GetUnitMaxSize());
  EXPECT_EQ(nullptr, list.PushBack());
  EXPECT_EQ(nullptr, list.PushFront());
  EXPECT_EQ(nullptr, list.Front());
  EXPECT_EQ(nullptr, list.Begin());
  list.PopFront();
  list.PopBack();
  list.Clear();
  EXPECT_EQ(0U, list.GetUsed());
}

// One random step on both lists; the operation and the place come from the same numbers.
class ListAndModel {
 public:
  explicit ListAndModel(uint32_t seed) : m_random(seed) {}

  void Step(uint64_t value) {
    switch (Below(8)) {
      case 0:
      case 1: return Added(list.PushBack(), model.end(), value);
      case 2: return Added(list.PushFront(), model.begin(), value);
      case 3: return InsertAfter(value);
      case 4: return PopFront();
      case 5: return PopBack();
      case 6: return RemoveAfter();
      default: return Remove();
    }
  }

  List list{kUnit};
  std::list<uint64_t> model;

 private:
  size_t Below(size_t bound) { return m_random() % bound; }

  void Added(void* payload, std::list<uint64_t>::iterator place, uint64_t value) {
    Write(payload, value);
    model.insert(place, value);
  }
  void InsertAfter(uint64_t value) {
    if (!model.empty()) {
      const size_t index = Below(model.size());
      Added(list.InsertAfter(NodeAt(list, index)), std::next(At(index)), value);
    }
  }
  void PopFront() {
    list.PopFront();
    if (!model.empty()) {
      model.pop_front();
    }
  }
  void PopBack() {
    list.PopBack();
    if (!model.empty()) {
      model.pop_back();
    }
  }
  void RemoveAfter() {
    if (!model.empty()) {
      const size_t index = Below(model.size());
      list.RemoveAfter(NodeAt(list, index));
      if (index + 1 < model.size()) {
        model.erase(At(index + 1));
      }
    }
  }
  void Remove() {
    if (!model.empty()) {
      const size_t index = Below(model.size());
      list.Remove(NodeAt(list, index));
      model.erase(At(index));
    }
  }
  std::list<uint64_t>::iterator At(size_t index) {
    return std::next(model.begin(), static_cast<ptrdiff_t>(index));
  }

  std::mt19937 m_random;
};

TEST(List, AgreesWithAStandardListOverRandomSteps) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    ListAndModel lists(seed);
    for (uint64_t step = 1; step <= 500; ++step) {
      lists.Step(step);
      ASSERT_EQ(Values(lists.model.begin(), lists.model.end()), ValuesOf(lists.list))
          << "seed " << seed << " step " << step;
      ASSERT_EQ(lists.model.size(), lists.list.GetUsed());
    }
  }
}

}  // namespace
}  // namespace OstrandService
