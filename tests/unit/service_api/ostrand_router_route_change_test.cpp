// A route that differs from the one in use: who is prepared, who is parked, whose connection is
// kept.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "unit/service_api/router_route_change_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandFakes::DirectoryAnswer;
using OstrandFakes::FakeClock;

using Index = std::map<std::string, int32_t>;

constexpr int kArgument = -1811;

// --- Nothing to change ---

TEST_F(RouteChangeTest, SkipsTheRouteInUseInWhateverOrderButRebuildsTheIndex) {
  peer->m_all_servers().clear();
  const Routes before = Now();
  for (const Texts& urls : {Texts({kA, kB}), Texts({kB, kA})}) {
    StartOver();
    EXPECT_EQ(0, Flush(NewIds(urls)));
    EXPECT_EQ(Lines({Skipped()}), LinesButIndex());
    EXPECT_EQ(Index({{kA, 0}, {kB, 1}}), peer->m_all_servers());
    EXPECT_EQ(Texts(), journal.Entries());
  }
  peer->m_all_servers().clear();
  EXPECT_TRUE(before == Now()) << "neither a list nor the time of the last change";
  EXPECT_EQ(Texts({"id0", "id1"}), IdsIn(in_use)) << "new ids alone are no new route";
}

TEST_F(RouteChangeTest, SkipsTheRouteInPreparation) {
  ASSERT_EQ(0, Flush({kB, kC}));
  const Routes before = Now();
  clock.AdvanceMs(1000);
  StartOver();
  EXPECT_EQ(0, Flush({kC, kB}));
  EXPECT_EQ(Lines({Skipped()}), LinesButIndex());
  EXPECT_TRUE(before == Now());
}

TEST_F(RouteChangeTest, LeavesTheVerdictsOfASkippedRouteAlone) {
  a->last_auth_result = -6413;
  EXPECT_EQ(0, Flush({kA, kB}));
  EXPECT_EQ(-6413, a->last_auth_result);
}

// --- Preparing ---

TEST_F(RouteChangeTest, SharesWhatIsInUseAndConnectsWhatIsNew) {
  EXPECT_EQ(0, Flush(NewIds({kC, kB, kD})));

  EXPECT_EQ(Texts({kC, kB, kD}), UrlsIn(preparing)) << "in the order of the rows";
  EXPECT_EQ(Texts({"new0", "id1", "new2"}), IdsIn(preparing)) << "an id that is held stays";
  EXPECT_EQ(b, ServerAt(preparing, kB));
  EXPECT_EQ(mgr.Find(kC), ServerAt(preparing, kC)->connector);
  EXPECT_EQ(mgr.Find(kD), ServerAt(preparing, kD)->connector);
  EXPECT_EQ(Texts({kA, kB}), UrlsIn(in_use)) << "which is used until the switch";
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Texts({std::string("CreateConnector ") + kC, std::string("CreateConnector ") + kD}),
            journal.Entries());
  EXPECT_EQ(Lines({Created(kC), Added(kC, "new0"), Added(kB, "id1"), CopiedFromUsing(kB, "id1"),
                   Created(kD), Added(kD, "new2")}),
            LinesButIndex());
  EXPECT_EQ(Index({{kB, 0}, {kC, 1}, {kD, 2}}), peer->m_all_servers());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouteChangeTest, TakesTheTimeOfAChange) {
  clock.AdvanceMs(12345);
  EXPECT_EQ(0, Flush({kB}));
  EXPECT_EQ(FakeClock::kStartMs + 12345, peer->m_last_flush_route_time());
}

