#include "protocol/byte_reader.h"
#include "protocol/record_buffer.h"

namespace ostrand_protocol_cs {
namespace {

// Passes over one field and answers its value's length.
size_t CheckField(ByteReader& in, size_t max_value_len, int over_value_len) {
  const uint32_t name_len = in.GetCount(OSTRAND_MAX_FIELD_NAME_LEN, OSTRAND_CODEC_ERR_FIELD_NAME);
  if (in.ok() && name_len < 2) {
    in.Fail(OSTRAND_CODEC_ERR_FIELD_NAME);
  }
  in.TakeText(name_len);
  const uint32_t value_len = in.GetCount(max_value_len, over_value_len);
  in.Take(value_len);
  return value_len;
}

// Passes over what follows a record's length.
void CheckRecord(ByteReader& in) {
  in.Take(3 * sizeof(int32_t));  // result, index, version: any value will do
  const uint32_t key_num = in.GetCount(OSTRAND_MAX_KEY_FIELD_NUM, OSTRAND_CODEC_ERR_KEY_FIELD_NUM);
  const uint32_t value_num =
      in.GetCount(OSTRAND_MAX_VALUE_FIELD_NUM, OSTRAND_CODEC_ERR_VALUE_FIELD_NUM);
  for (uint32_t i = 0; i < key_num && in.ok(); ++i) {
    CheckField(in, OSTRAND_MAX_KEY_FIELD_LEN, OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  }
  size_t values_left = OSTRAND_MAX_RECORD_VALUE_LEN;
  for (uint32_t i = 0; i < value_num && in.ok(); ++i) {
    values_left -= CheckField(in, values_left, OSTRAND_CODEC_ERR_VALUE_LEN);
  }
}

}  // namespace

int CheckRecords(const char* data, size_t len, uint32_t num) {
  ByteReader in(data, len, OSTRAND_CODEC_ERR_RECORD_LEN);
  for (uint32_t i = 0; i < num && in.ok(); ++i) {
    const size_t left_before = in.left();
    uint32_t record_len = 0;
    in.Get(record_len);
    CheckRecord(in);
    if (in.ok() && left_before - in.left() != record_len) {
      in.Fail(OSTRAND_CODEC_ERR_RECORD_LEN);
    }
  }
  if (in.ok() && in.left() > 0) {
    in.Fail(OSTRAND_CODEC_ERR_RECORD_LEN);
  }
  return in.error();
}

}  // namespace ostrand_protocol_cs
