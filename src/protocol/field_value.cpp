#include "protocol/field_value.h"

#include <charconv>

namespace ostrand_protocol_cs {
namespace {

constexpr uint8_t kFirstType = static_cast<uint8_t>(VexFieldType::kInt8);
constexpr uint8_t kLastType = static_cast<uint8_t>(VexFieldType::kBlob);
constexpr char kHexDigits[] = "0123456789abcdef";

// Calls use(value of the C++ type that a number type is); REQUIRES: a number type.
template <typename Use>
bool WithNumber(VexFieldType type, Use&& use) {
  switch (type) {
    case VexFieldType::kInt8: return use(int8_t{});
    case VexFieldType::kInt16: return use(int16_t{});
    case VexFieldType::kInt32: return use(int32_t{});
    case VexFieldType::kInt64: return use(int64_t{});
    case VexFieldType::kUint8: return use(uint8_t{});
    case VexFieldType::kUint16: return use(uint16_t{});
    case VexFieldType::kUint32: return use(uint32_t{});
    case VexFieldType::kUint64: return use(uint64_t{});
    case VexFieldType::kFloat: return use(float{});
    case VexFieldType::kDouble: return use(double{});
    case VexFieldType::kString:
    case VexFieldType::kBlob: break;
  }
  return false;
}

// Calls use(value of the C++ type that an integer type is); false for other types.
template <typename Use>
bool WithInteger(VexFieldType type, Use&& use) {
  return WithNumber(type, [&use](auto zero) {
    if constexpr (std::is_integral_v<decltype(zero)>) {
      return use(zero);
    } else {
      return false;
    }
  });
}

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

bool IsIntegerType(VexFieldType type) {
  return WithInteger(type, [](auto) { return true; });
}

bool IsNumberType(VexFieldType type) {
  return WithNumber(type, [](auto) { return true; });
}

bool FindFieldType(std::string_view name, VexFieldType& type) {
  for (uint8_t number = kFirstType; number <= kLastType; ++number) {
    const VexTypeInfo* const info = vex_type_info(static_cast<VexFieldType>(number));
    if (info != nullptr && info->name == name) {
      type = info->type;
      return true;
    }
  }
  return false;
}

bool ConvertInteger(VexFieldType from, std::string_view bytes, VexFieldType to, char* out) {
  return WithInteger(from, [&](auto number) {
    return LoadNumber(bytes, number) && WithInteger(to, [&](auto target) {
             using Target = decltype(target);
             if (!FitsInto<Target>(number)) {
               return false;
             }
             StoreNumber(out, static_cast<Target>(number));
             return true;
           });
  });
}

bool ParseValue(VexFieldType type, std::string_view text, std::string& bytes) {
  if (type == VexFieldType::kString) {
    bytes = std::string(text);
    return true;
  }
  if (type == VexFieldType::kBlob) {
    return ParseHex(text, bytes);
  }
  return WithNumber(type, [text, &bytes](auto number) {
    const char* const end = text.data() + text.size();
    const auto [rest, code] = std::from_chars(text.data(), end, number);
    if (code != std::errc() || rest != end) {
      return false;
    }
    bytes.resize(sizeof(number));
    StoreNumber(bytes.data(), number);
    return true;
  });
}

bool NumberText(VexFieldType type, std::string_view bytes, std::string& text) {
  return WithNumber(type, [bytes, &text](auto number) {
    if (!LoadNumber(bytes, number)) {
      return false;
    }
    char digits[64] = {};
    std::to_chars(digits, digits + sizeof(digits), number);
    text = digits;
    return true;
  });
}

std::string HexText(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += kHexDigits[static_cast<unsigned char>(byte) >> 4U];
    text += kHexDigits[static_cast<unsigned char>(byte) & 15U];
  }
  return text;
}

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

}  // namespace ostrand_protocol_cs
