#include "fleet/fleet_directory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "common/clock.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_dir;  // NOLINT: the directory's records

class FleetDirectoryTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(m_fleet.Start(), 0) << m_fleet.Error(); }

  // Asks on a connection of its own.
  bool Ask(int32_t zone) {
    TestClient client(m_fleet.DirectoryUrl());
    return client.is_connected() && AskDirectory(client, zone, *m_answer);
  }
  const tagResGetTablesAndAccess& body() const { return m_answer->stBody.stResGetTablesAndAccess; }

  Fleet m_fleet{TestOptions(2)};
  const std::unique_ptr<tagOStrdirCSPkg> m_answer = std::make_unique<tagOStrdirCSPkg>();
};

TEST_F(FleetDirectoryTest, EveryZoneHasAllProxiesUntilARouteIsSet) {
  const Route all = {{m_fleet.ProxyUrl(0), "p0"}, {m_fleet.ProxyUrl(1), "p1"}};
  for (const int32_t zone : {kZone, 0, -5}) {
    ASSERT_TRUE(Ask(zone));
    EXPECT_EQ(int{m_answer->stHead.wCmd}, 107);
    EXPECT_EQ(int32_t{body().iResult}, 0);
    EXPECT_EQ(int32_t{body().iAppID}, kAppId);
    EXPECT_EQ(int32_t{body().iZoneID}, zone);
    EXPECT_EQ(RouteOf(*m_answer), all);
  }
}

TEST_F(FleetDirectoryTest, TellsTheTablesOfTheZone) {
  ASSERT_TRUE(Ask(kZone));
  ASSERT_EQ(int32_t{body().iTableCount}, 3);
  EXPECT_STREQ(body().aszTableNameList[0], "log");
  EXPECT_STREQ(body().aszTableNameList[1], "mail");
  EXPECT_STREQ(body().aszTableNameList[2], "user");
  ASSERT_TRUE(Ask(kZone + 1));
  EXPECT_EQ(int32_t{body().iTableCount}, 0);
}

TEST_F(FleetDirectoryTest, RoutesAreAZonesOwn) {
  m_fleet.SetRoute(1, std::vector<std::string>{m_fleet.ProxyUrl(1), "tcp://127.0.0.1:1"});
  m_fleet.SetRoute(2, Route{{"tcp://127.0.0.1:2", "other"}});
  ASSERT_TRUE(Ask(1));
  EXPECT_EQ(RouteOf(*m_answer),
            (Route{{m_fleet.ProxyUrl(1), "p1"}, {"tcp://127.0.0.1:1", "proxy-1"}}));
  ASSERT_TRUE(Ask(2));
  EXPECT_EQ(RouteOf(*m_answer), (Route{{"tcp://127.0.0.1:2", "other"}}));
  m_fleet.SetRoute(1, Route());
  ASSERT_TRUE(Ask(1));
  EXPECT_EQ(RouteOf(*m_answer).size(), 2U) << "the zone has the common route again";
}

TEST_F(FleetDirectoryTest, ANewProxyJoinsTheCommonRoute) {
  EXPECT_EQ(m_fleet.AddProxy(), 2);
  ASSERT_TRUE(Ask(kZone));
  ASSERT_EQ(RouteOf(*m_answer).size(), 3U);
  EXPECT_EQ(RouteOf(*m_answer)[2], (RouteRow{m_fleet.ProxyUrl(2), "p2"}));
  m_fleet.Kill(2);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(RouteOf(*m_answer).size(), 3U) << "nobody told the directory of its death";
}

TEST_F(FleetDirectoryTest, ARouteOfMoreThan200ProxiesSaysSo) {
  Route route;
  for (int i = 0; i < 250; ++i) {
    route.push_back({"tcp://10.0.0.1:" + std::to_string(i + 1), std::to_string(i)});
  }
  m_fleet.SetRoute(1, route);
  ASSERT_TRUE(Ask(1));
  EXPECT_EQ(int32_t{body().iAccessCount}, 250);
  route.resize(200);
  EXPECT_EQ(RouteOf(*m_answer), route);
}

TEST_F(FleetDirectoryTest, AnswersMayBeEditedAtWill) {
  m_fleet.SetDirectoryEdit([](tagResGetTablesAndAccess& answer) {
    answer.iAccessCount = -1;
    std::memset(answer.aszAccessUrlList[0], 'u', sizeof(answer.aszAccessUrlList[0]));
  });
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().iAccessCount}, -1);
  EXPECT_EQ(std::string(body().aszAccessUrlList[0], 64), std::string(64, 'u'));
  m_fleet.SetDirectoryEdit(nullptr);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().iAccessCount}, 2);
}

TEST_F(FleetDirectoryTest, ConfIsHandedToClients) {
  tagConfData conf{};
  conf.iHeartbeatMs = 500;
  conf.iMaxRemoveRate = 30;
  m_fleet.SetConf(conf);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().stConfData.iHeartbeatMs}, 500);
  EXPECT_EQ(int32_t{body().stConfData.iMaxRemoveRate}, 30);
}

TEST_F(FleetDirectoryTest, AConnectionServesManyQuestions) {
  TestClient client(m_fleet.DirectoryUrl());
  EXPECT_TRUE(client.Send(DirectoryRequest(1) + DirectoryRequest(2)));
  for (const int32_t zone : {1, 2}) {
    const std::string frame = client.Receive(OSTRDIR_MAX_FRAME_LEN);
    ASSERT_EQ(UnpackDirResponse(*m_answer, frame.data(), frame.size()), 0);
    EXPECT_EQ(int32_t{body().iZoneID}, zone);
  }
  EXPECT_EQ(m_fleet.CountersOfDirectory().requests, 2U);
  EXPECT_EQ(m_fleet.CountersOfDirectory().connections_accepted, 1U);
}

