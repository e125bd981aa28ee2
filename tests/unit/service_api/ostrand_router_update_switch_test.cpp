// The switch to a prepared route: when it happens, who goes where, and what the ring shows then.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "unit/service_api/router_update_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::LogLine;

// --- The switch ---

class SwitchTest : public RouterUpdateTest {
 protected:
  static std::string Moved(const std::string& url, int ret = 0) {
    return "Route Change! Move server from m_using_servers to m_removing_servers. ret:" +
           std::to_string(ret) + " server_url:" + url;
  }
  static std::string Put(const std::string& url) {
    return "Route Change! Add server To m_using_servers server_url:" + url;
  }
  static std::string All(int count) {
    return "set need_switch = true m_preparing_servers prepare_auth_succ_count " +
           std::to_string(count) + " all";
  }
  static std::string WriteCall(int ring_size, int prepare_auth_succ_count) {
    return "call WriteHashCircle m_virtual_node_count=" + std::to_string(ring_size) +
           " prepare_auth_succ_count=" + std::to_string(prepare_auth_succ_count);
  }
  // As if the ring had been written of the list in use just now.
  void RingIsWritten() {
    peer->WriteHashCircle();
    peer->m_last_auth_succ_count() = in_use->GetUsed();
    StartOver();
  }
};

TEST_F(SwitchTest, MovesTheDepartedAwayAndThePreparedIn) {
  const std::vector<ProxyServer*> before = Ready(in_use, {kA, kB, kC});
  RingIsWritten();
  Share(kB);
  const std::vector<ProxyServer*> prepared = Ready(preparing, {kD, kE});
  Update(kNow);

  EXPECT_EQ(Texts({kB, kD, kE}), UrlsIn(in_use));
  EXPECT_EQ(Texts({"id1", "id1", "id2"}), IdsIn(in_use));
  EXPECT_EQ(std::vector<ProxyServer*>({before[1], prepared[0], prepared[1]}), RecordsIn(in_use));
  EXPECT_TRUE(UrlsIn(preparing).empty());
  EXPECT_EQ(Texts({kA, kC}), UrlsIn(removing));
  EXPECT_EQ(Texts({"id0", "id2"}), IdsIn(removing));
  EXPECT_EQ(std::vector<ProxyServer*>({before[0], before[2]}), RecordsIn(removing));
  EXPECT_EQ(Lines({Info(All(3)), Info(Moved(kA)), Info(Moved(kC)), Info(Put(kB)), Info(Put(kD)),
                   Info(Put(kE)), Info(WriteCall(300, 3))}),
            Said());
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(std::set<ProxyServer*>({before[1], prepared[0], prepared[1]}), OnRing());
  EXPECT_EQ(300U, RingSize());
  for (const char* url : {kA, kB, kC, kD, kE}) {
    EXPECT_EQ(2, mgr.At(url).GetStatus()) << "nobody loses a connection";
  }
  EXPECT_EQ(Texts(), journal.EntriesWith("Connect"));
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(SwitchTest, GivesTheLinesOfTheListsTheirPlace) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  Share(kB);
  Ready(preparing, {kD});
  Update(kNow);
  std::vector<LogLine> lines;
  for (const LogLine& line : logger.Lines()) {
    if (line.function == "OnUpdate" || line.function == "AddServerNode") {
      lines.push_back(line);
    }
  }
  EXPECT_EQ(Lines({Info(All(2)),
                   Added(kA, "id0"),
                   Info(Moved(kA)),
                   {OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
                    std::string("Server exist in list. server_url:") + kB},
                   Info(Put(kB)),
                   Added(kD, "id1"),
                   Info(Put(kD)),
                   Info(WriteCall(200, 2))}),
            lines);
}

