// Whole round trips in every way that a request can travel: with the longest user buffer that
// leaves room for a routing context and with one byte more, in normal and in local-buffer mode,
// sampled or not, through the proxy of its key or a pinned one.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "protocol/perf_test.h"
#include "unit/client/router_round_trip_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages

constexpr int32_t kOutOfOrder = -18963;

struct Way {
  size_t user_len;
  bool local;
  bool sampled;
  bool pinned;
};

std::string NameOf(const Way& way) {
  return std::to_string(way.user_len) + (way.local ? "_local" : "_normal") +
         (way.sampled ? "_sampled" : "") + (way.pinned ? "_pinned" : "");
}

std::ostream& operator<<(std::ostream& out, const Way& way) { return out << NameOf(way); }

std::vector<Way> AllWays() {
  std::vector<Way> ways;
  for (const size_t user_len : {size_t{1009}, size_t{1010}}) {
    for (const bool local : {false, true}) {
      for (const bool sampled : {false, true}) {
        for (const bool pinned : {false, true}) {
          ways.push_back({user_len, local, sampled, pinned});
        }
      }
    }
  }
  return ways;
}

class RouterRoundTripMatrix : public RouterRoundTrip, public testing::WithParamInterface<Way> {
 protected:
  RouterRoundTripMatrix() {
    if (way.local) {
      server.m_local_buffer = &server;
    }
    router->SetPerfSampPercent(way.sampled ? 100 : 0);
    if (way.pinned) {
      router->SetSpecialOstrroxyIPAndPort("10.0.0.2", kPort);
    }
  }

  // Sends a request and checks what travels.
  std::unique_ptr<OStrandPkg> SendIn(uint32_t cmd) {
    Begin(cmd);
    request.SetUserBuff(user);
    auto sent = Send(way.pinned ? kOtherUrl : kUrl);
    const std::string travels = UserBuffOf(*sent);
    if (IsKept(cmd)) {
      EXPECT_EQ(14U, travels.size());
    } else if (HasRecord(cmd)) {
      EXPECT_EQ(user, travels.substr(0, user.size()));
      EXPECT_EQ(user.size() + 14, travels.size());
    } else {
      EXPECT_EQ(user, travels);
    }
    EXPECT_EQ(HasRecord(cmd) ? 1U : 0U, table.InFlight());
    const bool simple = cmd == OSTRAND_API_GET_REQ;
    EXPECT_EQ(way.sampled && simple ? PerfTest::kPackedLen : 0, sent->stHead.dwPerfTestLen);
    EXPECT_STREQ(way.pinned ? kOtherUrl : kUrl, router->GetUsedProxyUrl());
    return sent;
  }

  // Only requests of several packages may go on without room for a context: their bytes stay here.
  bool IsKept(uint32_t cmd) const {
    return way.local || (way.user_len > 1009 && cmd == OSTRAND_API_GET_BY_PARTKEY_REQ);
  }
  bool HasRecord(uint32_t cmd) const { return IsKept(cmd) || way.user_len <= 1009; }

  void AnswerFrom(const OStrandPkg& to, uint32_t number = 0, bool more = false) {
    mgr.At(way.pinned ? kOtherUrl : kUrl).QueueFrame(AnswerFrame(to, number, more, 0));
  }

  void ExpectAnswer(int32_t result, const std::string& bytes) {
    ASSERT_EQ(1, Receive());
    EXPECT_EQ(result, response.GetResult());
    EXPECT_EQ(77U, response.GetAsynID());
    EXPECT_EQ(-3, response.GetSequence());
    EXPECT_EQ(request.GetCmd() + 1, response.GetCmd());
    EXPECT_TRUE(bytes == UserBuff()) << bytes.size() << " and " << UserBuff().size() << " bytes";
  }

  // The time-out of the one request in flight, 100 ms after it was sent or last renewed.
  void ExpectTimeOut(uint32_t cmd) {
    clock.AdvanceMs(100);
    EXPECT_EQ(0, Receive());
    clock.AdvanceMs(1);
    ExpectAnswer(ClientResponse::kResultTimeOut, IsKept(cmd) ? user : "");
    EXPECT_EQ(0U, table.InFlight());
    EXPECT_EQ(1U, Access(way.pinned ? kOtherIp : kIp).dwTimeOutCountPerMin);
  }

  // What nobody registered nobody misses.
  void ExpectNoTimeOut() {
    clock.AdvanceMs(1000000);
    EXPECT_EQ(0, Receive());
  }

  void ExpectRefused() {
    EXPECT_EQ(0, Receive());
    EXPECT_EQ(0U, mgr.At(kUrl).queued_frames() + mgr.At(kOtherUrl).queued_frames());
  }

  uint32_t SampledAnswers() {
    return real_statistics.GetServiceApiStatistic(kAppId, kZoneId)
        ->stPerfDelay.stApiTotalDelay.dwDelayLow10MS;
  }

  const Way way = GetParam();
  const std::string user = std::string(way.user_len - 1, 'u') + 'e';
};

