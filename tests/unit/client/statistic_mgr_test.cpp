#include "client/statistic_mgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "client/access_book.h"
#include "client/runtime_errors.h"
#include "fakes/allocation_faults.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr int64_t kApp = 7;
constexpr int32_t kZone = 3;
constexpr int32_t kMaxAccesses = tagServiceApiStatistic::kMaxAccesses;

class StatisticMgrTest : public testing::Test {
 protected:
  StatisticMgrTest() { m_mgr.RegisterApp(kApp, kZone); }

  tagServiceApiStatistic& Record() { return *m_mgr.GetServiceApiStatistic(kApp, kZone); }
  const tagServiceApiStatistic& LastMinute() { return *m_mgr.GetLastMinute(kApp, kZone); }

  int Add(int address) {
    const std::string url = "tcp://10.0.0.1:" + std::to_string(address);
    return m_mgr.AddAccess(kApp, kZone, url.c_str(), address, 9000, "id");
  }
  tagAccessRunStatus* Find(int address) {
    return m_mgr.GetAccessRunStatus(Record(), address, 9000);
  }

  StatisticMgr m_mgr;
};

TEST_F(StatisticMgrTest, HasNoRecordBeforeApplicationAndZoneAreRegistered) {
  EXPECT_EQ(nullptr, m_mgr.GetServiceApiStatistic(kApp, kZone + 1));
  EXPECT_EQ(nullptr, m_mgr.GetServiceApiStatistic(kApp + 1, kZone));
  EXPECT_EQ(nullptr, m_mgr.GetLastMinute(kApp, kZone + 1));
  EXPECT_EQ(0, m_mgr.RegisterApp(kApp, kZone + 1));
  EXPECT_NE(nullptr, m_mgr.GetServiceApiStatistic(kApp, kZone + 1));
  EXPECT_NE(&Record(), m_mgr.GetServiceApiStatistic(kApp, kZone + 1));
}

TEST_F(StatisticMgrTest, RecordsNeverMove) {
  const tagServiceApiStatistic* const first = &Record();
  Record().stOverallRunStatus.dwReqSucNumPerMin = 5;
  for (int32_t zone = 0; zone < 50; ++zone) {
    ASSERT_EQ(0, m_mgr.RegisterApp(1, zone));
  }
  EXPECT_EQ(0, m_mgr.RegisterApp(kApp, kZone)) << "again";
  EXPECT_EQ(first, &Record());
  EXPECT_EQ(5U, Record().stOverallRunStatus.dwReqSucNumPerMin);
}

TEST_F(StatisticMgrTest, RefusesTheZoneBehindTheLast) {
  for (int32_t i = 1; i < static_cast<int32_t>(StatisticMgr::kMaxZones); ++i) {
    ASSERT_EQ(0, m_mgr.RegisterApp(1, i));
  }
  EXPECT_EQ(RUNTIME_ERR_STATISTICS_FULL, m_mgr.RegisterApp(1, 0));
  EXPECT_EQ(nullptr, m_mgr.GetServiceApiStatistic(1, 0));
  EXPECT_EQ(0, m_mgr.RegisterApp(kApp, kZone)) << "it is there";
}

TEST_F(StatisticMgrTest, AnswersACodeWithoutMemory) {
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, m_mgr.RegisterApp(1, 1));
  EXPECT_EQ(nullptr, m_mgr.GetServiceApiStatistic(1, 1));
  EXPECT_EQ(0, m_mgr.RegisterApp(1, 1));
}

TEST_F(StatisticMgrTest, GivesEachTableASubscript) {
  EXPECT_EQ(0, m_mgr.RegisterTable(kApp, kZone, "player"));
  EXPECT_EQ(1, m_mgr.RegisterTable(kApp, kZone, "guild"));
  EXPECT_EQ(0, m_mgr.RegisterTable(kApp, kZone, "player"));
  EXPECT_EQ(2, Record().iTableCount);
  EXPECT_STREQ("guild", Record().astTableStatistic[1].szTableName);
  EXPECT_EQ(RUNTIME_ERR_NOT_REGISTERED, m_mgr.RegisterTable(kApp, kZone + 1, "player"));
}

TEST_F(StatisticMgrTest, TakesTableNamesOf1To31Characters) {
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, m_mgr.RegisterTable(kApp, kZone, nullptr));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, m_mgr.RegisterTable(kApp, kZone, ""));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, m_mgr.RegisterTable(kApp, kZone, std::string(32, 't').c_str()));
  EXPECT_EQ(0, m_mgr.RegisterTable(kApp, kZone, std::string(31, 't').c_str()));
}

