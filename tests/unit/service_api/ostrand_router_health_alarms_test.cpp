// What rides on the heartbeat: alarm codes for the proxies, and the minute's report of slow ones.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandPkg;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::AllocationFaults;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr char kUrl[] = "tcp://10.0.0.1:1001";
constexpr char kOther[] = "tcp://10.0.0.2:1002";
constexpr char kThird[] = "tcp://10.0.0.3:1003";

// --- Alarm codes ---

class AlarmTest : public testing::Test, public RouterFixture {
 protected:
  AlarmTest() : pkg(ostrand_protocol_cs::NewOStrandPkg()) { EXPECT_EQ(0, Init()); }

  // Builds a heartbeat's user buffer; answers its text.
  std::string Take() {
    auto& head = pkg->stHead;
    std::memset(head.szUserBuff, '#', sizeof(head.szUserBuff));
    head.dwUserBuffLen = 0;
    head.stKeyInfo.iVersion = kGuard;
    peer->SetHeartbeatAlarm(pkg.get());
    EXPECT_EQ(kGuard, head.stKeyInfo.iVersion) << "nothing written behind the buffer";
    EXPECT_NE(nullptr, std::memchr(head.szUserBuff, '\0', sizeof(head.szUserBuff)));
    return std::string(head.szUserBuff, strnlen(head.szUserBuff, sizeof(head.szUserBuff)));
  }
  uint32_t Length() { return pkg->stHead.dwUserBuffLen; }

  std::set<int32_t>& Pending() { return peer->m_alarmErrorCode(); }

  // Sets 253 codes of which `long_codes` have four digits and the others three, and answers their
  // text without the ";": "AlarmCode=", the digits and 252 commas, 1021 + long_codes characters.
  std::string Set253Codes(int long_codes) {
    std::string text = "AlarmCode=";
    for (int i = 0; i < 253; ++i) {
      const int code = i < 253 - long_codes ? 100 + i : 1000 + i;
      router->SetAlarmErrorCode(code);
      text += (i > 0 ? "," : "") + std::to_string(code);
    }
    EXPECT_EQ(1021U + static_cast<size_t>(long_codes), text.size());
    return text;
  }

  static constexpr int32_t kGuard = 0x5A5A5A5A;
  std::unique_ptr<OStrandPkg> pkg;
};

TEST_F(AlarmTest, WithoutCodesTheUserBufferIsEmpty) {
  EXPECT_EQ("", Take());
  EXPECT_EQ(0U, Length());
}

TEST_F(AlarmTest, WithoutCodesTheLengthIsLeftAsItIs) {
  pkg->stHead.dwUserBuffLen = 77;
  pkg->stHead.szUserBuff[0] = '#';
  peer->SetHeartbeatAlarm(pkg.get());
  EXPECT_EQ(77U, Length());
  EXPECT_EQ('\0', pkg->stHead.szUserBuff[0]);
}

TEST_F(AlarmTest, CodesAreToldInAscendingOrderOnce) {
  struct {
    std::vector<int32_t> codes;
    const char* text;
  } const cases[] = {
      {{5}, "AlarmCode=5;"},
      {{12, 5}, "AlarmCode=5,12;"},
      {{5, 12, 5, 5}, "AlarmCode=5,12;"},
      {{0}, "AlarmCode=0;"},
      {{3, -5, -12}, "AlarmCode=-12,-5,3;"},
      {{2147483647, -2147483647 - 1}, "AlarmCode=-2147483648,2147483647;"},
  };
  for (const auto& given : cases) {
    for (const int32_t code : given.codes) {
      router->SetAlarmErrorCode(code);
    }
    EXPECT_EQ(given.text, Take());
    EXPECT_EQ(std::strlen(given.text) + 1, Length()) << "with its NUL";
    EXPECT_TRUE(Pending().empty());
    EXPECT_EQ("", Take()) << "told once";
    EXPECT_EQ(0U, Length());
  }
}

TEST_F(AlarmTest, ACodeMayBeSetAgainOnceItWasTold) {
  router->SetAlarmErrorCode(5);
  Take();
  router->SetAlarmErrorCode(5);
  EXPECT_EQ("AlarmCode=5;", Take());
  EXPECT_EQ(13U, Length());
}