TEST_F(RouteChangeTest, TakesBackAProxyThatIsBeingRemovedWithItsConnection) {
  ProxyServer* c = Park(kC);
  mgr.At(kC).SetStatus(2);
  c->auth_succeed = true;
  Park(kD);

  EXPECT_EQ(0, Flush(NewIds({kB, kC})));
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing));
  EXPECT_EQ(c, ServerAt(preparing, kC));
  EXPECT_EQ(Texts({"id1", "parked"}), IdsIn(preparing));
  EXPECT_EQ(Texts({kD}), UrlsIn(removing)) << "it moves, whatever the line says";
  EXPECT_EQ(2, mgr.At(kC).GetStatus());
  EXPECT_TRUE(c->auth_succeed);
  EXPECT_EQ(Texts(), journal.Entries()) << "no connector was made, dropped or asked for anything";
  EXPECT_EQ(Lines({Added(kB, "id1"), CopiedFromUsing(kB, "id1"), Added(kC, "parked"),
                   CopiedFromRemoving(kC, "parked")}),
            LinesButIndex());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouteChangeTest, PassesAnIdOf32CharactersOnAsItIs) {
  const std::string id(32, 'i');
  Park(kC, id);
  const std::string other_id(32, 'o');
  DirectoryAnswer answer({kC, kD});
  answer.SetRow(1, kD, other_id);
  EXPECT_EQ(0, Flush(answer));
  EXPECT_EQ(Texts({id, other_id}), IdsIn(preparing));
  EXPECT_EQ(Lines({Added(kC, id), CopiedFromRemoving(kC, id), Created(kD), Added(kD, other_id)}),
            LinesButIndex());

  StartOver();
  EXPECT_EQ(0, Flush({kA}));
  EXPECT_EQ(Texts({id, other_id}), IdsIn(removing));
  EXPECT_EQ(Lines({Added(kC, id), MovedToRemoving(kC, id), Added(kD, other_id),
                   MovedToRemoving(kD, other_id), Added(kA, "id0"), CopiedFromUsing(kA, "id0")}),
            LinesButIndex());
}

TEST_F(RouteChangeTest, ForgivesEveryKnownProxyOfTheNewRoute) {
  ProxyServer* parked = Park(kC);
  ProxyServer* parked_still = Park(kD);
  ASSERT_EQ(0, Flush({kA, kE, kF}));
  ProxyServer* prepared = ServerAt(preparing, kE);
  ProxyServer* left = ServerAt(preparing, kF);
  ProxyServer* const records[] = {a, b, parked, parked_still, prepared, left};
  for (ProxyServer* record : records) {
    record->last_auth_result = -6413;
  }
  EXPECT_EQ(0, Flush({kA, kC, kE, "tcp://10.0.0.9:1009"}));
  EXPECT_EQ(0, a->last_auth_result) << "in use and prepared";
  EXPECT_EQ(0, parked->last_auth_result) << "taken back";
  EXPECT_EQ(0, prepared->last_auth_result) << "prepared already";
  EXPECT_EQ(-6413, b->last_auth_result) << "in use, not in the route";
  EXPECT_EQ(-6413, parked_still->last_auth_result) << "removed, not in the route";
  EXPECT_EQ(-6413, left->last_auth_result) << "prepared, not in the route any more";
  EXPECT_EQ(-1, ServerAt(preparing, "tcp://10.0.0.9:1009")->last_auth_result) << "new";

  a->last_auth_result = -6413;
  b->last_auth_result = -6413;
  EXPECT_EQ(0, Flush({kB}));
  EXPECT_EQ(0, b->last_auth_result) << "in use, not prepared before";
  EXPECT_EQ(-6413, a->last_auth_result);
}

