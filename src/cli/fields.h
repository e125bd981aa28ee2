// Fields of records as users write and read them.
//
// A field is named "name" or "name:TYPE". The types are those of a schema: string (when none is
// given: the bytes as they stand), blob (written as hexadecimal digits), int8 to int64, uint8 to
// uint64, float and double (decimal). protocol/field_value.h knows how their values are stored.
// Threads: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vex/vex_schema.h"

namespace OstrandCli {

struct FieldName {
  std::string name;
  VexFieldType type = VexFieldType::kString;
};

// A field with the bytes that the store keeps.
struct Field {
  std::string name;
  VexFieldType type = VexFieldType::kString;  // how it was written
  std::string value;
};

// All answer false, with a sentence in `error`, for what is not of their form.

// "name" or "name:TYPE".
bool ParseFieldName(std::string_view text, FieldName& field, std::string& error);
// The bytes of a value of this type.
bool ParseFieldValue(VexFieldType type, std::string_view text, std::string& bytes,
                     std::string& error);
// "name=text" or "name:TYPE=text".
bool ParseField(std::string_view text, Field& field, std::string& error);

// The bytes for the eye, in one line: as ParseFieldValue takes them, but in texts control
// characters, and bytes that are no UTF-8, as \n, \t, \r or \x00, and the backslash as \\.
std::string FieldValueText(VexFieldType type, std::string_view bytes);
// The same as JSON: a number, or as JsonBytes.
std::string FieldValueJson(VexFieldType type, std::string_view bytes);

}  // namespace OstrandCli
