// A frame put together by hand, so that a test can break it in one place: a plain writer of the
// wire format that shares nothing with the codec and checks nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ostrand_protocol_cs {

inline std::string BigEndian(uint64_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    text += static_cast<char>((value >> shift) & 0xFF);
  }
  return text;
}

inline std::string U32(uint64_t value) { return BigEndian(value, 4); }

// A length, then the bytes.
inline std::string Counted(std::string_view bytes) {
  return U32(bytes.size()) + std::string(bytes);
}

// A length with the NUL, then the text with it.
inline std::string NamedText(std::string_view text) { return Counted(std::string(text) + '\0'); }

inline std::string RawField(std::string_view name, std::string_view value) {
  return NamedText(name) + Counted(value);
}

// A record of the given fields. key_num, value_num: as stated, whatever the fields are.
inline std::string RawRecord(uint32_t key_num, uint32_t value_num, std::string_view fields) {
  return U32(24 + fields.size()) + U32(0) + U32(0xFFFFFFFF) + U32(0xFFFFFFFF) + U32(key_num) +
         U32(value_num) + std::string(fields);
}

inline std::string RawRecordsBody(uint32_t num, std::string_view records) {
  return U32(num) + Counted(records);
}

struct RawFrame {
  explicit RawFrame(uint32_t command, std::string body_bytes = std::string())
      : cmd(command), body(std::move(body_bytes)) {}

  uint16_t magic = 0x4F54;
  uint16_t version = 127;
  std::optional<uint32_t> head_len;  // what the frame states; without: the truth
  std::optional<uint32_t> body_len;
  uint32_t cmd;
  std::string table_name = U32(0);
  std::string user_buff = U32(0);
  uint32_t key_field_num = 0;
  std::string key_fields;
  std::string compress_types = std::string(2, '\0');
  std::string split_table_key = U32(0);
  uint32_t result = 0;
  std::string perf_test = U32(0);
  std::string behind_head;  // what a newer version might add
  std::string body;

  std::string Head() const {
    return BigEndian(0, 8) + U32(0) + U32(cmd) + U32(0) + U32(1) + U32(2) + U32(3) + table_name +
           user_buff + U32(0xFFFFFFFF) + U32(key_field_num) + key_fields + U32(0) + compress_types +
           split_table_key + U32(result) + U32(0) + perf_test + behind_head;
  }

  std::string Bytes() const {
    const std::string head = Head();
    return BigEndian(magic, 2) + BigEndian(version, 2) + U32(head_len.value_or(Truth(12, head))) +
           U32(body_len.value_or(Truth(0, body))) + head + body;
  }

 private:
  static uint32_t Truth(size_t before, const std::string& bytes) {
    return static_cast<uint32_t>(before + bytes.size());
  }
};

}  // namespace ostrand_protocol_cs
