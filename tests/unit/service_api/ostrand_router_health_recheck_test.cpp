// Putting proxies that were out of use back on trial, and knowing the answer to the router's own
// metadata probe.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_service_response.h"
#include "unit/service_api/router_availability_test.h"
#include "vex/vex_schema.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;
using OstrandFakes::Said;

// --- RecheckProxyAvailable ---

constexpr int64_t kLast = 1700000000;  // s, the last recheck
constexpr int64_t kInterval = 60;      // s
constexpr int64_t kDue = kLast + kInterval;

constexpr char kFirst[] = "tcp://10.0.0.1:1001";
constexpr char kSecond[] = "tcp://10.0.0.2:1002";

class RecheckTest : public testing::Test, public RouterFixture {
 protected:
  RecheckTest() {
    EXPECT_EQ(0, Init());
    judge.recheck_interval = kInterval;
    peer->m_last_recheck_availabe_time() = kLast;
    first = AddReadyProxy(peer->m_using_servers(), kFirst);
    second = AddReadyProxy(peer->m_using_servers(), kSecond);
    Isolate(first, kLast);
    logger.Clear();
    journal.Clear();
  }

  static void Isolate(ProxyServer* proxy, int64_t since) {
    proxy->is_available = false;
    proxy->last_unavailable_time = since;
  }
  int Recheck(int64_t now) { return peer->RecheckProxyAvailable(now, nullptr); }

  static Said Looks(int64_t now, int64_t last, int64_t interval = kInterval) {
    return {OSTRAND_LOG_LEVEL_DEBUG, "RecheckProxyAvailable",
            "RecheckProxyAvailable. cur_time: " + std::to_string(now) +
                ", m_last_recheck_availabe_time: " + std::to_string(last) +
                ", recheck_interval: " + std::to_string(interval)};
  }
  static Said Rechecks(const std::string& url) {
    return {OSTRAND_LOG_LEVEL_INFO, "RecheckProxyAvailable", "RecheckProxyAvailable " + url};
  }
  static Said Retries(const std::string& url) {
    return {OSTRAND_LOG_LEVEL_INFO, "RecheckProxyAvailable",
            "RecheckProxyAvailable retry connect " + url};
  }

  void ExpectStillIsolated(const ProxyServer& proxy, int64_t since) {
    EXPECT_FALSE(proxy.is_available);
    EXPECT_EQ(since, proxy.last_unavailable_time);
    EXPECT_TRUE(proxy.has_sent_auth);
    EXPECT_TRUE(proxy.auth_succeed);
  }

  ProxyServer* first;
  ProxyServer* second;
};

TEST_F(RecheckTest, OnlyRecordsTheTimeAtFirst) {
  peer->m_last_recheck_availabe_time() = 0;
  EXPECT_EQ(0, Recheck(kDue + 1000));
  EXPECT_EQ(kDue + 1000, peer->m_last_recheck_availabe_time());
  ExpectStillIsolated(*first, kLast);
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(journal.Entries().empty());
}

TEST_F(RecheckTest, OnlyRecordsTheTimeWhenTheClockWentBack) {
  EXPECT_EQ(0, Recheck(kLast - 1));
  EXPECT_EQ(kLast - 1, peer->m_last_recheck_availabe_time());
  ExpectStillIsolated(*first, kLast);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RecheckTest, WaitsForTheIntervalSinceTheLastOne) {
  for (const int64_t now : {kLast, kLast + 1, kDue - 1}) {
    EXPECT_EQ(0, Recheck(now));
    EXPECT_EQ(kLast, peer->m_last_recheck_availabe_time()) << "which stays the last one";
  }
  ExpectStillIsolated(*first, kLast);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RecheckTest, PutsAProxyBackOnTrial) {
  first->last_auth_result = 7;
  first->m_request_count = 8;
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(kDue, peer->m_last_recheck_availabe_time());
  EXPECT_TRUE(first->is_available);
  EXPECT_EQ(0, first->last_unavailable_time);
  EXPECT_FALSE(first->has_sent_auth);
  EXPECT_FALSE(first->auth_succeed);
  EXPECT_EQ(std::vector<int>({0}), mgr.At(kFirst).disconnects());
  EXPECT_EQ(std::vector<std::string>({std::string("ResetJudgeProxyStatus ") + kFirst,
                                      std::string("Disconnect ") + kFirst}),
            journal.Entries());
  EXPECT_EQ(Lines({Looks(kDue, kLast), Rechecks(kFirst), Retries(kFirst), Looks(kDue, kLast)}),
            logger.Lines())
      << "a line for each proxy in use, available or not";
  EXPECT_EQ(7, first->last_auth_result) << "the next sign-up answer sets it";
  EXPECT_EQ(2, first->pre_status);
  EXPECT_EQ(8U, first->m_request_count);
}

