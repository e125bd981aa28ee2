// The codec's error codes, declared once: name, code, text.
//
// The low byte of a code's absolute value is 0x13, the client library's module; the codec has the
// numbers 0x60 to 0x7F above it.
#pragma once

#include "common/export.h"

namespace ostrand_protocol_cs {

#define OSTRAND_CODEC_ERRORS(X)                                                                  \
  X(ARGUMENT, 0x60, "null pointer or a buffer without a byte")                                   \
  X(BUFFER_FULL, 0x61, "the output does not fit into the buffer")                                \
  X(FRAME_SHORT, 0x62, "frame shorter than the fixed part of a head")                            \
  X(MAGIC, 0x63, "frame begins with a wrong magic")                                              \
  X(HEAD_LEN, 0x64, "head length below the fixed part of a head")                                \
  X(FRAME_LEN, 0x65, "head and body length do not add up to the frame")                          \
  X(HEAD_TRUNCATED, 0x66, "head ends within a field")                                            \
  X(BODY_TRUNCATED, 0x67, "body ends within a field")                                            \
  X(BODY_TRAILING, 0x68, "bytes behind the last field of the body")                              \
  X(COMMAND, 0x69, "unknown command")                                                            \
  X(COMPRESSION, 0x6A, "unknown compression type")                                               \
  X(TEXT, 0x6B, "text too long, without NUL at its end, or with a NUL before it")                \
  X(TABLE_NAME, 0x6C, "table name too long")                                                     \
  X(USER_BUFF_LEN, 0x6D, "user buffer too long")                                                 \
  X(KEY_FIELD_NUM, 0x6E, "too many key fields")                                                  \
  X(KEY_FIELD_LEN, 0x6F, "key value too long")                                                   \
  X(FIELD_NAME, 0x70, "field name empty or too long")                                            \
  X(SPLIT_TABLE_KEY_LEN, 0x71, "split table key too long")                                       \
  X(PERF_TEST_LEN, 0x72, "performance record in the head too long")                              \
  X(IDL_LEN, 0x73, "schema image too long or of negative length")                                \
  X(RECORD_NUM, 0x74, "more records than the command may carry")                                 \
  X(RECORDS_LEN, 0x75, "records too long together")                                              \
  X(RECORD_LEN, 0x76, "record's length does not agree with its fields")                          \
  X(RECORD_ORDER, 0x77, "field added before a record was begun, or key field after value field") \
  X(VALUE_FIELD_NUM, 0x78, "too many value fields in a record")                                  \
  X(VALUE_LEN, 0x79, "values of a record too long")                                              \
  X(PERF_VERSION, 0x7A, "performance record of a version that has none")                         \
  X(PERF_LENGTH, 0x7B, "performance record shorter than its fields")                             \
  X(VERSION, 0x7C, "protocol version is negative")                                               \
  X(NO_FIELD, 0x7D, "no field of this name")                                                     \
  X(FIELD_WIDTH, 0x7E, "the field's bytes are not as many as the type has")

// OSTRAND_CODEC_ERR_<name>, all negative.
enum OStrandCodecError : int {
#define OSTRAND_CODEC_ENUMERATOR(name, number, text) \
  OSTRAND_CODEC_ERR_##name = -(((number) << 8) | 0x13),
  OSTRAND_CODEC_ERRORS(OSTRAND_CODEC_ENUMERATOR)
#undef OSTRAND_CODEC_ENUMERATOR
};

// The text of a code; "success" for 0, null for a code that is not the codec's.
OSTRAND_API const char* CodecErrorText(int code);

}  // namespace ostrand_protocol_cs
