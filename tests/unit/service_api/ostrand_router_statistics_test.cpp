// Sampling requests, and telling how often which error came.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fakes/fake_request.h"
#include "unit/service_api/router_traffic_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_CRIT;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::FakeRequest;

// --- Sampling ---

class PerfSamplingTest : public RouterTrafficTest {
 protected:
  // The numbers, from 1 on, of those of the next `count` requests that are sampled.
  std::vector<int> Sampled(int count) {
    std::vector<int> sampled;
    for (int number = 1; number <= count; ++number) {
      const size_t before = request.perf_tests().size();
      peer->PerfSampling(&request);
      if (request.perf_tests().size() != before) {
        sampled.push_back(number);
      }
    }
    return sampled;
  }
  static std::vector<int> Numbers(int first, int last) {
    std::vector<int> numbers;
    for (int number = first; number <= last; ++number) {
      numbers.push_back(number);
    }
    return numbers;
  }

  FakeRequest request{ostrand_protocol_cs::OSTRAND_API_GET_REQ, kZoneId, kTable, &journal};
};

TEST_F(PerfSamplingTest, TakesAFixedStrideOfTheRequests) {
  router->SetPerfSampPercent(10);
  std::vector<int> expected = Numbers(1, 9);
  for (const int hundred : {100, 200, 300}) {
    const std::vector<int> more = Numbers(hundred, hundred + 9);
    expected.insert(expected.end(), more.begin(), more.end());
  }
  EXPECT_EQ(expected, Sampled(399));
  EXPECT_EQ(400U, peer->m_perfId());
}

TEST_F(PerfSamplingTest, TakesAsManyOfAHundredAsTheShareSays) {
  const struct {
    int32_t share;
    std::vector<int> of_the_first_200;
  } kCases[] = {{0, {}},
                {1, {100, 200}},
                {2, {1, 100, 101, 200}},
                {99,
                 [] {
                   std::vector<int> but_one_in_a_hundred;
                   for (int number = 1; number <= 200; ++number) {
                     if (number != 99 && number != 199) {
                       but_one_in_a_hundred.push_back(number);
                     }
                   }
                   return but_one_in_a_hundred;
                 }()},
                {100, Numbers(1, 200)},
                {101, Numbers(1, 200)},
                {INT32_MAX, Numbers(1, 200)},
                {-1, Numbers(1, 200)}};
  for (const auto& c : kCases) {
    peer->m_perfId() = 1;
    router->SetPerfSampPercent(c.share);
    EXPECT_EQ(c.of_the_first_200, Sampled(200)) << c.share;
  }
}

TEST_F(PerfSamplingTest, TakesNobodyUnlessAShareWasSet) {
  EXPECT_EQ(std::vector<int>(), Sampled(200));
  EXPECT_EQ(201U, peer->m_perfId()) << "which are counted all the same";
}

TEST_F(PerfSamplingTest, LooksAtSimpleCommandsOnly) {
  const uint32_t kSimple[] = {7, 15, 83, 153, 1, 17, 155, 5, 21, 29, 157, 3, 9, 13, 19, 65};
  const uint32_t kOthers[] = {11, 23,  25,  27,   91,   117,  129,  4225, 4227, 4239, 145,
                              89, 149, 147, 4215, 4217, 4221, 4223, 151,  4233, 8,    51};
  router->SetPerfSampPercent(100);
  for (const uint32_t cmd : kSimple) {
    const uint64_t before = peer->m_perfId();
    request.SetCmd(cmd);
    EXPECT_EQ(Numbers(1, 1), Sampled(1)) << cmd;
    EXPECT_EQ(before + 1, peer->m_perfId()) << cmd;
  }
  for (const uint32_t cmd : kOthers) {
    const uint64_t before = peer->m_perfId();
    request.SetCmd(cmd);
    EXPECT_EQ(Numbers(1, 0), Sampled(1)) << cmd;
    EXPECT_EQ(before, peer->m_perfId()) << cmd;
  }
}

