// Bytes in a row: appended at the end, taken from the front. Starts with no memory, grows by
// doubling, gives large memory back when it becomes empty.
//
// Ownership: owns its memory. Threads: none inside.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace OSTRNET {

class ByteBuffer {
 public:
  ByteBuffer() = default;
  ~ByteBuffer() { std::free(m_memory); }
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;

  void Swap(ByteBuffer& other) noexcept {
    std::swap(m_memory, other.m_memory);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_begin, other.m_begin);
    std::swap(m_end, other.m_end);
  }

  const char* data() const { return m_memory + m_begin; }
  size_t size() const { return m_end - m_begin; }
  bool empty() const { return m_begin == m_end; }
  size_t capacity() const { return m_capacity; }

  // Room for `len` more bytes at the end, which Commit then adds; null without memory.
  char* Prepare(size_t len) { return Reserve(len) ? m_memory + m_end : nullptr; }
  void Commit(size_t len) { m_end += len; }

  // False, and nothing changed, without memory.
  bool Append(const void* bytes, size_t len) {
    if (!Reserve(len)) {
      return false;
    }
    if (len != 0) {
      std::memcpy(m_memory + m_end, bytes, len);
    }
    m_end += len;
    return true;
  }

  // REQUIRES: len <= size().
  void TakeFront(size_t len) {
    m_begin += len;
    if (m_begin == m_end) {
      Clear();
    }
  }

  void Clear() {
    m_begin = 0;
    m_end = 0;
    if (m_capacity > kKeptCapacity) {
      std::free(m_memory);
      m_memory = nullptr;
      m_capacity = 0;
    }
  }

 private:
  static constexpr size_t kFirstCapacity = 4096;
  static constexpr size_t kKeptCapacity = 64 * 1024;

  bool Reserve(size_t len) {
    if (m_capacity - m_end >= len) {
      return true;
    }
    const size_t used = size();
    if (m_capacity - used >= len && m_begin >= used) {  // moving costs no more than was taken
      std::memmove(m_memory, m_memory + m_begin, used);
    } else {
      size_t capacity = m_capacity != 0 ? 2 * m_capacity : kFirstCapacity;
      while (capacity - used < len) {
        capacity *= 2;
      }
      char* memory = static_cast<char*>(std::malloc(capacity));
      if (memory == nullptr) {
        return false;
      }
      if (used != 0) {
        std::memcpy(memory, m_memory + m_begin, used);
      }
      std::free(m_memory);
      m_memory = memory;
      m_capacity = capacity;
    }
    m_begin = 0;
    m_end = used;
    return true;
  }

  char* m_memory = nullptr;
  size_t m_capacity = 0;
  size_t m_begin = 0;
  size_t m_end = 0;
};

}  // namespace OSTRNET
