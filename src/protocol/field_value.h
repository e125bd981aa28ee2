// Values of typed fields as bytes: the one place that knows how. docs/protocol.md describes them.
//
// Integers are big-endian, in two's complement where they have a sign; float and double the
// big-endian bytes of their IEEE 754 form; texts and blobs their bytes. Threads: no state.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/export.h"
#include "protocol/byte_order.h"
#include "vex/vex_schema.h"

namespace ostrand_protocol_cs {

// What a C++ number is stored as. bool and long double are stored as nothing.
template <typename Number>
constexpr VexFieldType FieldTypeOf() {
  static_assert(std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool> &&
                sizeof(Number) <= 8);
  if constexpr (std::is_floating_point_v<Number>) {
    return sizeof(Number) == 4 ? VexFieldType::kFloat : VexFieldType::kDouble;
  } else if constexpr (std::is_signed_v<Number>) {
    return sizeof(Number) == 1   ? VexFieldType::kInt8
           : sizeof(Number) == 2 ? VexFieldType::kInt16
           : sizeof(Number) == 4 ? VexFieldType::kInt32
                                 : VexFieldType::kInt64;
  } else {
    return sizeof(Number) == 1   ? VexFieldType::kUint8
           : sizeof(Number) == 2 ? VexFieldType::kUint16
           : sizeof(Number) == 4 ? VexFieldType::kUint32
                                 : VexFieldType::kUint64;
  }
}

// Whether a number is in the range of another type. Reals lose digits, but no magnitude.
template <typename To, typename From>
constexpr bool FitsInto(From value) {
  static_assert(std::is_floating_point_v<To> || std::is_integral_v<From>);
  if constexpr (std::is_integral_v<To>) {
    if constexpr (std::is_signed_v<From>) {
      if (value < 0) {
        return std::is_signed_v<To> &&
               static_cast<int64_t>(value) >= static_cast<int64_t>(std::numeric_limits<To>::min());
      }
    }
    return static_cast<uint64_t>(value) <= static_cast<uint64_t>(std::numeric_limits<To>::max());
  } else if constexpr (sizeof(To) < sizeof(From) && std::is_floating_point_v<From>) {
    return !std::isfinite(value) || std::fabs(value) <= static_cast<From>(FLT_MAX);
  } else {
    return true;
  }
}

// Writes sizeof(Number) bytes.
template <typename Number>
void StoreNumber(char* bytes, Number number) {
  if constexpr (std::is_floating_point_v<Number>) {
    std::conditional_t<sizeof(Number) == 4, uint32_t, uint64_t> bits = 0;
    static_assert(sizeof(bits) == sizeof(number));
    std::memcpy(&bits, &number, sizeof(bits));
    StoreBigEndian(bytes, bits);
  } else {
    StoreBigEndian(bytes, number);
  }
}

// Reads a number; false, and `number` unchanged, when the bytes are not sizeof(Number) many.
template <typename Number>
bool LoadNumber(std::string_view bytes, Number& number) {
  if (bytes.size() != sizeof(Number)) {
    return false;
  }
  if constexpr (std::is_floating_point_v<Number>) {
    using Bits = std::conditional_t<sizeof(Number) == 4, uint32_t, uint64_t>;
    const Bits bits = LoadBigEndian<Bits>(bytes.data());
    std::memcpy(&number, &bits, sizeof(number));
  } else {
    number = LoadBigEndian<Number>(bytes.data());
  }
  return true;
}

OSTRAND_API bool IsIntegerType(VexFieldType type);
// Integers and reals.
OSTRAND_API bool IsNumberType(VexFieldType type);

// The type of this name ("int8", "string"); false when there is none.
OSTRAND_API bool FindFieldType(std::string_view name, VexFieldType& type);

// Writes an integer of one type as another: as many bytes as that one has, into out[8]; answers
// false, and writes nothing, when it is out of its range. REQUIRES: both are integer types, `bytes`
// has the width of `from`.
OSTRAND_API bool ConvertInteger(VexFieldType from, std::string_view bytes, VexFieldType to,
                                char* out);

// The bytes of a value that is written as text: decimal numbers, hexadecimal digits for a blob, a
// text as it stands. False for what is not of this form or out of range.
OSTRAND_API bool ParseValue(VexFieldType type, std::string_view text, std::string& bytes);

// The text of a number, as ParseValue takes it. False when the type is no number or the bytes have
// another width.
OSTRAND_API bool NumberText(VexFieldType type, std::string_view bytes, std::string& text);

// Two hexadecimal digits a byte.
OSTRAND_API std::string HexText(std::string_view bytes);
// "00FF" as two bytes; an odd number of digits, or another character, is false.
OSTRAND_API bool ParseHex(std::string_view text, std::string& bytes);

}  // namespace ostrand_protocol_cs
