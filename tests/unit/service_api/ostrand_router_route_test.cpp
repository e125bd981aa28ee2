// Directory answers: those that are refused, the first route, and the index of its urls.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "unit/service_api/router_route_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::DirectoryAnswer;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

using Index = std::map<std::string, int32_t>;

constexpr int kNotInitialised = -4371;
constexpr int kArgument = -1811;
constexpr int kAllocation = -9747;

// --- Refusals ---

TEST_F(RouterRouteTest, TakesNothingBeforeInitAndAfterFini) {
  const DirectoryAnswer answer({kA, kB});
  DirectoryAnswer bad({kA});
  bad.SetCmd(1);
  MakeRouter();
  logger.Clear();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(kNotInitialised, Flush(answer));
    EXPECT_EQ(kNotInitialised, Flush(bad));
    EXPECT_EQ(kNotInitialised, router->FlushRoute(nullptr));
    EXPECT_TRUE(peer->m_all_servers().empty());
    EXPECT_TRUE(logger.Lines().empty());
    ASSERT_EQ(0, Init());
    router->Fini();
    logger.Clear();
  }
}

TEST_F(RouterRouteTest, RefusesWhatIsNoRouteAndLeavesEverythingAsItWas) {
  const struct {
    const char* what;
    void (*spoil)(DirectoryAnswer&);
    const char* text;
  } kCases[] = {
      {"the request's command", [](DirectoryAnswer& answer) { answer.SetCmd(106); },
       "FlushRoute failed. response->stHead.wCmd:106 != "
       "107(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES)"},
      {"command 0", [](DirectoryAnswer& answer) { answer.SetCmd(0); },
       "FlushRoute failed. response->stHead.wCmd:0 != "
       "107(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES)"},
      {"the largest command", [](DirectoryAnswer& answer) { answer.SetCmd(65535); },
       "FlushRoute failed. response->stHead.wCmd:65535 != "
       "107(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES)"},
      {"bytes not swapped", [](DirectoryAnswer& answer) { answer.SetCmd(0x6B00); },
       "FlushRoute failed. response->stHead.wCmd:27392 != "
       "107(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES)"},
      {"a negative result", [](DirectoryAnswer& answer) { answer.SetResult(-5); },
       "FlushRoute failed. response->stBody.stResGetTablesAndAccess.iResult:-5 != 0(0)"},
      {"a positive result", [](DirectoryAnswer& answer) { answer.SetResult(INT32_MAX); },
       "FlushRoute failed. response->stBody.stResGetTablesAndAccess.iResult:2147483647 != 0(0)"},
      {"no proxies", [](DirectoryAnswer& answer) { answer.SetCount(0); },
       "FlushRoute failed. table_and_access.iAccessCount:0(0)"},
      {"the command first",
       [](DirectoryAnswer& answer) {
         answer.SetCmd(108);
         answer.SetResult(-5);
         answer.SetCount(0);
       },
       "FlushRoute failed. response->stHead.wCmd:108 != "
       "107(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES)"},
      {"then the result",
       [](DirectoryAnswer& answer) {
         answer.SetResult(1);
         answer.SetCount(0);
       },
       "FlushRoute failed. response->stBody.stResGetTablesAndAccess.iResult:1 != 0(0)"},
  };
  ASSERT_EQ(0, Flush({kA, kB}));
  ASSERT_EQ(0, Flush({kB, kC}));
  const Routes before = Now();
  for (const auto& c : kCases) {
    DirectoryAnswer answer({kD, kE});
    c.spoil(answer);
    logger.Clear();
    clock.AdvanceMs(1000);
    EXPECT_EQ(kArgument, Flush(answer)) << c.what;
    EXPECT_EQ(Lines({Says(OSTRAND_LOG_LEVEL_ERROR, c.text)}), logger.Lines()) << c.what;
    EXPECT_TRUE(before == Now()) << c.what;
    EXPECT_FALSE(ListIsLocked()) << c.what;
  }
}

