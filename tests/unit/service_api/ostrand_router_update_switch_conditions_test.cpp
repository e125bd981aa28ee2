// When the periodic update switches to the prepared route.
#include <gtest/gtest.h>

#include <cstdint>

#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;

// --- The conditions ---

using SwitchConditionTest = RouterUpdateTest;

TEST_F(SwitchConditionTest, AreThese) {
  constexpr const char* kNone = "";
  constexpr const char* kAll3 =
      "set need_switch = true m_preparing_servers prepare_auth_succ_count 3 all";
  constexpr const char* kAll1 =
      "set need_switch = true m_preparing_servers prepare_auth_succ_count 1 all";
  const struct {
    int signed_up;          // of the prepared
    int prepared;           // in all
    int in_use;             // all signed up
    int64_t since_refresh;  // ms
    const char* said;       // nothing: no switch
  } kCases[] = {
      // All of them: at once, whatever is in use.
      {3, 3, 0, 0, kAll3},
      {3, 3, 2, 0, kAll3},
      {3, 3, 3, 0, kAll3},
      {3, 3, 9, 0, kAll3},
      {1, 1, 9, 0, kAll1},
      // None of them: never.
      {0, 1, 0, 100000, kNone},
      {0, 1, 1, 100000, kNone},
      {0, 6, 0, 100000, kNone},
      {0, 6, 5, 100000, kNone},
      // Fewer than are in use: at least half, and only after ten seconds.
      {3, 6, 5, 10001, "set need_switch = true prepare_auth_succ_count 3"},
      {3, 6, 5, 10000, kNone},
      {3, 6, 5, 9999, kNone},
      {3, 6, 5, 0, kNone},
      {3, 6, 5, -1, kNone},
      {2, 6, 5, 10001, kNone},
      {2, 6, 5, 1000000, kNone},
      {4, 6, 5, 10001, "set need_switch = true prepare_auth_succ_count 4"},
      {3, 7, 5, 10001, "set need_switch = true prepare_auth_succ_count 3"},
      {2, 7, 5, 10001, kNone},
      {1, 3, 2, 10001, "set need_switch = true prepare_auth_succ_count 1"},
      {1, 2, 2, 10001, "set need_switch = true prepare_auth_succ_count 1"},
      {1, 4, 2, 10001, kNone},
      // As many or more: at once.
      {2, 6, 2, 0, "set need_switch = true prepare_auth_succ_count 2 > using auth_succ_count 2"},
      {1, 9, 1, 0, "set need_switch = true prepare_auth_succ_count 1 > using auth_succ_count 1"},
      {5, 6, 4, 0, "set need_switch = true prepare_auth_succ_count 5 > using auth_succ_count 4"},
      {1, 6, 0, 0, "set need_switch = true prepare_auth_succ_count 1 > using auth_succ_count 0"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.signed_up << " of " << c.prepared << ", " << c.in_use
                                    << " in use, " << c.since_refresh << " ms");
    const Texts old_urls = ManyUrls(c.in_use);
    const Texts urls = ManyUrls(c.prepared, 100);
    Ready(in_use, old_urls);
    Ready(preparing, Texts(urls.begin(), urls.begin() + c.signed_up));
    Waiting(preparing, Texts(urls.begin() + c.signed_up, urls.end()), kNow);
    peer->m_virtual_node_count() = 1;  // No write before the switch.
    peer->m_last_auth_succ_count() = 1000;
    peer->m_last_flush_route_time() = kNow - c.since_refresh;
    Update(kNow);

    const bool switches = *c.said != '\0';
    if (switches) {
      ASSERT_FALSE(Said().empty());
      EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_INFO, "OnUpdate", c.said), Said().front());
      EXPECT_EQ(urls, UrlsIn(in_use));
      EXPECT_EQ(old_urls, UrlsIn(removing));
    } else {
      EXPECT_EQ(Lines({}), Said());
      EXPECT_EQ(old_urls, UrlsIn(in_use));
    }
    EXPECT_EQ(switches, UrlsIn(preparing).empty());
    EXPECT_EQ(switches ? 1 : 0, RingWrites());
    EXPECT_EQ(Texts(), Broken());
    for (List* list : {in_use, preparing, removing}) {
      peer->ReleaseServerList(list);
    }
  }
}

TEST_F(SwitchConditionTest, HoldTenSecondsAfterAnyTimeWhenNoRefreshIsKnown) {
  Ready(in_use, {kA, kB});
  Ready(preparing, {kC});
  Waiting(preparing, {kD}, kNow);
  ASSERT_EQ(0, peer->m_last_flush_route_time());
  Update(kNow);
  EXPECT_EQ(Texts({kC, kD}), UrlsIn(in_use));
}

TEST_F(SwitchConditionTest, CompareWithTheSignedUpAndNotWithTheWholeListInUse) {
  Ready(in_use, {kA});
  Waiting(in_use, {kB, kC}, kNow);
  Ready(preparing, {kD});
  Waiting(preparing, {kE, kF}, kNow);
  peer->m_last_flush_route_time() = kNow;
  Update(kNow);
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_INFO,
                            "set need_switch = true prepare_auth_succ_count 1 > using "
                            "auth_succ_count 1"));
}

TEST_F(SwitchConditionTest, CountWhatTheTwoRoutesShareInBoth) {
  Ready(in_use, {kA, kB});
  Share(kA);
  Waiting(preparing, {kC, kD}, kNow);
  peer->m_last_flush_route_time() = kNow - 10001;
  Update(kNow);
  EXPECT_EQ(
      1, logger.Count(OSTRAND_LOG_LEVEL_INFO, "set need_switch = true prepare_auth_succ_count 1"));
}

}  // namespace
}  // namespace OstrandService
