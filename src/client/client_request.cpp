#include "client/client_request.h"

#include <algorithm>

#include "client/request_form.h"
#include "client/runtime_errors.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: what a request is made of

namespace {

constexpr size_t kRecordsHeadLen = 2 * sizeof(uint32_t);  // number and bytes, before the records
constexpr size_t kKeySetHeadLen = 2 * sizeof(uint32_t);   // version and number, before the fields
constexpr size_t kTTLLen = sizeof(int64_t);
constexpr char kZeros[8] = {};

bool IsName(std::string_view name) {
  return !name.empty() && name.size() < OSTRAND_MAX_FIELD_NAME_LEN &&
         name.find('\0') == std::string_view::npos;
}

size_t FieldLen(std::string_view name, std::string_view value) {
  return 2 * sizeof(uint32_t) + name.size() + 1 + value.size();
}

void WriteField(char* to, std::string_view name, std::string_view value) {
  StoreBigEndian(to, static_cast<uint32_t>(name.size() + 1));
  to += sizeof(uint32_t);
  to += name.copy(to, name.size());
  *to++ = '\0';
  StoreBigEndian(to, static_cast<uint32_t>(value.size()));
  value.copy(to + sizeof(uint32_t), value.size());
}

bool FindField(FieldReader fields, std::string_view name, FieldView& found) {
  FieldView field;
  while (fields.Next(field)) {
    if (field.name == name) {
      found = field;
      return true;
    }
  }
  return false;
}

bool HasField(const char* fields, uint32_t num, std::string_view name) {
  FieldView field;
  return FindField(FieldReader(fields, num), name, field);
}

constexpr uint8_t kOpenMark = 0x80;

}  // namespace

ClientRequest::ClientRequest(const ClientRequest& other) { *this = other; }

ClientRequest& ClientRequest::operator=(const ClientRequest& other) {
  if (this == &other) {
    return *this;
  }
  Reset();
  if (!m_bytes.CopyFrom(other.m_bytes)) {
    Fail(ROUTER_ERR_ALLOCATION);
    return *this;
  }
  m_head = other.m_head;
  m_record = other.m_record;
  m_fault = other.m_fault;
  std::copy(std::begin(other.m_fault_field), std::end(other.m_fault_field), m_fault_field);
  return *this;
}

ClientRequest::ClientRequest(ClientRequest&& other) noexcept { *this = std::move(other); }

ClientRequest& ClientRequest::operator=(ClientRequest&& other) noexcept {
  if (this == &other) {
    return *this;
  }
  m_head = other.m_head;
  m_bytes = std::move(other.m_bytes);
  m_record = other.m_record;
  m_fault = other.m_fault;
  std::copy(std::begin(other.m_fault_field), std::end(other.m_fault_field), m_fault_field);
  other.Reset();
  return *this;
}

void ClientRequest::Reset() {
  m_head = RequestHead();
  m_bytes.Clear();
  m_record = CurrentRecord();
  m_fault = 0;
  m_fault_field[0] = '\0';
}

// Keeps the first fault. Always false, for `return Fail(...)`.
bool ClientRequest::Fail(int code, std::string_view field) {
  if (m_fault == 0) {
    m_fault = code;
    const size_t len = field.copy(m_fault_field, sizeof(m_fault_field) - 1);
    m_fault_field[len] = '\0';
  }
  return false;
}

