// The routing context of an answer: whether it is one, and what becomes of its in-flight record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/service_api/router_recv_test.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

using Texts = std::vector<std::string>;

constexpr int kRefused = -256;
constexpr int kOutOfOrder = -18963;

class ResponseContextTest : public RouterRecvTest {
 protected:
  static constexpr int32_t kForeignZone = 8;
  static constexpr int16_t kPreset = -1;
  static constexpr int64_t kLater = kNow + 40;

  // An answer of another zone than the router's, so that it shows whose zone is told.
  ResponseContextTest() { Begin(kGetRes); }

  void Begin(uint32_t cmd) { response.Begin(cmd, kForeignZone, kTable); }
  // A package of an answer in several.
  void BeginPackage(uint32_t cmd, uint32_t number, bool more) {
    Begin(cmd);
    response.pkg().stHead.dwSubCmd = number;
    response.pkg().stBody.stGetByPartKeyRes.bHasMorePkgs = more ? 1 : 0;
  }
  int32_t Proc(const std::string& user_buff) {
    response.SetPkgUserBytes(user_buff);
    subscript = kPreset;
    StartOver();
    return peer->ProcRespCtx(kLater, proxy, &response, subscript);
  }

  // The lines, without what is the same in all of them: "App 1001 Zone 5 table <t> cmd <c>".
  static Said Debug(const std::string& text) {
    return {OSTRAND_LOG_LEVEL_DEBUG, "ProcRespCtx", text};
  }
  static Said Error(const std::string& text) {
    return {OSTRAND_LOG_LEVEL_ERROR, "ProcRespCtx", text};
  }
  static std::string About(uint32_t cmd) {
    return "App 1001 Zone 5 table players cmd " + std::to_string(cmd);
  }
  static std::string AboutProxy(uint32_t cmd) { return About(cmd) + " proxy " + kUrl; }
  static Said Found(uint32_t cmd, int32_t id, int32_t next) {
    return Debug(AboutProxy(cmd) + " get latency_data id " + std::to_string(id) +
                 ", next_sub_pkg_seq " + std::to_string(next));
  }
  static Said NotChecked(uint32_t cmd, int32_t number) {
    return Debug("not need check drop pkg, cmd " + std::to_string(cmd) + " sub pkg seq " +
                 std::to_string(number));
  }
  static Said Complete(uint32_t cmd, int32_t number) {
    return Debug("cmd " + std::to_string(cmd) + " sub pkg seq " + std::to_string(number) +
                 " not HaveMoreResPkgs, all complete");
  }
  static Said WrongNumber(uint32_t cmd, int32_t id, int32_t expected, int32_t number) {
    return Error(About(cmd) + ", latency_data id " + std::to_string(id) + " expect pkg seq " +
                 std::to_string(expected) + " != recv seq " + std::to_string(number) + ", proxy " +
                 kUrl);
  }
  static Said Lost(uint32_t cmd, int32_t id) {
    return Error(About(cmd) + ", can not find latency_data id " + std::to_string(id) +
                 ", maybe it already timeout, proxy " + kUrl);
  }

  int16_t subscript = kPreset;
};

// --- Is it one? ---

TEST_F(ResponseContextTest, IsNotInAUserBufferOfLessThan14Bytes) {
  const std::string context = Context(InFlight(7), kSubscript);
  for (const size_t len : {0U, 1U, 13U}) {
    EXPECT_EQ(0, Proc(context.substr(0, len)));
    EXPECT_EQ(
        Lines({Debug(AboutProxy(8) + " user_buff_len " + std::to_string(len) + " too short")}),
        logger.Lines());
    EXPECT_EQ(kPreset, subscript);
    EXPECT_EQ(len, response.pkg().stHead.dwUserBuffLen);
  }
  EXPECT_EQ(1U, latency.live_count());
  EXPECT_TRUE(latency.delays().empty());
}

TEST_F(ResponseContextTest, IsNotWhereThereIsNoUserBuffer) {
  response.LoseTheUserBuff(20);
  EXPECT_EQ(0, Proc(Context(InFlight(7), kSubscript)));
  EXPECT_EQ(Lines({Debug(AboutProxy(8) + " user_buff_len 20 too short")}), logger.Lines());
  EXPECT_EQ(1U, latency.live_count());
}

