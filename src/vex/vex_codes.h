// The result codes of the schema library: 0 success, negative failure. Each is listed once, with
// its number and the text that a user may be shown.
//
// Numbers are stable: they end up in logs and in the service's last error text. New ones go behind
// the last of their range.
#pragma once

#include "common/export.h"

// clang-format off
#define VEX_CODES(X)                                                                              \
  X(kVexOk, 0, "success")                                                                         \
  /* Loading and writing an image, checking a schema. */                                          \
  X(kVexInvalidArgument, -1, "null pointer or negative length")                                   \
  X(kVexTruncated, -2, "fewer bytes than the schema image says it has")                           \
  X(kVexBadMagic, -3, "not a schema image")                                                       \
  X(kVexBadFormat, -4, "format version of the schema image not known")                            \
  X(kVexBadLength, -5, "lengths and counts of the schema image do not add up to its size")        \
  X(kVexBadChecksum, -6, "checksum of the schema image wrong")                                    \
  X(kVexImageTooLarge, -7, "schema image too large")                                              \
  X(kVexTooManyTables, -8, "too many tables in the schema library")                               \
  X(kVexBadName, -9, "name of a table or field empty, too long, or with a NUL in it")             \
  X(kVexBadAttribute, -10, "customattr2 of a table too long, or with a NUL in it")                \
  X(kVexBadVersion, -11, "version negative, or a field newer than its table")                     \
  X(kVexTooManyKeyFields, -12, "too many key fields in a table")                                  \
  X(kVexTooManyValueFields, -13, "too many value fields in a table")                              \
  X(kVexBadFieldType, -14, "type of a field not known")                                           \
  X(kVexBadFieldSize, -15, "size of a field does not fit its type or its place")                  \
  X(kVexDuplicateTable, -16, "two tables of one name")                                            \
  X(kVexDuplicateField, -17, "two fields of one name in a table")                                 \
  X(kVexNoMemory, -18, "out of memory")                                                           \
  X(kVexBadDateTime, -19, "not a date and time")                                                  \
  /* Comparing the value fields of two schemas of a table. */                                     \
  X(kVexNoLocalMeta, -101, "no local schema to compare")                                          \
  X(kVexNoServerMeta, -102, "no server schema to compare")                                        \
  X(kVexDiffFieldMissing, -103, "server has no value field of that name")                        \
  X(kVexDiffFieldOrder, -104, "server has a value field at another place")                        \
  X(kVexDiffFieldType, -105, "types of a value field differ")                                     \
  X(kVexDiffFieldSize, -106, "sizes of a value field differ")                                     \
  X(kVexDiffServerShorter, -107, "server lacks the last value fields")                            \
  X(kVexDiffServerLonger, -108, "server has more value fields, yet is of no newer version")
// clang-format on

enum VexCode : int {
#define VEX_CODE_ENUMERATOR(name, number, text) name = number,
  VEX_CODES(VEX_CODE_ENUMERATOR)
#undef VEX_CODE_ENUMERATOR
};

// The text of a code; "unknown code" for a number that is none. Static storage, any thread.
OSTRAND_API const char* vex_code_text(int code);
