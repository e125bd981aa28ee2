// Copies of texts into fixed fields.
#pragma once

#include <cstddef>
#include <cstring>

namespace OstrandService {

// Copies what fits, with a NUL behind it; null is the empty text.
template <size_t kCapacity>
void CopyBounded(char (&to)[kCapacity], const char* from) {
  const size_t len = from != nullptr ? strnlen(from, kCapacity - 1) : 0;
  if (len > 0) {
    std::memcpy(to, from, len);
  }
  to[len] = '\0';
}

}  // namespace OstrandService