TEST_F(RouteChangeTest, TakesADuplicateRowOnce) {
  EXPECT_EQ(0, Flush(NewIds({kC, kB, kC, kB})));
  EXPECT_EQ(Texts({kC, kB}), UrlsIn(preparing));
  EXPECT_EQ(Lines({Created(kC), Added(kC, "new0"), Added(kB, "id1"), CopiedFromUsing(kB, "id1"),
                   Exists(kC), Exists(kB)}),
            LinesButIndex());
  // Its four rows are never the two proxies of the list, so it changes the route again and again.
  clock.AdvanceMs(1000);
  StartOver();
  EXPECT_EQ(0, Flush(NewIds({kC, kB, kC, kB})));
  EXPECT_EQ(Lines({Exists(kC), Exists(kB), Exists(kC), Exists(kB)}), LinesButIndex());
  EXPECT_EQ(FakeClock::kStartMs + 1000, peer->m_last_flush_route_time());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouteChangeTest, MakesARecordForAKnownProxyThatHasNone) {
  // Such an element cannot come of routes alone.
  AppendNode(in_use, kC, nullptr);
  AppendNode(removing, kD, nullptr);
  AppendNode(preparing, kE, nullptr);
  EXPECT_EQ(0, Flush({kC, kD, kE}));
  EXPECT_EQ(Texts({kE, kC, kD}), UrlsIn(preparing));
  EXPECT_EQ(mgr.Find(kC), ServerAt(preparing, kC)->connector);
  EXPECT_EQ(mgr.Find(kD), ServerAt(preparing, kD)->connector);
  EXPECT_EQ(nullptr, ServerAt(preparing, kE)) << "which is there already";
  EXPECT_EQ(nullptr, ServerAt(in_use, kC));
}

// --- What leaves the preparation ---

class PrunedRouteTest : public RouteChangeTest {
 protected:
  // B and C are prepared; C has a connector of its own.
  PrunedRouteTest() {
    EXPECT_EQ(0, Flush(NewIds({kB, kC})));
    c = ServerAt(preparing, kC);
    StartOver();
  }

  ProxyServer* c;
};

TEST_F(PrunedRouteTest, KeepsWhatIsStillInTheRoute) {
  EXPECT_EQ(0, Flush({kD, kC, kB}));
  EXPECT_EQ(Texts({kB, kC, kD}), UrlsIn(preparing));
  EXPECT_EQ(c, ServerAt(preparing, kC));
  EXPECT_EQ(b, ServerAt(preparing, kB));
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Lines({Created(kD), Added(kD, "id0"), Exists(kC), Exists(kB)}), LinesButIndex());
}

