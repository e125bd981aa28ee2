#include "fakes/recording_logger.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"

namespace OstrandFakes {

using OstrandCommon::LogLevel;

namespace {

std::string Format(const char* format, va_list args) {
  va_list measured;
  va_copy(measured, args);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0) {
    Fault("a log line that vsnprintf refuses: %s", format);
  }
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(&text[0], text.size(), format, args);
  text.pop_back();
  return text;
}

const char* NameOf(LogLevel level) {
  switch (level) {
    case OstrandCommon::OSTRAND_LOG_LEVEL_FATAL: return "FATAL";
    case OstrandCommon::OSTRAND_LOG_LEVEL_ALERT: return "ALERT";
    case OstrandCommon::OSTRAND_LOG_LEVEL_CRIT: return "CRIT";
    case OstrandCommon::OSTRAND_LOG_LEVEL_ERROR: return "ERROR";
    case OstrandCommon::OSTRAND_LOG_LEVEL_WARN: return "WARN";
    case OstrandCommon::OSTRAND_LOG_LEVEL_NOTICE: return "NOTICE";
    case OstrandCommon::OSTRAND_LOG_LEVEL_INFO: return "INFO";
    case OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG: return "DEBUG";
    case OstrandCommon::OSTRAND_LOG_LEVEL_TRACE: return "TRACE";
  }
  return "?";
}

}  // namespace

bool operator==(const LogLine& a, const LogLine& b) {
  return a.level == b.level && a.module_id == b.module_id && a.file == b.file &&
         a.function == b.function && a.text == b.text && a.reserved == b.reserved;
}

bool operator!=(const LogLine& a, const LogLine& b) { return !(a == b); }

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  out << NameOf(line.level) << " module " << line.module_id << " " << line.file << ":" << line.line
      << " " << line.function << ": \"" << line.text << "\"";
  if (line.reserved != 0) {
    out << " reserved " << line.reserved;
  }
  return out;
}

void RecordingLogger::Log(LogLevel level, int reserved, int module_id, const char* file, int line,
                          const char* function, const char* format, ...) {
  const UnwatchedAllocations unwatched;
  if (file == nullptr || function == nullptr || format == nullptr || line <= 0) {
    Fault("a log line without file, line, function or format");
  }
  va_list args;
  va_start(args, format);
  LogLine logged{level, module_id, file, function, Format(format, args), reserved, line};
  va_end(args);
  std::function<void(const LogLine&)> hook;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    hook = m_hook;
  }
  if (hook) {
    hook(logged);
  }
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.push_back(std::move(logged));
}

void RecordingLogger::OnLine(std::function<void(const LogLine&)> hook) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_hook = std::move(hook);
}

bool RecordingLogger::IsPriorityEnabled(LogLevel level) {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_asked.push_back(level);
  return level <= m_threshold;
}

void RecordingLogger::ResetLogHandler(void* handle) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_handle = handle;
}

void* RecordingLogger::GetLoggerHandle() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_handle;
}

void RecordingLogger::SetThreshold(LogLevel level) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_threshold = level;
}

int RecordingLogger::AskedAbout(LogLevel level) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<int>(std::count(m_asked.begin(), m_asked.end(), level));
}

template <typename Wanted>
std::vector<LogLine> RecordingLogger::Select(Wanted wanted) const {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<LogLine> selected;
  std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(selected), wanted);
  return selected;
}

namespace {

std::vector<std::string> TextsIn(const std::vector<LogLine>& lines) {
  const UnwatchedAllocations unwatched;
  std::vector<std::string> texts;
  for (const LogLine& line : lines) {
    texts.push_back(line.text);
  }
  return texts;
}

}  // namespace

std::vector<LogLine> RecordingLogger::Lines() const {
  return Select([](const LogLine&) { return true; });
}

std::vector<LogLine> RecordingLogger::LinesOf(LogLevel level) const {
  return Select([&](const LogLine& line) { return line.level == level; });
}

std::vector<LogLine> RecordingLogger::LinesFrom(const std::string& function) const {
  return Select([&](const LogLine& line) { return line.function == function; });
}

std::vector<std::string> RecordingLogger::Texts() const { return TextsIn(Lines()); }

std::vector<std::string> RecordingLogger::TextsOf(LogLevel level) const {
  return TextsIn(LinesOf(level));
}

int RecordingLogger::Count(LogLevel level) const { return static_cast<int>(LinesOf(level).size()); }

int RecordingLogger::Count(LogLevel level, const std::string& text) const {
  const std::vector<LogLine> found =
      Select([&](const LogLine& line) { return line.level == level && line.text == text; });
  return static_cast<int>(found.size());
}

bool RecordingLogger::Find(LogLevel level, const std::string& text, LogLine* found) const {
  for (const LogLine& line : LinesOf(level)) {
    if (line.text == text) {
      if (found != nullptr) {
        *found = line;
      }
      return true;
    }
  }
  return false;
}

void RecordingLogger::Clear() {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
  m_asked.clear();
}

}  // namespace OstrandFakes
