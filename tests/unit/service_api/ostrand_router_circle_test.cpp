// Writing the ring from its partition.
//
// The expected rings and coverages were computed by a separate program; what depends on them alone
// (order, who is left out, what is kept on failure) is checked with partitions written by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "fakes/lock_probe.h"
#include "unit/service_api/router_circle_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::FakeClock;
using OstrandFakes::IsHeld;

// Numbers folded into one: FNV-1a over 64-bit words.
class Digest {
 public:
  void Add(uint64_t word) { m_digest = (m_digest ^ word) * 0x100000001B3; }
  void Add(const std::string& text) {
    for (const char c : text) {
      Add(static_cast<uint64_t>(static_cast<unsigned char>(c)));
    }
  }
  uint64_t value() const { return m_digest; }

 private:
  uint64_t m_digest = 0xCBF29CE484222325;
};

// --- The written ring ---

TEST_F(RouterCircleTest, IsAsComputedElsewhere) {
  const struct {
    int proxies;
    size_t points;
    uint64_t ring;             // of position, number of every point in order
    Point middle;              // the point in the middle
    Point last;                // the last point
    uint64_t coverage;         // of every coverage line, each with a line feed behind it
    const char* first_covers;  // the first coverage line
  } kCases[] = {
      {1,
       100,
       0x600836307E9B2447,
       {0x85C075E09FFEE038, 0},
       {0xFC7AAE114F95BAD5, 0},
       0xCD3C50C81E70BBDC,
       "server tcp://10.0.0.1:8000|18446744073709551615 covers 100.00%"},
      {2,
       200,
       0x0114F2AA59827E59,
       {0x7C1B64EBD57CD0BF, 1},
       {0xFDC25C25CA770283, 1},
       0x17041729232CF1B9,
       "server tcp://10.0.0.1:8000|9223372036854775816 covers 50.00%"},
      {3,
       300,
       0xCA7888ECF9065A53,
       {0x7DBF39815D9577C7, 0},
       {0xFE9CD03371B7DCF7, 2},
       0x5B099C2D7BF98137,
       "server tcp://10.0.0.1:8000|6148914691236517216 covers 33.33%"},
      {10,
       1000,
       0x5610D6C681A74B89,
       {0x818FD6BB7ACDF9CF, 1},
       {0xFFADE14482C8EE08, 5},
       0x43F98A4CA7D21428,
       "server tcp://10.0.0.10:8000|1844674407370955100 covers 10.00%"},
      {50,
       5000,
       0xA333BE6B99DEC3BF,
       {0x802DE4CF7191E63F, 22},
       {0xFFF8F9293447391F, 31},
       0x63D120AC1AE03BD7,
       "server tcp://10.0.0.10:8000|368397662212964666 covers 2.00%"},
      {199,
       19900,
       0x6F5D052B4EA601DF,
       {0x7FB651BD3B00AD4A, 102},
       {0xFFFC88F7570152F1, 183},
       0x48430971AFD3EF11,
       "server tcp://10.0.0.100:8000|92713212260042021 covers 0.50%"},
      {200,
       20000,
       0xD322EA36C0C4F0CE,
       {0x7FCD953C5D2AD2EE, 162},
       {0xFFFC88F7570152F1, 183},
       0x99F99B26423FF878,
       "server tcp://10.0.0.100:8000|91790875056356544 covers 0.50%"},
      {201,
       20000,
       0xD322EA36C0C4F0CE,
       {0x7FCD953C5D2AD2EE, 162},
       {0xFFFC88F7570152F1, 183},
       0x99F99B26423FF878,
       "server tcp://10.0.0.100:8000|91790875056356544 covers 0.50%"},
  };
  int in_list = 0;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.proxies);
    while (in_list < c.proxies) {
      AddProxy(in_use, Url(++in_list));
    }
    Write();
    const Points ring = Ring();
    ASSERT_EQ(c.points, ring.size());
    EXPECT_EQ(Point(0, 0), ring.front());
    EXPECT_EQ(c.middle, ring[c.points / 2]);
    EXPECT_EQ(c.last, ring.back());
    Digest digest;
    for (const auto& [position, number] : ring) {
      digest.Add(position);
      digest.Add(static_cast<uint64_t>(number));
    }
    EXPECT_EQ(c.ring, digest.value());

    const std::vector<std::string> coverage = CoverageLines();
    ASSERT_EQ(static_cast<size_t>(std::min(c.proxies, 200)), coverage.size());
    EXPECT_EQ(c.first_covers, coverage.front());
    Digest covered;
    for (const std::string& line : coverage) {
      covered.Add(line + "\n");
    }
    EXPECT_EQ(c.coverage, covered.value());
  }
}