TEST_F(PrunedRouteTest, LetsGoOfWhatIsInUseWithoutAWord) {
  EXPECT_EQ(0, Flush({kA, kC}));
  EXPECT_EQ(Texts({kC, kA}), UrlsIn(preparing));
  EXPECT_EQ(Texts({kA, kB}), UrlsIn(in_use));
  EXPECT_EQ(b, ServerAt(in_use, kB)) << "which holds the record on";
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Lines({Added(kA, "id0"), CopiedFromUsing(kA, "id0"), Exists(kC)}), LinesButIndex());
  EXPECT_EQ(Texts(), journal.Entries());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(PrunedRouteTest, ParksTheRestWithItsConnection) {
  mgr.At(kC).SetStatus(2);
  EXPECT_EQ(0, Flush({kB, kD}));
  EXPECT_EQ(Texts({kB, kD}), UrlsIn(preparing));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  EXPECT_EQ(Texts({"new1"}), IdsIn(removing));
  EXPECT_EQ(c, ServerAt(removing, kC));
  EXPECT_EQ(2, mgr.At(kC).GetStatus());
  EXPECT_EQ(Lines({Added(kC, "new1"), MovedToRemoving(kC, "new1"), Exists(kB), Created(kD),
                   Added(kD, "id1")}),
            LinesButIndex());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(PrunedRouteTest, GoesBackToTheRouteInUse) {
  EXPECT_EQ(0, Flush({kA, kB}));
  EXPECT_EQ(Texts({kB, kA}), UrlsIn(preparing));
  EXPECT_EQ(Texts({kC}), UrlsIn(removing));
  EXPECT_EQ(RecordsIn(in_use), std::vector<ProxyServer*>({a, b}));
  EXPECT_EQ(RecordsIn(preparing), std::vector<ProxyServer*>({b, a}));
  EXPECT_EQ(2U, in_use->GetUsed());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(PrunedRouteTest, BringsBackWhatWasParkedByTheRouteBefore) {
  ASSERT_EQ(0, Flush({kB, kD}));
  StartOver();
  EXPECT_EQ(0, Flush({kB, kC}));
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(preparing));
  EXPECT_EQ(c, ServerAt(preparing, kC));
  EXPECT_EQ(Texts({kD}), UrlsIn(removing));
  EXPECT_EQ(Lines({Added(kD, "id1"), MovedToRemoving(kD, "id1"), Exists(kB), Added(kC, "new1"),
                   CopiedFromRemoving(kC, "new1")}),
            LinesButIndex());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(PrunedRouteTest, LetsGoOfElementsInEveryPlaceOfTheList) {
  ASSERT_EQ(0, Flush({kC, kB, kD, kE, kA}));
  ASSERT_EQ(Texts({kB, kC, kD, kE, kA}), UrlsIn(preparing));
  EXPECT_EQ(0, Flush({kF, kD}));
  EXPECT_EQ(Texts({kD, kF}), UrlsIn(preparing)) << "first, neighbours and last are gone";
  EXPECT_EQ(Texts({kC, kE}), UrlsIn(removing));
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(PrunedRouteTest, EmptiesThePreparationWhenTheCountIsNegative) {
  for (const int32_t count : {-1, INT32_MIN}) {
    SCOPED_TRACE(count);
    DirectoryAnswer answer({kD});
    answer.SetCount(count);
    clock.AdvanceMs(1000);
    StartOver();
    EXPECT_EQ(0, Flush(answer));
    EXPECT_TRUE(UrlsIn(preparing).empty()) << "nothing is added";
    EXPECT_EQ(Texts({kC}), UrlsIn(removing));
    EXPECT_EQ(Texts({kA, kB}), UrlsIn(in_use));
    EXPECT_TRUE(peer->m_all_servers().empty());
    EXPECT_EQ(clock.Ms(), peer->m_last_flush_route_time());
    EXPECT_EQ(Texts(), Broken());
  }
  EXPECT_EQ(Lines({}), LinesButIndex()) << "the second found nothing to move";
}

TEST_F(PrunedRouteTest, RefusesACountOf0BeforeTheIndexIsRebuilt) {
  const Routes before = Now();
  EXPECT_EQ(kArgument, Flush(Texts()));
  EXPECT_TRUE(before == Now());
  EXPECT_EQ(Index({{kB, 0}, {kC, 1}}), peer->m_all_servers());
}

// --- More proxies than there are rows ---

TEST_F(RouteChangeTest, ChangesTheRouteWithEveryAnswerThatTells250Proxies) {
  DirectoryAnswer answer(ManyUrls(200));
  answer.SetCount(250);
  peer->ReleaseServerList(in_use);
  ASSERT_EQ(0, Flush(answer));
  ASSERT_EQ(200U, in_use->GetUsed());
  ASSERT_EQ(0, peer->m_last_flush_route_time());
  for (int round = 1; round <= 3; ++round) {
    SCOPED_TRACE(round);
    clock.AdvanceMs(1000);
    logger.Clear();
    EXPECT_EQ(0, Flush(answer));
    EXPECT_EQ(clock.Ms(), peer->m_last_flush_route_time());
    EXPECT_EQ(0, logger.Count(OSTRAND_LOG_LEVEL_DEBUG, "Skip flush operation"));
    EXPECT_EQ(ManyUrls(200), UrlsIn(preparing));
    EXPECT_EQ(RecordsIn(in_use), RecordsIn(preparing));
    // All are prepared by the first and found by the others.
    EXPECT_EQ(round == 1 ? 0 : 1,
              logger.Count(OSTRAND_LOG_LEVEL_DEBUG, "Server exists. server_url:" + ManyUrls(1)[0]));
  }
  EXPECT_EQ(200U, mgr.live_count());
  EXPECT_EQ(Texts(), Broken());
}

}  // namespace
}  // namespace OstrandService
