#include "cli/json_line.h"

#include <algorithm>
#include <cstdint>

#include "cli/output.h"
#include "protocol/field_value.h"

namespace OstrandCli {
namespace {

constexpr char kStringEscapes[] = "\"\"\\\\//b\bf\fn\nr\rt\t";  // pairs

void AppendUtf8(std::string& text, uint32_t character) {
  const auto add = [&text](uint32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) {
    add(character);
  } else if (character < 0x800) {
    add(0xC0 | character >> 6);
    add(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    add(0xE0 | character >> 12);
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  } else {
    add(0xF0 | character >> 18);
    add(0x80 | (character >> 12 & 0x3F));
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  }
}

// Recursion-free descent; each Read answers false when what is here is not it, with the first
// failure kept in `error`.
class Parser {
 public:
  explicit Parser(std::string_view text) : m_text(text) {}

  bool ReadObject(std::vector<JsonField>& fields);
  bool ReadEnd();
  const std::string& Error() const { return m_error; }

 private:
  bool Fail(const std::string& what);
  void SkipBlanks();
  bool Take(char character);
  bool Expect(char character);
  bool TakeWord(std::string_view word);
  bool ReadMember(JsonField& field);
  bool ReadValue(JsonField& field);
  bool ReadBytes(std::string& bytes);
  bool ReadString(std::string& text);
  bool ReadEscape(std::string& text);
  bool ReadUnicode(std::string& text);
  bool ReadFourDigits(uint32_t& number);
  bool ReadNumber(std::string& text);
  size_t CountDigits();

  const std::string_view m_text;
  size_t m_at = 0;
  std::string m_error;
};

bool Parser::Fail(const std::string& what) {
  if (m_error.empty()) {
    m_error = "column " + std::to_string(m_at + 1) + ": " + what;
  }
  return false;
}

void Parser::SkipBlanks() {
  m_at = std::min(m_text.find_first_not_of(" \t\r\n", m_at), m_text.size());
}

bool Parser::Take(char character) {
  if (m_at < m_text.size() && m_text[m_at] == character) {
    ++m_at;
    return true;
  }
  return false;
}

bool Parser::Expect(char character) {
  SkipBlanks();
  return Take(character) || Fail(std::string("there should be a ") + character);
}

bool Parser::TakeWord(std::string_view word) {
  if (m_text.compare(m_at, word.size(), word) != 0) {
    return false;
  }
  m_at += word.size();
  return true;
}

bool Parser::ReadObject(std::vector<JsonField>& fields) {
  if (!Expect('{')) {
    return false;
  }
  SkipBlanks();
  if (Take('}')) {
    return true;
  }
  do {
    JsonField field;
    if (!ReadMember(field)) {
      return false;
    }
    const auto is_same = [&field](const JsonField& other) { return other.name == field.name; };
    if (std::any_of(fields.begin(), fields.end(), is_same)) {
      return Fail("the field " + JsonString(field.name) + " is there twice");
    }
    fields.push_back(std::move(field));
    SkipBlanks();
  } while (Take(','));
  return Take('}') || Fail("there should be a , or a }");
}

bool Parser::ReadEnd() {
  SkipBlanks();
  return m_at == m_text.size() || Fail("there is something behind the object");
}

bool Parser::ReadMember(JsonField& field) {
  SkipBlanks();
  if (!ReadString(field.name) || !Expect(':')) {
    return false;
  }
  SkipBlanks();
  return ReadValue(field);
}

bool Parser::ReadValue(JsonField& field) {
  const char first = m_at < m_text.size() ? m_text[m_at] : '\0';
  field.kind = JsonField::Kind::kScalar;
  if (first == '"') {
    field.kind = JsonField::Kind::kText;
    return ReadString(field.text);
  }
  if (first == '{') {
    field.kind = JsonField::Kind::kBytes;
    return ReadBytes(field.text);
  }
  if (first == '[') {
    return Fail("a field cannot be a list");
  }
  for (const std::string_view word : {"true", "false", "null"}) {
    if (TakeWord(word)) {
      field.kind = word == "null" ? JsonField::Kind::kNull : JsonField::Kind::kScalar;
      field.text = word == "null" ? "" : word;
      return true;
    }
  }
  return ReadNumber(field.text);
}

bool Parser::ReadBytes(std::string& bytes) {
  std::string name;
  std::string digits;
  const size_t begin = m_at;
  const bool is_read = Expect('{') && (SkipBlanks(), ReadString(name)) && Expect(':') &&
                       (SkipBlanks(), ReadString(digits)) && Expect('}');
  if (!is_read || name != "hex" || !ostrand_protocol_cs::ParseHex(digits, bytes)) {
    m_at = begin;
    m_error.clear();
    return Fail("an object here must be {\"hex\":\"...\"}, with two digits a byte");
  }
  return true;
}

bool Parser::ReadString(std::string& text) {
  if (!Take('"')) {
    return Fail("there should be a string");
  }
  const size_t begin = m_at;
  text.clear();
  while (m_at < m_text.size() && m_text[m_at] != '"') {
    const char character = m_text[m_at];
    if (static_cast<unsigned char>(character) < 0x20) {
      return Fail("a control character in a string must be written as \\u00xx");
    }
    ++m_at;
    if (character != '\\') {
      text += character;
    } else if (!ReadEscape(text)) {
      return false;
    }
  }
  if (!Take('"')) {
    return Fail("the string has no end");
  }
  if (!IsUtf8(text)) {
    m_at = begin;
    return Fail("the string is not UTF-8; write bytes as {\"hex\":\"...\"}");
  }
  return true;
}

bool Parser::ReadEscape(std::string& text) {
  if (Take('u')) {
    return ReadUnicode(text);
  }
  for (const char* pair = kStringEscapes; *pair != '\0'; pair += 2) {
    if (Take(pair[0])) {
      text += pair[1];
      return true;
    }
  }
  return Fail("unknown escape");
}

bool Parser::ReadUnicode(std::string& text) {
  uint32_t character = 0;
  if (!ReadFourDigits(character)) {
    return false;
  }
  if (character >= 0xD800 && character <= 0xDBFF) {
    uint32_t low = 0;
    if (!TakeWord("\\u") || !ReadFourDigits(low) || low < 0xDC00 || low > 0xDFFF) {
      return Fail("half a surrogate pair");
    }
    character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
  } else if (character >= 0xDC00 && character <= 0xDFFF) {
    return Fail("half a surrogate pair");
  }
  AppendUtf8(text, character);
  return true;
}

bool Parser::ReadFourDigits(uint32_t& number) {
  std::string bytes;
  if (!ostrand_protocol_cs::ParseHex(m_text.substr(m_at, 4), bytes) || bytes.size() != 2) {
    return Fail("four hexadecimal digits should follow \\u");
  }
  m_at += 4;
  number = static_cast<uint32_t>(static_cast<unsigned char>(bytes[0])) << 8 |
           static_cast<unsigned char>(bytes[1]);
  return true;
}

size_t Parser::CountDigits() {
  const size_t begin = m_at;
  while (m_at < m_text.size() && m_text[m_at] >= '0' && m_text[m_at] <= '9') {
    ++m_at;
  }
  return m_at - begin;
}

bool Parser::ReadNumber(std::string& text) {
  const size_t begin = m_at;
  Take('-');
  const bool is_whole_good = Take('0') || CountDigits() > 0;
  const bool is_fraction_good = !Take('.') || CountDigits() > 0;
  bool is_exponent_good = true;
  if (Take('e') || Take('E')) {
    Take('+') || Take('-');
    is_exponent_good = CountDigits() > 0;
  }
  if (!is_whole_good || !is_fraction_good || !is_exponent_good) {
    m_at = begin;
    return Fail("there should be a value");
  }
  text = std::string(m_text.substr(begin, m_at - begin));
  return true;
}

}  // namespace

bool ParseJsonLine(std::string_view line, std::vector<JsonField>& fields, std::string& error) {
  fields.clear();
  Parser parser(line);
  if (parser.ReadObject(fields) && parser.ReadEnd()) {
    return true;
  }
  error = parser.Error();
  return false;
}

}  // namespace OstrandCli
