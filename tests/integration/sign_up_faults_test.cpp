// Sign-ups that are refused, not answered, or answered for nobody; proxies that ask to stop.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandFleet::AnswerFault;
using OstrandFleet::AnswerScope;
using OstrandFleet::ProxyFaults;
using OstrandService::CLIENT_ERR_NOT_READY;
using OstrandService::CLIENT_ERR_NOT_READY_IN_TIME;

constexpr int64_t kSpeed = 10;

std::string SignUpAnswer(int32_t result) {
  return Frame(OSTRAND_API_APP_SIGNUP_RES, [result](OStrandPkg& pkg) {
    pkg.stHead.iResult = result;
    pkg.stBody.stAppSignupRes.iResult = result;
  });
}

class SignUpFaults : public RuntimeTest {
 protected:
  // A client whose proxies misbehave from the start.
  void StartMisbehaving(size_t proxies, const std::function<void(ProxyFaults&)>& edit) {
    StartFleet(proxies);
    SetFaultsOfAll(edit);
    StartClientUnready(Options());
  }

  WarpedClock m_clock{kSpeed};
};

TEST_F(SignUpFaults, NeverAnswered) {
  StartMisbehaving(2, [](ProxyFaults& faults) { faults.ignore_sign_up = true; });
  EXPECT_EQ(m_client->WaitReady(300), CLIENT_ERR_NOT_READY_IN_TIME);
  EXPECT_GT(m_fleet->Counters(0).sign_ups, 1u) << "it is tried again";
  m_call_timeout_ms = 100;
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "1"), CLIENT_ERR_NOT_READY);
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(m_fleet->Counters(0).table_requests + m_fleet->Counters(1).table_requests, 0u);
  RemoveFaults();
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
}

struct Refusal {
  const char* name;
  int32_t code;
  const char* text;  // ahead of the url and behind it
  const char* text_behind;
};

class Refusals : public SignUpFaults, public testing::WithParamInterface<Refusal> {};

TEST_P(Refusals, TellTheirCodeAndText) {
  StartMisbehaving(1, [](ProxyFaults& faults) { faults.refuse_sign_up = GetParam().code; });
  EXPECT_EQ(m_client->WaitReady(200), CLIENT_ERR_NOT_READY_IN_TIME);
  int32_t code = 0;
  std::string text;
  m_client->GetLastError(code, text);
  EXPECT_EQ(code, GetParam().code);
  EXPECT_EQ(text, GetParam().text + m_fleet->ProxyUrl(0) + GetParam().text_behind);
  m_call_timeout_ms = 100;
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "1"), GetParam().code);
  EXPECT_EQ(m_fleet->Counters(0).table_requests, 0u);
  // It goes on trying, and takes the acceptance when it comes.
  RemoveFaults();
  EXPECT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Each, Refusals,
    testing::Values(Refusal{"WrongSignature", -9233, "Auth failed. url:", ",  result:-9233"},
                    Refusal{"ClientTooOld", -6413, "Client version 1.0.0 is too low. Proxy url ",
                            ", PLEASE update your service api library!"},
                    Refusal{"ClientTooNew", -6669, "Client version 1.0.0 is too high. Proxy url ",
                            ", PLEASE change to an old service api library!"},
                    Refusal{"SmallestCode", INT32_MIN,
                            "Auth failed. url:", ",  result:-2147483648"}),
    [](const testing::TestParamInfo<Refusal>& test) { return test.param.name; });

TEST_F(SignUpFaults, TheWrongSignatureIsRefusedAndTheRightOneTaken) {
  OstrandFleet::FleetOptions fleet;
  fleet.credentials = {{"a signature", "", ""}, {"", "ada", "cafe"}};
  StartFleet(fleet);
  auto options = Options();
  options.signature = "another";
  StartClientUnready(options);
  EXPECT_EQ(m_client->WaitReady(100), CLIENT_ERR_NOT_READY_IN_TIME);
  m_client->Stop(0);
  options.signature.clear();
  options.user_name = "ada";
  options.password_encrypted = "cafe";
  StartClient(options);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", "value"), 0);
}