// 1023 characters and a NUL fill the buffer. What is longer is cut and stays pending as a whole.
TEST_F(AlarmTest, ATextThatFillsTheBufferLosesItsEndALongerOneStaysPending) {
  struct {
    int long_codes;
    bool has_end;
    uint32_t length;
    bool pending;
  } const cases[] = {
      {0, true, 1023, false},   // 1021 characters and ";"
      {1, true, 1024, false},   // 1022 and ";": exactly full
      {2, false, 1024, false},  // 1023: no room for ";"
      {3, false, 1024, true},   // 1024: one too many
      {4, false, 1024, true},  {253, false, 1024, true},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.long_codes);
    Pending().clear();
    const std::string text = Set253Codes(given.long_codes);
    EXPECT_EQ(text.substr(0, 1023) + (given.has_end ? ";" : ""), Take());
    EXPECT_EQ(given.length, Length());
    EXPECT_EQ(given.pending ? 253U : 0U, Pending().size());
  }
}

TEST_F(AlarmTest, WhatStaysPendingIsToldAgainAndGrows) {
  const std::string text = Set253Codes(3);
  EXPECT_EQ(text.substr(0, 1023), Take());
  EXPECT_EQ(text.substr(0, 1023), Take());
  router->SetAlarmErrorCode(-1);
  EXPECT_EQ(("AlarmCode=-1," + text.substr(10)).substr(0, 1023), Take());
  EXPECT_EQ(254U, Pending().size());
}

TEST_F(AlarmTest, ACutTextTravelsInAFullUserBuffer) {
  const std::string text = Set253Codes(3);
  AddReadyProxy(peer->m_using_servers(), kUrl);
  logger.Clear();
  peer->SendHeartBeatToList(peer->m_using_servers());
  EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "InitCsPkgForInnerRequest",
                 "SetHeartbeatAlarm " + text.substr(0, 1023) + " to proxy " + kUrl),
            logger.Lines()[0]);
  ASSERT_EQ(1U, mgr.At(kUrl).sent().size());
  const std::string frame = mgr.At(kUrl).sent()[0];
  EXPECT_EQ(std::string("\0\0\x04\0", 4) + text.substr(0, 1023) + '\0', frame.substr(48, 1028));
}

