// The index must answer what a plain lower bound answers, whatever the array holds now.
//
// Method: rings of several shapes and sizes; asked for each point's position, one below and one
// above it, the borders of the index's buckets, both ends and random positions. Then the array is
// changed behind the index's back and asked again.
#include "service_api/ring_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fakes/sanitizers.h"

namespace OstrandService {
namespace {

struct Node {
  uint64_t hash_code;
  void* server;
};
using Nodes = std::vector<Node>;
using Random = std::mt19937_64;

constexpr uint32_t kSizes[] = {0, 1, 2, 99, 100, 19999, 20000};
constexpr uint64_t kMax = 0xFFFFFFFFFFFFFFFF;

// RING_INDEX_SEED repeats a run.
uint64_t Seed() {
  const char* given = std::getenv("RING_INDEX_SEED");
  return given != nullptr ? std::strtoull(given, nullptr, 10) : 20240229;
}

uint32_t PlainLowerBound(const Nodes& nodes, uint32_t count, uint64_t hash) {
  uint32_t position = 0;
  uint32_t left = count;
  while (left > 0) {
    const uint32_t half = left / 2;
    if (nodes[position + half].hash_code < hash) {
      position += half + 1;
      left -= half + 1;
    } else {
      left = half;
    }
  }
  return position;
}

Nodes Sorted(std::vector<uint64_t> positions) {
  std::sort(positions.begin(), positions.end());
  Nodes nodes;
  for (const uint64_t position : positions) {
    nodes.push_back({position, nullptr});
  }
  return nodes;
}

// A way to draw the positions of a ring.
struct Shape {
  const char* name;
  std::function<uint64_t(Random&)> draw;
};

const Shape kShapes[] = {
    {"even", [](Random& random) { return random(); }},
    {"all near one position", [](Random& random) { return 0x7000000000000000 + random() % 30000; }},
    {"all at the low end", [](Random& random) { return random() % 25000; }},
    {"all at the high end", [](Random& random) { return kMax - random() % 25000; }},
    {"ever denser", [](Random& random) { return random() >> (random() % 64); }},
    {"at borders of buckets", [](Random& random) { return (random() << 49) - random() % 2; }},
    {"in clumps", [](Random& random) { return (random() << 58) + random() % 50000; }},
    {"many twice", [](Random& random) { return (random() % 5000) << 51; }},
};

class RingIndexTest : public testing::Test {
 protected:
  Nodes Draw(const Shape& shape, uint32_t size) {
    std::vector<uint64_t> positions(size);
    for (uint64_t& position : positions) {
      position = shape.draw(random);
    }
    return Sorted(std::move(positions));
  }

  void ExpectPlainAnswer(const Nodes& nodes, uint32_t count, uint64_t hash) {
    ASSERT_EQ(PlainLowerBound(nodes, count, hash), index->LowerBound(nodes.data(), count, hash))
        << "position " << hash << " on a ring of " << count;
  }

  // Asks an index that may know nothing of these nodes.
  void ExpectPlainAnswers(const Nodes& nodes) {
    const auto count = static_cast<uint32_t>(nodes.size());
    for (const Node& node : nodes) {
      for (const uint64_t hash : {node.hash_code - 1, node.hash_code, node.hash_code + 1}) {
        ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, hash));
      }
    }
    for (const uint64_t hash : {uint64_t{0}, uint64_t{1}, kMax - 1, kMax}) {
      ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, hash));
    }
    for (int i = 0; i < OstrandFakes::Rounds(2000); ++i) {
      const uint64_t hash = random();
      ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, hash));
      const uint64_t border = hash << 49;
      ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, border));
      ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, border - 1));
    }
  }

  Random random{Seed()};
  std::unique_ptr<RingIndex> index = std::make_unique<RingIndex>();
};

TEST_F(RingIndexTest, AnswersAsAPlainLowerBound) {
  for (const Shape& shape : kShapes) {
    for (const uint32_t size : kSizes) {
      SCOPED_TRACE(std::string(shape.name) + ", seed " + std::to_string(Seed()));
      const Nodes nodes = Draw(shape, size);
      index->Build(nodes.data(), size);
      ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(nodes));
    }
  }
}

