#include "client/judge.h"

#include <gtest/gtest.h>

#include <string>

#include "client/runtime_errors.h"
#include "client/statistic_mgr.h"
#include "fakes/allocation_faults.h"
#include "fakes/fake_clock.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr int32_t kApp = 7;
constexpr int32_t kZone = 3;
constexpr char kUrlA[] = "tcp://10.0.0.1:9000";
constexpr char kUrlB[] = "tcp://10.0.0.2:9000";

// 5 failures in 10 s, three times in a row; the judge has seen the two accesses.
class JudgeTest : public testing::Test {
 protected:
  JudgeTest() {
    m_statistics.RegisterApp(kApp, kZone);
    m_statistics.AddAccess(kApp, kZone, kUrlA, 1, 9000, "a");
    m_statistics.AddAccess(kApp, kZone, kUrlB, 2, 9000, "b");
    SetOption(5, 10, 3);
    Update();
  }

  void SetOption(int32_t threshold, int32_t check_period, int32_t check_times) {
    JudgeProxyOption option = Judge::kDefaultOption;
    option.threshold = threshold;
    option.check_period = check_period;
    option.check_times = check_times;
    ASSERT_EQ(0, m_judge.SetProxyOption(kApp, kZone, option));
  }
  tagAccessRunStatus& Access(int ip) {
    return *m_statistics.GetAccessRunStatus(*m_statistics.GetServiceApiStatistic(kApp, kZone), ip,
                                            9000);
  }
  void Update() { m_judge.Update(kApp, kZone, m_statistics); }
  // A whole period in which the proxy of this ip has failures.
  void Period(int ip, uint32_t time_outs) {
    Access(ip).dwTimeOutCountPerMin += time_outs;
    m_clock.AdvanceMs(10000);
    Update();
  }
  bool IsOut(const char* url) { return m_judge.IsProxyUnavailable(kApp, kZone, url); }

  OstrandFakes::FakeClock m_clock;
  StatisticMgr m_statistics;
  Judge m_judge;
};

TEST_F(JudgeTest, HasDefaults) {
  const JudgeProxyOption option = m_judge.GetProxyOption(kApp, kZone + 1);
  EXPECT_EQ(100, option.threshold);
  EXPECT_EQ(10, option.check_period);
  EXPECT_EQ(3, option.check_times);
  EXPECT_EQ(60, option.recheck_available_interval);
  EXPECT_EQ(10, option.max_remove_rate);
  EXPECT_FALSE(option.should_check);
  EXPECT_EQ(60, m_judge.GetRecheckAvailableInterval(kApp, kZone + 1));
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone + 1));
  EXPECT_FALSE(m_judge.IsProxyUnavailable(kApp, kZone + 1, kUrlA));
  m_judge.ResetJudgeProxyStatus(kApp, kZone + 1, kUrlA);  // nothing
}

TEST_F(JudgeTest, CondemnsAProxyAfterBadPeriodsInARow) {
  Period(1, 5);
  Period(1, 6);
  EXPECT_FALSE(IsOut(kUrlA));
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA));
  EXPECT_FALSE(IsOut(kUrlB));
  EXPECT_FALSE(IsOut("tcp://10.0.0.1:900"));
  EXPECT_FALSE(IsOut(nullptr));
}

TEST_F(JudgeTest, FailuresBelowTheThresholdAreNoBadPeriod) {
  for (int i = 0; i < 10; ++i) {
    Period(1, 4);
  }
  EXPECT_FALSE(IsOut(kUrlA));
}

TEST_F(JudgeTest, TimeOutsAndSystemErrorsCountTogether) {
  for (int i = 0; i < 3; ++i) {
    Access(1).dwProxyReturnSystemErrCountPerMin += 3;
    Access(1).dwProxyReturnErrCountPerMin += 100;  // errors of other kinds
    Period(1, 2);
  }
  EXPECT_TRUE(IsOut(kUrlA));
}

TEST_F(JudgeTest, AGoodPeriodBeginsTheCountAnew) {
  Period(1, 5);
  Period(1, 5);
  Period(1, 0);
  Period(1, 5);
  Period(1, 5);
  EXPECT_FALSE(IsOut(kUrlA));
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA));
  Period(1, 0);
  EXPECT_FALSE(IsOut(kUrlA));
}

TEST_F(JudgeTest, VerdictsAreDueOnceAfterEachPeriod) {
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone));
  m_clock.AdvanceMs(9999);
  Update();
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone));
  m_clock.AdvanceMs(1);
  Update();
  EXPECT_TRUE(m_judge.IsShouldCheck(kApp, kZone));
  EXPECT_TRUE(m_judge.GetProxyOption(kApp, kZone).should_check);
  Update();
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone));
}

