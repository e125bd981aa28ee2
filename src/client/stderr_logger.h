// A logger that writes lines to standard error, one write a line.
//
// Threads: any.
#pragma once

#include "common/logger.h"
#include "common/relaxed.h"
#include "net/system.h"

namespace OstrandService {

class StderrLogger : public OstrandCommon::Logger {
 public:
  // Lines above `level` are dropped.
  explicit StderrLogger(OstrandCommon::LogLevel level,
                        OSTRNET::System& system = OSTRNET::System::Kernel())
      : m_system(system), m_level(level) {}

  void Log(OstrandCommon::LogLevel level, int reserved, int module_id, const char* file, int line,
           const char* function, const char* format, ...) override
      __attribute__((format(printf, 8, 9)));
  // configuration: a level in decimal digits, or null for no change. -1 for anything else.
  int InitLogger(const char* configuration) override;
  OstrandCommon::Logger* CloneLogger() override { return nullptr; }
  OstrandCommon::Logger* GetLogger() override { return this; }
  bool IsPriorityEnabled(OstrandCommon::LogLevel level) override { return level <= m_level; }
  void ResetLogHandler(void* handle) override { (void)handle; }
  void* GetLoggerHandle() override { return nullptr; }
  void* GetCurThreadLoggerHandle() override { return nullptr; }
  void Fini() override {}

 private:
  OSTRNET::System& m_system;
  OstrandCommon::Relaxed<int> m_level;
};

}  // namespace OstrandService
