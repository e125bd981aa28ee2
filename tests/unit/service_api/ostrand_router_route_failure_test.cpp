// Route changes that cannot be made: where they stop, what they leave behind; and what every change
// does under which lock.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_route_change_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::DirectoryAnswer;
using OstrandFakes::LogLine;

using Index = std::map<std::string, int32_t>;

constexpr int kArgument = -1811;
constexpr int kAllocation = -9747;
constexpr int kNoLogger = -1;

// --- Failures ---

TEST_F(RouteChangeTest, StopsWhereTheRemovingListIsFull) {
  ASSERT_EQ(0, Flush({kC, kD}));
  FillUp(removing);
  const auto before = Now();
  clock.AdvanceMs(1000);
  StartOver();
  EXPECT_EQ(kAllocation, Flush({kE}));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                    std::string("list->PushBack failed. server_url:") + kC}}),
            LinesButIndex());
  EXPECT_EQ(before.records, Now().records) << "all records stay where they were";
  EXPECT_EQ(Texts({kC, kD}), UrlsIn(preparing));
  EXPECT_EQ(clock.Ms(), peer->m_last_flush_route_time());
  EXPECT_EQ(Index({{kE, 0}}), peer->m_all_servers());
  EXPECT_EQ(4U, mgr.live_count());
  EXPECT_FALSE(ListIsLocked());
}

TEST_F(RouteChangeTest, KeepsWhatWasParkedBeforeTheRemovingListWasFull) {
  ASSERT_EQ(0, Flush({kC, kD}));
  FillUp(removing);
  removing->PopBack();
  EXPECT_EQ(kAllocation, Flush({kE}));
  EXPECT_EQ(Texts({kD}), UrlsIn(preparing));
  EXPECT_EQ(kC, UrlsIn(removing).back());
  EXPECT_EQ(4U, mgr.live_count());
}

// A full list of one url, which every route here has.
TEST_F(RouteChangeTest, StopsWhereThePreparingListIsFull) {
  const struct {
    const char* what;
    const char* url;
    bool creates;
  } kCases[] = {{"in use", kA, false}, {"being removed", kC, false}, {"new", kD, true}};
  ProxyServer* parked = Park(kC);
  for (uint32_t i = 0; i < 1024; ++i) {
    AppendNode(preparing, kE, nullptr);
  }
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    StartOver();
    EXPECT_EQ(kAllocation, Flush({kE, c.url, kF}));
    std::vector<LogLine> expected = Lines({Exists(kE)});
    if (c.creates) {
      expected.push_back(Lines({Created(c.url)})[0]);
    }
    expected.push_back(Line(OSTRAND_LOG_LEVEL_ERROR, "AddServerNode",
                            std::string("list->PushBack failed. server_url:") + c.url));
    EXPECT_EQ(expected, LinesButIndex()) << "nothing about what is behind it";
    EXPECT_EQ(3U, mgr.live_count()) << "what was created is gone again";
    EXPECT_EQ(a, ServerAt(in_use, kA));
    EXPECT_EQ(parked, ServerAt(removing, kC)) << "it stays where it was";
    EXPECT_FALSE(ListIsLocked());
  }
}

// Whoever is in the new route may take requests again, prepared or not.
TEST_F(RouteChangeTest, ForgivesAProxyAlsoWhenItCannotBePrepared) {
  constexpr int32_t kRefused = -6413;
  ProxyServer* parked = Park(kC);
  for (uint32_t i = 0; i < 1024; ++i) {
    AppendNode(preparing, kE, nullptr);
  }
  ProxyServer* const records[] = {a, b, parked};
  const struct {
    const char* url;
    ProxyServer* forgiven;
  } kCases[] = {{kA, a}, {kC, parked}};
  for (const auto& c : kCases) {
    for (ProxyServer* record : records) {
      record->last_auth_result = kRefused;
    }
    EXPECT_EQ(kAllocation, Flush({kE, c.url, kB}));
    for (ProxyServer* record : records) {
      EXPECT_EQ(record == c.forgiven ? 0 : kRefused, record->last_auth_result) << c.url;
    }
  }
}

