// Heartbeat answers: the silence ends, latencies are booked, the proxy's text of pairs is read.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "unit/service_api/router_inbound_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandFakes::FakeClock;

class HeartBeatResTest : public RouterInboundTest {
 protected:
  // An answer to a heartbeat that was sent this many microseconds ago.
  int Answer(int64_t latency_us, const std::string& user_buff = {}) {
    return Dispatch(kUsing, HeartBeatRes(clock.Us() - latency_us, user_buff));
  }
  static OstrandFakes::Said Received(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_DEBUG, "recv OSTRAND_API_HEART_BEAT_RES from URL(" + url + ")");
  }
  static OstrandFakes::Said Pairs(const std::string& text) {
    return Says(OSTRAND_LOG_LEVEL_DEBUG, "recv OSTRAND_API_HEART_BEAT_RES from URL(" +
                                             std::string(kUsing) + ") kvConf " + text);
  }
  static OstrandFakes::Said Read(int32_t cpu_use, int32_t cpu_total) {
    return Says(OSTRAND_LOG_LEVEL_DEBUG, "recv cpuUse(" + std::to_string(cpu_use) + "), cpuTotal(" +
                                             std::to_string(cpu_total) + ") from URL(" + kUsing +
                                             ")");
  }
  void ExpectBooks(const ProxyServer& of, int32_t num, int64_t total, int64_t max,
                   int32_t large_num) {
    EXPECT_EQ(num, of.m_heartbeat_num);
    EXPECT_EQ(total, of.m_total_heartbeat_latency);
    EXPECT_EQ(max, of.m_max_heartbeat_latency);
    EXPECT_EQ(large_num, of.m_heartbeat_latency_large_num);
  }
};

TEST_F(HeartBeatResTest, EndsTheSilence) {
  clock.SetUs(FakeClock::kStartMs * 1000 + 5000999);
  EXPECT_EQ(1, Answer(1500));
  EXPECT_EQ(FakeClock::kStartMs + 5000, proxy->last_recv_ms);
  EXPECT_EQ(Lines({Received()}), logger.Lines());
  EXPECT_FALSE(pass_to_user);
  EXPECT_FALSE(peer->m_proxy_sign_up_recv()) << "it is no sign-up answer";
}

TEST_F(HeartBeatResTest, EndsTheSilenceFirstAndStoresTheFiguresBeforeTheirLine) {
  clock.AdvanceMs(5000);
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    EXPECT_EQ(clock.Ms(), proxy->last_recv_ms);
    const bool is_last = line.text == Read(75, 400).text;
    EXPECT_EQ(is_last ? 75 : 0, proxy->cpuUse);
    EXPECT_EQ(is_last ? 400 : 0, proxy->cpuTotal);
    EXPECT_EQ(0, proxy->m_heartbeat_num);
  });
  EXPECT_EQ(1, Answer(1500, "CpuUse=75;CpuTotal=400;"));
  EXPECT_EQ(1, proxy->m_heartbeat_num);
  logger.OnLine(nullptr);
}

TEST_F(HeartBeatResTest, IsConsumed) {
  EXPECT_EQ(1, mgr.Deliver(kUsing, HeartBeatRes(clock.Us()).Bytes()));
  EXPECT_EQ(0U, mgr.At(kUsing).queued_frames());
}

TEST_F(HeartBeatResTest, BelongsToTheSenderAlone) {
  EXPECT_EQ(1, Dispatch(kPreparing, HeartBeatRes(clock.Us() - 10, "CpuUse=1;CpuTotal=2;")));
  EXPECT_EQ(1, Dispatch(kRemoving, HeartBeatRes(clock.Us() - 20, "CpuUse=3;CpuTotal=4;")));
  ExpectBooks(*preparing, 1, 10, 10, 0);
  EXPECT_EQ(1, preparing->cpuUse);
  ExpectBooks(*removing, 1, 20, 20, 0);
  EXPECT_EQ(4, removing->cpuTotal);
  ExpectBooks(*proxy, 0, 0, 0, 0);
}

// --- Latency ---

