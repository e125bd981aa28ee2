// Error codes of the runtime's parts (requests, in-flight table, statistics), declared once: name,
// number, text. The Client's own codes stand in client.h.
//
// The low byte of a code's absolute value is 0x13, the client library's module; these have the
// numbers 0xA0 to 0xAF above it.
#pragma once

namespace OstrandService {

#define OSTRAND_RUNTIME_ERRORS(X)                                                               \
  X(IN_FLIGHT_FULL, 0xA0, "as many requests are in flight as there may be")                     \
  X(STATISTICS_FULL, 0xA1, "no room for another zone, table or proxy in the statistics")        \
  X(NOT_REGISTERED, 0xA2, "application and zone are not registered in the statistics")          \
  X(DUPLICATE_FIELD, 0xA3, "a record has a field of this name already")                         \
  X(BODY_KIND, 0xA4, "the command has no place for this: no record, no further record, no TTL") \
  X(NO_RECORD, 0xA5, "a field was added before its record was begun")                           \
  X(VALUE_RANGE, 0xA6, "a number is out of the range of its field's type")                      \
  X(FIELD_TYPE, 0xA7, "a value is not of its field's type in the schema, or longer")

// RUNTIME_ERR_<name>, all negative.
enum RuntimeError : int {
#define OSTRAND_RUNTIME_ENUMERATOR(name, number, text) \
  RUNTIME_ERR_##name = -(((number) << 8) | 0x13),
  OSTRAND_RUNTIME_ERRORS(OSTRAND_RUNTIME_ENUMERATOR)
#undef OSTRAND_RUNTIME_ENUMERATOR
};

}  // namespace OstrandService
