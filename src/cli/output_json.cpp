#include <cmath>

#include "cli/output.h"

namespace OstrandCli {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD
constexpr char kHexDigits[] = "0123456789abcdef";

unsigned ByteAt(std::string_view text, size_t at) { return static_cast<unsigned char>(text[at]); }

// The sequence that begins here: its length, the bits of its first byte, and the least character
// that needs so many bytes. Length 0: none begins with this byte.
struct Sequence {
  size_t length;
  unsigned bits;
  unsigned least;
};

Sequence SequenceOf(unsigned byte) {
  if (byte < 0x80U) {
    return {1, byte, 0};
  }
  if ((byte & 0xE0U) == 0xC0U) {
    return {2, byte & 0x1FU, 0x80U};
  }
  if ((byte & 0xF0U) == 0xE0U) {
    return {3, byte & 0x0FU, 0x800U};
  }
  if ((byte & 0xF8U) == 0xF0U) {
    return {4, byte & 0x07U, 0x10000U};
  }
  return {0, 0, 0};
}

// Bytes of the character that begins at `at`; 0 when none does.
size_t CharacterLength(std::string_view text, size_t at) {
  const Sequence sequence = SequenceOf(ByteAt(text, at));
  if (sequence.length == 0 || at + sequence.length > text.size()) {
    return 0;
  }
  unsigned character = sequence.bits;
  for (size_t i = 1; i < sequence.length; ++i) {
    const unsigned byte = ByteAt(text, at + i);
    if ((byte & 0xC0U) != 0x80U) {
      return 0;
    }
    character = character << 6U | (byte & 0x3FU);
  }
  const bool is_surrogate = character >= 0xD800U && character <= 0xDFFFU;
  return character >= sequence.least && character <= 0x10FFFFU && !is_surrogate ? sequence.length
                                                                                : 0;
}

std::string Escaped(unsigned byte) {
  switch (byte) {
    case '"': return "\\\"";
    case '\\': return "\\\\";
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: return std::string("\\u00") + kHexDigits[byte >> 4U] + kHexDigits[byte & 15U];
  }
}

bool NeedsEscape(unsigned byte) {
  return byte < 0x20U || byte == 0x7FU || byte == '"' || byte == '\\';
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = CharacterLength(text, at);
    if (length == 0) {
      return false;
    }
    at += length;
  }
  return true;
}

std::string JsonString(std::string_view text) {
  std::string json = "\"";
  for (size_t at = 0; at < text.size();) {
    const size_t length = CharacterLength(text, at);
    if (length == 0) {
      json += kReplacement;
    } else if (length == 1 && NeedsEscape(ByteAt(text, at))) {
      json += Escaped(ByteAt(text, at));
    } else {
      json += text.substr(at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return json + "\"";
}

std::string JsonBytes(std::string_view bytes) {
  if (IsUtf8(bytes)) {
    return JsonString(bytes);
  }
  std::string hex;
  for (size_t i = 0; i < bytes.size(); ++i) {
    hex += kHexDigits[ByteAt(bytes, i) >> 4U];
    hex += kHexDigits[ByteAt(bytes, i) & 15U];
  }
  return "{\"hex\":\"" + hex + "\"}";
}

JsonWriter& JsonWriter::Add(std::string_view text) {
  if (m_needs_comma) {
    m_text += ',';
  }
  m_text += text;
  m_needs_comma = true;
  return *this;
}

JsonWriter& JsonWriter::BeginObject() {
  Add("{");
  m_needs_comma = false;
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  m_needs_comma = false;
  return Add("}");
}

JsonWriter& JsonWriter::BeginArray() {
  Add("[");
  m_needs_comma = false;
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  m_needs_comma = false;
  return Add("]");
}

JsonWriter& JsonWriter::Key(std::string_view name) {
  Add(JsonString(name) + ":");
  m_needs_comma = false;
  return *this;
}

JsonWriter& JsonWriter::String(std::string_view text) { return Add(JsonString(text)); }
JsonWriter& JsonWriter::Bytes(std::string_view bytes) { return Add(JsonBytes(bytes)); }
JsonWriter& JsonWriter::Integer(int64_t number) { return Add(std::to_string(number)); }
JsonWriter& JsonWriter::Unsigned(uint64_t number) { return Add(std::to_string(number)); }
JsonWriter& JsonWriter::Bool(bool value) { return Add(value ? "true" : "false"); }
JsonWriter& JsonWriter::Null() { return Add("null"); }
JsonWriter& JsonWriter::Raw(std::string_view json) { return Add(json); }

JsonWriter& JsonWriter::Real(double number, int decimals) {
  if (!std::isfinite(number)) {
    return Null();
  }
  std::string text = FormatReal(number, decimals);
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
  }
  if (text.back() == '.') {
    text.pop_back();
  }
  return Add(text);
}

}  // namespace OstrandCli