TEST_F(ResponseContextTest, IsNotOneWithAWrongMagic) {
  const int32_t id = InFlight(7);
  const struct {
    uint32_t magic;
    const char* told;
  } kCases[] = {{0, "0"},
                {0x12345679, "305419897"},
                {0x78563412, "2018915346"},
                {0xFFFFFFFF, "-1"},
                {0x80000000, "-2147483648"}};
  for (const auto& c : kCases) {
    const std::string user_buff = "mine" + Context(id, kSubscript, c.magic);
    EXPECT_EQ(0, Proc(user_buff));
    EXPECT_EQ(Lines({Debug(AboutProxy(8) + " magic " + c.told + " invalid")}), logger.Lines());
    EXPECT_EQ(kPreset, subscript);
    EXPECT_EQ(user_buff, response.UserBytes());
  }
  EXPECT_EQ(1U, latency.live_count()) << "it times out later";
}

TEST_F(ResponseContextTest, IsNotOneWithAWrongCrcThoughItsSubscriptIsTaken) {
  const int32_t id = InFlight(7);
  std::string user_buff = "mine" + Context(id, 3);
  user_buff.replace(user_buff.size() - 4, 4, "\xEF\xBE\xAD\xDE");
  EXPECT_EQ(0, Proc(user_buff));
  EXPECT_EQ(Lines({Debug(AboutProxy(8) + " crc -559038737 invalid")}), logger.Lines());
  EXPECT_EQ(3, subscript);
  EXPECT_EQ(user_buff, response.UserBytes());
  EXPECT_EQ(1U, latency.live_count());
  EXPECT_TRUE(latency.delays().empty());
}

TEST_F(ResponseContextTest, IsNotOneWithAnyBitWrong) {
  const int32_t id = InFlight(7);
  const std::string context = Context(id, kSubscript);
  for (size_t bit = 0; bit < 14 * 8; ++bit) {
    std::string damaged = context;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
    EXPECT_EQ(0, Proc(damaged));
    EXPECT_EQ(14U, response.pkg().stHead.dwUserBuffLen) << bit;
    EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_DEBUG)) << bit;
  }
  EXPECT_EQ(1U, latency.live_count());
}

TEST_F(ResponseContextTest, NeedsAPackage) {
  const int32_t id = InFlight(7);
  response.LoseThePackage();
  EXPECT_EQ(kRefused, Proc(Context(id, kSubscript)));
  EXPECT_EQ(Lines({Error("NULL == pkg")}), logger.Lines());
  EXPECT_EQ(kSubscript, subscript);
  EXPECT_EQ(1U, latency.live_count());
}

TEST_F(ResponseContextTest, NamesNoTableOfAnAnswerWithoutOne) {
  response.Begin(kGetRes, kForeignZone, "");
  EXPECT_EQ(0, Proc(""));
  EXPECT_EQ(Lines({Debug(std::string("App 1001 Zone 5 table  cmd 8 proxy ") + kUrl +
                         " user_buff_len 0 too short")}),
            logger.Lines());
}

// --- Answers in one package ---

TEST_F(ResponseContextTest, EndsARequest) {
  const int32_t id = InFlight(7);
  EXPECT_EQ(0, Proc("mine" + Context(id, 3)));
  EXPECT_EQ(Lines({Found(8, id, 0), NotChecked(8, 0)}), logger.Lines());
  EXPECT_EQ(3, subscript);
  EXPECT_EQ("mine", response.UserBytes()) << "without the context";
  EXPECT_EQ(4U, response.pkg().stHead.dwUserBuffLen);
  EXPECT_EQ((std::vector<std::pair<int32_t, int64_t>>{{id, kLater}}), latency.delays());
  EXPECT_EQ(&statistics, latency.statistic_mgr());
  EXPECT_EQ(std::vector<int32_t>({id}), latency.freed());
  EXPECT_TRUE(latency.renewals().empty());
  EXPECT_TRUE(response.user_buffs().empty()) << "the user's bytes came with the answer";
}

TEST_F(ResponseContextTest, IsTheLast14BytesOfAnyUserBuffer) {
  for (const size_t len : {0U, 1U, 2U, 3U, 4U, 13U, 14U, 15U, 1009U, 1010U}) {
    const int32_t id = InFlight(7);
    EXPECT_EQ(0, Proc(UserBytes(len) + Context(id, -32768)));
    EXPECT_EQ(UserBytes(len), response.UserBytes());
    EXPECT_EQ(-32768, subscript);
    EXPECT_EQ(id, latency.freed().back());
  }
  EXPECT_EQ(0U, latency.live_count());
}