TEST_F(SwitchTest, ReplacesAWholeRoute) {
  Ready(in_use, {kA, kB, kC});
  Ready(preparing, {kD});
  Update(kNow);
  EXPECT_EQ(Texts({kD}), UrlsIn(in_use));
  EXPECT_EQ(Texts({kA, kB, kC}), UrlsIn(removing)) << "neighbours all of them";
  EXPECT_EQ(100U, RingSize());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(SwitchTest, OnlyReordersARouteThatIsTheSame) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  Share(kB);
  Share(kA);
  Update(kNow);
  EXPECT_EQ(Lines({Info(All(2)), Info(Put(kB)), Info(Put(kA)), Info(WriteCall(200, 2))}), Said());
  EXPECT_EQ(Texts({kA, kB}), UrlsIn(in_use)) << "not even that: elements stay where they are";
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(SwitchTest, KeepsTheIdThatIsInUse) {
  Ready(in_use, {kA});
  ASSERT_EQ(0, peer->AddServerNode(preparing, kA, "another id", ServerAt(in_use, kA)));
  Update(kNow);
  EXPECT_EQ(Texts({"id0"}), IdsIn(in_use));
}

TEST_F(SwitchTest, PassesAnIdOf32CharactersOnAsItIs) {
  const std::string old_id(32, 'o');
  const std::string new_id(32, 'n');
  AddReadyProxy(in_use, kA, old_id);
  AddReadyProxy(preparing, kB, new_id);
  StartOver();
  Update(kNow);
  EXPECT_EQ(Texts({new_id}), IdsIn(in_use));
  EXPECT_EQ(Texts({old_id}), IdsIn(removing));
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG, Added(kA, old_id).text));
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG, Added(kB, new_id).text));
}

TEST_F(SwitchTest, DoesNotNoteForHowManyItWroteTheRing) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  Ready(preparing, {kC, kD, kE});
  Update(kNow);
  EXPECT_EQ(1, RingWrites());
  EXPECT_EQ(2U, peer->m_last_auth_succ_count());
  Update(kNow + 10);
  EXPECT_EQ(2, RingWrites()) << "so the next update writes it again";
  EXPECT_EQ(3U, peer->m_last_auth_succ_count());
  Update(kNow + 20);
  EXPECT_EQ(2, RingWrites());
}

TEST_F(SwitchTest, LeavesAForceForTheNextUpdate) {
  Ready(in_use, {kA});
  Waiting(in_use, {kB}, kNow);
  RingIsWritten();
  Ready(preparing, {kC});
  router->SetForceFlushHash(true);
  Update(kNow);
  EXPECT_EQ(2, RingWrites()) << "for the force, and for the switch";
  EXPECT_TRUE(peer->m_force_flush_hash());
  Update(kNow + 10);
  EXPECT_EQ(3, RingWrites());
  EXPECT_FALSE(peer->m_force_flush_hash()) << "all of the new route are signed up";
}

TEST_F(SwitchTest, ConnectsAndSignsUpThePreparedMeanwhile) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  AddProxy(preparing, kC);
  AddProxy(preparing, kD);
  mgr.At(kD).SetStatus(2);
  ServerAt(preparing, kD)->pre_status = 0;
  StartOver();
  Update(kNow, "the signature");
  EXPECT_EQ(Texts({"JudgeUpdate", std::string("Connect ") + kC, std::string("SendToQ ") + kD}),
            journal.Entries());
  ASSERT_EQ(1U, mgr.At(kD).sent().size());
  EXPECT_NE(std::string::npos, mgr.At(kD).sent()[0].find("the signature"));
  EXPECT_EQ(Lines({}), Said());
  EXPECT_EQ(Texts({kC, kD}), UrlsIn(preparing));
}

TEST_F(SwitchTest, DoesNotTouchTheIndexOfTheUrlsNorTheTimeOfTheRefresh) {
  Ready(in_use, {kA, kB});
  ASSERT_EQ(0, Flush({kB, kC}));
  const auto index = peer->m_all_servers();
  for (ProxyServer* record : RecordsIn(preparing)) {
    mgr.At(record->connector->GetURL()).SetStatus(2);
    record->auth_succeed = true;
    record->last_auth_result = 0;
  }
  Update(kNow + 500);
  EXPECT_EQ(Texts({kB, kC}), UrlsIn(in_use));
  EXPECT_EQ(index, peer->m_all_servers());
  EXPECT_EQ(kNow, peer->m_last_flush_route_time());
}

// --- Locks ---

