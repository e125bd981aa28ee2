// What a command's request has room for, declared once.
//
// Threads: no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/ostrand_api_cmds.h"

namespace OstrandService {

// Where the keys of a request stand.
enum class KeyPlace : uint8_t {
  kNone,
  kHead,
  kRecords,  // one in each record of a batch
  kEntries,  // one in each entry of a TTL command
};

// What the fields of a request's records are for.
enum class Values : uint8_t {
  kNone,
  kRead,     // they name what is wanted
  kWritten,  // they have values
};

KeyPlace KeyPlaceOf(uint32_t cmd);
Values ValuesOf(uint32_t cmd);
// Whether its records are elements of a list, begun one by one.
bool HasElements(uint32_t cmd);
// Whether a request without key may not be sent.
bool NeedsKey(uint32_t cmd);
// Whether an application may send it.
bool IsOfApplications(uint32_t cmd);

// Bytes of a body in which nothing stands yet; all of them are 0.
size_t EmptyBodyLen(ostrand_protocol_cs::BodyKind kind);
// Whether the body is of records; whether it begins with the number of records or entries.
bool HasRecords(ostrand_protocol_cs::BodyKind kind);
bool HasCount(ostrand_protocol_cs::BodyKind kind);

// Bytes of an entry of a TTL command behind its key.
size_t EntryTailLen(uint32_t cmd);

// Where in a record of a batch, or in an entry, its version stands.
size_t VersionOffset(uint32_t cmd);

}  // namespace OstrandService