TEST_F(JudgeTest, FailuresFromBeforeTheFirstPeriodDoNotCount) {
  m_statistics.RegisterApp(kApp, kZone + 1);
  m_statistics.AddAccess(kApp, kZone + 1, kUrlA, 1, 9000, "a");
  tagAccessRunStatus& access = *m_statistics.GetAccessRunStatus(
      *m_statistics.GetServiceApiStatistic(kApp, kZone + 1), 1, 9000);
  access.dwTimeOutCountPerMin = 1000;
  JudgeProxyOption option = Judge::kDefaultOption;
  option.check_times = 1;
  m_judge.SetProxyOption(kApp, kZone + 1, option);
  m_judge.Update(kApp, kZone + 1, m_statistics);
  m_clock.AdvanceMs(10000);
  m_judge.Update(kApp, kZone + 1, m_statistics);
  EXPECT_TRUE(m_judge.IsShouldCheck(kApp, kZone + 1));
  EXPECT_FALSE(m_judge.IsProxyUnavailable(kApp, kZone + 1, kUrlA));
}

// The roll may come at any moment of the period, also at none at which the judge looks.
TEST_F(JudgeTest, TheMinutesRollLosesNoFailure) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(IsOut(kUrlA));
    Access(1).dwTimeOutCountPerMin += 3;
    m_statistics.RollMinute();
    m_statistics.RollMinute();
    Period(1, 2);
  }
  EXPECT_TRUE(IsOut(kUrlA));
  // And it finds none that are not there.
  m_statistics.RollMinute();
  Period(1, 4);
  EXPECT_FALSE(IsOut(kUrlA));
}

TEST_F(JudgeTest, AResetForgetsBadPeriodsAndTheFailuresSoFar) {
  for (int i = 0; i < 3; ++i) {
    Period(1, 5);
    Access(2).dwTimeOutCountPerMin += 5;
  }
  Access(1).dwTimeOutCountPerMin += 100;
  m_judge.ResetJudgeProxyStatus(kApp, kZone, kUrlA);
  m_judge.ResetJudgeProxyStatus(kApp, kZone, "tcp://nobody");
  m_judge.ResetJudgeProxyStatus(kApp, kZone, nullptr);
  EXPECT_FALSE(IsOut(kUrlA));
  Update();
  Period(1, 4);  // with the 100 it would be a bad one
  Period(1, 5);
  Period(1, 5);
  EXPECT_FALSE(IsOut(kUrlA));
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA));
}

TEST_F(JudgeTest, AClockThatStepsBackBeginsThePeriodAnew) {
  Access(1).dwTimeOutCountPerMin += 5;
  m_clock.AdvanceMs(-3600000);
  Update();
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone));
  m_clock.AdvanceMs(10000);
  Update();
  EXPECT_TRUE(m_judge.IsShouldCheck(kApp, kZone));
  Period(1, 5);
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA)) << "nothing was lost";
}

TEST_F(JudgeTest, AnAccessThatComesLaterIsJudgedFromItsEntryOn) {
  m_statistics.AddAccess(kApp, kZone, "tcp://10.0.0.3:9000", 3, 9000, "c");
  for (int i = 0; i < 3; ++i) {
    Period(3, 5);
  }
  EXPECT_TRUE(IsOut("tcp://10.0.0.3:9000"));
}

// Records change owners when more addresses come than there are records.
TEST_F(JudgeTest, ANewOwnerOfARecordInheritsNothing) {
  for (int i = 0; i < 3; ++i) {
    Period(1, 5);
  }
  ASSERT_TRUE(IsOut(kUrlA));
  m_statistics.RollMinute();
  for (int ip = 2; ip <= 1025; ++ip) {  // 10.0.0.1 is the one not used since the roll
    const std::string url = "tcp://10.0.0." + std::to_string(ip) + ":9000";
    m_statistics.AddAccess(kApp, kZone, url.c_str(), ip, 9000, "x");
  }
  m_statistics.ReuseIdleAccesses();
  Access(1025).dwTimeOutCountPerMin += 5;
  m_clock.AdvanceMs(10000);
  Update();
  EXPECT_FALSE(IsOut(kUrlA));
  EXPECT_FALSE(IsOut("tcp://10.0.0.1025:9000")) << "its first bad period";
  Period(1025, 5);
  Period(1025, 5);
  EXPECT_TRUE(IsOut("tcp://10.0.0.1025:9000"));
}