TEST_F(RouterCircleTest, ReadsAsATable) {
  Use(3);
  Write();
  const Points ring = Ring();
  const Points kFirst = {{0x0000000000000000, 0}, {0x00DA740DA740DA74, 2}, {0x0147AE147AE147AE, 1},
                         {0x028F5C28F5C28F5C, 1}, {0x0369D0369D0369D0, 2}, {0x04A992344765123E, 0}};
  EXPECT_EQ(kFirst, Points(ring.begin(), ring.begin() + 6));
}

TEST_F(RouterCircleTest, AscendsStrictlyAndGivesEachProxyTheEndingsOfItsPositionInTheList) {
  for (const int added : {1, 1, 1, 47, 149, 1, 1}) {
    const int before = static_cast<int>(in_use->GetUsed());
    for (int i = 1; i <= added; ++i) {
      AddProxy(in_use, Url(before + i));
    }
    Write();
    SCOPED_TRACE(in_use->GetUsed());
    const Points ring = Ring();
    std::map<int, std::vector<uint64_t>> endings;
    for (size_t k = 0; k < ring.size(); ++k) {
      if (k > 0) {
        ASSERT_LT(ring[k - 1].first, ring[k].first) << k;
      }
      endings[ring[k].second].push_back(ring[k].first);
    }
    for (auto& [number, of_proxy] : endings) {
      std::vector<uint64_t> expected;
      for (const auto& [length, ending] : peer->m_len2ending()[number]) {
        expected.push_back(ending);
      }
      std::sort(expected.begin(), expected.end());
      ASSERT_EQ(expected, of_proxy) << number;
    }
  }
}

TEST_F(RouterCircleTest, NumbersProxiesByTheirPositionInTheListAndByNothingElse) {
  AddProxy(in_use, Url(2));
  AddProxy(in_use, Url(1));
  peer->m_all_servers() = {{Url(1), 0}, {Url(2), 1}};
  Write();
  EXPECT_EQ(Proxy(2), peer->m_virtual_nodes()[0].server);
  EXPECT_EQ(Proxy(1), peer->m_virtual_nodes()[1].server);
  const std::string one_way = server.reports().back().second;

  in_use->PopFront();  // The record goes behind the other one.
  AppendNode(in_use, Url(2), peer->m_virtual_nodes()[0].server);
  Write();
  EXPECT_EQ(Proxy(1), peer->m_virtual_nodes()[0].server) << "another order, another ring";
  EXPECT_EQ(Proxy(2), peer->m_virtual_nodes()[1].server);
  EXPECT_EQ(one_way, server.reports().back().second) << "but the same fingerprint";
}

TEST_F(RouterCircleTest, LeavesNobodyOutForItsState) {
  Use(3);
  AddReadyProxy(in_use, Url(4));
  Proxy(2)->is_available = false;
  Proxy(3)->last_auth_result = 1;
  Write();
  std::map<int, int> points;
  for (const auto& [position, number] : Ring()) {
    ++points[number];
  }
  EXPECT_EQ((std::map<int, int>{{0, 100}, {1, 100}, {2, 100}, {3, 100}}), points);
}

TEST_F(RouterCircleTest, GivesPointsToAnElementWithoutServer) {
  Use(1);
  AppendNode(in_use, Url(2), nullptr);
  Write();
  const Points ring = Ring();
  ASSERT_EQ(200U, ring.size());
  EXPECT_EQ(Point(0x0147AE147AE147AE, -1), ring[1]);
  EXPECT_EQ(nullptr, peer->m_virtual_nodes()[1].server);
}

TEST_F(RouterCircleTest, SortsWhatTheBucketsHold) {
  Use(2);
  Partition({{30, kFull, 10}, {20, 0}});
  Write();
  EXPECT_EQ(Points({{0, 1}, {10, 0}, {20, 1}, {30, 0}, {kFull, 0}}), Ring());
}

