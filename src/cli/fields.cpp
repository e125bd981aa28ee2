#include "cli/fields.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "cli/output.h"

namespace OstrandCli {
namespace {

constexpr uint8_t kFirstType = static_cast<uint8_t>(VexFieldType::kInt8);
constexpr uint8_t kLastType = static_cast<uint8_t>(VexFieldType::kBlob);
constexpr char kHexDigits[] = "0123456789abcdef";

bool FindType(std::string_view name, VexFieldType& type) {
  for (uint8_t number = kFirstType; number <= kLastType; ++number) {
    const VexTypeInfo* const info = vex_type_info(static_cast<VexFieldType>(number));
    if (info != nullptr && info->name == name) {
      type = info->type;
      return true;
    }
  }
  return false;
}

bool IsSigned(VexFieldType type) { return type <= VexFieldType::kInt64; }
bool IsInteger(VexFieldType type) { return type <= VexFieldType::kUint64; }
bool IsNumber(VexFieldType type) { return type <= VexFieldType::kDouble; }

std::string BigEndian(uint64_t number, uint32_t width) {
  std::string bytes;
  for (uint32_t i = width; i-- > 0;) {
    bytes += static_cast<char>(number >> (8 * i) & 0xFFU);
  }
  return bytes;
}

uint64_t FromBigEndian(std::string_view bytes) {
  uint64_t number = 0;
  for (const char byte : bytes) {
    number = number << 8U | static_cast<unsigned char>(byte);
  }
  return number;
}

template <typename Number>
bool ParseWhole(std::string_view text, Number& number) {
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  return code == std::errc() && end == text.data() + text.size();
}

bool ParseInteger(VexFieldType type, uint32_t width, std::string_view text, std::string& bytes) {
  const uint32_t bits = 8 * width;
  if (IsSigned(type)) {
    int64_t number = 0;
    const int64_t max = INT64_MAX >> (64 - bits);
    if (!ParseWhole(text, number) || number > max || number < -max - 1) {
      return false;
    }
    bytes = BigEndian(static_cast<uint64_t>(number), width);
    return true;
  }
  uint64_t number = 0;
  if (!ParseWhole(text, number) || number > UINT64_MAX >> (64 - bits)) {
    return false;
  }
  bytes = BigEndian(number, width);
  return true;
}

template <typename Real, typename Bits>
bool ParseReal(std::string_view text, std::string& bytes) {
  Real number = 0;
  if (!ParseWhole(text, number)) {
    return false;
  }
  Bits bits = 0;
  std::memcpy(&bits, &number, sizeof(bits));
  bytes = BigEndian(bits, sizeof(bits));
  return true;
}

template <typename Real, typename Bits>
std::string RealText(std::string_view bytes) {
  const Bits bits = static_cast<Bits>(FromBigEndian(bytes));
  Real number = 0;
  std::memcpy(&number, &bits, sizeof(number));
  char text[64] = {};
  std::to_chars(text, text + sizeof(text), number);
  return text;
}

// Of a number whose bytes have the type's width.
std::string NumberText(VexFieldType type, std::string_view bytes) {
  if (type == VexFieldType::kFloat) {
    return RealText<float, uint32_t>(bytes);
  }
  if (type == VexFieldType::kDouble) {
    return RealText<double, uint64_t>(bytes);
  }
  const uint64_t number = FromBigEndian(bytes);
  if (!IsSigned(type)) {
    return std::to_string(number);
  }
  const auto shift = static_cast<uint32_t>(64 - 8 * bytes.size());
  return std::to_string(static_cast<int64_t>(number << shift) >> shift);
}

bool IsNumberOfWidth(VexFieldType type, std::string_view bytes) {
  return IsNumber(type) && vex_type_info(type)->width == bytes.size();
}

std::string Hex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += kHexDigits[static_cast<unsigned char>(byte) >> 4U];
    text += kHexDigits[static_cast<unsigned char>(byte) & 15U];
  }
  return text;
}

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
          text += "\\x" + Hex({&byte, 1});
        } else {
          text += byte;
        }
    }
  }
  return text;
}

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

bool ParseHex(std::string_view text, std::string& bytes) {
  bytes.clear();
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = HexDigit(text[i]);
    const int low = HexDigit(text[i + 1]);
    if (high < 0 || low < 0) {
      return false;
    }
    bytes += static_cast<char>(high << 4 | low);
  }
  return text.size() % 2 == 0;
}

bool ParseFieldName(std::string_view text, FieldName& field, std::string& error) {
  const size_t colon = text.find(':');
  field.name = std::string(text.substr(0, colon));
  field.type = VexFieldType::kString;
  if (field.name.empty() || field.name.size() > kVexNameBytesMax) {
    error = "\"" + field.name + "\" is no field name: it has 1 to 31 characters";
    return false;
  }
  if (colon != std::string_view::npos && !FindType(text.substr(colon + 1), field.type)) {
    error = "\"" + std::string(text.substr(colon + 1)) +
            "\" is no type: take string, blob, int8 to int64, uint8 to uint64, float or double";
    return false;
  }
  return true;
}

bool ParseFieldValue(VexFieldType type, std::string_view text, std::string& bytes,
                     std::string& error) {
  const VexTypeInfo& info = *vex_type_info(type);
  bool is_good = true;
  if (IsInteger(type)) {
    is_good = ParseInteger(type, info.width, text, bytes);
  } else if (type == VexFieldType::kFloat) {
    is_good = ParseReal<float, uint32_t>(text, bytes);
  } else if (type == VexFieldType::kDouble) {
    is_good = ParseReal<double, uint64_t>(text, bytes);
  } else if (type == VexFieldType::kBlob) {
    is_good = ParseHex(text, bytes);
  } else {
    bytes = std::string(text);
  }
  if (!is_good) {
    error = "\"" + EscapedText(text.substr(0, 80)) + "\" is no " + info.name;
  }
  return is_good;
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
  if (IsNumberOfWidth(type, bytes)) {
    return NumberText(type, bytes);
  }
  return type == VexFieldType::kBlob ? Hex(bytes) : EscapedText(bytes);
}

std::string FieldValueJson(VexFieldType type, std::string_view bytes) {
  if (IsNumberOfWidth(type, bytes)) {
    const std::string text = NumberText(type, bytes);
    const bool is_finite = text.find_first_of("nN") == std::string::npos;
    return is_finite ? text : JsonString(text);
  }
  return type == VexFieldType::kBlob ? JsonString(Hex(bytes)) : JsonBytes(bytes);
}

}  // namespace OstrandCli
