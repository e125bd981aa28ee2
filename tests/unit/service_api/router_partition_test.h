// What the tests of the ring's partition share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr uint64_t kFullTotal = 0xFFFFFFFFFFFFFFFF;  // 2^64 does not fit

// Length and ending of an arc, or total and id of a real node.
using Pair = std::pair<uint64_t, uint64_t>;
using Pairs = std::vector<Pair>;

// A router that has a logger but no partition yet.
class RouterPartitionTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  RouterPartitionTest() { peer->m_logger() = &logger; }

  void Partition(int real_num) { ASSERT_EQ(0, peer->ConHashCalcHashNode(real_num)); }

  Pairs Arcs(int id) {
    const Len2Ending& bucket = peer->m_len2ending()[id];
    return Pairs(bucket.begin(), bucket.end());
  }
  Pairs Totals() { return Pairs(peer->m_totallen2id().begin(), peer->m_totallen2id().end()); }
  std::set<uint64_t> Endings(int id) {
    std::set<uint64_t> endings;
    for (const auto& [length, ending] : Arcs(id)) {
      endings.insert(ending);
    }
    return endings;
  }
  uint64_t TotalOf(int id) {
    for (const auto& [total, owner] : Totals()) {
      if (owner == static_cast<uint64_t>(id)) {
        return total;
      }
    }
    ADD_FAILURE() << "no total of " << id;
    return 0;
  }
};

}  // namespace OstrandService
