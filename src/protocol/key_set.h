// A record's key: up to 8 named fields of up to 1024 bytes each.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrand_protocol_cs {

constexpr size_t OSTRAND_MAX_FIELD_NAME_LEN = 32;  // with its NUL
constexpr size_t OSTRAND_MAX_KEY_FIELD_NUM = 8;
constexpr size_t OSTRAND_MAX_KEY_FIELD_LEN = 1024;

struct OStrandKeyField {
  char szFieldName[OSTRAND_MAX_FIELD_NAME_LEN];
  uint32_t dwFieldLen;
  char szFieldBuff[OSTRAND_MAX_KEY_FIELD_LEN];  // raw bytes
};

struct OStrandKeySet {
  int32_t iVersion;  // the record's version; -1: any
  uint32_t dwFieldNum;
  OStrandKeyField astFields[OSTRAND_MAX_KEY_FIELD_NUM];
};

}  // namespace ostrand_protocol_cs