TEST_F(StatisticMgrTest, Takes256TablesAZone) {
  for (int32_t i = 0; i < 256; ++i) {
    ASSERT_EQ(i, m_mgr.RegisterTable(kApp, kZone, ("t" + std::to_string(i)).c_str()));
  }
  EXPECT_EQ(RUNTIME_ERR_STATISTICS_FULL, m_mgr.RegisterTable(kApp, kZone, "one more"));
  EXPECT_EQ(255, m_mgr.RegisterTable(kApp, kZone, "t255"));
}

TEST_F(StatisticMgrTest, WatchesOneErrorCodeAZone) {
  EXPECT_EQ(0, m_mgr.GetDynamicErrorCode(kApp, kZone));
  EXPECT_EQ(0, m_mgr.SetDynamicErrorCode(kApp, kZone, -8205));
  EXPECT_EQ(-8205, m_mgr.GetDynamicErrorCode(kApp, kZone));
  EXPECT_EQ(0, m_mgr.GetDynamicErrorCode(kApp, kZone + 1));
  EXPECT_EQ(RUNTIME_ERR_NOT_REGISTERED, m_mgr.SetDynamicErrorCode(kApp, kZone + 1, -1));
}

TEST_F(StatisticMgrTest, FindsAnAccessByItsAddress) {
  EXPECT_EQ(nullptr, m_mgr.GetAccessRunStatus(Record(), 1, 9000));
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, "tcp://0.0.0.1:9000", 1, 9000, "one"));
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, "tcp://0.0.0.1:9001", 1, 9001, "two"));
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, "tcp://0.0.0.0:0", 0, 0, "zero"));
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, "tcp://255.0.0.1:-1", -1, -1, "minus"));
  EXPECT_STREQ("one", m_mgr.GetAccessRunStatus(Record(), 1, 9000)->szAccessId);
  EXPECT_STREQ("two", m_mgr.GetAccessRunStatus(Record(), 1, 9001)->szAccessId);
  EXPECT_STREQ("zero", m_mgr.GetAccessRunStatus(Record(), 0, 0)->szAccessId);
  EXPECT_STREQ("minus", m_mgr.GetAccessRunStatus(Record(), -1, -1)->szAccessId);
  EXPECT_EQ(nullptr, m_mgr.GetAccessRunStatus(Record(), 9000, 1));
  EXPECT_EQ(4, Record().iAccessCount);
}

TEST_F(StatisticMgrTest, EnteringAnAccessAgainChangesNothing) {
  m_mgr.AddAccess(kApp, kZone, "tcp://0.0.0.1:9000", 1, 9000, "one");
  tagAccessRunStatus* const access = m_mgr.GetAccessRunStatus(Record(), 1, 9000);
  access->dwRequestCountPerMin = 5;
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, "tcp://other", 1, 9000, "other"));
  EXPECT_EQ(access, m_mgr.GetAccessRunStatus(Record(), 1, 9000));
  EXPECT_STREQ("tcp://0.0.0.1:9000", access->szAccessUrl);
  EXPECT_STREQ("one", access->szAccessId);
  EXPECT_EQ(5U, access->dwRequestCountPerMin);
  EXPECT_EQ(1, Record().iAccessCount);
}

TEST_F(StatisticMgrTest, CutsTheTextsOfAnAccessToTheirFields) {
  const std::string url = "tcp://" + std::string(100, 'u');
  const std::string id(40, 'i');
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, url.c_str(), 1, 1, id.c_str()));
  EXPECT_EQ(0, m_mgr.AddAccess(kApp, kZone, nullptr, 2, 2, nullptr));
  EXPECT_EQ(url.substr(0, 63), m_mgr.GetAccessRunStatus(Record(), 1, 1)->szAccessUrl);
  EXPECT_EQ(id.substr(0, 32), m_mgr.GetAccessRunStatus(Record(), 1, 1)->szAccessId);
  EXPECT_STREQ("", m_mgr.GetAccessRunStatus(Record(), 2, 2)->szAccessUrl);
}

TEST_F(StatisticMgrTest, EntersNoAccessForAZoneThatNobodyRegistered) {
  EXPECT_EQ(RUNTIME_ERR_NOT_REGISTERED, m_mgr.AddAccess(kApp, kZone + 1, "u", 1, 1, "i"));
}

