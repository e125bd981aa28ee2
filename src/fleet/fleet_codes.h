// The result codes with which the fleet answers, declared once: name, code, text.
//
// The low byte of a code's absolute value names the module that speaks: 0x0D the store, 0x11 the
// proxy.
#pragma once

#include <cstdint>

namespace OstrandFleet {

#define OSTRAND_FLEET_CODES(X)                                                                \
  X(kRecordExists, -1293, "insert of a key that has a record")                                \
  X(kInvalidFieldName, -1549, "a field that the table does not have, or a key field twice")   \
  X(kInvalidFieldType, -2061, "a value whose size does not fit the field's type")             \
  X(kInvalidOperation, -3597, "a command whose body the protocol does not define")            \
  X(kInvalidIndex, -4109, "a list has no element at this index")                              \
  X(kListFull, -6157, "a list has as many elements as it may have")                           \
  X(kRecordMissing, -7949, "no record with this key")                                         \
  X(kStoreFull, -8205, "the store has used up its memory")                                    \
  X(kVersionMismatch, -9485, "the record has another version than the request names")         \
  X(kAnswerTooLarge, -9741, "the record does not fit into the answer any more")               \
  X(kCommandMismatch, -11277, "a list command on a table of records, or the other way round") \
  X(kLacksFields, -6929, "a key without all of the table's key fields")                       \
  X(kUnknownTable, -7185, "the zone has no such table")                                       \
  X(kAccessRefused, -9233, "wrong signature or password, or no sign-up before the request")

enum FleetCode : int32_t {
  kDone = 0,
#define OSTRAND_FLEET_CODE(name, code, text) name = (code),
  OSTRAND_FLEET_CODES(OSTRAND_FLEET_CODE)
#undef OSTRAND_FLEET_CODE
};

// Results with which sign-ups of a client that is too old or too new are refused.
constexpr int32_t kClientVersionTooLow = -6413;
constexpr int32_t kClientVersionTooHigh = -6669;

}  // namespace OstrandFleet