TEST_F(HeartBeatResTest, BooksNumberSumMaximumAndLargeOnes) {
  Answer(1500);
  ExpectBooks(*proxy, 1, 1500, 1500, 0);
  Answer(700);
  ExpectBooks(*proxy, 2, 2200, 1500, 0);
  Answer(99999);
  Answer(100000);
  ExpectBooks(*proxy, 4, 202199, 100000, 0);
  Answer(100001);
  ExpectBooks(*proxy, 5, 302200, 100001, 1);
  Answer(5000000);
  ExpectBooks(*proxy, 6, 5302200, 5000000, 2);
  Answer(0);
  ExpectBooks(*proxy, 7, 5302200, 5000000, 2);
}

TEST_F(HeartBeatResTest, CountsAnAnswerFromTheFutureAsInstant) {
  for (const int64_t ahead_us : {1, 100001, 2000000000}) {
    EXPECT_EQ(1, Answer(-ahead_us));
  }
  ExpectBooks(*proxy, 3, 0, 0, 0);
}

TEST_F(HeartBeatResTest, NeverOverflowsOnWhateverTimeIsEchoed) {
  // 2^63 - 1 above any time at which the clock stands is a time before the epoch.
  Answer(INT64_MAX);
  ExpectBooks(*proxy, 1, INT64_MAX, INT64_MAX, 1);
  Answer(INT64_MAX);
  ExpectBooks(*proxy, 2, INT64_MAX, INT64_MAX, 2);
  Answer(1);
  ExpectBooks(*proxy, 3, INT64_MAX, INT64_MAX, 2);
}

TEST_F(HeartBeatResTest, WrapsADifferenceThatDoesNotFit) {
  // now - (-2^63) is 2^63 + now: negative once it is taken for a signed number.
  EXPECT_EQ(1, Dispatch(kUsing, HeartBeatRes(INT64_MIN)));
  ExpectBooks(*proxy, 1, 0, 0, 0);
  EXPECT_EQ(1, Dispatch(kUsing, HeartBeatRes(INT64_MAX)));
  ExpectBooks(*proxy, 2, 0, 0, 0);
}

// --- The text of pairs ---

TEST_F(HeartBeatResTest, ReadsTheProcessorsUse) {
  const std::string text = "CpuUse=75;CpuTotal=400;";
  EXPECT_EQ(1, Answer(0, text));
  EXPECT_EQ(75, proxy->cpuUse);
  EXPECT_EQ(400, proxy->cpuTotal);
  EXPECT_EQ(Lines({Received(), Pairs(text), Read(75, 400)}), logger.Lines());
  EXPECT_EQ(text, server.scratch_pkg().stHead.szUserBuff) << "the package keeps its text";
}

TEST_F(HeartBeatResTest, KeepsTheOldFiguresWithoutAText) {
  proxy->cpuUse = 9;
  proxy->cpuTotal = 90;
  EXPECT_EQ(1, Answer(0));
  EXPECT_EQ(9, proxy->cpuUse);
  EXPECT_EQ(90, proxy->cpuTotal);
  EXPECT_EQ(Lines({Received()}), logger.Lines());
}

struct PairsCase {
  const char* what;
  std::string_view text;
  int32_t cpu_use;
  int32_t cpu_total;
};

class PairsTest : public HeartBeatResTest, public testing::WithParamInterface<PairsCase> {};

TEST_P(PairsTest, AreReadAs) {
  const PairsCase& one = GetParam();
  proxy->cpuUse = 9;
  proxy->cpuTotal = 90;
  // An older, longer text stands behind this one in the record.
  Dispatch(kPreparing, HeartBeatRes(0, std::string(900, ' ') + "CpuUse=33;CpuTotal=44;"));
  std::string longer(one.text);
  longer += "CpuUse=55;CpuTotal=66;";
  Dispatch(kPreparing, HeartBeatRes(0, longer));
  logger.Clear();

  EXPECT_EQ(1, Answer(0, std::string(one.text)));
  EXPECT_EQ(one.cpu_use, proxy->cpuUse);
  EXPECT_EQ(one.cpu_total, proxy->cpuTotal);
  const std::string printed(one.text.substr(0, one.text.find('\0')));
  EXPECT_EQ(Lines({Received(), Pairs(printed), Read(one.cpu_use, one.cpu_total)}), logger.Lines());
}

constexpr std::string_view kEndsEarly("CpuUse=3;\0CpuTotal=9;", 21);
constexpr std::string_view kEndsWithANul("CpuUse=3;CpuTotal=9;\0", 21);
constexpr std::string_view kIsANul("\0", 1);

