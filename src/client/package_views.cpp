#include "client/package_views.h"

#include <algorithm>
#include <cstring>

#include "client/bounded_copy.h"
#include "protocol/codec_errors.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: records

const OStrandRecords* RecordsOf(const OStrandPkg& pkg) {
  switch (BodyKindOfCmd(pkg.stHead.dwCmd)) {
    case BodyKind::kRecord:
    case BodyKind::kRecords: return &pkg.stBody.stRecords;
    case BodyKind::kListGetAllRes: return &pkg.stBody.stListGetAllRes.stRecords;
    case BodyKind::kGetByPartKeyRes: return &pkg.stBody.stGetByPartKeyRes.stRecords;
    default: return nullptr;
  }
}

OStrandRecords* RecordsOf(OStrandPkg& pkg) {
  return const_cast<OStrandRecords*>(RecordsOf(const_cast<const OStrandPkg&>(pkg)));  // NOLINT
}

namespace {

std::string_view NameOf(const OStrandKeyField& field) {
  return {field.szFieldName, strnlen(field.szFieldName, sizeof(field.szFieldName))};
}

// The place of the field of this name, else the one behind the last.
uint32_t PlaceOf(const OStrandKeySet& keys, std::string_view name) {
  uint32_t i = 0;
  while (i < keys.dwFieldNum && NameOf(keys.astFields[i]) != name) {
    ++i;
  }
  return i;
}

}  // namespace

bool FindKeyField(const OStrandKeySet& keys, std::string_view name, FieldView& field) {
  const uint32_t place = PlaceOf(keys, name);
  if (place == keys.dwFieldNum) {
    return false;
  }
  const OStrandKeyField& found = keys.astFields[place];
  field.name = NameOf(found);
  field.value = {found.szFieldBuff, found.dwFieldLen};
  return true;
}

int SetKeyField(OStrandKeySet& keys, std::string_view name, std::string_view value) {
  if (name.empty() || name.size() >= OSTRAND_MAX_FIELD_NAME_LEN ||
      name.find('\0') != std::string_view::npos) {
    return OSTRAND_CODEC_ERR_FIELD_NAME;
  }
  if (value.size() > OSTRAND_MAX_KEY_FIELD_LEN) {
    return OSTRAND_CODEC_ERR_KEY_FIELD_LEN;
  }
  const uint32_t place = PlaceOf(keys, name);
  if (place == OSTRAND_MAX_KEY_FIELD_NUM) {
    return OSTRAND_CODEC_ERR_KEY_FIELD_NUM;
  }
  OStrandKeyField& field = keys.astFields[place];
  if (place == keys.dwFieldNum) {
    std::memcpy(field.szFieldName, name.data(), name.size());
    field.szFieldName[name.size()] = '\0';
    ++keys.dwFieldNum;
  }
  if (!value.empty()) {
    std::memcpy(field.szFieldBuff, value.data(), value.size());
  }
  field.dwFieldLen = static_cast<uint32_t>(value.size());
  return 0;
}

const char* TableNameOf(const OStrandRouterInfo& info, size_t* len) {
  const bool has_name = info.dwTableNameLen > 0;
  if (len != nullptr) {
    *len = has_name ? info.dwTableNameLen - 1 : 0;
  }
  return has_name ? info.szTableName : nullptr;
}

void SetTableName(OStrandRouterInfo& info, const char* name) {
  CopyBounded(info.szTableName, name);
  info.dwTableNameLen =
      name != nullptr ? static_cast<uint32_t>(std::strlen(info.szTableName)) + 1 : 0;
}

}  // namespace OstrandService
