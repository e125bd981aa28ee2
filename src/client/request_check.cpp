#include "client/request_check.h"

#include "client/client_errors.h"
#include "client/request_form.h"
#include "protocol/byte_order.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::LoadBigEndian;

// Whether there is a field, and none is empty.
bool IsWhole(FieldReader fields) {
  FieldView field;
  size_t count = 0;
  for (; fields.Next(field); ++count) {
    if (field.value.empty()) {
      return false;
    }
  }
  return count > 0;
}

bool EachRecordHasAKey(const ClientRequest& request) {
  RecordReader records = request.Records();
  RecordView record;
  while (records.Next(record)) {
    if (!IsWhole(record.keys)) {
      return false;
    }
  }
  return request.GetRecordCount() > 0;
}

bool EachEntryHasAKey(const ClientRequest& request) {
  const RequestHead& head = request.Head();
  const char* entry = request.Bytes() + head.user_len + head.key_len + sizeof(uint32_t);
  const uint32_t count = request.GetRecordCount();
  for (uint32_t i = 0; i < count; ++i) {
    FieldReader fields(entry + 8, LoadBigEndian<uint32_t>(entry + 4));
    if (!IsWhole(fields)) {
      return false;
    }
    for (FieldView field; fields.Next(field);) {
    }
    entry = fields.position() + EntryTailLen(head.cmd);
  }
  return count > 0;
}

bool HasItsKey(const ClientRequest& request) {
  switch (KeyPlaceOf(request.GetCmd())) {
    case KeyPlace::kHead: {
      const RequestHead& head = request.Head();
      return (head.key_num == 0 && !NeedsKey(head.cmd)) ||
             IsWhole(FieldReader(request.Bytes() + head.user_len, head.key_num));
    }
    case KeyPlace::kRecords: return EachRecordHasAKey(request);
    case KeyPlace::kEntries: return EachEntryHasAKey(request);
    case KeyPlace::kNone: break;
  }
  return true;
}

}  // namespace

int CheckComplete(const ClientRequest& request) {
  if (request.Fault() != 0) {
    return request.Fault();
  }
  if (!IsOfApplications(request.GetCmd())) {
    return CLIENT_ERR_REQUEST;
  }
  return HasItsKey(request) ? 0 : CLIENT_ERR_KEY;
}

}  // namespace OstrandService