TEST_F(SwitchTest, MovesUnderTheListsLockOneByOneOutAndAllTogetherIn) {
  Ready(in_use, {kA, kB, kC});
  RingIsWritten();
  Share(kB);
  Ready(preparing, {kD});
  struct Seen {
    std::string text;
    bool locked;
    Texts in_use;
    Texts preparing;
    bool operator==(const Seen& other) const {
      return text == other.text && locked == other.locked && in_use == other.in_use &&
             preparing == other.preparing;
    }
  };
  std::vector<Seen> seen;
  logger.OnLine([&](const LogLine& line) {
    if (line.function == "OnUpdate" || line.function == "AddServerNode") {
      seen.push_back({line.text, ListIsLocked(), UrlsIn(in_use), UrlsIn(preparing)});
    }
    if (line.function == "WriteHashCircle") {
      EXPECT_FALSE(ListIsLocked()) << line.text;
    }
  });
  Update(kNow);
  const std::string exists = std::string("Server exist in list. server_url:") + kB;
  const std::vector<Seen> kExpected = {
      {All(2), false, {kA, kB, kC}, {kB, kD}},
      {Added(kA, "id0").text, true, {kA, kB, kC}, {kB, kD}},
      {Moved(kA), false, {kB, kC}, {kB, kD}},  // After it was removed.
      {Added(kC, "id2").text, true, {kB, kC}, {kB, kD}},
      {Moved(kC), false, {kB}, {kB, kD}},
      {exists, true, {kB}, {kB, kD}},
      {Put(kB), true, {kB}, {kB, kD}},  // Before it is removed.
      {Added(kD, "id1").text, true, {kB, kD}, {kD}},
      {Put(kD), true, {kB, kD}, {kD}},
      {WriteCall(300, 2), false, {kB, kD}, {}},
  };
  EXPECT_EQ(kExpected.size(), seen.size());
  for (size_t i = 0; i < seen.size() && i < kExpected.size(); ++i) {
    EXPECT_TRUE(kExpected[i] == seen[i]) << seen[i].text << " locked " << seen[i].locked << " "
                                         << testing::PrintToString(seen[i].in_use) << " "
                                         << testing::PrintToString(seen[i].preparing);
  }
  EXPECT_FALSE(ListIsLocked());
}

// --- The trace ---

class SwitchTraceTest : public SwitchTest {
 protected:
  // Texts of the lines that begin so.
  Texts Beginning(const std::string& beginning) {
    Texts texts;
    for (const LogLine& line : logger.Lines()) {
      if (line.text.compare(0, beginning.size(), beginning) == 0) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }
  std::string Traced(const std::string& caption, int index, const std::string& url,
                     ProxyServer* record) {
    return caption + " index:" + std::to_string(index) + " server_url:" + url +
           " server:" + Pointer(record) + " connector:" + Pointer(record->connector) +
           " status:CONNECTED auth:authed";
  }
};

TEST_F(SwitchTraceTest, ShowsTheListsAfterTheRingWasWritten) {
  const std::vector<ProxyServer*> before = Ready(in_use, {kA, kB});
  RingIsWritten();
  Share(kB);
  const std::vector<ProxyServer*> prepared = Ready(preparing, {kD});
  logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE);
  Update(kNow);
  EXPECT_EQ(
      Texts({Traced("After replace prepaired servers. m_using_servers", 0, kB, before[1]),
             Traced("After replace prepaired servers. m_using_servers", 1, kD, prepared[0]),
             Traced("After replace prepaired servers. m_removing_servers", 0, kA, before[0])}),
      Beginning("After replace"));
  // The preparing list is empty by then and has no line; the ring was written before.
  const std::vector<LogLine> lines = logger.Lines();
  size_t ring = 0;
  size_t trace = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].text == WriteCall(200, 2)) {
      ring = i;
    }
    if (trace == 0 && lines[i].text.compare(0, 13, "After replace") == 0) {
      trace = i;
      EXPECT_EQ("TraceLogConnection", lines[i].function);
      EXPECT_EQ(OSTRAND_LOG_LEVEL_DEBUG, lines[i].level);
      EXPECT_EQ(kModuleId, lines[i].module_id);
    }
  }
  EXPECT_LT(ring, trace);
}

TEST_F(SwitchTraceTest, ShowsNothingWhenTraceIsOff) {
  Ready(in_use, {kA});
  Ready(preparing, {kB});
  Update(kNow);
  EXPECT_EQ(Texts({kB}), UrlsIn(in_use));
  EXPECT_EQ(Texts(), Beginning("After "));
  EXPECT_LT(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE));
}

TEST_F(SwitchTraceTest, ShowsNothingWithoutASwitch) {
  Ready(in_use, {kA});
  Waiting(preparing, {kB}, kNow);
  logger.SetThreshold(OSTRAND_LOG_LEVEL_TRACE);
  Update(kNow);
  EXPECT_EQ(Texts(), Beginning("After replace"));
}

// --- Moves that fail ---

using SwitchFailureTest = SwitchTest;

