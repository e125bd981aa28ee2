#include "cli/line_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/output.h"
#include "common/crc.h"

namespace OstrandCli {
namespace {

constexpr size_t kBufferSize = size_t{256} << 10;
constexpr uint64_t kChecksummed = 4096;

// Reads at a place, whatever else reads the file; negative: errno says why.
ssize_t ReadAt(std::FILE* file, std::vector<char>& buffer, uint64_t offset, size_t size) {
  buffer.resize(size);
  return pread(fileno(file), buffer.data(), size, static_cast<off_t>(offset));
}

}  // namespace

LineReader::~LineReader() {
  if (m_file != nullptr && m_file != stdin) {
    std::fclose(m_file);
  }
}

bool LineReader::Open(const std::string& path) {
  m_path = path == "-" ? "standard input" : path;
  m_file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
  if (m_file == nullptr) {
    return Fail(errno);
  }
  struct stat status {};
  if (fstat(fileno(m_file), &status) != 0) {
    return Fail(errno);
  }
  if (S_ISDIR(status.st_mode)) {
    return Fail(EISDIR);
  }
  m_is_ordinary = S_ISREG(status.st_mode) && m_file != stdin;
  m_buffer.resize(kBufferSize);
  return true;
}

bool LineReader::Fill() {
  m_begin = 0;
  m_end = std::fread(m_buffer.data(), 1, m_buffer.size(), m_file);
  return m_end > 0;
}

LineReader::Result LineReader::Next(std::string& line) {
  line.clear();
  bool is_too_long = false;
  bool is_complete = false;
  const uint64_t begin = m_next_offset;
  while (!is_complete && (m_begin < m_end || Fill())) {
    const char* const from = m_buffer.data() + m_begin;
    const auto* const feed = static_cast<const char*>(std::memchr(from, '\n', m_end - m_begin));
    is_complete = feed != nullptr;
    const size_t size = is_complete ? static_cast<size_t>(feed - from) : m_end - m_begin;
    const size_t taken = std::min(size, kMaxLineLen - line.size());
    line.append(from, taken);
    is_too_long = is_too_long || taken < size;
    m_begin += size + (is_complete ? 1 : 0);
    m_next_offset += size + (is_complete ? 1 : 0);
  }
  if (std::ferror(m_file) != 0) {
    Fail(errno);
    return Result::kFailed;
  }
  if (m_next_offset == begin) {
    return Result::kEnd;
  }
  ++m_next_line;
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  return is_too_long ? Result::kTooLong : Result::kLine;
}

bool LineReader::Seek(uint64_t line, uint64_t offset) {
  if (fseeko(m_file, static_cast<off_t>(offset), SEEK_SET) != 0) {
    return Fail(errno);
  }
  m_begin = 0;
  m_end = 0;
  m_next_line = line;
  m_next_offset = offset;
  return true;
}

bool LineReader::ChecksumBefore(uint64_t offset, uint32_t& checksum) {
  const uint64_t size = std::min(offset, kChecksummed);
  std::vector<char> bytes;
  const ssize_t got = ReadAt(m_file, bytes, offset - size, static_cast<size_t>(size));
  if (got < 0) {
    return Fail(errno);
  }
  checksum = OstrandCommon::CRC(bytes.data(), static_cast<size_t>(got));
  return true;
}

uint64_t LineReader::CountLines() {
  std::vector<char> bytes;
  uint64_t lines = 0;
  uint64_t offset = m_next_offset;
  char last = '\n';
  ssize_t got = 0;
  while ((got = ReadAt(m_file, bytes, offset, kBufferSize)) > 0) {
    lines += static_cast<uint64_t>(std::count(bytes.begin(), bytes.begin() + got, '\n'));
    last = bytes[static_cast<size_t>(got) - 1];
    offset += static_cast<uint64_t>(got);
  }
  return lines + (last != '\n' ? 1 : 0);
}

bool LineReader::Fail(int error_number) {
  m_error = FileError("cannot read " + m_path, error_number);
  return false;
}

}  // namespace OstrandCli
