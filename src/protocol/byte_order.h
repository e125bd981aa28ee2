// Big-endian numbers in raw bytes, at any alignment. Nothing is checked here.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace ostrand_protocol_cs {

// The same value with its bytes in the opposite order on a little-endian machine, else unchanged.
template <typename Unsigned>
inline Unsigned SwapToBigEndian(Unsigned value) {
  static_assert(std::is_unsigned_v<Unsigned>);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  if constexpr (sizeof(Unsigned) == 8) {
    return __builtin_bswap64(value);
  } else if constexpr (sizeof(Unsigned) == 4) {
    return __builtin_bswap32(value);
  } else if constexpr (sizeof(Unsigned) == 2) {
    return __builtin_bswap16(value);
  }
#endif
  return value;
}

template <typename Int>
inline void StoreBigEndian(char* bytes, Int value) {
  const auto swapped = SwapToBigEndian(static_cast<std::make_unsigned_t<Int>>(value));
  std::memcpy(bytes, &swapped, sizeof(swapped));
}

template <typename Int>
inline Int LoadBigEndian(const char* bytes) {
  std::make_unsigned_t<Int> swapped;
  std::memcpy(&swapped, bytes, sizeof(swapped));
  return static_cast<Int>(SwapToBigEndian(swapped));
}

}  // namespace ostrand_protocol_cs
