// A directory that is absent, silent, slow or talks nonsense: clients that have a route keep it,
// and those that have none get theirs when the directory is back.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "integration/integration_kit.h"

namespace OstrandTests {
namespace {

using OstrandFleet::DirectoryFault;
using OstrandService::CLIENT_ERR_DIRECTORY;
using OstrandService::CLIENT_ERR_NOT_READY_IN_TIME;

class DirectoryFaults : public RuntimeTest {
 protected:
  void SetFault(DirectoryFault fault, int64_t value = 0) {
    ASSERT_EQ(m_fleet->SetDirectoryFault(fault, value), 0);
  }
};

TEST_F(DirectoryFaults, AbsentAtTheStart) {
  StartFleet(2);
  SetFault(DirectoryFault::kAbsent);
  StartClientUnready(Options());
  EXPECT_EQ(m_client->WaitReady(100), CLIENT_ERR_NOT_READY_IN_TIME);
  m_call_timeout_ms = 100;
  EXPECT_EQ(Do(ostrand_protocol_cs::OSTRAND_API_GET_REQ, "1"), CLIENT_ERR_DIRECTORY);
  EXPECT_TRUE(IsLogged("the route stays as it is, next attempt in"));
  SetFault(DirectoryFault::kNone);
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
}

struct Fault {
  const char* name;
  DirectoryFault fault;
  int64_t value;
  const char* log;  // a part of the line that says why
};

class DirectoryThatFails : public DirectoryFaults, public testing::WithParamInterface<Fault> {};

TEST_P(DirectoryThatFails, IsDoneWithoutAndFollowedAgainLater) {
  StartFleet(3);
  const auto urls = m_fleet->ProxyUrls();
  m_fleet->SetRoute(kZone, {urls[0], urls[1]});
  StartClient();
  SetFault(GetParam().fault, GetParam().value);
  m_fleet->SetRoute(kZone, urls);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged(GetParam().log); }));
  ASSERT_TRUE(m_work->Run(500));
  EXPECT_EQ(m_fleet->Counters(2).connections_accepted, 0u) << "the old route stands";
  SetFault(DirectoryFault::kNone);
  EXPECT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(2).table_requests != 0; }, 8));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  EXPECT_EQ(m_work->tally().Refused(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Each, DirectoryThatFails,
    testing::Values(
        Fault{"Dies", DirectoryFault::kAbsent, 0, "Connection refused"},
        Fault{"AnswersGarbage", DirectoryFault::kGarbage, 0, "receive: no frame begins like this"},
        Fault{"ClosesInsideAnAnswer", DirectoryFault::kCutFrame, 0,
              "closed by the peer inside a frame"},
        Fault{"RefusesToAnswer", DirectoryFault::kWrongResult, -77, "result -77"},
        Fault{"TalksAboutAnotherZone", DirectoryFault::kWrongZone, 0, "zone 2 (asked for 1)"}),
    [](const testing::TestParamInfo<Fault>& test) { return test.param.name; });

TEST_F(DirectoryFaults, ASlowOneIsWaitedFor) {
  StartFleet(3);
  const auto urls = m_fleet->ProxyUrls();
  m_fleet->SetRoute(kZone, {urls[0], urls[1]});
  SetFault(DirectoryFault::kSlow, 100);
  StartClient();
  m_fleet->SetRoute(kZone, urls);
  EXPECT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(2).table_requests != 0; }, 8));
  EXPECT_FALSE(IsLogged("the route stays as it is"));
}

TEST_F(DirectoryFaults, ASilentOneHoldsNothingUp) {
  StartFleet(2);
  StartClient();
  SetFault(DirectoryFault::kSilent);
  const uint64_t requests = m_fleet->CountersOfDirectory().requests;
  ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->CountersOfDirectory().requests > requests; }));
  ASSERT_TRUE(m_work->Run(1000));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

TEST_F(DirectoryFaults, TheNextDirectoryIsAskedWhenOneIsGone) {
  StartFleet(1);
  auto options = Options();
  options.directory_urls = {"tcp://127.0.0.1:9", m_fleet->DirectoryUrl()};
  StartClient(options);
  ASSERT_TRUE(m_work->Run(100));
}

TEST_F(DirectoryFaults, ItsSettingsAreTaken) {
  StartFleet(1);
  auto options = Options();
  options.heartbeat_ms = 3600 * 1000;
  options.check_heartbeat_ms = 7200 * 1000;
  StartClient(options);
  ASSERT_TRUE(m_work->Run(100));
  EXPECT_LE(m_fleet->Counters(0).heartbeats, 1u);
  ostrand_protocol_dir::tagConfData conf{};
  conf.iHeartbeatMs = 5;
  m_fleet->SetConf(conf);
  EXPECT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).heartbeats >= 10; }, 8));
}

// Settings with which every proxy would be left before it can answer are no better than a bad
// route.
TEST_F(DirectoryFaults, ItsSettingsAreLeftOutWhenTheyCannotBe) {
  WarpedClock clock(10);
  StartFleet(2);
  StartClient();
  ostrand_protocol_dir::tagConfData conf{};
  conf.iHeartbeatMs = 100;
  conf.iCheckHeartbeatMs = 1;
  m_fleet->SetConf(conf);
  ASSERT_TRUE(m_work->RunUntil(
      [&] { return IsLogged("the directory's heartbeat settings cannot be used"); }));
  const uint64_t beats = m_fleet->Counters(0).heartbeats;
  ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).heartbeats >= beats + 3; }, 8));
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
}

// An hour of the wall clock without a directory, in steps that leave room for heartbeats.
TEST_F(DirectoryFaults, GoneForAnHour) {
  constexpr int kStepMs = 20000;
  WarpedClock clock;
  StartFleet(2);
  auto options = Options();
  options.default_timeout_ms = 7200 * 1000;
  options.heartbeat_ms = 20;  // each step is followed by one soon
  StartClient(options);
  SetFault(DirectoryFault::kAbsent);
  for (int passed_ms = 0; passed_ms < 3600 * 1000; passed_ms += kStepMs) {
    const uint64_t beats = m_fleet->Counters(0).heartbeats;
    clock.Jump(kStepMs);
    ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).heartbeats > beats; }, 8));
    ASSERT_TRUE(m_work->Run(16, 8));
  }
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
  EXPECT_EQ(m_fleet->Counters(0).connections_accepted, 1u);
}

}  // namespace
}  // namespace OstrandTests
