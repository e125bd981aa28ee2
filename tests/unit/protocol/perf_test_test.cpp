#include "protocol/perf_test.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

// Every field has a value of its own, so that an exchanged pair shows.
const char kPacked[] =
    "00000077"          // version 119
    "0000000000000001"  // api send
    "0000000000000002"  // proxy front forward
    "0000000000000003"  // proxy end forward
    "0000000000000004"  // server arrival
    "0000000000000005"  // server main forward
    "0000000000000006"  // server worker receive
    "0000000000000007"  // server worker send
    "0000000000000008"  // proxy front backward
    "0000000000000009"  // proxy end backward
    "FF0000000000000A"  // api receive
    "0000000B";         // request length at the proxy

PerfTest Filled() {
  PerfTest perf;
  perf.construct();
  perf.ullApiSendTime = 1;
  perf.ullProxyFrontForwardTime = 2;
  perf.ullProxyEndForwardTime = 3;
  perf.ullSvrArriveTime = 4;
  perf.ullSvrMainForwardTime = 5;
  perf.ullSvrWorkerRecvTime = 6;
  perf.ullSvrWorkerSendTime = 7;
  perf.ullProxyFrontBackwardTime = 8;
  perf.ullProxyEndBackwardTime = 9;
  perf.ullApiRecvTime = 0xFF0000000000000A;
  perf.dwProxyReqLen = 11;
  return perf;
}

TEST(PerfTest, IsConstructedWithTheCurrentVersionAndZeros) {
  PerfTest perf;
  std::memset(static_cast<void*>(&perf), 0x5A, sizeof(perf));
  EXPECT_EQ(perf.construct(), 0);
  char buffer[88];
  ASSERT_EQ(perf.pack(buffer, sizeof(buffer), nullptr, 119), 0);
  EXPECT_EQ(ToHex({buffer, 88}), "00000077" + std::string(168, '0'));
}

TEST(PerfTest, PacksTo88Bytes) {
  char buffer[256];
  size_t used = 0;
  ASSERT_EQ(Filled().pack(buffer, sizeof(buffer), &used, 119), 0);
  EXPECT_EQ(used, 88u);
  EXPECT_EQ(ToHex({buffer, used}), ToHex(FromHex(kPacked)));
}

TEST(PerfTest, UnpacksWhatWasPacked) {
  const std::string packed = FromHex(kPacked);
  PerfTest perf;
  perf.construct();
  size_t used = 0;
  ASSERT_EQ(perf.unpack(packed.data(), packed.size(), &used, 119), 0);
  EXPECT_EQ(used, 88u);
  EXPECT_EQ(perf.dwVersion, 119u);
  EXPECT_EQ(perf.ullApiSendTime, 1u);
  EXPECT_EQ(perf.ullProxyFrontForwardTime, 2u);
  EXPECT_EQ(perf.ullProxyEndForwardTime, 3u);
  EXPECT_EQ(perf.ullSvrArriveTime, 4u);
  EXPECT_EQ(perf.ullSvrMainForwardTime, 5u);
  EXPECT_EQ(perf.ullSvrWorkerRecvTime, 6u);
  EXPECT_EQ(perf.ullSvrWorkerSendTime, 7u);
  EXPECT_EQ(perf.ullProxyFrontBackwardTime, 8u);
  EXPECT_EQ(perf.ullProxyEndBackwardTime, 9u);
  EXPECT_EQ(perf.ullApiRecvTime, 0xFF0000000000000Au);
  EXPECT_EQ(perf.dwProxyReqLen, 11u);
}

TEST(PerfTest, LeavesWhatStandsBehindItAlone) {
  const std::string longer = FromHex(kPacked) + "newer fields";
  PerfTest perf;
  size_t used = 0;
  EXPECT_EQ(perf.unpack(longer.data(), longer.size(), &used, 127), 0);
  EXPECT_EQ(used, 88u);
}

TEST(PerfTest, RefusesShortBuffers) {
  char buffer[88];
  size_t used = 7;
  EXPECT_EQ(Filled().pack(buffer, 87, &used, 119), OSTRAND_CODEC_ERR_PERF_LENGTH);
  EXPECT_EQ(Filled().pack(buffer, 0, &used, 119), OSTRAND_CODEC_ERR_PERF_LENGTH);
  EXPECT_EQ(Filled().pack(nullptr, 88, &used, 119), OSTRAND_CODEC_ERR_ARGUMENT);
  const std::string packed = FromHex(kPacked);
  PerfTest perf;
  perf.construct();
  for (size_t len = 0; len < 88; ++len) {
    const std::unique_ptr<char[]> exact(new char[len]);
    packed.copy(exact.get(), len);
    EXPECT_EQ(perf.unpack(exact.get(), len, &used, 119), OSTRAND_CODEC_ERR_PERF_LENGTH) << len;
  }
  EXPECT_EQ(perf.unpack(nullptr, 88, &used, 119), OSTRAND_CODEC_ERR_ARGUMENT);
  EXPECT_EQ(used, 7u);
  EXPECT_EQ(perf.ullApiSendTime, 0u);
}

TEST(PerfTest, RefusesVersionsBelow79) {
  char buffer[88];
  PerfTest perf = Filled();
  EXPECT_EQ(perf.pack(buffer, sizeof(buffer), nullptr, 78), OSTRAND_CODEC_ERR_PERF_VERSION);
  EXPECT_EQ(perf.pack(buffer, sizeof(buffer), nullptr, 79), 0);
  EXPECT_EQ(perf.unpack(buffer, sizeof(buffer), nullptr, 78), OSTRAND_CODEC_ERR_PERF_VERSION);
  EXPECT_EQ(perf.unpack(buffer, sizeof(buffer), nullptr, 79), 0);
  perf.dwVersion = 78;
  EXPECT_EQ(perf.pack(buffer, sizeof(buffer), nullptr, 119), OSTRAND_CODEC_ERR_PERF_VERSION);
  buffer[3] = 78;  // the last byte of the record's own version
  perf = Filled();
  EXPECT_EQ(perf.unpack(buffer, sizeof(buffer), nullptr, 119), OSTRAND_CODEC_ERR_PERF_VERSION);
  EXPECT_EQ(perf.dwVersion, 119u);
  buffer[3] = 79;
  EXPECT_EQ(perf.unpack(buffer, sizeof(buffer), nullptr, 119), 0);
}

}  // namespace
}  // namespace ostrand_protocol_cs
