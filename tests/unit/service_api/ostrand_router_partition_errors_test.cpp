// The partition's log lines and codes, and that a failure is only a code.
#include <gtest/gtest.h>

#include <string>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_partition_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
using OstrandFakes::AllocationFaults;

constexpr int kFailed = -256;

using RouterPartitionErrorsTest = RouterPartitionTest;

TEST_F(RouterPartitionErrorsTest, LogsTheLargestDistanceOfTotalsSeen) {
  const struct {
    int real_num;
    const char* text;
  } kCases[] = {{1,
                 "real node max distance: 0.000000, real_num|1, MAX_NODE_PER_SERVER|100, "
                 "m_totallen2id_num|1"},
                {2,
                 "real node max distance: 0.000000, real_num|2, MAX_NODE_PER_SERVER|100, "
                 "m_totallen2id_num|2"},
                {50,
                 "real node max distance: 0.009967, real_num|50, MAX_NODE_PER_SERVER|100, "
                 "m_totallen2id_num|50"},
                {200,
                 "real node max distance: 0.009967, real_num|200, MAX_NODE_PER_SERVER|100, "
                 "m_totallen2id_num|200"}};
  logger.SetThreshold(OSTRAND_LOG_LEVEL_ERROR);
  for (const auto& c : kCases) {
    logger.Clear();
    Partition(c.real_num);
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_TRACE, "ConHashCalcHashNode", c.text}}), logger.Lines());
    EXPECT_EQ(0, logger.AskedAbout(OSTRAND_LOG_LEVEL_TRACE)) << "this line is cheap";
  }
}

TEST_F(RouterPartitionErrorsTest, RefusesLessThanOneNodeAtInfoAndTouchesNothing) {
  Partition(3);
  const Pairs arcs = Arcs(0);
  const Pairs totals = Totals();
  for (const int real_num : {0, -1, -2147483647 - 1}) {
    logger.Clear();
    EXPECT_EQ(kFailed, peer->ConHashCalcHashNode(real_num));
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_INFO, "ConHashCalcHashNode",
                      "param error, real_num|" + std::to_string(real_num)}}),
              logger.Lines());
    EXPECT_EQ(arcs, Arcs(0));
    EXPECT_EQ(totals, Totals());
  }
}

TEST_F(RouterPartitionErrorsTest, RefusesToSplitForANegativeIdAtError) {
  Partition(3);
  const Pairs totals = Totals();
  for (const int id : {-1, -2147483647 - 1}) {
    logger.Clear();
    EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(id));
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "ConHashSplitHashRing",
                      "param error, id|" + std::to_string(id)}}),
              logger.Lines());
    EXPECT_EQ(totals, Totals());
  }
}

TEST_F(RouterPartitionErrorsTest, CannotSplitWithoutOwners) {
  for (const int id : {0, 1, 199}) {
    logger.Clear();
    EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(id));
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "ConHashSplitHashRing",
                      "it_total == m_totallen2id.end()"}}),
              logger.Lines())
        << id;
  }
}

TEST_F(RouterPartitionErrorsTest, CannotSplitAnOwnerWithoutArcs) {
  peer->m_totallen2id().emplace(kFullTotal, 7);
  EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(1));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "ConHashSplitHashRing", "it_len == m_len2ending[n].end()"}}),
      logger.Lines());
}

TEST_F(RouterPartitionErrorsTest, HasTheSameCodesWithoutALogger) {
  peer->m_logger() = nullptr;
  EXPECT_EQ(kFailed, peer->ConHashCalcHashNode(0));
  EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(-1));
  EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(1)) << "no owners";
  peer->m_totallen2id().emplace(kFullTotal, 7);
  EXPECT_EQ(kFailed, peer->ConHashSplitHashRing(1)) << "no arcs";
  EXPECT_EQ(0, peer->ConHashCalcHashNode(3));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterPartitionErrorsTest, TurnsEveryAllocationFailureIntoItsCode) {
  int failures = 0;
  for (bool struck = true; struck; ++failures) {
    // A fresh router each time: the containers of another round could lend their nodes.
    MakeRouter();
    AllocationFaults faults;
    faults.FailThrowing(failures + 1);
    const int result = peer->ConHashCalcHashNode(2);
    struck = faults.struck();
    ASSERT_EQ(struck ? kFailed : 0, result) << failures;
  }
  EXPECT_LT(300, failures) << "100 places and arcs, 100 more arcs, two totals";
}

TEST_F(RouterPartitionErrorsTest, CanBeMadeAnewAfterAnAllocationFailure) {
  {
    AllocationFaults faults;
    faults.FailThrowing(500);
    ASSERT_EQ(kFailed, peer->ConHashCalcHashNode(200));
  }
  Partition(200);
  const Pairs again = Totals();
  MakeRouter();
  Partition(200);
  EXPECT_EQ(again, Totals());
}

#ifndef NDEBUG
TEST_F(RouterPartitionErrorsTest, AssertsThatThereIsRoomForTheNodes) {
  EXPECT_DEATH(peer->ConHashCalcHashNode(201), "real_num <= MAX_SERVER_COUNT");
  EXPECT_DEATH(peer->ConHashSplitHashRing(200), "id < MAX_SERVER_COUNT");
}
#endif

}  // namespace
}  // namespace OstrandService
