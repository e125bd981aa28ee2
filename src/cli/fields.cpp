#include "cli/fields.h"

#include "cli/output.h"
#include "protocol/field_value.h"

namespace OstrandCli {

using ostrand_protocol_cs::FindFieldType;
using ostrand_protocol_cs::HexText;
using ostrand_protocol_cs::NumberText;
using ostrand_protocol_cs::ParseValue;

namespace {

constexpr size_t kToldBytes = 80;  // of a value that is refused

std::string EscapedText(std::string_view bytes) {
  const bool is_utf8 = IsUtf8(bytes);
  std::string text;
  for (const char byte : bytes) {
    const auto number = static_cast<unsigned char>(byte);
    switch (byte) {
      case '\\': text += "\\\\"; break;
      case '\n': text += "\\n"; break;
      case '\r': text += "\\r"; break;
      case '\t': text += "\\t"; break;
      default:
        if (number < 0x20U || number == 0x7FU || (number >= 0x80U && !is_utf8)) {
          text += "\\x" + HexText({&byte, 1});
        } else {
          text += byte;
        }
    }
  }
  return text;
}

}  // namespace

bool ParseFieldName(std::string_view text, FieldName& field, std::string& error) {
  const size_t colon = text.find(':');
  field.name = std::string(text.substr(0, colon));
  field.type = VexFieldType::kString;
  if (field.name.empty() || field.name.size() > kVexNameBytesMax) {
    error = "\"" + field.name + "\" is no field name: it has 1 to 31 characters";
    return false;
  }
  if (colon != std::string_view::npos && !FindFieldType(text.substr(colon + 1), field.type)) {
    error = "\"" + std::string(text.substr(colon + 1)) +
            "\" is no type: take string, blob, int8 to int64, uint8 to uint64, float or double";
    return false;
  }
  return true;
}

bool ParseFieldValue(VexFieldType type, std::string_view text, std::string& bytes,
                     std::string& error) {
  if (ParseValue(type, text, bytes)) {
    return true;
  }
  error = "\"" + EscapedText(text.substr(0, kToldBytes)) + "\" is no " + vex_type_info(type)->name;
  return false;
}

bool ParseField(std::string_view text, Field& field, std::string& error) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    error = "\"" + EscapedText(text) + "\" has no \"=\": write a field as name=value";
    return false;
  }
  FieldName name;
  if (!ParseFieldName(text.substr(0, equals), name, error) ||
      !ParseFieldValue(name.type, text.substr(equals + 1), field.value, error)) {
    return false;
  }
  field.name = name.name;
  field.type = name.type;
  return true;
}

std::string FieldValueText(VexFieldType type, std::string_view bytes) {
  std::string text;
  if (NumberText(type, bytes, text)) {
    return text;
  }
  return type == VexFieldType::kBlob ? HexText(bytes) : EscapedText(bytes);
}

std::string FieldValueJson(VexFieldType type, std::string_view bytes) {
  std::string text;
  if (NumberText(type, bytes, text)) {
    const bool is_finite = text.find_first_of("nN") == std::string::npos;
    return is_finite ? text : JsonString(text);
  }
  return type == VexFieldType::kBlob ? JsonString(HexText(bytes)) : JsonBytes(bytes);
}

}  // namespace OstrandCli
