// Connections that break, stall or carry nonsense: the one proxy is lost for a while, nothing else.
#include <gtest/gtest.h>

#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using OstrandFleet::AnswerFault;
using OstrandFleet::CloseKind;
using OstrandFleet::ProxyFaults;

// The wall clock hurries, so that the pauses between attempts to connect are short.
class ConnectionFaults : public RuntimeTest {
 protected:
  static constexpr int64_t kSpeed = 10;

  void StartAll(size_t proxies) {
    StartFleet(proxies);
    StartClient();
    m_work->SetTimeout(100 * kSpeed);
    ASSERT_TRUE(m_work->Run(200));
  }
  // The proxy is signed up with again after it was not.
  bool IsSignedUpAgain(size_t proxy) {
    return m_work->RunUntil([&] { return m_fleet->Counters(proxy).signed_up == 1; });
  }

  // Sends until what may wait fills its bound, and the sockets take no more of what is queued.
  void SendUntilRefused() {
    int refusals = 0;  // in a row
    while (refusals < 2) {
      ASSERT_LT(m_client->InFlight(), 1900u) << "the load itself has no more records";
      const int ret = m_work->SendOne();
      ASSERT_TRUE(ret == 0 || ret == OstrandService::CLIENT_ERR_TOO_MANY) << ret;
      refusals = ret == 0 ? 0 : refusals + 1;
      if (ret != 0) {
        ASSERT_EQ(m_client->Update(), 0);
      }
    }
  }

  WarpedClock m_clock{kSpeed};
};

struct Nonsense {
  const char* name;
  AnswerFault answer;
  bool ends_connection;
};

class NonsensicalAnswers : public ConnectionFaults, public testing::WithParamInterface<Nonsense> {};