TEST_F(StatisticMgrTest, KeepsTheAccessesOfZonesApart) {
  m_mgr.RegisterApp(kApp, kZone + 1);
  m_mgr.AddAccess(kApp, kZone, "tcp://a", 1, 1, "a");
  tagServiceApiStatistic& other = *m_mgr.GetServiceApiStatistic(kApp, kZone + 1);
  EXPECT_EQ(nullptr, m_mgr.GetAccessRunStatus(other, 1, 1));
}

TEST_F(StatisticMgrTest, FindsEveryOneOfAFullTable) {
  for (int address = 0; address < kMaxAccesses; ++address) {
    ASSERT_EQ(0, Add(address * 7919));
  }
  EXPECT_EQ(kMaxAccesses, Record().iAccessCount);
  for (int address = 0; address < kMaxAccesses; ++address) {
    ASSERT_NE(nullptr, Find(address * 7919)) << address;
    ASSERT_EQ(address * 7919, Find(address * 7919)->iIp);
  }
  EXPECT_EQ(nullptr, Find(1));
}

TEST_F(StatisticMgrTest, ANewAddressTakesTheRecordThatWasNotUsedForLongest) {
  for (int address = 0; address < kMaxAccesses; ++address) {
    Add(address);
  }
  m_mgr.RollMinute();
  Record().astAccessStatistic[5].dwRequestCountPerMin = 9;
  for (int address = 0; address < kMaxAccesses; ++address) {
    if (address == 6) {
      EXPECT_EQ(0, Add(address)) << "entered again: used";
    } else if (address != 5 && address != 17) {
      ASSERT_NE(nullptr, Find(address)) << "found: used";
    }
  }
  EXPECT_EQ(0, Add(5000));
  EXPECT_EQ(0, Add(5000)) << "it waits once";
  EXPECT_EQ(0, Add(5001));
  EXPECT_EQ(nullptr, Find(5000)) << "it waits for the application's thread";
  m_mgr.ReuseIdleAccesses();
  ASSERT_NE(nullptr, Find(5000));
  ASSERT_NE(nullptr, Find(5001));
  EXPECT_STREQ("tcp://10.0.0.1:5000", Find(5000)->szAccessUrl);
  EXPECT_STREQ("id", Find(5000)->szAccessId);
  EXPECT_EQ(nullptr, Find(5));
  EXPECT_EQ(nullptr, Find(17));
  EXPECT_NE(nullptr, Find(6));
  EXPECT_EQ(kMaxAccesses, Record().iAccessCount);
  for (int i = 0; i < kMaxAccesses; ++i) {
    EXPECT_EQ(0U, Record().astAccessStatistic[i].dwRequestCountPerMin) << "nothing is inherited";
  }
}

TEST_F(StatisticMgrTest, TheRollOfTheMinuteAlsoServesThoseThatWait) {
  for (int address = 0; address <= kMaxAccesses; ++address) {
    Add(address);
  }
  EXPECT_EQ(nullptr, Find(kMaxAccesses));
  m_mgr.RollMinute();
  EXPECT_NE(nullptr, Find(kMaxAccesses));
}

TEST_F(StatisticMgrTest, RefusesAnAddressWhenTooManyWait) {
  const int waiting = static_cast<int>(AccessBook::kMaxWaiting);
  for (int address = 0; address < kMaxAccesses + waiting; ++address) {
    ASSERT_EQ(0, Add(address));
  }
  EXPECT_EQ(RUNTIME_ERR_STATISTICS_FULL, Add(kMaxAccesses + waiting));
  EXPECT_EQ(0, Add(kMaxAccesses)) << "it waits already";
  m_mgr.ReuseIdleAccesses();
  EXPECT_EQ(0, Add(kMaxAccesses + waiting));
}