#define OSTRAND_CLIENT_OPERATION(operation, command)                 \
  ClientRequest& ClientRequest::operation(std::string_view table)& { \
    return Begin(OSTRAND_API_##command##_REQ, table);                \
  }
OSTRAND_CLIENT_COMMANDS(OSTRAND_CLIENT_OPERATION)
#undef OSTRAND_CLIENT_OPERATION

ClientRequest& ClientRequest::Begin(uint32_t cmd, std::string_view table) {
  Reset();
  const BodyKind kind = BodyKindOfCmd(cmd);
  if (kind == BodyKind::kUnknown) {
    Fail(OSTRAND_CODEC_ERR_COMMAND);
    return *this;
  }
  if (table.size() >= sizeof(m_head.table_name) || table.find('\0') != std::string_view::npos) {
    Fail(OSTRAND_CODEC_ERR_TABLE_NAME, table);
    return *this;
  }
  const size_t body_len = EmptyBodyLen(kind);
  if (!m_bytes.Reserve(body_len, 0)) {
    Fail(ROUTER_ERR_ALLOCATION);
    return *this;
  }
  if (body_len > 0) {  // else there may be no bytes at all
    std::memcpy(m_bytes.Insert(0, body_len), kZeros, body_len);
  }
  m_head.cmd = cmd;
  m_head.body_len = static_cast<uint32_t>(body_len);
  m_head.table_name_len = static_cast<uint8_t>(table.copy(m_head.table_name, table.size()));
  return *this;
}

ClientRequest& ClientRequest::Zone(int32_t zone_id) & {
  m_head.zone_id = zone_id;
  return *this;
}

ClientRequest& ClientRequest::SetTimeout(int32_t ms) & {
  m_head.timeout_ms = std::max(ms, 0);
  return *this;
}

ClientRequest& ClientRequest::SetRepeat(int32_t times, bool also_writes) & {
  m_head.repeats = std::max(times, 0);
  m_head.repeat_writes = also_writes;
  return *this;
}

ClientRequest& ClientRequest::SetSequence(int32_t sequence) & {
  m_head.sequence = sequence;
  return *this;
}

ClientRequest& ClientRequest::SetUserBuff(std::string_view bytes) & {
  if (m_fault != 0) {
    return *this;
  }
  if (bytes.size() > kMaxUserBuffLen) {
    Fail(OSTRAND_CODEC_ERR_USER_BUFF_LEN);
  } else if (!m_bytes.Reserve(bytes.size(), 0)) {
    Fail(ROUTER_ERR_ALLOCATION);
  } else {
    m_bytes.Erase(0, m_head.user_len);
    bytes.copy(m_bytes.Insert(0, bytes.size()), bytes.size());
    m_head.user_len = static_cast<uint32_t>(bytes.size());
  }
  return *this;
}

ClientRequest& ClientRequest::Expect(int32_t version) & {
  if (m_fault != 0) {
    return *this;
  }
  switch (KeyPlaceOf(m_head.cmd)) {
    case KeyPlace::kHead: m_head.expected_version = version; break;
    case KeyPlace::kRecords:
    case KeyPlace::kEntries:
      if (m_record.is_there) {
        StoreBigEndian(Body() + m_record.begin + VersionOffset(m_head.cmd), version);
      } else {
        Fail(RUNTIME_ERR_NO_RECORD);
      }
      break;
    case KeyPlace::kNone: Fail(RUNTIME_ERR_BODY_KIND); break;
  }
  return *this;
}

ClientRequest& ClientRequest::Key(std::string_view name, const FieldValue& value) & {
  if (m_fault != 0 || !CheckField(name, value)) {
    return *this;
  }
  if (value.Bytes().size() > OSTRAND_MAX_KEY_FIELD_LEN) {
    Fail(OSTRAND_CODEC_ERR_KEY_FIELD_LEN, name);
    return *this;
  }
  switch (KeyPlaceOf(m_head.cmd)) {
    case KeyPlace::kHead: AddHeadKey(name, value); break;
    case KeyPlace::kRecords:
    case KeyPlace::kEntries: AddRecordKey(name, value); break;
    case KeyPlace::kNone: Fail(RUNTIME_ERR_BODY_KIND, name); break;
  }
  return *this;
}

ClientRequest& ClientRequest::Set(std::string_view name, const FieldValue& value) & {
  if (m_fault == 0 && CheckField(name, value)) {
    if (ValuesOf(m_head.cmd) == Values::kWritten) {
      AddValue(name, value);
    } else {
      Fail(RUNTIME_ERR_BODY_KIND, name);
    }
  }
  return *this;
}

ClientRequest& ClientRequest::Field(std::string_view name) & {
  if (m_fault == 0 && CheckField(name, std::string_view())) {
    if (ValuesOf(m_head.cmd) == Values::kRead) {
      AddValue(name, std::string_view());
    } else {
      Fail(RUNTIME_ERR_BODY_KIND, name);
    }
  }
  return *this;
}

ClientRequest& ClientRequest::Record() & {
  if (m_fault != 0) {
    return *this;
  }
  if (KeyPlaceOf(m_head.cmd) == KeyPlace::kRecords) {
    RecordMark mark;
    mark.index = static_cast<int32_t>(GetRecordCount());
    BeginRecord(mark);
  } else if (m_head.cmd == OSTRAND_API_GET_TTL_REQ) {
    BeginEntry(0);
  } else {
    Fail(RUNTIME_ERR_BODY_KIND);
  }
  return *this;
}

ClientRequest& ClientRequest::Record(int64_t ttl_ms) & {
  if (m_fault == 0) {
    if (m_head.cmd == OSTRAND_API_SET_TTL_REQ) {
      BeginEntry(ttl_ms);
    } else {
      Fail(RUNTIME_ERR_BODY_KIND);
    }
  }
  return *this;
}

ClientRequest& ClientRequest::Element(int32_t index) & {
  if (m_fault == 0) {
    if (HasElements(m_head.cmd)) {
      RecordMark mark;
      mark.index = index;
      BeginRecord(mark);
    } else {
      Fail(RUNTIME_ERR_BODY_KIND);
    }
  }
  return *this;
}

bool ClientRequest::CheckField(std::string_view name, const FieldValue& value) {
  if (!IsName(name)) {
    return Fail(OSTRAND_CODEC_ERR_FIELD_NAME, name);
  }
  return value.IsInRange() || Fail(RUNTIME_ERR_VALUE_RANGE, name);
}

// Opens a gap for a field and writes it. at: in the bytes; mark_at: the field's number in the order
// in which all fields stand. The caller keeps the lengths.
bool ClientRequest::InsertField(size_t at, size_t mark_at, std::string_view name,
                                const FieldValue& value) {
  const size_t len = FieldLen(name, value.Bytes());
  if (!m_bytes.Reserve(len, 1)) {
    return Fail(ROUTER_ERR_ALLOCATION);
  }
  WriteField(m_bytes.Insert(at, len), name, value.Bytes());
  const auto type = static_cast<uint8_t>(value.Type());
  m_bytes.InsertMark(mark_at, value.IsOpen() ? type | kOpenMark : type);
  return true;
}

void ClientRequest::AddHeadKey(std::string_view name, const FieldValue& value) {
  if (HasField(m_bytes.data() + m_head.user_len, m_head.key_num, name)) {
    Fail(RUNTIME_ERR_DUPLICATE_FIELD, name);
  } else if (m_head.key_num == OSTRAND_MAX_KEY_FIELD_NUM) {
    Fail(OSTRAND_CODEC_ERR_KEY_FIELD_NUM, name);
  } else if (InsertField(size_t{m_head.user_len} + m_head.key_len, m_head.key_num, name, value)) {
    m_head.key_len += static_cast<uint32_t>(FieldLen(name, value.Bytes()));
    ++m_head.key_num;
    ++m_record.first_mark;
  }
}

bool ClientRequest::BeginRecord(const RecordMark& mark) {
  if (m_head.body_len - kRecordsHeadLen + OSTRAND_RECORD_HEADER_LEN > OSTRAND_MAX_RECORDS_LEN) {
    return Fail(OSTRAND_CODEC_ERR_RECORDS_LEN);
  }
  if (!m_bytes.Reserve(OSTRAND_RECORD_HEADER_LEN, 0)) {
    return Fail(ROUTER_ERR_ALLOCATION);
  }
  char* const header = m_bytes.Insert(m_bytes.size(), OSTRAND_RECORD_HEADER_LEN);
  std::memset(header, 0, OSTRAND_RECORD_HEADER_LEN);
  StoreBigEndian(header + 8, mark.index);
  StoreBigEndian(header + 12, mark.version);
  m_record = CurrentRecord();
  m_record.is_there = true;
  m_record.begin = m_head.body_len;
  m_head.body_len += static_cast<uint32_t>(OSTRAND_RECORD_HEADER_LEN);
  m_record.keys_end = m_head.body_len;
  m_record.first_mark = static_cast<uint32_t>(m_bytes.mark_count());
  StoreBigEndian(Body(), LoadBigEndian<uint32_t>(Body()) + 1);
  WriteRecordNumbers();
  return true;
}

// What follows from the current record's fields: its header's numbers, and the length of all.
void ClientRequest::WriteRecordNumbers() {
  char* const header = Body() + m_record.begin;
  StoreBigEndian(header, m_head.body_len - m_record.begin);
  StoreBigEndian(header + 16, uint32_t{m_record.key_num});
  StoreBigEndian(header + 20, uint32_t{m_record.value_num});
  StoreBigEndian(Body() + 4, static_cast<uint32_t>(m_head.body_len - kRecordsHeadLen));
}

void ClientRequest::BeginEntry(int64_t ttl_ms) {
  const bool has_ttl = m_head.cmd == OSTRAND_API_SET_TTL_REQ;
  const uint32_t count = GetRecordCount();
  const size_t len = kKeySetHeadLen + (has_ttl ? kTTLLen : 0);
  if (count == OSTRAND_MAX_TTL_RECORD_NUM) {
    Fail(OSTRAND_CODEC_ERR_RECORD_NUM);
    return;
  }
  if (!m_bytes.Reserve(len, 0)) {
    Fail(ROUTER_ERR_ALLOCATION);
    return;
  }
  char* const entry = m_bytes.Insert(m_bytes.size(), len);
  StoreBigEndian(entry, int32_t{-1});
  StoreBigEndian(entry + 4, uint32_t{0});
  if (has_ttl) {
    StoreBigEndian(entry + kKeySetHeadLen, ttl_ms);
  }
  m_record = CurrentRecord();
  m_record.is_there = true;
  m_record.begin = m_head.body_len;
  m_record.keys_end = m_record.begin + static_cast<uint32_t>(kKeySetHeadLen);
  m_record.first_mark = static_cast<uint32_t>(m_bytes.mark_count());
  m_head.body_len += static_cast<uint32_t>(len);
  StoreBigEndian(Body(), count + 1);
}

void ClientRequest::AddRecordKey(std::string_view name, const FieldValue& value) {
  const bool is_entry = KeyPlaceOf(m_head.cmd) == KeyPlace::kEntries;
  if (!m_record.is_there) {
    Fail(RUNTIME_ERR_NO_RECORD, name);
    return;
  }
  const char* const fields =
      Body() + m_record.begin + (is_entry ? kKeySetHeadLen : OSTRAND_RECORD_HEADER_LEN);
  const size_t len = FieldLen(name, value.Bytes());
  if (HasField(fields, m_record.key_num, name)) {
    Fail(RUNTIME_ERR_DUPLICATE_FIELD, name);
  } else if (m_record.key_num == OSTRAND_MAX_KEY_FIELD_NUM) {
    Fail(OSTRAND_CODEC_ERR_KEY_FIELD_NUM, name);
  } else if (!is_entry && m_head.body_len - kRecordsHeadLen + len > OSTRAND_MAX_RECORDS_LEN) {
    Fail(OSTRAND_CODEC_ERR_RECORDS_LEN, name);
  } else if (InsertField(static_cast<size_t>(Body() - m_bytes.data()) + m_record.keys_end,
                         m_record.first_mark + m_record.key_num, name, value)) {
    m_head.body_len += static_cast<uint32_t>(len);
    m_record.keys_end += static_cast<uint32_t>(len);
    ++m_record.key_num;
    if (is_entry) {
      StoreBigEndian(Body() + m_record.begin + 4, uint32_t{m_record.key_num});
    } else {
      WriteRecordNumbers();
    }
  }
}

void ClientRequest::AddValue(std::string_view name, const FieldValue& value) {
  const size_t value_len = value.Bytes().size();
  if (!m_record.is_there) {
    if (BodyKindOfCmd(m_head.cmd) != BodyKind::kRecord) {
      Fail(RUNTIME_ERR_NO_RECORD, name);
      return;
    }
    if (!BeginRecord(RecordMark())) {
      return;
    }
  }
  const size_t len = FieldLen(name, value.Bytes());
  if (HasField(Body() + m_record.keys_end, m_record.value_num, name)) {
    Fail(RUNTIME_ERR_DUPLICATE_FIELD, name);
  } else if (m_record.value_num == OSTRAND_MAX_VALUE_FIELD_NUM) {
    Fail(OSTRAND_CODEC_ERR_VALUE_FIELD_NUM, name);
  } else if (value_len > OSTRAND_MAX_RECORD_VALUE_LEN - m_record.values_len) {
    Fail(OSTRAND_CODEC_ERR_VALUE_LEN, name);
  } else if (m_head.body_len - kRecordsHeadLen + len > OSTRAND_MAX_RECORDS_LEN) {
    Fail(OSTRAND_CODEC_ERR_RECORDS_LEN, name);
  } else if (InsertField(m_bytes.size(), m_bytes.mark_count(), name, value)) {
    m_head.body_len += static_cast<uint32_t>(len);
    m_record.values_len += static_cast<uint32_t>(value_len);
    ++m_record.value_num;
    WriteRecordNumbers();
  }
}

const char* ClientRequest::GetTableName(size_t* len) const {
  if (len != nullptr) {
    *len = m_head.table_name_len;
  }
  return m_head.table_name;
}

std::string_view ClientRequest::GetUserBuff() const { return {m_bytes.data(), m_head.user_len}; }

bool ClientRequest::GetKey(std::string_view name, FieldView& field) const {
  return FindField(FieldReader(m_bytes.data() + m_head.user_len, m_head.key_num), name, field);
}

bool ClientRequest::GetValue(std::string_view name, FieldView& field) const {
  RecordView record;
  return Records().Next(record) && record.FindValue(name, field);
}

uint32_t ClientRequest::GetRecordCount() const {
  return HasCount(BodyKindOfCmd(m_head.cmd)) ? LoadBigEndian<uint32_t>(Body()) : 0;
}

RecordReader ClientRequest::Records() const {
  return HasRecords(BodyKindOfCmd(m_head.cmd))
             ? RecordReader(Body() + kRecordsHeadLen, GetRecordCount())
             : RecordReader();
}

}  // namespace OstrandService
