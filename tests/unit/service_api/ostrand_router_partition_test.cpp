// The partition of the ring among real nodes.
//
// Three ways: values that a separate program computed; the plain, slow version of the same thing,
// arc by arc (Model); and the properties that any partition must have. A partition is compared with
// its order: the multimaps' order decides which arc is cut next.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "service_api/ostrand_router.h"
#include "unit/service_api/router_partition_test.h"

namespace OstrandService {
namespace {

constexpr uint64_t kIdealArc = 0x28F5C28F5C28F5C;  // 2^64 / 100
constexpr int kRealNums[] = {1, 2, 3, 50, 199, 200};

// Pairs in descending order of the first number; among equal ones the earliest inserted is first.
class Ranking {
 public:
  void Insert(uint64_t key, uint64_t value) {
    auto place = m_pairs.begin();
    while (place != m_pairs.end() && place->first >= key) {
      ++place;
    }
    m_pairs.insert(place, {key, value});
  }
  Pair TakeFirst() {
    const Pair first = m_pairs.front();
    m_pairs.erase(m_pairs.begin());
    return first;
  }
  const Pairs& pairs() const { return m_pairs; }

 private:
  Pairs m_pairs;
};

// The plain version of the partition.
struct Model {
  explicit Model(int real_num) : arcs(static_cast<size_t>(real_num)) {
    Pairs positions;
    for (const uint64_t position : OstrandRouter::FIRST_NODE_VIRTUAL_HASH_DATA) {
      positions.emplace_back(position, 0);
    }
    std::sort(positions.begin(), positions.end());
    for (size_t i = 0; i < 100; ++i) {
      const uint64_t previous = positions[(i + 99) % 100].first;
      arcs[0].Insert(positions[i].first - previous, positions[i].first);
    }
    totals.Insert(kFullTotal, 0);
    for (int id = 1; id < real_num; ++id) {
      Split(id);
    }
  }

  void Split(int id) {
    const uint64_t step = kIdealArc / static_cast<uint64_t>(id + 1);
    for (int cut = 0; cut < 100; ++cut) {
      const Pair owner = totals.TakeFirst();
      const Pair arc = arcs[owner.second].TakeFirst();
      arcs[owner.second].Insert(arc.first - step, arc.second);
      arcs[static_cast<size_t>(id)].Insert(step, arc.second - arc.first + step);
      totals.Insert(owner.first - step, owner.second);
    }
    totals.Insert(step * 100, static_cast<uint64_t>(id));
  }

  std::vector<Ranking> arcs;
  Ranking totals;
};

// --- Values ---

TEST_F(RouterPartitionTest, FirstNodesPositionsAreDistinctAndAsPublished) {
  const auto& table = OstrandRouter::FIRST_NODE_VIRTUAL_HASH_DATA;
  const std::set<uint64_t> distinct(std::begin(table), std::end(table));
  EXPECT_EQ(100U, distinct.size());
  EXPECT_EQ(0x0000000000000000U, table[0]);
  EXPECT_EQ(0x62001E00A2EEAD34U, table[1]);
  EXPECT_EQ(0xCC00E21612711024U, table[3]);
  EXPECT_EQ(0xFC7AAE114F95BAD5U, table[4]);
  EXPECT_EQ(0x418E0ACC63B9F40BU, table[47]);
  EXPECT_EQ(0xF311803F5649798CU, table[48]);
  EXPECT_EQ(0xF5EE01A841C3C885U, table[99]);
  uint64_t mixed = 0;
  for (const uint64_t position : table) {
    mixed = mixed * 31 + position;
  }
  EXPECT_EQ(0x019FC75656E55CBAU, mixed);
}

TEST_F(RouterPartitionTest, OneNodeOwnsTheArcsBetweenThePositions) {
  Partition(1);
  const Pairs arcs = Arcs(0);
  ASSERT_EQ(100U, arcs.size());
  EXPECT_EQ(Pair(0x0D7ACEF7DDE5FA4D, 0xC8163D16B0043D6C), arcs.front());
  EXPECT_EQ(Pair(0x00115AEDD924732D, 0x5A889A50482F1190), arcs.back());
  const Pair around_zero(0x0000000000000000 - 0xFC7AAE114F95BAD5, 0x0000000000000000);
  EXPECT_EQ(1, std::count(arcs.begin(), arcs.end(), around_zero))
      << "the lowest position reaches back to the highest";
  EXPECT_EQ(Pairs({{kFullTotal, 0}}), Totals());
}

TEST_F(RouterPartitionTest, TheSecondNodeCutsAHundredEqualArcsOffTheFirst) {
  constexpr uint64_t kStep = 0x147AE147AE147AE;
  Partition(2);
  EXPECT_EQ(Pair(0x0250861EB29AC4A6, 0xF311803F5649798C), Arcs(0).front());
  EXPECT_EQ(Pair(0x00115AEDD924732D, 0x5A889A50482F1190), Arcs(0).back());
  const Pairs arcs = Arcs(1);
  ASSERT_EQ(100U, arcs.size());
  for (const Pair& arc : arcs) {
    EXPECT_EQ(kStep, arc.first);
  }
  EXPECT_EQ(0xC8163D16B0043D6C - 0x0D7ACEF7DDE5FA4D + kStep, arcs[0].second)
      << "the first cut is off the longest arc";
  EXPECT_EQ(0xBD2ACA47C7E0D27BU, arcs[1].second);
  EXPECT_EQ(0x1B4A4290950CB52AU, arcs[2].second);
  EXPECT_EQ(0x08809C71B808E948U, arcs[99].second);
  EXPECT_EQ(Pairs({{kFullTotal - 100 * kStep, 0}, {100 * kStep, 1}}), Totals());
}

TEST_F(RouterPartitionTest, TheThirdNodeCutsWhoeverOwnsMost) {
  Partition(3);
  EXPECT_EQ(Pair(0x01696BDA4D55F2AC, 0xA34CCCC267429FC6), Arcs(0).front());
  EXPECT_EQ(Pair(0x00115AEDD924732D, 0x5A889A50482F1190), Arcs(0).back());
  EXPECT_EQ(Pair(0x0147AE147AE147AE, 0x0AD326BFC6BF4A43), Arcs(1).front());
  EXPECT_EQ(Pair(0x006D3A06D3A06D3A, 0xEA721757616F58FA), Arcs(1).back());
  EXPECT_EQ(Pair(0x00DA740DA740DA74, 0xF19B6E2E4AEF8F5A), Arcs(2).front());
  EXPECT_EQ(Pair(0x00DA740DA740DA74, 0xEA04DD508DCEEBC0), Arcs(2).back());
  EXPECT_EQ(Pairs({{0x555555555555555F, 0}, {0x5555555555555550, 1}, {0x5555555555555550, 2}}),
            Totals());
}

// Every number of a partition in its order, folded into one: FNV-1a over 64-bit words.
class Digest {
 public:
  void Add(uint64_t word) { m_digest = (m_digest ^ word) * 0x100000001B3; }
  uint64_t value() const { return m_digest; }

