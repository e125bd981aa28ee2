// The MD5 digest (RFC 1321), for telling texts apart. It protects nothing against an attacker.
//
// Threads: no state, callable from any.
#pragma once

#include <cstddef>

#include "common/export.h"

namespace OstrandCommon {

// Writes the digest of `len` bytes to `out` as 32 lower-case hexadecimal digits and a NUL. Where
// out_size is smaller than 33, as many digits as fit before the NUL; where it is 0, nothing.
// `data` may be null when `len` is 0.
OSTRAND_API void md5_sum(const char* data, size_t len, char* out, size_t out_size);

}  // namespace OstrandCommon
