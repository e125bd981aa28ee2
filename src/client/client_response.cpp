#include "client/client_response.h"

#include <cstring>
#include <utility>

#include "protocol/byte_order.h"
#include "protocol/codec.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {

using namespace ostrand_protocol_cs;  // NOLINT: the parts that an answer is made of

namespace {

constexpr size_t kMultiPkgHeadLen = 5;  // iResult and bHasMorePkgs, before the records

// A big-endian number at the beginning of bytes that were checked.
template <typename Int>
Int At(const char* bytes) {
  return LoadBigEndian<Int>(bytes);
}

}  // namespace

ClientResponse::ClientResponse(ClientResponse&& other) noexcept
    : m_head(std::exchange(other.m_head, ResponseHead())),
      m_bytes(std::move(other.m_bytes)),
      m_reader(std::exchange(other.m_reader, RecordReader())),
      m_is_reading(std::exchange(other.m_is_reading, false)),
      m_packages(std::move(other.m_packages)),
      m_next_package(std::exchange(other.m_next_package, 0)) {}

ClientResponse& ClientResponse::operator=(ClientResponse&& other) noexcept {
  if (this != &other) {
    m_head = std::exchange(other.m_head, ResponseHead());
    m_bytes = std::move(other.m_bytes);
    m_reader = std::exchange(other.m_reader, RecordReader());
    m_is_reading = std::exchange(other.m_is_reading, false);
    m_packages = std::move(other.m_packages);
    m_next_package = std::exchange(other.m_next_package, 0);
  }
  return *this;
}

bool ClientResponse::NextPackage() {
  if (m_next_package >= m_packages.size()) {
    return false;
  }
  ClientResponse& next = m_packages[m_next_package++];
  std::swap(m_head, next.m_head);
  std::swap(m_bytes, next.m_bytes);
  std::swap(m_reader, next.m_reader);
  m_is_reading = false;
  return true;
}

void ClientResponse::AppendPackage(ClientResponse&& package) {
  m_packages.push_back(std::move(package));
}

int ClientResponse::SetOutcome(const OutcomeHead& outcome) {
  Clear();
  m_head.async_id = outcome.async_id;
  m_head.cmd = outcome.cmd;
  m_head.result = outcome.result;
  m_head.sequence = outcome.sequence;
  m_head.app_id = outcome.app_id;
  m_head.zone_id = outcome.zone_id;
  const size_t table_len = outcome.table.size() + 1;
  char* const bytes = m_bytes.Resize(table_len + outcome.user_bytes.size(), 0);
  if (bytes == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  outcome.table.copy(bytes, outcome.table.size());
  bytes[table_len - 1] = '\0';
  outcome.user_bytes.copy(bytes + table_len, outcome.user_bytes.size());
  m_head.table_len = static_cast<uint32_t>(table_len);
  m_head.user_at = static_cast<uint32_t>(table_len);
  m_head.user_len = static_cast<uint32_t>(outcome.user_bytes.size());
  return 0;
}

const char* ClientResponse::GetTableName(size_t* len) const {
  if (len != nullptr) {
    *len = m_head.table_len > 0 ? m_head.table_len - 1 : 0;
  }
  return m_head.table_len > 0 ? m_bytes.data() + m_head.table_at : nullptr;
}

std::string_view ClientResponse::GetUserBuff() const {
  return m_head.user_len > 0 ? std::string_view(m_bytes.data() + m_head.user_at, m_head.user_len)
                             : std::string_view();
}

bool ClientResponse::GetKey(std::string_view name, FieldView& field) const {
  if (m_head.keys_at == 0) {
    return false;
  }
  const char* const keys = m_bytes.data() + m_head.keys_at;
  FieldReader fields(keys + 2 * sizeof(uint32_t), At<uint32_t>(keys + sizeof(int32_t)));
  for (FieldView found; fields.Next(found);) {
    if (found.name == name) {
      field = found;
      return true;
    }
  }
  return false;
}

bool ClientResponse::HasRecords(uint32_t& count, const char*& records) const {
  const BodyKind kind = BodyKindOfCmd(m_head.cmd);
  const bool is_part = kind == BodyKind::kListGetAllRes || kind == BodyKind::kGetByPartKeyRes;
  if (m_head.body_len == 0 ||
      (!is_part && kind != BodyKind::kRecord && kind != BodyKind::kRecords)) {
    return false;
  }
  const char* const body = Body().data() + (is_part ? kMultiPkgHeadLen : 0);
  count = At<uint32_t>(body);
  records = body + 2 * sizeof(uint32_t);
  return true;
}

uint32_t ClientResponse::GetRecordCount() const {
  uint32_t count = 0;
  const char* records = nullptr;
  return HasRecords(count, records) ? count : 0;
}

bool ClientResponse::NextRecord(RecordView& record) {
  if (!m_is_reading) {
    uint32_t count = 0;
    const char* records = nullptr;
    HasRecords(count, records);
    m_reader = RecordReader(records, count);
    m_is_reading = true;
  }
  return m_reader.Next(record);
}

void ClientResponse::FirstRecord(RecordView& record) const {
  uint32_t count = 0;
  const char* records = nullptr;
  HasRecords(count, records);
  RecordReader(records, count).Next(record);
}

bool ClientResponse::GetValue(std::string_view name, FieldView& field) const {
  RecordView record;
  FirstRecord(record);
  return record.FindValue(name, field);
}

uint32_t ClientResponse::GetTTLCount() const {
  return BodyKindOfCmd(m_head.cmd) == BodyKind::kTTLRes && m_head.body_len > 0
             ? At<uint32_t>(Body().data())
             : 0;
}

bool ClientResponse::GetTTL(uint32_t index, RecordTTL& ttl) const {
  if (index >= GetTTLCount()) {
    return false;
  }
  const char* const entry = Body().data() + sizeof(uint32_t) + index * OSTRAND_TTL_ENTRY_LEN;
  ttl.result = At<int32_t>(entry);
  ttl.ttl_ms = At<int64_t>(entry + sizeof(int32_t));
  return true;
}

bool ClientResponse::GetMetadata(TableMetadata& metadata) const {
  if (m_head.cmd != OSTRAND_API_METADATA_GET_RES || m_head.body_len == 0) {
    return false;
  }
  const char* const body = Body().data();
  metadata.table_type = At<uint32_t>(body);
  metadata.version = At<int32_t>(body + 4);
  metadata.idl_type = At<int32_t>(body + 8);
  metadata.image = {body + 16, At<uint32_t>(body + 12)};
  return true;
}

}  // namespace OstrandService