TEST_F(RouterCircleTest, RewritesInPlace) {
  Use(2);
  Partition({{10, 30}, {20, 40}});
  Write();
  ProxyServer* second = Proxy(2);
  Partition({{5}, {}});
  Write();
  EXPECT_EQ(Points({{5, 0}}), Ring());
  EXPECT_EQ(20U, peer->m_virtual_nodes()[1].hash_code) << "what lies behind the count stays";
  EXPECT_EQ(second, peer->m_virtual_nodes()[1].server);
  EXPECT_EQ(40U, peer->m_virtual_nodes()[3].hash_code);
}

// A stale index finds the same points, only slower.
TEST_F(RouterCircleTest, BuildsTheIndexOfTheNewRing) {
  static_assert(std::is_trivially_copyable<RingIndex>::value, "compared by its bytes");
  const auto expected = std::make_unique<RingIndex>();
  for (const int added : {1, 4, 45, 151}) {
    for (int i = 0; i < added; ++i) {
      AddProxy(in_use, Url(static_cast<int>(in_use->GetUsed()) + 1));
    }
    Write();
    expected->Build(peer->m_virtual_nodes(), peer->m_virtual_node_count());
    EXPECT_EQ(
        0, std::memcmp(static_cast<const void*>(expected.get()),
                       static_cast<const void*>(&peer->m_virtual_node_index()), sizeof(RingIndex)))
        << in_use->GetUsed();
  }
}

TEST_F(RouterCircleTest, RemembersWhen) {
  Use(1);
  EXPECT_EQ(0, peer->m_last_flush_hash_circle_time());
  clock.AdvanceMs(1234);
  Write();
  EXPECT_EQ(FakeClock::kStartMs + 1234, peer->m_last_flush_hash_circle_time());
}

// --- The capacity ---

TEST_F(RouterCircleTest, StopsAtTheCapacityAndDoesNotLookAtTheRest) {
  Use(203);
  Write();
  EXPECT_EQ(20000U, peer->m_virtual_node_count());
  EXPECT_EQ(200U, LinesThatBegin("avaliable ").size());
  EXPECT_EQ(1000U, LinesThatBegin("url_num[").size());
}

TEST_F(RouterCircleTest, StopsInTheMiddleOfABucket) {
  Use(200);
  for (uint64_t extra = 1; extra <= 98; ++extra) {
    peer->m_len2ending()[0].emplace(1, extra);
  }
  Write();
  std::map<int, int> points;
  for (const auto& [position, number] : Ring()) {
    ++points[number];
  }
  EXPECT_EQ(20000U, peer->m_virtual_node_count());
  EXPECT_EQ(198, points[0]);
  EXPECT_EQ(100, points[198]);
  EXPECT_EQ(2, points[199]);
  EXPECT_EQ(2U, LinesThatBegin("url_num[" + Url(200) + "]").size());
  std::vector<uint64_t> of_last;
  for (const auto& [position, number] : Ring()) {
    if (number == 199) {
      of_last.push_back(position);
    }
  }
  std::vector<uint64_t> longest = {peer->m_len2ending()[199].begin()->second,
                                   std::next(peer->m_len2ending()[199].begin())->second};
  std::sort(longest.begin(), longest.end());
  EXPECT_EQ(longest, of_last) << "the longest arcs come first";
}

TEST_F(RouterCircleTest, GivesNothingToPositionsFrom200On) {
  Use(202);
  peer->m_len2ending()[7].clear();
  Write();
  EXPECT_EQ(19900U, peer->m_virtual_node_count());
  const std::vector<std::string> looked_at = LinesThatBegin("avaliable ");
  ASSERT_EQ(202U, looked_at.size());
  EXPECT_EQ(
      "avaliable server_url:" + Url(8) + ", m_virtual_node_count: 700, m_len2ending[7].size(): 0",
      looked_at[7]);
  EXPECT_EQ("avaliable server_url:" + Url(201) +
                ", m_virtual_node_count: 19900, m_len2ending[200].size(): 0",
            looked_at[200]);
  EXPECT_EQ("avaliable server_url:" + Url(202) +
                ", m_virtual_node_count: 19900, m_len2ending[201].size(): 0",
            looked_at[201]);
}

