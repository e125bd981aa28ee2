// The ring as tools see it, against a plain computation of its own and against a router that lives
// through changes of its route.
#include "service_api/ring_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fakes/keyed_request.h"
#include "service_api/ostrand_router.h"
#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::KeyedRequest;

// --- A plain partition: everything is looked for in a row, the largest first, the oldest of equals
// first ---

struct PlainArc {
  uint64_t length;
  uint64_t ending;
  uint64_t age;
};

struct PlainOwner {
  uint64_t total;
  uint64_t age;
  std::vector<PlainArc> arcs;
};

class PlainRing {
 public:
  explicit PlainRing(size_t proxies) {
    constexpr uint64_t kEvenArc = 0x28F5C28F5C28F5C;
    std::vector<uint64_t> endings(std::begin(OstrandRouter::FIRST_NODE_VIRTUAL_HASH_DATA),
                                  std::end(OstrandRouter::FIRST_NODE_VIRTUAL_HASH_DATA));
    std::sort(endings.begin(), endings.end());
    m_owners.push_back({UINT64_MAX, m_age++, {}});
    for (size_t i = 0; i < endings.size(); ++i) {
      const uint64_t before = endings[i == 0 ? endings.size() - 1 : i - 1];
      m_owners[0].arcs.push_back({endings[i] - before, endings[i], m_age++});
    }
    for (size_t id = 1; id < 200; ++id) {
      const uint64_t step = kEvenArc / (id + 1);
      std::vector<PlainArc> mine;
      for (int cut = 0; cut < 100; ++cut) {
        mine.push_back(CutFromTheRichest(step));
      }
      m_owners.push_back({step * 100, m_age++, mine});
    }
    for (size_t id = 0; id < proxies; ++id) {
      for (const PlainArc& arc : m_owners[id].arcs) {
        points[arc.ending] = static_cast<uint32_t>(id);
      }
    }
  }

  uint32_t OwnerOf(uint64_t position) const {
    const auto found = points.lower_bound(position);
    return found != points.end() ? found->second : points.begin()->second;
  }

  std::map<uint64_t, uint32_t> points;

 private:
  PlainArc CutFromTheRichest(uint64_t step) {
    PlainOwner* richest = &m_owners[0];
    for (PlainOwner& owner : m_owners) {
      if (owner.total > richest->total ||
          (owner.total == richest->total && owner.age < richest->age)) {
        richest = &owner;
      }
    }
    PlainArc* longest = &richest->arcs[0];
    for (PlainArc& arc : richest->arcs) {
      if (arc.length > longest->length ||
          (arc.length == longest->length && arc.age < longest->age)) {
        longest = &arc;
      }
    }
    const PlainArc cut{step, longest->ending - longest->length + step, m_age++};
    longest->length -= step;
    longest->age = m_age++;
    richest->total -= step;
    richest->age = m_age++;
    return cut;
  }

  std::vector<PlainOwner> m_owners;
  uint64_t m_age = 0;
};

TEST(RingView, HasThePointsOfAPlainPartition) {
  constexpr size_t kProxies[] = {1, 2, 3, 8, 57, 200};
  for (const size_t proxies : kProxies) {
    SCOPED_TRACE(proxies);
    const RingView ring(proxies);
    std::map<uint64_t, uint32_t> points;
    uint64_t before = 0;
    for (const RingPoint& point : ring.Points()) {
      EXPECT_TRUE(points.empty() || point.hash_code > before);
      before = point.hash_code;
      points[point.hash_code] = point.proxy;
    }
    EXPECT_EQ(PlainRing(proxies).points, points);
    EXPECT_EQ(100 * proxies, points.size());
  }
}

TEST(RingView, HasNoPointWithoutProxiesAndNoneBehindThe200th) {
  EXPECT_TRUE(RingView(0).Points().empty());
  EXPECT_EQ(20000u, RingView(201).Points().size());
  EXPECT_EQ(20000u, RingView(100000).Points().size());
}

TEST(RingView, GivesAPositionToThePointAtOrBehindItAndWrapsAround) {
  const RingView ring(8);
  const std::vector<RingPoint>& points = ring.Points();
  EXPECT_EQ(5u, ring.IndexAt(points[5].hash_code));
  EXPECT_EQ(6u, ring.IndexAt(points[5].hash_code + 1));
  EXPECT_EQ(0u, points[0].hash_code);
  EXPECT_EQ(0u, ring.IndexAt(0));
  EXPECT_EQ(799u, ring.IndexAt(points[799].hash_code));
  EXPECT_EQ(0u, ring.IndexAt(points[799].hash_code + 1)) << "past the last point";
  EXPECT_EQ(0u, ring.IndexAt(UINT64_MAX));

  const PlainRing plain(8);
  uint64_t random = 88172645463325252u;  // xorshift, Marsaglia 2003
  for (int i = 0; i < 2000; ++i) {
    random ^= random << 13;
    random ^= random >> 7;
    random ^= random << 17;
    EXPECT_EQ(plain.OwnerOf(random), points[ring.IndexAt(random)].proxy) << random;
  }
}

