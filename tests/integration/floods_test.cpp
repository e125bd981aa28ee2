// More than anybody asked for, or than there is room for: the limits hold, and nothing is lost.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unordered_set>

#include "fakes/sanitizers.h"
#include "integration/integration_kit.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandFleet::ProxyFaults;
using OstrandService::CLIENT_ERR_TOO_MANY;
using OstrandService::ClientResponse;

class Floods : public RuntimeTest {
 protected:
  void StartAll(size_t proxies) {
    StartFleet(proxies);
    StartClient();
    ASSERT_TRUE(m_work->Run(200));
    ASSERT_TRUE(m_work->Drain());
  }
  uint64_t Dropped() const { return m_client->Counters().dropped; }

  static std::string UnaskedAnswer(uint64_t asyn_id) {
    return Frame(OSTRAND_API_GET_RES, [asyn_id](OStrandPkg& pkg) {
      pkg.stHead.ullAsynID = asyn_id;
      RecordWriter writer(pkg.stBody.stRecords);
      EXPECT_EQ(writer.BeginRecord(RecordMark()), 0);
      EXPECT_EQ(writer.AddValueField("name", std::string(8000, 'x')), 0);
    });
  }
};

// What nobody asked for and nobody fetches is received up to the limit; the rest waits at its
// sender, and all of it is dropped once the application goes on.
TEST_F(Floods, OfAnswersNobodyAskedForStopAtTheLimit) {
  constexpr size_t kFloodFrames = 4000;  // 32 MB, more than all buffers on the way hold
  StartFleet(2);
  auto options = Options();
  options.buffer_limit = 512 * 1024;
  StartClient(options);
  ASSERT_TRUE(m_work->Run(200));
  ASSERT_TRUE(m_work->Drain());
  const std::string flood = Repeat(UnaskedAnswer(uint64_t{1} << 40), kFloodFrames);
  const uint64_t out_before = m_fleet->Counters(0).bytes_out;
  m_fleet->SendBytes(0, flood);
  EXPECT_FALSE(m_fleet->WaitFor(200, [&] {
    return m_fleet->Counters(0).bytes_out - out_before >= flood.size();
  })) << "all of it was received";
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= kFloodFrames; }));
  ASSERT_TRUE(m_work->Run(200));
  EXPECT_EQ(m_work->tally().timed_out + m_work->tally().failed, 0u);
}

// Receive keeps to its time limit whatever comes. What it leaves waits in the sockets.
TEST_F(Floods, DoNotKeepReceiveFromReturning) {
  constexpr size_t kFrames = 50000;
  StartAll(1);
  const std::string flood = Repeat(Frame(OSTRAND_API_DELETE_RES), kFrames);
  const uint64_t wanted = m_fleet->Counters(0).bytes_out + flood.size() / 5;
  m_fleet->SendBytes(0, flood);
  ASSERT_TRUE(
      m_fleet->WaitFor(kPatienceMs, [&] { return m_fleet->Counters(0).bytes_out >= wanted; }));
  EXPECT_EQ(m_client->Receive(m_response, 0), 0);
  EXPECT_LT(Dropped(), kFrames / 10);
  EXPECT_TRUE(UpdateUntil([&] { return Dropped() >= kFrames; }));
}

// Answers with ids that are in flight but to other commands leave the request waiting for its own.
TEST_F(Floods, OfAnswersToOtherCommandsAreNoOutcome) {
  StartAll(1);
  SetFaults(0, [](ProxyFaults& faults) { faults.delay_ms = 100; });
  const uint64_t dropped = Dropped();
  m_request.Begin(OSTRAND_API_GET_REQ, kTable).Zone(kZone);
  m_request.Key("id", "nothing");
  ASSERT_EQ(m_client->Send(m_request), 0);
  const uint64_t asyn_id = m_request.GetAsynID();
  m_fleet->SendBytes(0, Repeat(Frame(OSTRAND_API_DELETE_RES,
                                     [&](OStrandPkg& pkg) { pkg.stHead.ullAsynID = asyn_id; }),
                               1000));
  ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
  EXPECT_EQ(m_response.GetAsynID(), asyn_id);
  EXPECT_EQ(m_response.GetCmd(), OSTRAND_API_GET_RES);
  EXPECT_EQ(m_response.GetResult(), -7949);
  EXPECT_EQ(Dropped(), dropped + 1000);
}

TEST_F(Floods, OfRequestsAreRefusedWhenTheInFlightTableIsFull) {
  constexpr size_t kMax = 500;
  StartFleet(2);
  auto options = Options();
  options.max_in_flight = kMax;
  StartClient(options);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.delay_ms = 100; });
  int ret = 0;
  for (size_t i = 0; i <= kMax && ret == 0; ++i) {
    ret = m_work->SendOne();
  }
  EXPECT_EQ(ret, CLIENT_ERR_TOO_MANY);
  EXPECT_EQ(m_client->InFlight(), kMax);
  ASSERT_TRUE(m_work->Drain());
  EXPECT_EQ(m_work->tally().answered, kMax);
  EXPECT_EQ(m_work->SendOne(), 0);
}

TEST_F(Floods, OfAHundredThousandTimeOutsAreOneOutcomeEach) {
  constexpr size_t kMany = OstrandFakes::Rounds(100000);
  WarpedClock clock;
  StartFleet(4);
  auto options = Options();
  options.buffer_limit = size_t{64} << 20;
  options.check_heartbeat_ms = 100 * 3600 * 1000;
  StartClient(options);
  SetFaultsOfAll([](ProxyFaults& faults) { faults.silent = true; });
  std::unordered_set<uint64_t> without_outcome;
  for (size_t i = 0; i < kMany; ++i) {
    m_request.Get(kTable).Key("id", static_cast<int>(i % 100));
    ASSERT_EQ(m_client->Send(m_request), 0);
    ASSERT_TRUE(without_outcome.insert(m_request.GetAsynID()).second) << "its id is another's";
  }
  EXPECT_EQ(m_client->InFlight(), kMany);
  clock.Jump(3600 * 1000);
  for (size_t i = 0; i < kMany; ++i) {
    ASSERT_EQ(m_client->Receive(m_response, static_cast<int>(kPatienceMs)), 1);
    ASSERT_EQ(m_response.GetResult(), ClientResponse::kResultTimeOut);
    ASSERT_EQ(without_outcome.erase(m_response.GetAsynID()), 1u);
  }
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(m_client->Counters().timed_out, kMany);
}

}  // namespace
}  // namespace OstrandTests
