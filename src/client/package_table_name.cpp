#include "client/package_table_name.h"

#include <cstring>

#include "client/bounded_copy.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: records

const char* TableNameOf(const OStrandRouterInfo& info, size_t* len) {
  const bool has_name = info.dwTableNameLen > 0;
  if (len != nullptr) {
    *len = has_name ? info.dwTableNameLen - 1 : 0;
  }
  return has_name ? info.szTableName : nullptr;
}

void SetTableName(OStrandRouterInfo& info, const char* name) {
  CopyBounded(info.szTableName, name);
  info.dwTableNameLen =
      name != nullptr ? static_cast<uint32_t>(std::strlen(info.szTableName)) + 1 : 0;
}

}  // namespace OstrandService