TEST_F(ResponseContextTest, GivesTheKeptUserBufferBackBeforeItFreesTheRecord) {
  const std::string kept = UserBytes(3000);
  const int32_t id = InFlight(7, kept);
  EXPECT_EQ(0, Proc(Context(id, kSubscript)));
  EXPECT_EQ(kept, response.UserBytes());
  EXPECT_EQ(Texts({"CalculateDelay " + std::to_string(id), "SetUserBuff",
                   "FreeLatencyData " + std::to_string(id)}),
            journal.Entries());
}

TEST_F(ResponseContextTest, TellsThatTheRecordIsFoundBeforeItTouchesIt) {
  const int32_t id = InFlight(7, "kept");
  const LogLine found = Lines({Found(8, id, 0)})[0];
  int seen = 0;
  logger.OnLine([&](const LogLine& line) {
    if (line == found) {
      ++seen;
      EXPECT_EQ(Texts(), journal.Entries());
      EXPECT_EQ(0U, response.pkg().stHead.dwUserBuffLen) << "its context is taken off by then";
    } else {
      EXPECT_EQ(Texts({"CalculateDelay " + std::to_string(id), "SetUserBuff"}), journal.Entries());
    }
  });
  EXPECT_EQ(0, Proc(Context(id, kSubscript)));
  EXPECT_EQ(1, seen);
  EXPECT_EQ(2U, logger.Lines().size());
}

TEST_F(ResponseContextTest, GivesNothingBackOfARecordThatKeptOnlyTheLength) {
  const int32_t id = latency.PushBack(kZoneId, kNow, kTimeoutMs, kIp, kPort, 7, kSubscript, kTable,
                                      0, 0, nullptr, 500);
  EXPECT_EQ(0, Proc("mine" + Context(id, kSubscript)));
  EXPECT_TRUE(response.user_buffs().empty());
  EXPECT_EQ("mine", response.UserBytes());
}

TEST_F(ResponseContextTest, EndsARequestAlsoWhenItsUserBufferCannotBeGivenBack) {
  response.SetUserBuffResult(-9747);
  EXPECT_EQ(0, Proc(Context(InFlight(7, "kept"), kSubscript)));
  EXPECT_EQ(0U, latency.live_count());
}

TEST_F(ResponseContextTest, OfALateAnswerIsOnlyTakenOff) {
  for (const int32_t id : {kUnknownId, 0, -1, INT32_MAX, INT32_MIN}) {
    Begin(kGetRes);
    response.pkg().stHead.dwSubCmd = 5;
    EXPECT_EQ(0, Proc("mine" + Context(id, 1)));
    EXPECT_TRUE(logger.Lines().empty()) << id;
    EXPECT_EQ("mine", response.UserBytes());
    EXPECT_EQ(1, subscript);
  }
}

TEST_F(ResponseContextTest, OfALateAnswerIsRefusedInLocalBufferMode) {
  server.m_local_buffer = this;
  for (const uint32_t cmd : {kGetRes, kInsertRes, kBatchGetRes, kListGetAllRes, kGetByPartKeyRes}) {
    Begin(cmd);
    EXPECT_EQ(kRefused, Proc(Context(kUnknownId, kSubscript)));
    EXPECT_EQ(Lines({Lost(cmd, kUnknownId)}), logger.Lines());
  }
}

TEST_F(ResponseContextTest, NumbersOfAnswersInOnePackageAreNotChecked) {
  for (const uint32_t cmd : {kGetRes, kInsertRes, kBatchGetRes, kMetadataRes}) {
    const int32_t id = InFlight(cmd - 1);
    Begin(cmd);
    response.pkg().stHead.dwSubCmd = 0xFFFFFFFE;
    EXPECT_EQ(0, Proc(Context(id, kSubscript)));
    EXPECT_EQ(Lines({Found(cmd, id, 0), NotChecked(cmd, -2)}), logger.Lines());
    EXPECT_EQ(0, response.GetResult());
    EXPECT_EQ(0U, latency.live_count());
  }
}

// --- Answers in several packages ---

