#include "cli/load_source.h"

namespace OstrandCli {
namespace {

// At the beginning of the first line it is no part of it.
void StripByteOrderMark(std::string& line) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    line.erase(0, kByteOrderMark.size());
  }
}

}  // namespace

bool LoadSource::Fail(const std::string& error) {
  m_error = error;
  return false;
}

bool LoadSource::Open(const std::string& path, LoadFormat format,
                      const std::vector<FieldName>& key_fields) {
  m_path = path;
  if (!m_lines.Open(path)) {
    return Fail(m_lines.Error());
  }
  std::string line;
  if (!ReadFirstLine(line)) {
    return false;
  }
  if (format == LoadFormat::kByContent) {
    format = line.front() == '{' ? LoadFormat::kJsonLines : LoadFormat::kTabSeparated;
  }
  m_parser = std::make_unique<RecordParser>(
      format == LoadFormat::kJsonLines ? RecordFormat::kJsonLines : RecordFormat::kTabSeparated,
      key_fields);
  if (!m_parser->NeedsHeader()) {
    m_has_line = true;
    m_line = line;
    return true;
  }
  std::string reason;
  return m_parser->ParseHeader(line, reason) || Fail(path + ":1: " + reason);
}

bool LoadSource::ReadFirstLine(std::string& line) {
  switch (m_lines.Next(line)) {
    case LineReader::Result::kFailed: return Fail(m_lines.Error());
    case LineReader::Result::kTooLong: return Fail(m_path + ":1: the line is too long");
    case LineReader::Result::kEnd: return Fail(m_path + " is empty: there is nothing to load");
    case LineReader::Result::kLine: break;
  }
  StripByteOrderMark(line);
  return !line.empty() ||
         Fail(m_path + ":1: the first line is empty; it should name the fields, or be a record");
}

bool LoadSource::GoTo(uint64_t line, uint64_t offset) {
  m_has_line = false;
  return m_lines.Seek(line, offset) || Fail(m_lines.Error());
}

bool LoadSource::ChecksumBefore(uint64_t offset, uint32_t& checksum) {
  return m_lines.ChecksumBefore(offset, checksum) || Fail(m_lines.Error());
}

uint64_t LoadSource::CountLines() {
  return IsOrdinary() ? m_lines.CountLines() + (m_has_line ? 1 : 0) : 0;
}

LoadSource::Result LoadSource::Next(SourceRecord& record) {
  LineReader::Result read = LineReader::Result::kLine;
  do {
    record.line = NextLine();
    record.offset = NextOffset();
    read = m_has_line ? LineReader::Result::kLine : m_lines.Next(m_line);
    m_has_line = false;
  } while (read == LineReader::Result::kLine && m_line.empty());
  switch (read) {
    case LineReader::Result::kEnd: return Result::kEnd;
    case LineReader::Result::kFailed: m_error = m_lines.Error(); return Result::kFailed;
    case LineReader::Result::kTooLong:
      record.reason =
          "the line is longer than " + std::to_string(LineReader::kMaxLineLen) + " bytes";
      return Result::kMalformed;
    case LineReader::Result::kLine: break;
  }
  if (record.line == 1) {
    StripByteOrderMark(m_line);
  }
  return m_parser->Parse(m_line, record.record, record.reason) ? Result::kRecord
                                                               : Result::kMalformed;
}

}  // namespace OstrandCli
