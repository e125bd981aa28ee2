// A value of a field, on its way into a request. Made by itself from what Key and Set are given.
//
// Holds numbers in wire form; views texts and bytes, which outlive the call that it is given to.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/export.h"
#include "protocol/field_value.h"

namespace OstrandService {

class FieldValue {
 public:
  // Texts and bytes, as they stand. A null text is an empty one.
  FieldValue(std::string_view bytes) : m_view(bytes) {}                  // NOLINT: implicit
  FieldValue(const std::string& bytes) : m_view(bytes) {}                // NOLINT
  FieldValue(const char* text) : m_view(text != nullptr ? text : "") {}  // NOLINT

  // Integers of open width: 64 bits, until a schema says otherwise. Smaller types come as int.
  FieldValue(int value) : FieldValue(Open(value)) {}                 // NOLINT
  FieldValue(long value) : FieldValue(Open(value)) {}                // NOLINT
  FieldValue(long long value) : FieldValue(Open(value)) {}           // NOLINT
  FieldValue(unsigned value) : FieldValue(Open(value)) {}            // NOLINT
  FieldValue(unsigned long value) : FieldValue(Open(value)) {}       // NOLINT
  FieldValue(unsigned long long value) : FieldValue(Open(value)) {}  // NOLINT

  FieldValue(float value) : FieldValue(Fixed(value)) {}   // NOLINT
  FieldValue(double value) : FieldValue(Fixed(value)) {}  // NOLINT

  // A number of this type; out of its range: IsInRange is false.
  template <typename Width, typename Value>
  static FieldValue Of(Value value) {
    static_assert(std::is_arithmetic_v<Width> && std::is_arithmetic_v<Value>);
    FieldValue number = Fixed(static_cast<Width>(value));
    number.m_in_range = ostrand_protocol_cs::FitsInto<Width>(value);
    return number;
  }

  std::string_view Bytes() const {
    return m_width != 0 ? std::string_view(m_number, m_width) : m_view;
  }
  VexFieldType Type() const { return m_type; }
  bool IsOpen() const { return m_open; }
  bool IsInRange() const { return m_in_range; }

 private:
  FieldValue() = default;

  template <typename Number>
  static FieldValue Fixed(Number number) {
    FieldValue value;
    value.m_type = ostrand_protocol_cs::FieldTypeOf<Number>();
    value.m_width = sizeof(number);
    ostrand_protocol_cs::StoreNumber(value.m_number, number);
    return value;
  }
  template <typename Integer>
  static FieldValue Open(Integer integer) {
    using Wide = std::conditional_t<std::is_signed_v<Integer>, int64_t, uint64_t>;
    FieldValue value = Fixed(static_cast<Wide>(integer));
    value.m_open = true;
    return value;
  }

  std::string_view m_view;
  char m_number[8] = {};
  uint8_t m_width = 0;  // of a number; 0: the view is the value
  VexFieldType m_type = VexFieldType::kString;
  bool m_open = false;
  bool m_in_range = true;
};

}  // namespace OstrandService
