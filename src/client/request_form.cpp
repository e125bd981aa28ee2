#include "client/request_form.h"

#include <array>

#include "common/ostrand_reqresp_util.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: commands
using OstrandCommon::OstrandReqRespUtil;

namespace {

struct Form {
  uint32_t cmd;
  KeyPlace key;
  Values values;
  bool elements;
};

// Commands that are not here have a key in the head and nothing else.
constexpr Form kForms[] = {
    {OSTRAND_API_INSERT_REQ, KeyPlace::kHead, Values::kWritten, false},
    {OSTRAND_API_REPLACE_REQ, KeyPlace::kHead, Values::kWritten, false},
    {OSTRAND_API_UPDATE_REQ, KeyPlace::kHead, Values::kWritten, false},
    {OSTRAND_API_GET_REQ, KeyPlace::kHead, Values::kRead, false},
    {OSTRAND_API_GET_BY_PARTKEY_REQ, KeyPlace::kHead, Values::kRead, false},
    {OSTRAND_API_LIST_GETALL_REQ, KeyPlace::kHead, Values::kRead, false},
    {OSTRAND_API_LIST_GET_REQ, KeyPlace::kHead, Values::kRead, true},
    {OSTRAND_API_LIST_INSERT_REQ, KeyPlace::kHead, Values::kWritten, true},
    {OSTRAND_API_LIST_UPDATE_REQ, KeyPlace::kHead, Values::kWritten, true},
    {OSTRAND_API_LIST_DELETE_REQ, KeyPlace::kHead, Values::kNone, true},
    {OSTRAND_API_BATCH_GET_REQ, KeyPlace::kRecords, Values::kRead, false},
    {OSTRAND_API_BATCH_INSERT_REQ, KeyPlace::kRecords, Values::kWritten, false},
    {OSTRAND_API_BATCH_REPLACE_REQ, KeyPlace::kRecords, Values::kWritten, false},
    {OSTRAND_API_BATCH_UPDATE_REQ, KeyPlace::kRecords, Values::kWritten, false},
    {OSTRAND_API_BATCH_DELETE_REQ, KeyPlace::kRecords, Values::kNone, false},
    {OSTRAND_API_SET_TTL_REQ, KeyPlace::kEntries, Values::kNone, false},
    {OSTRAND_API_GET_TTL_REQ, KeyPlace::kEntries, Values::kNone, false},
    {OSTRAND_API_METADATA_GET_REQ, KeyPlace::kNone, Values::kNone, false},
};

constexpr uint32_t HighestCmd() {
  uint32_t highest = 0;
  for (const Form& form : kForms) {
    highest = form.cmd > highest ? form.cmd : highest;
  }
  return highest;
}

constexpr Form kOther = {0, KeyPlace::kHead, Values::kNone, false};

constexpr std::array<Form, HighestCmd() + 1> MakeTable() {
  std::array<Form, HighestCmd() + 1> table{};
  for (Form& form : table) {
    form = kOther;
  }
  table[0] = {0, KeyPlace::kNone, Values::kNone, false};
  for (const Form& form : kForms) {
    table[form.cmd] = form;
  }
  return table;
}

constexpr auto kFormOfCmd = MakeTable();  // it is asked several times for each request

const Form& FormOf(uint32_t cmd) { return cmd < kFormOfCmd.size() ? kFormOfCmd[cmd] : kOther; }

}  // namespace

KeyPlace KeyPlaceOf(uint32_t cmd) { return FormOf(cmd).key; }

Values ValuesOf(uint32_t cmd) { return FormOf(cmd).values; }

bool HasElements(uint32_t cmd) { return FormOf(cmd).elements; }

// Of commands whose body is not defined here only the simple ones are known to be about one record.
bool NeedsKey(uint32_t cmd) {
  if (BodyKindOfCmd(cmd) == BodyKind::kSkipped) {
    return OstrandReqRespUtil::IsSimpleReadRequest(cmd, 0) ||
           OstrandReqRespUtil::IsSimpleWriteRequest(cmd, 0);
  }
  return KeyPlaceOf(cmd) != KeyPlace::kNone;
}

bool IsOfApplications(uint32_t cmd) {
  return cmd == OSTRAND_API_METADATA_GET_REQ || OstrandReqRespUtil::IsReadRequest(cmd, 0) ||
         OstrandReqRespUtil::IsWriteRequest(cmd, 0);
}

size_t EmptyBodyLen(BodyKind kind) {
  if (HasRecords(kind)) {
    return 8;
  }
  return HasCount(kind) || kind == BodyKind::kMetadataGetReq ? 4 : 0;
}

bool HasRecords(BodyKind kind) { return kind == BodyKind::kRecord || kind == BodyKind::kRecords; }

bool HasCount(BodyKind kind) {
  return HasRecords(kind) || kind == BodyKind::kSetTTLReq || kind == BodyKind::kGetTTLReq;
}

size_t EntryTailLen(uint32_t cmd) { return cmd == OSTRAND_API_SET_TTL_REQ ? sizeof(int64_t) : 0; }

size_t VersionOffset(uint32_t cmd) { return KeyPlaceOf(cmd) == KeyPlace::kRecords ? 12 : 0; }

}  // namespace OstrandService
