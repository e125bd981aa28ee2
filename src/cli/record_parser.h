// Lines of a file as records.
//
// Tab-separated: a first line with the names of the fields, then a line a record, its values as
// they stand. JSON lines: an object a line (json_line.h); a field that is null is left out. Names
// may carry a type (fields.h). Which fields make up the key the user says.
// Threads: one at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/fields.h"
#include "cli/json_line.h"

namespace OstrandCli {

enum class RecordFormat { kTabSeparated, kJsonLines };

struct ParsedRecord {
  std::vector<Field> keys;  // in the order of the user's key fields
  std::vector<Field> values;
};

class RecordParser {
 public:
  // key_fields: at least one; a type there holds where the file names none.
  RecordParser(RecordFormat format, std::vector<FieldName> key_fields);

  bool NeedsHeader() const { return m_format == RecordFormat::kTabSeparated; }
  // False: `error` says, without the line's number, why the whole file cannot be read.
  bool ParseHeader(std::string_view line, std::string& error);
  // False: `error` says, without the line's number, what is wrong with this record.
  bool Parse(std::string_view line, ParsedRecord& record, std::string& error);

 private:
  bool ParseTabs(std::string_view line, ParsedRecord& record, std::string& error);
  bool ParseJson(std::string_view line, ParsedRecord& record, std::string& error);
  size_t KeyIndex(std::string_view name) const;
  VexFieldType TypeOf(const FieldName& name) const;
  bool Add(const FieldName& name, std::string_view text, ParsedRecord& record, std::string& error);
  bool CheckKeys(const ParsedRecord& record, std::string& error) const;

  const RecordFormat m_format;
  const std::vector<FieldName> m_key_fields;
  std::vector<FieldName> m_columns;
  std::vector<JsonField> m_json;
};

}  // namespace OstrandCli
