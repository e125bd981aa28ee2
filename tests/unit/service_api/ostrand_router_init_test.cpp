// Init: each step, each failure, and what stays behind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"
#include "service_api/proxy_pack_parser.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OstrandFakes::RecordingLogger;
using OstrandFakes::RouterFixture;

constexpr int32_t kNotInitialised = -4371;
constexpr int32_t kAllocationFailed = -9747;
constexpr int32_t kBadArgument = -1811;
constexpr int32_t kFailed = -256;

constexpr char kPartitioned[] =
    "real node max distance: 0.009967, real_num|200, MAX_NODE_PER_SERVER|100, "
    "m_totallen2id_num|200";
constexpr char kMissingCollaborator[] =
    "NULL == m_delay_data_mgr || NULL == m_statistic_mgr || NULL == m_judge_proxy";

class OstrandRouterInitTest : public testing::Test, public RouterFixture {
 protected:
  LogLine Partitioned() {
    return Line(OSTRAND_LOG_LEVEL_TRACE, "ConHashCalcHashNode", kPartitioned);
  }
  LogLine Error(const std::string& text) { return Line(OSTRAND_LOG_LEVEL_ERROR, "Init", text); }
};

using Logged = std::vector<LogLine>;

// --- Success ---

TEST_F(OstrandRouterInitTest, MakesParserListsAndPartition) {
  clock.SetUs(1700000000123456);
  ASSERT_EQ(0, Init());
  EXPECT_TRUE(peer->m_init_called());
  EXPECT_TRUE(peer->m_init_succeed());
  EXPECT_EQ(&mgr, peer->m_connector_mgr());
  EXPECT_EQ(&server, peer->m_ostrand_server());
  EXPECT_EQ(&logger, peer->m_logger());
  EXPECT_EQ(123456U, peer->m_randSed()) << "the microseconds of the time of day";
  for (List* list :
       {peer->m_using_servers(), peer->m_preparing_servers(), peer->m_removing_servers()}) {
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(1064U, list->GetUnitMaxSize());
    EXPECT_EQ(1024U, list->GetCapacity());
    EXPECT_EQ(0U, list->GetUsed());
  }
  EXPECT_EQ(200U, peer->m_totallen2id().size());
  EXPECT_EQ(100U, peer->m_len2ending()[199].size());
  EXPECT_EQ(0U, peer->m_virtual_node_count()) << "the ring is written later";
  EXPECT_EQ(Logged({Partitioned()}), logger.Lines());
  EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE)) << "this line is cheap";
  EXPECT_TRUE(journal.Entries().empty());
}

TEST_F(OstrandRouterInitTest, ParserHasTheRoutersLoggerAndModuleId) {
  ASSERT_EQ(0, Init());
  logger.Clear();
  const char no_frame[12] = {};
  EXPECT_GT(0, peer->m_pack_parser()->ParsePackLength(no_frame, sizeof(no_frame)));
  ASSERT_EQ(1U, logger.Lines().size());
  EXPECT_EQ(kModuleId, logger.Lines()[0].module_id);
  EXPECT_EQ("src/service_api/proxy_pack_parser", logger.Lines()[0].file);
}

TEST_F(OstrandRouterInitTest, NeedsNoLogger) {
  EXPECT_EQ(0, router->Init(&mgr, Service(), nullptr));
  EXPECT_TRUE(peer->m_init_succeed());
  EXPECT_EQ(nullptr, peer->m_logger());
}

TEST_F(OstrandRouterInitTest, NeedsNoConnectorManager) {
  EXPECT_EQ(0, router->Init(nullptr, Service(), &logger));
  EXPECT_TRUE(peer->m_init_succeed());
}

// --- Refusal ---

TEST_F(OstrandRouterInitTest, ASecondTimeReplacesOnlyLoggerAndSeed) {
  clock.SetUs(1700000000000001);
  ASSERT_EQ(0, Init());
  List* const using_servers = peer->m_using_servers();
  List* const preparing_servers = peer->m_preparing_servers();
  List* const removing_servers = peer->m_removing_servers();
  ProxyPackParser* const parser = peer->m_pack_parser();
  logger.Clear();

  clock.SetUs(1700000000654321);
  RecordingLogger other_logger;
  OstrandFakes::FakeOstrandServer other_server(&other_logger);
  OstrandFakes::ScriptedConnectorMgr other_mgr;
  EXPECT_EQ(kNotInitialised,
            router->Init(&other_mgr, static_cast<OstrandServer*>(&other_server), &other_logger));

  EXPECT_EQ(&other_logger, peer->m_logger());
  EXPECT_EQ(654321U, peer->m_randSed());
  EXPECT_EQ(&mgr, peer->m_connector_mgr());
  EXPECT_EQ(&server, peer->m_ostrand_server());
  EXPECT_EQ(using_servers, peer->m_using_servers());
  EXPECT_EQ(preparing_servers, peer->m_preparing_servers());
  EXPECT_EQ(removing_servers, peer->m_removing_servers());
  EXPECT_EQ(parser, peer->m_pack_parser());
  EXPECT_TRUE(peer->m_init_called());
  EXPECT_TRUE(peer->m_init_succeed());
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(other_logger.Lines().empty()) << "the refused one logs nothing";
}