TEST_F(RouterRouteTest, RefusesNoAnswerAtAll) {
  ASSERT_EQ(0, Flush({kA, kB}));
  const Routes before = Now();
  logger.Clear();
  EXPECT_EQ(kArgument, router->FlushRoute(nullptr));
  EXPECT_EQ(Lines({Says(OSTRAND_LOG_LEVEL_ERROR, "FlushRoute failed. response:0(NULL)")}),
            logger.Lines());
  EXPECT_TRUE(before == Now());
}

TEST_F(RouterRouteTest, AnswersTheSameCodesWithoutALogger) {
  router->Fini();
  ASSERT_EQ(0, router->Init(&mgr, Service(), nullptr));
  DirectoryAnswer wrong_command({kA});
  wrong_command.SetCmd(106);
  DirectoryAnswer failed({kA});
  failed.SetResult(-1);
  EXPECT_EQ(kArgument, router->FlushRoute(nullptr));
  EXPECT_EQ(kArgument, Flush(wrong_command));
  EXPECT_EQ(kArgument, Flush(failed));
  EXPECT_EQ(kArgument, Flush(Texts()));
  EXPECT_TRUE(peer->m_all_servers().empty());

  // A proxy is only ever added with a logger; the index does without.
  EXPECT_EQ(-1, Flush({kB, kA}));
  EXPECT_EQ(Index({{kA, 0}, {kB, 1}}), peer->m_all_servers());
  EXPECT_TRUE(UrlsIn(peer->m_using_servers()).empty());
}

// --- The first route ---

TEST_F(RouterRouteTest, PutsTheFirstRouteIntoUse) {
  const DirectoryAnswer answer({kB, kA, kC});
  EXPECT_EQ(0, Flush(answer));

  EXPECT_EQ(Texts({kB, kA, kC}), UrlsIn(in_use));
  EXPECT_EQ(Texts({"id0", "id1", "id2"}), IdsIn(in_use));
  EXPECT_TRUE(UrlsIn(preparing).empty());
  EXPECT_TRUE(UrlsIn(removing).empty());
  for (const RealServerNode& node : ServersOf(in_use)) {
    EXPECT_EQ(mgr.Find(node.server_url), node.server->connector) << "a connector of its own";
    EXPECT_EQ(0, mgr.At(node.server_url).connect_count()) << "connecting is the update's";
  }
  EXPECT_EQ(Texts({std::string("CreateConnector ") + kB, std::string("CreateConnector ") + kA,
                   std::string("CreateConnector ") + kC}),
            journal.Entries());
  const auto index_says = [](OstrandCommon::LogLevel level, const std::string& text) {
    return Said{level, "ConHashFreshAllServer", text};
  };
  EXPECT_EQ(
      Lines({index_says(OSTRAND_LOG_LEVEL_TRACE,
                        std::string("insert url ") + kA + " success, size: 1"),
             index_says(OSTRAND_LOG_LEVEL_TRACE,
                        std::string("insert url ") + kB + " success, size: 2"),
             index_says(OSTRAND_LOG_LEVEL_TRACE,
                        std::string("insert url ") + kC + " success, size: 3"),
             index_says(OSTRAND_LOG_LEVEL_INFO, "ConHashFreshAllServer, server count: 0 -> 3"),
             Created(kB), Added(kB, "id0"), Created(kA), Added(kA, "id1"), Created(kC),
             Added(kC, "id2")}),
      logger.Lines());
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouterRouteTest, DoesNotTimeTheFirstRoute) {
  EXPECT_EQ(0, Flush({kA}));
  EXPECT_EQ(0, peer->m_last_flush_route_time());
}