// 200 new addresses each second for a quarter of an hour, each used by a request a second, beside
// 10 that stay.
TEST_F(StatisticMgrTest, ARouteThatFlapsLosesNoProxyThatIsInUse) {
  for (int second = 0; second < 900; ++second) {
    if (second % 60 == 0) {
      m_mgr.RollMinute();
    }
    for (int i = 0; i < 10; ++i) {
      ASSERT_EQ(0, Add(i));
    }
    for (int i = 0; i < 190; ++i) {
      ASSERT_EQ(0, Add(1000 + second * 190 + i));
    }
    m_mgr.ReuseIdleAccesses();
    for (int i = 0; i < 10; ++i) {
      ASSERT_NE(nullptr, Find(i)) << second;
      Find(i)->dwRequestCountPerMin += 1;
    }
    for (int i = 0; i < 190; ++i) {
      ASSERT_NE(nullptr, Find(1000 + second * 190 + i)) << second;
    }
  }
  EXPECT_EQ(60U, Find(0)->dwRequestCountPerMin) << "the last minute's, none lost";
}

TEST_F(StatisticMgrTest, FindingAndEnteringAllocatesNothing) {
  OstrandFakes::AllocationFaults faults;
  for (int address = 0; address < kMaxAccesses; ++address) {
    m_mgr.AddAccess(kApp, kZone, "tcp://0.0.0.1:9000", address, 9000, "one");
    m_mgr.GetAccessRunStatus(Record(), address, 9000);
  }
  m_mgr.RollMinute();
  EXPECT_EQ(0, faults.count());
}

// Every field by its name, so that a list that lacks one does not hide it.
#define OSTRAND_CLEARED_OVERALL(X)           \
  X(dwApiConnectOstrroxyErrNumPerMin)        \
  X(dwPackErrNumPerMin)                      \
  X(dwUnpackErrNumPerMin)                    \
  X(dwApiFindRouteErrNumPerMin)              \
  X(dwReqSucNumPerMin)                       \
  X(dwRespWarnNumPerMin)                     \
  X(dwOstrsvrInvalidFielNameErrNumPerMin)    \
  X(dwOstrroxyRequestAccessCtrlErrNumPerMin) \
  X(ullSimpleReadMaxLatencyPerMin)           \
  X(ullSimpleReadMaxDelayTime)               \
  X(dwSimpleReadMaxDelayCmd)                 \
  X(dwSimpleReadMaxDelayIp)                  \
  X(dwSimpleReadMaxDelayPort)                \
  X(ullComplexWriteMaxLatencyPerMin)         \
  X(dwComplexWriteMaxDelayPort)

TEST_F(StatisticMgrTest, TheRollMovesTheOverallCountersOfTheMinute) {
  tagOverallRunStatus& overall = Record().stOverallRunStatus;
  uint32_t value = 100;
#define OSTRAND_SET(name) overall.name = ++value;
  OSTRAND_CLEARED_OVERALL(OSTRAND_SET)
  overall.dwApiConnectOstrroxyCount = 8;
  m_mgr.RollMinute();
  const tagOverallRunStatus& last = LastMinute().stOverallRunStatus;
  value = 100;
#define OSTRAND_LOOK_AT(name)             \
  EXPECT_EQ(++value, last.name) << #name; \
  EXPECT_EQ(0U, overall.name) << #name;
  OSTRAND_CLEARED_OVERALL(OSTRAND_LOOK_AT)
  EXPECT_EQ(8U, overall.dwApiConnectOstrroxyCount) << "no count of the minute";
  EXPECT_EQ(8U, last.dwApiConnectOstrroxyCount);

  m_mgr.RollMinute();
  EXPECT_EQ(0U, last.dwReqSucNumPerMin) << "the next minute";
}

TEST_F(StatisticMgrTest, TheRollMovesTheCountersOfEachTable) {
  m_mgr.RegisterTable(kApp, kZone, "player");
  m_mgr.RegisterTable(kApp, kZone, "guild");
  Record().astTableStatistic[0].stTableRunStatus.dwTableReqSucNumPerMin = 3;
  Record().astTableStatistic[1].stTableRunStatus.dwTableOstrroxySwiftErrNumPerMin = 4;
  m_mgr.RollMinute();
  EXPECT_EQ(0U, Record().astTableStatistic[0].stTableRunStatus.dwTableReqSucNumPerMin);
  EXPECT_EQ(0U, Record().astTableStatistic[1].stTableRunStatus.dwTableOstrroxySwiftErrNumPerMin);
  EXPECT_STREQ("guild", Record().astTableStatistic[1].szTableName);
  EXPECT_EQ(2, LastMinute().iTableCount);
  EXPECT_STREQ("guild", LastMinute().astTableStatistic[1].szTableName);
  EXPECT_EQ(3U, LastMinute().astTableStatistic[0].stTableRunStatus.dwTableReqSucNumPerMin);
  EXPECT_EQ(4U,
            LastMinute().astTableStatistic[1].stTableRunStatus.dwTableOstrroxySwiftErrNumPerMin);
}

