#include "cli/load_errors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <charconv>

namespace OstrandCli {
namespace {

constexpr char kHeader[] = "line\tcode\treason\n";
constexpr size_t kMaxFileSize = size_t{1} << 30;

std::string RowOf(const LoadError& error) {
  std::string reason = error.reason;
  for (char& character : reason) {
    character = character == '\t' || character == '\n' || character == '\r' ? ' ' : character;
  }
  return std::to_string(error.line) + "\t" + error.code + "\t" + reason + "\n";
}

bool ParseRow(std::string_view row, LoadError& error) {
  const size_t first = row.find('\t');
  const size_t second = first != std::string_view::npos ? row.find('\t', first + 1) : first;
  if (second == std::string_view::npos) {
    return false;
  }
  const auto [end, code] = std::from_chars(row.data(), row.data() + first, error.line);
  error.code = std::string(row.substr(first + 1, second - first - 1));
  error.reason = std::string(row.substr(second + 1));
  return code == std::errc() && end == row.data() + first;
}

bool IsOrdinaryFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool IsEmptyFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) != 0 || status.st_size == 0;
}

}  // namespace

bool LoadErrors::Open(const std::string& path, Mode mode) {
  m_path = path;
  m_mode = mode;
  if (mode == Mode::kNew && IsOrdinaryFile(path)) {
    unlink(path.c_str());
  }
  return mode != Mode::kRetry || ReadListed();
}

bool LoadErrors::ReadListed() {
  std::string text;
  if (!ReadFile(m_path, kMaxFileSize, text, m_error)) {
    return false;
  }
  size_t begin = 0;
  uint64_t number = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    const std::string_view row(text.data() + begin, end - begin);
    begin = end + 1;
    ++number;
    LoadError error;
    if (ParseRow(row, error)) {
      m_listed[error.line] = error;
    } else if (number > 1) {
      m_error = m_path + ":" + std::to_string(number) +
                ": not a line of a list of errors (line, code and reason, with tabs between)";
      return false;
    }
  }
  return true;
}

bool LoadErrors::Add(const LoadError& error) {
  if (m_mode == Mode::kRetry) {
    m_listed[error.line] = error;
    return true;
  }
  return m_mode == Mode::kNone || (OpenFile() && Check(m_file.Write(RowOf(error))));
}

bool LoadErrors::OpenFile() {
  if (m_file.IsOpen()) {
    return true;
  }
  const bool needs_header = IsEmptyFile(m_path);
  return Check(m_file.Open(m_path, "a") && (!needs_header || m_file.Write(kHeader)));
}

bool LoadErrors::Flush() { return !m_file.IsOpen() || Check(m_file.Flush()); }

bool LoadErrors::Close() {
  if (m_mode == Mode::kRetry) {
    return WriteListed();
  }
  return !m_file.IsOpen() || Check(m_file.Close());
}

bool LoadErrors::WriteListed() {
  if (m_listed.empty()) {
    unlink(m_path.c_str());
    return true;
  }
  std::string text = kHeader;
  for (const auto& [line, error] : m_listed) {
    text += RowOf(error);
  }
  return WriteFile(m_path, text, m_error);
}

bool LoadErrors::Check(bool is_good) {
  if (!is_good) {
    m_error = m_file.Error();
  }
  return is_good;
}

}  // namespace OstrandCli
