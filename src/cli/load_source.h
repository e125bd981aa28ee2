// The records of a file, with the lines where they stand.
//
// Ownership: the file. Threads: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/line_reader.h"
#include "cli/record_parser.h"

namespace OstrandCli {

enum class LoadFormat {
  kByContent,  // JSON lines when the first byte is a brace
  kTabSeparated,
  kJsonLines,
};

struct SourceRecord {
  uint64_t line = 0;
  uint64_t offset = 0;  // of the line
  ParsedRecord record;
  std::string reason;  // of a malformed one
};

class LoadSource {
 public:
  enum class Result { kRecord, kMalformed, kEnd, kFailed };

  // Reads the header, if the format has one. False: Error says why.
  bool Open(const std::string& path, LoadFormat format, const std::vector<FieldName>& key_fields);

  // The next record; empty lines are passed over. A malformed one has line, offset and reason.
  Result Next(SourceRecord& record);

  // Whether one can go to a place in it.
  bool IsOrdinary() const { return m_lines.IsOrdinary(); }
  bool GoTo(uint64_t line, uint64_t offset);
  bool ChecksumBefore(uint64_t offset, uint32_t& checksum);
  // Of the line that Next reads next.
  uint64_t NextLine() const { return m_has_line ? 1 : m_lines.NextLine(); }
  uint64_t NextOffset() const { return m_has_line ? 0 : m_lines.NextOffset(); }
  // Lines that are left; 0 when it is no ordinary file.
  uint64_t CountLines();

  // A sentence that names the file.
  const std::string& Error() const { return m_error; }

 private:
  bool Fail(const std::string& error);
  bool ReadFirstLine(std::string& line);

  LineReader m_lines;
  std::unique_ptr<RecordParser> m_parser;
  std::string m_line;
  bool m_has_line = false;  // m_line is the first record, read to tell the format
  std::string m_path;
  std::string m_error;
};

}  // namespace OstrandCli
