// Routes that change while requests are in flight: none is lost, none is answered wrongly. Routes
// that are nonsense: the last good one stays, and a line in the log says why.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "integration/integration_kit.h"
#include "protocol/ostrand_dir.h"

namespace OstrandTests {
namespace {

using ostrand_protocol_dir::tagResGetTablesAndAccess;

class RouteChanges : public RuntimeTest {
 protected:
  // The load goes on until the directory was asked so many times more.
  bool RunRounds(uint64_t rounds, size_t window = 64) {
    const uint64_t wanted = m_fleet->CountersOfDirectory().requests + rounds;
    return m_work->RunUntil([&] { return m_fleet->CountersOfDirectory().requests >= wanted; },
                            window);
  }
  void ExpectNothingLost() {
    ASSERT_TRUE(m_work->Drain());
    EXPECT_EQ(m_work->tally().timed_out, 0u);
    EXPECT_EQ(m_work->tally().failed, 0u);
    EXPECT_EQ(m_work->tally().Refused(), 0u);
  }
};

TEST_F(RouteChanges, FlapsBetweenTwoSetsUnderLoad) {
  StartFleet(6);
  const auto urls = m_fleet->ProxyUrls();
  const std::vector<std::string> sets[] = {{urls[0], urls[1], urls[2], urls[3]},
                                           {urls[2], urls[3], urls[4], urls[5]}};
  m_fleet->SetRoute(kZone, sets[0]);
  auto options = Options();
  options.directory_refresh_ms = 5;
  StartClient(options);
  for (int i = 1; i <= 40; ++i) {
    m_fleet->SetRoute(kZone, sets[i % 2]);
    ASSERT_TRUE(RunRounds(3)) << i;
  }
  EXPECT_GT(m_fleet->Counters(5).table_requests, 0u);
  ExpectNothingLost();
}

// As many changes as a day has with one every five minutes, at no more than a few milliseconds
// each; the clock hurries so that proxies that left are let go on the way.
TEST_F(RouteChanges, ADayOfThem) {
  constexpr int kChanges = 288;
  WarpedClock clock(30);
  StartFleet(8);
  const auto urls = m_fleet->ProxyUrls();
  auto options = Options();
  options.directory_refresh_ms = 1;
  options.default_timeout_ms = 3600 * 1000;
  options.heartbeat_ms = 5000;
  options.check_heartbeat_ms = 3600 * 1000;
  StartClient(options);
  uint32_t random = 1;
  for (int i = 0; i < kChanges; ++i) {
    std::vector<std::string> route;
    for (const std::string& url : urls) {
      random = random * 1664525 + 1013904223;
      if ((random >> 24) % 2 == 0) {
        route.push_back(url);
      }
    }
    m_fleet->SetRoute(kZone, route.empty() ? urls : route);
    ASSERT_TRUE(RunRounds(1, 16)) << i;
  }
  ExpectNothingLost();
  EXPECT_TRUE(m_work->Run(1000));
}

TEST_F(RouteChanges, AProxyThatReturnsWhileItIsDrainedServesAgain) {
  StartFleet(3);
  const auto urls = m_fleet->ProxyUrls();
  StartClient();
  for (int i = 0; i < 5; ++i) {
    m_fleet->SetRoute(kZone, {urls[0], urls[1]});
    ASSERT_TRUE(RunRounds(3));
    m_fleet->SetRoute(kZone, urls);
    const uint64_t before = m_fleet->Counters(2).table_requests;
    ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(2).table_requests > before; }));
  }
  EXPECT_EQ(m_fleet->Counters(2).connections_accepted, 1u);
  ExpectNothingLost();
}

// The answers to what was sent before the change come from a proxy that is out of the route by
// then.
TEST_F(RouteChanges, AnswersOfAProxyThatLeftStillCount) {
  StartFleet(3);
  const auto urls = m_fleet->ProxyUrls();
  StartClient();
  ASSERT_TRUE(m_work->Run(200));
  SetFaults(2, [](OstrandFleet::ProxyFaults& faults) { faults.delay_ms = 300; });
  ASSERT_TRUE(RunRounds(1));
  m_fleet->SetRoute(kZone, {urls[0], urls[1]});
  ASSERT_TRUE(RunRounds(3));
  ExpectNothingLost();
}

// Two that live and 198 new ones that never do, each round.
TEST_F(RouteChanges, TwoHundredNewAddressesEachRound) {
  WarpedClock clock(50);
  StartFleet(2);
  const auto urls = m_fleet->ProxyUrls();
  auto options = Options();
  options.directory_refresh_ms = 5;
  options.default_timeout_ms = 3600 * 1000;
  options.heartbeat_ms = 5000;
  options.check_heartbeat_ms = 3600 * 1000;
  StartClient(options);
  ASSERT_TRUE(m_work->Run(200));
  const size_t descriptors = CountEntries("/proc/self/fd");
  for (int round = 0; round < 8; ++round) {
    std::vector<std::string> route = urls;
    for (int i = 0; route.size() < 200; ++i) {
      route.push_back("tcp://127.1." + std::to_string(round) + "." + std::to_string(i + 1) + ":9");
    }
    m_fleet->SetRoute(kZone, route);
    ASSERT_TRUE(RunRounds(3)) << round;
  }
  ASSERT_TRUE(m_work->Run(500));
  m_fleet->SetRoute(kZone, urls);
  ASSERT_TRUE(RunRounds(3));
  ExpectNothingLost();
  // Those that left are gone a minute later.
  clock.Jump(61000);
  ASSERT_TRUE(RunRounds(3));
  EXPECT_LE(CountEntries("/proc/self/fd"), descriptors + 2);
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
}

