#include "common/crc.h"

#include <array>

namespace OstrandCommon {
namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320U;
constexpr size_t kSlices = 8;

using Slice = std::array<uint32_t, 256>;

// kTables[0][b] is what byte b adds to the checksum when it is the last one, kTables[n][b] when n
// more bytes follow it.
constexpr std::array<Slice, kSlices> MakeTables() {
  std::array<Slice, kSlices> tables{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1U) != 0 ? kReflectedPolynomial : 0U);
    }
    tables[0][byte] = crc;
  }
  for (size_t slice = 1; slice < kSlices; ++slice) {
    for (size_t byte = 0; byte < 256; ++byte) {
      const uint32_t before = tables[slice - 1][byte];
      tables[slice][byte] = (before >> 8) ^ tables[0][before & 0xFFU];
    }
  }
  return tables;
}

constexpr std::array<Slice, kSlices> kTables = MakeTables();

uint32_t LoadLittleEndian32(const unsigned char* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

uint32_t AddEightBytes(uint32_t crc, const unsigned char* bytes) {
  const uint32_t low = LoadLittleEndian32(bytes) ^ crc;
  const uint32_t high = LoadLittleEndian32(bytes + 4);
  return kTables[7][low & 0xFFU] ^ kTables[6][(low >> 8) & 0xFFU] ^
         kTables[5][(low >> 16) & 0xFFU] ^ kTables[4][low >> 24] ^ kTables[3][high & 0xFFU] ^
         kTables[2][(high >> 8) & 0xFFU] ^ kTables[1][(high >> 16) & 0xFFU] ^
         kTables[0][high >> 24];
}

}  // namespace

uint32_t CRC(const char* data, size_t len) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  uint32_t crc = 0xFFFFFFFFU;
  for (; len >= kSlices; len -= kSlices, bytes += kSlices) {
    crc = AddEightBytes(crc, bytes);
  }
  for (; len > 0; --len, ++bytes) {
    crc = (crc >> 8) ^ kTables[0][(crc ^ *bytes) & 0xFFU];
  }
  return ~crc;
}

}  // namespace OstrandCommon