TEST_F(RouteChangeTest, ForgivesWhatIsPreparedAlsoWhenAnotherCannotBeParked) {
  constexpr int32_t kRefused = -6413;
  ASSERT_EQ(0, Flush({kC, kD, kE}));
  ProxyServer* const kept = ServerAt(preparing, kC);
  ProxyServer* const left = ServerAt(preparing, kD);
  ProxyServer* const behind = ServerAt(preparing, kE);
  for (ProxyServer* record : {kept, left, behind}) {
    record->last_auth_result = kRefused;
  }
  FillUp(removing);
  EXPECT_EQ(kAllocation, Flush({kC, kE}));
  EXPECT_EQ(0, kept->last_auth_result);
  EXPECT_EQ(kRefused, left->last_auth_result);
  EXPECT_EQ(kRefused, behind->last_auth_result) << "not reached";
}

TEST_F(RouteChangeTest, StopsAtANewProxyThatCannotBeAdded) {
  const struct {
    const char* what;
    std::string url;
    int failing_creation;
    int code;
    std::string text;
  } kCases[] = {
      {"no connector", kD, 1, kAllocation,
       std::string("m_connector_mgr->CreateConnector failed. errmsg:no socket server_url:") + kD},
      {"url too short", "tcp://a:10", 0, kArgument,
       "Check string length failed. server_url:tcp://a:10 server_url_len:10 expect_name_len:(10, "
       "1024)"},
      {"no url", "", 0, kArgument,
       "Check string length failed. server_url: server_url_len:0 expect_name_len:(10, 1024)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    preparing->Clear();  // Only A is in it, and in use as well.
    mgr.FailCreation(c.failing_creation, "no socket");
    clock.AdvanceMs(1000);
    StartOver();
    EXPECT_EQ(c.code, Flush({kA, c.url, kB}));
    EXPECT_EQ(Lines({Added(kA, "id0"),
                     CopiedFromUsing(kA, "id0"),
                     {OSTRAND_LOG_LEVEL_ERROR, "AddServerNode", c.text}}),
              LinesButIndex());
    EXPECT_EQ(Texts({kA}), UrlsIn(preparing)) << "what was prepared before stays";
    EXPECT_EQ(clock.Ms(), peer->m_last_flush_route_time());
    EXPECT_EQ(2U, mgr.live_count());
    EXPECT_FALSE(ListIsLocked());
    EXPECT_EQ(Texts(), Broken());
  }
}

TEST_F(RouteChangeTest, GoesOnWhereItStoppedWhenTheRouteComesAgain) {
  mgr.FailCreation(1, "no socket");
  ASSERT_EQ(kAllocation, Flush({kA, kD, kB}));
  StartOver();
  EXPECT_EQ(0, Flush({kA, kD, kB}));
  EXPECT_EQ(Texts({kA, kD, kB}), UrlsIn(preparing));
  EXPECT_EQ(Lines({Exists(kA), Created(kD), Added(kD, "id1"), Added(kB, "id1"),
                   CopiedFromUsing(kB, "id1")}),
            LinesButIndex());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouteChangeTest, AddsNothingOnceTheLoggerIsGone) {
  ProxyServer* c = Park(kC);
  ASSERT_EQ(0, Flush({kB, kD}));
  const struct {
    const char* what;
    Texts route;
  } kCases[] = {{"to be parked", {kB}},
                {"in use", {kB, kD, kA}},
                {"being removed", {kB, kD, kC}},
                {"new", {kB, kD, kE}}};
  const Routes before = Now();
  ASSERT_NE(0, router->Init(&mgr, Service(), nullptr)) << "refused, but it takes the logger away";
  logger.Clear();
  for (const auto& one : kCases) {
    EXPECT_EQ(kNoLogger, Flush(one.route)) << one.what;
    EXPECT_EQ(before.in_use, UrlsIn(in_use)) << one.what;
    EXPECT_EQ(before.preparing, UrlsIn(preparing)) << one.what;
    EXPECT_EQ(before.removing, UrlsIn(removing)) << one.what;
    EXPECT_EQ(c, ServerAt(removing, kC)) << one.what;
    EXPECT_FALSE(ListIsLocked()) << one.what;
  }
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouteChangeTest, ChangesNothingWhenTheIndexRunsOutOfMemory) {
  int failures = 0;
  for (bool struck = true; struck; failures += struck ? 1 : 0) {
    SCOPED_TRACE(failures + 1);
    const Routes before = Now();
    const DirectoryAnswer answer({kB, kC});
    int code = 0;
    {
      OstrandFakes::AllocationFaults faults;
      faults.FailThrowing(failures + 1);
      code = Flush(answer);
      struck = faults.struck();
    }
    EXPECT_EQ(struck ? kAllocation : 0, code);
    EXPECT_FALSE(ListIsLocked());
    if (struck) {
      EXPECT_EQ(before.records, Now().records);
      EXPECT_EQ(before.preparing, Now().preparing);
      EXPECT_EQ(0, peer->m_last_flush_route_time());
    }
  }
  EXPECT_LT(0, failures);
  EXPECT_EQ(Index({{kB, 0}, {kC, 1}}), peer->m_all_servers());
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing));
  EXPECT_EQ(Texts(), Broken());
}

