#include "cli/record_parser.h"

#include <algorithm>
#include <utility>

namespace OstrandCli {
namespace {

std::vector<std::string_view> SplitTabs(std::string_view line) {
  std::vector<std::string_view> cells;
  size_t begin = 0;
  for (size_t tab = line.find('\t'); tab != std::string_view::npos; tab = line.find('\t', begin)) {
    cells.push_back(line.substr(begin, tab - begin));
    begin = tab + 1;
  }
  cells.push_back(line.substr(begin));
  return cells;
}

bool HasName(const std::vector<FieldName>& fields, std::string_view name) {
  return std::any_of(fields.begin(), fields.end(),
                     [name](const FieldName& field) { return field.name == name; });
}

}  // namespace

RecordParser::RecordParser(RecordFormat format, std::vector<FieldName> key_fields)
    : m_format(format), m_key_fields(std::move(key_fields)) {}

bool RecordParser::ParseHeader(std::string_view line, std::string& error) {
  m_columns.clear();
  for (const std::string_view cell : SplitTabs(line)) {
    FieldName column;
    if (!ParseFieldName(cell, column, error)) {
      return false;
    }
    if (HasName(m_columns, column.name)) {
      error = "the header names \"" + column.name + "\" twice";
      return false;
    }
    m_columns.push_back(column);
  }
  for (const FieldName& key : m_key_fields) {
    if (!HasName(m_columns, key.name)) {
      error = "the header has no field \"" + key.name + "\", which --key names";
      return false;
    }
  }
  return true;
}

bool RecordParser::Parse(std::string_view line, ParsedRecord& record, std::string& error) {
  record.keys.assign(m_key_fields.size(), Field());
  record.values.clear();
  const bool is_parsed = m_format == RecordFormat::kTabSeparated ? ParseTabs(line, record, error)
                                                                 : ParseJson(line, record, error);
  return is_parsed && CheckKeys(record, error);
}

bool RecordParser::ParseTabs(std::string_view line, ParsedRecord& record, std::string& error) {
  const std::vector<std::string_view> cells = SplitTabs(line);
  if (cells.size() != m_columns.size()) {
    error = "the line has " + std::to_string(cells.size()) + " fields, the header " +
            std::to_string(m_columns.size());
    return false;
  }
  for (size_t i = 0; i < cells.size(); ++i) {
    if (!Add(m_columns[i], cells[i], record, error)) {
      return false;
    }
  }
  return true;
}

bool RecordParser::ParseJson(std::string_view line, ParsedRecord& record, std::string& error) {
  if (!ParseJsonLine(line, m_json, error)) {
    return false;
  }
  for (const JsonField& field : m_json) {
    FieldName name;
    if (!ParseFieldName(field.name, name, error)) {
      return false;
    }
    if (field.kind == JsonField::Kind::kNull) {
      continue;
    }
    if (field.kind == JsonField::Kind::kBytes) {
      name.type = VexFieldType::kString;  // the bytes as they stand
    }
    if (!Add(name, field.text, record, error)) {
      return false;
    }
  }
  return true;
}

// m_key_fields.size() for what is no key field.
size_t RecordParser::KeyIndex(std::string_view name) const {
  const auto found = std::find_if(m_key_fields.begin(), m_key_fields.end(),
                                  [name](const FieldName& key) { return key.name == name; });
  return static_cast<size_t>(found - m_key_fields.begin());
}

VexFieldType RecordParser::TypeOf(const FieldName& name) const {
  const size_t key = KeyIndex(name.name);
  const bool is_open = name.type == VexFieldType::kString && key < m_key_fields.size();
  return is_open ? m_key_fields[key].type : name.type;
}

bool RecordParser::Add(const FieldName& name, std::string_view text, ParsedRecord& record,
                       std::string& error) {
  Field field;
  field.name = name.name;
  field.type = TypeOf(name);
  if (!ParseFieldValue(field.type, text, field.value, error)) {
    error = "field \"" + name.name + "\": " + error;
    return false;
  }
  const size_t key = KeyIndex(name.name);
  if (key < m_key_fields.size()) {
    record.keys[key] = std::move(field);
  } else {
    record.values.push_back(std::move(field));
  }
  return true;
}

bool RecordParser::CheckKeys(const ParsedRecord& record, std::string& error) const {
  for (size_t i = 0; i < m_key_fields.size(); ++i) {
    if (record.keys[i].value.empty()) {
      error = "the key field \"" + m_key_fields[i].name + "\" is missing or empty";
      return false;
    }
  }
  return true;
}

}  // namespace OstrandCli