TEST_P(NonsensicalAnswers, CostNoMoreThanTheirConnection) {
  StartAll(2);
  SetFaults(0, [](ProxyFaults& faults) {
    faults.answer = GetParam().answer;
    faults.answer_every = 20;
  });
  const uint64_t connections = m_fleet->Counters(0).connections_accepted;
  ASSERT_TRUE(m_work->RunUntil([&] {
    return m_fleet->Counters(0).answers_spoilt >= 2 &&
           (!GetParam().ends_connection ||
            m_fleet->Counters(0).connections_accepted >= connections + 2);
  }));
  EXPECT_TRUE(m_work->Drain());
  EXPECT_GT(m_work->tally().timed_out + m_client->Counters().lost, 0u)
      << "the spoilt answers were none";
  EXPECT_EQ(m_fleet->Counters(1).connections_accepted, 1u);
  if (!GetParam().ends_connection) {
    EXPECT_EQ(m_fleet->Counters(0).connections_accepted, connections);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, NonsensicalAnswers,
    testing::Values(Nonsense{"Garbage", AnswerFault::kGarbage, true},
                    Nonsense{"HeadLength0", AnswerFault::kHeadLen0, true},
                    Nonsense{"HeadLength12", AnswerFault::kHeadLen12, true},
                    Nonsense{"HeadLength27", AnswerFault::kHeadLen27, true},
                    Nonsense{"HeadLengthHuge", AnswerFault::kHeadLenHuge, true},
                    Nonsense{"OneGiBAnnounced", AnswerFault::kAnnounceGiB, true},
                    Nonsense{"CutInTheMiddle", AnswerFault::kCutFrame, true},
                    Nonsense{"UnknownCommand", AnswerFault::kUnknownCommand, false},
                    Nonsense{"RequestCode", AnswerFault::kRequestCode, false}),
    [](const testing::TestParamInfo<Nonsense>& test) { return test.param.name; });

// Frames of every kind that a proxy sends, each with a byte or two changed at random.
TEST_F(ConnectionFaults, DamagedFramesOfEveryKind) {
  using namespace ostrand_protocol_cs;  // NOLINT: commands
  constexpr uint32_t kCommands[] = {OSTRAND_API_GET_RES,         OSTRAND_API_APP_SIGNUP_RES,
                                    OSTRAND_API_HEART_BEAT_RES,  OSTRAND_API_METADATA_GET_RES,
                                    OSTRAND_API_NOTIFY_STOP_REQ, OSTRAND_API_LIST_GETALL_RES,
                                    OSTRAND_API_GET_TTL_RES,     OSTRAND_API_BATCH_GET_RES};
  StartAll(2);
  uint32_t random = 11;
  const auto next = [&random](size_t below) {
    random = random * 1664525 + 1013904223;
    return (random >> 8) % below;
  };
  for (int round = 0; round < 100; ++round) {
    for (const uint32_t cmd : kCommands) {
      std::string frame = Frame(cmd, [](OStrandPkg& pkg) {
        pkg.stHead.ullAsynID = uint64_t{1} << 40;
        pkg.stHead.dwUserBuffLen = 40;
      });
      for (size_t changes = 1 + next(2); changes > 0; --changes) {
        frame[next(frame.size())] ^= static_cast<char>(1 + next(255));
      }
      m_fleet->SendBytes(0, frame);
    }
    m_work->SendOne();
    m_work->ReceiveOne(1);
    if (round % 10 == 9) {
      m_fleet->CloseConnections(0);
      ASSERT_TRUE(m_work->Run(50));
    }
  }
  EXPECT_TRUE(m_work->Drain());
  m_fleet->CloseConnections(0);
  EXPECT_TRUE(IsSignedUpAgain(0));
}

TEST_F(ConnectionFaults, AValueThatIsWrongIsNoticedByTheLoad) {
  StartAll(1);
  SetFaults(0, [](ProxyFaults& faults) { faults.answer = AnswerFault::kWrongValue; });
  ASSERT_TRUE(m_work->RunUntil([&] { return m_work->tally().wrong > 0; }));
  EXPECT_TRUE(m_work->Drain());
  m_work.reset();  // unsound, as it was meant to be
}

TEST_F(ConnectionFaults, ClosedInsideAFrame) {
  StartAll(2);
  for (int i = 0; i < 3; ++i) {
    m_fleet->CloseInsideFrame(0);
    ASSERT_TRUE(IsSignedUpAgain(0));
  }
  EXPECT_TRUE(IsLogged("closed by the peer inside a frame"));
}

TEST_F(ConnectionFaults, ClosedAndResetUnderLoad) {
  StartAll(3);
  for (const CloseKind kind : {CloseKind::kOrderly, CloseKind::kReset, CloseKind::kReset}) {
    m_fleet->CloseConnections(0, kind);
    m_fleet->CloseConnections(1, kind);
    ASSERT_TRUE(m_work->Run(500));
    ASSERT_TRUE(IsSignedUpAgain(0));
    ASSERT_TRUE(IsSignedUpAgain(1));
  }
}

TEST_F(ConnectionFaults, RefusedWhileTheProxyIsAway) {
  StartAll(2);
  m_fleet->Kill(0);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged("Connection refused"); }));
  const uint64_t timed_out = m_work->tally().timed_out;
  ASSERT_TRUE(m_work->Drain());
  m_work->SetTimeout(0);
  const uint64_t timed_out_then = m_work->tally().timed_out;
  EXPECT_GE(timed_out_then, timed_out);
  ASSERT_TRUE(m_work->Run(500));
  EXPECT_EQ(m_work->tally().timed_out, timed_out_then) << "the other proxy serves all";
  int32_t code = 0;
  std::string text;
  ASSERT_TRUE(m_work->RunUntil([&] {  // told from the second attempt on
    m_client->GetLastError(code, text);
    return code != 0;
  }));
  EXPECT_EQ(code, -18195);
  EXPECT_EQ(text, "Connect proxy failed. server_url:" + m_fleet->ProxyUrl(0));
  ASSERT_EQ(m_fleet->Restart(0), 0);
  ASSERT_TRUE(IsSignedUpAgain(0));
}

TEST_F(ConnectionFaults, AnAttemptThatIsNeverAnsweredLeavesTheOthersAlone) {
  StartAll(2);
  SetFaults(0, [](ProxyFaults& faults) { faults.ignore_connects = true; });
  m_fleet->CloseConnections(0);
  ASSERT_TRUE(m_work->RunUntil([&] { return IsLogged(" closed: "); }));
  ASSERT_TRUE(m_work->Drain());
  m_work->SetTimeout(0);
  const uint64_t timed_out = m_work->tally().timed_out;
  m_work->RunFor(2 * 1000 / kSpeed);  // in which it is tried again
  EXPECT_EQ(m_work->tally().timed_out, timed_out);
  EXPECT_GT(m_work->tally().answered, 500u);
}

