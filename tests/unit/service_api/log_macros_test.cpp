#include "service_api/log_macros.h"

#include <gtest/gtest.h>

#include <vector>

#include "fakes/recording_logger.h"

namespace OstrandService {
namespace {

using OstrandFakes::LogLine;
using OstrandFakes::RecordingLogger;

TEST(RouterLogMacros, EachSpeaksAtItsLevelForTheRouter) {
  RecordingLogger logger;
  ROUTER_LOG_CRIT(&logger, 7, "OnUpdate", "%d-%s", 1, "crit");
  ROUTER_LOG_ERROR(&logger, 7, "OnUpdate", "%d-%s", 2, "error");
  ROUTER_LOG_WARN(&logger, 7, "OnUpdate", "%d-%s", 3, "warn");
  ROUTER_LOG_INFO(&logger, 7, "OnUpdate", "%d-%s", 4, "info");
  ROUTER_LOG_DEBUG(&logger, 7, "OnUpdate", "%d-%s", 5, "debug");
  ROUTER_LOG_TRACE(&logger, 7, "OnUpdate", "%d-%s", 6, "trace");
  const char* const router = "src/service_api/ostrand_router";
  EXPECT_EQ(std::vector<LogLine>(
                {{OstrandCommon::OSTRAND_LOG_LEVEL_CRIT, 7, router, "OnUpdate", "1-crit"},
                 {OstrandCommon::OSTRAND_LOG_LEVEL_ERROR, 7, router, "OnUpdate", "2-error"},
                 {OstrandCommon::OSTRAND_LOG_LEVEL_WARN, 7, router, "OnUpdate", "3-warn"},
                 {OstrandCommon::OSTRAND_LOG_LEVEL_INFO, 7, router, "OnUpdate", "4-info"},
                 {OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG, 7, router, "OnUpdate", "5-debug"},
                 {OstrandCommon::OSTRAND_LOG_LEVEL_TRACE, 7, router, "OnUpdate", "6-trace"}}),
            logger.Lines());
}

TEST(RouterLogMacros, GiveTheSourceLine) {
  RecordingLogger logger;
  const int line = __LINE__ + 1;
  ROUTER_LOG_INFO(&logger, 0, "Init", "here");
  ASSERT_EQ(1U, logger.Lines().size());
  EXPECT_EQ(line, logger.Lines()[0].line);
}

TEST(RouterLogMacros, DoNotAskWhetherALineIsWanted) {
  RecordingLogger logger;
  logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
  ROUTER_LOG_TRACE(&logger, 0, "Init", "here");
  EXPECT_EQ(1U, logger.Lines().size());
  EXPECT_EQ(0, logger.AskedAbout(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE));
}

TEST(RouterLogMacros, AreSilentWithoutALogger) {
  OstrandCommon::Logger* logger = nullptr;
  ROUTER_LOG_ERROR(logger, 7, "OnUpdate", "%s", "nobody hears this");
}

TEST(RouterLogMacros, EvaluateTheLoggerOnce) {
  RecordingLogger logger;
  int evaluations = 0;
  const auto next = [&] {
    ++evaluations;
    return &logger;
  };
  ROUTER_LOG_INFO(next(), 0, "Init", "here");
  EXPECT_EQ(1, evaluations);
}

}  // namespace
}  // namespace OstrandService
