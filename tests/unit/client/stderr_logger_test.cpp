#include "client/stderr_logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fake_system.h"

namespace OstrandService {
namespace {

using namespace OstrandCommon;  // NOLINT: levels

// Its time is the test's, its log the kernel's.
class WritingSystem final : public OstrandFakes::FakeSystem {
 public:
  explicit WritingSystem(int64_t wall_ms) { StepWallMs(wall_ms - kStartWallMs); }
  ssize_t WriteLog(const char* text, size_t len) override {
    return OSTRNET::System::Kernel().WriteLog(text, len);
  }
};

template <typename... Args>
std::string Written(StderrLogger& logger, LogLevel level, const char* format, Args... args) {
  testing::internal::CaptureStderr();
  logger.Log(level, 0, 42, "src/client/x", 7, "Function", format, args...);
  return testing::internal::GetCapturedStderr();
}

TEST(StderrLogger, WritesTimeLevelModulePlaceAndText) {
  WritingSystem system(1700000000042);
  StderrLogger logger(OSTRAND_LOG_LEVEL_TRACE, system);
  EXPECT_EQ(Written(logger, OSTRAND_LOG_LEVEL_WARN, "%d of %s", 3, "four"),
            "1700000000.042 WARN [42] src/client/x:7 Function: 3 of four\n");
}

TEST(StderrLogger, NamesEachLevel) {
  struct Named {
    LogLevel level;
    const char* name;
  };
  const Named kNamed[] = {
      {OSTRAND_LOG_LEVEL_FATAL, "FATAL"}, {OSTRAND_LOG_LEVEL_ALERT, "ALERT"},
      {OSTRAND_LOG_LEVEL_CRIT, "CRIT"},   {OSTRAND_LOG_LEVEL_ERROR, "ERROR"},
      {OSTRAND_LOG_LEVEL_WARN, "WARN"},   {OSTRAND_LOG_LEVEL_NOTICE, "NOTICE"},
      {OSTRAND_LOG_LEVEL_INFO, "INFO"},   {OSTRAND_LOG_LEVEL_DEBUG, "DEBUG"},
      {OSTRAND_LOG_LEVEL_TRACE, "TRACE"},
  };
  WritingSystem system(1000);
  StderrLogger logger(OSTRAND_LOG_LEVEL_TRACE, system);
  for (const Named& named : kNamed) {
    EXPECT_EQ(Written(logger, named.level, "%s", "text"),
              std::string("1.000 ") + named.name + " [42] src/client/x:7 Function: text\n");
  }
}

TEST(StderrLogger, DropsWhatIsLessUrgentThanItsLevel) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  EXPECT_EQ(Written(logger, OSTRAND_LOG_LEVEL_NOTICE, "%s", "text"), "");
  EXPECT_NE(Written(logger, OSTRAND_LOG_LEVEL_WARN, "%s", "text"), "");
  EXPECT_NE(Written(logger, OSTRAND_LOG_LEVEL_FATAL, "%s", "text"), "");
  EXPECT_FALSE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_NOTICE));
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_WARN));
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_FATAL));
}

TEST(StderrLogger, TakesItsLevelFromDigits) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  EXPECT_EQ(logger.InitLogger("700"), 0);
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_DEBUG));
  EXPECT_FALSE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_EQ(logger.InitLogger(nullptr), 0);
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_DEBUG));
  EXPECT_EQ(logger.InitLogger("800"), 0);
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_TRACE));
  EXPECT_EQ(logger.InitLogger("0"), 0);
  EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_FATAL));
  EXPECT_FALSE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_ALERT));
}

TEST(StderrLogger, KeepsItsLevelWhenTheConfigurationIsNone) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  for (const char* text :
       {"", "WARN", "700x", "700 ", "-1", "801", "1e2", "4294967296", "99999999999999999999999"}) {
    EXPECT_EQ(logger.InitLogger(text), -1) << text;
    EXPECT_TRUE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_WARN)) << text;
    EXPECT_FALSE(logger.IsPriorityEnabled(OSTRAND_LOG_LEVEL_NOTICE)) << text;
  }
}

TEST(StderrLogger, CutsALongLineAndStillEndsIt) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  const std::string head = Written(logger, OSTRAND_LOG_LEVEL_WARN, "%s", "");
  for (const size_t len : {3000u, 4095u, 4096u, 4097u, 100000u}) {
    const std::string text(len, 'x');
    const std::string line = Written(logger, OSTRAND_LOG_LEVEL_WARN, "%s", text.c_str());
    EXPECT_LE(line.size(), 4096u);
    EXPECT_GE(line.size(), std::min<size_t>(head.size() + len, 4090));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line[line.size() - 2], 'x');
  }
}

TEST(StderrLogger, StandsALongPlaceToo) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  const std::string file(10000, 'f');
  testing::internal::CaptureStderr();
  logger.Log(OSTRAND_LOG_LEVEL_WARN, 0, 1, file.c_str(), 1, "Function", "%s", "text");
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_LE(line.size(), 4096u);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
}

TEST(StderrLogger, WritesTheLinesOfAllThreadsWhole) {
  WritingSystem system(1000);
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN, system);
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&logger, thread] {
      for (int line = 0; line < kLines; ++line) {
        logger.Log(OSTRAND_LOG_LEVEL_WARN, 0, thread, "file", line, "F", "%d.%d", thread, line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::istringstream written(testing::internal::GetCapturedStderr());
  std::multiset<std::string> expected;
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int line = 0; line < kLines; ++line) {
      std::ostringstream text;
      text << "1.000 WARN [" << thread << "] file:" << line << " F: " << thread << "." << line;
      expected.insert(text.str());
    }
  }
  std::multiset<std::string> lines;
  for (std::string line; std::getline(written, line);) {
    lines.insert(line);
  }
  EXPECT_EQ(lines, expected);
}

TEST(StderrLogger, IsOneLoggerWithoutHandles) {
  StderrLogger logger(OSTRAND_LOG_LEVEL_WARN);
  EXPECT_EQ(logger.GetLogger(), &logger);
  EXPECT_EQ(logger.CloneLogger(), nullptr);
  EXPECT_EQ(logger.GetLoggerHandle(), nullptr);
  EXPECT_EQ(logger.GetCurThreadLoggerHandle(), nullptr);
  logger.ResetLogHandler(&logger);
  EXPECT_EQ(logger.GetLoggerHandle(), nullptr);
  logger.Fini();
  EXPECT_NE(Written(logger, OSTRAND_LOG_LEVEL_WARN, "%s", "text"), "");
}

}  // namespace
}  // namespace OstrandService