TEST_F(OstrandRouterInitTest, ThatFailedBlocksTheNextUntilFini) {
  ASSERT_EQ(kFailed, router->Init(&mgr, nullptr, &logger));
  EXPECT_TRUE(peer->m_init_called());
  EXPECT_FALSE(peer->m_init_succeed());
  logger.Clear();
  EXPECT_EQ(kNotInitialised, Init());
  EXPECT_EQ(kNotInitialised, Init());
  EXPECT_FALSE(peer->m_init_succeed());
  EXPECT_EQ(nullptr, peer->m_ostrand_server());
  EXPECT_TRUE(logger.Lines().empty());

  router->Fini();
  EXPECT_EQ(0, Init());
  EXPECT_TRUE(peer->m_init_succeed());
}

// --- Missing collaborators ---

TEST_F(OstrandRouterInitTest, MissesCollaboratorsOnlyAfterListsAndRingAreBuilt) {
  const struct {
    const char* missing;
    LatencyDataMgr* latency;
    OstrandServiceStatisticMgr* statistics;
    JudgeProxy* judge;
  } kCases[] = {{"latency", nullptr, &statistics, &judge},
                {"statistics", &latency, nullptr, &judge},
                {"judge", &latency, &statistics, nullptr},
                {"all", nullptr, nullptr, nullptr}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.missing);
    logger.Clear();
    const auto lacking = NewRouter(c.latency, c.statistics, c.judge);
    OstrandRouterPeer fields(*lacking);
    EXPECT_EQ(kBadArgument, lacking->Init(&mgr, Service(), &logger));
    EXPECT_EQ(Logged({Partitioned(), Error(kMissingCollaborator)}), logger.Lines());
    EXPECT_NE(nullptr, fields.m_pack_parser());
    EXPECT_NE(nullptr, fields.m_using_servers());
    EXPECT_NE(nullptr, fields.m_preparing_servers());
    EXPECT_NE(nullptr, fields.m_removing_servers());
    EXPECT_EQ(200U, fields.m_totallen2id().size());
    EXPECT_EQ(nullptr, fields.m_ostrand_server()) << "stored in a later step";
    EXPECT_TRUE(fields.m_init_called());
    EXPECT_FALSE(fields.m_init_succeed());

    lacking->Fini();
    EXPECT_EQ(kBadArgument, lacking->Init(&mgr, nullptr, nullptr))
        << "before the service is looked at, and the same without a logger";
  }
}

TEST_F(OstrandRouterInitTest, MissesItsServiceLast) {
  EXPECT_EQ(kFailed, router->Init(&mgr, nullptr, &logger));
  EXPECT_EQ(
      Logged({Partitioned(), Error("convert OstrandServer failed. m_ostrand_server:0(NULL)")}),
      logger.Lines());
  EXPECT_EQ(nullptr, peer->m_ostrand_server());
  EXPECT_FALSE(peer->m_init_succeed());

  router->Fini();
  EXPECT_EQ(kFailed, router->Init(&mgr, nullptr, nullptr)) << "the same without a logger";
}

TEST_F(OstrandRouterInitTest, StoresANullServiceBeforeItRefusesIt) {
  ASSERT_EQ(0, Init());
  router->Fini();
  EXPECT_EQ(&server, peer->m_ostrand_server());
  EXPECT_EQ(kFailed, router->Init(&mgr, nullptr, &logger));
  EXPECT_EQ(nullptr, peer->m_ostrand_server());
}

// --- Allocation failures ---

// The non-throwing allocations of Init in their order: the parser, then each list and its pool.
constexpr int kParser = 1;
constexpr int kUsingList = 2;
constexpr int kUsingPool = 3;
constexpr int kPreparingList = 4;
constexpr int kPreparingPool = 5;
constexpr int kRemovingList = 6;
constexpr int kRemovingPool = 7;

