// The package of the conversation between client and proxy: a head and, chosen by the head's
// command, a body. docs/protocol.md describes its bytes on the wire.
//
// Size: a package is over 10 MiB, since its body has room for the largest schema image. It never
// stands on a stack and is never cleared or copied whole: construct() and the codec touch what the
// command and the frame need. What they do not touch holds older bytes.
// Ownership: plain records that own nothing and point at nothing.
// Threads: none inside; a package belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/export.h"
#include "protocol/ostrand_api_cmds.h"
#include "protocol/record_buffer.h"
#include "protocol/record_decode_helper.h"

namespace ostrand_protocol_cs {

constexpr uint16_t OSTRAND_PKG_MAGIC = 0x4F54;
constexpr uint16_t OSTRAND_PKG_CURRENT_VERSION = 127;
constexpr int OSTRAND_PKG_PERF_TEST_VERSION = 79;  // the first version with a performance record

constexpr size_t OSTRAND_MAX_TABLE_NAME_LEN = 32;  // with its NUL
constexpr size_t OSTRAND_MAX_USER_BUFF_LEN = 1024;
constexpr size_t OSTRAND_MAX_SPLIT_TABLE_KEY_BUFF_LEN = 256;
constexpr size_t OSTRAND_MAX_PERF_TEST_LEN = 256;
constexpr size_t OSTRAND_MAX_IDL_CONTENT_LEN = 10485760;
constexpr size_t OSTRAND_MAX_TTL_RECORD_NUM = 1024;
constexpr size_t OSTRAND_TTL_ENTRY_LEN = 12;  // on the wire, of an answer: result and milliseconds

// Which table of which application the package is about.
struct OStrandRouterInfo {
  int32_t iAppID;
  int32_t iZoneID;
  int32_t iShardID;
  uint32_t dwTableNameLen;  // with the NUL; 0 for no name
  char szTableName[OSTRAND_MAX_TABLE_NAME_LEN];
};

struct OSTRAND_API OStrandPkgHead {
  uint16_t wMagic;
  uint16_t wVersion;   // the version whose fields the frame carries
  uint32_t dwHeadLen;  // bytes of the packed head; set by unpacking, computed anew by packing
  uint32_t dwBodyLen;  // bytes of the packed body; as dwHeadLen
  uint64_t ullAsynID;  // the caller's, handed back in the answer
  int32_t iSeq;        // the caller's, handed back in the answer
  uint32_t dwCmd;      // a value of OStrandApiCmds
  int32_t iFlags;
  OStrandRouterInfo stRouterInfo;
  uint32_t dwUserBuffLen;
  char szUserBuff[OSTRAND_MAX_USER_BUFF_LEN];  // raw bytes; a NUL behind them where there is room
  OStrandKeySet stKeyInfo;                     // the key of commands that are about one record
  int32_t iVexMetaVersion;                     // the sender's schema version of the table
  uint8_t bReqBodyCompressType;                // 0: not compressed, the only type
  uint8_t bRespBodyCompressType;               // as above, what the answer may use
  uint32_t dwSplitTableKeyBuffLen;
  char szSplitTableKeyBuff[OSTRAND_MAX_SPLIT_TABLE_KEY_BUFF_LEN];  // raw bytes
  int32_t iResult;         // of an answer: 0 or the error's code
  uint32_t dwSubCmd;       // of an answer in several packages: the package's number, from 0
  uint32_t dwPerfTestLen;  // 0: not sampled
  char szPerfTest[OSTRAND_MAX_PERF_TEST_LEN];  // a packed PerfTest