INSTANTIATE_TEST_SUITE_P(
    Texts, PairsTest,
    testing::Values(
        PairsCase{"Both", "CpuUse=75;CpuTotal=400;", 75, 400},
        PairsCase{"OtherOrder", "CpuTotal=8;CpuUse=3;", 3, 8},
        PairsCase{"AmongOthers", "a=1;CpuUse=3;b=2;CpuTotal=8;c=3", 3, 8},
        PairsCase{"NoEndAfterUse", "CpuUse=75", 75, 0},
        PairsCase{"NoEndAfterTotal", "CpuUse=75;CpuTotal=400", 75, 400},
        PairsCase{"NoKeys", "other=1;", 0, 0}, PairsCase{"UseAlone", "CpuUse=7;", 7, 0},
        PairsCase{"TotalAlone", "CpuTotal=7;", 0, 7},
        PairsCase{"FirstOfTwo", "CpuUse=1;CpuUse=2;", 1, 0},
        PairsCase{"AnywhereInAKey", "MyCpuUse=4;", 4, 0},
        PairsCase{"OtherCase", "cpuuse=4;CPUTOTAL=4;", 0, 0},
        PairsCase{"KeyWithoutEquals", "CpuUse;CpuTotal 4;", 0, 0},
        PairsCase{"EmptyValue", "CpuUse=;CpuTotal=4;", 0, 4},
        PairsCase{"NotANumber", "CpuUse=high;CpuTotal=4;", 0, 4},
        PairsCase{"NumberThenText", "CpuUse=12%;CpuTotal=4cores;", 12, 4},
        PairsCase{"BlanksAndSigns", "CpuUse= \t12;CpuTotal=+4;", 12, 4},
        PairsCase{"Negative", "CpuUse=-5;CpuTotal= -0;", -5, 0},
        PairsCase{"ValueIsTheOtherKey", "CpuUse=CpuTotal=7;", 0, 7},
        PairsCase{"Largest", "CpuUse=2147483647;CpuTotal=-2147483648;", INT32_MAX, INT32_MIN},
        PairsCase{"JustTooLarge", "CpuUse=2147483648;CpuTotal=-2147483649;", INT32_MAX, INT32_MIN},
        PairsCase{"FarTooLarge",
                  "CpuUse=99999999999999999999999999;CpuTotal=-99999999999999999999999999;",
                  INT32_MAX, INT32_MIN},
        PairsCase{"LargeIn64Bits", "CpuUse=4294967297;CpuTotal=-4294967297;", INT32_MAX, INT32_MIN},
        PairsCase{"FormatSigns", "%s%n;CpuUse=1;CpuTotal=2;", 1, 2},
        PairsCase{"EndsEarly", kEndsEarly, 3, 0}, PairsCase{"EndsWithANul", kEndsWithANul, 3, 9},
        PairsCase{"IsANul", kIsANul, 0, 0}, PairsCase{"IsABlank", " ", 0, 0}),
    [](const auto& one) { return one.param.what; });

TEST_F(HeartBeatResTest, ReadsATextThatFillsTheBufferWithoutAnEnd) {
  const std::string total = "CpuTotal=400;";
  const std::string use = "CpuUse=75";
  const std::string text = total + std::string(1024 - total.size() - use.size(), 'x') + use;
  EXPECT_EQ(1, Answer(0, text));
  EXPECT_EQ(75, proxy->cpuUse);
  EXPECT_EQ(400, proxy->cpuTotal);
  EXPECT_EQ(Lines({Received(), Pairs(text), Read(75, 400)}), logger.Lines());

  logger.Clear();
  const std::string no_keys(1024, 'x');
  EXPECT_EQ(1, Answer(0, no_keys));
  EXPECT_EQ(Lines({Received(), Pairs(no_keys), Read(0, 0)}), logger.Lines());
}

TEST_F(HeartBeatResTest, ReadsATextThatEndsInTheMiddleOfAKey) {
  const std::string text = std::string(1017, ' ') + "CpuUse=";
  EXPECT_EQ(1, Answer(0, text));
  EXPECT_EQ(0, proxy->cpuUse);
  EXPECT_EQ(Read(0, 0).text, logger.Lines().back().text);
}

}  // namespace
}  // namespace OstrandService
