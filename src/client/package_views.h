// Views into packages that requests and responses share. Application's thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "protocol/ostrand_protocol_cs.h"

namespace OstrandService {

// The records of a package's body; null when its command has none there.
ostrand_protocol_cs::OStrandRecords* RecordsOf(ostrand_protocol_cs::OStrandPkg& pkg);
const ostrand_protocol_cs::OStrandRecords* RecordsOf(const ostrand_protocol_cs::OStrandPkg& pkg);

// The field of this name; false when there is none.
bool FindKeyField(const ostrand_protocol_cs::OStrandKeySet& keys, std::string_view name,
                  ostrand_protocol_cs::FieldView& field);

// Gives the field of this name its value; a name that is new is added. 0;
// OSTRAND_CODEC_ERR_FIELD_NAME for a name not of 1 to 31 characters or with a NUL;
// OSTRAND_CODEC_ERR_KEY_FIELD_LEN over 1024 bytes; OSTRAND_CODEC_ERR_KEY_FIELD_NUM for a ninth
// field. After a failure all is as before.
int SetKeyField(ostrand_protocol_cs::OStrandKeySet& keys, std::string_view name,
                std::string_view value);

// The table name of a package, null when it has none. len (may be null): without the NUL.
const char* TableNameOf(const ostrand_protocol_cs::OStrandRouterInfo& info, size_t* len);

// Sets the table name; null: none. The caller has seen that it fits, or takes the first 31
// characters of it.
void SetTableName(ostrand_protocol_cs::OStrandRouterInfo& info, const char* name);

}  // namespace OstrandService