// It is written again once the proxy has signed up.
TEST_F(RecheckTest, NeverTouchesTheRing) {
  peer->WriteHashCircle();
  const RingCopy before = CopyRing(*peer);
  ASSERT_EQ(200U, before.points.size());
  clock.AdvanceMs(1000);
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_TRUE(first->is_available);
  EXPECT_TRUE(before == CopyRing(*peer));
}

TEST_F(RecheckTest, LogsTheRetryOnceItIsDone) {
  logger.OnLine([&](const LogLine& line) {
    const bool is_done = line.text == std::string("RecheckProxyAvailable retry connect ") + kFirst;
    if (is_done || line.text == std::string("RecheckProxyAvailable ") + kFirst) {
      EXPECT_EQ(is_done, first->is_available);
      EXPECT_EQ(is_done, !first->auth_succeed);
      EXPECT_EQ(is_done ? 1U : 0U, judge.resets.size());
      EXPECT_EQ(is_done ? 1U : 0U, mgr.At(kFirst).disconnects().size());
    }
  });
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(4U, logger.Lines().size());
  logger.OnLine(nullptr);
}

TEST_F(RecheckTest, LeavesAvailableProxiesAlone) {
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_TRUE(second->has_sent_auth);
  EXPECT_TRUE(second->auth_succeed);
  EXPECT_TRUE(mgr.At(kSecond).disconnects().empty());
  EXPECT_EQ(std::vector<std::string>({kFirst}), judge.resets);
}

TEST_F(RecheckTest, LetsEachProxyServeItsOwnInterval) {
  struct Case {
    int64_t since;
    bool back;
  };
  for (const Case& one : {Case{kDue - kInterval, true}, Case{kDue - kInterval + 1, false},
                          Case{kDue, false}, Case{kDue - kInterval - 1, true}, Case{0, true}}) {
    first->has_sent_auth = first->auth_succeed = true;
    Isolate(first, one.since);
    peer->m_last_recheck_availabe_time() = kLast;
    logger.Clear();
    EXPECT_EQ(0, Recheck(kDue));
    EXPECT_EQ(one.back, first->is_available) << one.since;
    if (!one.back) {
      ExpectStillIsolated(*first, one.since);
      EXPECT_EQ(Lines({Looks(kDue, kLast), Rechecks(kFirst), Looks(kDue, kLast)}), logger.Lines());
    }
    EXPECT_EQ(kDue, peer->m_last_recheck_availabe_time());
  }
}

TEST_F(RecheckTest, RestartsTheWaitOfAProxyThatWasIsolatedInTheFuture) {
  Isolate(first, kDue + 1);
  EXPECT_EQ(0, Recheck(kDue));
  ExpectStillIsolated(*first, kDue);
  EXPECT_TRUE(judge.resets.empty());
  EXPECT_EQ(Lines({Looks(kDue, kLast), Rechecks(kFirst), Looks(kDue, kLast)}), logger.Lines());

  EXPECT_EQ(0, Recheck(kDue + kInterval));
  EXPECT_TRUE(first->is_available) << "an interval later";
}

TEST_F(RecheckTest, RechecksAllThatAreDueAtOnce) {
  Isolate(second, kLast - 5);
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(std::vector<std::string>({kFirst, kSecond}), judge.resets);
  EXPECT_EQ(Lines({Looks(kDue, kLast), Rechecks(kFirst), Retries(kFirst), Looks(kDue, kLast),
                   Rechecks(kSecond), Retries(kSecond)}),
            logger.Lines());
}

TEST_F(RecheckTest, ActsOnEveryCallWithoutAnInterval) {
  judge.recheck_interval = 0;
  EXPECT_EQ(0, Recheck(kLast));
  EXPECT_TRUE(first->is_available);
  EXPECT_EQ(
      Lines({Looks(kLast, kLast, 0), Rechecks(kFirst), Retries(kFirst), Looks(kLast, kLast, 0)}),
      logger.Lines());
}

