// What a schema holds: plain records that an application fills for its own tables, that the loader
// fills from an image, and that anybody reads field by field.
//
// A VexMeta built by hand serves everywhere an LPVEXMETA is wanted, once vex_check_meta accepts it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/export.h"
#include "vex/vex_codes.h"

constexpr size_t kVexTablesMax = 4096;   // tables of a library
constexpr size_t kVexNameBytesMax = 31;  // name of a table or a field
constexpr size_t kVexCustomAttr2BytesMax = 4095;
constexpr size_t kVexKeyFieldsMax = 8;          // of a table
constexpr size_t kVexValueFieldsMax = 128;      // of a table
constexpr uint32_t kVexKeySizeMax = 1024;       // bytes of one key field
constexpr uint32_t kVexValueSizeMax = 1048576;  // bytes of one value field

// Numbers are those of the image.
enum class VexFieldType : uint8_t {
  kInt8 = 1,
  kInt16 = 2,
  kInt32 = 3,
  kInt64 = 4,
  kUint8 = 5,
  kUint16 = 6,
  kUint32 = 7,
  kUint64 = 8,
  kFloat = 9,
  kDouble = 10,
  kString = 11,  // text, without a NUL
  kBlob = 12,    // any bytes
};

struct VexTypeInfo {
  VexFieldType type;
  const char* name;  // "int8", "string"
  uint32_t width;    // bytes of every value; 0 for types whose values have lengths of their own
};

// What is known of a type; null when there is no such type. Static storage.
OSTRAND_API const VexTypeInfo* vex_type_info(VexFieldType type);

struct VexField {
  std::string name;  // 1 to 31 bytes, no NUL
  VexFieldType type = VexFieldType::kInt32;
  uint32_t size = 4;  // bytes: the type's width; of a string or blob the longest value, from 1
  int32_t since_version = 0;  // version of the schema that brought the field, at most the table's
};

struct VexMeta {
  std::string name;         // of the table; 1 to 31 bytes, no NUL
  int32_t version = 0;      // of the schema, not negative
  std::string customattr2;  // items separated by ';', no NUL; empty when the table has none
  std::vector<VexField> key_fields;
  std::vector<VexField> value_fields;
};

struct VexMetaLib {
  std::vector<VexMeta> tables;
};

// Whether all limits above are kept and no two fields of the table, keys and values together, have
// one name. kVexOk or the code of the first fault. Neither throws nor allocates; any thread.
OSTRAND_API int vex_check_meta(const VexMeta& meta);

// Whether every table passes vex_check_meta and no two have one name. kVexOk, the code of the first
// fault, or kVexNoMemory. Any thread.
OSTRAND_API int vex_check_metalib(const VexMetaLib& lib);

OSTRAND_API bool operator==(const VexField& a, const VexField& b);
OSTRAND_API bool operator==(const VexMeta& a, const VexMeta& b);
OSTRAND_API bool operator==(const VexMetaLib& a, const VexMetaLib& b);
