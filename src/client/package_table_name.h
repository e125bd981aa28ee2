// The table name of packages, for the adaptors of requests and responses. Threads: no state.
#pragma once

#include <cstddef>

#include "protocol/ostrand_protocol_cs.h"

namespace OstrandService {

// The table name of a package, null when it has none. len (may be null): without the NUL.
const char* TableNameOf(const ostrand_protocol_cs::OStrandRouterInfo& info, size_t* len);

// Sets the table name; null: none. The caller has seen that it fits, or takes the first 31
// characters of it.
void SetTableName(ostrand_protocol_cs::OStrandRouterInfo& info, const char* name);

}  // namespace OstrandService
