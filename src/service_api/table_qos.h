// Error counters of one table, as the service registers them with the router.
//
// A record of the wire: packed, 354 bytes. Never bind a reference or a pointer to one of its
// fields: they are not aligned. A table name of 32 characters has no NUL.
#pragma once

#include <cstddef>
#include <cstdint>

namespace OstrandService {

#pragma pack(push, 1)
struct tagTableQos {
  char szTableName[32];  // key, together with the zone
  int32_t iZoneID;
  int16_t nAccessCount;       // connected proxies (kept in the first registered record only)
  uint32_t dwAccessErrCount;  // connection errors (kept in the first registered record only)
  uint32_t dwQueryErrCount;
  uint32_t dwInsertErrCount;
  uint32_t dwUpdateErrCount;
  uint32_t dwReplaceErrCount;
  uint32_t dwDeleteErrCount;
  int32_t iPackErrorCount;  // this and the next three: in the first registered record only
  int32_t iUnpackErrorCount;
  int32_t iSendErrorCount;
  int32_t iRecvErrorCount;
  int32_t iRounteErrorCount;
  int32_t iOtherErrorCount;
  int32_t iLastError;
  int32_t iMostError;
  int32_t iExceptError;
  char szMemo[256];
};
#pragma pack(pop)

static_assert(sizeof(tagTableQos) == 354, "record of the wire");
static_assert(offsetof(tagTableQos, szTableName) == 0, "record of the wire");
static_assert(offsetof(tagTableQos, iZoneID) == 32, "record of the wire");
static_assert(offsetof(tagTableQos, nAccessCount) == 36, "record of the wire");
static_assert(offsetof(tagTableQos, dwAccessErrCount) == 38, "record of the wire");
static_assert(offsetof(tagTableQos, dwQueryErrCount) == 42, "record of the wire");
static_assert(offsetof(tagTableQos, dwInsertErrCount) == 46, "record of the wire");
static_assert(offsetof(tagTableQos, dwUpdateErrCount) == 50, "record of the wire");
static_assert(offsetof(tagTableQos, dwReplaceErrCount) == 54, "record of the wire");
static_assert(offsetof(tagTableQos, dwDeleteErrCount) == 58, "record of the wire");
static_assert(offsetof(tagTableQos, iPackErrorCount) == 62, "record of the wire");
static_assert(offsetof(tagTableQos, iUnpackErrorCount) == 66, "record of the wire");
static_assert(offsetof(tagTableQos, iSendErrorCount) == 70, "record of the wire");
static_assert(offsetof(tagTableQos, iRecvErrorCount) == 74, "record of the wire");
static_assert(offsetof(tagTableQos, iRounteErrorCount) == 78, "record of the wire");
static_assert(offsetof(tagTableQos, iOtherErrorCount) == 82, "record of the wire");
static_assert(offsetof(tagTableQos, iLastError) == 86, "record of the wire");
static_assert(offsetof(tagTableQos, iMostError) == 90, "record of the wire");
static_assert(offsetof(tagTableQos, iExceptError) == 94, "record of the wire");
static_assert(offsetof(tagTableQos, szMemo) == 98, "record of the wire");

// A signed counter after one more event, or one less; it wraps.
inline int32_t CountOn(int32_t counter, int32_t events = 1) {
  return static_cast<int32_t>(static_cast<uint32_t>(counter) + static_cast<uint32_t>(events));
}

}  // namespace OstrandService
