// Writes big-endian fields into a buffer, each checked against the space left.
//
// The first failure sticks: later writes do nothing and the code of the first stays, so that a
// caller writes a whole record and asks once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "protocol/byte_order.h"
#include "protocol/codec_errors.h"

namespace ostrand_protocol_cs {

class ByteWriter {
 public:
  ByteWriter(char* buffer, size_t capacity) : m_next(buffer), m_end(buffer + capacity) {}

  // The numbers, one behind the other: all or, where they do not fit, none.
  template <typename... Ints>
  void Put(Ints... values) {
    char* bytes = Take((sizeof(Ints) + ...));
    if (bytes != nullptr) {
      ((StoreBigEndian(bytes, values), bytes += sizeof(Ints)), ...);
    }
  }

  // A number of bytes (uint32), then the bytes. Over `capacity`: `over_capacity`.
  void PutCounted(const char* data, size_t len, size_t capacity, int over_capacity) {
    if (len > capacity) {
      Fail(over_capacity);
      return;
    }
    Put(static_cast<uint32_t>(len));
    PutBytes(data, len);
  }

  // The bytes alone. data may be null when there are none.
  void PutBytes(const char* data, size_t len) {
    char* const bytes = Take(len);
    if (bytes != nullptr && len > 0) {
      std::memcpy(bytes, data, len);
    }
  }

  // A text as its length with the NUL, then the text with the NUL; an empty text as a length of 0.
  // Without NUL within `capacity`: OSTRAND_CODEC_ERR_TEXT.
  void PutText(const char* text, size_t capacity) {
    const size_t len = strnlen(text, capacity);
    PutCounted(text, len == 0 ? 0 : len + 1, capacity, OSTRAND_CODEC_ERR_TEXT);
  }

  void Fail(int code) {
    if (m_error == 0) {
      m_error = code;
      m_end = m_next;
    }
  }

  // Where the next byte goes.
  char* position() const { return m_next; }
  // 0, or the code of the first failure.
  int error() const { return m_error; }

 private:
  // Null when fewer bytes are left.
  char* Take(size_t len) {
    if (static_cast<size_t>(m_end - m_next) < len) {
      Fail(OSTRAND_CODEC_ERR_BUFFER_FULL);
      return nullptr;
    }
    char* const bytes = m_next;
    m_next += len;
    return bytes;
  }

  char* m_next;
  char* m_end;
  int m_error = 0;
};

}  // namespace ostrand_protocol_cs