// --- Nothing to write ---

TEST_F(RouterCircleTest, KeepsTheOldRingWhenTheListIsEmpty) {
  Use(1);
  Partition({{10, 20}});
  Write();
  const int64_t written = peer->m_last_flush_hash_circle_time();
  clock.AdvanceMs(1);
  const VirtualServerNode first = peer->m_virtual_nodes()[0];
  const RealServerNode node = *static_cast<RealServerNode*>(in_use->Front());
  in_use->PopFront();
  Write();
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "WriteHashCircle",
                    "Begin to WriteHashCircle. m_using_servers.Count()=0"},
                   {OSTRAND_LOG_LEVEL_ERROR, "WriteHashCircle",
                    "skip WriteHashCircle. m_using_servers.Count()=0"}}),
            logger.Lines());
  EXPECT_EQ(2U, peer->m_virtual_node_count());
  EXPECT_EQ(first.hash_code, peer->m_virtual_nodes()[0].hash_code);
  EXPECT_EQ(first.server, peer->m_virtual_nodes()[0].server);
  EXPECT_EQ(written, peer->m_last_flush_hash_circle_time());
  EXPECT_EQ(1U, server.reports().size()) << "only that of the first write";
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
  AppendNode(in_use, node.server_url, node.server);  // Somebody has to release it.
}

TEST_F(RouterCircleTest, KeepsTheOldRingWhenNobodyHasAnArc) {
  Use(2);
  Partition({{10, 20}, {15}});
  Write();
  const int64_t written = peer->m_last_flush_hash_circle_time();
  const Points before = Ring();
  clock.AdvanceMs(1);
  Partition({});
  Write();
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_DEBUG, "WriteHashCircle",
                    "Begin to WriteHashCircle. m_using_servers.Count()=2"},
                   {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle",
                    "avaliable server_url:tcp://10.0.0.1:8000, m_virtual_node_count: 0, "
                    "m_len2ending[0].size(): 0"},
                   {OSTRAND_LOG_LEVEL_TRACE, "WriteHashCircle",
                    "avaliable server_url:tcp://10.0.0.2:8000, m_virtual_node_count: 0, "
                    "m_len2ending[1].size(): 0"},
                   {OSTRAND_LOG_LEVEL_ERROR, "WriteHashCircle",
                    "m_virtual_node_count 0, use virtual_nodes_bak 3"}}),
            logger.Lines());
  EXPECT_EQ(before, Ring());
  EXPECT_EQ(written, peer->m_last_flush_hash_circle_time());
  EXPECT_EQ(1U, server.reports().size());
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
}

// --- ConHashGetUrlIndex ---

TEST_F(RouterCircleTest, FindsTheNumberOfAUrl) {
  peer->m_all_servers() = {{Url(1), 0}, {Url(2), 7}};
  EXPECT_EQ(0, peer->ConHashGetUrlIndex(Url(1).c_str()));
  EXPECT_EQ(7, peer->ConHashGetUrlIndex(Url(2).c_str()));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterCircleTest, TellsWhichUrlHasNoNumber) {
  peer->m_all_servers() = {{Url(1), 0}, {Url(2), 7}};
  EXPECT_EQ(-1, peer->ConHashGetUrlIndex("tcp://10.0.0.1:800"));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "ConHashGetUrlIndex",
                    "can not find tcp://10.0.0.1:800 in m_all_servers(2)"}}),
            logger.Lines());
  logger.Clear();
  peer->m_all_servers().clear();
  EXPECT_EQ(-1, peer->ConHashGetUrlIndex(""));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "ConHashGetUrlIndex", "can not find  in m_all_servers(0)"}}),
      logger.Lines());
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr));
  EXPECT_EQ(-1, peer->ConHashGetUrlIndex("tcp://10.0.0.1:800")) << "also without a logger";
}

TEST_F(RouterCircleTest, ThrowsForTheNumberOfANullUrl) {
  EXPECT_THROW(peer->ConHashGetUrlIndex(nullptr), std::logic_error);
}

}  // namespace
}  // namespace OstrandService