TEST(RingView, ArcsReachBackToThePointBeforeAndFillTheRing) {
  constexpr size_t kProxies[] = {1, 8, 200};
  for (const size_t proxies : kProxies) {
    const RingView ring(proxies);
    uint64_t total = 0;
    int wraps = 0;
    for (size_t i = 0; i < ring.Points().size(); ++i) {
      total += ring.ArcLength(i);
      wraps += total < ring.ArcLength(i) ? 1 : 0;
    }
    EXPECT_EQ(0u, total) << proxies;
    EXPECT_EQ(1, wraps) << "2^64, no more and no less";
    EXPECT_EQ(0 - ring.Points().back().hash_code, ring.ArcLength(0)) << "across the start";
  }
}

// --- Keys ---

// The ring's hash written out plainly: MurmurHash64A but for the order of the two steps with h.
uint64_t PlainHash(const std::string& bytes) {
  constexpr uint64_t kM = 0xC6A4A7935BD1E995;
  uint64_t h = (bytes.size() * kM) ^ 0x12DD273;
  size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    uint64_t k = 0;
    std::memcpy(&k, bytes.data() + i, 8);
    k *= kM;
    k ^= k >> 47;
    k *= kM;
    h *= kM;
    h ^= k;
  }
  if (i < bytes.size()) {
    for (size_t j = i; j < bytes.size(); ++j) {
      h ^= uint64_t{static_cast<unsigned char>(bytes[j])} << (8 * (j - i));
    }
    h *= kM;
  }
  h ^= h >> 47;
  h *= kM;
  return h ^ (h >> 47);
}

TEST(RingView, PlacesAKeyByItsBytesWhateverTheOrderOfItsFields) {
  const RingView ring(8);
  KeyedRequest one(ostrand_protocol_cs::OSTRAND_API_GET_REQ, {{"uid", "abcdefgh"}});
  EXPECT_EQ(0x38D5B4DB2C158710u, ring.PositionOf(one)) << "one block";
  EXPECT_EQ(PlainHash("abcdefgh"), ring.PositionOf(one));

  // The bytes of the fields in descending order of the names.
  const uint64_t expected = PlainHash(
      "1.2-3"
      "zlib1g");
  KeyedRequest in_order(ostrand_protocol_cs::OSTRAND_API_GET_REQ,
                        {{"version", "1.2-3"}, {"package", "zlib1g"}});
  KeyedRequest other_order(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ,
                           {{"package", "zlib1g"}, {"version", "1.2-3"}});
  EXPECT_EQ(expected, ring.PositionOf(in_order));
  EXPECT_EQ(expected, ring.PositionOf(other_order));
}

TEST(RingView, PlacesTheLongestKeyThereIs) {
  const RingView ring(2);
  const std::string bytes(1024, 'x');
  KeyedRequest request(ostrand_protocol_cs::OSTRAND_API_GET_REQ, {{"a", bytes},
                                                                  {"b", bytes},
                                                                  {"c", bytes},
                                                                  {"d", bytes},
                                                                  {"e", bytes},
                                                                  {"f", bytes},
                                                                  {"g", bytes},
                                                                  {"h", bytes}});
  EXPECT_EQ(PlainHash(std::string(8 * 1024, 'x')), ring.PositionOf(request));
}

// --- Order of the list ---

class RingViewOrderTest : public RouterUpdateTest {
 protected:
  // The directory answers a route; all its proxies connect and sign up; the router switches.
  void Change(const Texts& urls) {
    ASSERT_EQ(0, Flush(urls));
    for (List* list : {in_use, preparing}) {
      for (ProxyServer* record : RecordsIn(list)) {
        mgr.At(record->connector->GetURL()).SetStatus(OSTRNET::CConnector::STATUS_CONNECTED);
        record->auth_succeed = true;
        record->last_auth_result = 0;
      }
    }
    Update(m_now += 1000);
  }

  int64_t m_now = kNow;
};

TEST_F(RingViewOrderTest, IsTheOneThatARouterHasBehindEachChange) {
  const Texts kRoutes[] = {{kA, kB, kC}, {kD, kC, kA, kB}, {kB, kE, kA},    {kF, kB},
                           {kA, kC},     {kC, kA},         {kA, kD, kB, kC}};
  Texts expected;
  for (const Texts& route : kRoutes) {
    Change(route);
    expected = RingView::OrderAfterChange(expected, route);
    EXPECT_EQ(expected, UrlsIn(in_use));

    // And the router's ring is the view's.
    const RingView ring(expected.size());
    ASSERT_EQ(ring.Points().size(), peer->m_virtual_node_count());
    for (size_t i = 0; i < ring.Points().size(); ++i) {
      const VirtualServerNode& node = peer->m_virtual_nodes()[i];
      ASSERT_EQ(node.hash_code, ring.Points()[i].hash_code);
      ASSERT_EQ(node.server->connector->GetURL(), expected[ring.Points()[i].proxy]);
    }
  }
}

TEST(RingView, OrderKeepsThoseThatStayAndAppendsTheOthersInTheirOwnOrder) {
  EXPECT_EQ(Texts({kC, kA}), RingView::OrderAfterChange({}, {kC, kA}));
  EXPECT_EQ(Texts({kA, kB, kD, kC}), RingView::OrderAfterChange({kA, kB}, {kD, kB, kC, kA}));
  EXPECT_EQ(Texts({kA, kC}), RingView::OrderAfterChange({kA, kB, kC}, {kC, kA}));
  EXPECT_EQ(Texts({kA, kB}), RingView::OrderAfterChange({}, {kA, kB, kA})) << "a url counts once";
}

}  // namespace
}  // namespace OstrandService