TEST_F(SwitchFailureTest, ReleasesADepartedProxyThatTheRemovingListHasNoRoomFor) {
  const std::vector<ProxyServer*> before = Ready(in_use, {kA, kB, kC});
  RingIsWritten();
  Share(kB);
  FillUp(removing);
  removing->PopFront();  // Room for one.
  bool slots_are_null = false;
  bool list_was_locked = false;
  mgr.OnRemove([&](OstrandFakes::ScriptedConnector&) {
    slots_are_null = SlotsOf(before[2]) == 0;
    list_was_locked = ListIsLocked();
  });
  Update(kNow);
  EXPECT_EQ(Texts({kB}), UrlsIn(in_use));
  EXPECT_EQ(kA, UrlsIn(removing).back());
  EXPECT_EQ(Lines({Info(All(1)), Info(Moved(kA)), Info(Moved(kC, -9747)), Info(Put(kB)),
                   Info(WriteCall(300, 1))}),
            Said())
      << "and not a line about what was lost";
  EXPECT_EQ(Texts({kC}), mgr.removals());
  EXPECT_TRUE(slots_are_null) << "the ring has stale slots behind its end";
  EXPECT_TRUE(list_was_locked);
  EXPECT_EQ(2U, mgr.live_count());
  EXPECT_EQ(0, logger.Count(OSTRAND_LOG_LEVEL_INFO, "remove unused proxy. url:" + std::string(kC)));
}

TEST_F(SwitchFailureTest, ReleasesItOnlyAfterTheRingWasWritten) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  Share(kB);
  FillUp(removing);
  Update(kNow);
  const Texts entries = journal.Entries();
  ASSERT_EQ(3U, entries.size()) << testing::PrintToString(entries);
  EXPECT_EQ("ReportDirHashCircleStat", entries[1].substr(0, 23));
  EXPECT_EQ(std::string("RemoveConnector ") + kA, entries[2]);
}

TEST_F(SwitchFailureTest, ReleasesAPreparedProxyThatTheUsingListHasNoRoomFor) {
  // A full list of one url, which the prepared route has as well.
  for (uint32_t i = 0; i < 1024; ++i) {
    AppendNode(in_use, kA, nullptr);
  }
  Ready(preparing, {kA, kB, kC});
  Update(kNow);
  EXPECT_EQ(
      Lines({Info(All(3)), Info(Put(kA)), Info(Put(kB)), Info(Put(kC)), Info(WriteCall(0, 3))}),
      Said());
  EXPECT_EQ(1024U, in_use->GetUsed());
  EXPECT_TRUE(UrlsIn(preparing).empty());
  // The list in use had an element of A already, and keeps it.
  EXPECT_EQ(Texts({kA, kB, kC}), mgr.removals());
  EXPECT_EQ(0U, mgr.live_count());
}

TEST_F(SwitchFailureTest, ReleasesEveryRecordOnceWhenTheLoggerIsGone) {
  const std::vector<ProxyServer*> before = Ready(in_use, {kA, kB});
  RingIsWritten();
  Share(kB);
  Ready(preparing, {kC});
  ASSERT_NE(0, router->Init(&mgr, Service(), nullptr)) << "refused, but it takes the logger away";
  Update(kNow);
  // Nothing can be put into a list without a logger: A and C go, B stays where it is.
  EXPECT_EQ(Texts({kB}), UrlsIn(in_use));
  EXPECT_EQ(before[1], RecordsIn(in_use)[0]);
  EXPECT_TRUE(UrlsIn(preparing).empty());
  EXPECT_TRUE(UrlsIn(removing).empty());
  EXPECT_EQ(Texts({kA, kC}), mgr.removals());
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(SwitchFailureTest, LeavesARingThatPointsAtNobodyWhenAllAreGone) {
  Ready(in_use, {kA, kB});
  RingIsWritten();
  Ready(preparing, {kC});
  ASSERT_NE(0, router->Init(&mgr, Service(), nullptr));
  Update(kNow);
  EXPECT_TRUE(UrlsIn(in_use).empty());
  EXPECT_EQ(0U, mgr.live_count());
  EXPECT_EQ(200U, RingSize()) << "there was nobody to write it of";
  EXPECT_EQ(20000, SlotsOf(nullptr));
  Update(kNow + 60001);
  EXPECT_EQ(Texts(), Broken());
}

}  // namespace
}  // namespace OstrandService
