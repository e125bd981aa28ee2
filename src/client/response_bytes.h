// The one buffer of a response. Its room is what its bytes need, so that very many responses may be
// kept, and it is kept from one outcome to the next.
//
// Nothing throws. Ownership: owns its memory. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace OstrandService {

class ResponseBytes {
 public:
  ResponseBytes() = default;
  ResponseBytes(ResponseBytes&& other) noexcept { Swap(other); }
  ResponseBytes& operator=(ResponseBytes&& other) noexcept {
    ResponseBytes taken(std::move(other));
    Swap(taken);
    return *this;
  }
  ResponseBytes(const ResponseBytes&) = delete;
  ResponseBytes& operator=(const ResponseBytes&) = delete;

  const char* data() const { return m_data.get(); }
  size_t size() const { return m_size; }

  // Makes the bytes `len` long and answers them; the first `kept` stay, the others are for the
  // caller to write. Null without memory: then nothing is changed.
  char* Resize(size_t len, size_t kept) {
    if (len > m_capacity) {
      const size_t capacity = (len + kGrain - 1) / kGrain * kGrain;
      std::unique_ptr<char[]> data(new (std::nothrow) char[capacity]);
      if (data == nullptr) {
        return nullptr;
      }
      if (kept > 0) {
        std::memcpy(data.get(), m_data.get(), kept);
      }
      m_data = std::move(data);
      m_capacity = capacity;
    }
    m_size = len;
    return m_data.get();
  }

 private:
  static constexpr size_t kGrain = 64;

  void Swap(ResponseBytes& other) noexcept {
    m_data.swap(other.m_data);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_size, other.m_size);
  }

  std::unique_ptr<char[]> m_data;
  size_t m_capacity = 0;
  size_t m_size = 0;
};

}  // namespace OstrandService