TEST_F(PerfSamplingTest, StampsVersionAndTimeOfSending) {
  clock.SetUs(1700000000123456);
  router->SetPerfSampPercent(100);
  peer->PerfSampling(&request);
  const std::string head("\x00\x00\x00\x77\x00\x06\x0A\x24\x18\x20\x22\x40", 12);
  ASSERT_EQ(1U, request.perf_tests().size());
  EXPECT_EQ(head + std::string(76, '\0'), request.perf_tests()[0]);
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(PerfSamplingTest, LeavesARequestThatRefusesTheRecordWithoutIt) {
  router->SetPerfSampPercent(100);
  request.SetPerfTestResult(-29203);
  StartOver();
  peer->PerfSampling(&request);
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "PerfSampling", "perf.pack failed -29203"}}),
            logger.Lines());
  EXPECT_EQ(1U, request.perf_tests().size()) << "tried once";
  EXPECT_EQ(2U, peer->m_perfId());

  peer->m_virtual_nodes()[0] = VirtualServerNode{1, proxy};
  peer->m_virtual_node_count() = 1;
  EXPECT_EQ(0, router->SendRequest(&request)) << "it is sent all the same";
  EXPECT_EQ(1U, connector->sent().size());
  peer->m_virtual_nodes()[0].server = nullptr;
}

// --- The result codes ---

class ErrorCodeStatisticsTest : public RouterTrafficTest {
 protected:
  // Adds codes from -1999 on until their text, as it should be, has `length` characters or more.
  std::string FillTo(size_t length) {
    std::string text;
    for (int code = -1999; text.size() < length; ++code) {
      peer->m_recvErrorCodeMap()[code] = 7;
      text += "\t" + std::to_string(code) + ":7\n";
    }
    return text;
  }
  static OstrandFakes::Said Told(const std::string& text) {
    return {OSTRAND_LOG_LEVEL_CRIT, "PrintErrorCodeStatistics",
            "App 1001 Zone 5 ErrCode Statistics(ErrCode-Num):\n" + text};
  }
};

TEST_F(ErrorCodeStatisticsTest, AreToldInAscendingOrderAndForgotten) {
  peer->m_recvErrorCodeMap() = {{-269, 1}, {INT32_MIN, 3}, {-12301, 20}, {-1, 2147483647}};
  router->PrintErrorCodeStatistics();
  EXPECT_EQ(Lines({Told("\t-2147483648:3\n\t-12301:20\n\t-269:1\n\t-1:2147483647\n")}),
            logger.Lines());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  logger.Clear();
  router->PrintErrorCodeStatistics();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ErrorCodeStatisticsTest, AreNotToldWhenThereAreNone) {
  router->PrintErrorCodeStatistics();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(ErrorCodeStatisticsTest, AreToldIn1023CharactersAtMost) {
  // A line of these has 9 characters: 113 of them 1017.
  ASSERT_EQ(1017U, FillTo(1017).size());
  const struct {
    const char* last_line;
    int code;
    int count;
    size_t length;
  } kCases[] = {{"fits exactly", -5, 7, 1023},
                {"is one too long", -55, 7, 1023},
                {"is three too long", -999, 77, 1023},
                {"is cut behind its code", -999, 777777, 1023}};
  for (const auto& c : kCases) {
    std::string text = FillTo(1017);
    peer->m_recvErrorCodeMap()[c.code] = c.count;
    text += "\t" + std::to_string(c.code) + ":" + std::to_string(c.count) + "\n";
    text.resize(std::min<size_t>(text.size(), 1023));
    ASSERT_EQ(c.length, text.size());
    logger.Clear();
    router->PrintErrorCodeStatistics();
    EXPECT_EQ(Lines({Told(text)}), logger.Lines()) << c.last_line;
    EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  }
}

TEST_F(ErrorCodeStatisticsTest, AreToldNoFurtherOnceTheTextIsFull) {
  const std::string text = FillTo(1017) + "\t-5:7\n";
  ASSERT_EQ(1023U, text.size());
  peer->m_recvErrorCodeMap()[-5] = 7;
  peer->m_recvErrorCodeMap()[-1] = 1;
  router->PrintErrorCodeStatistics();
  EXPECT_EQ(Lines({Told(text)}), logger.Lines());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
}

TEST_F(ErrorCodeStatisticsTest, AreForgottenWholeAlsoWhereTheyWereCut) {
  const std::string text = FillTo(9000);
  router->PrintErrorCodeStatistics();
  EXPECT_EQ(Lines({Told(text.substr(0, 1023))}), logger.Lines());
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
}

TEST_F(ErrorCodeStatisticsTest, AreForgottenWithoutALogger) {
  peer->m_recvErrorCodeMap()[-5] = 1;
  peer->m_logger() = nullptr;
  router->PrintErrorCodeStatistics();
  EXPECT_TRUE(peer->m_recvErrorCodeMap().empty());
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