TEST_F(RecheckTest, ResetsTheJudgeUnderTheConnectorsUrl) {
  RealServerNode* node = peer->FindServerNode(peer->m_using_servers(), kFirst);
  std::snprintf(node->server_url, sizeof(node->server_url), "tcp://alias:1");
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(std::vector<std::string>({kFirst}), judge.resets);
  EXPECT_TRUE(logger.Find(OSTRAND_LOG_LEVEL_INFO, "RecheckProxyAvailable tcp://alias:1"));
}

TEST_F(RecheckTest, LooksAtTheProxiesInUseAlone) {
  ProxyServer* preparing = AddReadyProxy(peer->m_preparing_servers(), "tcp://10.0.0.8:1008");
  ProxyServer* removing = AddReadyProxy(peer->m_removing_servers(), "tcp://10.0.0.9:1009");
  Isolate(preparing, 1);
  Isolate(removing, 1);
  EXPECT_EQ(0, Recheck(kDue));
  ExpectStillIsolated(*preparing, 1);
  ExpectStillIsolated(*removing, 1);
}

TEST_F(RecheckTest, StepsOverElementsWithoutRecordOrConnector) {
  Isolate(second, kLast);
  RealServerNode* detached = peer->FindServerNode(peer->m_using_servers(), kFirst);
  OSTRNET::CConnector* const connector = second->connector;
  detached->server = nullptr;
  second->connector = nullptr;
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(Lines({Looks(kDue, kLast), Looks(kDue, kLast)}), logger.Lines());
  ExpectStillIsolated(*second, kLast);
  detached->server = first;
  second->connector = connector;
}

TEST_F(RecheckTest, AsksTheJudgeForItsApplicationAndZone) {
  peer->m_app_id() = 0x200000003;
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ((std::set<std::pair<int32_t, int32_t>>{{3, kZoneId}}), judge.keys) << "32 bits of it";
}

TEST_F(RecheckTest, WorksWithoutALogger) {
  ASSERT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_TRUE(first->is_available);
}

TEST_F(RecheckTest, RecordsTheTimeWithoutLists) {
  router->Fini();
  EXPECT_EQ(0, Recheck(kDue));
  EXPECT_EQ(kDue, peer->m_last_recheck_availabe_time());
}

TEST_F(RecheckTest, BringsBackWhatTheCheckEvery300MillisecondsTookOut) {
  ProxyServer* third = AddReadyProxy(peer->m_using_servers(), "tcp://10.0.0.3:1003");
  first->is_available = true;
  third->m_request_count = 11;
  judge.option.max_remove_rate = 10;
  peer->m_lastCheckProxyTime() = 1;
  peer->UpdateProxyAvailableV2();
  ASSERT_FALSE(third->is_available);
  const int64_t now = clock.Ms() / 1000;
  peer->m_last_recheck_availabe_time() = now;
  EXPECT_EQ(0, Recheck(now + kInterval));
  EXPECT_TRUE(third->is_available) << "both count in seconds";
}

// --- ProcessGetMetaResForRecheck ---

// A response that answers what a test wrote down; the rest of it is not used.
class ScriptedResponse : public OstrandServiceResponse {
 public:
  const char* GetUserBuff(size_t* len) override {
    *len = user_buff_len;
    return user_buff;
  }
  uint32_t GetCmd() const override { return cmd; }
  int32_t GetResult() const override {
    ++results_read;
    return 0;
  }
  int32_t GetSequence() const override { return seq; }
  uint64_t GetAsynID() const override { return asyn_id; }

  const char* GetPkgUserBuff(size_t*) override { return nullptr; }
  int SetUserBuff(const char*, unsigned int) override { return -1; }
  int GetOstrandPackagePtr(const OStrandPkg*&) override { return -1; }
  uint32_t GetSubCmd() const override { return 0; }
  const char* GetTableName(size_t*) const override { return nullptr; }
  int32_t GetZoneId() const override { return 0; }
  const char* GetPerfTest(size_t*) const override { return nullptr; }
  int HaveMoreResPkgs() override { return 0; }
  int Unpack(const char*, size_t) override { return -1; }
  int BuildTimeOutRes(int64_t, int32_t, const char*, uint32_t, const char*, uint32_t, uint64_t,
                      int32_t) override {
    return -1;
  }

  uint32_t cmd = 28;
  int32_t seq = -110;
  uint64_t asyn_id = 110;
  const char* user_buff = "recheck proxy available";
  size_t user_buff_len = 24;
  mutable int results_read = 0;
};

