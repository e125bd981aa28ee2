// A logger for fuzz targets: formats every line, so that what a line reads is really read, counts
// it and forgets it.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "common/logger.h"

class QuietLogger : public OstrandCommon::Logger {
 public:
  void Log(OstrandCommon::LogLevel, int, int, const char*, int, const char*, const char* format,
           ...) override __attribute__((format(printf, 8, 9))) {
    va_list args;
    va_start(args, format);
    // The length that it answers is the whole line's: every argument is read to its end.
    std::vsnprintf(m_text, sizeof(m_text), format, args);
    va_end(args);
    ++m_lines;
  }
  int InitLogger(const char*) override { return 0; }
  OstrandCommon::Logger* CloneLogger() override { return nullptr; }
  OstrandCommon::Logger* GetLogger() override { return this; }
  bool IsPriorityEnabled(OstrandCommon::LogLevel) override { return true; }
  void ResetLogHandler(void*) override {}
  void* GetLoggerHandle() override { return nullptr; }
  void* GetCurThreadLoggerHandle() override { return nullptr; }
  void Fini() override {}

  int lines() const { return m_lines; }

 private:
  int m_lines = 0;
  char m_text[2048] = "";
};
