// A logger that keeps every line it is given.
//
// Ownership: the test's; outlives whoever logs into it.
// Threads: any.
#pragma once

#include <cstdarg>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "common/logger.h"

namespace OstrandFakes {

// One line, all its arguments formatted. Two lines are equal when all but the source line are.
struct LogLine {
  OstrandCommon::LogLevel level = OstrandCommon::OSTRAND_LOG_LEVEL_FATAL;
  int module_id = 0;
  std::string file;
  std::string function;
  std::string text;
  int reserved = 0;
  int line = 0;  // source line
};
bool operator==(const LogLine& a, const LogLine& b);
bool operator!=(const LogLine& a, const LogLine& b);
std::ostream& operator<<(std::ostream& out, const LogLine& line);

class RecordingLogger : public OstrandCommon::Logger {
 public:
  // Lines of every level are kept, whatever the threshold: it only answers IsPriorityEnabled.
  void Log(OstrandCommon::LogLevel level, int reserved, int module_id, const char* file, int line,
           const char* function, const char* format, ...) override
      __attribute__((format(printf, 8, 9)));
  int InitLogger(const char*) override { return 0; }
  OstrandCommon::Logger* CloneLogger() override { return nullptr; }
  OstrandCommon::Logger* GetLogger() override { return this; }
  bool IsPriorityEnabled(OstrandCommon::LogLevel level) override;
  void ResetLogHandler(void* handle) override;
  void* GetLoggerHandle() override;
  void* GetCurThreadLoggerHandle() override { return GetLoggerHandle(); }
  void Fini() override {}

  // The most talkative level that is enabled; TRACE, that is every level, unless set.
  void SetThreshold(OstrandCommon::LogLevel level);
  // Called with each line before it is kept, without a lock, so that a test sees what has happened
  // by then. The hook must not log.
  void OnLine(std::function<void(const LogLine&)> hook);
  // How often IsPriorityEnabled was asked about this level.
  int AskedAbout(OstrandCommon::LogLevel level) const;

  std::vector<LogLine> Lines() const;
  std::vector<LogLine> LinesOf(OstrandCommon::LogLevel level) const;
  std::vector<LogLine> LinesFrom(const std::string& function) const;
  std::vector<std::string> Texts() const;
  std::vector<std::string> TextsOf(OstrandCommon::LogLevel level) const;
  int Count(OstrandCommon::LogLevel level) const;
  int Count(OstrandCommon::LogLevel level, const std::string& text) const;
  // The first line of this level with exactly this text; false when there is none.
  bool Find(OstrandCommon::LogLevel level, const std::string& text, LogLine* found = nullptr) const;
  void Clear();

 private:
  template <typename Wanted>
  std::vector<LogLine> Select(Wanted wanted) const;

  mutable std::mutex m_mutex;
  OstrandCommon::LogLevel m_threshold = OstrandCommon::OSTRAND_LOG_LEVEL_TRACE;
  void* m_handle = this;
  std::function<void(const LogLine&)> m_hook;
  std::vector<LogLine> m_lines;
  std::vector<OstrandCommon::LogLevel> m_asked;
};

}  // namespace OstrandFakes
