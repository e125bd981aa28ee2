// One request of the application, as the router sends it.
//
// Ownership: the application's; the router borrows it for one call.
// Threads: the application's thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace ostrand_protocol_cs {
struct OStrandPkg;
}

namespace OstrandService {

class OSTRAND_API OstrandServiceRequest {
 public:
  virtual ~OstrandServiceRequest() = default;

  // Null when no table name was set. len (may be null): its length without the NUL.
  virtual const char* GetTableName(size_t* len) const = 0;
  virtual int32_t GetZoneId() const = 0;
  virtual uint32_t GetCmd() const = 0;
  virtual uint32_t GetSubCmd() const = 0;

  // Index of the request's table in the statistics record; may lie outside it.
  virtual int32_t GetTableSubscript() const = 0;

  // The request's own user-buffer storage and the number of bytes that the user put there. Never
  // null; behind the user's bytes there is room for 14 more.
  virtual char* GetUserBuff(size_t* len) = 0;

  // Copies the user buffer that travels into the package. 0, or a negative code.
  virtual int SetPkgUserBuff(const char* buffer, size_t len) = 0;

  virtual int32_t GetSequence() const = 0;
  virtual uint64_t GetAsynID() const = 0;

  // Renders the request as text, NUL-terminated, cut to `size`. 0, or a negative code.
  virtual int Print(char* buffer, size_t size) = 0;

  // Packs the request. len: capacity in, packed length out. 0, or a negative code.
  virtual int Pack(char* buffer, size_t& len) = 0;

  // Copies a packed performance record into the package; (null, 0) clears it. 0, or a negative
  // code.
  virtual int SetPerfTest(const char* buffer, size_t len) = 0;

  // The package itself, read and (its key set) sorted in place by the routing; null when none.
  virtual ostrand_protocol_cs::OStrandPkg* GetPkg() = 0;

  int32_t timeout_ms = 0;  // how long the answer may take
  size_t net_size = 0;     // bytes that went out; set after the request was queued
};

}  // namespace OstrandService
