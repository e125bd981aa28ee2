// The ring's hash function, against values that a separate program computed: positions must agree
// with every other client.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

uint64_t Hash(const std::string& text) { return con_hash_func(text.data(), text.size()); }

TEST(ConHashFunc, KnownTexts) {
  EXPECT_EQ(0x9244A1E6E9FAA9BFU, Hash("a"));
  EXPECT_EQ(0x38D5B4DB2C158710U, Hash("abcdefgh")) << "one block: multiply first, then XOR";
  EXPECT_EQ(0xAC858D4CA330F42EU, Hash("abcdefghi"));
  EXPECT_EQ(0xC901A1FD9C4D1405U, Hash("abcdefghijklmnop"));
}

TEST(ConHashFunc, OfNothingIsZeroNotTheHashOfAnEmptyText) {
  EXPECT_EQ(0U, con_hash_func("", 0));
  EXPECT_EQ(0U, con_hash_func("abc", 0));
  EXPECT_EQ(0U, con_hash_func(nullptr, 0));
}

TEST(ConHashFunc, BytesAreUnsigned) {
  EXPECT_EQ(0xC3ED51BBF3A1DC56U, Hash(std::string(1, '\0')));
  EXPECT_EQ(0x22D8D48F9BB8FB92U, Hash(std::string(7, '\xff')));
  EXPECT_EQ(0xA0AB6FD6FB863BD2U, Hash("\x80\xfe\xff"));
}

// Byte i of each input is (37 * i + 128) mod 256.
TEST(ConHashFunc, EveryLengthOfTheRemainderWithoutAndBehindBlocks) {
  const struct {
    size_t length;
    uint64_t hash;
  } kCases[] = {{0, 0x0000000000000000},  {1, 0x9AECC01A2BEB7A0D},  {2, 0x42B0A7BDE356E9D6},
                {3, 0xCDF8FF3F123EAF38},  {4, 0xAD67C0CAB0B22CF4},  {5, 0xCD783165FF9AB058},
                {6, 0x526EEE0A8ACF4095},  {7, 0x689C69760C426BAE},  {8, 0xBD34289F2EC956D9},
                {9, 0x686EA75FE7013AE1},  {10, 0xF3BEBB99410BE1CE}, {11, 0xEE7F2DB4AA939F97},
                {12, 0xECCE928789ADA2DB}, {13, 0xD4346BA742FFA787}, {14, 0xD3305F8571E17A70},
                {15, 0x635C4D0AB1430716}, {16, 0x20C894B4097A374C}, {17, 0xCC9E395A4B9ECBDF},
                {18, 0x5EF914D5F54B7194}, {19, 0x1F1DAC355501062B}, {20, 0x209D1BB789E32009},
                {21, 0xDB7A6A1E9882FBF8}, {22, 0xB8139577CE6D2EC4}, {23, 0x0C5EC4752A64B1D6},
                {24, 0x81EE894888863565}, {63, 0xADBE847EF70F51E4}, {64, 0xAFB298E00B71BA66},
                {65, 0x260F72AE41148AD6}, {255, 0x82E0C85A84E47E2A}};
  for (const auto& c : kCases) {
    // Exactly the input on the heap: no byte behind it is there.
    std::vector<char> input(c.length);
    for (size_t i = 0; i < c.length; ++i) {
      input[i] = static_cast<char>((37 * i + 128) % 256);
    }
    EXPECT_EQ(c.hash, con_hash_func(input.data(), input.size())) << c.length;
  }
}

// The blocks and the remainder are those of the low 32 bits of the length; the seed is mixed with
// all of it.
TEST(ConHashFunc, OfFourGiBAndMoreReadsTheBytesOfTheLow32BitsOfTheLength) {
  constexpr uint64_t kFourGiB = uint64_t{1} << 32;
  EXPECT_EQ(0x8C92D17D0FE78B35U, con_hash_func("", kFourGiB));
  EXPECT_EQ(0x2E2069BA30FDFF45U, con_hash_func("a", kFourGiB + 1));
  EXPECT_EQ(0x23EEDC0509B58D08U, con_hash_func("abcdefghi", kFourGiB + 9));
}

TEST(ConHashFunc, DoesNotCareWhereItsInputLies) {
  std::string text = "..........abcdefghi";
  for (size_t offset = 0; offset <= 10; ++offset) {
    text.replace(offset, 9, "abcdefghi");
    EXPECT_EQ(0xAC858D4CA330F42EU, con_hash_func(text.data() + offset, 9)) << offset;
  }
}

}  // namespace
}  // namespace OstrandService
