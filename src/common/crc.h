// CRC-32 as Ethernet, gzip and PNG use it.
//
// Polynomial 0x04C11DB7 reflected (0xEDB88320), initial value and final XOR 0xFFFFFFFF: the check
// value of "123456789" is 0xCBF43926. Computed eight bytes a step after M. Kounavis and F. Berry,
// "A Systematic Approach to Building High Performance Software-based CRC Generators" (ISCC 2005).
// Threads: no state, callable from any.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace OstrandCommon {

// The checksum of `len` bytes. Of no bytes it is 0; `data` may then be null.
OSTRAND_API uint32_t CRC(const char* data, size_t len);

}  // namespace OstrandCommon