class PackageOrderTest : public ResponseContextTest, public testing::WithParamInterface<uint32_t> {
 protected:
  // The next package of the answer to request `id`.
  int32_t Package(uint32_t number, bool more, int32_t result = 0) {
    BeginPackage(GetParam(), number, more);
    response.pkg().stHead.iResult = result;
    return Proc("mine" + Context(id, kSubscript));
  }
  int32_t BodyResult() {
    return GetParam() == kListGetAllRes ? response.pkg().stBody.stListGetAllRes.iResult
                                        : response.pkg().stBody.stGetByPartKeyRes.iResult;
  }
  int32_t Next() { return latency.GetLatencyData(id)->next_sub_pkg_seq; }

  const int32_t id = InFlight(GetParam() - 1);
};

TEST_P(PackageOrderTest, TakesPackagesInOrder) {
  EXPECT_EQ(0, Package(0, true));
  EXPECT_EQ(Lines({Found(GetParam(), id, 0)}), logger.Lines());
  EXPECT_EQ(1, Next());
  EXPECT_EQ(0, Package(1, true));
  EXPECT_EQ(Lines({Found(GetParam(), id, 1)}), logger.Lines());
  EXPECT_EQ(2, Next());
  EXPECT_EQ(std::vector<int32_t>({id, id}), latency.renewals());
  EXPECT_EQ(kLater + kTimeoutMs, latency.GetLatencyData(id)->deadline_ms);
  EXPECT_TRUE(latency.freed().empty());
  EXPECT_EQ(0, Package(2, false));
  EXPECT_EQ(Lines({Found(GetParam(), id, 2), Complete(GetParam(), 2)}), logger.Lines());
  EXPECT_EQ(std::vector<int32_t>({id}), latency.freed());
  EXPECT_EQ(2U, latency.renewals().size());
  EXPECT_EQ(3U, latency.delays().size()) << "each package's delay counts";
  EXPECT_EQ("mine", response.UserBytes());
  EXPECT_EQ(kSubscript, subscript);
}

TEST_P(PackageOrderTest, MarksAPackageOutOfOrderAndGoesOnFromIt) {
  EXPECT_EQ(0, Package(0, true));
  EXPECT_EQ(0, Package(2, true));
  EXPECT_EQ(Lines({Found(GetParam(), id, 1), WrongNumber(GetParam(), id, 1, 2)}), logger.Lines());
  EXPECT_EQ(kOutOfOrder, response.GetResult());
  EXPECT_EQ(kOutOfOrder, BodyResult());
  EXPECT_EQ("mine", response.UserBytes());
  EXPECT_EQ(3, Next());
  EXPECT_EQ(1U, latency.live_count());
  EXPECT_EQ(2U, latency.renewals().size());
  EXPECT_EQ(0, Package(3, true));
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(0, Package(3, true)) << "twice";
  EXPECT_EQ(kOutOfOrder, response.GetResult());
  EXPECT_EQ(4, Next());
}

TEST_P(PackageOrderTest, MarksALastPackageOutOfOrderAndEnds) {
  EXPECT_EQ(0, Package(4, false));
  EXPECT_EQ(
      Lines({Found(GetParam(), id, 0), WrongNumber(GetParam(), id, 0, 4), Complete(GetParam(), 4)}),
      logger.Lines());
  EXPECT_EQ(kOutOfOrder, response.GetResult());
  EXPECT_EQ(kOutOfOrder, BodyResult());
  EXPECT_EQ(0U, latency.live_count());
}

TEST_P(PackageOrderTest, NeverChecksNumber0) {
  EXPECT_EQ(0, Package(0, true));
  EXPECT_EQ(0, Package(1, true));
  EXPECT_EQ(0, Package(0, true));
  EXPECT_EQ(Lines({Found(GetParam(), id, 2)}), logger.Lines());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(1, Next()) << "from where it is counted anew";
  EXPECT_EQ(0, Package(0, false));
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(0U, latency.live_count());
}

TEST_P(PackageOrderTest, CountsNumbersRoundTheirEnd) {
  const struct {
    uint32_t number;
    int32_t told;
    int32_t next;
  } kCases[] = {{0x7FFFFFFE, INT32_MAX - 1, INT32_MAX},
                {0x7FFFFFFF, INT32_MAX, INT32_MIN},
                {0x80000000, INT32_MIN, INT32_MIN + 1},
                {0xFFFFFFFF, -1, 0}};
  for (const auto& c : kCases) {
    const int32_t expected = Next();
    EXPECT_EQ(0, Package(c.number, true));
    EXPECT_EQ(c.next, Next());
    EXPECT_EQ(expected == c.told ? 0 : kOutOfOrder, response.GetResult()) << c.told;
    if (expected != c.told) {
      EXPECT_EQ(
          Lines({Found(GetParam(), id, expected), WrongNumber(GetParam(), id, expected, c.told)}),
          logger.Lines());
    }
  }
}

