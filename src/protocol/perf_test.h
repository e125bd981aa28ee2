// The performance record: times that client, proxy and server stamp on a sampled request on its way
// there and back. It travels, packed, as raw bytes in the package's head.
//
// Threads: a plain record; whoever owns it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace ostrand_protocol_cs {

struct OSTRAND_API PerfTest {
  static constexpr size_t kPackedLen = 88;
  static constexpr uint32_t kBaseVersion = 79;      // the first version that has the record
  static constexpr uint32_t kCurrentVersion = 119;  // the version written

  // Microseconds since the epoch, 0 while nobody stamped them.
  uint32_t dwVersion;
  uint64_t ullApiSendTime;
  uint64_t ullProxyFrontForwardTime;
  uint64_t ullProxyEndForwardTime;
  uint64_t ullSvrArriveTime;
  uint64_t ullSvrMainForwardTime;
  uint64_t ullSvrWorkerRecvTime;
  uint64_t ullSvrWorkerSendTime;
  uint64_t ullProxyFrontBackwardTime;
  uint64_t ullProxyEndBackwardTime;
  uint64_t ullApiRecvTime;
  uint32_t dwProxyReqLen;  // bytes of the request as the proxy received it

  // The current version and zeros. Always 0.
  int construct();

  // Writes kPackedLen bytes, big-endian, in the order of the fields, and their number to `used`
  // (may be null). OSTRAND_CODEC_ERR_PERF_VERSION for a `version` or dwVersion below kBaseVersion,
  // OSTRAND_CODEC_ERR_PERF_LENGTH for a smaller buffer; then nothing is written.
  int pack(char* buffer, size_t capacity, size_t* used, uint32_t version) const;

  // Reads what pack wrote; bytes behind it are left alone. The codes are those of pack; after a
  // failure the record is unchanged.
  int unpack(const char* buffer, size_t len, size_t* used, uint32_t version);
};

typedef PerfTest PERFTEST;

}  // namespace ostrand_protocol_cs