// Within one period a proxy loses its record and gets it again.
TEST_F(JudgeTest, AnAccessThatIsEnteredAgainBeginsAnew) {
  SetOption(5, 10, 1);
  Period(1, 100);
  ASSERT_TRUE(IsOut(kUrlA));
  const auto enter = [this](int from, int to) {
    for (int ip = from; ip <= to; ++ip) {
      const std::string url = "tcp://10.0.0." + std::to_string(ip) + ":9000";
      ASSERT_EQ(0, m_statistics.AddAccess(kApp, kZone, url.c_str(), ip, 9000, "x"));
    }
    m_statistics.ReuseIdleAccesses();
  };
  enter(2, 1024);
  enter(2, 1025);
  ASSERT_STREQ("tcp://10.0.0.1025:9000",
               m_statistics.GetServiceApiStatistic(kApp, kZone)->astAccessStatistic[0].szAccessUrl);
  enter(2, 1024);
  enter(1, 1024);
  ASSERT_STREQ(kUrlA,
               m_statistics.GetServiceApiStatistic(kApp, kZone)->astAccessStatistic[0].szAccessUrl);
  Period(1, 4);
  EXPECT_FALSE(IsOut(kUrlA));
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA));
}

TEST_F(JudgeTest, ThresholdPeriodOrTimesOf0SwitchItOff) {
  for (const auto& [threshold, period, times] :
       {std::tuple{0, 10, 3}, std::tuple{5, 0, 3}, std::tuple{5, 10, 0}, std::tuple{-1, -1, -1}}) {
    SetOption(threshold, period, times);
    for (int i = 0; i < 5; ++i) {
      Period(1, 1000);
      EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone));
      EXPECT_FALSE(IsOut(kUrlA));
    }
  }
  SetOption(5, 10, 1);
  Update();
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone)) << "the first period begins";
  Period(1, 0);
  EXPECT_FALSE(IsOut(kUrlA)) << "what failed while nobody judged does not count";
  Period(1, 5);
  EXPECT_TRUE(IsOut(kUrlA));
}

TEST_F(JudgeTest, OptionsAreTheZonesOwnAndKeepTheJudgesFields) {
  JudgeProxyOption option = {1, 2, 3, 4, 5, 6, true, 7, 8};
  EXPECT_EQ(0, m_judge.SetProxyOption(kApp, kZone + 1, option));
  option = m_judge.GetProxyOption(kApp, kZone + 1);
  EXPECT_EQ(1, option.threshold);
  EXPECT_EQ(2, option.check_period);
  EXPECT_EQ(3, option.check_times);
  EXPECT_EQ(4, option.recheck_available_interval);
  EXPECT_EQ(8, option.max_remove_rate);
  EXPECT_EQ(0, option.last_call_update_time);
  EXPECT_EQ(0, option.last_traverse_time);
  EXPECT_FALSE(option.should_check);
  EXPECT_EQ(4, m_judge.GetRecheckAvailableInterval(kApp, kZone + 1));
  EXPECT_EQ(5, m_judge.GetProxyOption(kApp, kZone).threshold);
  EXPECT_EQ(m_clock.Ms() / 1000, m_judge.GetProxyOption(kApp, kZone).last_call_update_time);
}

TEST_F(JudgeTest, ZonesWithoutStatisticsAreNotJudged) {
  m_judge.Update(kApp, kZone + 1, m_statistics);
  m_clock.AdvanceMs(100000);
  m_judge.Update(kApp, kZone + 1, m_statistics);
  EXPECT_FALSE(m_judge.IsShouldCheck(kApp, kZone + 1));
}

TEST(Judge, HasRoomFor256ZonesAndCodesForMemory) {
  Judge judge;
  {
    OstrandFakes::AllocationFaults faults;
    faults.FailNothrow(1);
    EXPECT_EQ(ROUTER_ERR_ALLOCATION, judge.SetProxyOption(1, 0, Judge::kDefaultOption));
  }
  for (int32_t zone = 0; zone < 256; ++zone) {
    ASSERT_EQ(0, judge.SetProxyOption(1, zone, Judge::kDefaultOption));
  }
  EXPECT_EQ(RUNTIME_ERR_STATISTICS_FULL, judge.SetProxyOption(2, 0, Judge::kDefaultOption));
  EXPECT_EQ(0, judge.SetProxyOption(1, 255, Judge::kDefaultOption));
}

TEST_F(JudgeTest, UpdatesAllocateNothingOnceWarm) {
  OstrandFakes::AllocationFaults faults;
  for (int i = 0; i < 10; ++i) {
    m_judge.Update(kApp, kZone, m_statistics);
    m_clock.AdvanceMs(10000);
  }
  EXPECT_EQ(0, faults.count());
}

}  // namespace
}  // namespace OstrandService
