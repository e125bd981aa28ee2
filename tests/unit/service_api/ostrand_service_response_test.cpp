// The length of a frame, read from its first 12 bytes.
#include "service_api/ostrand_service_response.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "protocol/codec_errors.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr int kBad = OstrandServiceResponse::kErrBadFrameHead;
constexpr uint32_t kLargestFrame = 16 * 1024 * 1024;

void AppendBigEndian(std::vector<char>& bytes, uint32_t value, int width) {
  for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<char>((value >> shift) & 0xFF));
  }
}

// The first 12 bytes of a frame, on the heap: no byte behind them is there.
std::vector<char> Head(uint32_t magic, uint32_t head_len, uint32_t body_len) {
  std::vector<char> bytes;
  bytes.reserve(12);
  AppendBigEndian(bytes, magic, 2);
  AppendBigEndian(bytes, 127, 2);
  AppendBigEndian(bytes, head_len, 4);
  AppendBigEndian(bytes, body_len, 4);
  return bytes;
}

int LengthOf(uint32_t magic, uint32_t head_len, uint32_t body_len) {
  const std::vector<char> head = Head(magic, head_len, body_len);
  return OstrandServiceResponse::GetPkgLen(head.data(), head.size());
}

TEST(GetPkgLen, IsHeadAndBodyTogether) {
  EXPECT_EQ(28, LengthOf(0x4F54, 28, 0));
  EXPECT_EQ(0x01020304 - 0x01000000 + 28, LengthOf(0x4F54, 28, 0x00020304)) << "big-endian";
  EXPECT_EQ(1028, LengthOf(0x4F54, 1000, 28));
}

TEST(GetPkgLen, IsZeroUnder12BytesWhateverTheyAre) {
  const std::vector<char> heads[] = {Head(0x4F54, 28, 5), Head(0xFFFF, 0, 0xFFFFFFFF)};
  for (const std::vector<char>& head : heads) {
    for (size_t length = 0; length < 12; ++length) {
      const std::vector<char> cut(head.begin(), head.begin() + static_cast<ptrdiff_t>(length));
      EXPECT_EQ(0, OstrandServiceResponse::GetPkgLen(cut.data(), cut.size())) << length;
    }
  }
  EXPECT_EQ(0, OstrandServiceResponse::GetPkgLen(nullptr, 0));
  EXPECT_EQ(0, OstrandServiceResponse::GetPkgLen(nullptr, 12));
  EXPECT_NE(0, OstrandServiceResponse::GetPkgLen(heads[0].data(), 12));
}

TEST(GetPkgLen, ReadsTheFirst12BytesOnly) {
  std::vector<char> frame = Head(0x4F54, 30, 70);
  frame.resize(5000, '\xFF');
  EXPECT_EQ(100, OstrandServiceResponse::GetPkgLen(frame.data(), frame.size()));
}

TEST(GetPkgLen, RefusesAHeadThatIsNone) {
  const struct {
    const char* why;
    uint32_t magic;
    uint32_t head_len;
    uint32_t body_len;
  } kCases[] = {{"magic", 0x4F55, 28, 0},
                {"magic in the other order", 0x544F, 28, 0},
                {"no magic", 0, 28, 0},
                {"head one byte too short", 0x4F54, 27, 0},
                {"no head", 0x4F54, 0, 100},
                {"a byte too long by the body", 0x4F54, 28, kLargestFrame - 27},
                {"a byte too long by the head", 0x4F54, kLargestFrame + 1, 0},
                {"sum of 1 in 32 bits", 0x4F54, 28, 0xFFFFFFE5},
                {"sum of 100 in 32 bits", 0x4F54, 0xFFFFFFFF, 101},
                {"both as long as can be", 0x4F54, 0xFFFFFFFF, 0xFFFFFFFF},
                {"negative as a 32-bit number", 0x4F54, 0x80000000, 0x80000000}};
  for (const auto& c : kCases) {
    EXPECT_EQ(kBad, LengthOf(c.magic, c.head_len, c.body_len)) << c.why;
  }
}

TEST(GetPkgLen, AcceptsUpTo16MiB) {
  EXPECT_EQ(static_cast<int>(kLargestFrame), LengthOf(0x4F54, 28, kLargestFrame - 28));
  EXPECT_EQ(static_cast<int>(kLargestFrame), LengthOf(0x4F54, kLargestFrame, 0));
  EXPECT_EQ(28 + 16 + 10485760, LengthOf(0x4F54, 28, 16 + 10485760)) << "a full schema image";
}

TEST(GetPkgLen, HasACodeOfTheClientLibraryThatNobodyElseUses) {
  EXPECT_GT(0, kBad);
  EXPECT_EQ(0x13, std::abs(kBad) & 0xFF);
  std::set<int> others = {ROUTER_ERR_NOT_INITIALISED,
                          ROUTER_ERR_ALLOCATION,
                          ROUTER_ERR_ARGUMENT,
                          ROUTER_ERR_FAILED,
                          -12307,
                          -13843,
                          -18963,
                          -6413,
                          -6669,
                          -12563,
                          -18195,
                          -18451,
                          -2323};
#define OSTRAND_INSERT(name, number, text) \
  others.insert(ostrand_protocol_cs::OSTRAND_CODEC_ERR_##name);
  OSTRAND_CODEC_ERRORS(OSTRAND_INSERT)
#undef OSTRAND_INSERT
  EXPECT_EQ(0U, others.count(kBad));
}

}  // namespace
}  // namespace OstrandService