// A refusal that comes after the acceptance takes the proxy out of use until it is connected anew.
// What waits for that is answered then.
TEST_F(SignUpFaults, RefusedBehindTheAcceptance) {
  StartFleet(2);
  StartClient();
  ASSERT_TRUE(m_work->Run(200));
  m_fleet->SendBytes(0, SignUpAnswer(-9233));
  int32_t code = 0;
  std::string text;
  ASSERT_TRUE(UpdateUntil([&] {
    m_client->GetLastError(code, text);
    return code == -9233;
  }));
  ASSERT_TRUE(m_work->Drain());
  const uint64_t requests = m_fleet->Counters(0).table_requests;
  ASSERT_TRUE(m_work->Run(300));
  EXPECT_EQ(m_fleet->Counters(0).table_requests, requests) << "all go to the other";

  ASSERT_TRUE(m_work->Drain());
  m_fleet->SendBytes(1, SignUpAnswer(-9233));
  m_call_timeout_ms = 50;
  ASSERT_TRUE(UpdateUntil([&] { return Do(OSTRAND_API_GET_REQ, "1") == -9233; }));
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(m_work->SendOne(), 0);
  }
  m_fleet->CloseConnections(0);
  m_fleet->CloseConnections(1);
  ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(1).sign_ups >= 2; }));
  ASSERT_TRUE(m_work->Run(300));
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
}

// An acceptance that no proxy meant: what is sent on its strength is refused, with a code.
TEST_F(SignUpFaults, AnsweredForNobody) {
  StartMisbehaving(1, [](ProxyFaults& faults) { faults.ignore_sign_up = true; });
  ASSERT_TRUE(UpdateUntil([&] { return m_fleet->Counters(0).sign_ups != 0; }));
  m_fleet->SendBytes(0, Repeat(SignUpAnswer(0), 1000));
  ASSERT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "1"), -9233);
  RemoveFaults();
  m_fleet->CloseConnections(0);
}

class StopNotices : public SignUpFaults {
 protected:
  static std::string Notice() {
    return Frame(OSTRAND_API_NOTIFY_STOP_REQ, [](OStrandPkg& pkg) { pkg.stHead.ullAsynID = 5; });
  }
};

TEST_F(StopNotices, AProxyThatMayStopStopsUnderLoadAndNothingIsLost) {
  StartFleet(4);
  StartClient();
  ASSERT_TRUE(m_work->Run(500));
  m_fleet->AskToStop(0);
  ASSERT_TRUE(
      m_work->RunUntil([&] { return m_fleet->State(0) == OstrandFleet::ProxyState::kStopped; }));
  ASSERT_TRUE(m_work->Run(500));
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
  EXPECT_EQ(m_work->tally().Refused(), 0u);
}

TEST_F(StopNotices, TheLastHealthyProxyMayNot) {
  StartFleet(2);
  StartClient();
  m_work->SetTimeout(100 * kSpeed);
  m_fleet->Kill(0);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged(" closed: "); }));
  ASSERT_TRUE(m_work->Drain());
  m_fleet->SendBytes(1, Repeat(Notice(), 2000));
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged("can not stop"); }));
  ASSERT_TRUE(m_work->Run(500));
  EXPECT_EQ(m_fleet->Counters(1).stop_replies, 0u);
  EXPECT_EQ(m_fleet->State(1), OstrandFleet::ProxyState::kRunning);
  ASSERT_EQ(m_fleet->Restart(0), 0);
}

// All ask at once and again: some are let go, never all.
TEST_F(StopNotices, AStormOfThemLeavesSomebodyToServe) {
  StartFleet(6);
  StartClient();
  ASSERT_TRUE(m_work->Run(200));
  for (int i = 0; i < 5; ++i) {
    for (size_t proxy = 0; proxy < 6; ++proxy) {
      m_fleet->SendBytes(proxy, Repeat(Notice(), 200));
    }
    ASSERT_TRUE(m_work->Run(200));
  }
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
  EXPECT_EQ(m_work->tally().Refused(), 0u);
}

// A proxy that left the route is connected for a while; it asks, and changes nothing.
TEST_F(StopNotices, FromAStrangerMeanNothing) {
  StartFleet(3);
  StartClient();
  const auto urls = m_fleet->ProxyUrls();
  m_fleet->SetRoute(kZone, {urls[0], urls[1]});
  ASSERT_TRUE(m_work->RunUntil([&] {
    const uint64_t before = m_fleet->Counters(2).table_requests;
    return m_work->Run(100) && m_fleet->Counters(2).table_requests == before;
  }));
  m_fleet->SendBytes(2, Repeat(Notice(), 500));
  EXPECT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(2).stop_replies != 0; }))
      << "nobody is in its way";
  ASSERT_TRUE(m_work->Run(500));
  EXPECT_EQ(m_work->tally().failed + m_work->tally().timed_out, 0u);
}

}  // namespace
}  // namespace OstrandTests