class ProbeAnswerTest : public testing::Test, public RouterFixture {
 protected:
  ProbeAnswerTest() : pkg(server.scratch_pkg()) {
    EXPECT_EQ(0, Init());
    server.RegisterTable(kZoneId, "user", &local);
    // The answer to the router's probe for table "user", without a schema image.
    pkg.stHead.construct();
    pkg.stBody.construct(ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES);
    pkg.stHead.dwCmd = 28;
    pkg.stHead.iSeq = -110;
    pkg.stHead.ullAsynID = 110;
    pkg.stHead.stRouterInfo.iZoneID = kZoneId;
    std::memcpy(pkg.stHead.stRouterInfo.szTableName, "user", 5);
    pkg.stBody.stMetadataGetRes.iVexMetaCurrentVersion = 4;
    SetUserBuff(std::string_view("recheck proxy available", 24));
    logger.Clear();
  }

  void SetUserBuff(std::string_view bytes) {
    std::memset(pkg.stHead.szUserBuff, 0, sizeof(pkg.stHead.szUserBuff));
    bytes.copy(pkg.stHead.szUserBuff, sizeof(pkg.stHead.szUserBuff));
    pkg.stHead.dwUserBuffLen = static_cast<uint32_t>(bytes.size());
  }
  int Process(OstrandServiceResponse* from, OStrandPkg* package) {
    is_recheck = !is_recheck;  // Whatever it was, it is set.
    return peer->ProcessGetMetaResForRecheck(nullptr, from, package, is_recheck);
  }
  int32_t CheckRet() {
    const OstrandCommon::ScopedWriteLock lock(server.m_register_table_lock);
    return server.m_register_table[kZoneId]["user"].check_ret;
  }
  static LogLine Says(OstrandCommon::LogLevel level, const std::string& text) {
    return Line(level, "ProcessGetMetaResForRecheck", text);
  }

  VexMeta local{"user", 4, "", {}, {}};
  OStrandPkg& pkg;
  ScriptedResponse response;
  bool is_recheck = true;
};

TEST_F(ProbeAnswerTest, NeedsAPackageOrAResponse) {
  for (int i = 0; i < 2; ++i) {
    logger.Clear();
    EXPECT_EQ(-1, Process(nullptr, nullptr));
    EXPECT_FALSE(is_recheck);
    EXPECT_EQ(std::vector<LogLine>(
                  {Says(OSTRAND_LOG_LEVEL_ERROR, "NULL == pkg && NULL == response, system error")}),
              logger.Lines());
  }
}

TEST_F(ProbeAnswerTest, GoesIntoTheSchemaCheck) {
  EXPECT_EQ(0, Process(nullptr, &pkg));
  EXPECT_TRUE(is_recheck);
  EXPECT_EQ(0, CheckRet());
  EXPECT_TRUE(logger.LinesFrom("ProcessGetMetaResForRecheck").empty());
}

TEST_F(ProbeAnswerTest, IsTakenEvenWhenTheSchemaCheckFails) {
  local.version = 5;
  EXPECT_EQ(0, Process(nullptr, &pkg));
  EXPECT_TRUE(is_recheck);
  EXPECT_EQ(-18451, CheckRet());
  EXPECT_EQ(Says(OSTRAND_LOG_LEVEL_ERROR, "CheckTable vexmeta failed, ret:-18451"),
            logger.Lines().back());
}

TEST_F(ProbeAnswerTest, IsKnownByAllItsMarks) {
  struct Case {
    const char* what;
    int32_t seq;
    uint64_t asyn_id;
    std::string_view user_buff;
  };
  const std::string_view kText("recheck proxy available", 24);
  const Case kCases[] = {
      {"sequence -109", -109, 110, kText},
      {"sequence 110", 110, 110, kText},
      {"sequence 0", 0, 110, kText},
      {"asynchronous id 111", -110, 111, kText},
      {"asynchronous id with another high half", -110, 110 + (uint64_t{1} << 32), kText},
      {"1 byte", -110, 110, kText.substr(0, 1)},
      {"without the NUL", -110, 110, kText.substr(0, 23)},
      {"a second NUL", -110, 110, std::string_view("recheck proxy available\0", 25)},
      {"another first letter", -110, 110, std::string_view("Recheck proxy available", 24)},
      {"another last letter", -110, 110, std::string_view("recheck proxy availablf", 24)},
      {"a text that does not end", -110, 110, "recheck proxy availableX"},
      {"a text that ends early", -110, 110, std::string_view("recheck proxy\0available", 24)},
  };
  for (const Case& one : kCases) {
    pkg.stHead.iSeq = one.seq;
    pkg.stHead.ullAsynID = one.asyn_id;
    SetUserBuff(one.user_buff);
    logger.Clear();
    EXPECT_EQ(0, Process(nullptr, &pkg)) << one.what;
    EXPECT_FALSE(is_recheck) << one.what << ": it is the user's";
    EXPECT_TRUE(logger.Lines().empty()) << one.what;
  }
  EXPECT_EQ(1, CheckRet()) << "none was checked";
}

