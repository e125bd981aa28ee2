// The one buffer of a request: its bytes grow from the front, a mark for each of its fields from
// the back. Bytes go in anywhere, since an application names fields in any order.
//
// Never shrinks its room, so that a request that is begun anew allocates nothing. Nothing throws:
// without memory an operation answers so and has changed nothing.
// Ownership: owns its memory. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace OstrandService {

class RequestBytes {
 public:
  RequestBytes() = default;
  RequestBytes(RequestBytes&& other) noexcept { Swap(other); }
  RequestBytes& operator=(RequestBytes&& other) noexcept {
    RequestBytes taken(std::move(other));
    Swap(taken);
    return *this;
  }
  RequestBytes(const RequestBytes&) = delete;
  RequestBytes& operator=(const RequestBytes&) = delete;

  const char* data() const { return m_data.get(); }
  char* data() { return m_data.get(); }
  size_t size() const { return m_size; }
  size_t mark_count() const { return m_marks; }
  uint8_t mark(size_t i) const { return static_cast<uint8_t>(m_data[m_capacity - 1 - i]); }
  void SetMark(size_t i, uint8_t mark) { m_data[m_capacity - 1 - i] = static_cast<char>(mark); }

  // Room for so many more bytes and marks; false without memory.
  bool Reserve(size_t bytes, size_t marks) {
    if (m_capacity - m_size - m_marks >= bytes + marks) {
      return true;
    }
    size_t capacity = m_capacity != 0 ? 2 * m_capacity : kFirstCapacity;
    while (capacity - m_size - m_marks < bytes + marks) {
      capacity *= 2;
    }
    return MoveTo(capacity);
  }

  // Opens a gap of `len` bytes and answers where it is. REQUIRES: at <= size(), room for it.
  char* Insert(size_t at, size_t len) {
    char* const gap = m_data.get() + at;
    if (at < m_size) {
      std::memmove(gap + len, gap, m_size - at);
    }
    m_size += len;
    return gap;
  }
  // REQUIRES: at + len <= size().
  void Erase(size_t at, size_t len) {
    char* const begin = m_data.get() + at;
    if (at + len < m_size) {
      std::memmove(begin, begin + len, m_size - at - len);
    }
    m_size -= len;
  }
  // The mark gets the number `at`. REQUIRES: at <= mark_count(), room for it.
  void InsertMark(size_t at, uint8_t mark) {
    char* const last = m_data.get() + m_capacity - m_marks;
    if (at < m_marks) {
      std::memmove(last - 1, last, m_marks - at);
    }
    ++m_marks;
    SetMark(at, mark);
  }

  void Clear() {
    m_size = 0;
    m_marks = 0;
  }

  // False without memory: then this is empty.
  bool CopyFrom(const RequestBytes& other) {
    Clear();
    if (!Reserve(other.m_size, other.m_marks)) {
      return false;
    }
    if (other.m_capacity != 0) {
      std::memcpy(m_data.get(), other.m_data.get(), other.m_size);
      std::memcpy(m_data.get() + m_capacity - other.m_marks,
                  other.m_data.get() + other.m_capacity - other.m_marks, other.m_marks);
    }
    m_size = other.m_size;
    m_marks = other.m_marks;
    return true;
  }

 private:
  static constexpr size_t kFirstCapacity = 256;

  bool MoveTo(size_t capacity) {
    std::unique_ptr<char[]> data(new (std::nothrow) char[capacity]);
    if (data == nullptr) {
      return false;
    }
    if (m_capacity != 0) {
      std::memcpy(data.get(), m_data.get(), m_size);
      std::memcpy(data.get() + capacity - m_marks, m_data.get() + m_capacity - m_marks, m_marks);
    }
    m_data = std::move(data);
    m_capacity = capacity;
    return true;
  }

  void Swap(RequestBytes& other) noexcept {
    m_data.swap(other.m_data);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_size, other.m_size);
    std::swap(m_marks, other.m_marks);
  }

  std::unique_ptr<char[]> m_data;
  size_t m_capacity = 0;
  size_t m_size = 0;
  size_t m_marks = 0;
};

}  // namespace OstrandService
