#include "common/md5.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace OstrandCommon {
namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kLengthSize = 8;

// The names of RFC 1321, section 3: registers A to D, table T, rotations s, block words X.
using State = std::array<uint32_t, 4>;
using Words = std::array<uint32_t, 16>;

constexpr State kInitialState = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

// T[i] is the integer part of 4294967296 * abs(sin(i + 1)).
constexpr std::array<uint32_t, 64> kT = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// Each round of 16 steps uses its four rotations in turn.
constexpr uint32_t kRotations[4][4] = {
    {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t RotateLeft(uint32_t value, uint32_t bits) {
  return (value << bits) | (value >> (32 - bits));
}

// The functions F, G, H and I, one a round.
uint32_t Mix(size_t round, uint32_t x, uint32_t y, uint32_t z) {
  switch (round) {
    case 0: return (x & y) | (~x & z);
    case 1: return (x & z) | (y & ~z);
    case 2: return x ^ y ^ z;
    default: return y ^ (x | ~z);
  }
}

// Which word of the block a step takes.
size_t WordIndex(size_t round, size_t step) {
  constexpr size_t kFactor[4] = {1, 5, 3, 7};
  constexpr size_t kOffset[4] = {0, 1, 5, 0};
  return (kFactor[round] * step + kOffset[round]) % 16;
}

Words LoadBlock(const unsigned char* block) {
  Words words{};
  for (size_t i = 0; i < kBlockSize; ++i) {
    words[i / 4] |= static_cast<uint32_t>(block[i]) << (8 * (i % 4));
  }
  return words;
}

void AddBlock(State& state, const unsigned char* block) {
  const Words words = LoadBlock(block);
  auto [a, b, c, d] = state;
  for (size_t step = 0; step < 64; ++step) {
    const size_t round = step / 16;
    const uint32_t sum = a + Mix(round, b, c, d) + words[WordIndex(round, step)] + kT[step];
    a = d;
    d = c;
    c = b;
    b += RotateLeft(sum, kRotations[round][step % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

// The bytes behind the last whole block, a single 1 bit, zeros, and the length in bits: one block,
// or two where the length does not fit into the first.
void AddTail(State& state, const unsigned char* tail, size_t tail_len, uint64_t message_len) {
  std::array<unsigned char, 2 * kBlockSize> padded{};
  if (tail_len > 0) {
    std::memcpy(padded.data(), tail, tail_len);
  }
  padded[tail_len] = 0x80;
  const size_t padded_len = tail_len < kBlockSize - kLengthSize ? kBlockSize : 2 * kBlockSize;
  const uint64_t bits = message_len * 8;
  for (size_t i = 0; i < kLengthSize; ++i) {
    padded[padded_len - kLengthSize + i] = static_cast<unsigned char>(bits >> (8 * i));
  }
  for (size_t offset = 0; offset < padded_len; offset += kBlockSize) {
    AddBlock(state, padded.data() + offset);
  }
}

std::array<char, 32> ToHex(const State& state) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<char, 32> text{};
  for (size_t i = 0; i < 16; ++i) {
    const uint32_t byte = (state[i / 4] >> (8 * (i % 4))) & 0xFFU;
    text[2 * i] = kDigits[byte >> 4];
    text[2 * i + 1] = kDigits[byte & 0xFU];
  }
  return text;
}

}  // namespace

void md5_sum(const char* data, size_t len, char* out, size_t out_size) {
  if (out == nullptr || out_size == 0) {
    return;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  State state = kInitialState;
  size_t offset = 0;
  for (; len - offset >= kBlockSize; offset += kBlockSize) {
    AddBlock(state, bytes + offset);
  }
  AddTail(state, len > offset ? bytes + offset : nullptr, len - offset, len);

  const std::array<char, 32> text = ToHex(state);
  const size_t kept = std::min(text.size(), out_size - 1);
  std::memcpy(out, text.data(), kept);
  out[kept] = '\0';
}

}  // namespace OstrandCommon
