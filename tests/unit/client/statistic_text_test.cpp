#include "client/statistic_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace OstrandService {
namespace {

std::string TextOf(const tagServiceApiStatistic& statistic) {
  std::string text;
  AppendStatistic(text, statistic);
  return text;
}

TEST(StatisticText, NamesEveryOverallCounterWithItsUnit) {
  const auto statistic = std::make_unique<tagServiceApiStatistic>();
  statistic->stOverallRunStatus.dwApiConnectOstrroxyCount = 8;
  statistic->stOverallRunStatus.dwReadReqSucNumPerMin = 4294967295U;
  statistic->stOverallRunStatus.ullSimpleReadMaxLatencyPerMin = 18446744073709551615U;
  statistic->stOverallRunStatus.dwComplexWriteMaxDelayCmd = 90;
  const std::string text = TextOf(*statistic);
  for (const char* line : {
           "\tdwApiConnectOstrroxyCount:8 connections\n",
           "\tdwApiConnectOstrroxyErrNumPerMin:0 attempts\n",
           "\tdwReadReqSucNumPerMin:4294967295 requests\n",
           "\tdwOstrsvrInvalidFielNameErrNumPerMin:0 packages\n",
           "\tullSimpleReadMaxLatencyPerMin:18446744073709551615 ms\n",
           "\tdwComplexWriteMaxDelayCmd:90 command code\n",
       }) {
    EXPECT_NE(std::string::npos, text.find(line)) << line;
  }
  EXPECT_EQ(0U, text.find("\tdwApiConnectOstrroxyCount:8 connections\n")) << "and nothing before";
  EXPECT_EQ(std::string::npos, text.find("table ")) << "there is none";
  EXPECT_EQ(std::string::npos, text.find("access ")) << "there is none";
}

TEST(StatisticText, HasALineForEachTable) {
  const auto statistic = std::make_unique<tagServiceApiStatistic>();
  statistic->iTableCount = 2;
  std::snprintf(statistic->astTableStatistic[0].szTableName, 32, "player");
  std::snprintf(statistic->astTableStatistic[1].szTableName, 32, "guild");
  statistic->astTableStatistic[1].stTableRunStatus.dwTableApiFindRouteErrNumPerMin = 5;
  statistic->astTableStatistic[1].stTableRunStatus.dwTableOstrroxyRequestAccessCtrlErrNumPerMin = 6;
  const std::string text = TextOf(*statistic);
  EXPECT_NE(std::string::npos, text.find("\ttable player dwTableApiFindRouteErrNumPerMin:0 dw"));
  EXPECT_NE(std::string::npos, text.find("\ttable guild dwTableApiFindRouteErrNumPerMin:5 dw"));
  EXPECT_NE(std::string::npos, text.find(" dwTableOstrroxyRequestAccessCtrlErrNumPerMin:6\n"));
}

TEST(StatisticText, HasALineForEachAccessAndItsMeasuredStages) {
  const auto statistic = std::make_unique<tagServiceApiStatistic>();
  statistic->iAccessCount = 1;
  tagAccessRunStatus& access = statistic->astAccessStatistic[0];
  std::snprintf(access.szAccessUrl, sizeof(access.szAccessUrl), "tcp://10.0.0.1:9000");
  std::snprintf(access.szAccessId, sizeof(access.szAccessId), "p1");
  access.dwRequestCountPerMin = 12;
  access.dwMaxDelayCmd = 8;
  access.stPerfDelay.stSvrHandleDelay.dwMaxDelay = 40;
  access.stPerfDelay.stSvrHandleDelay.dwDelayLow100MS = 3;
  statistic->stPerfDelay.stApiTotalDelay.dwDelayLowZero = 1;
  EXPECT_EQ(
      "\tstApiTotalDelay dwMaxDelay:0 dwDelayLowZero:1 dwDelayLow10MS:0 dwDelayLow100MS:0 "
      "dwDelayLow500MS:0 dwDelayLow1000MS:0 dwDelayHigh1S:0\n"
      "\taccess tcp://10.0.0.1:9000 p1 dwRequestCountPerMin:12 dwBatchRequestCountPerMin:0 "
      "dwResponseCountPerMin:0 dwBatchResponseCountPerMin:0 dwTimeOutCountPerMin:0 "
      "dwOstrsvrReturnErrCountPerMin:0 dwProxyReturnErrCountPerMin:0 "
      "dwProxyReturnSystemErrCountPerMin:0 dwDynamicErrCountPerMin:0 dwMaxDelay:0 "
      "ullMaxDelayTime:0 dwMaxDelayCmd:8 ullTimeOutCount:0 ullProxyReturnSystemErrCount:0\n"
      "\t\tstSvrHandleDelay dwMaxDelay:40 dwDelayLowZero:0 dwDelayLow10MS:0 dwDelayLow100MS:3 "
      "dwDelayLow500MS:0 dwDelayLow1000MS:0 dwDelayHigh1S:0\n",
      TextOf(*statistic).substr(TextOf(*statistic).find("\tstApiTotalDelay")));
}

}  // namespace
}  // namespace OstrandService
