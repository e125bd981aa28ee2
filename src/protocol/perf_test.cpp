#include "protocol/perf_test.h"

#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"

namespace ostrand_protocol_cs {
namespace {

// The stamps in their order on the wire.
constexpr uint64_t PerfTest::*kStamps[] = {
    &PerfTest::ullApiSendTime,          &PerfTest::ullProxyFrontForwardTime,
    &PerfTest::ullProxyEndForwardTime,  &PerfTest::ullSvrArriveTime,
    &PerfTest::ullSvrMainForwardTime,   &PerfTest::ullSvrWorkerRecvTime,
    &PerfTest::ullSvrWorkerSendTime,    &PerfTest::ullProxyFrontBackwardTime,
    &PerfTest::ullProxyEndBackwardTime, &PerfTest::ullApiRecvTime,
};

}  // namespace

int PerfTest::construct() {
  *this = PerfTest();
  dwVersion = kCurrentVersion;
  return 0;
}

int PerfTest::pack(char* buffer, size_t capacity, size_t* used, uint32_t version) const {
  if (buffer == nullptr) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  if (version < kBaseVersion || dwVersion < kBaseVersion) {
    return OSTRAND_CODEC_ERR_PERF_VERSION;
  }
  if (capacity < kPackedLen) {
    return OSTRAND_CODEC_ERR_PERF_LENGTH;
  }
  ByteWriter out(buffer, kPackedLen);
  out.Put(dwVersion);
  for (const auto stamp : kStamps) {
    out.Put(this->*stamp);
  }
  out.Put(dwProxyReqLen);
  if (used != nullptr) {
    *used = kPackedLen;
  }
  return 0;
}

int PerfTest::unpack(const char* buffer, size_t len, size_t* used, uint32_t version) {
  if (buffer == nullptr) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  if (version < kBaseVersion) {
    return OSTRAND_CODEC_ERR_PERF_VERSION;
  }
  if (len < kPackedLen) {
    return OSTRAND_CODEC_ERR_PERF_LENGTH;
  }
  ByteReader in(buffer, kPackedLen, OSTRAND_CODEC_ERR_PERF_LENGTH);
  uint32_t record_version = 0;
  in.Get(record_version);
  if (record_version < kBaseVersion) {
    return OSTRAND_CODEC_ERR_PERF_VERSION;
  }
  dwVersion = record_version;
  for (const auto stamp : kStamps) {
    in.Get(this->*stamp);
  }
  in.Get(dwProxyReqLen);
  if (used != nullptr) {
    *used = kPackedLen;
  }
  return 0;
}

}  // namespace ostrand_protocol_cs
