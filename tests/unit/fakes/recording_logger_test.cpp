#include "fakes/recording_logger.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace OstrandFakes {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;

class RecordingLoggerTest : public testing::Test {
 protected:
  RecordingLoggerTest() {
    logger.Log(OSTRAND_LOG_LEVEL_INFO, 0, 3, "file", 11, "First", "%d %s", 5, "words");
    logger.Log(OSTRAND_LOG_LEVEL_ERROR, 1, 4, "other", 12, "Second", "%%");
    logger.Log(OSTRAND_LOG_LEVEL_INFO, 0, 3, "file", 13, "First", "5 words");
  }

  RecordingLogger logger;
};

TEST_F(RecordingLoggerTest, KeepsEveryPartOfALine) {
  ASSERT_EQ(3U, logger.Lines().size());
  const LogLine line = logger.Lines()[1];
  EXPECT_EQ(OSTRAND_LOG_LEVEL_ERROR, line.level);
  EXPECT_EQ(1, line.reserved);
  EXPECT_EQ(4, line.module_id);
  EXPECT_EQ("other", line.file);
  EXPECT_EQ(12, line.line);
  EXPECT_EQ("Second", line.function);
  EXPECT_EQ("%", line.text);
}

TEST_F(RecordingLoggerTest, ComparesAllButTheSourceLine) {
  const std::vector<LogLine> lines = logger.Lines();
  EXPECT_EQ(lines[0], lines[2]);
  const auto differs = [&](void (*change)(LogLine&)) {
    LogLine other = lines[0];
    change(other);
    return other != lines[0];
  };
  EXPECT_TRUE(differs([](LogLine& line) { line.level = OSTRAND_LOG_LEVEL_DEBUG; }));
  EXPECT_TRUE(differs([](LogLine& line) { line.reserved = 1; }));
  EXPECT_TRUE(differs([](LogLine& line) { line.module_id = 1; }));
  EXPECT_TRUE(differs([](LogLine& line) { line.file = "x"; }));
  EXPECT_TRUE(differs([](LogLine& line) { line.function = "x"; }));
  EXPECT_TRUE(differs([](LogLine& line) { line.text = "x"; }));
}

TEST_F(RecordingLoggerTest, Selects) {
  EXPECT_EQ(std::vector<std::string>({"5 words", "%", "5 words"}), logger.Texts());
  EXPECT_EQ(std::vector<std::string>({"%"}), logger.TextsOf(OSTRAND_LOG_LEVEL_ERROR));
  EXPECT_EQ(2U, logger.LinesFrom("First").size());
  EXPECT_EQ(2, logger.Count(OSTRAND_LOG_LEVEL_INFO, "5 words"));
  EXPECT_EQ(0, logger.Count(OSTRAND_LOG_LEVEL_ERROR, "5 words"));
  LogLine found;
  EXPECT_TRUE(logger.Find(OSTRAND_LOG_LEVEL_INFO, "5 words", &found));
  EXPECT_EQ(11, found.line);
  EXPECT_FALSE(logger.Find(OSTRAND_LOG_LEVEL_DEBUG, "5 words"));
  logger.Clear();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RecordingLoggerTest, KeepsLongTextsWhole) {
  const std::string text(100000, 'x');
  logger.Log(OSTRAND_LOG_LEVEL_INFO, 0, 0, "f", 1, "f", "%s", text.c_str());
  EXPECT_EQ(text, logger.Texts().back());
}

TEST_F(RecordingLoggerTest, ShowsEachLineToTheHookBeforeItIsKept) {
  std::vector<LogLine> shown;
  std::vector<size_t> kept;
  logger.OnLine([&](const LogLine& line) {
    shown.push_back(line);
    kept.push_back(logger.Lines().size());
  });
  logger.Log(OSTRAND_LOG_LEVEL_INFO, 0, 3, "file", 14, "Third", "%d", 7);
  logger.Log(OSTRAND_LOG_LEVEL_INFO, 0, 3, "file", 15, "Third", "%d", 8);
  EXPECT_EQ(std::vector<size_t>({3, 4}), kept);
  EXPECT_EQ(std::vector<LogLine>({logger.Lines()[3], logger.Lines()[4]}), shown);
}

TEST_F(RecordingLoggerTest, AnswersWhetherALevelIsEnabledAndRemembersTheQuestion) {
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_DEBUG));
  logger.SetThreshold(OSTRAND_LOG_LEVEL_INFO);
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_INFO));
  EXPECT_FALSE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_DEBUG));
  EXPECT_EQ(2, logger.AskedAbout(OSTRAND_LOG_LEVEL_DEBUG));
}

TEST_F(RecordingLoggerTest, HandsOutTheHandleItWasGiven) {
  EXPECT_NE(nullptr, logger.GetLoggerHandle());
  int handle = 0;
  logger.ResetLogHandler(&handle);
  EXPECT_EQ(&handle, logger.GetLoggerHandle());
}

TEST_F(RecordingLoggerTest, PrintsALineForAReader) {
  std::ostringstream out;
  out << logger.Lines()[0];
  EXPECT_EQ("INFO module 3 file:11 First: \"5 words\"", out.str());
}

}  // namespace
}  // namespace OstrandFakes