TEST_F(RouterRouteTest, AddsTheFirstRouteUnderTheListsLock) {
  std::vector<std::pair<std::string, bool>> seen;
  mgr.OnCreate([&](OstrandFakes::ScriptedConnector& connector) {
    seen.emplace_back(std::string("create ") + connector.GetURL(), ListIsLocked());
  });
  logger.OnLine([&](const LogLine& line) {
    if (line.function == "ConHashFreshAllServer" && line.level == OSTRAND_LOG_LEVEL_INFO) {
      seen.emplace_back("index", ListIsLocked());
    }
  });
  EXPECT_EQ(0, Flush({kA, kB}));
  using Seen = std::vector<std::pair<std::string, bool>>;
  EXPECT_EQ(Seen({{"index", false},
                  {std::string("create ") + kA, true},
                  {std::string("create ") + kB, true}}),
            seen);
  EXPECT_FALSE(ListIsLocked());
}

TEST_F(RouterRouteTest, StopsTheFirstRouteAtAProxyThatCannotBeAdded) {
  const struct {
    const char* what;
    std::string second;
    int failing_creation;
    int code;
    std::string text;
  } kCases[] = {
      {"no connector", kB, 2, kAllocation,
       std::string("m_connector_mgr->CreateConnector failed. errmsg:no socket server_url:") + kB},
      {"url too short", "tcp://a:10", 0, kArgument,
       "Check string length failed. server_url:tcp://a:10 server_url_len:10 expect_name_len:(10, "
       "1024)"},
      {"no url", "", 0, kArgument,
       "Check string length failed. server_url: server_url_len:0 expect_name_len:(10, 1024)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    mgr.FailCreation(c.failing_creation, "no socket");
    logger.Clear();
    EXPECT_EQ(c.code, Flush({kA, c.second, kC}));
    EXPECT_EQ(
        Lines({Created(kA), Added(kA, "id0"), {OSTRAND_LOG_LEVEL_ERROR, "AddServerNode", c.text}}),
        LinesButIndex());
    EXPECT_EQ(Texts({kA}), UrlsIn(in_use)) << "what was added before stays";
    EXPECT_EQ(1U, mgr.live_count());
    EXPECT_EQ(3U, peer->m_all_servers().size()) << "the index has the whole route";
    EXPECT_EQ(1U, peer->m_all_servers().count(kC));
    EXPECT_FALSE(ListIsLocked());
    peer->ReleaseServerList(in_use);
  }
}

TEST_F(RouterRouteTest, PreparesWhatAFirstRouteThatStoppedHalfWayLeftOut) {
  mgr.FailCreation(2, "no socket");
  ASSERT_EQ(kAllocation, Flush({kA, kB}));
  EXPECT_EQ(0, Flush({kA, kB}));
  EXPECT_EQ(Texts({kA}), UrlsIn(in_use));
  EXPECT_EQ(Texts({kA, kB}), UrlsIn(preparing));
  EXPECT_EQ(RecordsIn(in_use)[0], RecordsIn(preparing)[0]);
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouterRouteTest, TakesADuplicateRowOnce) {
  EXPECT_EQ(0, Flush({kB, kA, kB, kB}));
  EXPECT_EQ(Texts({kB, kA}), UrlsIn(in_use));
  EXPECT_EQ(Texts({"id0", "id1"}), IdsIn(in_use)) << "the first of the two rows";
  EXPECT_EQ(2U, mgr.live_count());
  EXPECT_EQ(Index({{kA, 0}, {kB, 1}}), peer->m_all_servers());
  const Said exists = {OSTRAND_LOG_LEVEL_DEBUG, "AddServerNode",
                       std::string("Server exist in list. server_url:") + kB};
  EXPECT_EQ(Lines({Created(kB), Added(kB, "id0"), Created(kA), Added(kA, "id1"), exists, exists}),
            LinesButIndex());
  const std::string duplicate = std::string("url ") + kB + " already exist";
  EXPECT_EQ(2, logger.Count(OSTRAND_LOG_LEVEL_ERROR, duplicate)) << "once a row too many";
  EXPECT_EQ(Texts(), Broken());
}

// --- Counts ---

TEST_F(RouterRouteTest, UsesTheFirst200RowsOfALongerRoute) {
  for (const int32_t count : {201, 250, 428, INT32_MAX}) {
    SCOPED_TRACE(count);
    DirectoryAnswer answer(ManyUrls(200));
    answer.SetCount(count);
    logger.Clear();
    EXPECT_EQ(0, Flush(answer));
    ASSERT_EQ(ManyUrls(200), UrlsIn(in_use));
    EXPECT_EQ("id199", IdsIn(in_use).back());
    EXPECT_EQ(200U, peer->m_all_servers().size()) << "no row behind the 200th is read";
    EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "FlushRoute",
                   "table_and_access.iAccessCount:" + std::to_string(count) +
                       " > MAX_SERVER_COUNT:200, will use the front of 200 access"),
              logger.Lines().front())
        << "before the index is rebuilt";
    EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_ERROR));
    peer->ReleaseServerList(in_use);
  }
}

