// Every field of a frame at its capacity and one above it.
#include <gtest/gtest.h>

#include <string>

#include "unit/protocol/package_kit.h"
#include "unit/protocol/raw_frame.h"

namespace ostrand_protocol_cs {
namespace {

// A frame with one field at its capacity, the same one byte or one entry above, and the code for
// it.
struct Bound {
  const char* name;
  RawFrame at;
  RawFrame above;
  int code;
};

RawFrame WithTableName(size_t len) {
  RawFrame frame(68);
  frame.table_name = NamedText(std::string(len, 't'));
  return frame;
}

RawFrame WithUserBuff(size_t len) {
  RawFrame frame(68);
  frame.user_buff = Counted(std::string(len, 'u'));
  return frame;
}

RawFrame WithKeyFields(uint32_t num) {
  RawFrame frame(68);
  frame.key_field_num = num;
  for (uint32_t i = 0; i < num; ++i) {
    frame.key_fields += RawField("k", "v");
  }
  return frame;
}

RawFrame WithKeyName(size_t len) {
  RawFrame frame(68);
  frame.key_field_num = 1;
  frame.key_fields = RawField(std::string(len, 'k'), "v");
  return frame;
}

RawFrame WithKeyValue(size_t len) {
  RawFrame frame(68);
  frame.key_field_num = 1;
  frame.key_fields = RawField("k", std::string(len, 'v'));
  return frame;
}

RawFrame WithSplitTableKey(size_t len) {
  RawFrame frame(68);
  frame.split_table_key = Counted(std::string(len, 's'));
  return frame;
}

RawFrame WithPerfTest(size_t len) {
  RawFrame frame(68);
  frame.perf_test = Counted(std::string(len, 'p'));
  return frame;
}

RawFrame WithImage(size_t len) {
  return RawFrame(28, U32(0) + U32(0) + U32(0) + Counted(std::string(len, 'i')));
}

RawFrame WithSignature(size_t len) {
  return RawFrame(51, NamedText(std::string(len, 's')) + BigEndian(0, 2) + U32(0) + U32(0));
}

RawFrame WithUserName(size_t len) {
  return RawFrame(51, U32(0) + BigEndian(0, 2) + NamedText(std::string(len, 'u')) + U32(0));
}

RawFrame WithPassword(size_t len) {
  return RawFrame(51, U32(0) + BigEndian(0, 2) + U32(0) + NamedText(std::string(len, 'p')));
}

RawFrame WithRecords(uint32_t cmd, uint32_t num) {
  std::string records;
  for (uint32_t i = 0; i < num; ++i) {
    records += RawRecord(0, 0, "");
  }
  return RawFrame(cmd, RawRecordsBody(num, records));
}

RawFrame WithRecordFields(uint32_t key_num, uint32_t value_num) {
  std::string fields;
  for (uint32_t i = 0; i < key_num + value_num; ++i) {
    fields += RawField("f", "v");
  }
  return RawFrame(23, RawRecordsBody(1, RawRecord(key_num, value_num, fields)));
}

RawFrame WithRecordField(uint32_t key_num, const std::string& field) {
  return RawFrame(23, RawRecordsBody(1, RawRecord(key_num, 1 - key_num, field)));
}

// Two values in one record, `len` bytes together.
RawFrame WithValues(size_t len) {
  const std::string fields = RawField("a", "x") + RawField("b", std::string(len - 1, 'y'));
  return RawFrame(1, RawRecordsBody(1, RawRecord(0, 2, fields)));
}

// Nine records that fill `len` bytes together.
RawFrame WithRecordsLen(size_t len) {
  constexpr size_t kFraming = 24 + 4 + 2 + 4;
  std::string records;
  for (int i = 0; i < 8; ++i) {
    records += RawRecord(0, 1, RawField("f", std::string(1000000, 'v')));
  }
  records += RawRecord(0, 1, RawField("f", std::string(len - records.size() - kFraming, 'v')));
  return RawFrame(145, RawRecordsBody(9, records));
}

RawFrame WithTTLRecords(uint32_t cmd, uint32_t num) {
  std::string body = U32(num);
  for (uint32_t i = 0; i < num; ++i) {
    switch (cmd) {
      case OSTRAND_API_SET_TTL_REQ: body += U32(0) + U32(0) + BigEndian(60000, 8); break;
      case OSTRAND_API_GET_TTL_REQ: body += U32(0) + U32(0); break;
      default: body += U32(0) + BigEndian(60000, 8); break;
    }
  }
  return RawFrame(cmd, body);
}

RawFrame WithTTLKeyFields(uint32_t num) {
  std::string body = U32(1) + U32(0) + U32(num);
  for (uint32_t i = 0; i < num; ++i) {
    body += RawField("k", "v");
  }
  return RawFrame(OSTRAND_API_GET_TTL_REQ, body);
}

TEST(CodecBounds, TakesEveryFieldAtItsCapacityAndRefusesItAbove) {
  const auto pkg = NewOStrandPkg();
  const std::string long_key(1024, 'k');
  const Bound bounds[] = {
      {"table name", WithTableName(31), WithTableName(32), OSTRAND_CODEC_ERR_TABLE_NAME},
      {"user buffer", WithUserBuff(1024), WithUserBuff(1025), OSTRAND_CODEC_ERR_USER_BUFF_LEN},
      {"key fields", WithKeyFields(8), WithKeyFields(9), OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
      {"key name", WithKeyName(31), WithKeyName(32), OSTRAND_CODEC_ERR_FIELD_NAME},
      {"key value", WithKeyValue(1024), WithKeyValue(1025), OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
      {"split table key", WithSplitTableKey(256), WithSplitTableKey(257),
       OSTRAND_CODEC_ERR_SPLIT_TABLE_KEY_LEN},
      {"performance record", WithPerfTest(256), WithPerfTest(257), OSTRAND_CODEC_ERR_PERF_TEST_LEN},
      {"schema image", WithImage(10485760), WithImage(10485761), OSTRAND_CODEC_ERR_IDL_LEN},
      {"signature", WithSignature(1023), WithSignature(1024), OSTRAND_CODEC_ERR_TEXT},
      {"user name", WithUserName(32), WithUserName(33), OSTRAND_CODEC_ERR_TEXT},
      {"password", WithPassword(127), WithPassword(128), OSTRAND_CODEC_ERR_TEXT},
      {"records of a get", WithRecords(8, 1), WithRecords(8, 2), OSTRAND_CODEC_ERR_RECORD_NUM},
      {"record keys", WithRecordFields(8, 0), WithRecordFields(9, 0),
       OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
      {"record values", WithRecordFields(1, 128), WithRecordFields(1, 129),
       OSTRAND_CODEC_ERR_VALUE_FIELD_NUM},
      {"record key value", WithRecordField(1, RawField("f", long_key)),
       WithRecordField(1, RawField("f", long_key + "k")), OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
      {"record field name", WithRecordField(0, RawField(std::string(31, 'f'), "")),
       WithRecordField(0, RawField(std::string(32, 'f'), "")), OSTRAND_CODEC_ERR_FIELD_NAME},
      {"values of a record", WithValues(1048576), WithValues(1048577), OSTRAND_CODEC_ERR_VALUE_LEN},
      {"records together", WithRecordsLen(8388608), WithRecordsLen(8388609),
       OSTRAND_CODEC_ERR_RECORDS_LEN},
      {"set-TTL records", WithTTLRecords(89, 1024), WithTTLRecords(89, 1025),
       OSTRAND_CODEC_ERR_RECORD_NUM},
      {"get-TTL records", WithTTLRecords(91, 1024), WithTTLRecords(91, 1025),
       OSTRAND_CODEC_ERR_RECORD_NUM},
      {"TTL answers", WithTTLRecords(92, 1024), WithTTLRecords(92, 1025),
       OSTRAND_CODEC_ERR_RECORD_NUM},
      {"key fields of a TTL record", WithTTLKeyFields(8), WithTTLKeyFields(9),
       OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
  };
  for (const Bound& bound : bounds) {
    EXPECT_EQ(Unpack(*pkg, bound.at.Bytes()), 0) << bound.name;
    EXPECT_EQ(Unpack(*pkg, bound.above.Bytes()), bound.code) << bound.name;
  }
}

}  // namespace
}  // namespace ostrand_protocol_cs
