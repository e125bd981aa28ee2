#include "protocol/record_decode_helper.h"

#include <algorithm>
#include <cstring>

namespace ostrand_protocol_cs {

void CTRecordDecodeHelper::CopyKeySet(OStrandKeySet& dst, const OStrandKeySet& src) {
  if (&dst == &src) {
    return;
  }
  dst.iVersion = src.iVersion;
  dst.dwFieldNum = std::min(src.dwFieldNum, static_cast<uint32_t>(OSTRAND_MAX_KEY_FIELD_NUM));
  for (uint32_t i = 0; i < dst.dwFieldNum; ++i) {
    const OStrandKeyField& from = src.astFields[i];
    OStrandKeyField& to = dst.astFields[i];
    std::memcpy(to.szFieldName, from.szFieldName, sizeof(to.szFieldName));
    to.dwFieldLen = std::min(from.dwFieldLen, static_cast<uint32_t>(OSTRAND_MAX_KEY_FIELD_LEN));
    std::memcpy(to.szFieldBuff, from.szFieldBuff, to.dwFieldLen);
  }
}

}  // namespace ostrand_protocol_cs
