#include "protocol/byte_order.h"
#include "protocol/record_buffer.h"

namespace ostrand_protocol_cs {
namespace {

bool Find(FieldReader fields, std::string_view name, FieldView& found) {
  FieldView field;
  while (fields.Next(field)) {
    if (field.name == name) {
      found = field;
      return true;
    }
  }
  return false;
}

}  // namespace

bool FieldReader::Next(FieldView& field) {
  if (m_left == 0) {
    return false;
  }
  --m_left;
  const auto name_len = LoadBigEndian<uint32_t>(m_next);
  const char* const name = m_next + sizeof(uint32_t);
  const auto value_len = LoadBigEndian<uint32_t>(name + name_len);
  const char* const value = name + name_len + sizeof(uint32_t);
  field.name = {name, name_len > 0 ? name_len - 1 : 0};
  field.value = {value, value_len};
  m_next = value + value_len;
  return true;
}

bool RecordView::FindKey(std::string_view name, FieldView& field) const {
  return Find(keys, name, field);
}

bool RecordView::FindValue(std::string_view name, FieldView& field) const {
  return Find(values, name, field);
}

RecordReader::RecordReader(const OStrandRecords& records)
    : m_next(records.szRecords), m_left(records.dwRecordNum) {}

bool RecordReader::Next(RecordView& record) {
  if (m_left == 0) {
    return false;
  }
  --m_left;
  record.mark.result = LoadBigEndian<int32_t>(m_next + 4);
  record.mark.index = LoadBigEndian<int32_t>(m_next + 8);
  record.mark.version = LoadBigEndian<int32_t>(m_next + 12);
  const char* const fields = m_next + OSTRAND_RECORD_HEADER_LEN;
  record.keys = FieldReader(fields, LoadBigEndian<uint32_t>(m_next + 16));
  FieldReader behind_keys = record.keys;
  FieldView key;
  while (behind_keys.Next(key)) {
  }
  record.values = FieldReader(behind_keys.position(), LoadBigEndian<uint32_t>(m_next + 20));
  m_next += LoadBigEndian<uint32_t>(m_next);
  return true;
}

}  // namespace ostrand_protocol_cs