TEST_F(OstrandRouterInitTest, AllocatesParserAndListsWithoutThrowing) {
  AllocationFaults faults;
  ASSERT_EQ(0, Init());
  EXPECT_EQ(kRemovingPool, faults.nothrow_count());
}

TEST_F(OstrandRouterInitTest, NamesWhatCouldNotBeAllocated) {
  const struct {
    int allocation;
    std::string text;
    int lists;  // made before
  } kCases[] = {{kParser, "new ProxyPackParser failed. m_pack_parser:0(NULL)", 0},
                {kUsingList, "new m_using_servers failed. m_using_servers:0(NULL)", 0},
                {kPreparingList, "new m_preparing_servers failed. m_preparing_servers:0(NULL)", 1},
                {kRemovingList, "new m_removing_servers failed. m_removing_servers:0(NULL)", 2}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    MakeRouter();
    logger.Clear();
    AllocationFaults faults;
    faults.FailNothrow(c.allocation);
    EXPECT_EQ(kAllocationFailed, Init());
    ASSERT_TRUE(faults.struck());

    EXPECT_EQ(c.allocation != kParser, peer->m_pack_parser() != nullptr) << "kept for Fini";
    EXPECT_EQ(c.lists > 0, peer->m_using_servers() != nullptr);
    EXPECT_EQ(c.lists > 1, peer->m_preparing_servers() != nullptr);
    EXPECT_EQ(nullptr, peer->m_removing_servers());
    EXPECT_TRUE(peer->m_totallen2id().empty()) << "the ring comes later";
    EXPECT_TRUE(peer->m_init_called());
    EXPECT_FALSE(peer->m_init_succeed());

    router->Fini();
    EXPECT_EQ(0, faults.outstanding());
    EXPECT_EQ(Logged({Error(c.text)}), logger.Lines());
  }
}

TEST_F(OstrandRouterInitTest, AllocationFailuresHaveTheirCodesWithoutALogger) {
  for (const int allocation : {kParser, kUsingList, kPreparingList, kRemovingList}) {
    MakeRouter();
    AllocationFaults faults;
    faults.FailNothrow(allocation);
    EXPECT_EQ(kAllocationFailed, router->Init(&mgr, Service(), nullptr)) << allocation;
  }
}

TEST_F(OstrandRouterInitTest, GoesOnWithAListWhosePoolCouldNotBeHad) {
  const struct {
    int allocation;
    List*& (OstrandRouterPeer::*list)() const;
  } kCases[] = {{kUsingPool, &OstrandRouterPeer::m_using_servers},
                {kPreparingPool, &OstrandRouterPeer::m_preparing_servers},
                {kRemovingPool, &OstrandRouterPeer::m_removing_servers}};
  for (const auto& c : kCases) {
    MakeRouter();
    AllocationFaults faults;
    faults.FailNothrow(c.allocation);
    EXPECT_EQ(0, Init()) << c.allocation;
    EXPECT_EQ(0U, (peer.get()->*c.list)()->GetCapacity()) << c.allocation;
    EXPECT_TRUE(peer->m_init_succeed());
  }
}

TEST_F(OstrandRouterInitTest, PassesOnThatTheRingCouldNotBePartitioned) {
  {
    AllocationFaults faults;
    faults.FailThrowing(1);
    EXPECT_EQ(kFailed, Init());
    EXPECT_TRUE(faults.struck());
  }
  EXPECT_EQ(Logged({Error("CalcHashNode failed, ret -256")}), logger.LinesFrom("Init"));
  EXPECT_FALSE(peer->m_init_succeed());
  EXPECT_NE(nullptr, peer->m_removing_servers()) << "made before";
  router->Fini();
  EXPECT_EQ(0, Init());
}

TEST_F(OstrandRouterInitTest, LogsASplitFailureInTheSplitThePartitionAndInit) {
  constexpr int kInTheFirstSplit = 250;  // The first id takes 201: 100 places, 100 arcs, a total.
  {
    AllocationFaults faults;
    faults.FailThrowing(kInTheFirstSplit);
    EXPECT_EQ(kFailed, Init());
    EXPECT_TRUE(faults.struck());
  }
  EXPECT_EQ(Logged({Line(OSTRAND_LOG_LEVEL_ERROR, "ConHashCalcHashNode",
                         "SplitHashRing failed, ret -256"),
                    Error("CalcHashNode failed, ret -256")}),
            logger.Lines());
}

}  // namespace
}  // namespace OstrandService
