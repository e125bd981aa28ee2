// Operations on decoded records.
#pragma once

#include "common/export.h"
#include "protocol/key_set.h"

namespace ostrand_protocol_cs {

class OSTRAND_API CTRecordDecodeHelper {
 public:
  // Copies a key set: version, count and, of each field, its name and used bytes. A count or length
  // over its capacity is read as the capacity. Source and destination may be the same.
  static void CopyKeySet(OStrandKeySet& dst, const OStrandKeySet& src);
};

}  // namespace ostrand_protocol_cs
