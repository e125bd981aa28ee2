// The commands of the conversation between client and proxy, declared once.
//
// Every row is one request and its answer; the answer's code is the request's + 1. The enum, the
// names and the choice of the body record all come from this list.
#pragma once

#include <cstdint>

#include "common/export.h"

namespace ostrand_protocol_cs {

// X(name, request code, body of the request, body of the answer); the bodies are values of
// BodyKind.
//
// kRecord holds at most one record, kRecords any number. Commands with kSkipped have no body record
// here: their codes are known, so that they are routed, classed and counted.
#define OSTRAND_API_COMMANDS(X)                                                           \
  /* one record, its key in the head */                                                   \
  X(INSERT, 1, kRecord, kRecord)                                                          \
  X(REPLACE, 3, kRecord, kRecord)                                                         \
  X(UPDATE, 5, kRecord, kRecord)                                                          \
  X(GET, 7, kRecord, kRecord)                                                             \
  X(DELETE, 9, kRecord, kRecord)                                                          \
  /* the elements of one list record */                                                   \
  X(LIST_GETALL, 11, kRecord, kListGetAllRes)                                             \
  X(LIST_DELETE, 13, kRecords, kRecords)                                                  \
  X(LIST_GET, 15, kRecords, kRecords)                                                     \
  X(LIST_INSERT, 17, kRecords, kRecords)                                                  \
  X(LIST_DELETE_ALL, 19, kRecord, kRecord)                                                \
  X(LIST_UPDATE, 21, kRecords, kRecords)                                                  \
  /* many records */                                                                      \
  X(BATCH_GET, 23, kRecords, kRecords)                                                    \
  X(GET_BY_PARTKEY, 25, kRecord, kGetByPartKeyRes)                                        \
  /* the schema of a table */                                                             \
  X(METADATA_GET, 27, kMetadataGetReq, kMetadataGetRes)                                   \
  /* a simple write that counts as an update of fields */                                 \
  X(FIELD_UPDATE, 29, kSkipped, kSkipped)                                                 \
  /* a connection's own conversation */                                                   \
  X(APP_SIGNUP, 51, kAppSignupReq, kAppSignupRes)                                         \
  X(HEART_BEAT, 53, kHeartBeatReq, kHeartBeatRes)                                         \
  X(DELETE_BY_PARTKEY, 65, kRecord, kRecords)                                             \
  /* the proxy's notice that it is about to stop: the request comes from the proxy */     \
  X(NOTIFY_STOP, 67, kNothing, kNothing)                                                  \
  /* some fields of one record */                                                         \
  X(PB_FIELD_GET, 83, kSkipped, kSkipped)                                                 \
  X(SET_TTL, 89, kSetTTLReq, kTTLRes)                                                     \
  X(GET_TTL, 91, kGetTTLReq, kTTLRes)                                                     \
  /* some fields of many records */                                                       \
  X(PB_BATCH_FIELD_GET, 117, kSkipped, kSkipped)                                          \
  X(SQL, 129, kSkipped, kSkipped)                                                         \
  X(BATCH_INSERT, 145, kRecords, kRecords)                                                \
  X(BATCH_REPLACE, 147, kRecords, kRecords)                                               \
  X(BATCH_UPDATE, 149, kRecords, kRecords)                                                \
  X(BATCH_DELETE, 151, kRecords, kRecords)                                                \
  /* a second family of simple commands, named for their class alone */                   \
  X(SIMPLE_GET, 153, kSkipped, kSkipped)                                                  \
  X(SIMPLE_INSERT, 155, kSkipped, kSkipped)                                               \
  X(SIMPLE_UPDATE, 157, kSkipped, kSkipped)                                               \
  /* complex and transactional commands, each kind once for records and once for lists */ \
  X(COMPLEX_REPLACE, 4215, kSkipped, kSkipped)                                            \
  X(COMPLEX_LIST_REPLACE, 4217, kSkipped, kSkipped)                                       \
  X(COMPLEX_UPDATE, 4221, kSkipped, kSkipped)                                             \
  X(COMPLEX_LIST_UPDATE, 4223, kSkipped, kSkipped)                                        \
  X(QUERY, 4225, kSkipped, kSkipped)                                                      \
  X(LIST_QUERY, 4227, kSkipped, kSkipped)                                                 \
  X(SQL_EXECUTE, 4233, kSkipped, kSkipped)                                                \
  X(COMPLEX_QUERY, 4239, kSkipped, kSkipped)

// OSTRAND_API_<name>_REQ and OSTRAND_API_<name>_RES for every row.
enum OStrandApiCmds : uint32_t {
#define OSTRAND_API_ENUMERATORS(name, code, request_body, response_body) \
  OSTRAND_API_##name##_REQ = (code), OSTRAND_API_##name##_RES = (code) + 1,
  OSTRAND_API_COMMANDS(OSTRAND_API_ENUMERATORS)
#undef OSTRAND_API_ENUMERATORS
};

// Which record of the body union a command carries.
enum class BodyKind : uint8_t {
  kUnknown,  // not a command of the list
  kNothing,  // no body: its length is 0
  kSkipped,  // no body record: packed empty, the bytes of a received one are skipped
  kAppSignupReq,
  kAppSignupRes,
  kHeartBeatReq,
  kHeartBeatRes,
  kMetadataGetReq,
  kMetadataGetRes,
  kRecord,
  kRecords,
  kListGetAllRes,
  kGetByPartKeyRes,
  kSetTTLReq,
  kGetTTLReq,
  kTTLRes,
};

// The body record of a command; kUnknown for a code that is not in the list.
OSTRAND_API BodyKind BodyKindOfCmd(int64_t cmd);

// "OSTRAND_API_GET_REQ" and the like; "unknown" for a code that is not in the list.
OSTRAND_API const char* NameOfCmd(int64_t cmd);

}  // namespace ostrand_protocol_cs
