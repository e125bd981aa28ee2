#include "client/client_request.h"

#include <algorithm>
#include <cstring>

#include "client/package_views.h"
#include "client/runtime_errors.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: the records that a request is made of

namespace {

bool IsBatch(uint32_t cmd) {
  return cmd == OSTRAND_API_BATCH_GET_REQ || cmd == OSTRAND_API_BATCH_INSERT_REQ ||
         cmd == OSTRAND_API_BATCH_REPLACE_REQ || cmd == OSTRAND_API_BATCH_UPDATE_REQ ||
         cmd == OSTRAND_API_BATCH_DELETE_REQ;
}

bool HasName(FieldReader fields, std::string_view name) {
  FieldView field;
  while (fields.Next(field)) {
    if (field.name == name) {
      return true;
    }
  }
  return false;
}

// The keys of a TTL command's entries and their number.
struct TTLEntries {
  OStrandKeySet* keys = nullptr;
  uint32_t* count = nullptr;
};

// Null for other commands.
TTLEntries TTLEntriesOf(OStrandPkg& pkg) {
  switch (BodyKindOfCmd(pkg.stHead.dwCmd)) {
    case BodyKind::kSetTTLReq:
      return {pkg.stBody.stSetTTLReq.astKeyInfo, &pkg.stBody.stSetTTLReq.dwRecordNum};
    case BodyKind::kGetTTLReq:
      return {pkg.stBody.stGetTTLReq.astKeyInfo, &pkg.stBody.stGetTTLReq.dwRecordNum};
    default: return {};
  }
}

}  // namespace

ClientRequest::ClientRequest() : m_pkg(NewOStrandPkg()) {}
ClientRequest::~ClientRequest() = default;

int ClientRequest::Init(uint32_t cmd, int32_t zone_id, const char* table_name) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (table_name != nullptr &&
      strnlen(table_name, OSTRAND_MAX_TABLE_NAME_LEN) == OSTRAND_MAX_TABLE_NAME_LEN) {
    return OSTRAND_CODEC_ERR_TABLE_NAME;
  }
  if (const int ret = m_pkg->stBody.construct(cmd)) {
    return ret;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  head.construct();
  head.dwCmd = cmd;
  head.stRouterInfo.iZoneID = zone_id;
  SetTableName(head.stRouterInfo, table_name);
  timeout_ms = 0;
  net_size = 0;
  m_record.reset();
  m_table_subscript = -1;
  m_perf_test = PerfTestState::kNone;
  m_user_buff_len = 0;
  return 0;
}

void ClientRequest::SetAppId(int32_t app_id) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.stRouterInfo.iAppID = app_id;
  }
}

void ClientRequest::SetAsynID(uint64_t async_id) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.ullAsynID = async_id;
  }
}

void ClientRequest::SetSequence(int32_t sequence) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.iSeq = sequence;
  }
}

void ClientRequest::SetMetaVersion(int32_t version) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.iVexMetaVersion = version;
  }
}

void ClientRequest::SetRecordVersion(int32_t version) {
  if (m_pkg != nullptr) {
    m_pkg->stHead.stKeyInfo.iVersion = version;
  }
}

int ClientRequest::SetUserBuff(const char* buffer, size_t len) {
  if (const int ret = SetPkgUserBuff(buffer, len)) {
    return ret;
  }
  if (len > 0) {
    std::memcpy(m_user_buff, buffer, len);
    std::memcpy(m_first_bytes, buffer, std::min(len, kOverwritten));
  }
  m_user_buff_len = len;
  return 0;
}

int ClientRequest::SetKey(std::string_view name, std::string_view value) {
  return m_pkg != nullptr ? SetKeyField(m_pkg->stHead.stKeyInfo, name, value)
                          : ROUTER_ERR_ALLOCATION;
}

bool ClientRequest::GetKey(std::string_view name, FieldView& field) const {
  return m_pkg != nullptr && FindKeyField(m_pkg->stHead.stKeyInfo, name, field);
}

