// The 14 bytes that travel at the end of a request's user buffer and come back with its answer.
//
//   offset 0, 4 bytes  magic
//          4, 4        id of the in-flight record (signed)
//          8, 2        table subscript (signed)
//         10, 4        CRC-32 of bytes 0 to 9
//
// In the sender's own byte order: only the sender reads them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/crc.h"

namespace OstrandService {

constexpr size_t kRoutingContextLen = 14;
constexpr uint32_t kRoutingContextMagic = 0x12345678;

struct RoutingContext {
  uint32_t magic;
  int32_t id;
  int16_t table_subscript;
  uint32_t crc;           // as received
  uint32_t expected_crc;  // of the bytes before it
};

// to: room for kRoutingContextLen bytes.
inline void WriteRoutingContext(char* to, int32_t id, int16_t table_subscript) {
  std::memcpy(to, &kRoutingContextMagic, 4);
  std::memcpy(to + 4, &id, 4);
  std::memcpy(to + 8, &table_subscript, 2);
  const uint32_t crc = OstrandCommon::CRC(to, 10);
  std::memcpy(to + 10, &crc, 4);
}

// from: kRoutingContextLen bytes.
inline RoutingContext ReadRoutingContext(const char* from) {
  RoutingContext context{};
  std::memcpy(&context.magic, from, 4);
  std::memcpy(&context.id, from + 4, 4);
  std::memcpy(&context.table_subscript, from + 8, 2);
  std::memcpy(&context.crc, from + 10, 4);
  context.expected_crc = OstrandCommon::CRC(from, 10);
  return context;
}

}  // namespace OstrandService
