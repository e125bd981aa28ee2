// What the service knows of one table that the application registered.
#pragma once

#include <cstdint>

#include "common/relaxed.h"
#include "vex/vex.h"

namespace OstrandService {

struct RegisterTableInfo {
  // Any other value of check_ret: the check is still to be made. The value given at registration.
  static constexpr int32_t kCheckPending = 1;
  static constexpr int32_t kCheckPassed = 0;
  static constexpr int32_t kCheckFailed = -18451;

  LPVEXMETA local_meta = nullptr;  // the application's schema, borrowed
  OstrandCommon::Relaxed<int32_t> check_ret = kCheckPending;
  OstrandCommon::Relaxed<int32_t> svr_table_type = 0;       // the server's table type
  OstrandCommon::Relaxed<int32_t> data_protocol_type = -1;  // 0 VEX, 1 PLAIN, 2 PB, -1 unknown
};

}  // namespace OstrandService
