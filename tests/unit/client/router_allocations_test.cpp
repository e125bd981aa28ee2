// Sending and receiving allocate nothing once they are warm: router, request, response, in-flight
// table and statistics together. The first round of each test warms up, the second one is watched.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "fakes/allocation_faults.h"
#include "unit/client/router_round_trip_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages
using OstrandFakes::AllocationFaults;
using OstrandFakes::UnwatchedAllocations;

constexpr int kAtOnce = 200;  // in flight together

// Ways of a kind of traffic, added up.
enum Way : unsigned {
  kPlain = 0,
  kLocal = 1,  // local-buffer mode
  kSampled = 2,
  kPinned = 4,
  kSilent = 8,     // no answer comes: each request times out
  kRefused = 16,   // by the connector
  kFullQueue = 32  // likewise
};

// One kind of traffic.
struct Traffic {
  const char* name;
  uint32_t cmd;
  size_t user_len;
  size_t value_len;
  unsigned ways;
  uint32_t packages = 1;  // of each answer
  int32_t result = 0;

  bool Is(unsigned way) const { return (ways & way) != 0; }
};

std::ostream& operator<<(std::ostream& out, const Traffic& traffic) { return out << traffic.name; }

class RouterAllocations : public RouterRoundTrip, public testing::WithParamInterface<Traffic> {
 protected:
  RouterAllocations() {
    logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
    server.m_local_buffer = traffic.Is(kLocal) ? &server : nullptr;
    router->SetPerfSampPercent(traffic.Is(kSampled) ? 100 : 0);
    if (traffic.Is(kPinned)) {
      router->SetSpecialOstrroxyIPAndPort("10.0.0.2", kPort);
    }
    if (traffic.Is(kRefused | kFullQueue)) {
      mgr.At(kUrl).SetSendResult(traffic.Is(kRefused) ? -1 : 0);
    }
  }

  // Builds, sends and receives; everything the fakes keep is forgotten again.
  void Round() {
    for (int i = 0; i < kAtOnce; ++i) {
      Build();
      ASSERT_EQ(!traffic.Is(kRefused | kFullQueue), SendToRouter() == 0);
    }
    Respond();
    int delivered = 0;
    while (Receive() == 1) {
      ASSERT_EQ(ExpectedResult(), response.GetResult());
      Walk();
      ++delivered;
    }
    ASSERT_EQ(kAtOnce * static_cast<int>(traffic.packages), delivered);
    ASSERT_EQ(0U, table.InFlight());
  }

  int32_t ExpectedResult() const {
    return traffic.Is(kSilent) ? ClientResponse::kResultTimeOut : traffic.result;
  }

  void Build() {
    Begin(traffic.cmd);
    request.SetUserBuff(user);
    if (traffic.value_len > 0) {
      request.Set("value", value);
    }
  }

  void Walk() {
    RecordView record;
    FieldView field;
    while (response.NextRecord(record)) {
      record.FindValue("value", field);
    }
    response.GetUserBuff();
  }

  // The proxy's part.
  void Respond() {
    const UnwatchedAllocations unwatched;
    if (traffic.Is(kSilent)) {
      clock.AdvanceMs(101);
    }
    for (const char* url : {kUrl, kOtherUrl}) {
      const std::vector<std::string> frames = mgr.At(url).sent();
      mgr.At(url).ClearSent();
      for (const std::string& frame : frames) {
        if (!traffic.Is(kSilent)) {
          RespondTo(frame, url);
        }
      }
    }
    logger.Clear();
    journal.Clear();
  }

  void RespondTo(const std::string& frame, const char* url) {
    ASSERT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                                 nullptr, nullptr, 0));
    for (uint32_t number = 0; number < traffic.packages; ++number) {
      mgr.At(url).QueueFrame(
          AnswerFrame(*pkg, number, number + 1 < traffic.packages, traffic.result));
    }
  }

  const Traffic traffic = GetParam();
  const std::string user = std::string(traffic.user_len, 'u');
  const std::string value = std::string(traffic.value_len, 'v');
  std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();
};

TEST_P(RouterAllocations, NonePerRequestOnceWarm) {
  ASSERT_NO_FATAL_FAILURE(Round());
  clock.AdvanceMs(1000);
  AllocationFaults allocations;
  ASSERT_NO_FATAL_FAILURE(Round());
  EXPECT_EQ(0, allocations.count());
}

const Traffic kTraffic[] = {
    {"get", OSTRAND_API_GET_REQ, 0, 0, kPlain},
    {"insert", OSTRAND_API_INSERT_REQ, 4, 100, kPlain},
    {"long_user_buffer", OSTRAND_API_GET_REQ, 1009, 0, kPlain},
    {"without_context", OSTRAND_API_GET_REQ, 1010, 0, kPlain},
    {"local", OSTRAND_API_GET_REQ, 1009, 0, kLocal},
    {"sampled", OSTRAND_API_GET_REQ, 4, 0, kSampled},
    {"pinned", OSTRAND_API_GET_REQ, 4, 0, kPinned},
    {"many_packages", OSTRAND_API_GET_BY_PARTKEY_REQ, 4, 0, kPlain, 3},
    {"many_packages_kept", OSTRAND_API_GET_BY_PARTKEY_REQ, 1010, 0, kPlain, 3},
    {"without_key", OSTRAND_API_BATCH_GET_REQ, 4, 0, kPlain},
    {"failed", OSTRAND_API_GET_REQ, 4, 0, kPlain, 1, -8205},
    {"timed_out", OSTRAND_API_GET_REQ, 4, 0, kSilent},
    {"timed_out_kept", OSTRAND_API_GET_REQ, 4, 0, kSilent | kLocal},
    {"refused", OSTRAND_API_GET_REQ, 4, 0, kSilent | kRefused},
    {"send_buffer_full", OSTRAND_API_GET_REQ, 4, 0, kSilent | kFullQueue},
};
INSTANTIATE_TEST_SUITE_P(All, RouterAllocations, testing::ValuesIn(kTraffic),
                         [](const auto& each) { return each.param.name; });

TEST_F(RouterRoundTrip, PollingForNothingAllocatesNothing) {
  Send();  // in flight: its deadline is looked at
  AllocationFaults allocations;
  EXPECT_EQ(0, Receive());
  EXPECT_EQ(0, allocations.count());
}

// What the rounds above rely on.
TEST_F(RouterRoundTrip, TheFirstRequestInFlightDoesAllocate) {
  AllocationFaults allocations;
  ASSERT_EQ(0, SendToRouter());
  EXPECT_GT(allocations.count(), 0);
}

}  // namespace
}  // namespace OstrandService