uint32_t ClientRequest::GetKeyCount() const {
  return m_pkg != nullptr ? m_pkg->stHead.stKeyInfo.dwFieldNum : 0;
}

int ClientRequest::AddRecord() {
  RecordMark mark;
  if (IsBatch(GetCmd())) {
    mark.index = static_cast<int32_t>(GetRecordCount());
  }
  return AddRecord(mark);
}

int ClientRequest::AddRecord(const RecordMark& mark) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  OStrandRecords* const records = RecordsOf(*m_pkg);
  const bool only_one = BodyKindOfCmd(GetCmd()) == BodyKind::kRecord;
  if (records == nullptr || (only_one && records->dwRecordNum > 0)) {
    return RUNTIME_ERR_BODY_KIND;
  }
  CurrentRecord next(*records);
  if (const int ret = next.writer.BeginRecord(mark)) {
    return ret;
  }
  m_record.emplace(next);
  return 0;
}

int ClientRequest::AddRecordKey(std::string_view name, std::string_view value) {
  if (!m_record) {
    return RUNTIME_ERR_NO_RECORD;
  }
  if (HasName(FieldReader(m_record->fields, m_record->key_count), name)) {
    return RUNTIME_ERR_DUPLICATE_FIELD;
  }
  if (const int ret = m_record->writer.AddKeyField(name, value)) {
    return ret;
  }
  ++m_record->key_count;
  return 0;
}

int ClientRequest::AddValue(std::string_view name, std::string_view value) {
  if (!m_record) {
    if (BodyKindOfCmd(GetCmd()) != BodyKind::kRecord) {
      return RUNTIME_ERR_NO_RECORD;
    }
    if (const int ret = AddRecord()) {
      return ret;
    }
  }
  FieldReader fields(m_record->fields, m_record->key_count);
  FieldView key;
  while (fields.Next(key)) {
  }
  if (HasName(FieldReader(fields.position(), m_record->value_count), name)) {
    return RUNTIME_ERR_DUPLICATE_FIELD;
  }
  if (const int ret = m_record->writer.AddValueField(name, value)) {
    return ret;
  }
  ++m_record->value_count;
  return 0;
}

bool ClientRequest::GetValue(std::string_view name, FieldView& field) const {
  const OStrandRecords* const records = GetRecords();
  if (records == nullptr) {
    return false;
  }
  RecordView record;
  return RecordReader(*records).Next(record) && record.FindValue(name, field);
}

uint32_t ClientRequest::GetRecordCount() const {
  const OStrandRecords* const records = GetRecords();
  return records != nullptr ? records->dwRecordNum : 0;
}

const OStrandRecords* ClientRequest::GetRecords() const {
  return m_pkg != nullptr ? RecordsOf(const_cast<const OStrandPkg&>(*m_pkg)) : nullptr;
}

void ClientRequest::ClearRecords() {
  if (m_pkg != nullptr) {
    m_pkg->stBody.construct(GetCmd());
    m_record.reset();
  }
}

int ClientRequest::AddTTL(int64_t ttl_ms) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  const TTLEntries entries = TTLEntriesOf(*m_pkg);
  if (entries.keys == nullptr) {
    return RUNTIME_ERR_BODY_KIND;
  }
  if (*entries.count == OSTRAND_MAX_TTL_RECORD_NUM) {
    return OSTRAND_CODEC_ERR_RECORD_NUM;
  }
  const uint32_t index = (*entries.count)++;
  entries.keys[index].iVersion = -1;
  entries.keys[index].dwFieldNum = 0;
  if (GetCmd() == OSTRAND_API_SET_TTL_REQ) {
    m_pkg->stBody.stSetTTLReq.allTTLMs[index] = ttl_ms;
  }
  // Routing puts the key of a single entry into the head; it is not to stay for the next sending.
  m_pkg->stHead.stKeyInfo.dwFieldNum = 0;
  return 0;
}

