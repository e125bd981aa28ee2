// One response, as the router fills it.
//
// Ownership: the application's; the router borrows it for one call.
// Threads: the application's thread, GetPkgLen excepted (any thread).
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace ostrand_protocol_cs {
struct OStrandPkg;
}

namespace OstrandService {

class OSTRAND_API OstrandServiceResponse {
 public:
  // The largest frame: head and body. It admits the largest schema image.
  static constexpr int64_t kMaxPkgLen = int64_t{16} * 1024 * 1024;
  // A frame head that is not one: wrong magic, a head shorter than its fixed part, or a frame
  // longer than kMaxPkgLen.
  static constexpr int kErrBadFrameHead = -15379;  // 0xFFFFC3ED

  virtual ~OstrandServiceResponse() = default;

  // The length of the frame that begins at `data`: 0 while fewer than 12 bytes are there (the
  // fields that tell it) or data is null, kErrBadFrameHead when no frame begins like this.
  static int GetPkgLen(const char* data, size_t len);

  // The user buffer of the package: null or empty when there is none.
  virtual const char* GetPkgUserBuff(size_t* len) = 0;

  // The user buffer of the response: what SetUserBuff put there, else the package's.
  virtual const char* GetUserBuff(size_t* len) = 0;

  // Copies a user buffer into the response. 0, or a negative code.
  virtual int SetUserBuff(const char* buffer, unsigned int len) = 0;

  // Hands out the package, null when there is none. It is the response's own storage, which the
  // router changes in place (it strips the routing context, it sets the result). 0, or negative.
  virtual int GetOstrandPackagePtr(const ostrand_protocol_cs::OStrandPkg*& pkg) = 0;

  virtual uint32_t GetCmd() const = 0;
  virtual uint32_t GetSubCmd() const = 0;
  virtual int32_t GetResult() const = 0;
  // Null or empty when the answer belongs to no table. len may be null.
  virtual const char* GetTableName(size_t* len) const = 0;
  virtual int32_t GetZoneId() const = 0;
  virtual int32_t GetSequence() const = 0;
  virtual uint64_t GetAsynID() const = 0;
  // The packed performance record; null or empty when there is none.
  virtual const char* GetPerfTest(size_t* len) const = 0;

  // 1 when more packages of the same answer follow, else 0.
  virtual int HaveMoreResPkgs() = 0;

  // Decodes a whole frame; the bytes are copied. 0, or a negative code.
  virtual int Unpack(const char* data, size_t len) = 0;

  // Makes this the answer to a request that got none in time. Everything is copied; user_buffer may
  // be null. 0, or a negative code.
  virtual int BuildTimeOutRes(int64_t app_id, int32_t zone_id, const char* table_name,
                              uint32_t resp_cmd, const char* user_buffer, uint32_t user_buffer_len,
                              uint64_t async_id, int32_t seq) = 0;
};

}  // namespace OstrandService
