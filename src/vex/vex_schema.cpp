#include "vex/vex_schema.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <string_view>
#include <tuple>

namespace {

constexpr VexTypeInfo kTypes[] = {
    {VexFieldType::kInt8, "int8", 1},     {VexFieldType::kInt16, "int16", 2},
    {VexFieldType::kInt32, "int32", 4},   {VexFieldType::kInt64, "int64", 8},
    {VexFieldType::kUint8, "uint8", 1},   {VexFieldType::kUint16, "uint16", 2},
    {VexFieldType::kUint32, "uint32", 4}, {VexFieldType::kUint64, "uint64", 8},
    {VexFieldType::kFloat, "float", 4},   {VexFieldType::kDouble, "double", 8},
    {VexFieldType::kString, "string", 0}, {VexFieldType::kBlob, "blob", 0},
};

bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

bool IsName(const std::string& name) {
  return !name.empty() && name.size() <= kVexNameBytesMax && !HasNul(name);
}

bool IsSize(const VexTypeInfo& type, uint32_t size, uint32_t size_max) {
  return type.width != 0 ? size == type.width : size >= 1 && size <= size_max;
}

int CheckFields(const std::vector<VexField>& fields, int32_t table_version, uint32_t size_max) {
  for (const VexField& field : fields) {
    if (!IsName(field.name)) return kVexBadName;
    const VexTypeInfo* type = vex_type_info(field.type);
    if (type == nullptr) return kVexBadFieldType;
    if (!IsSize(*type, field.size, size_max)) return kVexBadFieldSize;
    if (field.since_version < 0 || field.since_version > table_version) return kVexBadVersion;
  }
  return kVexOk;
}

// Sorts the names.
bool HasDuplicate(std::string_view* first, std::string_view* last) {
  std::sort(first, last);
  return std::adjacent_find(first, last) != last;
}

// REQUIRES: no more fields than a table may have.
bool HasDuplicateField(const VexMeta& meta) {
  std::array<std::string_view, kVexKeyFieldsMax + kVexValueFieldsMax> names;
  std::string_view* last = names.data();
  for (const VexField& field : meta.key_fields) *last++ = field.name;
  for (const VexField& field : meta.value_fields) *last++ = field.name;
  return HasDuplicate(names.data(), last);
}

bool HasDuplicateTable(const VexMetaLib& lib) {
  std::vector<std::string_view> names;
  names.reserve(lib.tables.size());
  for (const VexMeta& meta : lib.tables) names.push_back(meta.name);
  return HasDuplicate(names.data(), names.data() + names.size());
}

}  // namespace

const VexTypeInfo* vex_type_info(VexFieldType type) {
  const auto* found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                   [type](const VexTypeInfo& info) { return info.type == type; });
  return found != std::end(kTypes) ? found : nullptr;
}

int vex_check_meta(const VexMeta& meta) {
  if (!IsName(meta.name)) return kVexBadName;
  if (meta.version < 0) return kVexBadVersion;
  if (meta.customattr2.size() > kVexCustomAttr2BytesMax || HasNul(meta.customattr2)) {
    return kVexBadAttribute;
  }
  if (meta.key_fields.size() > kVexKeyFieldsMax) return kVexTooManyKeyFields;
  if (meta.value_fields.size() > kVexValueFieldsMax) return kVexTooManyValueFields;
  int code = CheckFields(meta.key_fields, meta.version, kVexKeySizeMax);
  if (code == kVexOk) code = CheckFields(meta.value_fields, meta.version, kVexValueSizeMax);
  if (code == kVexOk && HasDuplicateField(meta)) code = kVexDuplicateField;
  return code;
}

int vex_check_metalib(const VexMetaLib& lib) {
  if (lib.tables.size() > kVexTablesMax) return kVexTooManyTables;
  for (const VexMeta& meta : lib.tables) {
    const int code = vex_check_meta(meta);
    if (code != kVexOk) return code;
  }
  try {
    return HasDuplicateTable(lib) ? kVexDuplicateTable : kVexOk;
  } catch (const std::bad_alloc&) {
    return kVexNoMemory;
  }
}

bool operator==(const VexField& a, const VexField& b) {
  return std::tie(a.name, a.type, a.size, a.since_version) ==
         std::tie(b.name, b.type, b.size, b.since_version);
}

bool operator==(const VexMeta& a, const VexMeta& b) {
  return std::tie(a.name, a.version, a.customattr2, a.key_fields, a.value_fields) ==
         std::tie(b.name, b.version, b.customattr2, b.key_fields, b.value_fields);
}

bool operator==(const VexMetaLib& a, const VexMetaLib& b) { return a.tables == b.tables; }
