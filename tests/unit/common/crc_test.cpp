#include "common/crc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace OstrandCommon {
namespace {

// One bit at a time, as the polynomial division is defined.
uint32_t BitwiseCrc(const std::string& text) {
  uint32_t crc = 0xFFFFFFFFU;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

TEST(Crc, GivesTheKnownValues) {
  const struct {
    std::string text;
    uint32_t crc;
  } kCases[] = {
      {"", 0x00000000U},
      {"a", 0xE8B7BE43U},
      {"abc", 0x352441C2U},
      {"123456789", 0xCBF43926U},
      {"The quick brown fox jumps over the lazy dog", 0x414FA339U},
      {std::string(32, '\0'), 0x190A55ADU},
      {std::string(32, '\xff'), 0xFF6CAB0BU},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.crc, CRC(c.text.data(), c.text.size())) << c.text;
  }
}

TEST(Crc, OfNothingIsZeroAndReadsNothing) { EXPECT_EQ(0U, CRC(nullptr, 0)); }

TEST(Crc, AgreesWithTheBitwiseDefinitionAtEveryLengthAndAlignment) {
  std::string bytes;
  uint32_t value = 12345;
  for (int i = 0; i < 100; ++i) {
    value = value * 1664525U + 1013904223U;
    bytes.push_back(static_cast<char>(value >> 24));
  }
  for (size_t begin = 0; begin < 8; ++begin) {
    for (size_t len = 0; begin + len <= bytes.size(); ++len) {
      EXPECT_EQ(BitwiseCrc(bytes.substr(begin, len)), CRC(bytes.data() + begin, len))
          << "begin " << begin << ", len " << len;
    }
  }
}

TEST(Crc, ChangesWithEverySingleBit) {
  std::string bytes = "routing context";
  const uint32_t whole = CRC(bytes.data(), bytes.size());
  for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    std::string flipped = bytes;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
    EXPECT_NE(whole, CRC(flipped.data(), flipped.size())) << "bit " << bit;
  }
}

}  // namespace
}  // namespace OstrandCommon
