// The directory's answer that tells an application its tables and a zone's proxies.
//
// Records of the wire: packed; fields in host order once they were received. Never bind a reference
// or a pointer to a number of theirs: they need not be aligned. A text that fills its row has no
// NUL.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrand_protocol_dir {

constexpr int MAX_SERVER_COUNT = 200;  // rows of the proxy arrays
constexpr int MAX_TABLE_COUNT = 256;   // rows of the table array

enum OstrdirCsCmd : uint16_t {
  OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_REQ = 106,
  OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES = 107,
};

#pragma pack(push, 1)
struct tagOstrdirCSHead {
  uint16_t wMagic;
  uint16_t wCmd;  // a value of OstrdirCsCmd
  int16_t nVersion;
  int16_t nHeadLen;
  int32_t iBodyLen;
  uint64_t ullAppID;
};

// Asks for the tables of an application and the proxies of a zone.
struct tagReqGetTablesAndAccess {
  int32_t iAppID;
  int32_t iZoneID;
  char szApiVersion[64];  // of the client library
};

// Settings that the directory hands to its clients, each 0 where the client is to keep its own. The
// service reads them, not the router.
struct tagConfData {
  int32_t iHeartbeatMs;
  int32_t iCheckHeartbeatMs;
  int32_t iJudgeThreshold;
  int32_t iJudgeCheckPeriod;  // seconds
  int32_t iJudgeCheckTimes;
  int32_t iRecheckInterval;  // seconds
  int32_t iMaxRemoveRate;    // per cent
  char szReserved[8272];
};

struct tagResGetTablesAndAccess {
  int32_t iResult;
  int32_t iSetID;
  char szSetName[64];
  int32_t iAppID;
  char szAppName[64];
  int32_t iZoneID;
  char szZoneName[64];
  int32_t iTableCount;
  char aszTableNameList[MAX_TABLE_COUNT][32];
  int32_t iAccessCount;  // proxies of the route; may say more than there are rows
  char aszAccessUrlList[MAX_SERVER_COUNT][64];
  char aszAccessIdList[MAX_SERVER_COUNT][32];  // row i belongs to url row i
  tagConfData stConfData;
};

union tagOStrdirCSBody {
  tagReqGetTablesAndAccess stReqGetTablesAndAccess;
  tagResGetTablesAndAccess stResGetTablesAndAccess;
};

struct tagOStrdirCSPkg {
  tagOstrdirCSHead stHead;
  tagOStrdirCSBody stBody;
};
#pragma pack(pop)

#define OSTRAND_AT(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), "record of the wire")
OSTRAND_AT(tagOstrdirCSHead, wMagic, 0);
OSTRAND_AT(tagOstrdirCSHead, wCmd, 2);
OSTRAND_AT(tagOstrdirCSHead, nVersion, 4);
OSTRAND_AT(tagOstrdirCSHead, nHeadLen, 6);
OSTRAND_AT(tagOstrdirCSHead, iBodyLen, 8);
OSTRAND_AT(tagOstrdirCSHead, ullAppID, 12);
static_assert(sizeof(tagOstrdirCSHead) == 20, "record of the wire");
OSTRAND_AT(tagResGetTablesAndAccess, iResult, 0);
OSTRAND_AT(tagResGetTablesAndAccess, iSetID, 4);
OSTRAND_AT(tagResGetTablesAndAccess, szSetName, 8);
OSTRAND_AT(tagResGetTablesAndAccess, iAppID, 72);
OSTRAND_AT(tagResGetTablesAndAccess, szAppName, 76);
OSTRAND_AT(tagResGetTablesAndAccess, iZoneID, 140);
OSTRAND_AT(tagResGetTablesAndAccess, szZoneName, 144);
OSTRAND_AT(tagResGetTablesAndAccess, iTableCount, 208);
OSTRAND_AT(tagResGetTablesAndAccess, aszTableNameList, 212);
OSTRAND_AT(tagResGetTablesAndAccess, iAccessCount, 8404);
OSTRAND_AT(tagResGetTablesAndAccess, aszAccessUrlList, 8408);
OSTRAND_AT(tagResGetTablesAndAccess, aszAccessIdList, 21208);
OSTRAND_AT(tagResGetTablesAndAccess, stConfData, 27608);
static_assert(sizeof(tagConfData) == 8300, "record of the wire");
static_assert(sizeof(tagResGetTablesAndAccess) == 35908, "record of the wire");
OSTRAND_AT(tagOStrdirCSPkg, stHead, 0);
OSTRAND_AT(tagOStrdirCSPkg, stBody, 20);
#undef OSTRAND_AT

}  // namespace ostrand_protocol_dir