int ClientRequest::AddTTLKey(std::string_view name, std::string_view value) {
  const TTLEntries entries = m_pkg != nullptr ? TTLEntriesOf(*m_pkg) : TTLEntries();
  if (entries.keys == nullptr || *entries.count == 0) {
    return RUNTIME_ERR_NO_RECORD;
  }
  return SetKeyField(entries.keys[*entries.count - 1], name, value);
}

uint32_t ClientRequest::GetTTLCount() const {
  const TTLEntries entries = m_pkg != nullptr ? TTLEntriesOf(*m_pkg) : TTLEntries();
  return entries.count != nullptr ? *entries.count : 0;
}

const char* ClientRequest::GetTableName(size_t* len) const {
  static const OStrandRouterInfo kNoName = {};
  return TableNameOf(m_pkg != nullptr ? m_pkg->stHead.stRouterInfo : kNoName, len);
}

int32_t ClientRequest::GetZoneId() const {
  return m_pkg != nullptr ? m_pkg->stHead.stRouterInfo.iZoneID : 0;
}

uint32_t ClientRequest::GetCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwCmd : 0; }

uint32_t ClientRequest::GetSubCmd() const { return m_pkg != nullptr ? m_pkg->stHead.dwSubCmd : 0; }

int32_t ClientRequest::GetSequence() const { return m_pkg != nullptr ? m_pkg->stHead.iSeq : 0; }

uint64_t ClientRequest::GetAsynID() const { return m_pkg != nullptr ? m_pkg->stHead.ullAsynID : 0; }

char* ClientRequest::GetUserBuff(size_t* len) {
  StartFromUserBytes();
  if (len != nullptr) {
    *len = m_user_buff_len;
  }
  return m_user_buff;
}

void ClientRequest::StartFromUserBytes() {
  std::memcpy(m_user_buff, m_first_bytes, std::min(m_user_buff_len, kOverwritten));
  SetPkgUserBuff(m_user_buff, m_user_buff_len);
  if (m_perf_test == PerfTestState::kSent) {
    SetPerfTest(nullptr, 0);
  } else if (m_perf_test == PerfTestState::kSet) {
    m_perf_test = PerfTestState::kSent;
  }
}

int ClientRequest::SetPkgUserBuff(const char* buffer, size_t len) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  if (len > kMaxUserBuffLen) {
    return OSTRAND_CODEC_ERR_USER_BUFF_LEN;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > 0) {
    std::memcpy(head.szUserBuff, buffer, len);
  }
  if (len < kMaxUserBuffLen) {
    head.szUserBuff[len] = '\0';
  }
  head.dwUserBuffLen = static_cast<uint32_t>(len);
  return 0;
}

int ClientRequest::Print(char* buffer, size_t size) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  const int ret = m_pkg->visualize(buffer, size, nullptr, 0, '\n');
  return ret == OSTRAND_CODEC_ERR_BUFFER_FULL ? 0 : ret;
}

int ClientRequest::Pack(char* buffer, size_t& len) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  return PackWholeCsPkgMaybeCompress(buffer, len, nullptr, 0, *m_pkg, m_pkg->stHead.wVersion,
                                     nullptr);
}

int ClientRequest::SetPerfTest(const char* buffer, size_t len) {
  if (m_pkg == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (buffer == nullptr && len > 0) {
    return ROUTER_ERR_ARGUMENT;
  }
  if (len > OSTRAND_MAX_PERF_TEST_LEN) {
    return OSTRAND_CODEC_ERR_PERF_TEST_LEN;
  }
  OStrandPkgHead& head = m_pkg->stHead;
  if (len > 0) {
    std::memcpy(head.szPerfTest, buffer, len);
  }
  head.dwPerfTestLen = static_cast<uint32_t>(len);
  m_perf_test = len > 0 ? PerfTestState::kSet : PerfTestState::kNone;
  return 0;
}

}  // namespace OstrandService
