// The in-memory fakes of the service's other modules work as their contracts say.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/clock.h"
#include "fakes/fake_clock.h"
#include "fakes/fake_judge_proxy.h"
#include "fakes/fake_latency_data_mgr.h"
#include "fakes/fake_ostrand_server.h"
#include "fakes/fake_statistic_mgr.h"

namespace OstrandFakes {
namespace {

TEST(FakeClock, IsTheClockForItsScope) {
  {
    FakeClock clock(5);
    EXPECT_EQ(5, OstrandCommon::GetCurrentMilliseconds());
    clock.AdvanceMs(2);
    clock.AdvanceUs(3);
    EXPECT_EQ(7003, OstrandCommon::GetCurrentMicroseconds());
    clock.SetMs(1);
    EXPECT_EQ(1000, OstrandCommon::GetCurrentMicroseconds());
  }
  EXPECT_GT(OstrandCommon::GetCurrentMilliseconds(), 1600000000000);
}

TEST(FakeLatencyDataMgr, KeepsARecordUntilItIsFreed) {
  FakeLatencyDataMgr table;
  const int32_t id = table.PushBack(1, 1000, 50, 2, 3, 4, 5, "table", 6, 7, "user\0bytes", 10);
  OstrandService::LatencyData* record = table.GetLatencyData(id);
  ASSERT_NE(nullptr, record);
  EXPECT_EQ(id, record->id_for_latency_data);
  EXPECT_EQ(1050, record->deadline_ms);
  EXPECT_STREQ("table", record->table_name);
  EXPECT_EQ(std::string("user\0bytes", 10),
            std::string(record->user_buffer, record->user_buffer_len));
  table.RenewalLatencyData(2000, record);
  EXPECT_EQ(2050, record->deadline_ms);
  table.FreeLatencyData(record);
  EXPECT_EQ(nullptr, table.GetLatencyData(id));
  EXPECT_EQ(nullptr, table.GetLatencyData(-1));
  EXPECT_EQ(std::vector<int32_t>({id}), table.freed());
}

TEST(FakeLatencyDataMgr, AnswersTheEarliestExpiredRecord) {
  FakeClock clock(1000);
  FakeLatencyDataMgr table;
  const int32_t late = table.PushBack(1, 1000, 20, 0, 0, 0, 0, "t", 0, 0, nullptr, 9);
  const int32_t early = table.PushBack(1, 1000, 10, 0, 0, 0, 0, "t", 0, 0, nullptr, 9);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
  clock.SetMs(1010);
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr)) << "not passed yet";
  clock.SetMs(1011);
  EXPECT_EQ(table.GetLatencyData(early), table.TraverseForDeleteTimeOutNode(nullptr));
  table.FreeLatencyData(table.GetLatencyData(early));
  EXPECT_EQ(nullptr, table.TraverseForDeleteTimeOutNode(nullptr));
  clock.SetMs(1021);
  EXPECT_EQ(table.GetLatencyData(late), table.TraverseForDeleteTimeOutNode(nullptr));
}

TEST(FakeLatencyDataMgr, IsFullWhenToldSo) {
  FakeLatencyDataMgr table;
  table.SetPushBackResult(-5);
  EXPECT_EQ(-5, table.PushBack(1, 1, 1, 0, 0, 0, 0, "t", 0, 0, nullptr, 0));
  EXPECT_EQ(0U, table.live_count());
}

TEST(FakeStatisticMgr, KeepsARecordForEachRegisteredZone) {
  FakeStatisticMgr manager;
  EXPECT_EQ(nullptr, manager.GetServiceApiStatistic(1, 2));
  auto& statistic = manager.Register(1, 2);
  EXPECT_EQ(&statistic, manager.GetServiceApiStatistic(1, 2));
  EXPECT_EQ(nullptr, manager.GetServiceApiStatistic(1, 3));

  EXPECT_EQ(nullptr, manager.GetAccessRunStatus(statistic, 10, 20));
  EXPECT_EQ(0, manager.AddAccess(1, 2, "tcp://a:20", 10, 20, "id"));
  EXPECT_EQ(0, manager.AddAccess(1, 2, "tcp://a:20", 10, 20, "id"));
  EXPECT_EQ(1, statistic.iAccessCount);
  EXPECT_STREQ("tcp://a:20", manager.GetAccessRunStatus(statistic, 10, 20)->szAccessUrl);
  manager.SetAddAccessResult(-4);
  EXPECT_EQ(-4, manager.AddAccess(1, 2, "tcp://b:21", 11, 21, "id"));
  EXPECT_EQ(3U, manager.accesses().size());
}

TEST(FakeJudgeProxy, AnswersItsVerdicts) {
  FakeJudgeProxy judge;
  judge.unavailable = {"bad"};
  EXPECT_TRUE(judge.IsProxyUnavailable(1, 2, "bad"));
  EXPECT_FALSE(judge.IsProxyUnavailable(1, 2, "good"));
  judge.ResetJudgeProxyStatus(1, 2, "bad");
  EXPECT_FALSE(judge.IsProxyUnavailable(1, 2, "bad"));
  EXPECT_EQ(std::vector<std::string>({"bad", "good", "bad"}), judge.asked);
  EXPECT_EQ(1U, judge.keys.size());
}

TEST(FakeOstrandServer, HandsOutTheSameScratchPairUnlessToldNotTo) {
  FakeOstrandServer server(nullptr);
  char* buffer = nullptr;
  size_t size = 0;
  ostrand_protocol_cs::OStrandPkg* pkg = nullptr;
  server.NetThreadGetBufPkg(buffer, size, pkg);
  EXPECT_EQ(server.scratch_buffer(), buffer);
  EXPECT_EQ(FakeOstrandServer::kScratchSize, size);
  EXPECT_EQ(&server.scratch_pkg(), pkg);
  server.SetScratch(false, true);
  server.NetThreadGetBufPkg(buffer, size, pkg);
  EXPECT_EQ(nullptr, buffer);
  EXPECT_NE(nullptr, pkg);
  server.SetScratch(true, false);
  server.NetThreadGetBufPkg(buffer, size, pkg);
  EXPECT_NE(nullptr, buffer);
  EXPECT_EQ(nullptr, pkg);
  EXPECT_EQ(3, server.scratch_requests());
}

TEST(FakeOstrandServer, RemembersReports) {
  Journal journal;
  FakeOstrandServer server(nullptr, &journal);
  server.SetTableMetaVersion(1, "table", 9);
  server.SetVersionWithoutTable(-1);
  EXPECT_EQ(9, server.GetTableMetaVersion(1, "table"));
  EXPECT_EQ(0, server.GetTableMetaVersion(2, "table"));
  EXPECT_EQ(-1, server.GetTableMetaVersion(2, nullptr));
  EXPECT_EQ((std::vector<std::pair<int, std::string>>{{1, "table"}, {2, "table"}, {2, "(null)"}}),
            server.meta_version_requests());
  std::string line = "5-6";
  server.ReportDirHashCircleStat(1, line);
  server.SetDirAlarmErrorCode(-3);
  server.GetNetThread().Pause();
  server.GetNetThread().Resume();
  EXPECT_EQ(std::vector<std::string>(
                {"ReportDirHashCircleStat 5-6", "SetDirAlarmErrorCode -3", "Pause", "Resume"}),
            journal.Entries());
  EXPECT_NE(0, server.CompareEntryValueField(nullptr, nullptr)) << "really compared";
  server.SetCompareResult(0);
  EXPECT_EQ(0, server.CompareEntryValueField(nullptr, nullptr));
}

}  // namespace
}  // namespace OstrandFakes