TEST_F(RingIndexTest, AnswersAsAPlainLowerBoundBeforeItIsBuilt) {
  for (const uint32_t size : kSizes) {
    index = std::make_unique<RingIndex>();
    ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(Draw(kShapes[0], size)));
  }
}

TEST_F(RingIndexTest, AnswersAsAPlainLowerBoundOverARingItWasNotBuiltFor) {
  for (const Shape& built_for : kShapes) {
    for (const Shape& asked : kShapes) {
      for (const uint32_t size : {0U, 2U, 100U, 20000U}) {
        SCOPED_TRACE(std::string(built_for.name) + " then " + asked.name + ", seed " +
                     std::to_string(Seed()));
        const Nodes other = Draw(built_for, static_cast<uint32_t>(random() % 20001));
        index->Build(other.data(), static_cast<uint32_t>(other.size()));
        ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(Draw(asked, size)));
      }
    }
  }
}

TEST_F(RingIndexTest, AnswersAsAPlainLowerBoundAfterSinglePointsMoved) {
  for (const uint32_t size : {1U, 2U, 99U, 100U, 20000U}) {
    Nodes nodes = Draw(kShapes[0], size);
    index->Build(nodes.data(), size);
    for (int change = 0; change < 20; ++change) {
      // Anywhere between its neighbours, so that the ring stays in order.
      const size_t moved = random() % size;
      const uint64_t low = moved == 0 ? 0 : nodes[moved - 1].hash_code;
      const uint64_t high = moved + 1 == size ? kMax : nodes[moved + 1].hash_code;
      nodes[moved].hash_code = high == low ? low : low + random() % (high - low);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(nodes));
  }
}

TEST_F(RingIndexTest, AnswersWithinACountThatGrewOrShrank) {
  const Nodes nodes = Draw(kShapes[0], 20000);
  for (const uint32_t built : kSizes) {
    index->Build(nodes.data(), built);
    for (const uint32_t count : kSizes) {
      for (int i = 0; i < 2000; ++i) {
        ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, random()));
      }
      for (const uint64_t hash : {uint64_t{0}, kMax}) {
        ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswer(nodes, count, hash));
      }
    }
  }
}

// The nodes lie alone on the heap: a look outside them shows under the address sanitizer.
TEST_F(RingIndexTest, LooksAtNothingOutsideTheNodes) {
  for (const uint32_t size : {1U, 2U, 7U, 100U}) {
    const Nodes large = Draw(kShapes[0], 20000);
    index->Build(large.data(), 20000);
    Nodes small = Draw(kShapes[4], size);
    small.shrink_to_fit();
    ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(small));
  }
  EXPECT_EQ(0U, index->LowerBound(static_cast<const Node*>(nullptr), 0, kMax));
  index->Build(static_cast<const Node*>(nullptr), 0);
  EXPECT_EQ(0U, index->LowerBound(static_cast<const Node*>(nullptr), 0, 0));
}

TEST_F(RingIndexTest, TakesTheFirstOfEqualPoints) {
  const Nodes nodes = {{5, nullptr}, {7, nullptr}, {7, nullptr}, {7, nullptr}, {9, nullptr}};
  index->Build(nodes.data(), 5);
  EXPECT_EQ(1U, index->LowerBound(nodes.data(), 5, 6));
  EXPECT_EQ(1U, index->LowerBound(nodes.data(), 5, 7));
  EXPECT_EQ(4U, index->LowerBound(nodes.data(), 5, 8));
  EXPECT_EQ(5U, index->LowerBound(nodes.data(), 5, 10)) << "none: the caller wraps";
}

TEST_F(RingIndexTest, Takes65535Points) {
  const Nodes nodes = Draw(kShapes[0], 65535);
  index->Build(nodes.data(), 65535);
  ASSERT_NO_FATAL_FAILURE(ExpectPlainAnswers(nodes));
}

}  // namespace
}  // namespace OstrandService