// The proxy takes the connection and is never heard of again; its silence has it left.
TEST_F(ConnectionFaults, HalfOpenIsLeftWhenItsHeartbeatsEnd) {
  StartFleet(2);
  auto options = Options();
  options.heartbeat_ms = 20 * kSpeed;
  options.check_heartbeat_ms = 300 * kSpeed;
  StartClient(options);
  m_work->SetTimeout(100 * kSpeed);
  ASSERT_TRUE(m_work->Run(200));
  SetFaults(0, [](ProxyFaults& faults) { faults.silent = true; });
  const uint64_t connections = m_fleet->Counters(0).connections_accepted;
  ASSERT_TRUE(
      m_work->RunUntil([&] { return m_fleet->Counters(0).connections_accepted > connections; }));
  RemoveFaults();
  ASSERT_TRUE(m_work->RunUntil([&] { return m_fleet->Counters(0).signed_up == 1; }));
  EXPECT_GT(m_work->tally().timed_out, 0u);
}

// What fits into no buffer waits, up to the bound on what may wait; all that was taken has its
// outcome, which tells on what it waited.
TEST_F(ConnectionFaults, APeerThatNeverReadsFillsTheBufferAndNoMore) {
  StartFleet(1);
  auto options = Options();
  options.buffer_limit = 256 * 1024;
  options.max_kept_bytes = 256 * 1024;
  options.default_timeout_ms = 100 * kSpeed;
  StartClient(options);
  SetFaults(0, [](ProxyFaults& faults) { faults.never_read = true; });
  m_work->SetValueSize(30000);
  SendUntilRefused();
  const auto& tally = m_work->tally();
  const uint64_t accepted = tally.accepted;
  EXPECT_TRUE(m_work->Drain());
  EXPECT_GT(tally.timed_out, 0u);
  EXPECT_GT(tally.failed, 0u);
  EXPECT_EQ(tally.timed_out + tally.failed, accepted);
  for (const auto& [result, times] : tally.results) {
    EXPECT_EQ(result, OstrandService::ROUTER_ERR_SEND_BUFFER_FULL) << times << " times";
  }
  RemoveFaults();
  m_work->SetValueSize(0);
  EXPECT_TRUE(m_work->Run(100));
}

TEST_F(ConnectionFaults, ResetWithBytesQueued) {
  StartFleet(2);
  auto options = Options();
  options.buffer_limit = 1024 * 1024;
  options.max_kept_bytes = 256 * 1024;
  options.default_timeout_ms = 500 * kSpeed;
  StartClient(options);
  SetFaults(0, [](ProxyFaults& faults) { faults.never_read = true; });
  m_work->SetValueSize(30000);
  SendUntilRefused();
  m_fleet->CloseConnections(0, CloseKind::kReset);
  RemoveFaults();
  m_work->SetValueSize(0);
  ASSERT_TRUE(IsSignedUpAgain(0));
  EXPECT_TRUE(m_work->Drain());
  EXPECT_GT(m_client->Counters().lost, 0u);
  EXPECT_EQ(m_work->tally().failed, m_client->Counters().lost) << "what waited was sent later";
  EXPECT_GT(m_work->tally().answered, 0u) << "the other proxy answers";
}

TEST_F(ConnectionFaults, OneByteASecondHoldsUpNobodyElse) {
  StartAll(2);
  SetFaults(0, [](ProxyFaults& faults) { faults.bytes_per_second = 1; });
  const uint64_t answered = m_work->tally().answered;
  ASSERT_TRUE(m_work->RunUntil([&] {
    return m_work->tally().timed_out >= 20 && m_work->tally().answered >= answered + 100;
  }));
  EXPECT_TRUE(m_work->Drain());
  // The rest of the frame that came byte by byte follows, and what comes behind it is in step.
  RemoveFaults();
  ASSERT_TRUE(m_work->Run(500));
}

}  // namespace
}  // namespace OstrandTests