TEST_F(AlarmTest, LogsNothingItself) {
  logger.Clear();
  router->SetAlarmErrorCode(5);
  Take();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(AlarmTest, ACodeThatThereIsNoMemoryForIsLostAlone) {
  router->SetAlarmErrorCode(5);
  {
    AllocationFaults faults;
    faults.FailThrowing(1);
    EXPECT_NO_THROW(router->SetAlarmErrorCode(6));
  }
  router->SetAlarmErrorCode(7);
  EXPECT_EQ("AlarmCode=5,7;", Take());
}

// Four threads set 60 codes each while heartbeats take them: every code is told exactly once.
TEST_F(AlarmTest, MayBeSetByAnyThread) {
  constexpr int kThreads = 4;
  constexpr int kCodes = 60;
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this, i, &running] {
      for (int code = 0; code < kCodes; ++code) {
        router->SetAlarmErrorCode(100 + i * kCodes + code);
      }
      --running;
    });
  }
  std::multiset<int> told;
  for (bool last = false; !last;) {
    last = running == 0;
    const std::string text = Take();
    for (size_t at = text.find_first_of("=,"); at != std::string::npos;
         at = text.find(',', at + 1)) {
      told.insert(std::stoi(text.substr(at + 1)));
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::multiset<int> set;
  for (int code = 100; code < 100 + kThreads * kCodes; ++code) {
    set.insert(code);
  }
  EXPECT_EQ(set, told);
}

// --- The minute's report ---

constexpr int64_t kStartS = 1700000000;

class LatencyTest : public testing::Test, public RouterFixture {
 protected:
  LatencyTest() {
    EXPECT_EQ(0, Init());
    in_use = peer->m_using_servers();
    clock.SetMs(kStartS * 1000);
    peer->m_last_check_time() = static_cast<time_t>(kStartS - 60);
    logger.Clear();
  }

  // A proxy with these books.
  ProxyServer* Add(List* list, const std::string& url, int32_t num, int64_t total_us,
                   int64_t max_us, int32_t large_num) {
    ProxyServer* proxy = AddProxy(list, url);
    SetBooks(proxy, num, total_us, max_us, large_num);
    logger.Clear();
    return proxy;
  }
  static void SetBooks(ProxyServer* proxy, int32_t num, int64_t total_us, int64_t max_us,
                       int32_t large_num) {
    proxy->m_heartbeat_num = num;
    proxy->m_total_heartbeat_latency = total_us;
    proxy->m_max_heartbeat_latency = max_us;
    proxy->m_heartbeat_latency_large_num = large_num;
  }
  static bool HasEmptyBooks(const ProxyServer* proxy) {
    return proxy->m_heartbeat_num == 0 && proxy->m_total_heartbeat_latency == 0 &&
           proxy->m_max_heartbeat_latency == 0 && proxy->m_heartbeat_latency_large_num == 0;
  }

  void Check() { peer->CheckHeartbeatLatency(); }
  static std::vector<LogLine> Report(const std::string& text) {
    return Lines({{OSTRAND_LOG_LEVEL_ERROR, "CheckHeartbeatLatency", text}});
  }

  List* in_use;
};

TEST_F(LatencyTest, TheFirstCallOnlyNotesTheTime) {
  ProxyServer* proxy = Add(in_use, kUrl, 3, 600000, 400000, 2);
  for (const time_t never : {time_t{0}, time_t{-1}, time_t{-1000}}) {
    peer->m_last_check_time() = never;
    Check();
    EXPECT_EQ(kStartS, peer->m_last_check_time());
    EXPECT_EQ(3, proxy->m_heartbeat_num);
  }
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(LatencyTest, ATimeOf1IsATimeAlready) {
  Add(in_use, kUrl, 3, 600000, 400000, 2);
  peer->m_last_check_time() = 1;
  Check();
  EXPECT_EQ(1U, logger.Lines().size());
}

TEST_F(LatencyTest, ReportsAndBeginsAnewAfter60Seconds) {
  ProxyServer* proxy = Add(in_use, kUrl, 3, 600001, 400000, 2);
  peer->m_last_check_time() = 0;
  Check();
  clock.AdvanceMs(59999);
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(3, proxy->m_heartbeat_num);
  EXPECT_EQ(kStartS, peer->m_last_check_time());
  clock.AdvanceMs(1);
  Check();
  EXPECT_EQ(Report("Proxy[tcp://10.0.0.1:1001] heartbeat_num[3], max_latency[400000us], "
                   "avg_latency[200000us], >100000us_num[2]\n"),
            logger.Lines());
  EXPECT_TRUE(HasEmptyBooks(proxy));
  EXPECT_EQ(kStartS + 60, peer->m_last_check_time());
  Check();
  EXPECT_EQ(1U, logger.Lines().size()) << "not again at once";
}

TEST_F(LatencyTest, CountsInWholeSecondsOfTheClock) {
  Add(in_use, kUrl, 1, 200000, 200000, 1);
  peer->m_last_check_time() = 0;
  clock.SetMs(kStartS * 1000 + 999);
  Check();
  clock.SetMs((kStartS + 59) * 1000 + 999);
  Check();
  EXPECT_TRUE(logger.Lines().empty()) << "59 s by the numbers, 59.0 in truth";
  clock.SetMs((kStartS + 60) * 1000);
  Check();
  EXPECT_EQ(1U, logger.Lines().size()) << "60 s by the numbers, 59.001 in truth";
}

TEST_F(LatencyTest, AClockThatStepsBackDelaysTheReport) {
  ProxyServer* proxy = Add(in_use, kUrl, 1, 200000, 200000, 1);
  peer->m_last_check_time() = static_cast<time_t>(kStartS + 3600);
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_FALSE(HasEmptyBooks(proxy));
  EXPECT_EQ(kStartS + 3600, peer->m_last_check_time());
}

TEST_F(LatencyTest, ListsTheSlowInTheListsOrderInOneLine) {
  ProxyServer* slow = Add(in_use, kUrl, 7, 999999, 150000, 1);
  ProxyServer* fast = Add(in_use, kOther, 60, 5999940, 99999, 0);
  ProxyServer* slowest = Add(in_use, kThird, 1, 9223372036854775807, 9223372036854775807, 1);
  Check();
  EXPECT_EQ(Report("Proxy[tcp://10.0.0.1:1001] heartbeat_num[7], max_latency[150000us], "
                   "avg_latency[142857us], >100000us_num[1]\n"
                   "Proxy[tcp://10.0.0.3:1003] heartbeat_num[1], max_latency[9223372036854775807us]"
                   ", avg_latency[9223372036854775807us], >100000us_num[1]\n"),
            logger.Lines());
  EXPECT_TRUE(HasEmptyBooks(slow));
  EXPECT_TRUE(HasEmptyBooks(fast)) << "not listed, and begun anew all the same";
  EXPECT_TRUE(HasEmptyBooks(slowest));
}

TEST_F(LatencyTest, WithoutSlowProxiesSaysNothing) {
  ProxyServer* proxy = Add(in_use, kUrl, 60, 5999940, 99999, 0);
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(HasEmptyBooks(proxy));
  EXPECT_EQ(kStartS, peer->m_last_check_time());
}

TEST_F(LatencyTest, WithoutProxiesSaysNothing) {
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_EQ(kStartS, peer->m_last_check_time());
}

TEST_F(LatencyTest, AnAverageOverNoHeartbeatsIs0) {
  Add(in_use, kUrl, 0, 200000, 200000, 1);
  Check();
  EXPECT_EQ(Report("Proxy[tcp://10.0.0.1:1001] heartbeat_num[0], max_latency[200000us], "
                   "avg_latency[0us], >100000us_num[1]\n"),
            logger.Lines());
}

TEST_F(LatencyTest, ReportsTheListInUseAlone) {
  ProxyServer* preparing = Add(peer->m_preparing_servers(), kUrl, 3, 600000, 400000, 2);
  ProxyServer* removing = Add(peer->m_removing_servers(), kOther, 3, 600000, 400000, 2);
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_FALSE(HasEmptyBooks(preparing));
  EXPECT_FALSE(HasEmptyBooks(removing));
}

TEST_F(LatencyTest, NamesTheElementsUrlWhateverIsInIt) {
  Add(in_use, kUrl, 1, 200000, 200000, 1);
  std::snprintf(peer->FindServerNode(in_use, kUrl)->server_url, 1024, "tcp://%%s%%n%%d");
  Check();
  EXPECT_EQ(Report("Proxy[tcp://%s%n%d] heartbeat_num[1], max_latency[200000us], "
                   "avg_latency[200000us], >100000us_num[1]\n"),
            logger.Lines());
}

TEST_F(LatencyTest, PassesOverElementsWithoutAProxy) {
  auto* node = static_cast<RealServerNode*>(in_use->PushBack());
  std::snprintf(node->server_url, sizeof(node->server_url), "%s", kUrl);
  node->server = nullptr;
  ProxyServer* proxy = Add(in_use, kOther, 1, 200000, 200000, 1);
  Check();
  EXPECT_EQ(1U, logger.Lines().size());
  EXPECT_TRUE(HasEmptyBooks(proxy));
}

TEST_F(LatencyTest, BeginsAnewWithoutALogger) {
  ProxyServer* proxy = Add(in_use, kUrl, 1, 200000, 200000, 1);
  EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)) << "takes it away";
  Check();
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(HasEmptyBooks(proxy));
}