TEST_F(FleetDirectoryTest, WhatIsNoRequestEndsTheConnection) {
  std::string answer(OSTRDIR_MAX_FRAME_LEN, '\0');
  size_t len = answer.size();
  ASSERT_EQ(PackDirResponse(&answer[0], len, *m_answer), 0);
  for (const std::string& bytes : {std::string(100, 'x'), answer}) {
    TestClient client(m_fleet.DirectoryUrl());
    client.Send(bytes);
    EXPECT_TRUE(client.IsClosedByPeer());
  }
  EXPECT_EQ(m_fleet.CountersOfDirectory().malformed_frames, 2U);
}

// --- A directory that fails ---

TEST_F(FleetDirectoryTest, AnAbsentDirectoryComesBackAtItsAddress) {
  const std::string url = m_fleet.DirectoryUrl();
  TestClient before(url);
  EXPECT_EQ(m_fleet.SetDirectoryFault(DirectoryFault::kAbsent), 0);
  EXPECT_TRUE(before.IsClosedByPeer());
  EXPECT_FALSE(TestClient(url).is_connected());
  EXPECT_EQ(m_fleet.SetDirectoryFault(DirectoryFault::kNone), 0);
  EXPECT_EQ(m_fleet.DirectoryUrl(), url);
  EXPECT_TRUE(Ask(kZone));
}

TEST(FleetDirectoryStart, ADirectoryMayBeAbsentFromTheStart) {
  Fleet fleet(TestOptions());
  EXPECT_EQ(fleet.SetDirectoryFault(DirectoryFault::kAbsent), 0);
  ASSERT_EQ(fleet.Start(), 0);
  EXPECT_NE(fleet.DirectoryUrl(), "");
  EXPECT_FALSE(TestClient(fleet.DirectoryUrl()).is_connected());
  EXPECT_EQ(fleet.SetDirectoryFault(DirectoryFault::kNone), 0);
  EXPECT_TRUE(TestClient(fleet.DirectoryUrl()).is_connected());
}

TEST_F(FleetDirectoryTest, ASilentDirectoryAnswersNothing) {
  m_fleet.SetDirectoryFault(DirectoryFault::kSilent);
  TestClient client(m_fleet.DirectoryUrl());
  EXPECT_TRUE(client.Send(DirectoryRequest(1)));
  EXPECT_TRUE(
      m_fleet.WaitFor(kPatienceMs, [&] { return m_fleet.CountersOfDirectory().requests == 1; }));
  m_fleet.SetDirectoryFault(DirectoryFault::kNone);
  ASSERT_TRUE(AskDirectory(client, 2, *m_answer));
  EXPECT_EQ(int32_t{body().iZoneID}, 2) << "the first question stays without answer";
}

TEST_F(FleetDirectoryTest, ASlowDirectoryTakesItsTime) {
  m_fleet.SetDirectoryFault(DirectoryFault::kSlow, 30);
  const int64_t before_ms = OstrandCommon::GetMonotonicMilliseconds();
  EXPECT_TRUE(Ask(kZone));
  EXPECT_GE(OstrandCommon::GetMonotonicMilliseconds() - before_ms, 30);
}

TEST_F(FleetDirectoryTest, GarbageIsNoAnswer) {
  m_fleet.SetDirectoryFault(DirectoryFault::kGarbage);
  TestClient client(m_fleet.DirectoryUrl());
  EXPECT_TRUE(client.Send(DirectoryRequest(1)));
  const std::string bytes = client.Receive(64);
  EXPECT_EQ(bytes.size(), 64U);
  EXPECT_LT(DirFrameLength(bytes.data(), bytes.size()), 0);
}

TEST_F(FleetDirectoryTest, AnAnswerIsCutInTheMiddle) {
  m_fleet.SetDirectoryFault(DirectoryFault::kCutFrame);
  TestClient client(m_fleet.DirectoryUrl());
  EXPECT_TRUE(client.Send(DirectoryRequest(1)));
  EXPECT_EQ(client.Receive(OSTRDIR_MAX_FRAME_LEN).size(), OSTRDIR_MAX_FRAME_LEN / 2);
  EXPECT_TRUE(client.IsClosedByPeer());
}

TEST_F(FleetDirectoryTest, ResultOrZoneIsWrong) {
  m_fleet.SetDirectoryFault(DirectoryFault::kWrongResult);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().iResult}, -1);
  m_fleet.SetDirectoryFault(DirectoryFault::kWrongResult, -4711);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().iResult}, -4711);
  m_fleet.SetDirectoryFault(DirectoryFault::kWrongZone);
  ASSERT_TRUE(Ask(kZone));
  EXPECT_EQ(int32_t{body().iZoneID}, kZone + 1);
}

TEST(FleetDirectoryRoute, AZoneWithoutRouteIsToldSo) {
  FleetOptions options = TestOptions();
  options.proxies = 0;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  TestClient client(fleet.DirectoryUrl());
  const auto answer = std::make_unique<tagOStrdirCSPkg>();
  ASSERT_TRUE(AskDirectory(client, 1, *answer));
  EXPECT_EQ(int32_t{answer->stBody.stResGetTablesAndAccess.iResult}, -1);
  EXPECT_EQ(int32_t{answer->stBody.stResGetTablesAndAccess.iAccessCount}, 0);
}

}  // namespace
}  // namespace OstrandFleet
