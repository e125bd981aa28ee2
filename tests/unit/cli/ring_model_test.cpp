// Shares, owners and differences of rings, against going through positions one by one.
#include "cli/ring_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace OstrandCli {
namespace {

using Texts = std::vector<std::string>;

double Sum(const std::vector<double>& numbers) {
  return std::accumulate(numbers.begin(), numbers.end(), 0.0);
}

Texts Names(int count) {
  Texts names;
  for (int i = 0; i < count; ++i) {
    names.push_back("p" + std::to_string(i));
  }
  return names;
}

TEST(NamedRing, SharesAreTheLengthsOfTheArcsAndAddUpToTheWhole) {
  for (const int proxies : {1, 2, 3, 8, 200}) {
    const std::vector<double> shares = NamedRing(Names(proxies)).Shares();
    ASSERT_EQ(shares.size(), static_cast<size_t>(proxies));
    EXPECT_NEAR(Sum(shares), 1, 1e-12);
    for (const double share : shares) {
      EXPECT_NEAR(share * proxies, 1, 0.03) << "each about as much as any other";
    }
  }
}

TEST(NamedRing, TheOwnerIsTheProxyOfThePointAtOrBehindAPosition) {
  const NamedRing ring(Names(3));
  for (size_t i = 0; i < ring.Points().size(); ++i) {
    const uint64_t position = ring.Points()[i].hash_code;
    EXPECT_EQ(ring.OwnerOf(position), "p" + std::to_string(ring.Points()[i].proxy));
    EXPECT_EQ(ring.OwnerOf(position + 1), ring.UrlAt((i + 1) % ring.Points().size()));
  }
}

TEST(NamedRing, ProxiesThatCannotBeUsedLeaveTheirArcsToTheNextThatCan) {
  const NamedRing ring(Names(4));
  const std::vector<bool> usable = {true, false, true, false};
  std::vector<double> expected(4);
  const std::vector<OstrandService::RingPoint>& points = ring.Points();
  for (size_t i = 0; i < points.size(); ++i) {
    size_t owner = i;
    while (!usable[points[owner].proxy]) {
      owner = (owner + 1) % points.size();
    }
    expected[points[owner].proxy] += static_cast<double>(ring.View().ArcLength(i)) / kRingLength;
  }
  const std::vector<double> shares = ring.SharesOfUsable(usable);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(shares[i], expected[i], 1e-12) << i;
  }
  EXPECT_EQ(shares[1], 0);
  EXPECT_NEAR(Sum(shares), 1, 1e-12);
  EXPECT_EQ(Sum(ring.SharesOfUsable({false, false, false, false})), 0);
}

TEST(NamedRing, NamesFurtherOwnersInTheOrderOfTheRingEachOnce) {
  const NamedRing ring(Names(5));
  const std::vector<OstrandService::RingPoint>& points = ring.Points();
  for (const uint64_t position : {uint64_t{0}, uint64_t{12345}, points.back().hash_code,
                                  points.back().hash_code + 1, UINT64_MAX}) {
    std::vector<size_t> expected;
    std::set<uint32_t> seen;
    const size_t first = ring.View().IndexAt(position);
    for (size_t step = 0; step < points.size(); ++step) {
      const size_t point = (first + step) % points.size();
      if (seen.insert(points[point].proxy).second) {
        expected.push_back(point);
      }
    }
    ASSERT_EQ(expected.size(), 5u);
    EXPECT_EQ(ring.OwnersFrom(position, 100), expected) << "no more than there are";
    expected.resize(2);
    EXPECT_EQ(ring.OwnersFrom(position, 2), expected);
  }
}

// --- What moves ---

TEST(RingDiff, NothingMovesBetweenARouteAndItself) {
  const RingDiff diff = Compare(NamedRing(Names(7)), NamedRing(Names(7)));
  EXPECT_EQ(diff.moved, 0);
  EXPECT_EQ(diff.least, 0);
  EXPECT_EQ(diff.proxies.size(), 7u);
  EXPECT_EQ(diff.pieces.size(), 700u);
}

TEST(RingDiff, AProxyThatJoinsAtTheEndTakesItsShareAndNothingElseMoves) {
  const RingDiff diff = Compare(NamedRing(Names(8)), NamedRing(Names(9)));
  EXPECT_NEAR(diff.moved, 1.0 / 9, 1e-3);
  EXPECT_NEAR(diff.moved, diff.least, 1e-12);
  EXPECT_NEAR(diff.proxies[8].gained, diff.moved, 1e-12);
  EXPECT_EQ(diff.proxies[8].lost, 0);
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(diff.proxies[i].gained, 0) << i;
  }
}

TEST(RingDiff, EverythingMovesToProxiesThatAreAllNew) {
  const RingDiff diff = Compare(NamedRing({"a", "b"}), NamedRing({"c", "d"}));
  EXPECT_NEAR(diff.moved, 1, 1e-12);
  EXPECT_EQ(diff.proxies.size(), 4u);
}

// The plain computation: positions at random, asked in both rings.
TEST(RingDiff, AgreesWithAskingBothRingsForPositionsAtRandom) {
  const struct {
    Texts before;
    Texts after;
  } kChanges[] = {
      {Names(8), {"p0", "p2", "p3", "p4", "p5", "p6", "p7"}},
      {Names(5), {"p4", "p3", "p2", "p1", "p0"}},
      {Names(3), {"p0", "x", "p1", "y"}},
      {{"only"}, {"only", "two"}},
  };
  for (const auto& change : kChanges) {
    const NamedRing before(change.before);
    const NamedRing after(change.after);
    const RingDiff diff = Compare(before, after);
    std::mt19937_64 random(1);
    constexpr int kTries = 40000;
    int moved = 0;
    for (int i = 0; i < kTries; ++i) {
      const uint64_t position = random();
      moved += before.OwnerOf(position) != after.OwnerOf(position) ? 1 : 0;
    }
    EXPECT_NEAR(diff.moved, static_cast<double>(moved) / kTries, 0.015);

    double gained = 0;
    double lost = 0;
    for (const RingDiff::Proxy& proxy : diff.proxies) {
      EXPECT_NEAR(proxy.new_share - proxy.old_share, proxy.gained - proxy.lost, 1e-12);
      gained += proxy.gained;
      lost += proxy.lost;
    }
    EXPECT_NEAR(gained, diff.moved, 1e-12);
    EXPECT_NEAR(lost, diff.moved, 1e-12);
    EXPECT_LE(diff.least, diff.moved + 1e-12);
  }
}

TEST(RingDiff, PiecesFollowEachOtherAroundTheRing) {
  const RingDiff diff = Compare(NamedRing(Names(3)), NamedRing({"p2", "new", "p1"}));
  uint64_t before = diff.pieces.back().end;
  double total = 0;
  for (const RingPiece& piece : diff.pieces) {
    EXPECT_EQ(piece.before, before);
    before = piece.end;
    total += static_cast<double>(piece.end - piece.before) / kRingLength;
  }
  EXPECT_NEAR(total, 1, 1e-12);
}

}  // namespace
}  // namespace OstrandCli
