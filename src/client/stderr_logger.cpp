#include "client/stderr_logger.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace OstrandService {
namespace {

const char* LevelName(int level) {
  static constexpr const char* kNames[] = {"FATAL",  "ALERT", "CRIT",  "ERROR", "WARN",
                                           "NOTICE", "INFO",  "DEBUG", "TRACE"};
  return level >= 0 && level <= OstrandCommon::OSTRAND_LOG_LEVEL_TRACE ? kNames[level / 100] : "?";
}

}  // namespace

void StderrLogger::Log(OstrandCommon::LogLevel level, int reserved, int module_id, const char* file,
                       int line, const char* function, const char* format, ...) {
  (void)reserved;
  if (level > m_level) {
    return;
  }
  char text[4096];
  const auto size = static_cast<int>(sizeof(text)) - 1;  // the last byte is for the line's end
  const int64_t now_ms = m_system.WallMicroseconds() / 1000;
  int length = std::snprintf(
      text, sizeof(text), "%lld.%03d %s [%d] %s:%d %s: ", static_cast<long long>(now_ms / 1000),
      static_cast<int>(now_ms % 1000), LevelName(level), module_id, file, line, function);
  length = std::clamp(length, 0, size);
  va_list arguments;
  va_start(arguments, format);
  const int printed =
      std::vsnprintf(text + length, static_cast<size_t>(size - length), format, arguments);
  va_end(arguments);
  length = std::clamp(length + std::max(printed, 0), 0, size - 1);
  text[length] = '\n';
  const char* at = text;
  auto left = static_cast<size_t>(length) + 1;
  while (left > 0) {
    const ssize_t written = m_system.WriteLog(at, left);
    if (written > 0) {
      at += written;
      left -= static_cast<size_t>(written);
    } else if (written != -EINTR) {
      return;
    }
  }
}

int StderrLogger::InitLogger(const char* configuration) {
  if (configuration == nullptr) {
    return 0;
  }
  char* end = nullptr;
  const long level = std::strtol(configuration, &end, 10);
  if (end == configuration || *end != '\0' || level < 0 ||
      level > OstrandCommon::OSTRAND_LOG_LEVEL_TRACE) {
    return -1;
  }
  m_level = static_cast<int>(level);
  return 0;
}

}  // namespace OstrandService