 private:
  uint64_t m_digest = 0xCBF29CE484222325;
};

TEST_F(RouterPartitionTest, EveryArcAndEveryTotalIsAsComputedElsewhere) {
  const struct {
    int real_num;
    uint64_t arcs;    // of id, length, ending of every arc
    uint64_t totals;  // of total, id
  } kCases[] = {
      {1, 0x6E373953E7EDDAC1, 0xF7CA11F84B11ACEA},   {2, 0xC73CC4F5BE1D3E61, 0x92BCF69964C796CD},
      {3, 0xB9528281909F6533, 0xC0D8B233D851ED6F},   {50, 0xBA5A6E6A58CA0ABB, 0x9016F82401879655},
      {199, 0x5B92C9B0CEF66679, 0x23DFD0471296127D}, {200, 0x7576C9D1D5EAFA0A, 0xB8D9B086DD9BEBEE}};
  for (const auto& c : kCases) {
    Partition(c.real_num);
    Digest arcs;
    for (int id = 0; id < c.real_num; ++id) {
      for (const auto& [length, ending] : Arcs(id)) {
        arcs.Add(static_cast<uint64_t>(id));
        arcs.Add(length);
        arcs.Add(ending);
      }
    }
    EXPECT_EQ(c.arcs, arcs.value()) << c.real_num;
    Digest totals;
    for (const auto& [total, id] : Totals()) {
      totals.Add(total);
      totals.Add(id);
    }
    EXPECT_EQ(c.totals, totals.value()) << c.real_num;
  }
}

TEST_F(RouterPartitionTest, AgreesWithThePlainVersion) {
  for (const int real_num : {1, 2, 3, 4, 7, 50, 101, 199, 200}) {
    Partition(real_num);
    const Model model(real_num);
    for (int id = 0; id < real_num; ++id) {
      ASSERT_EQ(model.arcs[static_cast<size_t>(id)].pairs(), Arcs(id)) << real_num << ", " << id;
    }
    ASSERT_EQ(model.totals.pairs(), Totals()) << real_num;
  }
}

// --- Properties ---

TEST_F(RouterPartitionTest, GivesEachNodeAHundredArcsWithDistinctEndingsThatTileTheRing) {
  for (const int real_num : kRealNums) {
    SCOPED_TRACE(real_num);
    Partition(real_num);
    Pairs by_ending;  // ending, length
    for (int id = 0; id < real_num; ++id) {
      ASSERT_EQ(100U, Arcs(id).size()) << id;
      for (const auto& [length, ending] : Arcs(id)) {
        by_ending.emplace_back(ending, length);
      }
    }
    std::sort(by_ending.begin(), by_ending.end());
    for (size_t i = 0; i < by_ending.size(); ++i) {
      const uint64_t previous = by_ending[i == 0 ? by_ending.size() - 1 : i - 1].first;
      ASSERT_EQ(by_ending[i].first - previous, by_ending[i].second) << "arc behind " << previous;
      ASSERT_NE(previous, by_ending[i].first);
      ASSERT_NE(0U, by_ending[i].second);
    }
  }
}

TEST_F(RouterPartitionTest, RecordsOneTotalANodeThatAddsUp) {
  for (const int real_num : kRealNums) {
    SCOPED_TRACE(real_num);
    Partition(real_num);
    ASSERT_EQ(static_cast<size_t>(real_num), Totals().size());
    for (int id = 0; id < real_num; ++id) {
      uint64_t sum = 0;
      for (const auto& [length, ending] : Arcs(id)) {
        sum += length;
      }
      const uint64_t missing = id == 0 ? 1 : 0;  // The first total began at 2^64 - 1.
      EXPECT_EQ(sum, TotalOf(id) + missing) << id;
    }
  }
}

TEST_F(RouterPartitionTest, MovesNoEndingOfEarlierNodesWhenANodeIsAdded) {
  for (const int real_num : {1, 2, 3, 50, 199}) {
    Partition(real_num);
    std::vector<std::set<uint64_t>> before;
    for (int id = 0; id < real_num; ++id) {
      before.push_back(Endings(id));
    }
    Partition(real_num + 1);
    for (int id = 0; id < real_num; ++id) {
      ASSERT_EQ(before[static_cast<size_t>(id)], Endings(id)) << real_num << ", " << id;
    }
  }
}

TEST_F(RouterPartitionTest, DependsOnTheNumberOfNodesAlone) {
  Partition(50);
  std::vector<Pairs> first;
  for (int id = 0; id < 50; ++id) {
    first.push_back(Arcs(id));
  }
  const Pairs first_totals = Totals();
  Partition(3);
  Partition(200);
  Partition(50);
  for (int id = 0; id < 50; ++id) {
    EXPECT_EQ(first[static_cast<size_t>(id)], Arcs(id));
  }
  EXPECT_EQ(first_totals, Totals());
}

TEST_F(RouterPartitionTest, LeavesBucketsAtAndAboveTheNumberAlone) {
  Partition(4);
  const Pairs second = Arcs(2);
  const Pairs third = Arcs(3);
  peer->m_len2ending()[199].emplace(1, 2);
  Partition(2);
  EXPECT_EQ(second, Arcs(2));
  EXPECT_EQ(third, Arcs(3));
  EXPECT_EQ(Pairs({{1, 2}}), Arcs(199));
  EXPECT_EQ(2U, Totals().size()) << "their totals are gone";
}

// --- Ties ---

// Gives ids 0 and 1 equal totals and arcs that are all equal.
TEST_F(RouterPartitionTest, TakesTiesInOrderOfInsertion) {
  constexpr uint64_t kLength = uint64_t{1} << 60;
  for (const uint64_t ending : {30U, 10U, 20U}) {
    peer->m_len2ending()[0].emplace(kLength, ending);
    peer->m_len2ending()[1].emplace(kLength, ending + 100);
  }
  peer->m_totallen2id().emplace(kFullTotal, 1);
  peer->m_totallen2id().emplace(kFullTotal, 0);
  ASSERT_EQ(0, peer->ConHashSplitHashRing(2));
  const uint64_t step = kIdealArc / 3;
  const Pairs arcs = Arcs(2);
  ASSERT_EQ(100U, arcs.size());
  const uint64_t first_cuts[] = {130, 30, 110, 10, 120, 20};
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(Pair(step, first_cuts[i] - kLength + step), arcs[i]) << i;
  }
}

// --- The cut ---

TEST_F(RouterPartitionTest, CutsOffTheFrontOfAnArcAndLeavesItsEnding) {
  constexpr uint64_t kLength = 0xF000000000000000;
  constexpr uint64_t kEnding = 0x1234;
  peer->m_len2ending()[0].emplace(kLength, kEnding);
  peer->m_totallen2id().emplace(kFullTotal, 0);
  ASSERT_EQ(0, peer->ConHashSplitHashRing(4));
  const uint64_t step = kIdealArc / 5;
  EXPECT_EQ(Pairs({{kLength - 100 * step, kEnding}}), Arcs(0));
  const Pairs arcs = Arcs(4);
  ASSERT_EQ(100U, arcs.size());
  for (uint64_t cut = 0; cut < 100; ++cut) {
    EXPECT_EQ(Pair(step, kEnding - kLength + (cut + 1) * step), arcs[cut]) << cut;
  }
  EXPECT_EQ(Pairs({{kFullTotal - 100 * step, 0}, {100 * step, 4}}), Totals());
}

TEST_F(RouterPartitionTest, CutsAnArcThatIsTooShortAllTheSame) {
  peer->m_len2ending()[0].emplace(5, 1000);
  peer->m_totallen2id().emplace(kFullTotal, 0);
  ASSERT_EQ(0, peer->ConHashSplitHashRing(1));
  const uint64_t step = kIdealArc / 2;
  EXPECT_EQ(Pairs({{uint64_t{5} - 100 * step, 1000}}), Arcs(0)) << "wrapped, not guarded";
  EXPECT_EQ(Pair(step, 995 + step), Arcs(1).front());
}

}  // namespace
}  // namespace OstrandService