TEST_F(RouteChanges, ToProxiesOfWhichNoneCanBeReachedIsNotMade) {
  StartFleet(2);
  StartClient();
  m_fleet->SetRoute(kZone, std::vector<std::string>{"tcp://127.0.0.1:9", "tcp://127.1.1.1:9"});
  ASSERT_TRUE(RunRounds(5));
  ExpectNothingLost();
}

// --- Routes that are nonsense ---

struct Nonsense {
  const char* name;
  void (*edit)(tagResGetTablesAndAccess& answer);
  const char* log;  // a part of the line that says why
};

class NonsensicalRoutes : public RouteChanges, public testing::WithParamInterface<Nonsense> {};

TEST_P(NonsensicalRoutes, LeaveTheLastGoodOneInPlace) {
  StartFleet(3);
  StartClient();
  ASSERT_TRUE(m_work->Run(200));
  m_fleet->SetDirectoryEdit(GetParam().edit);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged(GetParam().log); }))
      << m_logger.Texts().size();
  ASSERT_TRUE(m_work->Run(500));
  ExpectNothingLost();
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(m_fleet->Counters(i).connections_accepted, 1u);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, NonsensicalRoutes,
    testing::Values(
        Nonsense{"CountNegative", [](auto& answer) { answer.iAccessCount = -1; },
                 "answer refused: result 0, application 7 (ours 7), zone 1 (asked for 1), "
                 "proxies -1"},
        Nonsense{"CountZero", [](auto& answer) { answer.iAccessCount = 0; }, "proxies 0"},
        Nonsense{"CountSmallest", [](auto& answer) { answer.iAccessCount = INT32_MIN; },
                 "proxies -2147483648"},
        Nonsense{"Count250", [](auto& answer) { answer.iAccessCount = 250; },
                 "250 proxies, only the first 200 are used"},
        Nonsense{"CountLargest", [](auto& answer) { answer.iAccessCount = INT32_MAX; },
                 "2147483647 proxies, only the first 200 are used"},
        Nonsense{"RowsWithoutEnd",
                 [](auto& answer) {
                   std::memset(answer.aszAccessUrlList, 'x', sizeof(answer.aszAccessUrlList));
                   std::memset(answer.aszAccessIdList, 'x', sizeof(answer.aszAccessIdList));
                   answer.iAccessCount = 200;
                 },
                 "zone 1 has no usable proxy"},
        Nonsense{"ADuplicate",
                 [](auto& answer) {
                   std::memcpy(answer.aszAccessUrlList[3], answer.aszAccessUrlList[0], 64);
                   answer.iAccessCount = 4;
                 },
                 "proxy row 3 left out"},
        Nonsense{"AnEmptyRowInFront",
                 [](auto& answer) {
                   std::memmove(answer.aszAccessUrlList[1], answer.aszAccessUrlList[0], 3 * 64);
                   std::memset(answer.aszAccessUrlList[0], 0, 64);
                   answer.iAccessCount = 4;
                 },
                 "proxy row 0 left out"},
        Nonsense{"ARowThatIsNoAddress",
                 [](auto& answer) {
                   std::memcpy(answer.aszAccessUrlList[3], "tcp://300.0.0.1:99999", 22);
                   answer.iAccessCount = 4;
                 },
                 "\"tcp://300.0.0.1:99999\" is not of the form"},
        Nonsense{"OtherApplication", [](auto& answer) { answer.iAppID = 8; }, "application 8"},
        Nonsense{"OtherZone", [](auto& answer) { answer.iZoneID = 2; }, "zone 2 (asked for 1)"},
        Nonsense{"AFailure", [](auto& answer) { answer.iResult = -5; }, "result -5"},
        Nonsense{"WildTables",
                 [](auto& answer) {
                   answer.iTableCount = INT32_MAX;
                   std::memset(answer.aszTableNameList, 'x', sizeof(answer.aszTableNameList));
                   answer.iAccessCount = 0;
                 },
                 "proxies 0"}),
    [](const testing::TestParamInfo<Nonsense>& test) { return test.param.name; });

// Whatever stands in an answer: here, any bytes, behind what makes it an answer at all.
TEST_F(RouteChanges, AnswersOfRandomBytesDoNoHarm) {
  StartFleet(3);
  StartClient();
  uint32_t random = 5;
  m_fleet->SetDirectoryEdit([&random](tagResGetTablesAndAccess& answer) {
    auto* const bytes = reinterpret_cast<unsigned char*>(&answer);
    for (size_t i = 0; i < sizeof(answer); ++i) {
      random = random * 1664525 + 1013904223;
      bytes[i] = static_cast<unsigned char>(random >> 24);
    }
    answer.iResult = 0;
    answer.iAppID = static_cast<int32_t>(kAppId);
    answer.iZoneID = kZone;
    answer.iAccessCount = static_cast<int32_t>(random % 300);
    if (random % 2 == 0) {  // among them a proxy that could be
      std::memcpy(answer.aszAccessUrlList[0], "tcp://127.0.0.1:9", 18);
    }
  });
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged("has no usable proxy"); }));
  ASSERT_TRUE(m_work->Run(1000));
  ExpectNothingLost();
}

}  // namespace
}  // namespace OstrandTests