TEST_P(PackageOrderTest, EndsWithAPackageWhoseResultIsNot0) {
  EXPECT_EQ(0, Package(0, true));
  EXPECT_EQ(0, Package(7, true, -269)) << "as if it were an answer in one";
  EXPECT_EQ(Lines({Found(GetParam(), id, 1), NotChecked(GetParam(), 7)}), logger.Lines());
  EXPECT_EQ(-269, response.GetResult());
  EXPECT_EQ(0, BodyResult());
  EXPECT_EQ(0U, latency.live_count());
}

TEST_P(PackageOrderTest, RefusesLatePackagesButTheFirst) {
  latency.FreeLatencyData(latency.GetLatencyData(id));
  EXPECT_EQ(0, Package(0, true));
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ("mine", response.UserBytes());
  for (const uint32_t number : {1U, 2U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    for (const int32_t result : {0, -269}) {
      EXPECT_EQ(kRefused, Package(number, true, result));
      EXPECT_EQ(Lines({Lost(GetParam(), id)}), logger.Lines());
    }
  }
}

TEST_P(PackageOrderTest, GivesAKeptUserBufferBackWithEachPackage) {
  const int32_t long_one = InFlight(GetParam() - 1, UserBytes(1010));
  for (const uint32_t number : {0U, 1U, 2U}) {
    BeginPackage(GetParam(), number, number < 2);
    EXPECT_EQ(0, Proc(Context(long_one, kSubscript)));
    EXPECT_EQ(UserBytes(1010), response.UserBytes());
  }
  BeginPackage(GetParam(), 0, true);
  EXPECT_EQ(0, Proc(Context(long_one, kSubscript)));
  EXPECT_EQ("", response.UserBytes()) << "a late first package has nobody who kept it";
}

INSTANTIATE_TEST_SUITE_P(Commands, PackageOrderTest,
                         testing::Values(kListGetAllRes, kGetByPartKeyRes));

// --- Commands and results ---

TEST_F(ResponseContextTest, KnowsTheCommandsOfAnswersInSeveralPackages) {
  for (uint32_t cmd = 0; cmd < 5000; ++cmd) {
    EXPECT_EQ(cmd == 25 || cmd == 11, peer->IsMultiPkgReqCmd(cmd)) << cmd;
    EXPECT_EQ(cmd == 26 || cmd == 12, peer->IsMultiPkgRespCmd(cmd)) << cmd;
  }
}

TEST_F(ResponseContextTest, SetsAResultInHeadAndBody) {
  OStrandPkg& pkg = response.pkg();
  Begin(kGetByPartKeyRes);
  peer->SetMultiRespResult(kGetByPartKeyRes, &pkg, -11);
  EXPECT_EQ(-11, pkg.stHead.iResult);
  EXPECT_EQ(-11, pkg.stBody.stGetByPartKeyRes.iResult);
  Begin(kListGetAllRes);
  peer->SetMultiRespResult(kListGetAllRes, &pkg, -12);
  EXPECT_EQ(-12, pkg.stHead.iResult);
  EXPECT_EQ(-12, pkg.stBody.stListGetAllRes.iResult);
}

TEST_F(ResponseContextTest, SetsAResultInTheHeadAloneOfOtherCommands) {
  OStrandPkg& pkg = response.pkg();
  for (const uint32_t cmd : {kGetRes, kBatchGetRes, 11U, 25U}) {
    Begin(kGetRes);
    pkg.stBody.stRecords.dwRecordNum = 3;
    peer->SetMultiRespResult(cmd, &pkg, -13);
    EXPECT_EQ(-13, pkg.stHead.iResult);
    EXPECT_EQ(3U, pkg.stBody.stRecords.dwRecordNum) << cmd;
  }
}

TEST_F(ResponseContextTest, SetsNoResultWithoutAPackage) {
  peer->SetMultiRespResult(kListGetAllRes, nullptr, -13);
  peer->SetMultiRespResult(kGetRes, nullptr, -13);
}

}  // namespace
}  // namespace OstrandService
