// Reads big-endian fields, each checked against the bytes that are there and, where it is copied,
// against the room for it.
//
// The first failure sticks: later reads answer 0 and copy nothing, so that a caller reads a whole
// record and asks once. Loops over a number that was read end by themselves, since a failed read of
// the number is 0 and a caller leaves the loop once `ok` is false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "protocol/byte_order.h"
#include "protocol/codec_errors.h"

namespace ostrand_protocol_cs {

class ByteReader {
 public:
  // truncated: the code of a read behind data + len.
  ByteReader(const char* data, size_t len, int truncated)
      : m_next(data), m_end(data + len), m_truncated(truncated) {}

  // Numbers that stand one behind the other: all or, where bytes are missing, zeros.
  template <typename... Ints>
  void Get(Ints&... values) {
    const char* bytes = Take((sizeof(Ints) + ...));
    if (bytes == nullptr) {
      ((values = 0), ...);
      return;
    }
    ((values = LoadBigEndian<Ints>(bytes), bytes += sizeof(Ints)), ...);
  }

  // A uint32 that must not be above `limit`, else `over_limit`; then 0.
  uint32_t GetCount(size_t limit, int over_limit) {
    uint32_t count = 0;
    Get(count);
    if (count > limit) {
      Fail(over_limit);
      return 0;
    }
    return count;
  }

  // A number of bytes (uint32), then the bytes into buffer[0, capacity); answers the number. A NUL
  // is put behind the bytes where there is room. Over `capacity`: `over_capacity`.
  uint32_t GetCounted(char* buffer, size_t capacity, int over_capacity) {
    const std::string_view bytes = PassCounted(capacity, over_capacity);
    return Copy(bytes, buffer, capacity);
  }

  // The same bytes in place; empty after a failure.
  std::string_view PassCounted(size_t capacity, int over_capacity) {
    const uint32_t len = GetCount(capacity, over_capacity);
    return View(Take(len), len);
  }

  // A text as ByteWriter puts it; answers its length with the NUL, 0 for an empty one. A length of
  // 1 is an empty text too. Over `capacity`: `over_capacity`.
  uint32_t GetText(char* text, size_t capacity, int over_capacity) {
    const std::string_view bytes = PassText(capacity, over_capacity);
    return Copy(bytes, text, capacity);
  }

  // The same in place, with its NUL; empty after a failure.
  std::string_view PassText(size_t capacity, int over_capacity) {
    const uint32_t len = GetCount(capacity, over_capacity);
    return View(TakeText(len), len);
  }

  // The next `len` bytes in place, which must be a text that ends at its only NUL; null if not.
  const char* TakeText(size_t len) {
    const char* const text = Take(len);
    if (text != nullptr && len > 0 && !EndsAtItsOnlyNul(text, len)) {
      Fail(OSTRAND_CODEC_ERR_TEXT);
      return nullptr;
    }
    return text;
  }

  // The next `len` bytes in place; null when fewer are left.
  const char* Take(size_t len) {
    if (left() < len) {
      Fail(m_truncated);
      return nullptr;
    }
    const char* const bytes = m_next;
    m_next += len;
    return bytes;
  }

  void Fail(int code) {
    if (m_error == 0) {
      m_error = code;
      m_end = m_next;
    }
  }

  size_t left() const { return static_cast<size_t>(m_end - m_next); }
  bool ok() const { return m_error == 0; }
  // 0, or the code of the first failure.
  int error() const { return m_error; }

 private:
  // By eight bytes at a time, without a call: nearly all texts are names of a few bytes. A zero
  // byte is what borrows when 1 is taken from each (A. Mycroft, 1987).
  static bool EndsAtItsOnlyNul(const char* text, size_t len) {
    constexpr uint64_t kOnes = 0x0101010101010101U;
    constexpr uint64_t kHighs = 0x8080808080808080U;
    const char* const last = text + len - 1;
    for (; last - text >= 8; text += 8) {
      uint64_t bytes;
      std::memcpy(&bytes, text, sizeof(bytes));
      if (((bytes - kOnes) & ~bytes & kHighs) != 0) {
        return false;
      }
    }
    while (text != last && *text != '\0') {
      ++text;
    }
    return text == last && *last == '\0';
  }

  static std::string_view View(const char* bytes, uint32_t len) {
    return bytes != nullptr ? std::string_view(bytes, len) : std::string_view();
  }

  static uint32_t Copy(std::string_view bytes, char* buffer, size_t capacity) {
    if (bytes.data() == nullptr) {
      return 0;
    }
    std::memcpy(buffer, bytes.data(), bytes.size());
    if (bytes.size() < capacity) {
      buffer[bytes.size()] = '\0';
    }
    return static_cast<uint32_t>(bytes.size());
  }

  const char* m_next;
  const char* m_end;
  int m_truncated;
  int m_error = 0;
};

}  // namespace ostrand_protocol_cs