TEST_F(RouterRouteTest, TakesExactly200RowsWithoutAWord) {
  EXPECT_EQ(0, Flush(ManyUrls(200)));
  EXPECT_EQ(200U, in_use->GetUsed());
  EXPECT_EQ(0, logger.Count(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_EQ(Texts(), Broken());
}

TEST_F(RouterRouteTest, TakesANegativeCountForAnEmptyRoute) {
  for (const int32_t count : {-1, -200, INT32_MIN}) {
    SCOPED_TRACE(count);
    peer->ConHashFreshAllServer(DirectoryAnswer({kA, kB, kC}).route());
    DirectoryAnswer answer({kA});
    answer.SetCount(count);
    logger.Clear();
    EXPECT_EQ(0, Flush(answer));
    EXPECT_EQ(0U, in_use->GetUsed());
    EXPECT_TRUE(peer->m_all_servers().empty());
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_INFO, "ConHashFreshAllServer",
                      "ConHashFreshAllServer, server count: 3 -> 0"}}),
              logger.Lines());
  }
}

// --- Rows without an end ---

TEST_F(RouterRouteTest, ReadsARowWithoutANulAsItsWholeWidth) {
  const std::string url = "tcp://" + std::string(58, 'x');
  const std::string next_url = "tcp://" + std::string(58, 'y');
  const std::string id(32, 'i');
  DirectoryAnswer answer({kA, kB});
  answer.SetRow(0, url, id);
  answer.SetRow(1, next_url, "second");
  EXPECT_EQ(0, Flush(answer));
  EXPECT_EQ(Texts({url, next_url}), UrlsIn(in_use));
  EXPECT_EQ(Texts({id, "second"}), IdsIn(in_use));
  EXPECT_EQ(Index({{url, 0}, {next_url, 1}}), peer->m_all_servers());
  EXPECT_EQ(Lines({Created(url), Added(url, id), Created(next_url), Added(next_url, "second")}),
            LinesButIndex());
}

TEST_F(RouterRouteTest, ReadsTheLastRowsWithoutANulAsTheirWholeWidth) {
  const std::string url = "tcp://" + std::string(58, 'z');
  const std::string id(32, 'j');
  DirectoryAnswer answer(ManyUrls(200));
  answer.SetRow(199, url, id);
  EXPECT_EQ(0, Flush(answer));
  EXPECT_EQ(url, UrlsIn(in_use).back());
  EXPECT_EQ(id, IdsIn(in_use).back());
  EXPECT_EQ(1U, peer->m_all_servers().count(url));
}

// --- The index of the urls ---

class RouterIndexTest : public RouterRouteTest {
 protected:
  int Rebuild(const Texts& urls) {
    return peer->ConHashFreshAllServer(DirectoryAnswer(urls).route());
  }
  static Said IndexSays(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "ConHashFreshAllServer", text};
  }
};

