// What the library asks of a logger. The owner of the service implements it; nobody else logs.
//
// Ownership: borrowed by everybody who holds a pointer; it outlives all of them.
// Threads: `Log` and `IsPriorityEnabled` are called from the application's and from the network
// thread at the same time, sometimes with locks held: they must be thread-safe, must not block for
// long and must not call back into the library.
#pragma once

#include "common/export.h"

namespace OstrandCommon {

// Smaller is more urgent. A logger set to a level writes the lines at or below its number.
enum LogLevel : int {
  OSTRAND_LOG_LEVEL_FATAL = 0,
  OSTRAND_LOG_LEVEL_ALERT = 100,
  OSTRAND_LOG_LEVEL_CRIT = 200,
  OSTRAND_LOG_LEVEL_ERROR = 300,
  OSTRAND_LOG_LEVEL_WARN = 400,
  OSTRAND_LOG_LEVEL_NOTICE = 500,
  OSTRAND_LOG_LEVEL_INFO = 600,
  OSTRAND_LOG_LEVEL_DEBUG = 700,
  OSTRAND_LOG_LEVEL_TRACE = 800,
};

class NonCopyable {
 public:
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;

 protected:
  NonCopyable() = default;
  ~NonCopyable() = default;
};

class OSTRAND_API Logger : public NonCopyable {
 public:
  // Writes one line. The second argument is reserved (always 0).
  // module_id: the module that speaks, chosen by the owner; file: source unit without extension;
  // line: source line; function: unqualified name of the operation; format: as printf.
  virtual void Log(LogLevel level, int reserved, int module_id, const char* file, int line,
                   const char* function, const char* format, ...)
      __attribute__((format(printf, 8, 9))) = 0;

  // Prepares the logger from a configuration text whose form is the implementation's.
  // 0, or a negative code; before it and after Fini the logger may drop lines.
  virtual int InitLogger(const char* configuration) = 0;

  // A second logger that writes to the same place, owned by the caller; null when not supported.
  virtual Logger* CloneLogger() = 0;

  // The logger that really writes: itself, unless this one stands in front of another.
  virtual Logger* GetLogger() = 0;

  // Whether a line of this level would be written. Cheap: asked before costly texts are built.
  virtual bool IsPriorityEnabled(LogLevel level) = 0;

  // Replaces the native handle. The old one stays the caller's.
  virtual void ResetLogHandler(void* handle) = 0;

  // The native handle that connectors and codec take; null when there is none.
  virtual void* GetLoggerHandle() = 0;

  // The native handle of the calling thread, where the implementation keeps one a thread.
  virtual void* GetCurThreadLoggerHandle() = 0;

  // Writes what is buffered and releases the logger's resources.
  virtual void Fini() = 0;

  virtual ~Logger() = default;
};

}  // namespace OstrandCommon