TEST_F(ProbeAnswerTest, IsTheUsersWithoutAUserBuffer) {
  pkg.stHead.dwUserBuffLen = 0;
  EXPECT_EQ(-3, Process(nullptr, &pkg));
  EXPECT_FALSE(is_recheck);
  const std::vector<LogLine> said = {
      Says(OSTRAND_LOG_LEVEL_INFO, "user_buff_len == 0 || NULL == user_buff.")};
  EXPECT_EQ(said, logger.Lines());

  for (const char* buffer : {static_cast<const char*>(nullptr), "recheck proxy available"}) {
    logger.Clear();
    response.user_buff = buffer;
    response.user_buff_len = buffer == nullptr ? 24 : 0;
    EXPECT_EQ(-3, Process(&response, nullptr));
    EXPECT_FALSE(is_recheck);
    EXPECT_EQ(said, logger.Lines());
  }
}

TEST_F(ProbeAnswerTest, MayComeAsAResponseOfThatCommandAlone) {
  for (const uint32_t cmd : {0U, 27U, 8U, 29U, UINT32_MAX}) {
    logger.Clear();
    response.cmd = cmd;
    EXPECT_EQ(-2, Process(&response, nullptr)) << cmd;
    EXPECT_FALSE(is_recheck);
    EXPECT_EQ(std::vector<LogLine>({Says(OSTRAND_LOG_LEVEL_ERROR,
                                         "OSTRAND_API_METADATA_GET_RES != response->GetCmd().")}),
              logger.Lines());
  }
}

TEST_F(ProbeAnswerTest, CannotBeCheckedWithoutAPackage) {
  EXPECT_EQ(0, Process(&response, nullptr));
  EXPECT_TRUE(is_recheck);
  EXPECT_EQ(1, response.results_read);
  EXPECT_EQ(
      std::vector<LogLine>({Line(OSTRAND_LOG_LEVEL_ERROR, "ProcessGetMetaResForCheckTable",
                                 "ProcessGetMetaResForCheckTable failed as pkg == NULL."),
                            Says(OSTRAND_LOG_LEVEL_ERROR, "CheckTable vexmeta failed, ret:-1")}),
      logger.Lines());
}

TEST_F(ProbeAnswerTest, IsKnownInAResponseByAllItsMarks) {
  response.seq = -111;
  EXPECT_EQ(0, Process(&response, nullptr));
  EXPECT_FALSE(is_recheck);
  response.seq = -110;
  response.asyn_id = 0;
  EXPECT_EQ(0, Process(&response, nullptr));
  EXPECT_FALSE(is_recheck);
  response.asyn_id = 110;
  const std::vector<char> short_buffer(3, 'r');  // Nothing behind it may be read.
  response.user_buff = short_buffer.data();
  response.user_buff_len = short_buffer.size();
  EXPECT_EQ(0, Process(&response, nullptr));
  EXPECT_FALSE(is_recheck);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ProbeAnswerTest, IsReadFromTheResponseWhenBothAreGiven) {
  const LogLine warning =
      Says(OSTRAND_LOG_LEVEL_WARN, "NULL == pkg && NULL == response, use response instead of pkg");
  response.seq = 1;
  EXPECT_EQ(0, Process(&response, &pkg));
  EXPECT_FALSE(is_recheck) << "only the package is a probe's";
  EXPECT_EQ(std::vector<LogLine>({warning}), logger.Lines());

  logger.Clear();
  response.seq = -110;
  pkg.stHead.iSeq = 1;
  EXPECT_EQ(0, Process(&response, &pkg));
  EXPECT_TRUE(is_recheck);
  EXPECT_EQ(warning, logger.Lines().front());
  EXPECT_EQ(0, CheckRet()) << "the package is what is checked";
}

}  // namespace
}  // namespace OstrandService