TEST_F(StatisticMgrTest, TheRollMovesTheCountersOfEachAccess) {
  Add(1);
  tagAccessRunStatus& access = *Find(1);
  access.dwRequestCountPerMin = 1;
  access.dwBatchResponseCountPerMin = 2;
  access.dwMaxDelay = 3;
  access.ullMaxDelayTime = 4;
  access.dwMaxDelayCmd = 5;
  access.stPerfDelay.stSvrHandleDelay.dwDelayLow10MS = 6;
  Record().stPerfDelay.stApiTotalDelay.dwMaxDelay = 7;
  m_mgr.RollMinute();
  EXPECT_EQ(0U, access.dwRequestCountPerMin);
  EXPECT_EQ(0U, access.dwBatchResponseCountPerMin);
  EXPECT_EQ(0U, access.dwMaxDelay);
  EXPECT_EQ(0U, access.ullMaxDelayTime);
  EXPECT_EQ(0U, access.dwMaxDelayCmd);
  EXPECT_EQ(0U, access.stPerfDelay.stSvrHandleDelay.dwDelayLow10MS);
  EXPECT_EQ(0U, Record().stPerfDelay.stApiTotalDelay.dwMaxDelay);
  EXPECT_EQ(&access, Find(1)) << "it stays entered";
  EXPECT_STREQ("tcp://10.0.0.1:1", access.szAccessUrl);

  ASSERT_EQ(1, LastMinute().iAccessCount);
  const tagAccessRunStatus& last = LastMinute().astAccessStatistic[0];
  EXPECT_STREQ("tcp://10.0.0.1:1", last.szAccessUrl);
  EXPECT_EQ(1U, last.dwRequestCountPerMin);
  EXPECT_EQ(2U, last.dwBatchResponseCountPerMin);
  EXPECT_EQ(3U, last.dwMaxDelay);
  EXPECT_EQ(4U, last.ullMaxDelayTime);
  EXPECT_EQ(5U, last.dwMaxDelayCmd);
  EXPECT_EQ(6U, last.stPerfDelay.stSvrHandleDelay.dwDelayLow10MS);
  EXPECT_EQ(7U, LastMinute().stPerfDelay.stApiTotalDelay.dwMaxDelay);
}

TEST_F(StatisticMgrTest, TheRollAddsUpTheFailuresOfAnAccess) {
  Add(1);
  tagAccessRunStatus& access = *Find(1);
  for (uint32_t minute = 1; minute <= 3; ++minute) {
    access.dwTimeOutCountPerMin = minute;
    access.dwProxyReturnSystemErrCountPerMin = 10 * minute;
    m_mgr.RollMinute();
    EXPECT_EQ(0U, access.dwTimeOutCountPerMin);
    EXPECT_EQ(0U, access.dwProxyReturnSystemErrCountPerMin);
  }
  EXPECT_EQ(6U, access.ullTimeOutCount);
  EXPECT_EQ(60U, access.ullProxyReturnSystemErrCount);
}

TEST_F(StatisticMgrTest, PrintsBehindWhatIsThereEveryZoneWithBothMinutes) {
  m_mgr.RegisterApp(kApp, kZone + 1);
  Record().stOverallRunStatus.dwReqSucNumPerMin = 11;
  m_mgr.RollMinute();
  Record().stOverallRunStatus.dwReqSucNumPerMin = 22;
  std::string text = "before\n";
  m_mgr.PrintStatistics(text);
  EXPECT_EQ(0U, text.find("before\napp 7 zone 3, this minute\n\t"));
  const size_t this_minute = text.find("\tdwReqSucNumPerMin:22 requests\n");
  const size_t last_minute_begins = text.find("app 7 zone 3, last minute\n");
  const size_t last_minute = text.find("\tdwReqSucNumPerMin:11 requests\n");
  const size_t other_zone = text.find("app 7 zone 4, this minute\n");
  EXPECT_LT(this_minute, last_minute_begins);
  EXPECT_LT(last_minute_begins, last_minute);
  EXPECT_LT(last_minute, other_zone);
  EXPECT_NE(std::string::npos, text.find("app 7 zone 4, last minute\n"));
}

}  // namespace
}  // namespace OstrandService
