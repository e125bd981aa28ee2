// Sorts command codes into reads and writes, and these into simple and complex ones.
//
// A simple command has one request and one response on one record; availability is judged and
// performance sampled on those alone. Everything else that reads or writes counts as complex or
// transactional. The router's own packages and codes nobody knows are in no class.
//
// A response has the class of its request: for every code c, IsX...Request(c) equals
// IsX...Response(c + 1). `sub_cmd` is taken for callers that have one and changes nothing.
// Threads: no state, callable from any; each question is one look into a table.
#pragma once

#include <cstdint>

#include "common/export.h"

namespace OstrandCommon {

class OSTRAND_API OstrandReqRespUtil {
 public:
  OstrandReqRespUtil() = delete;

  static bool IsReadRequest(uint32_t cmd, uint32_t sub_cmd);
  static bool IsWriteRequest(uint32_t cmd, uint32_t sub_cmd);
  static bool IsSimpleReadRequest(uint32_t cmd, uint32_t sub_cmd);
  static bool IsSimpleWriteRequest(uint32_t cmd, uint32_t sub_cmd);

  static bool IsReadResponse(uint32_t cmd, uint32_t sub_cmd);
  static bool IsWriteResponse(uint32_t cmd, uint32_t sub_cmd);
  static bool IsSimpleReadResponse(uint32_t cmd, uint32_t sub_cmd);
  static bool IsSimpleWriteResponse(uint32_t cmd, uint32_t sub_cmd);
  static bool IsComplexAndTransReadRsp(uint32_t cmd, uint32_t sub_cmd);
  static bool IsComplexAndTransWriteRsp(uint32_t cmd, uint32_t sub_cmd);

  // Whether a response's negative result is one that healthy applications cause: counted as a
  // warning, not as an error.
  static bool ShouldRegardErrorToWarn(int code);
};

}  // namespace OstrandCommon