  // Magic, current version, versions of key and schema -1 (unknown), all else 0 or empty. Touches
  // the buffers' first bytes only. Always 0.
  int construct();
};

// Signs an application up on a new connection: by signature, or by user name and password.
struct OStrandAppSignupReq {
  char szSignature[1024];
  int16_t nType;  // of the signature
  char szUserName[33];
  char szPasswordMd5[128];
};

struct OStrandAppSignupRes {
  int32_t iResult;  // told twice: the head's iResult is the verdict
};

struct OStrandHeartBeatReq {
  int64_t tCurTime;     // the sender's time in the schema library's form
  int64_t llApiTimeUs;  // the sender's time, microseconds since the epoch
};

struct OStrandHeartBeatRes {
  int64_t tCurTime;
  int64_t llApiTimeUs;    // the request's, echoed
  int64_t llProxyTimeUs;  // the proxy's time, microseconds since the epoch
};

struct OStrandMetadataGetReq {
  uint32_t dwMetadataVersion;  // 0: whatever the proxy has
};

struct OStrandMetadataGetRes {
  uint32_t dwOstrandType;  // of the table
  int32_t iVexMetaCurrentVersion;
  int32_t iIdlType;
  int32_t iIdlConLen;  // never negative after decoding
  char szIdlContent[OSTRAND_MAX_IDL_CONTENT_LEN];
};

// One package of an answer that may come in several.
struct OStrandMultiPkgRes {
  int32_t iResult;
  uint8_t bHasMorePkgs;  // not 0: further packages of this answer follow
  OStrandRecords stRecords;
};

// TTLs are counted in milliseconds from the moment the server takes the request; negative: the
// record does not expire.
struct OStrandSetTTLReq {
  uint32_t dwRecordNum;
  OStrandKeySet astKeyInfo[OSTRAND_MAX_TTL_RECORD_NUM];
  int64_t allTTLMs[OSTRAND_MAX_TTL_RECORD_NUM];
};

struct OStrandGetTTLReq {
  uint32_t dwRecordNum;
  OStrandKeySet astKeyInfo[OSTRAND_MAX_TTL_RECORD_NUM];
};

struct OStrandRecordTTL {
  int32_t iResult;
  int64_t llTTLMs;
};

// The answer to both: one entry a record, in the order of the request.
struct OStrandTTLRes {
  uint32_t dwRecordNum;
  OStrandRecordTTL astRecordTTL[OSTRAND_MAX_TTL_RECORD_NUM];
};

struct OSTRAND_API OStrandPkgBody {
  union {
    OStrandAppSignupReq stAppSignupReq;      // 51
    OStrandAppSignupRes stAppSignupRes;      // 52
    OStrandHeartBeatReq stHeartBeatReq;      // 53
    OStrandHeartBeatRes stHeartBeatRes;      // 54
    OStrandMetadataGetReq stMetadataGetReq;  // 27
    OStrandMetadataGetRes stMetadataGetRes;  // 28
    OStrandRecords stRecords;                // every other table operation, both directions
    OStrandMultiPkgRes stListGetAllRes;      // 12
    OStrandMultiPkgRes stGetByPartKeyRes;    // 26
    OStrandSetTTLReq stSetTTLReq;            // 89
    OStrandGetTTLReq stGetTTLReq;            // 91
    OStrandTTLRes stTTLRes;                  // 90, 92
  };

  // Empties the record that the command carries: numbers 0, texts and arrays empty. 0, or
  // OSTRAND_CODEC_ERR_COMMAND for a code that is not a command; then nothing is touched.
  int construct(int64_t cmd);
};

struct OSTRAND_API OStrandPkg {
  OStrandPkgHead stHead;
  OStrandPkgBody stBody;

  OStrandPkg() { stHead.construct(); }  // the body has no meaning before construct or unpacking
  OStrandPkg(const OStrandPkg&) = delete;
  OStrandPkg& operator=(const OStrandPkg&) = delete;

  // Renders head and body as text: one "name: value" an item, `separator` behind each, `indent`
  // times two blanks before it; bytes that are not printable stand as \xNN, long values are cut.
  // out: always terminated when cap > 0. used (may be null): the text's length without the NUL.
  // 0; OSTRAND_CODEC_ERR_ARGUMENT without room for a NUL; OSTRAND_CODEC_ERR_BUFFER_FULL when the
  // text was cut.
  int visualize(char* out, size_t cap, size_t* used, int indent, char separator) const;
};

// A package on the heap with a constructed head; null without memory.
OSTRAND_API std::unique_ptr<OStrandPkg> NewOStrandPkg();

}  // namespace ostrand_protocol_cs