TEST_P(RouterRoundTripMatrix, SinglePackage) {
  const auto sent = SendIn(OSTRAND_API_GET_REQ);
  AnswerFrom(*sent);
  ExpectAnswer(0, user);
  EXPECT_EQ(0U, table.InFlight());
  EXPECT_EQ(way.sampled ? 1U : 0U, SampledAnswers());
  EXPECT_EQ(1U, Access(way.pinned ? kOtherIp : kIp).dwResponseCountPerMin);
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, ManyPackages) {
  const auto sent = SendIn(OSTRAND_API_GET_BY_PARTKEY_REQ);
  for (uint32_t number = 0; number < 3; ++number) {
    clock.AdvanceMs(100);  // each gives the next one the whole time
    AnswerFrom(*sent, number, number < 2);
    ExpectAnswer(0, user);
    EXPECT_EQ(number < 2 ? 1U : 0U, table.InFlight());
  }
  EXPECT_EQ(0U, SampledAnswers()) << "only simple requests are";
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, LateSinglePackage) {
  const auto sent = SendIn(OSTRAND_API_GET_REQ);
  if (HasRecord(OSTRAND_API_GET_REQ)) {
    ExpectTimeOut(OSTRAND_API_GET_REQ);
  } else {
    ExpectNoTimeOut();
  }
  AnswerFrom(*sent);
  if (way.local) {
    ExpectRefused();  // the bytes that belong to it are gone
  } else {
    ExpectAnswer(0, user);
  }
}

TEST_P(RouterRoundTripMatrix, LatePackagesOfMany) {
  const auto sent = SendIn(OSTRAND_API_GET_BY_PARTKEY_REQ);
  ExpectTimeOut(OSTRAND_API_GET_BY_PARTKEY_REQ);
  AnswerFrom(*sent, 0, true);
  if (way.local) {
    ExpectRefused();
  } else {
    ExpectAnswer(0, IsKept(OSTRAND_API_GET_BY_PARTKEY_REQ) ? "" : user);
  }
  AnswerFrom(*sent, 1, false);
  ExpectRefused();
}

TEST_P(RouterRoundTripMatrix, DuplicateSinglePackage) {
  const auto sent = SendIn(OSTRAND_API_GET_REQ);
  AnswerFrom(*sent);
  AnswerFrom(*sent);
  ExpectAnswer(0, user);
  if (way.local) {
    ExpectRefused();
  } else {
    ExpectAnswer(0, user);
  }
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, DuplicatePackagesOfMany) {
  const auto sent = SendIn(OSTRAND_API_GET_BY_PARTKEY_REQ);
  for (int i = 0; i < 2; ++i) {  // the number 0 is never checked
    AnswerFrom(*sent, 0, true);
    ExpectAnswer(0, user);
  }
  for (const int32_t result : {0, kOutOfOrder}) {
    AnswerFrom(*sent, 1, true);
    ExpectAnswer(result, user);
    EXPECT_EQ(1U, table.InFlight());
  }
  for (int i = 0; i < 2; ++i) {
    AnswerFrom(*sent, 2, false);
  }
  ExpectAnswer(0, user);
  ExpectRefused();
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, PackagesOutOfOrder) {
  const auto sent = SendIn(OSTRAND_API_GET_BY_PARTKEY_REQ);
  AnswerFrom(*sent, 0, true);
  ExpectAnswer(0, user);
  AnswerFrom(*sent, 2, true);
  ExpectAnswer(kOutOfOrder, user);
  const OStrandPkg* pkg = nullptr;
  received.GetOstrandPackagePtr(pkg);
  EXPECT_EQ(kOutOfOrder, pkg->stBody.stGetByPartKeyRes.iResult);
  EXPECT_EQ(1, received.HaveMoreResPkgs()) << "the router keeps its books by that";
  EXPECT_EQ(0, response.HaveMoreResPkgs()) << "an error ends it for the application";
  AnswerFrom(*sent, 3, true);  // it goes on from there
  ExpectAnswer(0, user);
  AnswerFrom(*sent, 1, false);
  ExpectAnswer(kOutOfOrder, user);
  EXPECT_EQ(0U, table.InFlight()) << "the last one ends it all the same";
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, Expired) {
  SendIn(OSTRAND_API_GET_REQ);
  if (HasRecord(OSTRAND_API_GET_REQ)) {
    ExpectTimeOut(OSTRAND_API_GET_REQ);
  }
  ExpectNoTimeOut();
}

TEST_P(RouterRoundTripMatrix, ExpiredBetweenPackages) {
  const auto sent = SendIn(OSTRAND_API_GET_BY_PARTKEY_REQ);
  clock.AdvanceMs(60);
  AnswerFrom(*sent, 0, true);
  ExpectAnswer(0, user);
  ExpectTimeOut(OSTRAND_API_GET_BY_PARTKEY_REQ);
  ExpectNoTimeOut();
}

INSTANTIATE_TEST_SUITE_P(Ways, RouterRoundTripMatrix, testing::ValuesIn(AllWays()),
                         [](const auto& each) { return NameOf(each.param); });

}  // namespace
}  // namespace OstrandService