// --- Locks ---

TEST_F(RouteChangeTest, MovesEachProxyUnderTheListsLock) {
  Park(kE);
  ASSERT_EQ(0, Flush({kB, kC}));
  struct Seen {
    std::string text;
    bool locked;
    bool operator==(const Seen& other) const {
      return text == other.text && locked == other.locked;
    }
  };
  std::vector<Seen> seen;
  logger.OnLine([&](const LogLine& line) {
    if (line.function != "ConHashFreshAllServer") {
      seen.push_back({line.text, ListIsLocked()});
    }
  });
  ASSERT_EQ(0, Flush({kB, kA, kE, kD}));
  const std::vector<Seen> kExpected = {{Added(kC, "id1").text, true},
                                       {MovedToRemoving(kC, "id1").text, true},
                                       {Exists(kB).text, false},
                                       {Added(kA, "id0").text, true},
                                       {CopiedFromUsing(kA, "id0").text, true},
                                       {Added(kE, "parked").text, true},
                                       {CopiedFromRemoving(kE, "parked").text, true},
                                       {Created(kD).text, true},
                                       {Added(kD, "id3").text, true}};
  EXPECT_EQ(kExpected.size(), seen.size());
  EXPECT_TRUE(kExpected == seen);
  EXPECT_FALSE(ListIsLocked());

  seen.clear();
  ASSERT_EQ(0, Flush({kB, kA, kE, kD}));
  EXPECT_TRUE(std::vector<Seen>({{"Skip flush operation", false}}) == seen);
}

TEST_F(RouteChangeTest, SaysItBeforeAnElementLeavesItsList) {
  Park(kE);
  ASSERT_EQ(0, Flush({kB, kC}));
  Texts preparing_then;
  Texts removing_then;
  logger.OnLine([&](const LogLine& line) {
    if (line.text == MovedToRemoving(kC, "id1").text) {
      preparing_then = UrlsIn(preparing);
    }
    if (line.text == CopiedFromRemoving(kE, "parked").text) {
      removing_then = UrlsIn(removing);
    }
  });
  ASSERT_EQ(0, Flush({kB, kE}));
  EXPECT_EQ(Texts({kB, kC}), preparing_then);
  EXPECT_EQ(Texts({kE, kC}), removing_then);
  EXPECT_EQ(Texts({kB, kE}), UrlsIn(preparing));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
}

TEST_F(RouteChangeTest, RebuildsTheIndexBeforeAListChanges) {
  Texts preparing_then = {"not seen"};
  logger.OnLine([&](const LogLine& line) {
    if (line.text == "ConHashFreshAllServer, server count: 2 -> 3") {
      preparing_then = UrlsIn(preparing);
    }
  });
  ASSERT_EQ(0, Flush({kA, kB, kC}));
  EXPECT_EQ(Texts(), preparing_then);
}

}  // namespace
}  // namespace OstrandService