TEST_F(RouterIndexTest, NumbersTheUrlsInAscendingOrder) {
  EXPECT_EQ(0, Rebuild({"b", "a", "c"}));
  EXPECT_EQ(Index({{"a", 0}, {"b", 1}, {"c", 2}}), peer->m_all_servers());
  EXPECT_EQ(
      Lines({IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url a success, size: 1"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url b success, size: 2"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url c success, size: 3"),
             IndexSays(OSTRAND_LOG_LEVEL_INFO, "ConHashFreshAllServer, server count: 0 -> 3")}),
      logger.Lines());
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE)) << "its lines are never held back";
}

TEST_F(RouterIndexTest, ComparesUrlsByteForByte) {
  EXPECT_EQ(0, Rebuild({"tcp://10.0.0.9:1", "tcp://10.0.0.10:1", "\xC3\xA4", "a", "B", "tcp",
                        "tcp://10.0.0.9:10", ""}));
  EXPECT_EQ(Index({{"", 0},
                   {"B", 1},
                   {"a", 2},
                   {"tcp", 3},
                   {"tcp://10.0.0.10:1", 4},
                   {"tcp://10.0.0.9:1", 5},
                   {"tcp://10.0.0.9:10", 6},
                   {"\xC3\xA4", 7}}),
            peer->m_all_servers());
}

TEST_F(RouterIndexTest, GivesTheSameNumbersWhateverTheOrderOfTheRows) {
  Rebuild({kD, kA, kC, kB});
  const Index index = peer->m_all_servers();
  EXPECT_EQ(Index({{kA, 0}, {kB, 1}, {kC, 2}, {kD, 3}}), index);
  for (const Texts& urls : {Texts({kA, kB, kC, kD}), Texts({kC, kD, kB, kA})}) {
    Rebuild(urls);
    EXPECT_EQ(index, peer->m_all_servers());
  }
}

TEST_F(RouterIndexTest, ForgetsTheRouteBefore) {
  Rebuild({"a", "b", "c"});
  logger.Clear();
  EXPECT_EQ(0, Rebuild({"d", "b"}));
  EXPECT_EQ(Index({{"b", 0}, {"d", 1}}), peer->m_all_servers());
  EXPECT_EQ(
      Lines({IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url b success, size: 1"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url d success, size: 2"),
             IndexSays(OSTRAND_LOG_LEVEL_INFO, "ConHashFreshAllServer, server count: 3 -> 2")}),
      logger.Lines());
}

TEST_F(RouterIndexTest, NumbersADuplicateOnceAndSaysSo) {
  EXPECT_EQ(0, Rebuild({"b", "a", "b", "c", "a"}));
  EXPECT_EQ(Index({{"a", 0}, {"b", 1}, {"c", 2}}), peer->m_all_servers());
  EXPECT_EQ(
      Lines({IndexSays(OSTRAND_LOG_LEVEL_ERROR, "url b already exist"),
             IndexSays(OSTRAND_LOG_LEVEL_ERROR, "url a already exist"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url a success, size: 1"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url b success, size: 2"),
             IndexSays(OSTRAND_LOG_LEVEL_TRACE, "insert url c success, size: 3"),
             IndexSays(OSTRAND_LOG_LEVEL_INFO, "ConHashFreshAllServer, server count: 0 -> 3")}),
      logger.Lines());
}

TEST_F(RouterIndexTest, ReadsOnlyTheRowsThatThereAre) {
  for (const int32_t count : {201, 428, INT32_MAX}) {
    DirectoryAnswer answer(ManyUrls(200));
    answer.SetCount(count);
    EXPECT_EQ(0, peer->ConHashFreshAllServer(answer.route()));
    EXPECT_EQ(200U, peer->m_all_servers().size()) << count;
  }
  for (const int32_t count : {0, -1, INT32_MIN}) {
    DirectoryAnswer answer({kA});
    answer.SetCount(count);
    EXPECT_EQ(0, peer->ConHashFreshAllServer(answer.route()));
    EXPECT_EQ(0U, peer->m_all_servers().size()) << count;
  }
}

}  // namespace
}  // namespace OstrandService