// The report has room for 9999 characters. The line that crosses its end is cut, those behind it
// are left out.
TEST_F(LatencyTest, CutsTheReportAt9999Characters) {
  for (const size_t total :
       {size_t{9998}, size_t{9999}, size_t{10000}, size_t{10001}, size_t{10100}}) {
    SCOPED_TRACE(total);
    peer->ReleaseServerList(in_use);
    // Lines of 1000 characters, the tenth as long as it takes; an eleventh behind them.
    const std::string rest =
        "] heartbeat_num[1], max_latency[2us], avg_latency[2us], "
        ">100000us_num[1]\n";
    std::string text;
    std::vector<ProxyServer*> proxies;
    for (int i = 0; i < 11; ++i) {
      const size_t length = i == 9 ? total - 9000 : 1000;
      std::string url = "tcp://" + std::to_string(100 + i);
      url.resize(length - rest.size() - std::strlen("Proxy["), 'h');
      proxies.push_back(Add(in_use, url, 1, 2, 2, 1));
      text += "Proxy[" + url + rest;
    }
    peer->m_last_check_time() = 1;
    Check();
    EXPECT_EQ(Report(text.substr(0, 9999)), logger.Lines());
    for (const ProxyServer* proxy : proxies) {
      EXPECT_TRUE(HasEmptyBooks(proxy)) << "also of those that found no room";
    }
  }
}

}  // namespace
}  // namespace OstrandService
