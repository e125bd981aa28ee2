// Key sets on the wire: version, number of fields, and of each its name and value.
#pragma once

#include "protocol/byte_reader.h"
#include "protocol/byte_writer.h"
#include "protocol/key_set.h"

namespace ostrand_protocol_cs {

inline void PackKeySet(ByteWriter& out, const OStrandKeySet& keys) {
  if (keys.dwFieldNum > OSTRAND_MAX_KEY_FIELD_NUM) {
    out.Fail(OSTRAND_CODEC_ERR_KEY_FIELD_NUM);
    return;
  }
  out.Put(keys.iVersion, keys.dwFieldNum);
  for (uint32_t i = 0; i < keys.dwFieldNum; ++i) {
    const OStrandKeyField& field = keys.astFields[i];
    out.PutText(field.szFieldName, sizeof(field.szFieldName));
    out.PutCounted(field.szFieldBuff, field.dwFieldLen, sizeof(field.szFieldBuff),
                   OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  }
}

// The fields alone, as many as keys.dwFieldNum says.
inline void UnpackKeyFields(ByteReader& in, OStrandKeySet& keys) {
  for (uint32_t i = 0; i < keys.dwFieldNum && in.ok(); ++i) {
    OStrandKeyField& field = keys.astFields[i];
    in.GetText(field.szFieldName, sizeof(field.szFieldName), OSTRAND_CODEC_ERR_FIELD_NAME);
    field.dwFieldLen = in.GetCounted(field.szFieldBuff, sizeof(field.szFieldBuff),
                                     OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  }
}

inline uint32_t UnpackKeyFieldNum(ByteReader& in) {
  return in.GetCount(OSTRAND_MAX_KEY_FIELD_NUM, OSTRAND_CODEC_ERR_KEY_FIELD_NUM);
}

inline void UnpackKeySet(ByteReader& in, OStrandKeySet& keys) {
  in.Get(keys.iVersion);
  keys.dwFieldNum = UnpackKeyFieldNum(in);
  UnpackKeyFields(in, keys);
}

// Checks a key set as UnpackKeySet does, and copies nothing.
inline void CheckKeySet(ByteReader& in) {
  int32_t version = 0;
  in.Get(version);
  const uint32_t field_num = UnpackKeyFieldNum(in);
  for (uint32_t i = 0; i < field_num && in.ok(); ++i) {
    in.PassText(OSTRAND_MAX_FIELD_NAME_LEN, OSTRAND_CODEC_ERR_FIELD_NAME);
    in.PassCounted(OSTRAND_MAX_KEY_FIELD_LEN, OSTRAND_CODEC_ERR_KEY_FIELD_LEN);
  }
}

}  // namespace ostrand_protocol_cs
