#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cli/output.h"

namespace OstrandCli {
namespace {

// Whether the path is, or would be, an ordinary file.
bool IsOrdinary(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

bool WriteWhole(const std::string& path, std::string_view text, std::string& error) {
  OutputFile file;
  if (file.Open(path) && file.Write(text) && file.Close()) {
    return true;
  }
  error = file.Error();
  return false;
}

}  // namespace

OutputFile::~OutputFile() {
  if (m_file != nullptr) {
    std::fclose(m_file);
  }
}

bool OutputFile::Open(const std::string& path, const char* mode) {
  m_path = path;
  m_file = std::fopen(path.c_str(), (std::string(mode) + "e").c_str());
  return m_file != nullptr || Fail(errno);
}

bool OutputFile::Write(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), m_file) == text.size() || Fail(errno);
}

bool OutputFile::Flush() { return std::fflush(m_file) == 0 || Fail(errno); }

bool OutputFile::Close() {
  std::FILE* const file = m_file;
  m_file = nullptr;
  return std::fclose(file) == 0 || Fail(errno);
}

bool OutputFile::Fail(int error_number) {
  m_error = FileError("cannot write " + m_path, error_number);
  return false;
}

bool WriteFile(const std::string& path, std::string_view text, std::string& error) {
  if (!IsOrdinary(path)) {
    return WriteWhole(path, text, error);
  }
  const std::string temporary = path + ".new";
  if (!WriteWhole(temporary, text, error)) {
    unlink(temporary.c_str());
    return false;
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    error = FileError("cannot write " + path, errno);
    unlink(temporary.c_str());
    return false;
  }
  return true;
}

bool ReadFile(const std::string& path, size_t max_bytes, std::string& text, std::string& error) {
  std::FILE* const file = std::fopen(path.c_str(), "re");
  if (file == nullptr) {
    error = FileError("cannot read " + path, errno);
    return false;
  }
  text.clear();
  char buffer[65536];
  size_t got = 0;
  while (text.size() <= max_bytes && (got = std::fread(buffer, 1, sizeof(buffer), file)) > 0) {
    text.append(buffer, got);
  }
  const bool has_failed = std::ferror(file) != 0;
  const int error_number = errno;
  std::fclose(file);
  if (has_failed) {
    error = FileError("cannot read " + path, error_number);
  } else if (text.size() > max_bytes) {
    error = "cannot read " + path + ": it is larger than " + WithCommas(max_bytes) + " bytes";
  }
  return !has_failed && text.size() <= max_bytes;
}

}  // namespace OstrandCli
